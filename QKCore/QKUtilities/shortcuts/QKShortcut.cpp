#include "QKShortcut.h"

#include "QKMainMenu.h"
#include "QKShortcutGroup.h"

#include <QKMenus.h>
#include <QKResponderChain.h>

#include <QAction>
#include <QKeyEvent>
#include <QMenu>

namespace {
quint64 s_keyRevision = 0;
}

QKShortcut::QKShortcut()
{
    m_key.m_owner = this;
}

QKShortcut::~QKShortcut()
{
    keysChanged();
}

std::shared_ptr<QKShortcut> QKShortcut::shortcutWithState(const QVariantMap &state)
{
    auto shortcut = std::make_shared<QKShortcut>();
    shortcut->setState(state);
    return shortcut;
}

QVariantMap QKShortcut::state() const
{
    QVariantMap state = m_key.state();
    state.insert(QStringLiteral("name"), m_name);
    state.insert(QStringLiteral("action"), QString::fromLatin1(m_action));
    state.insert(QStringLiteral("tag"), qint64(m_tag));
    state.insert(QStringLiteral("prohibitRepeats"), m_prohibitRepeats);
    state.insert(QStringLiteral("enabled"), m_enabled);
    return state;
}

void QKShortcut::setState(const QVariantMap &state)
{
    if (const auto name = state.constFind(QStringLiteral("name")); name != state.constEnd())
        m_name = name->toString();
    if (const auto action = state.constFind(QStringLiteral("action")); action != state.constEnd())
        m_action = action->toString().toLatin1();
    if (const auto tag = state.constFind(QStringLiteral("tag")); tag != state.constEnd())
        m_tag = int(tag->toLongLong());
    if (const auto repeats = state.constFind(QStringLiteral("prohibitRepeats"));
        repeats != state.constEnd())
        m_prohibitRepeats = repeats->toBool();
    if (const auto enabled = state.constFind(QStringLiteral("enabled"));
        enabled != state.constEnd())
        m_enabled = enabled->toBool();
    m_key.setState(state);
}

void QKShortcut::setKey(const QKShortcutKey &key)
{
    m_key = key;
    refreshMenuItem();
}

void QKShortcut::clearKey()
{
    m_key.clear();
    refreshMenuItem();
}

void QKShortcut::setEnabled(bool enabled)
{
    m_enabled = enabled;
    refreshMenuItem();
}

void QKShortcut::refreshMenuItem()
{
    if (!m_group || !m_group->isMenu())
        return;
    QAction *item = QKMainMenu::itemForPath(m_name.split(QLatin1Char('>')));
    if (!item)
        return;
    if (m_enabled)
        setShortcutKey(item, m_key);
    else
        clearKeyEquivalent(item);
    item->setProperty(QKMenus::ActionProperty, m_action);
    item->setProperty("tag", m_tag);
}

bool QKShortcut::perform(const QKeyEvent *event)
{
    if (!m_enabled)
        return false;
    if (m_prohibitRepeats && event && event->isAutoRepeat())
        return false;
    const bool isMenu = m_group && m_group->isMenu();
    if (isMenu) {
        QObject *target = QKResponderChain::targetForAction(m_action);
        if (!target)
            return false;
        // Validation sees an untitled item without a key that carries only the action.
        QAction item;
        item.setProperty(QKMenus::ActionProperty, m_action);
        if (!QKResponderChain::validateMenuItem(target, &item))
            return false;
        if (QAction *menu = QKMainMenu::topLevelItem(m_group->name()); menu && menu->menu())
            QKMainMenu::flashTitle(menu);
    }
    QKResponderChain::sendAction(m_action, nullptr, this);
    return true;
}

quint64 QKShortcut::keyRevision()
{
    return s_keyRevision;
}

void QKShortcut::keysChanged()
{
    ++s_keyRevision;
}
