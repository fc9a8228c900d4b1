#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <lilv/lilv.h>
#include <lv2/log/log.h>
#include <lv2/urid/urid.h>

#include <deque>

/**
 * One short life of an LV2 plug-in instance, as validation needs it: check the features it
 * requires, instantiate it with the ones real plug-ins ask for, connect every port to a
 * buffer of its own, activate, deactivate, free.
 *
 * Offered: urid:map and urid:unmap, options (sample rate, minimum, nominal and maximum block
 * length, sequence size), buf-size:boundedBlockLength, worker:schedule (work is done at
 * once, on the calling thread, since nothing runs in real time here), log:log (into the
 * application log), and the promises lv2:isLive and lv2:inPlaceBroken, which a host that
 * never runs the plug-in trivially keeps.
 */
class QKLV2Instance
{
public:
    /** What outlives each instance: URIDs must stay the same for the whole process. */
    class Features
    {
    public:
        Features();
        Features(const Features &) = delete;
        Features &operator=(const Features &) = delete;

        LV2_URID map(const char *uri);
        const char *unmap(LV2_URID urid) const;

        LV2_URID_Map uridMap;
        LV2_URID_Unmap uridUnmap;
        LV2_Log_Log log;
        QString logDomain;

    private:
        QHash<QByteArray, LV2_URID> m_ids;
        std::deque<QByteArray> m_uris; // stable addresses for unmap()
    };

    /** Block lengths the plug-in is promised. */
    static constexpr int MinBlockLength = 16;
    static constexpr int NominalBlockLength = 1024;
    static constexpr int MaxBlockLength = 4096;

    /** Runs @p plugin through instantiate, activate, deactivate and free. False, logged under
     *  the features' log domain, when it needs a feature not offered or does not
     *  instantiate. */
    static bool run(LilvWorld *world, const LilvPlugin *plugin, double sampleRate,
                    Features *features, const QString &logDomain);
};
