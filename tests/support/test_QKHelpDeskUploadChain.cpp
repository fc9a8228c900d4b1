#include "SupportTestSupport.h"

#include "QKSupportSite.h"
#include "QKSystemProfiler.h"

#include <QKNetworkReplies.h>

using namespace SupportTest;
using namespace std::chrono_literals;

namespace {

// Every stage chosen, with something to send at each.
class ScriptedChain : public SupportPaneTest
{
protected:
    ScriptedChain() : SupportPaneTest(true) {}
    void SetUp() override
    {
        SupportPaneTest::SetUp();
        writeFile(".local/state/CrashReporter/Test Host_2024-05-01-101500.crash", "crash");
        attach({writeFile("notes.txt", "my notes")});
        for (const char *box :
             {"submitSystemProfileButton", "submitCrashLog1Button", "submitDebugLogButton"})
            check(box);
    }
    QStringList documentSteps() const { return scripted->steps().filter("add_document"); }
};

struct StageFailure
{
    enum Kind {
        Drop,  // the site reads the request and closes the connection without an answer
        Hang,  // the site reads the request and never answers
        Break, // the step succeeds and the next upload cannot start
    };
    const char *step; // the request that fails, or after which the endpoint is unusable
    Kind kind;
    const char *message;
    const char *logLine;
};

class FailingStage : public ScriptedChain, public ::testing::WithParamInterface<StageFailure>
{
};

const StageFailure stageFailures[] = {
    {"new", StageFailure::Drop, "Submit failed!", "Warning: sending request failed"},
    {"new", StageFailure::Hang, "Submit failed!", "Warning: sending request failed"},
    {"new", StageFailure::Break, "Send system profile failed!",
     "Warning: start sending system profile failed"},
    {"add_document:system_profile", StageFailure::Drop, "Send system profile failed!",
     "Warning: sending system profile failed"},
    {"add_document:system_profile", StageFailure::Break, "Send crash log failed!",
     "Warning: start sending crash log failed"},
    {"add_document:crash_log", StageFailure::Drop, "Send crash log failed!",
     "Warning: send crash log failed"},
    {"add_document:crash_log", StageFailure::Hang, "Send crash log failed!",
     "Warning: send crash log failed"},
    {"add_document:crash_log", StageFailure::Break, "Send debug log failed!",
     "Warning: start sending the debug log failed"},
    {"add_document:debug_log", StageFailure::Drop, "Send debug log failed!",
     "Info: sending debug log failed"},
    {"add_document:debug_log", StageFailure::Break, "Send attachments failed!",
     "Warning: start sending attachments failed"},
    {"add_document:10001", StageFailure::Drop, "Send attached files failed!",
     "Info: sending attachments failed"},
};

// A reply to "new" that carries no request numbers, or none at all.
struct BadReply
{
    const char *name;
    ScriptedHelpDesk::Reply reply;
};

class BadNewReply : public ScriptedChain, public ::testing::WithParamInterface<BadReply>
{
};

const BadReply badReplies[] = {
    {"html", {200, "<html><body>Maintenance</body></html>"}},
    {"truncated", {200, "<?xml version=\"1.0\"?><results><xRequest>10001</xRequest><xRequestHis"}},
    {"error", {400, "<?xml version=\"1.0\"?><error><description>No</description></error>"}},
    {"empty", {200, ""}},
    {"dropped", {200, "", true}},
};

const char *kindName(StageFailure::Kind kind)
{
    return kind == StageFailure::Drop ? "drop" : kind == StageFailure::Hang ? "hang" : "break";
}

void PrintTo(const StageFailure &failure, std::ostream *out)
{
    *out << failure.step << ' ' << kindName(failure.kind);
}

void PrintTo(const BadReply &reply, std::ostream *out)
{
    *out << reply.name;
}

} // namespace

TEST_P(FailingStage, endsTheChainWithTheStageMessage)
{
    const StageFailure failure = GetParam();
    QKNetworkReplies::setIdleTimeout(1s);
    scripted->script = [&](const auto &) -> std::optional<ScriptedHelpDesk::Reply> {
        if (scripted->steps().last() != QLatin1String(failure.step))
            return std::nullopt;
        if (failure.kind != StageFailure::Break)
            return ScriptedHelpDesk::Reply{200, "", failure.kind == StageFailure::Drop,
                                           failure.kind == StageFailure::Hang};
        QKSupportSite::setHelpDeskAPIURL("nowhere");
        return std::nullopt;
    };
    submitRequest(pane, "Crashes & Bugs", "Broken");
    EXPECT_EQ(waitForPanelEnd(), failure.message);
    EXPECT_EQ(supportLog().last(), failure.logLine);
    EXPECT_EQ(scripted->steps().last(), failure.step);
    // Nothing is sent twice, however the connection ended.
    EXPECT_EQ(scripted->steps().count(QLatin1String(failure.step)), 1);
    // A failed stage leaves the request numbers until the next request.
    EXPECT_EQ(pane->requestID().isEmpty(),
              failure.kind != StageFailure::Break && QLatin1String(failure.step) == u"new");
    EXPECT_EQ(pane->attachedFiles().size(), 1);
    // Archives are removed whether or not their upload could start.
    EXPECT_TRUE(QDir(QKApplication::sharedApplication()->tempDirectory())
                    .entryList({"*.zip"}, QDir::Files)
                    .isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Stages, FailingStage, ::testing::ValuesIn(stageFailures),
                         [](const auto &info) {
                             return QString::fromLatin1(info.param.step)
                                 .section(':', -1)
                                 .prepend(kindName(info.param.kind) + QLatin1Char('_'))
                                 .toStdString();
                         });

TEST_P(BadNewReply, endsTheRequestUnconfirmedAndKeepsTheMessage)
{
    scripted->script = [](const QMap<QString, QString> &form) {
        return form.value("action") == u"new" ? std::optional(GetParam().reply) : std::nullopt;
    };
    submitRequest(pane, "Crashes & Bugs", "Broken");
    const bool dropped = GetParam().reply.drop;
    EXPECT_EQ(waitForPanelEnd(),
              dropped ? "Submit failed!" : "The help desk did not confirm the request!");
    EXPECT_EQ(supportLog().last(),
              dropped ? "Warning: sending request failed"
                      : "Warning: the reply to the request holds no request numbers");
    EXPECT_TRUE(documentSteps().isEmpty());
    EXPECT_EQ(paneWidget<QPlainTextEdit>(pane, "bodyText")->toPlainText(), "Broken");
    EXPECT_TRUE(pane->requestHistoryID().isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Replies, BadNewReply, ::testing::ValuesIn(badReplies),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(ScriptedChain, repliesToUploadsAreNotRead)
{
    scripted->script = [](const QMap<QString, QString> &form) {
        return form.value("action") == u"add_document"
                   ? std::optional(ScriptedHelpDesk::Reply{500, "<html>Internal error</html>"})
                   : std::nullopt;
    };
    submitRequest(pane, "Crashes & Bugs", "Broken");
    EXPECT_EQ(waitForPanelEnd(), "Request sent successfully!");
    EXPECT_EQ(documentSteps(), QStringList({"add_document:system_profile", "add_document:crash_log",
                                            "add_document:debug_log", "add_document:10001"}));
    const QMap<QString, QString> &last = scripted->forms.last();
    EXPECT_EQ(last.keys(), QStringList({"action", "body", "mimetype", "name", "xRequestHistory"}));
    EXPECT_EQ(last.value("xRequestHistory"), "40001");
    EXPECT_EQ(last.value("mimetype"), "application/zip");
    EXPECT_EQ(zipEntries(QByteArray::fromBase64(last.value("body").toLatin1())),
              (QMap<QString, QByteArray>{{"notes.txt", "my notes"}}));
}

TEST_F(ScriptedChain, anArchiveThatIsNotMadeFailsItsStage)
{
    // The attached file is gone by the time it is zipped: zip makes no archive.
    check("submitSystemProfileButton", false);
    check("submitCrashLog1Button", false);
    check("submitDebugLogButton", false);
    QFile::remove(pane->attachedFiles().constFirst());
    submitRequest(pane, "Crashes & Bugs", "Broken");
    EXPECT_EQ(waitForPanelEnd(), "Send attachments failed!");
    const QStringList log = supportLog().last(3);
    EXPECT_EQ(log[0], "Info: preparing attachments");
    EXPECT_TRUE(log[1].startsWith("Warning: /usr/bin/zip did not produce")) << log[1].toStdString();
    EXPECT_EQ(log[2], "Warning: archiving attachments failed");
    EXPECT_TRUE(documentSteps().isEmpty());
}

using SupportPane = SupportPaneTest;

TEST_F(SupportPane, cancelDuringTheProfileClosesThePanelQuietlyAndSendsNothing)
{
    // A profiler that prints its first part, then waits (up to 20 s) for the go file.
    const QByteArray go = QFile::encodeName(QKTestEnvironment::homeFile("profiler-go"));
    const QString program = writeFile(
        "bin/gated-profiler",
        "#!/bin/sh\nprintf '<?xml version=\"1.0\"?><profile>'\nsleep 0.7\nprintf '<part1/>'\n"
        "i=0\nwhile [ ! -e '" +
            go +
            "' ] && [ $i -lt 1000 ]; do sleep 0.02; i=$((i+1)); done\n"
            "printf '<part2/></profile>'\n");
    QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QKSystemProfiler profiler;
    profiler.setProgram(program);
    pane->setSystemProfiler(profiler);
    check("submitSystemProfileButton");
    const int redraws = progressPanel()->redrawCount();
    submitRequest(pane, "Crashes & Bugs", "Profile me");
    // The bar is redrawn only for output read after its first half second, so a redraw
    // says the whole first part is in: the profiler waits for the go file now.
    ASSERT_TRUE(waitUntil([redraws] { return progressPanel()->redrawCount() > redraws; }));
    EXPECT_EQ(progressPanel()->progressPanelTitle(), "Creating system profile...");
    EXPECT_TRUE(progressPanel()->progressIsCancelable());

    progressPanel()->findChild<QPushButton *>("progressCancelButton")->click();
    ASSERT_TRUE(waitUntil([] { return !progressPanel()->isVisible(); }));
    QKTestEnvironment::writeAll(QFile::decodeName(go), "");
    EXPECT_EQ(progressPanel()->progressPanelTitle(), "Creating system profile...");
    EXPECT_EQ(supportLog().last(), "Warning: cancelled createSystemProfile");
    EXPECT_EQ(inspect(*site, "documents").size(), 0);
    // The part collected before the Cancel is still written and zipped.
    const QDir temporary(QKApplication::sharedApplication()->tempDirectory());
    EXPECT_EQ(QKTestEnvironment::readAll(temporary.filePath("system_profile.spx")),
              "<?xml version=\"1.0\"?><profile><part1/>");
    EXPECT_TRUE(temporary.exists("system_profile.zip"));
}
