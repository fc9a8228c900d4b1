#include "HelpDeskTestSupport.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskSupport.h"
#include "QKHelpDeskView.h"
#include "QKHelpDeskWindow.h"
#include "QKSupportSiteProcess.h"
#include "SUAppcastItem.h"

#include <QComboBox>
#include <QSignalSpy>
#include <QThread>

#include <gtest/gtest.h>

using namespace HelpDeskTest;

namespace {

QStringList categoryTitles(const QKHelpDesk *helpDesk)
{
    QStringList titles;
    const auto *popup = helpDesk->supportView()->findChild<QComboBox *>("categoryPopup");
    for (int i = 0; i < popup->count(); ++i)
        titles << popup->itemText(i);
    return titles;
}

bool categoryMenuEnabled(const QKHelpDesk *helpDesk)
{
    return helpDesk->supportView()->findChild<QComboBox *>("categoryPopup")->isEnabled();
}

/** Points the library at @p base for this process (help desk API included). */
void useSite(const QString &base)
{
    qputenv("QK_SUPPORT_BASE_URL", base.toUtf8());
    qputenv("QK_HELPDESK_API_URL", (base + "/helpspot_api.php").toUtf8());
}

const QByteArray categoriesXML =
    "<?xml version=\"1.0\"?><results>"
    "<category><xCategory>11</xCategory><sCategory>Hardware</sCategory>"
    "<fAllowPublicSubmit>1</fAllowPublicSubmit><fDeleted>0</fDeleted>"
    "</category></results>";

} // namespace

TEST(QKHelpDeskCasts, castsArriveOnTheMainThreadAfterTheCategoryMenu)
{
    QKSupportSiteProcess site;
    ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
    QKHelpDesk *helpDesk = startHelpDesk();

    QThread *deliveredOn = nullptr;
    QStringList menuAtDelivery;
    QObject::connect(
        helpDesk, &QKHelpDesk::castsLoaded, helpDesk,
        [&] {
            deliveredOn = QThread::currentThread();
            menuAtDelivery = categoryTitles(helpDesk);
        },
        Qt::DirectConnection);
    ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));

    EXPECT_EQ(deliveredOn, QThread::currentThread());
    const QStringList expected = {
        "<choose a category>", "Installation & Activation", "Audio & MIDI Setup", "Crashes & Bugs",
        "Feature Requests",    "Sales & Licensing",         "Beta Program"};
    EXPECT_EQ(menuAtDelivery, expected) << "the menu is rebuilt before the casts are announced";
    EXPECT_TRUE(categoryMenuEnabled(helpDesk));
    const auto *popup = helpDesk->supportView()->findChild<QComboBox *>("categoryPopup");
    EXPECT_EQ(popup->itemData(3).toInt(), 3);
    EXPECT_EQ(popup->itemData(4).toInt(), 5) << "deleted category 4 is left out";

    // The beta build reads the testing feed, newest first.
    const QList<SUAppcastItem> appCast = helpDesk->appCast();
    ASSERT_EQ(appCast.size(), 3);
    EXPECT_EQ(appCast[0].title(), "Test Host 2.5b1");
    EXPECT_EQ(appCast[0].versionString(), "2501");
    EXPECT_EQ(appCast[0].displayVersionString(), "2.5b1");
    EXPECT_EQ(appCast[0].fileURL().toString(),
              site.baseURL() + "/downloads/tsth/2/TestHost-2.5b1.tar.gz");
    EXPECT_EQ(appCast[0].date(), QDateTime(QDate(2024, 4, 9), QTime(12, 0), Qt::UTC));

    EXPECT_EQ(helpDesk->docCast().value("version").toString(), "2.4");
    EXPECT_EQ(helpDesk->docCast().value("published").toString(), "Mon, 02 Oct 2023 10:15:30 +0000");
    const QVariantList tutorials = helpDesk->tutorialCast();
    ASSERT_EQ(tutorials.size(), 3);
    EXPECT_EQ(tutorials[0].toMap().value("title").toString(), "Basics");
    EXPECT_EQ(tutorials[0].toMap().value("items").toList().size(), 2);
}

TEST(QKHelpDeskCasts, withoutAServerTheCastsAreEmptyAndStillAnnounced)
{
    QString closedSite;
    {
        QKSupportSiteProcess site(QKSupportSiteProcess::Environment::Keep);
        ASSERT_TRUE(site.isRunning());
        closedSite = site.baseURL();
    }
    useSite(closedSite);
    QKHelpDesk *helpDesk = startHelpDesk();
    ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));

    EXPECT_TRUE(helpDesk->appCast().isEmpty());
    EXPECT_TRUE(helpDesk->docCast().isEmpty());
    EXPECT_TRUE(helpDesk->tutorialCast().isEmpty());
    EXPECT_EQ(categoryTitles(helpDesk), QStringList{"<choose a category>"});
    EXPECT_FALSE(categoryMenuEnabled(helpDesk));
    const QString log = logText();
    EXPECT_TRUE(log.contains("cannot fetch the documentation cast")) << log.toStdString();
    EXPECT_TRUE(log.contains("cannot fetch the tutorial index"));
    EXPECT_TRUE(log.contains("cannot fetch the help desk categories"));
}

TEST(QKHelpDeskCasts, unreadableRepliesGiveEmptyCastsAndTheWindowStillWorks)
{
    ScriptedServer server;
    server.setReply("/appcast.php", "<html><body>Appcast moved</body></html>", 200, "text/html");
    server.setReply("/manual_version.php", "<html><body>Manual</body></html>", 200, "text/html");
    server.setReply("/tutorials/tsth/2/index.xml", "<?xml version=\"1.0\"?><plist><array><dict>",
                    200, "text/xml");
    server.setReply("/helpspot_api.php", "<html><body>Bad gateway</body></html>", 502, "text/html");
    useSite(server.baseURL());
    QKHelpDesk *helpDesk = startHelpDesk();
    ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));

    EXPECT_TRUE(helpDesk->appCast().isEmpty());
    EXPECT_TRUE(helpDesk->docCast().isEmpty());
    EXPECT_TRUE(helpDesk->tutorialCast().isEmpty());
    EXPECT_EQ(categoryTitles(helpDesk), QStringList{"<choose a category>"});
    const QString log = logText();
    EXPECT_TRUE(log.contains("documentation cast at")) << log.toStdString();
    EXPECT_TRUE(log.contains("is not a property list"));
    EXPECT_TRUE(log.contains("tutorial index at"));
    EXPECT_TRUE(log.contains("categories reply from"));
    EXPECT_TRUE(log.contains("not XML"));

    QKHelpDesk::openWindow("Support");
    EXPECT_EQ(helpDesk->currentView(), helpDesk->supportView());
    EXPECT_TRUE(helpDesk->window()->isVisible());
}

TEST(QKHelpDeskCasts, wrongKindsOfPropertyListsAreRefusedAndAnEmptyMenuReplyKeepsTheMenu)
{
    const QByteArray array = "<?xml version=\"1.0\"?><plist version=\"1.0\"><array>"
                             "<string>a</string></array></plist>";
    const QByteArray dictionary = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                                  "<key>title</key><string>a</string></dict></plist>";
    ScriptedServer server;
    server.setReply("/manual_version.php", array, 200, "text/xml");
    server.setReply("/tutorials/tsth/2/index.xml", dictionary, 200, "text/xml");
    server.setReply("/helpspot_api.php", categoriesXML, 200, "text/xml");
    useSite(server.baseURL());
    QKHelpDesk *helpDesk = startHelpDesk();
    ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));

    EXPECT_TRUE(helpDesk->docCast().isEmpty());
    EXPECT_TRUE(helpDesk->tutorialCast().isEmpty());
    EXPECT_TRUE(logText().contains("is not a dictionary"));
    EXPECT_TRUE(logText().contains("is not an array"));
    EXPECT_TRUE(logText().contains("appcast.php")) << "the missing feed is logged by the reader";
    const QStringList menu{"<choose a category>", "Hardware"};
    EXPECT_EQ(categoryTitles(helpDesk), menu);

    server.setReply("/helpspot_api.php", QByteArray(), 200, "text/xml");
    QSignalSpy casts(helpDesk, &QKHelpDesk::castsLoaded);
    helpDesk->loadCasts();
    ASSERT_TRUE(casts.wait(30000));
    EXPECT_EQ(categoryTitles(helpDesk), menu);
    EXPECT_TRUE(categoryMenuEnabled(helpDesk));
    EXPECT_TRUE(logText().contains("categories reply from " + server.baseURL() +
                                   "/helpspot_api.php is empty"));
}
