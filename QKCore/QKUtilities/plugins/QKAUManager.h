#pragma once

#include "QKAUDescription.h"
#include "QKUtilitiesGlobal.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

class QMenu;
class QObject;

/**
 * The catalogue of the audio units installed on this machine, kept in
 * "~/Library/Application Support/Velmora/au_db.plist", and the effects and instruments menus
 * made from it.
 *
 * On Linux the units are the LV2 plug-ins lilv finds along LV2_PATH. Each unit is loaded once,
 * when it is first seen; while it loads, the marker "loading_au.txt" holds its 20-byte
 * description, so that a unit that crashes the process is found there by the next validation
 * and ignored from then on.
 */
class QKUTILITIES_EXPORT QKAUManager
{
public:
    /** A manager for the machine @p computerCode, with the catalogue read from its file. A
     *  missing or damaged file gives an empty catalogue (damage is logged). */
    explicit QKAUManager(const QString &computerCode);
    ~QKAUManager();
    QKAUManager(const QKAUManager &) = delete;
    QKAUManager &operator=(const QKAUManager &) = delete;

    /** Brings the catalogue up to date with the installed units, loading each new one.
     *  @throws QKException when a new unit's name has no "<maker>: " part; its marker then
     *  stays, so the next validation ignores that unit. */
    void validate();

    /** With @p outOfProcess, each new unit is loaded in a validator process that comes with
     *  the library, up to one per core at a time; a unit that crashes or hangs its validator
     *  (10 s) is ignored in the same validation, and the host keeps running. Off by
     *  default: units are then loaded in the host, guarded by the marker. */
    void setValidatesOutOfProcess(bool outOfProcess);
    bool validatesOutOfProcess() const;

    /** Every offered unit that is not an instrument (effects, music effects, generators),
     *  in one submenu per maker; each item sends @p action to @p target (along the responder
     *  chain when null) and holds the unit's 20-byte component description in its data(). */
    std::unique_ptr<QMenu> effectsMenuWithTarget(QObject *target, const QByteArray &action) const;
    /** Every offered instrument, like effectsMenuWithTarget(). */
    std::unique_ptr<QMenu> instrumentsMenuWithTarget(QObject *target,
                                                     const QByteArray &action) const;

    QString computerCode() const;
    QString databasePath() const;
    /** The marker naming the unit being loaded. */
    QString loadingComponentPath() const;
    /** The catalogue, in the order units were first seen. */
    const QList<QKAUDescription> &database() const;

private:
    /** Saves the catalogue; @p changed names its only entry changed or appended since the
     *  last save, when that is so. */
    void _saveDatabase(std::optional<qsizetype> changed = std::nullopt) const;
    qsizetype _indexOfComponentDescription(const QByteArray &description) const;
    void _prune(const QList<QByteArray> &found);
    void _recoverFromCrash();
    void loadNewEntry(qsizetype index);
    void applyValidatorReply(qsizetype index, const QVariantMap &state, const QString &failure);
    std::unique_ptr<QMenu> _menuWithTarget(QObject *target, const QByteArray &action,
                                           bool isInstrument) const;

    struct Private;
    std::unique_ptr<Private> d;
};
