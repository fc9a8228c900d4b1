#pragma once

#include "QKTestPrinters.h"

#include <QKShortcutKey.h>

#include <QMainWindow>
#include <QMap>

class QKKeyboardShortcuts;
class QKUserDefaults;
class QLineEdit;
class QStandardItemModel;
class QTableView;
class QTreeView;

/** Shared by the shortcut tests: the test host's default shortcut list, its bundle in a
 *  folder under HOME, and a host window with the matching menus and responders. */
namespace ShortcutTestHost {

constexpr quint32 Shift = QKShortcutKey::Shift;
constexpr quint32 Control = QKShortcutKey::Control;
constexpr quint32 Option = QKShortcutKey::Option;
constexpr quint32 Command = QKShortcutKey::Command;

QVariantMap shortcutState(const QString &name, const QByteArray &action, char16_t character,
                          quint32 modifiers, bool enabled = true, bool prohibitRepeats = false,
                          int tag = 0);

/**
 * The contents of data/shortcuts.xml, the default list most tests use:
 * - "File" (menu): "New Track" newTrack: ⌘T, "Export>As Text" exportText: ⇧⌘E (tag 7),
 *   "Delete Track" deleteTrack: ⌘⌫;
 * - "Edit" (menu): "Résumé" showResume: ⌘R, "Undo Change" undoChange: ⌘Z;
 * - "Nudge" (no menu): "Nudge Left" nudgeLeft: ←, "Nudge Right" nudgeRight: → (no repeats,
 *   tag 5), "Unbound" unbound: no key, "Play" play: space.
 */
QByteArray defaultResource();
/** defaultResource() as the registry reads it. */
QVariantList defaultList();

/** Points the registry at a new bundle folder under HOME whose "shortcuts.xml" holds
 *  @p contents; a null array leaves the file out. */
void installBundle(const QByteArray &contents = defaultResource());

/** The text the debug log holds so far; empty when nothing was logged. */
QString logText();

QKKeyboardShortcuts *registry();
QKUserDefaults *defaults();
/** The key of the registry's shortcut for @p action. */
QKShortcutKey keyOf(const QByteArray &action);

/**
 * A main window with the menus of defaultList() ("File": New Track, Export > As Text,
 * Delete Track; "Edit": Résumé, Undo Change), a line edit, a table and a tree, whose
 * invokable methods count the actions they receive.
 */
class Window : public QMainWindow
{
    Q_OBJECT
public:
    Window();

    /** Shows the window, makes it active and focuses @p focus (the table by default). */
    void activate(QWidget *focus = nullptr);
    /** Total number of actions received. */
    int totalCalls() const;

    QMap<QByteArray, int> calls;
    QList<int> tags;
    QObject *lastSender = nullptr;
    /** The highlighted menu bar title when the last action arrived. */
    QAction *titleAtLastAction = nullptr;
    bool allowDelete = true;

    QLineEdit *field;
    QTableView *table;
    QTreeView *tree;
    QStandardItemModel *rows;

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
    Q_INVOKABLE bool validateMenuItem(QAction *item);

private:
    void record(const QByteArray &action, QObject *sender);
};

} // namespace ShortcutTestHost
