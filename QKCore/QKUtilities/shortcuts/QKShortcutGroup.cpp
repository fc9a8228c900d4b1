#include "QKShortcutGroup.h"

#include "QKShortcut.h"

QKShortcutGroup::QKShortcutGroup() = default;

QKShortcutGroup::~QKShortcutGroup()
{
    QKShortcut::keysChanged();
}

std::unique_ptr<QKShortcutGroup> QKShortcutGroup::shortcutGroupWithState(const QVariantMap &state)
{
    auto group = std::make_unique<QKShortcutGroup>();
    group->setState(state);
    return group;
}

QVariantMap QKShortcutGroup::state() const
{
    QVariantList shortcuts;
    shortcuts.reserve(m_shortcuts.size());
    for (const ShortcutPointer &shortcut : m_shortcuts)
        shortcuts << shortcut->state();
    return {{QStringLiteral("name"), m_name},
            {QStringLiteral("isMenu"), m_isMenu},
            {QStringLiteral("shortcuts"), shortcuts}};
}

void QKShortcutGroup::setState(const QVariantMap &state)
{
    if (const auto name = state.constFind(QStringLiteral("name")); name != state.constEnd())
        m_name = name->toString();
    if (const auto isMenu = state.constFind(QStringLiteral("isMenu")); isMenu != state.constEnd())
        m_isMenu = isMenu->toBool();
    const auto shortcuts = state.constFind(QStringLiteral("shortcuts"));
    if (shortcuts == state.constEnd())
        return;
    m_shortcuts.clear();
    const QVariantList list = shortcuts->toList();
    for (const QVariant &entry : list) {
        ShortcutPointer shortcut = QKShortcut::shortcutWithState(entry.toMap());
        shortcut->setGroup(this);
        m_shortcuts << shortcut;
    }
    QKShortcut::keysChanged();
}

std::unique_ptr<QKShortcutGroup> QKShortcutGroup::copy() const
{
    return shortcutGroupWithState(state());
}

QKShortcut *QKShortcutGroup::shortcutWithAction(const QByteArray &action) const
{
    for (const ShortcutPointer &shortcut : m_shortcuts) {
        if (shortcut->action() == action)
            return shortcut.get();
    }
    return nullptr;
}

QKShortcut *QKShortcutGroup::shortcutWithKey(const QKShortcutKey &key) const
{
    for (const ShortcutPointer &shortcut : m_shortcuts) {
        if (shortcut->key()->isEqualToShortcutKey(key))
            return shortcut.get();
    }
    return nullptr;
}

Qt::CheckState QKShortcutGroup::enabled() const
{
    bool anyOn = false;
    bool anyOff = false;
    for (const ShortcutPointer &shortcut : m_shortcuts)
        (shortcut->enabled() ? anyOn : anyOff) = true;
    if (anyOn && !anyOff)
        return Qt::Checked;
    if (anyOff && !anyOn)
        return Qt::Unchecked;
    return Qt::PartiallyChecked;
}

int QKShortcutGroup::enabledState() const
{
    switch (enabled()) {
    case Qt::Checked:
        return 1;
    case Qt::Unchecked:
        return 0;
    default:
        return -1;
    }
}

void QKShortcutGroup::setEnabled(bool enabled)
{
    for (const ShortcutPointer &shortcut : m_shortcuts)
        shortcut->setEnabled(enabled);
}

void QKShortcutGroup::refreshMenu()
{
    if (!m_isMenu)
        return;
    for (const ShortcutPointer &shortcut : m_shortcuts)
        shortcut->refreshMenuItem();
}

QList<QKShortcut *> QKShortcutGroup::shortcuts() const
{
    QList<QKShortcut *> list;
    list.reserve(m_shortcuts.size());
    for (const ShortcutPointer &shortcut : m_shortcuts)
        list << shortcut.get();
    return list;
}

QKShortcut *QKShortcutGroup::shortcutAt(qsizetype index) const
{
    return index >= 0 && index < m_shortcuts.size() ? m_shortcuts.at(index).get() : nullptr;
}

void QKShortcutGroup::setShortcuts(const QList<ShortcutPointer> &shortcuts)
{
    m_shortcuts = shortcuts;
    QKShortcut::keysChanged();
}
