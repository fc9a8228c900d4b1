// Sound Lab's main window built in-process with its own default shortcut list: every menu
// item goes through the shortcut registry.
#include "../ShortcutTestHost.h"

#include <QKApplication.h>
#include <QKPreferencesPanel.h>
#include <QKShortcut.h>

#include "SoundLabWindow.h"

#include <QRegularExpression>

using namespace ShortcutTestHost;

namespace {

// Sound Lab names its application menu, About and Quit after the application, which here
// is the test host.
QByteArray soundLabShortcuts()
{
    QString list = QString::fromUtf8(QKTestEnvironment::readAll(
        QKTestEnvironment::sourcePath(u"../examples/SoundLab/Resources/shortcuts.xml"_s)));
    list.replace(QRegularExpression(u"(<string>|About |Quit )Sound Lab</string>"_s),
                 u"\\1%1</string>"_s.arg(QKApplication::currentName()));
    return list.toUtf8();
}

// The items of @p menu and its submenus that send an action, by their path of titles.
void collectItems(const QMenu *menu, const QStringList &path,
                  QList<std::pair<QStringList, QAction *>> &items)
{
    for (QAction *item : menu->actions()) {
        const QStringList itemPath = path + QStringList{QKMenus::plainTitle(item->text())};
        if (item->menu())
            collectItems(item->menu(), itemPath, items);
        else if (!item->property(QKMenus::ActionProperty).toByteArray().isEmpty())
            items.append({itemPath, item});
    }
}

class SoundLabMenus : public ::testing::Test
{
protected:
    void SetUp() override
    {
        window.show();
        loadBundle(soundLabShortcuts());
        ASSERT_FALSE(registry()->groups().isEmpty());
    }
    SoundLabWindow window;
};

} // namespace

TEST_F(SoundLabMenus, everyItemWithAnActionHasTheShortcutOfItsPath)
{
    QList<std::pair<QStringList, QAction *>> items;
    for (const QAction *top : window.menuBar()->actions())
        collectItems(top->menu(), {QKMenus::plainTitle(top->text())}, items);
    ASSERT_GT(items.size(), 20);
    for (const auto &[path, item] : items) {
        // The registry finds a shortcut by its action, so no two items may share one.
        const QKShortcut *shortcut =
            registry()->shortcutWithAction(item->property(QKMenus::ActionProperty).toByteArray());
        const QString name = path.mid(1).join(u'>');
        if (!shortcut) {
            ADD_FAILURE() << qPrintable(path.join(u" > "_s)) << " has no shortcut";
            continue;
        }
        EXPECT_TRUE(shortcut->group()->isMenu()) << qPrintable(name);
        EXPECT_EQ(shortcut->group()->name(), path.first()) << qPrintable(name);
        EXPECT_EQ(shortcut->name(), name);
    }
    // Nor does the list hold entries for items that are gone.
    qsizetype menuShortcuts = 0;
    for (const QKShortcutGroup *group : registry()->groups())
        menuShortcuts += group->isMenu() ? group->count() : 0;
    EXPECT_EQ(menuShortcuts, items.size());
}

TEST_F(SoundLabMenus, preferencesKeyAndMinimizeReachTheirWindowsFromTheTable)
{
    auto *table = window.findChild<QTableView *>(u"trackTable"_s);
    ASSERT_NE(table, nullptr);
    activate(&window, table);
    QTest::keyClick(window.windowHandle(), Qt::Key_Comma, Qt::ControlModifier);
    const QWidget *preferences = QKPreferencesPanel::sharedInstance()->panel();
    EXPECT_TRUE(preferences && preferences->isVisible());

    QAction *minimize = QKMainMenu::itemForPath({u"Minimize"_s});
    ASSERT_NE(minimize, nullptr);
    activate(&window, table);
    minimize->trigger();
    EXPECT_TRUE(window.isMinimized());
    EXPECT_FALSE(table->isMinimized());
}
