#include "ShortcutTestHost.h"

#include "QKTestEnvironment.h"

#include <QKApplicationLog.h>
#include <QKKeyboardShortcuts.h>
#include <QKMenus.h>
#include <QKPropertyList.h>

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QStandardItemModel>
#include <QTableView>
#include <QTreeView>
#include <QVBoxLayout>

namespace ShortcutTestHost {

namespace {

std::unique_ptr<QKBundle> s_bundle;
int s_bundleCount = 0;

QString newBundleFolder()
{
    const QString folder = QDir(QKTestEnvironment::homePath())
                               .filePath(QStringLiteral("bundle%1").arg(++s_bundleCount));
    QDir().mkpath(folder);
    return folder;
}

void useBundle(const QString &folder)
{
    s_bundle = std::make_unique<QKBundle>(QStringList{folder});
    QKKeyboardShortcuts::sharedInstance()->setBundle(s_bundle.get());
}

} // namespace

QVariantMap shortcutState(const QString &name, const QByteArray &action, char16_t character,
                          quint32 modifiers, bool enabled, bool prohibitRepeats, int tag)
{
    return {{QStringLiteral("name"), name},
            {QStringLiteral("action"), QString::fromLatin1(action)},
            {QStringLiteral("tag"), tag},
            {QStringLiteral("prohibitRepeats"), prohibitRepeats},
            {QStringLiteral("enabled"), enabled},
            {QStringLiteral("character"), int(character)},
            {QStringLiteral("modifiers"), qint64(modifiers)}};
}

QVariantList defaultList()
{
    const QVariantMap file{
        {QStringLiteral("name"), QStringLiteral("File")},
        {QStringLiteral("isMenu"), true},
        {QStringLiteral("shortcuts"),
         QVariantList{
             shortcutState(QStringLiteral("New Track"), "newTrack:", u't', Command),
             shortcutState(QStringLiteral("Export>As Text"), "exportText:", u'e', Command | Shift,
                           true, false, 7),
             shortcutState(QStringLiteral("Delete Track"), "deleteTrack:", 0x7F, Command)}}};
    const QVariantMap edit{
        {QStringLiteral("name"), QStringLiteral("Edit")},
        {QStringLiteral("isMenu"), true},
        {QStringLiteral("shortcuts"),
         QVariantList{shortcutState(QStringLiteral("Résumé"), "showResume:", u'r', Command),
                      shortcutState(QStringLiteral("Undo Change"), "undoChange:", u'z', Command)}}};
    const QVariantMap nudge{
        {QStringLiteral("name"), QStringLiteral("Nudge")},
        {QStringLiteral("isMenu"), false},
        {QStringLiteral("shortcuts"),
         QVariantList{
             shortcutState(QStringLiteral("Nudge Left"), "nudgeLeft:", 0xF702, 0),
             shortcutState(QStringLiteral("Nudge Right"), "nudgeRight:", 0xF703, 0, true, true, 5),
             shortcutState(QStringLiteral("Unbound"), "unbound:", 0, 0),
             shortcutState(QStringLiteral("Play"), "play:", u' ', 0)}}};
    return {file, edit, nudge};
}

void installDefaultList(const QVariantList &list)
{
    const QString folder = newBundleFolder();
    QKPropertyList::writeFile(list, QDir(folder).filePath(QStringLiteral("shortcuts.xml")));
    useBundle(folder);
}

void installRawResource(const QByteArray &contents)
{
    const QString folder = newBundleFolder();
    QFile file(QDir(folder).filePath(QStringLiteral("shortcuts.xml")));
    if (file.open(QIODevice::WriteOnly))
        file.write(contents);
    useBundle(folder);
}

void installEmptyBundle()
{
    useBundle(newBundleFolder());
}

QString logText()
{
    QFile file(QKApplicationLog::sharedLog()->logFilePath());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

Window::Window()
    : field(new QLineEdit), table(new QTableView), tree(new QTreeView),
      rows(new QStandardItemModel(4, 2, this))
{
    setWindowTitle(QStringLiteral("Shortcut Test Host"));
    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    QKMenus::addItemWithTitle(file, QStringLiteral("New Track"), "newTrack:");
    QMenu *exportMenu = file->addMenu(QStringLiteral("Export"));
    QKMenus::addItemWithTitle(exportMenu, QStringLiteral("As Text"), "exportText:");
    QKMenus::addItemWithTitle(file, QStringLiteral("Delete Track"), "deleteTrack:");
    QMenu *edit = menuBar()->addMenu(QStringLiteral("&Edit"));
    QKMenus::addItemWithTitle(edit, QStringLiteral("Résumé"), "showResume:");
    QKMenus::addItemWithTitle(edit, QStringLiteral("Undo Change"), "undoChange:");

    for (int row = 0; row < rows->rowCount(); ++row) {
        rows->setItem(row, 0, new QStandardItem(QStringLiteral("Track %1").arg(row + 1)));
        rows->setItem(row, 1, new QStandardItem(QStringLiteral("Sine")));
        rows->item(row, 0)->appendRow(new QStandardItem(QStringLiteral("Region")));
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

Window::~Window() = default;

void Window::activate(QWidget *focus)
{
    show();
    QApplication::setActiveWindow(this);
    (focus ? focus : table)->setFocus();
    QCoreApplication::processEvents();
}

void Window::record(const QByteArray &action, QObject *sender)
{
    ++calls[action];
    lastSender = sender;
    titleAtLastAction = menuBar()->activeAction();
}

void Window::newTrack(QObject *sender)
{
    record("newTrack:", sender);
}

void Window::exportText(QObject *sender)
{
    record("exportText:", sender);
}

void Window::deleteTrack(QObject *sender)
{
    record("deleteTrack:", sender);
}

void Window::showResume(QObject *sender)
{
    record("showResume:", sender);
}

void Window::undoChange(QObject *sender)
{
    record("undoChange:", sender);
}

void Window::nudgeLeft(QObject *sender)
{
    record("nudgeLeft:", sender);
}

void Window::nudgeRight(int tag)
{
    record("nudgeRight:", nullptr);
    tags << tag;
}

void Window::play(QObject *sender)
{
    record("play:", sender);
}

bool Window::validateMenuItem(QAction *item)
{
    return item->property(QKMenus::ActionProperty).toByteArray() != "deleteTrack:" || allowDelete;
}

int Window::totalCalls() const
{
    int total = 0;
    for (int count : calls)
        total += count;
    return total;
}

} // namespace ShortcutTestHost
