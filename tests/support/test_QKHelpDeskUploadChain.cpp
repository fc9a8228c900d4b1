#include "SupportTestSupport.h"

#include "QKHelpDeskProgressPanel.h"
#include "QKHelpDeskUploadChain.h"
#include "QKSupportSite.h"
#include "QKSupportSiteProcess.h"
#include "QKSystemProfiler.h"
#include "QKTestEnvironment.h"

#include <QKApplication.h>

#include <QDir>
#include <QPlainTextEdit>
#include <QPushButton>

#include <gtest/gtest.h>

using namespace SupportTest;

namespace {

// Every stage chosen, with something to send at each.
class ScriptedChain : public SupportPaneTest
{
protected:
    ScriptedChain() : SupportPaneTest(true) {}
    void SetUp() override
    {
        SupportPaneTest::SetUp();
        writeFile("Library/Logs/CrashReporter/Test Host_2024-05-01-101500.crash", "crash");
        attach({writeFile("notes.txt", "my notes")});
        for (const char *box :
             {"submitSystemProfileButton", "submitCrashLog1Button", "submitDebugLogButton"})
            check(box);
    }
    QStringList documentSteps() const { return scripted->steps().filter("add_document"); }
};

struct StageFailure
{
    const char *step;    // the request that fails, or after which the endpoint is unusable
    bool dropConnection; // else the step succeeds and the next upload cannot start
    const char *message;
    const char *logLine;
};

class FailingStage : public ScriptedChain, public ::testing::WithParamInterface<StageFailure>
{
};

const StageFailure stageFailures[] = {
    {"new", true, "Submit failed!", "Warning: sending request failed"},
    {"new", false, "Send system profile failed!", "Warning: start sending system profile failed"},
    {"add_document:system_profile", true, "Send system profile failed!",
     "Warning: sending system profile failed"},
    {"add_document:system_profile", false, "Send crash log failed!",
     "Warning: start sending crash log failed"},
    {"add_document:crash_log", true, "Send crash log failed!", "Warning: send crash log failed"},
    {"add_document:crash_log", false, "Send debug log failed!",
     "Warning: start sending the debug log failed"},
    {"add_document:debug_log", true, "Send debug log failed!", "Info: sending debug log failed"},
    {"add_document:debug_log", false, "Send attachments failed!",
     "Warning: start sending attachments failed"},
    {"add_document:10001", true, "Send attached files failed!", "Info: sending attachments failed"},
};

// How a reply to "new" that carries no request numbers (or none at all) ends the request.
struct BadReply
{
    const char *name;
    ScriptedHelpDesk::Reply reply;
    const char *message;
    const char *logLine;
};

class BadNewReply : public ScriptedChain, public ::testing::WithParamInterface<BadReply>
{
};

const char *const unconfirmed = "The help desk did not confirm the request!";
const char *const noNumbers = "Warning: the reply to the request holds no request numbers";
const BadReply badReplies[] = {
    {"html", {200, "<html><body>Maintenance</body></html>"}, unconfirmed, noNumbers},
    {"truncated",
     {200, "<?xml version=\"1.0\"?><results><xRequest>10001</xRequest><xRequestHis"},
     unconfirmed,
     noNumbers},
    {"error",
     {400, "<?xml version=\"1.0\"?><error><description>No</description></error>"},
     unconfirmed,
     noNumbers},
    {"empty", {200, ""}, unconfirmed, noNumbers},
    {"dropped", {200, "", true}, "Submit failed!", "Warning: sending request failed"},
};

void PrintTo(const StageFailure &failure, std::ostream *out)
{
    *out << failure.step << (failure.dropConnection ? " dropped" : " then unusable");
}

void PrintTo(const BadReply &reply, std::ostream *out)
{
    *out << reply.name;
}

} // namespace

TEST_P(FailingStage, endsTheChainWithTheStageMessage)
{
    const StageFailure failure = GetParam();
    scripted->setScript([&](const QMap<QString, QString> &form) {
        const QString step = form.value("action") == u"add_document"
                                 ? "add_document:" + form.value("name")
                                 : form.value("action");
        if (step != QLatin1String(failure.step))
            return std::optional<ScriptedHelpDesk::Reply>();
        if (failure.dropConnection)
            return std::optional(ScriptedHelpDesk::Reply{200, "", true});
        QKSupportSite::setHelpDeskAPIURL("nowhere");
        return std::optional<ScriptedHelpDesk::Reply>();
    });
    submitRequest(pane, "Crashes & Bugs", "Broken");
    EXPECT_EQ(waitForPanelEnd(), failure.message);
    EXPECT_EQ(supportLog().last(), failure.logLine);
    EXPECT_EQ(scripted->steps().last(), failure.step);
    // A failed stage leaves the request numbers until the next request.
    EXPECT_EQ(pane->requestID().isEmpty(),
              failure.dropConnection && QLatin1String(failure.step) == u"new");
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
                                 .prepend(info.param.dropConnection ? "drop_" : "break_")
                                 .toStdString();
                         });

TEST_P(BadNewReply, endsTheRequestUnconfirmedAndKeepsTheMessage)
{
    scripted->setScript([](const QMap<QString, QString> &form) {
        return form.value("action") == u"new" ? std::optional(GetParam().reply) : std::nullopt;
    });
    submitRequest(pane, "Crashes & Bugs", "Broken");
    EXPECT_EQ(waitForPanelEnd(), GetParam().message);
    EXPECT_EQ(supportLog().last(), GetParam().logLine);
    EXPECT_TRUE(documentSteps().isEmpty());
    EXPECT_EQ(paneWidget<QPlainTextEdit>(pane, "bodyText")->toPlainText(), "Broken");
    EXPECT_TRUE(pane->requestHistoryID().isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Replies, BadNewReply, ::testing::ValuesIn(badReplies),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(ScriptedChain, repliesToUploadsAreNotRead)
{
    scripted->setScript([](const QMap<QString, QString> &form) {
        return form.value("action") == u"add_document"
                   ? std::optional(ScriptedHelpDesk::Reply{500, "<html>Internal error</html>"})
                   : std::nullopt;
    });
    submitRequest(pane, "Crashes & Bugs", "Broken");
    EXPECT_EQ(waitForPanelEnd(), "Request sent successfully!");
    EXPECT_EQ(documentSteps(), QStringList({"add_document:system_profile", "add_document:crash_log",
                                            "add_document:debug_log", "add_document:10001"}));
    const auto forms = scripted->forms();
    EXPECT_EQ(forms.last().keys(),
              QStringList({"action", "body", "mimetype", "name", "xRequestHistory"}));
    EXPECT_EQ(forms.last().value("xRequestHistory"), "40001");
    EXPECT_EQ(forms.last().value("mimetype"), "application/zip");
    EXPECT_EQ(zipEntries(QByteArray::fromBase64(forms.last().value("body").toLatin1())),
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

class GatedProfile : public SupportPaneTest
{
protected:
    void SetUp() override
    {
        SupportPaneTest::SetUp();
        QKSystemProfiler profiler;
        profiler.setProgram(writeGatedProfiler(goFile));
        pane->setSystemProfiler(profiler);
        check("submitSystemProfileButton");
        const int redraws = progressPanel()->redrawCount();
        submitRequest(pane, "Crashes & Bugs", "Profile me");
        // The bar is redrawn only for output read after its first half second, so a redraw
        // says the whole first part is in: the profiler waits for the go file now.
        ASSERT_TRUE(waitUntil([redraws] { return progressPanel()->redrawCount() > redraws; }));
        EXPECT_EQ(progressPanel()->progressPanelTitle(), "Creating system profile...");
        EXPECT_TRUE(progressPanel()->progressIsCancelable());
    }
    void TearDown() override { QKTestEnvironment::writeAll(goFile, ""); }

    const QString goFile = QKTestEnvironment::homeFile("profiler-go");
};

TEST_F(GatedProfile, cancelClosesThePanelQuietlyAndSendsNothing)
{
    progressPanel()->findChild<QPushButton *>("progressCancelButton")->click();
    ASSERT_TRUE(waitUntil([] { return !progressPanel()->isVisible(); }));
    EXPECT_EQ(progressPanel()->progressPanelTitle(), "Creating system profile...");
    EXPECT_EQ(supportLog().last(), "Warning: cancelled createSystemProfile");
    EXPECT_EQ(inspect(*site, "documents").size(), 0);
    // The part collected before the Cancel is still written and zipped.
    const QDir temporary(QKApplication::sharedApplication()->tempDirectory());
    EXPECT_EQ(QKTestEnvironment::readAll(temporary.filePath("system_profile.spx")),
              "<?xml version=\"1.0\"?><profile><part1/>");
    EXPECT_TRUE(temporary.exists("system_profile.zip"));
}
