#include "HelpDeskTestSupport.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskSupport.h"
#include "QKHelpDeskWindow.h"
#include "QKSupportSiteProcess.h"
#include "SUAppcastItem.h"

#include <QComboBox>
#include <QThread>

#include <gtest/gtest.h>

using namespace HelpDeskTest;

namespace {

QComboBox *categoryMenu(const QKHelpDesk *helpDesk)
{
    return helpDesk->supportView()->findChild<QComboBox *>("categoryPopup");
}

QStringList categoryTitles(const QKHelpDesk *helpDesk)
{
    QStringList titles;
    for (int i = 0; i < categoryMenu(helpDesk)->count(); ++i)
        titles << categoryMenu(helpDesk)->itemText(i);
    return titles;
}

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
    EXPECT_EQ(
        menuAtDelivery,
        QStringList({"<choose a category>", "Installation & Activation", "Audio & MIDI Setup",
                     "Crashes & Bugs", "Feature Requests", "Sales & Licensing", "Beta Program"}))
        << "the menu is rebuilt before the casts are announced";
    EXPECT_TRUE(categoryMenu(helpDesk)->isEnabled());
    EXPECT_EQ(categoryMenu(helpDesk)->itemData(4).toInt(), 5) << "deleted category 4 is left out";

    // The beta build reads the testing feed, newest first; the panes show the other casts.
    const QList<SUAppcastItem> appCast = helpDesk->appCast();
    ASSERT_EQ(appCast.size(), 3);
    EXPECT_EQ(appCast[0].versionString(), "2501");
    EXPECT_EQ(appCast[0].date(), QDateTime(QDate(2024, 4, 9), QTime(12, 0), Qt::UTC));
}

TEST(QKHelpDeskCasts, badRepliesAndNoServerGiveEmptyCastsButAnEmptyCategoryReplyKeepsTheMenu)
{
    auto server = std::make_unique<ScriptedServer>();
    const QString base = server->baseURL();
    useSite(base);
    const QString manual = base + "/manual_version.php?appCode=tsth&version=2";
    const QString index = base + "/tutorials/tsth/2/index.xml";
    const QString api = base + "/helpspot_api.php";
    const auto expectLogged = [](const QString &line) {
        EXPECT_TRUE(logText().contains(line)) << line.toStdString();
    };
    const auto expectEmptyCasts = [](const QKHelpDesk *helpDesk) {
        EXPECT_TRUE(helpDesk->appCast().isEmpty());
        EXPECT_TRUE(helpDesk->docCast().isEmpty());
        EXPECT_TRUE(helpDesk->tutorialCast().isEmpty());
    };

    // Property lists of the wrong kinds, and no feed at all.
    server->replies = {
        {"/manual_version.php", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array>"
                                "<string>a</string></array></plist>"},
        {"/tutorials/tsth/2/index.xml", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                                        "<key>title</key><string>a</string></dict></plist>"},
        {"/helpspot_api.php", "<?xml version=\"1.0\"?><results><category><xCategory>11"
                              "</xCategory><sCategory>Hardware</sCategory><fAllowPublicSubmit>1"
                              "</fAllowPublicSubmit><fDeleted>0</fDeleted></category></results>"}};
    QKHelpDesk *helpDesk = startHelpDesk();
    ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));
    expectEmptyCasts(helpDesk);
    expectLogged("the documentation cast at " + manual + " is not a dictionary");
    expectLogged("the tutorial index at " + index + " is not an array");
    expectLogged("/appcast.php"); // by the feed reader
    const QStringList menu{"<choose a category>", "Hardware"};
    EXPECT_EQ(categoryTitles(helpDesk), menu);

    // Replies that are no property lists; an empty category reply keeps the menu.
    server->replies = {
        {"/appcast.php", "<html><body>Appcast moved</body></html>"},
        {"/manual_version.php", "<html><body>Manual</body></html>"},
        {"/tutorials/tsth/2/index.xml", "<?xml version=\"1.0\"?><plist><array><dict>"},
        {"/helpspot_api.php", ""}};
    ASSERT_TRUE(reloadCasts(helpDesk));
    expectEmptyCasts(helpDesk);
    expectLogged("the documentation cast at " + manual + " is not a property list");
    expectLogged("the tutorial index at " + index + " is not a property list");
    expectLogged("the help desk categories reply from " + api + " is empty");
    EXPECT_EQ(categoryTitles(helpDesk), menu);
    EXPECT_TRUE(categoryMenu(helpDesk)->isEnabled());

    // A category reply that is not XML empties the menu.
    server->replies["/helpspot_api.php"] = "<html><body>Bad gateway</body></html>";
    ASSERT_TRUE(reloadCasts(helpDesk));
    expectLogged("the help desk categories reply from " + api + " is not XML");
    EXPECT_EQ(categoryTitles(helpDesk), QStringList{"<choose a category>"});
    EXPECT_FALSE(categoryMenu(helpDesk)->isEnabled());

    // Without a server every fetch fails, and the casts are still announced.
    server.reset();
    ASSERT_TRUE(reloadCasts(helpDesk));
    expectEmptyCasts(helpDesk);
    expectLogged("cannot fetch the documentation cast at " + manual);
    expectLogged("cannot fetch the tutorial index at " + index);
    expectLogged("cannot fetch the help desk categories from " + api);

    QKHelpDesk::openWindow("Support");
    EXPECT_EQ(helpDesk->currentView(), helpDesk->supportView());
    EXPECT_TRUE(helpDesk->window()->isVisible());
}
