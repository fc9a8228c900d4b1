#include "QKLV2Instance.h"

#include "QKApplicationLog.h"
#include "QKPluginThreads.h"

#include <QSet>

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/worker/worker.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace {

constexpr size_t AtomBufferSize = 8192;

void warn(const QString &domain, const QString &message)
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(domain), message);
}

LV2_URID mapURI(LV2_URID_Map_Handle handle, const char *uri)
{
    return static_cast<QKLV2Instance::Features *>(handle)->map(uri);
}

const char *unmapURID(LV2_URID_Unmap_Handle handle, LV2_URID urid)
{
    return static_cast<const QKLV2Instance::Features *>(handle)->unmap(urid);
}

int logVPrintf(LV2_Log_Handle handle, LV2_URID, const char *format, va_list arguments)
{
    char text[1024];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    const auto *features = static_cast<const QKLV2Instance::Features *>(handle);
    QKApplicationLog::sharedLog()->info(QKApplicationLogContext(features->logDomain),
                                        QString::fromUtf8(text).trimmed());
    return length;
}

int logPrintf(LV2_Log_Handle handle, LV2_URID type, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = logVPrintf(handle, type, format, arguments);
    va_end(arguments);
    return length;
}

// Work is done on the spot: the plug-in never runs here, so there is no real-time thread
// to keep free, and the response can go straight back.
struct SynchronousWorker
{
    LilvInstance *instance = nullptr;
    const LV2_Worker_Interface *interface = nullptr;

    static LV2_Worker_Status respond(LV2_Worker_Respond_Handle handle, uint32_t size,
                                     const void *data)
    {
        auto *worker = static_cast<SynchronousWorker *>(handle);
        if (!worker->interface || !worker->interface->work_response)
            return LV2_WORKER_ERR_UNKNOWN;
        return worker->interface->work_response(lilv_instance_get_handle(worker->instance), size,
                                                data);
    }

    static LV2_Worker_Status schedule(LV2_Worker_Schedule_Handle handle, uint32_t size,
                                      const void *data)
    {
        auto *worker = static_cast<SynchronousWorker *>(handle);
        // Asked for during instantiate, before the plug-in could say how it works.
        if (!worker->instance || !worker->interface || !worker->interface->work)
            return LV2_WORKER_ERR_UNKNOWN;
        return worker->interface->work(lilv_instance_get_handle(worker->instance), respond, worker,
                                       size, data);
    }
};

// A buffer per port, so that plug-ins that cannot process in place are safe too.
class PortBuffers
{
public:
    void connect(LilvWorld *world, const LilvPlugin *plugin, LilvInstance *instance,
                 QKLV2Instance::Features *features)
    {
        LilvNode *controlPort = lilv_new_uri(world, LV2_CORE__ControlPort);
        LilvNode *audioPort = lilv_new_uri(world, LV2_CORE__AudioPort);
        LilvNode *cvPort = lilv_new_uri(world, LV2_CORE__CVPort);
        LilvNode *atomPort = lilv_new_uri(world, LV2_ATOM__AtomPort);
        LilvNode *inputPort = lilv_new_uri(world, LV2_CORE__InputPort);
        const uint32_t count = lilv_plugin_get_num_ports(plugin);
        std::vector<float> defaults(count, 0.0f);
        lilv_plugin_get_port_ranges_float(plugin, nullptr, nullptr, defaults.data());
        m_buffers.resize(count);
        for (uint32_t index = 0; index < count; ++index) {
            const LilvPort *port = lilv_plugin_get_port_by_index(plugin, index);
            std::vector<quint64> &buffer = m_buffers[index];
            if (lilv_port_is_a(plugin, port, controlPort)) {
                buffer.assign(1, 0);
                *reinterpret_cast<float *>(buffer.data()) =
                    std::isnan(defaults[index]) ? 0.0f : defaults[index];
            } else if (lilv_port_is_a(plugin, port, audioPort) ||
                       lilv_port_is_a(plugin, port, cvPort)) {
                buffer.assign(QKLV2Instance::MaxBlockLength / 2, 0);
            } else {
                buffer.assign(AtomBufferSize / sizeof(quint64), 0);
                if (lilv_port_is_a(plugin, port, atomPort)) {
                    auto *atom = reinterpret_cast<LV2_Atom *>(buffer.data());
                    const bool input = lilv_port_is_a(plugin, port, inputPort);
                    // An empty sequence to read, or the whole buffer to write into.
                    atom->size =
                        input ? sizeof(LV2_Atom_Sequence_Body) : AtomBufferSize - sizeof(LV2_Atom);
                    atom->type = features->map(input ? LV2_ATOM__Sequence : LV2_ATOM__Chunk);
                }
            }
            lilv_instance_connect_port(instance, index, buffer.data());
        }
        for (LilvNode *node : {controlPort, audioPort, cvPort, atomPort, inputPort})
            lilv_node_free(node);
    }

private:
    std::vector<std::vector<quint64>> m_buffers;
};

QSet<QByteArray> offeredFeatures()
{
    return {LV2_URID__map,        LV2_URID__unmap,
            LV2_OPTIONS__options, LV2_BUF_SIZE__boundedBlockLength,
            LV2_WORKER__schedule, LV2_LOG__log,
            LV2_CORE__isLive,     LV2_CORE__inPlaceBroken};
}

} // namespace

QKLV2Instance::Features::Features()
    : uridMap{this, mapURI}, uridUnmap{this, unmapURID}, log{this, logPrintf, logVPrintf}
{}

LV2_URID QKLV2Instance::Features::map(const char *uri)
{
    const QByteArray key(uri);
    auto found = m_ids.constFind(key);
    if (found != m_ids.constEnd())
        return *found;
    m_uris.push_back(key);
    const auto urid = static_cast<LV2_URID>(m_uris.size());
    m_ids.insert(key, urid);
    return urid;
}

const char *QKLV2Instance::Features::unmap(LV2_URID urid) const
{
    if (urid == 0 || urid > m_uris.size())
        return nullptr;
    return m_uris[urid - 1].constData();
}

bool QKLV2Instance::run(LilvWorld *world, const LilvPlugin *plugin, double sampleRate,
                        Features *features, const QString &logDomain)
{
    const QString uri = QString::fromUtf8(lilv_node_as_uri(lilv_plugin_get_uri(plugin)));
    LilvNodes *required = lilv_plugin_get_required_features(plugin);
    const QSet<QByteArray> offered = offeredFeatures();
    QStringList missing;
    LILV_FOREACH(nodes, i, required)
    {
        const char *feature = lilv_node_as_uri(lilv_nodes_get(required, i));
        if (feature && !offered.contains(QByteArray(feature)))
            missing.append(QString::fromUtf8(feature));
    }
    lilv_nodes_free(required);
    if (!missing.isEmpty()) {
        warn(logDomain, QStringLiteral("the LV2 plug-in %1 needs %2, which this host does not "
                                       "offer; it was not opened")
                            .arg(uri, missing.join(QStringLiteral(", "))));
        return false;
    }

    features->logDomain = logDomain;
    const float rate = float(sampleRate);
    const int32_t minBlock = MinBlockLength, nominalBlock = NominalBlockLength,
                  maxBlock = MaxBlockLength, sequenceSize = int32_t(AtomBufferSize);
    const LV2_URID intType = features->map(LV2_ATOM__Int);
    const LV2_Options_Option options[] = {
        {LV2_OPTIONS_INSTANCE, 0, features->map(LV2_PARAMETERS__sampleRate), sizeof rate,
         features->map(LV2_ATOM__Float), &rate},
        {LV2_OPTIONS_INSTANCE, 0, features->map(LV2_BUF_SIZE__minBlockLength), sizeof minBlock,
         intType, &minBlock},
        {LV2_OPTIONS_INSTANCE, 0, features->map(LV2_BUF_SIZE__nominalBlockLength),
         sizeof nominalBlock, intType, &nominalBlock},
        {LV2_OPTIONS_INSTANCE, 0, features->map(LV2_BUF_SIZE__maxBlockLength), sizeof maxBlock,
         intType, &maxBlock},
        {LV2_OPTIONS_INSTANCE, 0, features->map(LV2_BUF_SIZE__sequenceSize), sizeof sequenceSize,
         intType, &sequenceSize},
        {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr},
    };
    SynchronousWorker worker;
    LV2_Worker_Schedule schedule{&worker, SynchronousWorker::schedule};
    const LV2_Feature mapFeature{LV2_URID__map, &features->uridMap};
    const LV2_Feature unmapFeature{LV2_URID__unmap, &features->uridUnmap};
    const LV2_Feature optionsFeature{LV2_OPTIONS__options,
                                     const_cast<LV2_Options_Option *>(options)};
    const LV2_Feature boundedFeature{LV2_BUF_SIZE__boundedBlockLength, nullptr};
    const LV2_Feature scheduleFeature{LV2_WORKER__schedule, &schedule};
    const LV2_Feature logFeature{LV2_LOG__log, &features->log};
    const LV2_Feature *const instanceFeatures[] = {
        &mapFeature,      &unmapFeature, &optionsFeature, &boundedFeature,
        &scheduleFeature, &logFeature,   nullptr};

    const QKPluginThreads threads; // before the plug-in's library is loaded
    LilvInstance *instance = lilv_plugin_instantiate(plugin, sampleRate, instanceFeatures);
    if (!instance) {
        warn(logDomain, QStringLiteral("the LV2 plug-in %1 could not be instantiated").arg(uri));
        return false;
    }
    worker.instance = instance;
    worker.interface = static_cast<const LV2_Worker_Interface *>(
        lilv_instance_get_extension_data(instance, LV2_WORKER__interface));
    PortBuffers buffers;
    buffers.connect(world, plugin, instance, features);
    lilv_instance_activate(instance);
    lilv_instance_deactivate(instance);
    if (char *library =
            lilv_file_uri_parse(lilv_node_as_uri(lilv_plugin_get_library_uri(plugin)), nullptr)) {
        threads.keepLoadedIfThreadsStarted(QByteArray(library));
        lilv_free(library);
    }
    lilv_instance_free(instance);
    return true;
}
