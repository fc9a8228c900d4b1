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

QString keyText(char16_t character, quint32 modifiers)
{
    switch (character) {
    case 0xF700:
        return QStringLiteral("\u2191");
    case 0xF701:
        return QStringLiteral("\u2193");
    case 0xF702:
        return QStringLiteral("\u2190");
    case 0xF703:
        return QStringLiteral("\u2192");
    case 0xF728:
        return QStringLiteral("\u2326");
    case 0xF729:
        return QStringLiteral("\u21F1");
    case 0xF72B:
        return QStringLiteral("\u21F2");
    case 0xF72C:
        return QStringLiteral("\u21DE");
    case 0xF72D:
        return QStringLiteral("\u21DF");
    case 0xF739:
        return QStringLiteral("\u2327");
    case 0x03:
        return QStringLiteral("\u2324");
    case 0x09:
    case 0x19:
        return QStringLiteral("\u21E5");
    case 0x0D:
        return QStringLiteral("\u23CE");
    case 0x1B:
        return QStringLiteral("\u238B");
    case 0x7F:
        return QStringLiteral("\u232B");
    case 0x20:
        return QStringLiteral("[space]");
    default:
        break;
    }
    if (character >= 0xF704 && character <= 0xF712)
        return QStringLiteral("F%1").arg(int(character) - 0xF703);
    const char16_t upper = character >= u'a' && character <= u'z' ? character - 0x20 : character;
    const QString text{QChar(upper)};
    if (modifiers & QKShortcutKey::NumericPad)
        return QLatin1Char('[') + text + QLatin1Char(']');
    return text;
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
    // An absent modifier keeps its slot as U+0000, which renders as nothing.
    QString text;
    text += QChar(m_modifiers & Control ? 0x2303 : 0);
    text += QChar(m_modifiers & Option ? 0x2325 : 0);
    text += QChar(m_modifiers & Shift ? 0x21E7 : 0);
    text += QChar(m_modifiers & Command ? 0x2318 : 0);
    return text + keyText(m_character, m_modifiers);
}

QString QKShortcutKey::displayText() const
{
    return displayString().remove(QChar(0));
}

QKeySequence QKShortcutKey::keySequence() const
{
    const int key = QKEvents::keyForCharacter(m_character);
    if (m_character == 0 || key == 0)
        return QKeySequence();
    Qt::KeyboardModifiers modifiers;
    if (m_modifiers & Command)
        modifiers |= Qt::ControlModifier;
    if (m_modifiers & Control)
        modifiers |= Qt::MetaModifier;
    if (m_modifiers & Option)
        modifiers |= Qt::AltModifier;
    if (m_modifiers & Shift)
        modifiers |= Qt::ShiftModifier;
    if (m_modifiers & NumericPad)
        modifiers |= Qt::KeypadModifier;
    return QKeySequence(QKeyCombination(modifiers, Qt::Key(key)));
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
