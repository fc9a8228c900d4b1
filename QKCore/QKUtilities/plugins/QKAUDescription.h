#pragma once

#include "QKUtilitiesGlobal.h"

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

/**
 * One catalogued audio unit: its 20-byte component description (its identity), the machine
 * it was catalogued on, its name and maker, the channel counts it accepts, and whether it is
 * ignored because it crashed while loading.
 *
 * On Linux the units are LV2 plug-ins; see QKAUManager for how they map.
 */
class QKUTILITIES_EXPORT QKAUDescription
{
public:
    /** An empty description. */
    static QKAUDescription description();
    /** An empty description given setState(@p state). */
    static QKAUDescription descriptionWithState(const QVariantMap &state);

    /** The state dictionary: "componentDescription" and the seven booleans always, "name",
     *  "manufacturer" and "computerCode" only when not empty. */
    QVariantMap state() const;
    /** Sets the fields whose keys @p state has; values of the wrong type are ignored. */
    void setState(const QVariantMap &state);

    /** Opens the unit the component description names and learns its name, maker and the
     *  channel counts it accepts. A unit that cannot be opened keeps every capability false.
     *  @throws QKException when the unit's name has no "<maker>: " part; the catalogue lets
     *  that propagate out of validation. */
    void load();

    QByteArray componentDescription() const { return m_componentDescription; }
    void setComponentDescription(const QByteArray &description);
    /** The first word of the component description, its type ('aufx'...); 0 without one. */
    quint32 componentType() const;
    QString computerCode() const { return m_computerCode; }
    void setComputerCode(const QString &code) { m_computerCode = code; }
    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    QString manufacturer() const { return m_manufacturer; }
    void setManufacturer(const QString &manufacturer) { m_manufacturer = manufacturer; }

    bool supportsMonoInput() const { return m_supportsMonoInput; }
    void setSupportsMonoInput(bool supports) { m_supportsMonoInput = supports; }
    bool supportsMonoOutput() const { return m_supportsMonoOutput; }
    void setSupportsMonoOutput(bool supports) { m_supportsMonoOutput = supports; }
    bool supportsStereoInput() const { return m_supportsStereoInput; }
    void setSupportsStereoInput(bool supports) { m_supportsStereoInput = supports; }
    bool supportsStereoOutput() const { return m_supportsStereoOutput; }
    void setSupportsStereoOutput(bool supports) { m_supportsStereoOutput = supports; }
    bool supportsMultichannelInput() const { return m_supportsMultichannelInput; }
    void setSupportsMultichannelInput(bool supports) { m_supportsMultichannelInput = supports; }
    bool supportsMultichannelOutput() const { return m_supportsMultichannelOutput; }
    void setSupportsMultichannelOutput(bool supports) { m_supportsMultichannelOutput = supports; }

    /** True when the unit is never offered. */
    bool ignore() const { return m_ignore; }
    void setIgnore(bool ignore) { m_ignore = ignore; }

    /** An effect ('aufx') or music effect ('aumf'). */
    bool isEffect() const;
    /** An instrument ('aumu'). */
    bool isInstrument() const;
    /** A generator ('augn'). */
    bool isPlayer() const;

    friend bool operator==(const QKAUDescription &, const QKAUDescription &) = default;

private:
    QByteArray m_componentDescription;
    QString m_computerCode;
    QString m_name;
    QString m_manufacturer;
    bool m_supportsMonoInput = false;
    bool m_supportsMonoOutput = false;
    bool m_supportsStereoInput = false;
    bool m_supportsStereoOutput = false;
    bool m_supportsMultichannelInput = false;
    bool m_supportsMultichannelOutput = false;
    bool m_ignore = false;
};

Q_DECLARE_METATYPE(QKAUDescription)
