#include "QKApplicationLog.h"
#include "QKTestEnvironment.h"
#include "QKTestSupport.h"
#include "QKUserDefaults.h"
#include "QKWorkspace.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUrl>

#include <thread>
#include <vector>

using QKTestEnvironment::homeFile;

namespace {

QString logPath()
{
    return homeFile(u".local/state/Velmora/Test Host.log"_s);
}

QStringList logLines()
{
    return QString::fromUtf8(QKTestEnvironment::readAll(logPath()))
        .split(u'\n', Qt::SkipEmptyParts);
}

/** The message field of every entry, in file order. */
QStringList loggedMessages()
{
    QStringList messages;
    for (const QString &line : logLines()) {
        if (!line.startsWith(u'\t'))
            messages << line.section(u'\t', 6);
    }
    return messages;
}

class QKApplicationLogTest : public ::testing::Test
{
protected:
    /** What the next run of the application would find. */
    static QKApplicationLog *restart()
    {
        QKApplicationLog::resetSharedLog();
        return QKApplicationLog::sharedLog();
    }
    void TearDown() override { QKApplicationLog::resetSharedLog(); }

    void logAt(uint level, const QString &message, const QString &domain = u"HDSupport"_s)
    {
        const QKApplicationLogContext context(domain);
        log->log(level, &context, message);
    }

    /** The rules as "domain threshold on|off". */
    QStringList rules() const
    {
        QStringList list;
        for (const QKApplicationLogRule *rule : log->_rules())
            list << u"%1 %2 %3"_s.arg(rule->domain())
                        .arg(rule->threshold())
                        .arg(rule->active() ? u"on" : u"off");
        return list;
    }

    QKApplicationLog *log = restart();
};

} // namespace

TEST_F(QKApplicationLogTest, writesWarningsAndAboveToTheApplicationsLogFile)
{
    EXPECT_EQ(log->logFilePath(), logPath());
    logAt(QKApplicationLog::Notice, u"begin submit"_s);
    EXPECT_FALSE(QFile::exists(logPath()));
    // Opening the log shows the file even before its first entry (the Debug pane's test
    // checks what is opened).
    QKWorkspace::setOpener([](const QUrl &) { return true; });
    EXPECT_TRUE(log->openLogFile());
    QKWorkspace::setOpener({});
    EXPECT_TRUE(QFile::exists(logPath()));

    logAt(QKApplicationLog::Warning, u"failed"_s);
    log->log(QKApplicationLog::Error, nullptr, u"broken"_s);
    EXPECT_EQ(loggedMessages(), QStringList({u"failed"_s, u"broken"_s}));
}

TEST_F(QKApplicationLogTest, rulesMatchTheExactDomainAndInactiveRulesFallBackToTheDefault)
{
    log->_setThreshold(QKApplicationLog::Error);
    log->_setThreshold(QKApplicationLog::Info, u"HDSupport"_s);
    ASSERT_EQ(log->_rules().size(), 1);

    logAt(QKApplicationLog::Info, u"1 rule passes"_s);
    logAt(QKApplicationLog::Debug, u"below rule"_s);
    logAt(QKApplicationLog::Warning, u"other"_s, u"HDSupportX"_s);
    logAt(QKApplicationLog::Warning, u"case"_s, u"hdsupport"_s);
    logAt(QKApplicationLog::Error, u"2 default passes"_s, u"Other"_s);
    log->_rules().first()->setActive(false);
    logAt(QKApplicationLog::Info, u"inactive rule"_s);
    logAt(QKApplicationLog::Error, u"3 default"_s);
    EXPECT_EQ(loggedMessages(),
              QStringList({u"1 rule passes"_s, u"2 default passes"_s, u"3 default"_s}));
}

// That the switch, the default level, new and removed rules survive a restart is the Debug
// pane's test.
TEST_F(QKApplicationLogTest, anInactiveLogWritesNothingAndRuleEditsPersistOnlyAfterUpdateDefaults)
{
    log->_setActive(false);
    logAt(QKApplicationLog::Error, u"dropped"_s);
    EXPECT_FALSE(QFile::exists(logPath()));

    log->_setThreshold(QKApplicationLog::Debug, u"QKRemoteControl"_s);
    for (bool update : {false, true}) {
        log->_rules().last()->setThreshold(QKApplicationLog::Error);
        log->_rules().last()->setActive(false);
        if (update)
            log->_updateDefaults();
        log = restart();
        EXPECT_EQ(rules(),
                  QStringList{update ? u"QKRemoteControl 4 off"_s : u"QKRemoteControl 0 on"_s});
    }
    // Setting a known domain again changes its rule rather than adding one.
    log->_setThreshold(QKApplicationLog::Warning, u"QKRemoteControl"_s);
    EXPECT_EQ(rules(), QStringList{u"QKRemoteControl 3 off"_s});
}

TEST_F(QKApplicationLogTest, storedSettingsOfTheWrongTypeFallBackToTheDefaults)
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setObject(u"yes"_s, u"QKApplicationLog Active"_s);
    defaults->setObject(u"loud"_s, u"QKApplicationLog Default Threshold"_s);
    defaults->setObject(
        QVariantList{
            u"junk"_s,
            QVariantMap{{"domain", 5}, {"threshold", 1}},
            QVariantMap{{"domain", "Good"}, {"threshold", 1}, {"active", "maybe"}},
            QVariantMap{{"domain", "Words"}, {"threshold", "high"}, {"active", true}},
            QVariantMap{{"domain", "Negative"}, {"threshold", -2}},
            QVariantMap{{"domain", "Good"}, {"threshold", 4}},
        },
        u"QKApplicationLog Rules"_s);
    log = restart();
    EXPECT_TRUE(log->_active());
    EXPECT_EQ(log->_defaultThreshold(), 3u);
    EXPECT_EQ(rules(), QStringList{u"Good 1 on"_s});

    defaults->setObject(QVariantMap{{"domain", "Good"}}, u"QKApplicationLog Rules"_s);
    defaults->setObject(-1, u"QKApplicationLog Default Threshold"_s);
    log = restart();
    EXPECT_TRUE(rules().isEmpty());
    EXPECT_EQ(log->_defaultThreshold(), 3u);
}

TEST_F(QKApplicationLogTest, entryLinesNameTheirSourceAndIndentContinuations)
{
    QObject sender;
    sender.setObjectName(u"supportPane"_s);
    const QKApplicationLogContext context(u"HDSupport"_s, &sender);
    const int contextLine = __LINE__ - 1;
    const QDateTime before = QDateTime::currentDateTime().addMSecs(-1);
    log->warning(context, u"start sending request failed"_s);
    log->log(QKApplicationLog::Error, nullptr, u"reason\nframe 1\r\nframe 2"_s);
    logAt(QKApplicationLog::Warning, u"after"_s, u"Next\tDomain"_s);

    const QStringList lines = logLines();
    ASSERT_EQ(lines.size(), 5);
    const QStringList fields = lines[0].split(u'\t');
    ASSERT_EQ(fields.size(), 7);
    const QDateTime stamp = QDateTime::fromString(fields[0], Qt::ISODateWithMs);
    EXPECT_TRUE(stamp >= before && stamp <= QDateTime::currentDateTime()) << lines[0].toStdString();
    EXPECT_EQ(fields.mid(1, 3), QStringList({u"Warning"_s, u"HDSupport"_s,
                                             u"test_QKApplicationLog.cpp:%1"_s.arg(contextLine)}));
    EXPECT_TRUE(fields[4].contains(u"TestBody"_s)) << fields[4].toStdString();
    EXPECT_EQ(fields.mid(5),
              QStringList({u"QObject(supportPane)"_s, u"start sending request failed"_s}));

    EXPECT_EQ(lines[1].split(u'\t').mid(1), QStringList({u"Error"_s, {}, {}, {}, {}, u"reason"_s}));
    EXPECT_EQ(lines[2], u"\tframe 1"_s);
    EXPECT_EQ(lines[3], u"\tframe 2"_s);
    EXPECT_EQ(lines[4].split(u'\t').value(2), u"Next Domain"_s);
}

TEST_F(QKApplicationLogTest, entriesFromManyThreadsStayWholeLines)
{
    constexpr int threadCount = 8, entriesPerThread = 500;
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.emplace_back([t] {
                const QKApplicationLogContext context(u"Worker"_s);
                for (int i = 0; i < entriesPerThread; ++i)
                    QKApplicationLog::sharedLog()->warning(context,
                                                           u"thread %1 entry %2"_s.arg(t).arg(i));
            });
        }
    }

    const QStringList lines = logLines();
    ASSERT_EQ(lines.size(), threadCount * entriesPerThread);
    // Each thread's entries appear once, whole, in the order it wrote them.
    static const QRegularExpression entry(
        u"^[^\t]+\tWarning\tWorker\t[^\t]+\t[^\t]+\t\tthread ([0-7]) entry (\\d+)$"_s);
    std::vector<int> nextEntry(threadCount, 0);
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = entry.match(line);
        ASSERT_TRUE(match.hasMatch()) << line.toStdString();
        ASSERT_EQ(match.captured(2).toInt(), nextEntry[match.captured(1).toInt()]++)
            << line.toStdString();
    }
}

TEST_F(QKApplicationLogTest, unwritableOrDeletedLogFileIsRecovered)
{
    // A file where the folder belongs stops even root from creating the log.
    const QString logsFolder = homeFile(u".local/state"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(logsFolder, {}));
    {
        MessageCapture capture;
        logAt(QKApplicationLog::Warning, u"first"_s);
        logAt(QKApplicationLog::Error, u"second"_s);
        const QString joined = capture.messages().join(u'\n');
        EXPECT_EQ(joined.count(u"cannot write"_s), 1) << joined.toStdString();
        EXPECT_TRUE(joined.contains(logPath())) << joined.toStdString();
        EXPECT_TRUE(joined.contains(u"\tfirst"_s) && joined.contains(u"\tsecond"_s));
    }
    EXPECT_TRUE(QFileInfo(logsFolder).isFile());

    ASSERT_TRUE(QFile::remove(logsFolder));
    logAt(QKApplicationLog::Warning, u"third"_s);
    EXPECT_EQ(loggedMessages(), QStringList{u"third"_s});
    // Deleted while open: created again.
    ASSERT_TRUE(QFile::remove(logPath()));
    logAt(QKApplicationLog::Warning, u"fourth"_s);
    EXPECT_EQ(loggedMessages(), QStringList{u"fourth"_s});
}

TEST_F(QKApplicationLogTest, aLogPastItsLimitKeepsItsNewestWholeEntries)
{
    // 64 KB entries with a continuation line each: 200 of them pass the 8 MB limit.
    const QString filler(64 * 1024, u'x');
    for (int i = 0; i < 200; ++i)
        logAt(QKApplicationLog::Warning, u"entry %1 %2\nmore of %1"_s.arg(i).arg(filler));

    const qint64 size = QFileInfo(logPath()).size();
    EXPECT_GT(size, 4 * 1024 * 1024);
    EXPECT_LE(size, 8 * 1024 * 1024);
    const QStringList lines = logLines();
    ASSERT_FALSE(lines.isEmpty());
    EXPECT_FALSE(lines.first().startsWith(u'\t')) << "the log starts with a whole entry";
    // Consecutive entries up to the newest, each with its continuation line.
    const QStringList messages = loggedMessages();
    const int first = messages.first().section(u' ', 1, 1).toInt();
    EXPECT_GT(first, 0);
    for (int i = 0; i < messages.size(); ++i)
        EXPECT_TRUE(messages[i].startsWith(u"entry %1 "_s.arg(first + i))) << i;
    EXPECT_EQ(messages.last().section(u' ', 1, 1), u"199"_s);
    EXPECT_EQ(lines.size(), 2 * messages.size());

    // Writing goes on into the trimmed file.
    logAt(QKApplicationLog::Warning, u"after"_s);
    EXPECT_EQ(loggedMessages().last(), u"after"_s);
}
