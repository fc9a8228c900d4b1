#include "PanesTestSupport.h"
#include "QKClock.h"
#include "QKHelpDeskDocumentation.h"
#include "QKSupportSiteProcess.h"
#include "QKTestEnvironment.h"

#include <QKAlert.h>
#include <QKPropertyList.h>
#include <QKUserDefaults.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace PanesTest;

namespace {

const QString UpdateAlert = "A documentation update is available";
const QString LastDownload = "Last Documentation Download";

QString text(const QKHelpDeskDocumentation *pane, const char *name)
{
    return pane->findChild<QLabel *>(name)->text();
}

} // namespace

TEST(QKHelpDeskDocumentation, alertsOnlyForAManualPublishedStrictlyAfterTheLastDownload)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    QKHelpDesk *helpDesk = startHelpDesk();
    ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));
    auto *pane = paneOf<QKHelpDeskDocumentation>(helpDesk);
    // Published "Mon, 02 Oct 2023 10:15:30 +0000": 6:15:30 in New York.
    EXPECT_EQ(text(pane, "versionText"), "The current version of the documentation is 2.4");
    EXPECT_EQ(text(pane, "publishedText"), "Published on Mon, Oct 02 2023 6:15 AM");

    enum Answer { HelpDesk = 0, Later = 1 };
    const struct
    {
        bool notify;
        QVariant lastDownload;
        Answer answer;
        bool alert;
    } cases[] = {
        {true, {}, Later, true},
        {true, "2023-10-02 06:15:30 -0400", Later, false},
        {true, "2023-10-02 10:15:29 +0000", Later, true},
        {true, "2023-10-02 06:15:31 -0400", Later, false},
        {true, "not a date", Later, true},
        {false, {}, HelpDesk, false},
        {true, "2023-10-02 10:15:29 +0000", HelpDesk, true},
    };
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.lastDownload.toString().toStdString());
        notifyAboutUpdates(c.notify, false);
        defaults->setObject(c.lastDownload, LastDownload);
        helpDesk->setPane("support");
        answerAlerts({{UpdateAlert, c.answer}});
        pane->castsDidLoad();
        EXPECT_EQ(alertMessages(), c.alert ? QStringList{UpdateAlert} : QStringList());
        const bool opened = c.alert && c.answer == HelpDesk;
        EXPECT_EQ(helpDesk->currentView()->identifier(), opened ? "documentation" : "support");
        EXPECT_EQ(defaults->objectForKey(LastDownload), c.lastDownload);
    }
    const QKAlertRequest alert = QKAlert::shownAlerts().value(0);
    EXPECT_EQ(alert.informativeText,
              "You can disable this alert from the Documentation section of the Help Desk.");
    EXPECT_EQ(alert.buttons, QStringList({"Help Desk", "Later"}));

    auto *notify = pane->findChild<QCheckBox *>("notifyButton");
    for (const bool on : {false, true}) {
        notify->setChecked(!on);
        notify->click();
        EXPECT_EQ(defaults->boolForKey("Notify Documentation Updates"), on);
    }
}

TEST(QKHelpDeskDocumentation, downloadsCountEvenWhenTheyFailAndUnreadableCastValuesShowEmpty)
{
    ScriptedServer server;
    server.replies = {{"/manuals/tsth/2//pdf/TestHost_2.x_Manual.pdf", "%PDF-1.4 manual"},
                      {"/manual_version.php",
                       QKPropertyList::toData(QVariantMap{
                           {"version", "2.4"}, {"published", "Mon, 02 Oct 2023 10:15:30 +0000"}})}};
    useSite(server.baseURL());
    ASSERT_TRUE(QDir().mkpath(downloadFolder()));
    QKHelpDesk *helpDesk = startHelpDesk();
    ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));
    auto *pane = paneOf<QKHelpDeskDocumentation>(helpDesk);
    auto *popup = pane->findChild<QComboBox *>("fileTypePopup");
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();

    // The date of the download is stored at once; the zip is missing on the server.
    const struct
    {
        int popupIndex;
        QDateTime now;
        bool completed;
        QString lastDownload;
    } downloads[] = {
        {0, utc({2024, 7, 4}, {20, 30, 5}), true, "2024-07-04 16:30:05 -0400"},
        {1, utc({2024, 12, 24}, {23, 0}), false, "2024-12-24 18:00:00 -0500"},
    };
    for (const auto &c : downloads) {
        QKClock::setClock([&c] { return c.now; });
        popup->setCurrentIndex(c.popupIndex);
        QSignalSpy ended(helpDesk, &QKHelpDesk::downloadEnded);
        pane->findChild<QPushButton *>("downloadButton")->click();
        EXPECT_EQ(defaults->stringForKey(LastDownload), c.lastDownload);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !ended.isEmpty(); }, 10000));
        EXPECT_EQ(ended.at(0).at(0).toBool(), c.completed);
    }
    QKClock::setClock({});
    EXPECT_EQ(filesIn(downloadFolder()), QStringList{"TestHost_2.x_Manual.pdf"});
    EXPECT_EQ(QKTestEnvironment::readAll(downloadFolder() + "/TestHost_2.x_Manual.pdf"),
              "%PDF-1.4 manual");
    EXPECT_TRUE(logText().contains("TestHost_2.x_Manual.zip")) << "the failed zip is logged";
    // The failed download still counts: the manual is older than it.
    notifyAboutUpdates(true, false);
    answerAlerts({});
    pane->castsDidLoad();
    EXPECT_TRUE(alertMessages().isEmpty());

    // Values that are missing or no dates leave their lines' text with an empty value and
    // never alert, even without a download.
    defaults->removeObjectForKey(LastDownload);
    const struct
    {
        QByteArray reply;
        QString versionText;
    } casts[] = {
        {QKPropertyList::toData(QVariantMap{{"version", "2.4"}, {"published", "yesterday"}}),
         "The current version of the documentation is 2.4"},
        {QKPropertyList::toData(QVariantMap{{"published", "Mon, 02 Oct 2023 13:15:30 +0000"}}),
         "The current version of the documentation is "},
        {QByteArray(), "The current version of the documentation is "},
    };
    for (const auto &c : casts) {
        if (c.reply.isEmpty())
            server.replies.remove("/manual_version.php");
        else
            server.replies["/manual_version.php"] = c.reply;
        answerAlerts({});
        ASSERT_TRUE(reloadCasts(helpDesk));
        EXPECT_EQ(text(pane, "versionText"), c.versionText);
        EXPECT_EQ(text(pane, "publishedText"), "Published on ");
        EXPECT_TRUE(alertMessages().isEmpty());
    }
    EXPECT_TRUE(logText().contains(
        "the documentation cast's publication date \"yesterday\" is not a date"));
}
