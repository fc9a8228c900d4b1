#include "SupportTestSupport.h"

#include "HSForms.h"
#include "QKSupportSite.h"

#include <QTextBlock>
#include <QTextDocument>

using namespace SupportTest;

namespace {

using SupportPane = SupportPaneTest;

QJsonObject requestWithBody(const QJsonArray &requests, const QString &body)
{
    for (const QJsonValue &request : requests) {
        if (request[QStringLiteral("fields")][QStringLiteral("tBody")].toString() == body)
            return request.toObject();
    }
    return {};
}

} // namespace

// The fields of a full beta request are checked where the site stores them.
TEST(HSForms, preReleaseAndUrgentFlagsAreSentOnlyWhenSet)
{
    HSNewRequest request{"Ada", "Byron", "ada@example.org", "+44 1", 3, false, "Foo", "2.4.0", "x"};
    const QVariantMap release = HSForms::newRequest(request);
    EXPECT_FALSE(release.contains("Custom4"));
    EXPECT_FALSE(release.contains("fUrgent"));
    for (const char *preRelease : {"2.4.0b2", "2.5rc1"}) {
        request.version = QString::fromLatin1(preRelease);
        EXPECT_EQ(HSForms::newRequest(request).value("Custom4"), QStringLiteral("1")) << preRelease;
    }
}

TEST_F(SupportPane, validationAsksForTheCategoryBeforeTheMessage)
{
    submitRequest(pane, "<choose a category>", QString());
    submitRequest(pane, "Crashes & Bugs", QString());
    submitRequest(pane, "Crashes & Bugs", QStringLiteral("   "));
    const QList<QKAlertRequest> alerts = QKAlert::shownAlerts();
    ASSERT_EQ(alerts.size(), 2);
    EXPECT_EQ(alerts[0].message, "Please choose a category");
    EXPECT_EQ(alerts[0].informativeText, "Choosing a category for your request helps us organize "
                                         "and prioritize your issue.");
    EXPECT_EQ(alerts[1].message, "Please enter a message");
    EXPECT_EQ(alerts[1].informativeText,
              "We can't very well help you if you don't tell us what's wrong, now, can we?");
    // A message of spaces passes and, with nothing to upload, goes straight to the finish.
    EXPECT_EQ(waitForPanelEnd(), "Request sent successfully!");
    EXPECT_EQ(supportLog(),
              QStringList({"Info: begin submit", "Info: sending request", "Info: submit success",
                           "Info: send system profile success", "Info: send crash log success",
                           "Info: send debug log success", "Info: submit attached files success",
                           "Info: submit complete"}));
}

TEST_F(SupportPane, helpSpotLineLinksItsName)
{
    QTextDocument line;
    line.setHtml(paneWidget<QLabel>(pane, "helpSpotText")->text());
    ASSERT_EQ(line.toPlainText(), "Powered by HelpSpot");
    QString linked;
    for (auto fragment = line.begin().begin(); !fragment.atEnd(); ++fragment) {
        if (fragment.fragment().charFormat().anchorHref() == QKHelpDeskSupport::helpSpotURL())
            linked += fragment.fragment().text();
    }
    EXPECT_EQ(linked, "HelpSpot");
}

TEST_F(SupportPane, newRequestUploadsEveryChosenDiagnostic)
{
    writeFile(".local/state/CrashReporter/Test Host_2024-05-01-101500.crash", "crash one");
    writeFile(".local/state/CrashReporter/Test Host Pro_2024-05-02-090000.crash", "crash of Pro");
    writeFile(".local/state/CrashReporter/Other_2024-05-03-090000.crash", "not ours");
    attach({writeFile("notes.txt", "my notes"), writeFile("sessions/song.slab", "session")});
    paneWidget<QLineEdit>(pane, "firstNameText")->setText("Ada");
    paneWidget<QLineEdit>(pane, "lastNameText")->setText("Byron");
    paneWidget<QLineEdit>(pane, "emailText")->setText("ada@example.org");
    paneWidget<QLineEdit>(pane, "phoneText")->setText("+44 20 7946 0000");
    paneWidget<QComboBox>(pane, "urgentPopup")->setCurrentIndex(0);
    for (const char *box : {"submitSystemProfileButton", "submitCrashLog1Button",
                            "submitDebugLogButton", "submitCrashLog2Button"})
        check(box);

    submitRequest(pane, "Crashes & Bugs", "It crashed.");
    ASSERT_EQ(waitForPanelEnd(), "Request sent successfully!");

    const QJsonObject request = requestWithBody(inspect(*site, "requests"), "It crashed.");
    EXPECT_EQ(request["fields"].toObject().toVariantMap(),
              QVariantMap({{"sFirstName", "Ada"},
                           {"sLastName", "Byron"},
                           {"sEmail", "ada@example.org"},
                           {"sPhone", "+44 20 7946 0000"},
                           {"xCategory", "3"},
                           {"fUrgent", "1"},
                           {"Custom1", "Test Host"},
                           {"Custom3", "2.5b1"},
                           {"Custom4", "1"},
                           {"tBody", "It crashed."}}));
    const qint64 history = request["history"][0]["xRequestHistory"].toInteger();
    const QString requestID = QString::number(request["xRequest"].toInteger());

    const QJsonArray documents = inspect(*site, "documents");
    ASSERT_EQ(documents.size(), 4);
    QList<QMap<QString, QByteArray>> archives;
    QStringList names;
    for (const QJsonValue &document : documents) {
        EXPECT_EQ(document["xRequestHistory"].toInteger(), history);
        EXPECT_EQ(document["mimetype"].toString(), "application/zip");
        names << document["name"].toString();
        archives << documentEntries(*site, document["id"].toInteger());
    }
    EXPECT_EQ(names, QStringList({"system_profile", "crash_log", "debug_log", requestID}));
    EXPECT_EQ(archives[0].keys(), QStringList("system_profile.spx"));
    EXPECT_TRUE(archives[0].first().contains("<systemprofile"));
    EXPECT_EQ(archives[1], (QMap<QString, QByteArray>{
                               {"Test Host_2024-05-01-101500.crash", "crash one"},
                               {"Test Host Pro_2024-05-02-090000.crash", "crash of Pro"}}));
    EXPECT_EQ(archives[2].keys(), QStringList("Test Host.log"));
    EXPECT_TRUE(archives[2].first().contains("preparing the debug log"));
    EXPECT_EQ(archives[3],
              (QMap<QString, QByteArray>{{"notes.txt", "my notes"}, {"song.slab", "session"}}));

    EXPECT_EQ(supportLog(),
              QStringList({"Info: begin submit", "Info: sending request", "Info: submit success",
                           "Info: creating thread for createSystemProfile",
                           "Info: sending system profile", "Info: send system profile success",
                           "Info: preparing the crash log", "Info: sending the crash log",
                           "Info: send crash log success", "Info: preparing the debug log",
                           "Info: sending the debug log", "Info: send debug log success",
                           "Info: preparing attachments", "Info: sending attachments",
                           "Info: submit attached files success", "Info: submit complete"}));
    const LogEntry first = logEntries("HDSupport").first();
    EXPECT_TRUE(first.function.contains("QKHelpDeskSupport::submit"))
        << first.function.toStdString();
    EXPECT_EQ(first.sender, "QKHelpDeskSupport(QKHelpDeskSupport)");

    // The finish: choices off but the debug log's, nothing attached, no request numbers, only
    // the profile's text left in the temporary folder.
    for (const char *box :
         {"submitSystemProfileButton", "submitCrashLog1Button", "submitCrashLog2Button"})
        EXPECT_FALSE(paneWidget<QCheckBox>(pane, box)->isChecked()) << box;
    EXPECT_TRUE(paneWidget<QCheckBox>(pane, "submitDebugLogButton")->isChecked());
    EXPECT_TRUE(pane->attachedFiles().isEmpty());
    EXPECT_FALSE(paneWidget<QLabel>(pane, "attachments1Image")->isVisibleTo(pane));
    EXPECT_TRUE(pane->requestID().isEmpty());
    EXPECT_TRUE(pane->requestHistoryID().isEmpty());
    EXPECT_TRUE(paneWidget<QPlainTextEdit>(pane, "bodyText")->toPlainText().isEmpty());
    EXPECT_EQ(QDir(QKApplication::sharedApplication()->tempDirectory()).entryList(QDir::Files),
              QStringList("system_profile.spx"));
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()->stringForKey("Help Desk Email"),
              "ada@example.org");
}

TEST_F(SupportPane, missingDiagnosticsEndTheChain)
{
    // No crash logs anywhere: the debug log and the attachments chosen with them stay home.
    check("submitCrashLog1Button");
    check("submitDebugLogButton");
    attach({writeFile("notes.txt", "my notes")});
    submitRequest(pane, "Crashes & Bugs", "First");
    EXPECT_EQ(waitForPanelEnd(), "Could not find any crash logs!");
    EXPECT_EQ(supportLog().mid(3),
              QStringList({"Info: send system profile success", "Info: preparing the crash log"}));

    // The debug log is the application log itself: at the default threshold nothing of this
    // run was written, so there is none.
    QFile::remove(QKApplicationLog::sharedLog()->logFilePath());
    QKApplicationLog::sharedLog()->_setThreshold(QKApplicationLog::Warning, "HDSupport");
    check("submitCrashLog1Button", false);
    ASSERT_TRUE(waitUntil([] { return !progressPanel()->isVisible(); }));
    submitRequest(pane, "Crashes & Bugs", "Second");
    EXPECT_EQ(waitForPanelEnd(), "Could not find debug log!");
    EXPECT_EQ(inspect(*site, "documents").size(), 0);
    EXPECT_EQ(pane->attachedFiles().size(), 1);
    EXPECT_FALSE(pane->requestID().isEmpty());
}

TEST_F(SupportPane, anEndpointThatCannotBeUsedStartsNothing)
{
    QKSupportSite::setHelpDeskAPIURL("nowhere");
    submitRequest(pane, "Crashes & Bugs", "Hello");
    paneWidget<QPushButton>(pane, "searchButton")->click();
    EXPECT_FALSE(progressPanel()->isVisible());
    EXPECT_TRUE(QKAlert::shownAlerts().isEmpty());
    EXPECT_EQ(supportLog(), QStringList({"Info: begin submit", "Info: sending request",
                                         "Warning: start sending request failed"}));
    EXPECT_EQ(paneWidget<QPlainTextEdit>(pane, "bodyText")->toPlainText(), "Hello");
}
