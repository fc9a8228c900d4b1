#include "QKKeyboardShortcutsEditor.h"

#include "QKKeyboardShortcuts.h"
#include "QKKeyboardShortcutsExtensions.h"
#include "QKPanelFrame.h"
#include "QKQuitWatcher.h"
#include "QKShortcut.h"
#include "QKShortcutGroup.h"
#include "QKShortcutKey.h"
#include "QKShortcutsModel.h"
#include "ui_QKKeyboardShortcuts.h"

#include <QKEvents.h>
#include <QKUserDefaults.h>

#include <QGuiApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QPointer>
#include <QSet>

namespace {

// Case- and accent-blind form of a text: decomposed, marks dropped, case folded.
QString folded(const QString &text)
{
    const QString decomposed = text.normalized(QString::NormalizationForm_D);
    QString result;
    result.reserve(decomposed.size());
    for (const QChar character : decomposed) {
        if (!character.isMark())
            result += character;
    }
    return result.toCaseFolded();
}

// Sees the application's quit event before Qt closes every window for it.
const QRectF FallbackFrame(613, 97, 375, 259);
constexpr qreal MinimumWidth = 375;

} // namespace

struct QKKeyboardShortcutsEditor::Private
{
    QKKeyboardShortcuts *owner = nullptr;
    Ui::QKKeyboardShortcuts ui;
    std::unique_ptr<QWidget> panel;
    QWidget *sheet = nullptr;
    QKShortcutsModel *model = nullptr;
    QPointer<QKShortcut> editingShortcut;
    QKShortcutKey editingKey;
    // Qt closes every window when the application quits; that close is not the user's.
    QKQuitWatcher *quitWatcher = nullptr;
};

QKKeyboardShortcutsEditor::QKKeyboardShortcutsEditor(QKKeyboardShortcuts *owner)
    : QObject(owner), d(std::make_unique<Private>())
{
    d->owner = owner;
    d->panel = std::make_unique<QWidget>(nullptr, Qt::Tool);
    d->ui.setupUi(d->panel.get());
    d->model = new QKShortcutsModel(this);

    // The sheet is laid out inside the panel's form; it becomes a window of its own, modal
    // to the panel, floating like it so its keys pass the registry's filter.
    d->sheet = d->ui.setShortcutPanel;
    d->ui.panelLayout->removeWidget(d->sheet);
    d->sheet->setParent(d->panel.get(), Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint);
    d->sheet->setWindowModality(Qt::WindowModal);
    d->sheet->hide();
    d->sheet->adjustSize();
}

QKKeyboardShortcutsEditor::~QKKeyboardShortcutsEditor()
{
    // The panel goes with the private part; it must not call back into a half-gone editor.
    d->sheet->removeEventFilter(this);
    d->panel->removeEventFilter(this);
}

void QKKeyboardShortcutsEditor::awakeFromNib()
{
    QTreeView *table = d->ui.shortcutsTable;
    table->setModel(d->model);
    table->setTreePosition(QKShortcutsModel::NameColumn);
    table->header()->setStretchLastSection(false);
    table->header()->setSectionResizeMode(QKShortcutsModel::EnabledColumn,
                                          QHeaderView::ResizeToContents);
    table->header()->setSectionResizeMode(QKShortcutsModel::NameColumn, QHeaderView::Stretch);
    table->header()->setSectionResizeMode(QKShortcutsModel::ShortcutColumn,
                                          QHeaderView::ResizeToContents);
    connect(table, &QTreeView::doubleClicked, this, &QKKeyboardShortcutsEditor::editShortcut);
    connect(d->ui.searchText, &QLineEdit::textEdited, this,
            &QKKeyboardShortcutsEditor::searchChanged);
    connect(d->ui.okButton, &QPushButton::clicked, this,
            [this] { confirmSetShortcut(d->ui.okButton); });
    connect(d->ui.cancelButton, &QPushButton::clicked, this,
            [this] { confirmSetShortcut(d->ui.cancelButton); });
    connect(d->ui.clearButton, &QPushButton::clicked, this,
            [this] { clearShortcut(d->ui.clearButton); });
    connect(d->ui.restoreDefaultsButton, &QPushButton::clicked, d->owner,
            [this] { d->owner->loadDefaultShortcuts(d->ui.restoreDefaultsButton); });
    connect(d->ui.exportButton, &QPushButton::clicked, d->owner,
            [this] { d->owner->saveShortcuts(d->ui.exportButton); });
    connect(d->ui.importButton, &QPushButton::clicked, d->owner,
            [this] { d->owner->loadShortcuts(d->ui.importButton); });

    d->owner->loadShortcutsFromPreferencesWithChanges(true);

    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    QRectF frame = NSRectFromString(defaults->stringForKey(QKKeyboardShortcuts::FrameKey));
    if (frame == QRectF())
        frame = FallbackFrame;
    frame.setWidth(qMax(frame.width(), MinimumWidth));
    d->panel->setGeometry(QKPanelFrame::toScreenGeometry(frame));
    d->panel->installEventFilter(this);
    d->sheet->installEventFilter(this);
    d->quitWatcher = new QKQuitWatcher(this);
    if (defaults->boolForKey(QKKeyboardShortcuts::OpenKey))
        _openPanel();
}

QWidget *QKKeyboardShortcutsEditor::panel() const
{
    return d->panel.get();
}

QWidget *QKKeyboardShortcutsEditor::setShortcutPanel() const
{
    return d->sheet;
}

QLineEdit *QKKeyboardShortcutsEditor::searchText() const
{
    return d->ui.searchText;
}

QTreeView *QKKeyboardShortcutsEditor::shortcutsTable() const
{
    return d->ui.shortcutsTable;
}

QKShortcutsModel *QKKeyboardShortcutsEditor::model() const
{
    return d->model;
}

QLabel *QKKeyboardShortcutsEditor::setShortcutIntroText() const
{
    return d->ui.setShortcutIntroText;
}

QLabel *QKKeyboardShortcutsEditor::shortcutText() const
{
    return d->ui.shortcutText;
}

QLabel *QKKeyboardShortcutsEditor::setShortcutOutroText() const
{
    return d->ui.setShortcutOutroText;
}

QPushButton *QKKeyboardShortcutsEditor::okButton() const
{
    return d->ui.okButton;
}

QPushButton *QKKeyboardShortcutsEditor::clearButton() const
{
    return d->ui.clearButton;
}

QPushButton *QKKeyboardShortcutsEditor::cancelButton() const
{
    return d->ui.cancelButton;
}

bool QKKeyboardShortcutsEditor::isSettingShortcut() const
{
    return d->sheet->isVisible();
}

QKShortcut *QKKeyboardShortcutsEditor::editingShortcut() const
{
    return d->editingShortcut;
}

QKShortcutKey QKKeyboardShortcutsEditor::editingKey() const
{
    return d->editingKey;
}

void QKKeyboardShortcutsEditor::searchChanged()
{
    reloadDisplay();
    if (d->ui.searchText->text().isEmpty())
        d->ui.shortcutsTable->collapseAll();
    else
        d->ui.shortcutsTable->expandAll();
}

void QKKeyboardShortcutsEditor::reloadDisplay()
{
    // Rows are rebuilt, so expanded groups are remembered by name across the reload.
    QTreeView *table = d->ui.shortcutsTable;
    QSet<QString> expanded;
    for (int row = 0; row < d->model->rowCount(); ++row) {
        const QModelIndex index = d->model->index(row, 0);
        if (table->isExpanded(index))
            expanded.insert(d->model->groupForIndex(index)->name());
    }

    const QString search = folded(d->ui.searchText->text());
    const QList<QKShortcutGroup *> groups = d->owner->groups();
    if (search.isEmpty()) {
        d->model->setDisplayResults(groups);
    } else {
        std::vector<std::unique_ptr<QKShortcutGroup>> results;
        for (const QKShortcutGroup *group : groups) {
            QList<QKShortcutGroup::ShortcutPointer> matches;
            const QList<QKShortcutGroup::ShortcutPointer> shortcuts = group->sharedShortcuts();
            for (const auto &shortcut : shortcuts) {
                if (folded(shortcut->name()).contains(search))
                    matches << shortcut;
            }
            if (matches.isEmpty())
                continue;
            auto result = std::make_unique<QKShortcutGroup>();
            result->setName(group->name());
            result->setIsMenu(group->isMenu());
            result->setShortcuts(matches);
            results.push_back(std::move(result));
        }
        d->model->setDisplayResults({}, std::move(results));
    }

    for (int row = 0; row < d->model->rowCount(); ++row) {
        const QModelIndex index = d->model->index(row, 0);
        if (expanded.contains(d->model->groupForIndex(index)->name()))
            table->expand(index);
    }
}

void QKKeyboardShortcutsEditor::clearSearch()
{
    d->ui.searchText->clear();
}

void QKKeyboardShortcutsEditor::forgetRows()
{
    d->model->clear();
}

void QKKeyboardShortcutsEditor::editShortcut(const QModelIndex &row)
{
    QKShortcut *shortcut = d->model->shortcutForIndex(row);
    if (!shortcut)
        return;
    d->editingShortcut = shortcut;
    d->ui.setShortcutIntroText->setText(
        tr("Enter the key combination you would like to use as a shortcut for \"%1\"...")
            .arg(shortcut->name()));
    d->ui.setShortcutOutroText->clear();
    d->editingKey = shortcut->key()->copy();
    d->ui.shortcutText->setText(d->editingKey.displayString());
    d->ui.clearButton->setEnabled(!d->editingKey.isClear());
    showSheet();
}

void QKKeyboardShortcutsEditor::showSheet()
{
    // Like a sheet: centred at the top of the panel.
    const QRect panel = d->panel->geometry();
    const QSize size = d->sheet->size();
    d->sheet->move(panel.x() + (panel.width() - size.width()) / 2, panel.y());
    d->sheet->show();
    d->sheet->raise();
    d->sheet->activateWindow();
}

void QKKeyboardShortcutsEditor::doSetShortcut(QEvent *event)
{
    const bool keyDown = QKKeyboardShortcutsExtensions::isKeyDown(event);
    const bool flagsChanged = QKKeyboardShortcutsExtensions::isFlagsChanged(event);
    if ((!keyDown && !flagsChanged) || !d->editingShortcut)
        return;
    const auto *keyEvent = static_cast<const QKeyEvent *>(event);
    if (keyDown) {
        const QKShortcutKey typed = QKShortcutKey::shortcutKeyForEvent(keyEvent);
        // A key without a character cannot be bound; the sheet keeps what it shows.
        if (typed.isClear())
            return;
        d->editingKey = typed;
    }

    QKShortcut *holder = nullptr;
    if (!d->editingKey.isEqualToShortcutKey(*d->editingShortcut->key()))
        holder = d->owner->shortcutWithKey(d->editingKey);

    const bool optionDown =
        QKEvents::isOptionKeyDown(QKKeyboardShortcutsExtensions::modifierFlags(keyEvent));
    if (flagsChanged) {
        d->ui.clearButton->setText(optionDown ? tr("Clear Other") : tr("Clear"));
    } else {
        d->ui.shortcutText->setText(d->editingKey.displayString());
        if (d->editingKey.isReserved()) {
            d->ui.setShortcutOutroText->setText(tr("Sorry, that key combination is reserved."));
            d->ui.okButton->setEnabled(false);
        } else if (holder) {
            d->ui.setShortcutOutroText->setText(
                tr("Sorry, that key combination is in use by '%1'.").arg(holder->name()));
            d->ui.okButton->setEnabled(false);
        } else {
            d->ui.setShortcutOutroText->clear();
            d->ui.okButton->setEnabled(true);
        }
    }
    d->ui.clearButton->setEnabled(optionDown ? holder != nullptr : !d->editingKey.isClear());
}

void QKKeyboardShortcutsEditor::clearShortcut(QObject *)
{
    const quint32 flags = QKEvents::modifierFlags(QGuiApplication::keyboardModifiers());
    if (QKEvents::isOptionKeyDown(flags)) {
        // The typed key stays, so that it can be confirmed now that it is free.
        if (QKShortcut *holder = d->owner->shortcutWithKey(d->editingKey))
            holder->clearKey();
        d->owner->saveToDefaults();
        reloadDisplay();
    } else {
        d->editingKey.clear();
        d->ui.shortcutText->clear();
    }
    d->ui.setShortcutOutroText->clear();
    d->ui.okButton->setEnabled(true);
    d->ui.clearButton->setEnabled(false);
}

void QKKeyboardShortcutsEditor::confirmSetShortcut(QObject *sender)
{
    if (sender == d->ui.okButton && d->editingShortcut) {
        d->editingShortcut->setKey(d->editingKey);
        d->owner->saveToDefaults();
        reloadDisplay();
    }
    setShortcutPanelDidEnd(0);
}

void QKKeyboardShortcutsEditor::setShortcutPanelDidEnd(int)
{
    d->sheet->hide();
    d->editingShortcut = nullptr;
    d->editingKey = QKShortcutKey();
    if (d->panel->isVisible())
        d->panel->activateWindow();
}

void QKKeyboardShortcutsEditor::_openPanel()
{
    QKUserDefaults::standardUserDefaults()->setBool(true, QKKeyboardShortcuts::OpenKey);
    d->panel->show();
    d->panel->raise();
    d->panel->activateWindow();
}

void QKKeyboardShortcutsEditor::_togglePanel()
{
    if (d->panel->isVisible() && d->panel->isActiveWindow())
        d->panel->close();
    else
        _openPanel();
}

void QKKeyboardShortcutsEditor::windowDidMove()
{
    QKUserDefaults::standardUserDefaults()->setObject(
        NSStringFromRect(QKPanelFrame::frameOf(d->panel.get())), QKKeyboardShortcuts::FrameKey);
}

void QKKeyboardShortcutsEditor::windowWillClose()
{
    QKUserDefaults::standardUserDefaults()->setBool(false, QKKeyboardShortcuts::OpenKey);
}

bool QKKeyboardShortcutsEditor::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == d->panel.get()) {
        // The frame's origin is its bottom-left corner, so a resize moves it as well.
        if (event->type() == QEvent::Move || event->type() == QEvent::Resize)
            windowDidMove();
        else if (event->type() == QEvent::Close && !d->quitWatcher->isQuitting())
            windowWillClose();
    } else if (watched == d->sheet && event->type() == QEvent::Close) {
        // Closing the sheet's window is a Cancel.
        confirmSetShortcut(d->sheet);
    }
    return QObject::eventFilter(watched, event);
}
