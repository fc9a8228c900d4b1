#pragma once

#include <QKBundle.h>

#include <QMainWindow>
#include <QMap>
#include <QVariantList>

#include <memory>

class QLineEdit;
class QStandardItemModel;
class QTableView;
class QTreeView;

/** Test fixtures shared by the shortcut tests: a default shortcut list, a host window with
 *  the matching menus and responders, and a bundle over a folder in the test's HOME. */
namespace ShortcutTestHost {

constexpr quint32 Shift = 0x20000;
constexpr quint32 Control = 0x40000;
constexpr quint32 Option = 0x80000;
constexpr quint32 Command = 0x100000;

QVariantMap shortcutState(const QString &name, const QByteArray &action, char16_t character,
                          quint32 modifiers, bool enabled = true, bool prohibitRepeats = false,
                          int tag = 0);

/**
 * The default list used by most tests:
 * - "File" (menu): "New Track" newTrack: ⌘T, "Export>As Text" exportText: ⇧⌘E,
 *   "Delete Track" deleteTrack: ⌘⌫;
 * - "Edit" (menu): "Résumé" showResume: ⌘R, "Undo Change" undoChange: ⌘Z;
 * - "Nudge" (no menu): "Nudge Left" nudgeLeft: ←, "Nudge Right" nudgeRight: → (no repeats),
 *   "Unbound" unbound: no key, "Play" play: space.
 */
QVariantList defaultList();

/** Writes @p list as "shortcuts.xml" into a new folder under HOME and points the registry's
 *  bundle at it. */
void installDefaultList(const QVariantList &list = defaultList());
/** Writes raw @p contents as the registry's "shortcuts.xml" (for malformed resources). */
void installRawResource(const QByteArray &contents);
/** Points the registry at a bundle folder without "shortcuts.xml". */
void installEmptyBundle();

/** The text the debug log holds so far; empty when nothing was logged. */
QString logText();

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
    ~Window() override;

    /** Shows the window, makes it active and focuses @p focus (the table by default). */
    void activate(QWidget *focus = nullptr);

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

    Q_INVOKABLE void newTrack(QObject *sender);
    Q_INVOKABLE void exportText(QObject *sender);
    Q_INVOKABLE void deleteTrack(QObject *sender);
    Q_INVOKABLE void showResume(QObject *sender);
    Q_INVOKABLE void undoChange(QObject *sender);
    Q_INVOKABLE void nudgeLeft(QObject *sender);
    Q_INVOKABLE void nudgeRight(int tag);
    Q_INVOKABLE void play(QObject *sender);
    Q_INVOKABLE bool validateMenuItem(QAction *item);

    /** Total number of actions received. */
    int totalCalls() const;

private:
    void record(const QByteArray &action, QObject *sender);
};

} // namespace ShortcutTestHost
