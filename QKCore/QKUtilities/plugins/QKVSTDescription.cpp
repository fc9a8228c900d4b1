#include "QKVSTDescription.h"

#include "QKApplicationLog.h"
#include "QKFile.h"
#include "QKPropertyList.h"
#include "QKVSTHost.h"

#include <QFileInfo>
#include <QTimeZone>

namespace {

const QString LogDomain = QStringLiteral("QKVSTManager");

void warn(const QString &message)
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(LogDomain), message);
}

// Reads one key into @p field when it holds @p type; a value of another type is reported,
// since it means the database was written by something else.
template<typename T>
void take(const QVariantMap &state, const QString &key, QMetaType::Type type, T &field)
{
    const auto found = state.constFind(key);
    if (found == state.constEnd())
        return;
    const bool fits =
        type == QMetaType::Int ? QKPropertyList::isInteger(*found) : found->typeId() == type;
    if (!fits) {
        warn(QStringLiteral("the VST catalogue entry key \"%1\" holds a %2; ignored")
                 .arg(key, QString::fromLatin1(found->typeName())));
        return;
    }
    field = found->value<T>();
}

} // namespace

QKVSTDescription QKVSTDescription::description()
{
    return QKVSTDescription();
}

QKVSTDescription QKVSTDescription::descriptionWithPath(const QString &path)
{
    QKVSTDescription description;
    description.m_path = path;
    description.m_modificationDate = modificationDateOfFile(path);
    return description;
}

QKVSTDescription QKVSTDescription::descriptionWithState(const QVariantMap &state)
{
    QKVSTDescription description;
    description.setState(state);
    return description;
}

QVariantMap QKVSTDescription::state() const
{
    QVariantMap state;
    state.insert(QStringLiteral("path"), m_path);
    if (m_modificationDate.isValid())
        state.insert(QStringLiteral("modificationDate"), m_modificationDate);
    if (!m_computerCode.isEmpty())
        state.insert(QStringLiteral("computerCode"), m_computerCode);
    if (!m_name.isEmpty())
        state.insert(QStringLiteral("name"), m_name);
    if (!m_vendor.isEmpty())
        state.insert(QStringLiteral("vendor"), m_vendor);
    state.insert(QStringLiteral("isInstrument"), m_isInstrument);
    state.insert(QStringLiteral("numInputs"), m_numInputs);
    state.insert(QStringLiteral("numOutputs"), m_numOutputs);
    state.insert(QStringLiteral("loaded"), m_loaded);
    state.insert(QStringLiteral("ignore"), m_ignore);
    return state;
}

void QKVSTDescription::setState(const QVariantMap &state)
{
    take(state, QStringLiteral("path"), QMetaType::QString, m_path);
    take(state, QStringLiteral("modificationDate"), QMetaType::QDateTime, m_modificationDate);
    take(state, QStringLiteral("computerCode"), QMetaType::QString, m_computerCode);
    take(state, QStringLiteral("name"), QMetaType::QString, m_name);
    take(state, QStringLiteral("vendor"), QMetaType::QString, m_vendor);
    take(state, QStringLiteral("isInstrument"), QMetaType::Bool, m_isInstrument);
    take(state, QStringLiteral("numInputs"), QMetaType::Int, m_numInputs);
    take(state, QStringLiteral("numOutputs"), QMetaType::Int, m_numOutputs);
    take(state, QStringLiteral("loaded"), QMetaType::Bool, m_loaded);
    take(state, QStringLiteral("ignore"), QMetaType::Bool, m_ignore);
}

void QKVSTDescription::load()
{
    QString error;
    const std::optional<QKVSTPluginInfo> info = QKVSTHost::probe(m_path, &error);
    m_loaded = info.has_value();
    if (!info) {
        warn(QStringLiteral("\"%1\" is not a VST plug-in: %2").arg(m_path, error));
        return;
    }
    m_name = info->name;
    m_vendor = info->vendor;
    m_isInstrument = info->isInstrument;
    m_numInputs = info->numInputs;
    m_numOutputs = info->numOutputs;
}

QString QKVSTDescription::filename() const
{
    const QString name = QFileInfo(m_path).fileName();
    return name.endsWith(QLatin1String(".so")) ? name.chopped(3) : name;
}

QDateTime QKVSTDescription::modificationDateOfFile(const QString &path)
{
    // The database keeps whole seconds, so a date compared against a stored one must too.
    const QDateTime date = QKFile::modificationDateOfItemAtPath(path);
    if (!date.isValid())
        return date;
    const qint64 msecs = date.toMSecsSinceEpoch();
    return QDateTime::fromMSecsSinceEpoch(msecs - (((msecs % 1000) + 1000) % 1000),
                                          QTimeZone::utc());
}
