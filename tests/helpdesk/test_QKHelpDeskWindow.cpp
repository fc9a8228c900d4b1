#include "HelpDeskTestSupport.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskSupport.h"
#include "QKHelpDeskToolbar.h"
#include "QKHelpDeskView.h"
#include "QKHelpDeskWindow.h"
#include "QKSupportSiteProcess.h"

#include <QKUserDefaults.h>

#include <QAction>
#include <QMenu>
#include <QScreen>

#include <gtest/gtest.h>

using namespace HelpDeskTest;

namespace {

QAction *menuItem(const std::unique_ptr<QMenu> &menu, const QString &text)
{
    for (QAction *item : menu->actions()) {
        if (item->text() == text)
            return item;
    }
    return nullptr;
}

class QKHelpDeskWindowTest : public ::testing::Test
{
protected:
    void open()
    {
        ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
        helpDesk = startHelpDesk();
        ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));
        window = helpDesk->window();
        toolbarHeight = window->frameSizeForContentSize(QSize(0, 0)).height();
    }

    QKSupportSiteProcess site;
    QKHelpDesk *helpDesk = nullptr;
    QKHelpDeskWindow *window = nullptr;
    int toolbarHeight = 0;
};

} // namespace

TEST_F(QKHelpDeskWindowTest, firstOpeningShowsDocumentationUnderTheDefaultToolbarAndSavedFrames)
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setObject("{{0, 0}, {590, 333}}", "Help Desk View Frame Release Notes");
    defaults->setObject("{{0, 0}, {590, 999}}", "Help Desk View Frame Documentation");
    defaults->setObject("not a rectangle", "Help Desk View Frame Tutorials");
    open();
    QStringList panes;
    for (const QKHelpDeskView *view : helpDesk->views())
        panes << view->identifier() + ": " + view->title();
    EXPECT_EQ(panes, QStringList({"documentation: Documentation", "tutorials: Tutorials",
                                  "softwareUpdate: Software Update", "releaseNotes: Release Notes",
                                  "debug: Debug", "support: Support"}));
    EXPECT_EQ(helpDesk->currentView(), pane(helpDesk, "documentation"));
    EXPECT_TRUE(window->isVisible());
    // Only resizable panes take their saved frames.
    EXPECT_EQ(pane(helpDesk, "releaseNotes")->size(), QSize(590, 333));
    EXPECT_EQ(pane(helpDesk, "documentation")->size(), QSize(590, 150));
    EXPECT_EQ(pane(helpDesk, "tutorials")->frame(), QRectF()) << "an unreadable frame is zero";

    QKHelpDeskToolbar *toolbar = helpDesk->toolbar();
    EXPECT_EQ(
        toolbar->itemIdentifiers(),
        QStringList({"documentation", "tutorials", "softwareUpdate", "releaseNotes", "support"}));
    EXPECT_EQ(toolbar->selectedItemIdentifier(), "documentation");
    for (const QKHelpDeskView *view : helpDesk->views()) {
        const std::unique_ptr<QAction> item(
            helpDesk->toolbarItemForItemIdentifier(toolbar, view->identifier(), false));
        EXPECT_FALSE(item->icon().isNull()) << view->identifier().toStdString();
    }
}

TEST_F(QKHelpDeskWindowTest, titlesSwitchPanesAndOnlineDocumentationOpensTheManual)
{
    open();
    QKHelpDesk::openWindow("Tutorials");
    EXPECT_EQ(helpDesk->currentView()->identifier(), "tutorials");
    EXPECT_EQ(helpDesk->toolbar()->selectedItemIdentifier(), "tutorials");

    // Not in the default toolbar, but reachable by name.
    QKHelpDesk::openWindow("Debug");
    EXPECT_EQ(helpDesk->currentView()->identifier(), "debug");
    EXPECT_EQ(helpDesk->toolbar()->itemWithIdentifier("debug"), nullptr);

    QAction menuItem("&Release Notes");
    QKHelpDesk::openWindow(&menuItem);
    EXPECT_EQ(helpDesk->currentView()->identifier(), "releaseNotes");

    OpenedURLs opened;
    QKHelpDesk::openWindow("Online Documentation");
    EXPECT_EQ(opened, QStringList{site.baseURL() + "/manuals.php?appCode=tsth&version=2"});

    QKHelpDesk::openWindow("Forum");
    EXPECT_EQ(helpDesk->currentView()->identifier(), "releaseNotes")
        << "neither \"Online Documentation\" nor panes outside the toolbar switch panes";
}

TEST_F(QKHelpDeskWindowTest, switchingKeepsTheTopEdgeAndFitsTheWindowToThePane)
{
    open();
    window->move(40, 30);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->pos() == QPoint(40, 30); }));
    const QPoint topLeft = window->geometry().topLeft();

    // The old pane leaves at once; the new one comes in after the animation.
    helpDesk->setPane("support");
    QKHelpDeskView *support = helpDesk->supportView();
    EXPECT_EQ(helpDesk->currentView(), support);
    EXPECT_NE(window->centralWidget(), support);
    EXPECT_FALSE(pane(helpDesk, "documentation")->isVisible());
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->centralWidget() == support; }));
    EXPECT_EQ(window->geometry().topLeft(), topLeft);
    EXPECT_EQ(support->size(), QSize(590, 560));
    EXPECT_EQ(window->size(), QSize(590, 560 + toolbarHeight));

    // Choosing the pane already shown changes nothing: no empty window, no animation.
    helpDesk->setPane("support");
    EXPECT_EQ(window->centralWidget(), support);

    helpDesk->setPane("softwareUpdate");
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return window->centralWidget() == helpDesk->currentView(); }));
    EXPECT_EQ(window->geometry().topLeft(), topLeft);
    EXPECT_EQ(window->size(), QSize(590, 170 + toolbarHeight));
    EXPECT_EQ(window->minimumSize(), window->maximumSize()) << "a fixed-size pane";

    // Low on the screen, a taller pane lifts the window instead of reaching below the screen.
    const QRect available = window->screen()->availableGeometry();
    window->move(40, available.bottom() - 200);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->pos().y() == available.bottom() - 200; }));
    helpDesk->setPane("support");
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->centralWidget() == support; }));
    const int height = 560 + toolbarHeight;
    EXPECT_EQ(
        window->geometry(),
        QRect(topLeft.x(), qMax(available.top(), available.bottom() + 1 - height), 590, height));

    // An unknown identifier leaves the window without a pane.
    helpDesk->setPane("forum");
    EXPECT_EQ(helpDesk->currentView(), nullptr);
    EXPECT_FALSE(qobject_cast<QKHelpDeskView *>(window->centralWidget()));
}

TEST_F(QKHelpDeskWindowTest, resizingKeepsTheWidthAndTheMinimumHeightAndSavesTheFrame)
{
    open();
    // A non-resizable pane keeps the window as it is.
    const QSize documentationSize = window->size();
    EXPECT_EQ(helpDesk->windowWillResize(QSize(900, 700)), documentationSize);
    window->resize(900, 700);
    EXPECT_EQ(window->size(), documentationSize);

    QKHelpDeskWindow::setAnimationDuration(0);
    helpDesk->setPane("tutorials");
    const QSize smallest(590, 200 + toolbarHeight);
    EXPECT_EQ(helpDesk->windowWillResize(QSize(900, 700)), QSize(590, 700));
    EXPECT_EQ(helpDesk->windowWillResize(QSize(300, 50)), smallest);
    EXPECT_EQ(helpDesk->windowWillResize(smallest), smallest);
    window->resize(800, 120);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->size() == smallest; }))
        << window->width() << "x" << window->height();
    window->resize(700, 450 + toolbarHeight);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->size() == QSize(590, 450 + toolbarHeight); }));

    // Once the user stops, the pane saves its frame; the next switch back uses it.
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return defaults->hasKey("Help Desk View Frame Tutorials"); }));
    EXPECT_EQ(NSRectFromString(defaults->stringForKey("Help Desk View Frame Tutorials")).size(),
              QSizeF(590, 450));
    helpDesk->setPane("documentation");
    helpDesk->setPane("tutorials");
    EXPECT_EQ(window->size(), QSize(590, 450 + toolbarHeight));

    // A fixed pane never saves a frame, even when told the user resized it.
    pane(helpDesk, "documentation")->viewDidEndLiveResize();
    EXPECT_FALSE(defaults->hasKey("Help Desk View Frame Documentation"));
}

TEST_F(QKHelpDeskWindowTest, toolbarCustomisationIsSavedAndComesBack)
{
    open();
    QKHelpDeskToolbar *toolbar = helpDesk->toolbar();
    const std::unique_ptr<QMenu> menu(toolbar->createCustomizationMenu(nullptr));
    ASSERT_NE(menuItem(menu, "Debug"), nullptr);
    EXPECT_FALSE(menuItem(menu, "Debug")->isChecked());
    EXPECT_TRUE(menuItem(menu, "Support")->isChecked());
    menuItem(menu, "Debug")->trigger();
    EXPECT_EQ(toolbar->itemIdentifiers(),
              QStringList({"documentation", "tutorials", "softwareUpdate", "releaseNotes", "debug",
                           "support"}));

    const std::unique_ptr<QMenu> onTutorials(
        toolbar->createCustomizationMenu(toolbar->itemWithIdentifier("tutorials")));
    menuItem(onTutorials, "Remove “Tutorials”")->trigger();
    menuItem(onTutorials, "Add Flexible Space")->trigger();
    const QStringList customised = {"documentation",  "NSToolbarFlexibleSpaceItem",
                                    "softwareUpdate", "releaseNotes",
                                    "debug",          "support"};
    EXPECT_EQ(toolbar->itemIdentifiers(), customised);
    EXPECT_EQ(QKUserDefaults::standardUserDefaults()
                  ->dictionaryForKey(toolbar->configurationDefaultsKey())
                  .value("TB Item Identifiers")
                  .toStringList(),
              customised);

    // The debug item now switches panes from the toolbar and stays selected.
    for (int click = 0; click < 2; ++click) {
        toolbar->itemWithIdentifier("debug")->trigger();
        EXPECT_EQ(helpDesk->currentView()->identifier(), "debug");
        EXPECT_TRUE(toolbar->itemWithIdentifier("debug")->isChecked());
        EXPECT_FALSE(toolbar->itemWithIdentifier("documentation")->isChecked());
    }

    // A toolbar made later with the same identifier reads the saved configuration.
    QKHelpDeskToolbar later("Help Desk Toolbar");
    later.setAutosavesConfiguration(true);
    later.setDelegate(helpDesk);
    EXPECT_EQ(later.itemIdentifiers(), customised);

    const std::unique_ptr<QMenu> reset(toolbar->createCustomizationMenu(nullptr));
    menuItem(reset, "Use Default Set")->trigger();
    EXPECT_EQ(toolbar->itemIdentifiers(), helpDesk->toolbarDefaultItemIdentifiers(toolbar));
}
