#pragma once

#include "QKBaseGlobal.h"

#include <QRectF>
#include <QVariant>

#include <memory>

/**
 * The user's settings: a registration domain held in memory over a persistent domain that
 * is saved atomically, as an XML property list, after every change.
 *
 * The file is "$XDG_CONFIG_HOME/Velmora/<application name>.plist" (XDG_CONFIG_HOME falling
 * back to ~/.config when unset or relative). A file that cannot be read is logged and treated as
 * empty; it is only replaced when a setting changes, after being copied to "<file>.corrupt".
 * Safe to use from any thread.
 */
class QKBASE_EXPORT QKUserDefaults
{
public:
    /** The defaults of the running application, created on first use. */
    static QKUserDefaults *standardUserDefaults();
    /** Forgets the shared instance so that the next call reads the file afresh
     *  (tests change HOME and the application name between cases). */
    static void resetStandardUserDefaults();

    /** Defaults for a store kept at @p filePath; mainly for tests and tools. */
    explicit QKUserDefaults(const QString &filePath);
    ~QKUserDefaults();
    QKUserDefaults(const QKUserDefaults &) = delete;
    QKUserDefaults &operator=(const QKUserDefaults &) = delete;

    QString filePath() const;

    /** Adds @p defaults to the registration domain; they are never saved. */
    void registerDefaults(const QVariantMap &defaults);

    /** The persistent value of @p key, else its registered value; invalid when neither. */
    QVariant objectForKey(const QString &key) const;
    /** True when @p key has a persistent or registered value. */
    bool hasKey(const QString &key) const;

    QString stringForKey(const QString &key) const;  // empty unless a string or number
    QByteArray dataForKey(const QString &key) const; // empty unless data
    QVariantList arrayForKey(const QString &key) const;
    QVariantMap dictionaryForKey(const QString &key) const;
    bool boolForKey(const QString &key) const;      // false when missing
    qint64 integerForKey(const QString &key) const; // integer part of reals; 0 when missing
    double doubleForKey(const QString &key) const;  // 0 when missing

    /** Stores @p value persistently and saves; an invalid value removes the key. A value no
     *  property list can hold (a QPoint) is refused and logged. */
    void setObject(const QVariant &value, const QString &key);
    void setBool(bool value, const QString &key);
    void setInteger(qint64 value, const QString &key);
    void setDouble(double value, const QString &key);
    void removeObjectForKey(const QString &key);

    /** Writes the persistent domain now; false when the file could not be written. */
    bool synchronize();

    /** The persistent domain alone, as it would be saved. */
    QVariantMap persistentDomain() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

/** "{{x, y}, {w, h}}", the text form rectangles are stored in. */
QKBASE_EXPORT QString NSStringFromRect(const QRectF &rect);
/** The rectangle in @p text; the zero rectangle when it does not parse. */
QKBASE_EXPORT QRectF NSRectFromString(const QString &text);
