#include "ShortcutTestHost.h"

#include "QKTestEnvironment.h"

#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKKeyboardShortcuts.h>
#include <QKMenus.h>
#include <QKPropertyList.h>
#include <QKShortcut.h>
#include <QKUserDefaults.h>

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QStandardItemModel>
#include <QTableView>
#include <QTreeView>
#include <QVBoxLayout>

#include <numeric>

namespace ShortcutTestHost {

QVariantMap shortcutState(const QString &name, const QByteArray &action, char16_t character,
                          quint32 modifiers, bool enabled, bool prohibitRepeats, int tag)
{
    return {{u"name"_s, name},
            {u"action"_s, QString::fromLatin1(action)},
            {u"tag"_s, tag},
            {u"prohibitRepeats"_s, prohibitRepeats},
            {u"enabled"_s, enabled},
            {u"character"_s, int(character)},
            {u"modifiers"_s, qint64(modifiers)}};
}

QByteArray defaultResource()
{
    return QKTestEnvironment::readAll(
        QKTestEnvironment::sourcePath(u"shortcuts/data/shortcuts.xml"_s));
}

QVariantList defaultList()
{
    return QKPropertyList::fromData(defaultResource()).toList();
}

void installBundle(const QByteArray &contents)
{
    static int count = 0;
    static std::unique_ptr<QKBundle> bundle;
    const QString folder = QKTestEnvironment::homeFile(u"bundle%1"_s.arg(++count));
    QDir().mkpath(folder);
    if (!contents.isNull())
        QKTestEnvironment::writeAll(folder + u"/shortcuts.xml"_s, contents);
    bundle = std::make_unique<QKBundle>(QStringList{folder});
    QKKeyboardShortcuts::sharedInstance()->setBundle(bundle.get());
}

QString logText()
{
    return QString::fromUtf8(
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()));
}

QKKeyboardShortcuts *registry()
{
    return QKKeyboardShortcuts::sharedInstance();
}

QKUserDefaults *defaults()
{
    return QKUserDefaults::standardUserDefaults();
}

QKShortcutKey keyOf(const QByteArray &action)
{
    const QKShortcut *shortcut = registry()->shortcutWithAction(action);
    return shortcut ? *shortcut->key() : QKShortcutKey(0xFFFF, 0xFFFF);
}

Window::Window()
    : field(new QLineEdit), table(new QTableView), tree(new QTreeView),
      rows(new QStandardItemModel(4, 2, this))
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
    layout->addWidget(field);
    layout->addWidget(table);
    layout->addWidget(tree);
    setCentralWidget(central);
    resize(600, 500);
}

void Window::activate(QWidget *focus)
{
    show();
    QApplication::setActiveWindow(this);
    (focus ? focus : table)->setFocus();
    QCoreApplication::processEvents();
}

int Window::totalCalls() const
{
    return std::accumulate(calls.cbegin(), calls.cend(), 0);
}

bool Window::validateMenuItem(QAction *item)
{
    return item->property(QKMenus::ActionProperty).toByteArray() != "deleteTrack:" || allowDelete;
}

void Window::record(const QByteArray &action, QObject *sender)
{
    ++calls[action];
    lastSender = sender;
    titleAtLastAction = menuBar()->activeAction();
}

} // namespace ShortcutTestHost
