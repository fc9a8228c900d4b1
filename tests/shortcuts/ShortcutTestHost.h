#pragma once

// Shared by the shortcut tests: the test host's default shortcut list, its bundle in a folder
// under HOME, and a host window with the matching menus and responders.

#include "QKTestEnvironment.h"
#include "QKTestPrinters.h"

#include <QKAlert.h>
#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKKeyboardShortcuts.h>
#include <QKMainMenu.h>
#include <QKMenus.h>
#include <QKPanelFrame.h>
#include <QKPropertyList.h>
#include <QKShortcut.h>
#include <QKShortcutGroup.h>
#include <QKShortcutKey.h>
#include <QKUserDefaults.h>

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QKeySequence>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QStandardItemModel>
#include <QTableView>
#include <QTest>
#include <QTreeView>
#include <QVBoxLayout>

#include <gtest/gtest.h>

#include <numeric>

namespace ShortcutTestHost {

constexpr quint32 Shift = QKShortcutKey::Shift, Control = QKShortcutKey::Control,
                  Option = QKShortcutKey::Option, Command = QKShortcutKey::Command;

inline QVariantMap shortcutState(const QString &name, const QByteArray &action, char16_t character,
                                 quint32 modifiers, bool enabled = true,
                                 bool prohibitRepeats = false, int tag = 0)
{
    return {{u"name"_s, name},
            {u"action"_s, QString::fromLatin1(action)},
            {u"tag"_s, tag},
            {u"prohibitRepeats"_s, prohibitRepeats},
            {u"enabled"_s, enabled},
            {u"character"_s, int(character)},
            {u"modifiers"_s, qint64(modifiers)}};
}

/**
 * data/shortcuts.xml, the default list most tests use:
 * - "File" (menu): "New Track" newTrack: Ctrl+T, "Export>As Text" exportText: Ctrl+Shift+E
 *   (tag 7), "Delete Track" deleteTrack: Ctrl+Backspace;
 * - "Edit" (menu): "Résumé" showResume: Ctrl+R, "Undo Change" undoChange: Ctrl+Z;
 * - "Nudge" (no menu): "Nudge Left" nudgeLeft: Left, "Nudge Right" nudgeRight: Right (no
 *   repeats, tag 5), "Unbound" unbound: no key, "Play" play: Space.
 */
inline QByteArray defaultResource()
{
    return QKTestEnvironment::readAll(
        QKTestEnvironment::sourcePath(u"shortcuts/data/shortcuts.xml"_s));
}

inline QVariantList defaultList()
{
    return QKPropertyList::fromData(defaultResource()).toList();
}

inline QKKeyboardShortcuts *registry()
{
    return QKKeyboardShortcuts::sharedInstance();
}

inline QKUserDefaults *defaults()
{
    return QKUserDefaults::standardUserDefaults();
}

/** Points the registry at a new bundle folder under HOME whose "shortcuts.xml" holds
 *  @p contents (left out when null), then loads it with the stored changes. */
inline void loadBundle(const QByteArray &contents = defaultResource())
{
    static int count = 0;
    static std::unique_ptr<QKBundle> bundle;
    const QString folder = QKTestEnvironment::homeFile(u"bundle%1"_s.arg(++count));
    QDir().mkpath(folder);
    if (!contents.isNull())
        QKTestEnvironment::writeAll(folder + u"/shortcuts.xml"_s, contents);
    bundle = std::make_unique<QKBundle>(QStringList{folder});
    registry()->setBundle(bundle.get());
    registry()->loadShortcutsFromPreferencesWithChanges(true);
}

inline QString logText()
{
    return QString::fromUtf8(
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()));
}

/** The changes stored in the user defaults, as the next launch reads them. */
inline QVariantList storedChanges()
{
    return QKPropertyList::fromData(defaults()->dataForKey(QKKeyboardShortcuts::CustomKey))
        .toList();
}

inline QKeySequence menuKey(const QStringList &path)
{
    const QAction *item = QKMainMenu::itemForPath(path);
    return item ? item->shortcut() : QKeySequence(u"missing"_s);
}

/** The key of the registry's shortcut for @p action. */
inline QKShortcutKey keyOf(const QByteArray &action)
{
    const QKShortcut *shortcut = registry()->shortcutWithAction(action);
    return shortcut ? *shortcut->key() : QKShortcutKey(0xFFFF, 0xFFFF);
}

/** Shows @p window as the active window, with @p focus focused. */
inline void activate(QWidget *window, QWidget *focus)
{
    window->show();
    QApplication::setActiveWindow(window);
    focus->setFocus();
    QCoreApplication::processEvents();
}

/** A main window with the menus of defaultList(), a line edit, a table and a tree, whose
 *  invokable methods count the actions they receive. */
class Window : public QMainWindow
{
    Q_OBJECT
public:
    Window()
    {
        QMenu *file = menuBar()->addMenu(u"&File"_s);
        QKMenus::addItemWithTitle(file, u"New Track"_s, "newTrack:");
        QKMenus::addItemWithTitle(file->addMenu(u"Export"_s), u"As Text"_s, "exportText:");
        QKMenus::addItemWithTitle(file, u"Delete Track"_s, "deleteTrack:");
        QMenu *edit = menuBar()->addMenu(u"&Edit"_s);
        QKMenus::addItemWithTitle(edit, u"Résumé"_s, "showResume:");
        QKMenus::addItemWithTitle(edit, u"Undo Change"_s, "undoChange:");

        for (int row = 0; row < rows->rowCount(); ++row) {
            rows->setItem(row, 0, new QStandardItem(u"Track %1"_s.arg(row + 1)));
            rows->item(row, 0)->appendRow(new QStandardItem(u"Region"_s));
        }
        table->setModel(rows);
        tree->setModel(rows);
        auto *central = new QWidget;
        auto *layout = new QVBoxLayout(central);
        for (QWidget *widget : std::initializer_list<QWidget *>{field, table, tree})
            layout->addWidget(widget);
        setCentralWidget(central);
        resize(600, 500);
    }

    /** Shows the window, makes it active and focuses @p focus (the table by default). */
    void activate(QWidget *focus = nullptr)
    {
        ShortcutTestHost::activate(this, focus ? focus : table);
    }

    int totalCalls() const { return std::accumulate(calls.cbegin(), calls.cend(), 0); }

    QMap<QByteArray, int> calls;
    QList<int> tags;
    QObject *lastSender = nullptr;
    /** The highlighted menu bar title when the last action arrived. */
    QAction *titleAtLastAction = nullptr;
    bool allowDelete = true;

    QLineEdit *field = new QLineEdit;
    QTableView *table = new QTableView;
    QTreeView *tree = new QTreeView;
    QStandardItemModel *rows = new QStandardItemModel(4, 2, this);

    Q_INVOKABLE void newTrack(QObject *sender) { record("newTrack:", sender); }
    Q_INVOKABLE void exportText(QObject *sender) { record("exportText:", sender); }
    Q_INVOKABLE void deleteTrack(QObject *sender) { record("deleteTrack:", sender); }
    Q_INVOKABLE void showResume(QObject *sender) { record("showResume:", sender); }
    Q_INVOKABLE void undoChange(QObject *sender) { record("undoChange:", sender); }
    Q_INVOKABLE void nudgeLeft(QObject *sender) { record("nudgeLeft:", sender); }
    Q_INVOKABLE void nudgeRight(int tag)
    {
        tags << tag;
        record("nudgeRight:", nullptr);
    }
    Q_INVOKABLE void play(QObject *sender) { record("play:", sender); }
    Q_INVOKABLE bool validateMenuItem(QAction *item)
    {
        return item->property(QKMenus::ActionProperty).toByteArray() != "deleteTrack:" ||
               allowDelete;
    }

private:
    void record(const QByteArray &action, QObject *sender)
    {
        ++calls[action];
        lastSender = sender;
        titleAtLastAction = menuBar()->activeAction();
    }
};

} // namespace ShortcutTestHost
