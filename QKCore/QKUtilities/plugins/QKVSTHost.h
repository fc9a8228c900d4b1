#pragma once

#include <QString>

#include <optional>

/** What a VST 2 plug-in says about itself. */
struct QKVSTPluginInfo
{
    QString name;
    QString vendor;
    bool isInstrument = false;
    int numInputs = 0;
    int numOutputs = 0;
};

/**
 * The VST 2 host layer: opens a Linux plug-in (a shared object) in this process, asks it for
 * its name, vendor, kind and channel counts, and closes it again.
 *
 * The plug-in's own code runs here, so a broken plug-in can still take the process down;
 * the catalogue's loading marker is what survives that.
 */
class QKVSTHost
{
public:
    /** Opens the plug-in at @p path with dlopen, makes its effect through "VSTPluginMain"
     *  (else "main"), queries it, then closes the effect and the library. Nothing, with the
     *  reason in @p error, when the file cannot be opened, has no entry point, or its entry
     *  point gives no effect or one without the VST magic. */
    static std::optional<QKVSTPluginInfo> probe(const QString &path, QString *error = nullptr);
};
