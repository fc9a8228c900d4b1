#include "QKLV2Host.h"

#include "QKApplicationLog.h"
#include "QKLV2DescriptionCache.h"
#include "QKLV2Instance.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QHash>

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/midi/midi.h>

#include <cstring>

namespace {

// lilv's own default, for the folder checks and the reload rule when LV2_PATH is unset.
const char DefaultLV2Path[] =
    "~/.lv2:/usr/lib/x86_64-linux-gnu/lv2:/usr/lib/lv2:/usr/local/lib/lv2";
const char EventPortURI[] = "http://lv2plug.in/ns/ext/event#EventPort";

QString lv2Path()
{
    const QString path = qEnvironmentVariable("LV2_PATH");
    return path.isEmpty() ? QString::fromLatin1(DefaultLV2Path) : path;
}

QStringList lv2Folders(const QString &path)
{
    QStringList folders;
    for (QString folder : path.split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
        if (folder.startsWith(QLatin1Char('~')))
            folder.replace(0, 1, QDir::homePath());
        folders.append(folder);
    }
    return folders;
}

// Adding or removing a bundle changes its folder's modification date; that, or another
// path, is what makes the world worth loading again.
QString pathSignature(const QString &path)
{
    QString signature = path;
    for (const QString &folder : lv2Folders(path)) {
        const QFileInfo info(folder);
        signature += QLatin1Char('\n') +
                     (info.exists() ? QString::number(info.lastModified().toMSecsSinceEpoch())
                                    : QStringLiteral("-"));
    }
    return signature;
}

QString nodeString(LilvNode *node)
{
    const QString text = node ? QString::fromUtf8(lilv_node_as_string(node)) : QString();
    lilv_node_free(node);
    return text.trimmed();
}

void warn(const QString &domain, const QString &message)
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(domain), message);
}

} // namespace

struct QKLV2Host::Private
{
    ~Private() { freeWorld(); }

    void ensureWorld();
    void loadWorld(const QString &path);
    void freeWorld();
    QString usableLV2Path(const QString &path) const;
    quint32 typeOf(const LilvPlugin *plugin) const;
    AudioPorts audioPorts(const LilvPlugin *plugin) const;
    bool hasMidiInput(const LilvPlugin *plugin) const;
    const LilvPlugin *plugin(const QByteArray &description) const;

    LilvWorld *world = nullptr;
    QString signature;
    QList<QByteArray> descriptions;
    QHash<QByteArray, const LilvPlugin *> plugins;
    QKLV2Instance::Features features;

    // Owned by the world's lifetime.
    LilvNode *rdfType = nullptr;
    LilvNode *instrumentPlugin = nullptr;
    LilvNode *inputPort = nullptr;
    LilvNode *audioPort = nullptr;
    LilvNode *atomPort = nullptr;
    LilvNode *eventPort = nullptr;
    LilvNode *midiEvent = nullptr;
    LilvNode *doapName = nullptr;
};

void QKLV2Host::Private::ensureWorld()
{
    const QString path = lv2Path();
    const QString current = pathSignature(path);
    if (world && current == signature)
        return;
    freeWorld();
    loadWorld(path);
    signature = current;
}

QString QKLV2Host::Private::usableLV2Path(const QString &path) const
{
    const QString domain = QStringLiteral("QKAUManager");
    QStringList usable;
    for (const QString &folder : lv2Folders(path)) {
        const QFileInfo info(folder);
        if (!info.exists())
            continue;
        if (!info.isDir()) {
            warn(domain, QStringLiteral("the LV2 folder %1 is not a folder; skipped").arg(folder));
            continue;
        }
        const QDir dir(folder);
        if (!info.isReadable() || !dir.isReadable()) {
            warn(domain, QStringLiteral("cannot read the LV2 folder %1; skipped").arg(folder));
            continue;
        }
        // lilv would only print these; a link that leads nowhere is worth a log line.
        const QFileInfoList entries = dir.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot |
                                                        QDir::System | QDir::Hidden);
        for (const QFileInfo &entry : entries) {
            if (entry.isSymLink() && !entry.exists())
                warn(domain, QStringLiteral("the LV2 bundle %1 is a broken or looping symbolic "
                                            "link; skipped")
                                 .arg(entry.filePath()));
        }
        usable.append(folder);
    }
    return usable.join(QLatin1Char(':'));
}

void QKLV2Host::Private::loadWorld(const QString &path)
{
    world = lilv_world_new();
    rdfType = lilv_new_uri(world, "http://www.w3.org/1999/02/22-rdf-syntax-ns#type");
    instrumentPlugin = lilv_new_uri(world, LV2_CORE__InstrumentPlugin);
    inputPort = lilv_new_uri(world, LV2_CORE__InputPort);
    audioPort = lilv_new_uri(world, LV2_CORE__AudioPort);
    atomPort = lilv_new_uri(world, LV2_ATOM__AtomPort);
    eventPort = lilv_new_uri(world, EventPortURI);
    midiEvent = lilv_new_uri(world, LV2_MIDI__MidiEvent);
    doapName = lilv_new_uri(world, "http://usefulinc.com/ns/doap#name");

    LilvNode *pathNode = lilv_new_string(world, usableLV2Path(path).toUtf8().constData());
    lilv_world_set_option(world, LILV_OPTION_LV2_PATH, pathNode);
    lilv_node_free(pathNode);
    lilv_world_load_all(world);

    const quint32 typeOrder[] = {EffectType, MusicEffectType, InstrumentType, GeneratorType};
    QList<QByteArray> byType[4];
    const LilvPlugins *all = lilv_world_get_all_plugins(world);
    LILV_FOREACH(plugins, i, all)
    {
        const LilvPlugin *plugin = lilv_plugins_get(all, i);
        // Without a name, binary or well-formed ports there is nothing a host could open.
        if (!lilv_plugin_verify(plugin)) {
            warn(QStringLiteral("QKAUManager"),
                 QStringLiteral("the LV2 plug-in %1 is described incompletely; skipped")
                     .arg(QString::fromUtf8(lilv_node_as_uri(lilv_plugin_get_uri(plugin)))));
            continue;
        }
        const quint32 type = typeOf(plugin);
        const QByteArray description = QKLV2Host::componentDescription(
            type, QByteArray(lilv_node_as_uri(lilv_plugin_get_uri(plugin))));
        plugins.insert(description, plugin);
        for (int t = 0; t < 4; ++t) {
            if (typeOrder[t] == type)
                byType[t].append(description);
        }
    }
    for (const QList<QByteArray> &list : byType)
        descriptions += list;
}

void QKLV2Host::Private::freeWorld()
{
    if (!world)
        return;
    for (LilvNode *node : {rdfType, instrumentPlugin, inputPort, audioPort, atomPort, eventPort,
                           midiEvent, doapName})
        lilv_node_free(node);
    lilv_world_free(world);
    world = nullptr;
    descriptions.clear();
    plugins.clear();
}

quint32 QKLV2Host::Private::typeOf(const LilvPlugin *plugin) const
{
    LilvNodes *types = lilv_plugin_get_value(plugin, rdfType);
    const bool instrument = types && lilv_nodes_contains(types, instrumentPlugin);
    lilv_nodes_free(types);
    if (instrument)
        return InstrumentType;
    if (audioPorts(plugin).inputs == 0)
        return GeneratorType;
    return hasMidiInput(plugin) ? MusicEffectType : EffectType;
}

QKLV2Host::AudioPorts QKLV2Host::Private::audioPorts(const LilvPlugin *plugin) const
{
    AudioPorts ports;
    const uint32_t count = lilv_plugin_get_num_ports(plugin);
    for (uint32_t index = 0; index < count; ++index) {
        const LilvPort *port = lilv_plugin_get_port_by_index(plugin, index);
        if (!lilv_port_is_a(plugin, port, audioPort))
            continue;
        if (lilv_port_is_a(plugin, port, inputPort))
            ++ports.inputs;
        else
            ++ports.outputs;
    }
    return ports;
}

bool QKLV2Host::Private::hasMidiInput(const LilvPlugin *plugin) const
{
    const uint32_t count = lilv_plugin_get_num_ports(plugin);
    for (uint32_t index = 0; index < count; ++index) {
        const LilvPort *port = lilv_plugin_get_port_by_index(plugin, index);
        if (lilv_port_is_a(plugin, port, inputPort) &&
            (lilv_port_is_a(plugin, port, atomPort) || lilv_port_is_a(plugin, port, eventPort)) &&
            lilv_port_supports_event(plugin, port, midiEvent))
            return true;
    }
    return false;
}

const LilvPlugin *QKLV2Host::Private::plugin(const QByteArray &description) const
{
    return plugins.value(description, nullptr);
}

QKLV2Host &QKLV2Host::shared()
{
    static QKLV2Host host;
    return host;
}

QKLV2Host::QKLV2Host() : d(std::make_unique<Private>()) {}

QKLV2Host::~QKLV2Host() = default;

QByteArray QKLV2Host::componentDescription(quint32 type, const QByteArray &uri)
{
    QByteArray description(20, '\0');
    std::memcpy(description.data(), &type, sizeof type);
    const QByteArray digest = QCryptographicHash::hash(uri, QCryptographicHash::Sha1);
    std::memcpy(description.data() + 4, digest.constData(), 16);
    return description;
}

QList<QByteArray> QKLV2Host::componentDescriptions()
{
    if (d->world) {
        d->ensureWorld();
        return d->descriptions;
    }
    // A new process: the list a world gave earlier serves while the folders are unchanged.
    const QString path = lv2Path();
    const QKLV2DescriptionCache cache(path, lv2Folders(path));
    if (std::optional<QList<QByteArray>> cached = cache.descriptions())
        return *cached;
    d->ensureWorld();
    cache.store(d->descriptions);
    return d->descriptions;
}

std::optional<QString> QKLV2Host::nameString(const QByteArray &description)
{
    d->ensureWorld();
    const LilvPlugin *plugin = d->plugin(description);
    if (!plugin)
        return std::nullopt;
    const QString name = nodeString(lilv_plugin_get_name(plugin));
    QString maker = nodeString(lilv_plugin_get_author_name(plugin));
    if (maker.isEmpty()) {
        if (LilvNode *project = lilv_plugin_get_project(plugin)) {
            maker = nodeString(lilv_world_get(d->world, project, d->doapName, nullptr));
            lilv_node_free(project);
        }
    }
    return maker.isEmpty() ? name : maker + QStringLiteral(": ") + name;
}

std::optional<QKLV2Host::AudioPorts> QKLV2Host::open(const QByteArray &description,
                                                     double sampleRate, const QString &logDomain)
{
    d->ensureWorld();
    const LilvPlugin *plugin = d->plugin(description);
    if (!plugin) {
        warn(logDomain, QStringLiteral("no installed LV2 plug-in has the description %1")
                            .arg(QString::fromLatin1(description.toHex())));
        return std::nullopt;
    }
    if (!QKLV2Instance::run(d->world, plugin, sampleRate, &d->features, logDomain))
        return std::nullopt;
    return d->audioPorts(plugin);
}
