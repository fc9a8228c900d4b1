#include "QKApplicationLog.h"
#include "QKTestEnvironment.h"
#include "QKUserDefaults.h"
#include "QKWorkspace.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <QObject>
#include <QUrl>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

const QStringList SettingsKeys{QStringLiteral("QKApplicationLog Active"),
                               QStringLiteral("QKApplicationLog Default Threshold"),
                               QStringLiteral("QKApplicationLog Rules")};

QString logsFolder()
{
    return QKTestEnvironment::homePath() + QStringLiteral("/Library/Logs");
}

QString expectedLogPath()
{
    return logsFolder() + QStringLiteral("/Velmora/Test Host.log");
}

QStringList logLines()
{
    QFile file(expectedLogPath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
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

/** Collects Qt's warnings, from any thread, while it lives. */
class MessageCapture
{
public:
    MessageCapture() { s_previous = qInstallMessageHandler(&MessageCapture::handle); }
    ~MessageCapture()
    {
        qInstallMessageHandler(s_previous);
        s_messages.clear();
    }
    QStringList messages() const
    {
        QMutexLocker locker(&s_mutex);
        return s_messages;
    }

private:
    static void handle(QtMsgType, const QMessageLogContext &, const QString &message)
    {
        QMutexLocker locker(&s_mutex);
        s_messages << message;
    }
    static inline QMutex s_mutex;
    static inline QStringList s_messages;
    static inline QtMessageHandler s_previous = nullptr;
};

class QKApplicationLogTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const QString &key : SettingsKeys)
            QKUserDefaults::standardUserDefaults()->removeObjectForKey(key);
        QFile::remove(logsFolder());
        QDir(logsFolder()).removeRecursively();
        log = restart();
    }
    void TearDown() override { QKApplicationLog::resetSharedLog(); }

    /** What the next run of the application would find. */
    static QKApplicationLog *restart()
    {
        QKApplicationLog::resetSharedLog();
        return QKApplicationLog::sharedLog();
    }

    void logAt(uint level, const QString &domain, const QString &message)
    {
        const QKApplicationLogContext context(domain);
        log->log(level, &context, message);
    }

    QKApplicationLog *log = nullptr;
};

} // namespace

TEST_F(QKApplicationLogTest, startsActiveAtWarningAndWritesTheApplicationsLogFile)
{
    EXPECT_TRUE(log->_active());
    EXPECT_EQ(log->_defaultThreshold(), 3u);
    EXPECT_TRUE(log->_rules().isEmpty());
    EXPECT_EQ(log->logFilePath(), expectedLogPath());

    logAt(QKApplicationLog::Notice, QStringLiteral("HDSupport"), QStringLiteral("begin submit"));
    EXPECT_FALSE(QFile::exists(expectedLogPath()));

    logAt(QKApplicationLog::Warning, QStringLiteral("HDSupport"), QStringLiteral("failed"));
    log->log(QKApplicationLog::Error, nullptr, QStringLiteral("broken"));
    EXPECT_EQ(loggedMessages(), (QStringList{QStringLiteral("failed"), QStringLiteral("broken")}));
}

TEST_F(QKApplicationLogTest, rulesMatchTheExactDomainAndInactiveRulesFallBackToTheDefault)
{
    log->_setThreshold(QKApplicationLog::Error);
    log->_setThreshold(QKApplicationLog::Info, QStringLiteral("HDSupport"));
    ASSERT_EQ(log->_rules().size(), 1);
    QKApplicationLogRule *rule = log->_rules().first();
    EXPECT_EQ(rule->domain(), QStringLiteral("HDSupport"));
    EXPECT_TRUE(rule->active());

    logAt(QKApplicationLog::Info, QStringLiteral("HDSupport"), QStringLiteral("1 rule passes"));
    logAt(QKApplicationLog::Debug, QStringLiteral("HDSupport"), QStringLiteral("below rule"));
    logAt(QKApplicationLog::Warning, QStringLiteral("HDSupportX"), QStringLiteral("other"));
    logAt(QKApplicationLog::Warning, QStringLiteral("hdsupport"), QStringLiteral("case"));
    logAt(QKApplicationLog::Error, QStringLiteral("Other"), QStringLiteral("2 default passes"));

    rule->setActive(false);
    logAt(QKApplicationLog::Info, QStringLiteral("HDSupport"), QStringLiteral("inactive rule"));
    logAt(QKApplicationLog::Error, QStringLiteral("HDSupport"), QStringLiteral("3 default"));

    EXPECT_EQ(loggedMessages(),
              (QStringList{QStringLiteral("1 rule passes"), QStringLiteral("2 default passes"),
                           QStringLiteral("3 default")}));
}

TEST_F(QKApplicationLogTest, inactiveLogWritesNothingAndStaysOffAfterRestart)
{
    log->_setThreshold(QKApplicationLog::Debug, QStringLiteral("HDSupport"));
    log->_setActive(false);
    logAt(QKApplicationLog::Error, QStringLiteral("HDSupport"), QStringLiteral("dropped"));
    EXPECT_FALSE(QFile::exists(expectedLogPath()));

    log = restart();
    EXPECT_FALSE(log->_active());
    log->_setActive(true);
    logAt(QKApplicationLog::Debug, QStringLiteral("HDSupport"), QStringLiteral("kept"));
    EXPECT_EQ(loggedMessages(), QStringList{QStringLiteral("kept")});
}

TEST_F(QKApplicationLogTest, ruleEditsInPlacePersistOnlyAfterUpdateDefaults)
{
    log->_setThreshold(QKApplicationLog::Notice);
    log->_setThreshold(QKApplicationLog::Debug, QStringLiteral("QKRemoteControl"));
    log->_setThreshold(QKApplicationLog::Info, QStringLiteral("HDSupport"));

    log = restart();
    EXPECT_EQ(log->_defaultThreshold(), 2u);
    ASSERT_EQ(log->_rules().size(), 2);
    QKApplicationLogRule *rule = log->_rules().first();
    EXPECT_EQ(rule->domain(), QStringLiteral("QKRemoteControl"));
    EXPECT_EQ(log->_rules().last()->domain(), QStringLiteral("HDSupport"));

    rule->setThreshold(QKApplicationLog::Error);
    rule->setActive(false);
    log = restart();
    rule = log->_rules().first();
    EXPECT_EQ(rule->threshold(), 0u);
    EXPECT_TRUE(rule->active());

    rule->setThreshold(QKApplicationLog::Error);
    rule->setActive(false);
    log->_updateDefaults();
    log = restart();
    rule = log->_rules().first();
    EXPECT_EQ(rule->threshold(), 4u);
    EXPECT_FALSE(rule->active());

    // Setting a known domain again changes its rule rather than adding one.
    log->_setThreshold(QKApplicationLog::Warning, QStringLiteral("QKRemoteControl"));
    EXPECT_EQ(log->_rules().size(), 2);
    EXPECT_EQ(rule->threshold(), 3u);

    log->_removeRule(rule);
    log = restart();
    ASSERT_EQ(log->_rules().size(), 1);
    EXPECT_EQ(log->_rules().first()->domain(), QStringLiteral("HDSupport"));
}

TEST_F(QKApplicationLogTest, storedSettingsOfTheWrongTypeFallBackToTheDefaults)
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setObject(QStringLiteral("yes"), SettingsKeys[0]);
    defaults->setObject(QStringLiteral("loud"), SettingsKeys[1]);
    const QVariantList rules{
        QStringLiteral("junk"),
        QVariantMap{{"domain", 5}, {"threshold", 1}},
        QVariantMap{{"domain", "Good"}, {"threshold", 1}, {"active", "maybe"}},
        QVariantMap{{"domain", "Words"}, {"threshold", "high"}, {"active", true}},
        QVariantMap{{"domain", "Negative"}, {"threshold", -2}},
        QVariantMap{{"domain", "Good"}, {"threshold", 4}},
    };
    defaults->setObject(rules, SettingsKeys[2]);

    log = restart();
    EXPECT_TRUE(log->_active());
    EXPECT_EQ(log->_defaultThreshold(), 3u);
    ASSERT_EQ(log->_rules().size(), 1);
    EXPECT_EQ(log->_rules().first()->domain(), QStringLiteral("Good"));
    EXPECT_EQ(log->_rules().first()->threshold(), 1u);
    EXPECT_TRUE(log->_rules().first()->active());

    defaults->setObject(QVariantMap{{"domain", "Good"}}, SettingsKeys[2]);
    defaults->setObject(-1, SettingsKeys[1]);
    log = restart();
    EXPECT_TRUE(log->_rules().isEmpty());
    EXPECT_EQ(log->_defaultThreshold(), 3u);
}

TEST_F(QKApplicationLogTest, entryLineNamesDateLevelDomainSourceFunctionSenderAndMessage)
{
    QObject sender;
    sender.setObjectName(QStringLiteral("supportPane"));
    const QKApplicationLogContext context(QStringLiteral("HDSupport"), &sender);
    const int contextLine = __LINE__ - 1;
    const QDateTime before = QDateTime::currentDateTime().addMSecs(-1);
    log->warning(context, QStringLiteral("start sending request failed"));

    const QStringList lines = logLines();
    ASSERT_EQ(lines.size(), 1);
    const QStringList fields = lines.first().split(u'\t');
    ASSERT_EQ(fields.size(), 7);
    const QDateTime stamp = QDateTime::fromString(fields[0], Qt::ISODateWithMs);
    EXPECT_TRUE(stamp.isValid()) << fields[0].toStdString();
    EXPECT_TRUE(stamp >= before && stamp <= QDateTime::currentDateTime())
        << fields[0].toStdString();
    EXPECT_EQ(fields[1], QStringLiteral("Warning"));
    EXPECT_EQ(fields[2], QStringLiteral("HDSupport"));
    EXPECT_EQ(fields[3], QStringLiteral("test_QKApplicationLog.cpp:%1").arg(contextLine));
    EXPECT_TRUE(fields[4].contains(QStringLiteral("TestBody"))) << fields[4].toStdString();
    EXPECT_EQ(fields[5], QStringLiteral("QObject(supportPane)"));
    EXPECT_EQ(fields[6], QStringLiteral("start sending request failed"));
}

TEST_F(QKApplicationLogTest, multiLineEntryKeepsItsContinuationLinesIndented)
{
    log->log(QKApplicationLog::Error, nullptr, QStringLiteral("reason\nframe 1\r\nframe 2"));
    logAt(QKApplicationLog::Warning, QStringLiteral("Next\tDomain"), QStringLiteral("after"));

    const QStringList lines = logLines();
    ASSERT_EQ(lines.size(), 4);
    const QStringList first = lines[0].split(u'\t');
    ASSERT_EQ(first.size(), 7);
    EXPECT_EQ(first.mid(1), (QStringList{QStringLiteral("Error"), QString(), QString(), QString(),
                                         QString(), QStringLiteral("reason")}));
    EXPECT_EQ(lines[1], QStringLiteral("\tframe 1"));
    EXPECT_EQ(lines[2], QStringLiteral("\tframe 2"));
    EXPECT_EQ(lines[3].split(u'\t').value(2), QStringLiteral("Next Domain"));
}

TEST_F(QKApplicationLogTest, entriesFromManyThreadsStayWholeLines)
{
    constexpr int threadCount = 8;
    constexpr int entriesPerThread = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([t] {
            const QKApplicationLogContext context(QStringLiteral("Worker"));
            for (int i = 0; i < entriesPerThread; ++i) {
                QKApplicationLog::sharedLog()->warning(
                    context, QStringLiteral("thread %1 entry %2").arg(t).arg(i));
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    const QStringList lines = logLines();
    ASSERT_EQ(lines.size(), threadCount * entriesPerThread);
    std::vector<int> nextEntry(threadCount, 0);
    for (const QString &line : lines) {
        const QStringList fields = line.split(u'\t');
        ASSERT_EQ(fields.size(), 7) << line.toStdString();
        ASSERT_EQ(fields[2], QStringLiteral("Worker"));
        const QStringList words = fields[6].split(u' ');
        ASSERT_EQ(words.size(), 4) << line.toStdString();
        const int thread = words[1].toInt();
        ASSERT_TRUE(thread >= 0 && thread < threadCount);
        // Each thread's entries appear once, in the order it wrote them.
        ASSERT_EQ(words[3].toInt(), nextEntry[thread]++) << line.toStdString();
    }
}

TEST_F(QKApplicationLogTest, unwritableLogFolderSendsEntriesToStderrAndRecovers)
{
    // A file where the folder belongs stops even root from creating the log.
    QDir().mkpath(QKTestEnvironment::homePath() + QStringLiteral("/Library"));
    QFile obstacle(logsFolder());
    ASSERT_TRUE(obstacle.open(QIODevice::WriteOnly));
    obstacle.close();

    {
        MessageCapture capture;
        logAt(QKApplicationLog::Warning, QStringLiteral("HDSupport"), QStringLiteral("first"));
        logAt(QKApplicationLog::Error, QStringLiteral("HDSupport"), QStringLiteral("second"));
        const QString joined = capture.messages().join(u'\n');
        EXPECT_EQ(joined.count(QStringLiteral("cannot write")), 1) << joined.toStdString();
        EXPECT_TRUE(joined.contains(expectedLogPath())) << joined.toStdString();
        EXPECT_TRUE(joined.contains(QStringLiteral("\tfirst")));
        EXPECT_TRUE(joined.contains(QStringLiteral("\tsecond")));
    }
    EXPECT_TRUE(QFileInfo(logsFolder()).isFile());

    ASSERT_TRUE(QFile::remove(logsFolder()));
    logAt(QKApplicationLog::Warning, QStringLiteral("HDSupport"), QStringLiteral("third"));
    EXPECT_EQ(loggedMessages(), QStringList{QStringLiteral("third")});
}

TEST_F(QKApplicationLogTest, logFileDeletedWhileOpenIsCreatedAgain)
{
    logAt(QKApplicationLog::Warning, QStringLiteral("HDSupport"), QStringLiteral("old"));
    ASSERT_TRUE(QFile::remove(expectedLogPath()));
    logAt(QKApplicationLog::Warning, QStringLiteral("HDSupport"), QStringLiteral("new"));
    EXPECT_EQ(loggedMessages(), QStringList{QStringLiteral("new")});
}

TEST_F(QKApplicationLogTest, copiesWrittenWarningsToStderrWhenAsked)
{
    qputenv("QK_LOG_TO_STDERR", "1");
    log = restart();
    qunsetenv("QK_LOG_TO_STDERR");
    log->_setThreshold(QKApplicationLog::Info);

    MessageCapture capture;
    logAt(QKApplicationLog::Debug, QStringLiteral("HDSupport"), QStringLiteral("silent"));
    logAt(QKApplicationLog::Info, QStringLiteral("HDSupport"), QStringLiteral("quiet"));
    logAt(QKApplicationLog::Warning, QStringLiteral("HDSupport"), QStringLiteral("loud"));
    logAt(QKApplicationLog::Error, QStringLiteral("HDSupport"), QStringLiteral("louder"));

    QStringList mirrored;
    for (const QString &message : capture.messages())
        mirrored << message.section(u'\t', 6);
    EXPECT_EQ(mirrored, (QStringList{QStringLiteral("loud"), QStringLiteral("louder")}));
    EXPECT_EQ(loggedMessages(), (QStringList{QStringLiteral("quiet"), QStringLiteral("loud"),
                                             QStringLiteral("louder")}));
}

TEST_F(QKApplicationLogTest, openLogFileShowsTheFileEvenBeforeAnyEntry)
{
    QList<QUrl> opened;
    QKWorkspace::setOpener([&opened](const QUrl &url) {
        opened << url;
        return true;
    });
    EXPECT_TRUE(log->openLogFile());
    QKWorkspace::setOpener({});

    ASSERT_EQ(opened.size(), 1);
    EXPECT_EQ(opened.first().toLocalFile(), expectedLogPath());
    EXPECT_TRUE(QFile::exists(expectedLogPath()));
}
