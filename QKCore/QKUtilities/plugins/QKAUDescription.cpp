#include "QKAUDescription.h"

#include "QKAudioStreamDescription.h"
#include "QKException.h"
#include "QKLV2Host.h"
#include "QKSplashScreen.h"

#include <cstring>

namespace {

const QString ComponentDescriptionKey = QStringLiteral("componentDescription");
const QString ComputerCodeKey = QStringLiteral("computerCode");
const QString NameKey = QStringLiteral("name");
const QString ManufacturerKey = QStringLiteral("manufacturer");
const QString SupportsMonoInputKey = QStringLiteral("supportsMonoInput");
const QString SupportsMonoOutputKey = QStringLiteral("supportsMonoOutput");
const QString SupportsStereoInputKey = QStringLiteral("supportsStereoInput");
const QString SupportsStereoOutputKey = QStringLiteral("supportsStereoOutput");
const QString SupportsMultichannelInputKey = QStringLiteral("supportsMultichannelInput");
const QString SupportsMultichannelOutputKey = QStringLiteral("supportsMultichannelOutput");
const QString IgnoreKey = QStringLiteral("ignore");

void takeString(const QVariantMap &state, const QString &key, QString *field)
{
    const auto value = state.constFind(key);
    if (value != state.constEnd() && value->typeId() == QMetaType::QString)
        *field = value->toString();
}

void takeBool(const QVariantMap &state, const QString &key, bool *field)
{
    const auto value = state.constFind(key);
    if (value != state.constEnd() && value->typeId() == QMetaType::Bool)
        *field = value->toBool();
}

} // namespace

QKAUDescription QKAUDescription::description()
{
    return {};
}

QKAUDescription QKAUDescription::descriptionWithState(const QVariantMap &state)
{
    QKAUDescription description;
    description.setState(state);
    return description;
}

QVariantMap QKAUDescription::state() const
{
    QVariantMap state{
        {ComponentDescriptionKey, m_componentDescription},
        {SupportsMonoInputKey, m_supportsMonoInput},
        {SupportsMonoOutputKey, m_supportsMonoOutput},
        {SupportsStereoInputKey, m_supportsStereoInput},
        {SupportsStereoOutputKey, m_supportsStereoOutput},
        {SupportsMultichannelInputKey, m_supportsMultichannelInput},
        {SupportsMultichannelOutputKey, m_supportsMultichannelOutput},
        {IgnoreKey, m_ignore},
    };
    if (!m_computerCode.isEmpty())
        state.insert(ComputerCodeKey, m_computerCode);
    if (!m_name.isEmpty())
        state.insert(NameKey, m_name);
    if (!m_manufacturer.isEmpty())
        state.insert(ManufacturerKey, m_manufacturer);
    return state;
}

void QKAUDescription::setState(const QVariantMap &state)
{
    const auto description = state.constFind(ComponentDescriptionKey);
    if (description != state.constEnd() && description->typeId() == QMetaType::QByteArray)
        m_componentDescription = description->toByteArray();
    takeString(state, ComputerCodeKey, &m_computerCode);
    takeString(state, NameKey, &m_name);
    takeString(state, ManufacturerKey, &m_manufacturer);
    takeBool(state, SupportsMonoInputKey, &m_supportsMonoInput);
    takeBool(state, SupportsMonoOutputKey, &m_supportsMonoOutput);
    takeBool(state, SupportsStereoInputKey, &m_supportsStereoInput);
    takeBool(state, SupportsStereoOutputKey, &m_supportsStereoOutput);
    takeBool(state, SupportsMultichannelInputKey, &m_supportsMultichannelInput);
    takeBool(state, SupportsMultichannelOutputKey, &m_supportsMultichannelOutput);
    takeBool(state, IgnoreKey, &m_ignore);
}

void QKAUDescription::load()
{
    QKLV2Host &host = QKLV2Host::shared();
    const std::optional<QString> nameString = host.nameString(m_componentDescription);
    if (nameString) {
        const QString separator = QStringLiteral(": ");
        const QStringList parts = nameString->split(separator);
        if (parts.size() < 2)
            throw QKException(QStringLiteral("the plug-in name \"%1\" has no \"<maker>: \" part")
                                  .arg(*nameString),
                              {{ComponentDescriptionKey, m_componentDescription}},
                              QStringLiteral("QKRangeException"));
        m_manufacturer = parts.at(0);
        m_name = parts.at(1);
        QKSplashScreen::setActionIfVisible(QStringLiteral("Validating '%1'").arg(m_name));
    }

    // Each side accepts exactly the channel count it has audio ports for; a plug-in that does
    // not open accepts nothing, as a unit whose format calls all fail.
    const QKAudioStreamDescription format = QKAudioStreamDescription::defaultDescription();
    const auto ports =
        host.open(m_componentDescription, format.sampleRate, QStringLiteral("QKAUManager"));
    const int inputs = ports ? ports->inputs : 0;
    const int outputs = ports ? ports->outputs : 0;
    m_supportsMonoOutput = outputs == 1;
    m_supportsMonoInput = inputs == 1;
    m_supportsStereoOutput = outputs == 2;
    m_supportsStereoInput = inputs == 2;
    m_supportsMultichannelOutput = outputs == 3;
    m_supportsMultichannelInput = inputs == 3;
}

void QKAUDescription::setComponentDescription(const QByteArray &description)
{
    m_componentDescription = description;
}

quint32 QKAUDescription::componentType() const
{
    quint32 type = 0;
    if (m_componentDescription.size() >= qsizetype(sizeof type))
        std::memcpy(&type, m_componentDescription.constData(), sizeof type);
    return type;
}

bool QKAUDescription::isEffect() const
{
    const quint32 type = componentType();
    return type == QKLV2Host::EffectType || type == QKLV2Host::MusicEffectType;
}

bool QKAUDescription::isInstrument() const
{
    return componentType() == QKLV2Host::InstrumentType;
}

bool QKAUDescription::isPlayer() const
{
    return componentType() == QKLV2Host::GeneratorType;
}
