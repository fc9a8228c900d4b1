#include "HelpDeskTestSupport.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskSupport.h"
#include "QKHelpDeskToolbar.h"
#include "QKHelpDeskView.h"
#include "QKHelpDeskWindow.h"
#include "QKSupportSiteProcess.h"
#include "SUUpdater.h"

#include <QKAlert.h>
#include <QKUserDefaults.h>
#include <QKWorkspace.h>

#include <QAction>
#include <QMenu>
#include <QScreen>
#include <QSignalSpy>
#include <QUrl>

#include <gtest/gtest.h>

using namespace HelpDeskTest;

namespace {

QStringList identifiers(const QList<QKHelpDeskView *> &panes)
{
    QStringList list;
    for (const QKHelpDeskView *pane : panes)
        list << pane->identifier();
    return list;
}

QKHelpDeskView *pane(const QKHelpDesk *helpDesk, const QString &identifier)
{
    for (QKHelpDeskView *candidate : helpDesk->views()) {
        if (candidate->identifier() == identifier)
            return candidate;
    }
    return nullptr;
}

QAction *menuItem(QMenu *menu, const QString &text)
{
    for (QAction *item : menu->actions()) {
        if (item->text() == text)
            return item;
    }
    return nullptr;
}

int toolbarHeight(const QKHelpDesk *helpDesk)
{
    return helpDesk->window()->frameSizeForContentSize(QSize(0, 0)).height();
}

class QKHelpDeskWindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(site.isRunning()) << site.errorString().toStdString();
        QKWorkspace::setOpener([this](const QUrl &url) {
            opened << url;
            return true;
        });
    }
    void TearDown() override { QKWorkspace::setOpener({}); }
    void open()
    {
        helpDesk = startHelpDesk();
        ASSERT_TRUE(openWindowAndWaitForCasts(helpDesk));
    }

    QKSupportSiteProcess site;
    QKHelpDesk *helpDesk = nullptr;
    QList<QUrl> opened;
};

} // namespace

TEST_F(QKHelpDeskWindowTest, firstOpeningShowsDocumentationUnderTheDefaultToolbar)
{
    open();
    const QStringList panes = {"documentation", "tutorials", "softwareUpdate",
                               "releaseNotes",  "debug",     "support"};
    EXPECT_EQ(identifiers(helpDesk->views()), panes);
    QStringList titles;
    for (const QKHelpDeskView *view : helpDesk->views())
        titles << view->title();
    EXPECT_EQ(titles, QStringList({"Documentation", "Tutorials", "Software Update", "Release Notes",
                                   "Debug", "Support"}));
    EXPECT_EQ(helpDesk->currentView(), pane(helpDesk, "documentation"));
    EXPECT_TRUE(helpDesk->window()->isVisible());

    QKHelpDeskToolbar *toolbar = helpDesk->toolbar();
    EXPECT_EQ(toolbar->identifier(), "Help Desk Toolbar");
    EXPECT_EQ(
        toolbar->itemIdentifiers(),
        QStringList({"documentation", "tutorials", "softwareUpdate", "releaseNotes", "support"}));
    EXPECT_EQ(toolbar->selectedItemIdentifier(), "documentation");
    EXPECT_TRUE(toolbar->itemWithIdentifier("documentation")->isChecked());
    EXPECT_EQ(toolbar->itemWithIdentifier("releaseNotes")->text(), "Release Notes");
    EXPECT_EQ(helpDesk->toolbarSelectableItemIdentifiers(toolbar), panes);
    for (const QString &identifier : panes) {
        const std::unique_ptr<QAction> item(
            helpDesk->toolbarItemForItemIdentifier(toolbar, identifier, false));
        EXPECT_FALSE(item->icon().isNull()) << identifier.toStdString();
    }
}

TEST_F(QKHelpDeskWindowTest, titlesSwitchPanesAndTheTwoSpecialTitlesRunTheirActions)
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

    QKHelpDesk::openWindow("Online Documentation");
    EXPECT_EQ(helpDesk->currentView()->identifier(), "releaseNotes");
    ASSERT_EQ(opened.size(), 1);
    EXPECT_EQ(opened[0].toString(), site.baseURL() + "/manuals.php?appCode=tsth&version=2");

    QSignalSpy checked(helpDesk->sparkle(), &SUUpdater::checkFinished);
    QKHelpDesk::openWindow("Check for Updates");
    EXPECT_EQ(helpDesk->currentView()->identifier(), "releaseNotes");
    ASSERT_TRUE(checked.wait(30000));
    ASSERT_EQ(QKAlert::shownAlerts().size(), 1);
    EXPECT_EQ(QKAlert::shownAlerts()[0].message, "Test Host is up to date");

    QKHelpDesk::openWindow("Forum");
    EXPECT_EQ(helpDesk->currentView()->identifier(), "releaseNotes")
        << "panes outside the toolbar are not opened by name";
}

TEST_F(QKHelpDeskWindowTest, switchingKeepsTheTopEdgeAndFitsTheWindowToThePane)
{
    open();
    QKHelpDeskWindow *window = helpDesk->window();
    window->move(40, 30);
    ASSERT_TRUE(waitUntil([&] { return window->pos() == QPoint(40, 30); }));
    const QPoint topLeft = window->geometry().topLeft();

    // The old pane leaves at once; the new one comes in after the animation.
    helpDesk->setPane("support");
    QKHelpDeskView *support = helpDesk->supportView();
    EXPECT_EQ(helpDesk->currentView(), support);
    EXPECT_NE(window->centralWidget(), support);
    EXPECT_FALSE(pane(helpDesk, "documentation")->isVisible());
    ASSERT_TRUE(waitUntil([&] { return window->centralWidget() == support; }));
    EXPECT_EQ(window->geometry().topLeft(), topLeft);
    EXPECT_EQ(support->size(), QSize(590, 560));
    EXPECT_EQ(window->size(), QSize(590, 560 + toolbarHeight(helpDesk)));

    // Choosing the pane already shown changes nothing: no empty window, no animation.
    helpDesk->setPane("support");
    EXPECT_EQ(window->centralWidget(), support);

    helpDesk->setPane("softwareUpdate");
    QKHelpDeskView *update = pane(helpDesk, "softwareUpdate");
    ASSERT_TRUE(waitUntil([&] { return window->centralWidget() == update; }));
    EXPECT_EQ(window->geometry().topLeft(), topLeft);
    EXPECT_EQ(window->size(), QSize(590, 170 + toolbarHeight(helpDesk)));
    EXPECT_EQ(window->minimumSize(), window->maximumSize()) << "a fixed-size pane";

    // Low on the screen, a taller pane lifts the window instead of reaching below the screen.
    const QRect available = window->screen()->availableGeometry();
    window->move(40, available.bottom() - 200);
    ASSERT_TRUE(waitUntil([&] { return window->pos().y() == available.bottom() - 200; }));
    helpDesk->setPane("support");
    ASSERT_TRUE(waitUntil([&] { return window->centralWidget() == support; }));
    const int height = 560 + toolbarHeight(helpDesk);
    EXPECT_EQ(window->geometry(),
              QRect(window->geometry().left(),
                    qMax(available.top(), available.bottom() + 1 - height), 590, height));
    EXPECT_EQ(window->geometry().left(), topLeft.x());

    // An unknown identifier leaves the window without a pane.
    helpDesk->setPane("forum");
    EXPECT_EQ(helpDesk->currentView(), nullptr);
    EXPECT_FALSE(qobject_cast<QKHelpDeskView *>(window->centralWidget()));
}

TEST_F(QKHelpDeskWindowTest, resizingKeepsTheWidthAndTheMinimumHeightAndSavesTheFrame)
{
    open();
    QKHelpDeskWindow *window = helpDesk->window();
    const int toolbar = toolbarHeight(helpDesk);

    // A non-resizable pane keeps the window as it is.
    const QSize documentationSize = window->size();
    EXPECT_EQ(helpDesk->windowWillResize(QSize(900, 700)), documentationSize);
    window->resize(900, 700);
    EXPECT_EQ(window->size(), documentationSize);

    QKHelpDeskWindow::setAnimationDuration(0);
    helpDesk->setPane("tutorials");
    EXPECT_EQ(helpDesk->windowWillResize(QSize(900, 700)), QSize(590, 700));
    EXPECT_EQ(helpDesk->windowWillResize(QSize(300, 50)), QSize(590, 200 + toolbar));
    EXPECT_EQ(helpDesk->windowWillResize(QSize(590, 200 + toolbar)), QSize(590, 200 + toolbar));

    window->resize(800, 120);
    ASSERT_TRUE(waitUntil([&] { return window->size() == QSize(590, 200 + toolbar); }))
        << window->width() << "x" << window->height();
    window->resize(700, 450 + toolbar);
    ASSERT_TRUE(waitUntil([&] { return window->size() == QSize(590, 450 + toolbar); }));

    // Once the user stops, the pane saves its frame; the next switch back uses it.
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    ASSERT_TRUE(waitUntil([&] { return defaults->hasKey("Help Desk View Frame Tutorials"); }));
    EXPECT_EQ(NSRectFromString(defaults->stringForKey("Help Desk View Frame Tutorials")).size(),
              QSizeF(590, 450));
    helpDesk->setPane("documentation");
    helpDesk->setPane("tutorials");
    EXPECT_EQ(window->size(), QSize(590, 450 + toolbar));

    // A fixed pane never saves a frame, even when told the user resized it.
    pane(helpDesk, "documentation")->viewDidEndLiveResize();
    EXPECT_FALSE(defaults->hasKey("Help Desk View Frame Documentation"));
}

TEST_F(QKHelpDeskWindowTest, savedFramesComeBackOnlyForResizablePanes)
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->setObject("{{0, 0}, {590, 333}}", "Help Desk View Frame Release Notes");
    defaults->setObject("{{0, 0}, {590, 999}}", "Help Desk View Frame Documentation");
    defaults->setObject("not a rectangle", "Help Desk View Frame Tutorials");
    open();
    EXPECT_EQ(pane(helpDesk, "releaseNotes")->size(), QSize(590, 333));
    EXPECT_EQ(pane(helpDesk, "documentation")->size(), QSize(590, 150));
    EXPECT_EQ(pane(helpDesk, "tutorials")->frame(), QRectF()) << "an unreadable frame is zero";
}

TEST_F(QKHelpDeskWindowTest, toolbarCustomisationIsSavedAndComesBack)
{
    open();
    QKHelpDeskToolbar *toolbar = helpDesk->toolbar();
    const std::unique_ptr<QMenu> menu(toolbar->createCustomizationMenu(nullptr));
    QAction *debug = menuItem(menu.get(), "Debug");
    ASSERT_NE(debug, nullptr);
    EXPECT_FALSE(debug->isChecked());
    EXPECT_TRUE(menuItem(menu.get(), "Support")->isChecked());
    debug->trigger();
    EXPECT_EQ(toolbar->itemIdentifiers(),
              QStringList({"documentation", "tutorials", "softwareUpdate", "releaseNotes", "debug",
                           "support"}));

    const std::unique_ptr<QMenu> onTutorials(
        toolbar->createCustomizationMenu(toolbar->itemWithIdentifier("tutorials")));
    menuItem(onTutorials.get(), "Remove “Tutorials”")->trigger();
    menuItem(onTutorials.get(), "Add Flexible Space")->trigger();
    const QStringList customised = {"documentation",  "NSToolbarFlexibleSpaceItem",
                                    "softwareUpdate", "releaseNotes",
                                    "debug",          "support"};
    EXPECT_EQ(toolbar->itemIdentifiers(), customised);
    const QVariantMap saved = QKUserDefaults::standardUserDefaults()->dictionaryForKey(
        toolbar->configurationDefaultsKey());
    EXPECT_EQ(saved.value("TB Item Identifiers").toStringList(), customised);

    // The debug item now switches panes from the toolbar and shows itself selected.
    toolbar->itemWithIdentifier("debug")->trigger();
    EXPECT_EQ(helpDesk->currentView()->identifier(), "debug");
    EXPECT_TRUE(toolbar->itemWithIdentifier("debug")->isChecked());
    EXPECT_FALSE(toolbar->itemWithIdentifier("documentation")->isChecked());
    toolbar->itemWithIdentifier("debug")->trigger();
    EXPECT_TRUE(toolbar->itemWithIdentifier("debug")->isChecked()) << "stays selected";

    // A toolbar made later with the same identifier reads the saved configuration.
    QKHelpDeskToolbar later("Help Desk Toolbar");
    later.setAutosavesConfiguration(true);
    later.setDelegate(helpDesk);
    EXPECT_EQ(later.itemIdentifiers(), customised);

    const std::unique_ptr<QMenu> reset(toolbar->createCustomizationMenu(nullptr));
    menuItem(reset.get(), "Use Default Set")->trigger();
    EXPECT_EQ(toolbar->itemIdentifiers(), helpDesk->toolbarDefaultItemIdentifiers(toolbar));
}
