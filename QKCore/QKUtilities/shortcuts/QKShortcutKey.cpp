#include "QKShortcutKey.h"

#include "QKShortcut.h"

#include <QKEvents.h>

#include <QAction>
#include <QKeyEvent>
#include <QKeySequence>

const char *const QKKeyEquivalentProperty = "qkKeyEquivalent";
const char *const QKKeyEquivalentModifierMaskProperty = "qkKeyEquivalentModifierMask";

namespace {

constexpr quint32 DeviceIndependentMask = QKEvents::ShiftKeyMask | QKEvents::ControlKeyMask |
                                          QKEvents::AlternateKeyMask | QKEvents::CommandKeyMask;

constexpr quint32 S = QKShortcutKey::Shift;
constexpr quint32 C = QKShortcutKey::Control;
constexpr quint32 O = QKShortcutKey::Option;
constexpr quint32 M = QKShortcutKey::Command;

struct ReservedKey
{
    char16_t character;
    quint32 modifiers;
};

// Combinations the desktop, the window manager or the toolkit answer before the application
// sees them; each needs exactly these modifiers. Command+Space is handled separately.
constexpr ReservedKey ReservedKeys[] = {
    {0x09, S},       {0x09, M},         {0x09, M | S},     {0x09, C},
    {0x09, C | S},   {0x1B, 0},         {0x1B, M | O},     {u'$', M},
    {0xF704, C},     {0xF705, C},       {0xF706, C},       {0xF707, C},
    {0xF707, C | S}, {0xF708, C},       {0xF709, C},       {0xF709, C | S},
    {0xF70A, C},     {u'`', M},         {u'`', M | S},     {u'-', M},
    {u'-', M | O},   {u'.', M | O | C}, {u',', M | O | C}, {u'/', M | O},
    {u'=', M | S},   {u'=', M | O},     {u'3', M | S},     {u'3', M | S | C},
    {u'4', M | S},   {u'4', M | S | C}, {u'8', M | O},     {u'8', M | O | C},
    {u'd', M | O},   {u'q', M | S},     {u'q', M | O | S}, {u'q', M | O | S | C},
    {u'h', M},       {u'h', M | O},
};

Qt::KeyboardModifiers qtModifiers(quint32 modifiers)
{
    Qt::KeyboardModifiers qt;
    if (modifiers & QKShortcutKey::Command)
        qt |= Qt::ControlModifier;
    if (modifiers & QKShortcutKey::Control)
        qt |= Qt::MetaModifier;
    if (modifiers & QKShortcutKey::Option)
        qt |= Qt::AltModifier;
    if (modifiers & QKShortcutKey::Shift)
        qt |= Qt::ShiftModifier;
    if (modifiers & QKShortcutKey::NumericPad)
        qt |= Qt::KeypadModifier;
    return qt;
}

} // namespace

QKShortcutKey::QKShortcutKey(char16_t character, quint32 modifiers)
    : m_character(character), m_modifiers(modifiers)
{}

QKShortcutKey::QKShortcutKey(const QKShortcutKey &other)
    : m_character(other.m_character), m_modifiers(other.m_modifiers)
{}

QKShortcutKey &QKShortcutKey::operator=(const QKShortcutKey &other)
{
    m_character = other.m_character;
    m_modifiers = other.m_modifiers;
    changed();
    return *this;
}

QKShortcutKey QKShortcutKey::shortcutKeyForEvent(const QKeyEvent *event)
{
    QKShortcutKey key;
    key.setFromEvent(event);
    return key;
}

void QKShortcutKey::setFromEvent(const QKeyEvent *event)
{
    m_character = QKEvents::characterForKeyEvent(event);
    if (m_character >= u'A' && m_character <= u'Z')
        m_character += 0x20;
    m_modifiers = QKEvents::modifierFlagsForKeyEvent(event) & DeviceIndependentMask;
    changed();
}

bool QKShortcutKey::isEqualToShortcutKey(const QKShortcutKey &other) const
{
    return m_character == other.m_character && m_modifiers == other.m_modifiers;
}

void QKShortcutKey::clear()
{
    m_character = 0;
    m_modifiers = 0;
    changed();
}

void QKShortcutKey::setCharacter(char16_t character)
{
    m_character = character;
    changed();
}

void QKShortcutKey::setModifiers(quint32 modifiers)
{
    m_modifiers = modifiers;
    changed();
}

QVariantMap QKShortcutKey::state() const
{
    return {{QStringLiteral("character"), qint64(m_character)},
            {QStringLiteral("modifiers"), qint64(m_modifiers)}};
}

void QKShortcutKey::setState(const QVariantMap &state)
{
    const auto character = state.constFind(QStringLiteral("character"));
    if (character != state.constEnd())
        m_character = char16_t(character->toLongLong());
    const auto modifiers = state.constFind(QStringLiteral("modifiers"));
    if (modifiers != state.constEnd())
        m_modifiers = quint32(modifiers->toLongLong());
    changed();
}

bool QKShortcutKey::isReserved() const
{
    const quint32 modifiers = m_modifiers & DeviceIndependentMask;
    if (m_character == u' ' && (modifiers & Command))
        return true;
    for (const ReservedKey &reserved : ReservedKeys) {
        if (reserved.character == m_character && reserved.modifiers == modifiers)
            return true;
    }
    return false;
}

QString QKShortcutKey::displayString() const
{
    if (m_character == 0)
        return QString();
    int key = QKEvents::keyForCharacter(m_character);
    // Only a stored key can hold a character that no Qt key types; it reads as itself.
    if (key == 0)
        key = QChar(m_character).toUpper().unicode();
    return QKeySequence(QKeyCombination(qtModifiers(m_modifiers), Qt::Key(key)))
        .toString(QKeySequence::NativeText);
}

QKeySequence QKShortcutKey::keySequence() const
{
    const int key = QKEvents::keyForCharacter(m_character);
    if (m_character == 0 || key == 0)
        return QKeySequence();
    return QKeySequence(QKeyCombination(qtModifiers(m_modifiers), Qt::Key(key)));
}

void QKShortcutKey::changed()
{
    if (m_owner)
        QKShortcut::keysChanged();
}

void setShortcutKey(QAction *item, const QKShortcutKey &key)
{
    if (!item)
        return;
    item->setProperty(QKKeyEquivalentProperty, QString(QChar(key.character())));
    item->setProperty(QKKeyEquivalentModifierMaskProperty, qint64(key.modifiers()));
    // Shown in the menu only: Qt must never fire it behind the registry's back.
    item->setShortcutContext(Qt::WidgetShortcut);
    item->setShortcut(key.keySequence());
}

void clearKeyEquivalent(QAction *item)
{
    if (!item)
        return;
    item->setProperty(QKKeyEquivalentProperty, QString());
    item->setShortcut(QKeySequence());
}
