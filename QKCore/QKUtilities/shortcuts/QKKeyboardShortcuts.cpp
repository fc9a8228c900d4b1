#include "QKKeyboardShortcuts.h"

#include "QKKeyboardShortcutsEditor.h"
#include "QKKeyboardShortcutsExtensions.h"
#include "QKPanelFrame.h"
#include "QKShortcut.h"
#include "QKShortcutGroup.h"
#include "QKShortcutKey.h"

#include <QKAlert.h>
#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKBundle.h>
#include <QKEvents.h>
#include <QKPropertyList.h>
#include <QKUserDefaults.h>

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QFileDialog>
#include <QHash>
#include <QKeyEvent>
#include <QKeySequenceEdit>
#include <QLineEdit>
#include <QListView>
#include <QPlainTextEdit>
#include <QTableView>
#include <QTextEdit>
#include <QTreeView>

#include <vector>

const QString QKKeyboardShortcuts::CustomKey = QStringLiteral("Keyboard Shortcuts Custom");
const QString QKKeyboardShortcuts::OpenKey = QStringLiteral("Keyboard Shortcuts Open");
const QString QKKeyboardShortcuts::FrameKey = QStringLiteral("Keyboard Shortcuts Frame");

namespace {

QKKeyboardShortcuts *s_sharedInstance = nullptr;

const QString LogDomain = QStringLiteral("QKKeyboardShortcuts");

quint64 indexKey(const QKShortcutKey &key)
{
    return (quint64(key.modifiers()) << 16) | key.character();
}

// A dialog that is not a floating (Qt::Tool) panel keeps its keys to itself.
bool isNonFloatingPanel(const QWidget *window)
{
    const Qt::WindowType type = window->windowType();
    if (type == Qt::Tool)
        return false;
    return type == Qt::Dialog || type == Qt::Sheet || qobject_cast<const QDialog *>(window);
}

bool isItemView(const QWidget *widget)
{
    return qobject_cast<const QAbstractItemView *>(widget);
}

// Whatever edits text: the text widgets of Qt and any other widget that takes input-method
// text. Item views take it for keyboard search only and are not text views.
bool isTextView(const QWidget *widget)
{
    if (!widget || isItemView(widget))
        return false;
    if (qobject_cast<const QLineEdit *>(widget) || qobject_cast<const QTextEdit *>(widget) ||
        qobject_cast<const QPlainTextEdit *>(widget) ||
        qobject_cast<const QAbstractSpinBox *>(widget) ||
        qobject_cast<const QKeySequenceEdit *>(widget))
        return true;
    if (const auto *combo = qobject_cast<const QComboBox *>(widget))
        return combo->isEditable();
    return widget->testAttribute(Qt::WA_InputMethodEnabled);
}

bool isOutlineView(const QWidget *widget)
{
    return qobject_cast<const QTreeView *>(widget);
}

bool isTableView(const QWidget *widget)
{
    return qobject_cast<const QTableView *>(widget) || qobject_cast<const QListView *>(widget);
}

void logWarning(const QObject *sender, const QString &message,
                std::source_location location = std::source_location::current())
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(LogDomain, sender, location),
                                           message);
}

} // namespace

struct QKKeyboardShortcuts::Private
{
    std::vector<std::unique_ptr<QKShortcutGroup>> groups;
    QKBundle *bundle = nullptr;
    QKKeyboardShortcutsEditor *editor = nullptr;

    // The first shortcut of every key, by group then list order; rebuilt when any key or
    // list changed since, so a lookup costs the same however many shortcuts there are.
    mutable QHash<quint64, QKShortcut *> keyIndex;
    mutable quint64 keyIndexRevision = 0;
    mutable bool keyIndexValid = false;
};

QKKeyboardShortcuts::QKKeyboardShortcuts() : d(std::make_unique<Private>())
{
    initialize();
    QKKeyboardShortcutsExtensions::install();
}

QKKeyboardShortcuts::~QKKeyboardShortcuts()
{
    if (s_sharedInstance == this)
        s_sharedInstance = nullptr;
}

QKKeyboardShortcuts *QKKeyboardShortcuts::sharedInstance()
{
    if (!s_sharedInstance) {
        // Lives as long as the process: the application's event hook refers to it, and its
        // panel must not outlive the application object, so the panel goes at quit.
        s_sharedInstance = new QKKeyboardShortcuts;
    }
    return s_sharedInstance;
}

void QKKeyboardShortcuts::initialize()
{
    const QRectF visible = QKPanelFrame::mainScreenVisibleFrame();
    const QRectF frame(visible.x() + visible.width() - 375 - 4, visible.y() + 32, 375, 259);
    QKUserDefaults::standardUserDefaults()->registerDefaults(
        {{OpenKey, true}, {FrameKey, NSStringFromRect(frame)}});
}

void QKKeyboardShortcuts::loadShortcuts()
{
    sharedInstance()->_loadEditor();
}

void QKKeyboardShortcuts::_loadEditor()
{
    if (d->editor)
        return;
    d->editor = new QKKeyboardShortcutsEditor(this);
    if (QCoreApplication *app = QCoreApplication::instance()) {
        connect(app, &QCoreApplication::aboutToQuit, this, [this] {
            delete d->editor;
            d->editor = nullptr;
        });
    }
    d->editor->awakeFromNib();
}

void QKKeyboardShortcuts::openPanel()
{
    sharedInstance()->_openPanel();
}

void QKKeyboardShortcuts::togglePanel()
{
    sharedInstance()->_togglePanel();
}

void QKKeyboardShortcuts::_openPanel()
{
    if (d->editor)
        d->editor->_openPanel();
}

void QKKeyboardShortcuts::_togglePanel()
{
    if (d->editor)
        d->editor->_togglePanel();
}

QKKeyboardShortcutsEditor *QKKeyboardShortcuts::editor() const
{
    return d->editor;
}

bool QKKeyboardShortcuts::performShortcut(QEvent *event)
{
    const bool keyDown = QKKeyboardShortcutsExtensions::isKeyDown(event);
    if (!keyDown && !QKKeyboardShortcutsExtensions::isFlagsChanged(event))
        return false;
    // An open menu handles its own keys.
    if (QApplication::activePopupWidget())
        return false;
    if (QWidget *keyWindow = QApplication::activeWindow()) {
        if (qobject_cast<QFileDialog *>(keyWindow) || isNonFloatingPanel(keyWindow))
            return false;
        const QWidget *responder = keyWindow->focusWidget();
        if (!responder)
            responder = keyWindow;
        if (isTextView(responder))
            return false;
        const auto *keyEvent = static_cast<const QKeyEvent *>(event);
        if (isOutlineView(responder) && QKEvents::isArrowKeyDown(keyEvent))
            return false;
        if (isTableView(responder) && QKEvents::isVerticalArrowKeyDown(keyEvent))
            return false;
    }
    return sharedInstance()->doShortcut(event);
}

bool QKKeyboardShortcuts::doShortcut(QEvent *event)
{
    if (d->editor && d->editor->isSettingShortcut()) {
        d->editor->doSetShortcut(event);
        return true;
    }
    // Modifier changes are consumed without any action.
    if (QKKeyboardShortcutsExtensions::isFlagsChanged(event))
        return true;
    if (!QKKeyboardShortcutsExtensions::isKeyDown(event))
        return false;
    const auto *keyEvent = static_cast<const QKeyEvent *>(event);
    const QKShortcutKey key = QKShortcutKey::shortcutKeyForEvent(keyEvent);
    // A key without a character (a media or dead key) is not the key of a cleared shortcut.
    if (key.isClear())
        return false;
    QKShortcut *shortcut = shortcutWithKey(key);
    return shortcut && shortcut->perform(keyEvent);
}

QList<QKShortcutGroup *> QKKeyboardShortcuts::groups() const
{
    QList<QKShortcutGroup *> groups;
    groups.reserve(qsizetype(d->groups.size()));
    for (const auto &group : d->groups)
        groups << group.get();
    return groups;
}

QKBundle *QKKeyboardShortcuts::bundle() const
{
    return d->bundle ? d->bundle : QKBundle::mainBundle();
}

void QKKeyboardShortcuts::setBundle(QKBundle *bundle)
{
    d->bundle = bundle;
}

QVariantList QKKeyboardShortcuts::defaultShortcutList() const
{
    const QByteArray data =
        bundle()->dataForResource(QStringLiteral("shortcuts"), QStringLiteral("xml"));
    if (data.isEmpty()) {
        logWarning(this, QStringLiteral("No default shortcuts: the resource shortcuts.xml is "
                                        "missing or empty in %1")
                             .arg(bundle()->resourceRoots().join(QStringLiteral(", "))));
        return {};
    }
    QString error;
    const QVariant list = QKPropertyList::fromData(data, &error);
    if (list.typeId() != QMetaType::QVariantList) {
        logWarning(this, QStringLiteral("No default shortcuts: shortcuts.xml is not a property "
                                        "list array (%1)")
                             .arg(error.isEmpty() ? QStringLiteral("wrong root type") : error));
        return {};
    }
    return list.toList();
}

void QKKeyboardShortcuts::loadShortcutsFromPreferencesWithChanges(bool withChanges)
{
    const QVariantList defaults = defaultShortcutList();
    // The editor's rows point into the groups about to go.
    if (d->editor)
        d->editor->forgetRows();
    d->groups.clear();
    d->keyIndexValid = false;
    for (const QVariant &entry : defaults) {
        if (entry.typeId() != QMetaType::QVariantMap) {
            logWarning(this, QStringLiteral("Skipped a default shortcut group that is not a "
                                            "dictionary"));
            continue;
        }
        d->groups.push_back(QKShortcutGroup::shortcutGroupWithState(entry.toMap()));
    }
    for (const auto &group : d->groups)
        group->refreshMenu();
    if (withChanges) {
        const QByteArray data = QKUserDefaults::standardUserDefaults()->dataForKey(CustomKey);
        if (!data.isEmpty()) {
            QString error;
            const QVariant changes = QKPropertyList::fromData(data, &error);
            if (changes.typeId() == QMetaType::QVariantList)
                loadChanges(changes.toList());
            else
                logWarning(this, QStringLiteral("Ignored undecodable shortcut changes under "
                                                "\"%1\" (%2)")
                                     .arg(CustomKey, error));
        }
    }
    reloadDisplay();
}

void QKKeyboardShortcuts::loadChanges(const QVariantList &changes)
{
    for (const QVariant &entry : changes) {
        if (entry.typeId() != QMetaType::QVariantMap)
            continue;
        const std::shared_ptr<QKShortcut> change = QKShortcut::shortcutWithState(entry.toMap());
        QKShortcut *holder = shortcutWithKey(*change->key());
        // The former holder loses its key; its menu item follows with its next refresh.
        if (holder && holder->action() != change->action())
            holder->key()->clear();
        if (QKShortcut *shortcut = shortcutWithAction(change->action()))
            shortcut->setKey(*change->key());
    }
}

QVariantList QKKeyboardShortcuts::changedShortcuts() const
{
    QVariantList changes;
    const QVariantList defaults = defaultShortcutList();
    for (const QVariant &group : defaults) {
        const QVariantList shortcuts = group.toMap().value(QStringLiteral("shortcuts")).toList();
        for (const QVariant &entry : shortcuts) {
            const QVariantMap state = entry.toMap();
            QKShortcutKey defaultKey;
            defaultKey.setState(state);
            const QByteArray action = state.value(QStringLiteral("action")).toString().toLatin1();
            const QKShortcut *current = shortcutWithAction(action);
            if (current && !current->key()->isEqualToShortcutKey(defaultKey))
                changes << current->state();
        }
    }
    return changes;
}

void QKKeyboardShortcuts::saveToDefaults()
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    const QVariantList changes = changedShortcuts();
    if (changes.isEmpty()) {
        defaults->removeObjectForKey(CustomKey);
        return;
    }
    QString error;
    const QByteArray data = QKPropertyList::toData(changes, QKPropertyList::Format::Binary, &error);
    if (data.isEmpty()) {
        logWarning(this, QStringLiteral("Could not store the shortcut changes: %1").arg(error));
        return;
    }
    defaults->setObject(data, CustomKey);
}

QKShortcut *QKKeyboardShortcuts::shortcutWithAction(const QByteArray &action) const
{
    for (const auto &group : d->groups) {
        if (QKShortcut *shortcut = group->shortcutWithAction(action))
            return shortcut;
    }
    return nullptr;
}

QKShortcut *QKKeyboardShortcuts::shortcutWithKey(const QKShortcutKey &key) const
{
    if (!d->keyIndexValid || d->keyIndexRevision != QKShortcut::keyRevision())
        _rebuildKeyIndex();
    return d->keyIndex.value(indexKey(key));
}

void QKKeyboardShortcuts::_rebuildKeyIndex() const
{
    d->keyIndex.clear();
    for (const auto &group : d->groups) {
        for (qsizetype i = 0; i < group->count(); ++i) {
            QKShortcut *shortcut = group->shortcutAt(i);
            const quint64 key = indexKey(*shortcut->key());
            if (!d->keyIndex.contains(key))
                d->keyIndex.insert(key, shortcut);
        }
    }
    d->keyIndexRevision = QKShortcut::keyRevision();
    d->keyIndexValid = true;
}

void QKKeyboardShortcuts::reloadDisplay()
{
    if (d->editor)
        d->editor->reloadDisplay();
}

void QKKeyboardShortcuts::loadDefaultShortcuts(QObject *)
{
    if (d->editor)
        d->editor->clearSearch();
    loadShortcutsFromPreferencesWithChanges(false);
    QKUserDefaults::standardUserDefaults()->removeObjectForKey(CustomKey);
}

void QKKeyboardShortcuts::saveShortcuts(QObject *)
{
    QKFilePanelRequest request;
    request.title = tr("Export Shortcuts");
    request.fileTypes = {QStringLiteral("qkshortcuts")};
    request.parent = d->editor ? d->editor->panel() : nullptr;
    const QString path = QKFilePanels::runSavePanel(request);
    if (path.isEmpty())
        return;
    QString error;
    if (!QKPropertyList::writeFile(changedShortcuts(), path, QKPropertyList::Format::Xml, false,
                                   &error))
        logWarning(this,
                   QStringLiteral("Could not export the shortcuts to %1: %2").arg(path, error));
}

void QKKeyboardShortcuts::loadShortcuts(QObject *)
{
    QKFilePanelRequest request;
    request.title = tr("Import Shortcuts");
    request.fileTypes = {QStringLiteral("qkshortcuts"), QStringLiteral("lumoshortcuts")};
    request.parent = d->editor ? d->editor->panel() : nullptr;
    const QStringList paths = QKFilePanels::runOpenPanel(request);
    if (paths.isEmpty())
        return;
    QString error;
    const QVariant changes = QKPropertyList::readFile(paths.first(), &error);
    if (changes.typeId() == QMetaType::QVariantList)
        loadChanges(changes.toList());
    else
        logWarning(this, QStringLiteral("Imported no shortcuts: %1 is not a property list array "
                                        "(%2)")
                             .arg(paths.first(),
                                  error.isEmpty() ? QStringLiteral("wrong root type") : error));
    if (d->editor)
        d->editor->clearSearch();
    reloadDisplay();
    saveToDefaults();
}
