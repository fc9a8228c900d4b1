#include "QKVSTHost.h"

#include "QKPluginThreads.h"
#include "QKVST2.h"

#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>

#include <memory>
#include <utility>

namespace {

// Plug-ins ask for the host's version from their entry point and decide on features by it;
// everything else a host could offer (time info, automation, windows) a catalogue has not.
intptr_t hostCallback(QKVST2::AEffect *, int32_t opcode, int32_t, intptr_t, void *, float)
{
    return opcode == QKVST2::audioMasterVersion ? QKVST2::HostVersion : 0;
}

// Unloads a probed plug-in, unless it left threads running its code.
struct LibraryCloser
{
    QByteArray path;
    QKPluginThreads threads;

    void operator()(void *library) const
    {
        threads.keepLoadedIfThreadsStarted(path);
        dlclose(library);
    }
};
using Library = std::unique_ptr<void, LibraryCloser>;

void setError(QString *error, const QString &reason)
{
    if (error)
        *error = reason;
}

QString lastLinkerError()
{
    const char *reason = dlerror();
    return reason ? QString::fromLocal8Bit(reason) : QStringLiteral("unknown reason");
}

QKVST2::EntryPoint entryPoint(void *library)
{
    for (const char *symbol : {"VSTPluginMain", "main"}) {
        if (void *address = dlsym(library, symbol))
            return reinterpret_cast<QKVST2::EntryPoint>(address);
    }
    return nullptr;
}

QString effectString(QKVST2::AEffect *effect, int32_t opcode)
{
    char buffer[QKVST2::StringBufferSize] = {};
    effect->dispatcher(effect, opcode, 0, 0, buffer, 0.0f);
    buffer[sizeof(buffer) - 1] = '\0';
    return QString::fromUtf8(buffer).trimmed();
}

QKVSTPluginInfo queryEffect(QKVST2::AEffect *effect, const QString &path)
{
    effect->dispatcher(effect, QKVST2::effOpen, 0, 0, nullptr, 0.0f);
    QKVSTPluginInfo info;
    info.name = effectString(effect, QKVST2::effGetEffectName);
    if (info.name.isEmpty())
        info.name = effectString(effect, QKVST2::effGetProductString);
    if (info.name.isEmpty())
        info.name = QFileInfo(path).completeBaseName();
    info.vendor = effectString(effect, QKVST2::effGetVendorString);
    const intptr_t category =
        effect->dispatcher(effect, QKVST2::effGetPlugCategory, 0, 0, nullptr, 0.0f);
    info.isInstrument =
        (effect->flags & QKVST2::effFlagsIsSynth) != 0 || category == QKVST2::kPlugCategSynth;
    info.numInputs = effect->numInputs;
    info.numOutputs = effect->numOutputs;
    effect->dispatcher(effect, QKVST2::effClose, 0, 0, nullptr, 0.0f);
    return info;
}

} // namespace

std::optional<QKVSTPluginInfo> QKVSTHost::probe(const QString &path, QString *error)
{
    dlerror();
    const QByteArray file = QFile::encodeName(path);
    // Made before loading: a plug-in may start threads as soon as it is loaded.
    LibraryCloser closer{file, QKPluginThreads()};
    const Library library(dlopen(file.constData(), RTLD_NOW | RTLD_LOCAL), std::move(closer));
    if (!library) {
        setError(error, lastLinkerError());
        return std::nullopt;
    }
    const QKVST2::EntryPoint entry = entryPoint(library.get());
    if (!entry) {
        setError(error, QStringLiteral("it exports neither VSTPluginMain nor main"));
        return std::nullopt;
    }
    // A C++ plug-in may let an exception escape; it must not escape into the host.
    try {
        QKVST2::AEffect *effect = entry(hostCallback);
        if (!effect) {
            setError(error, QStringLiteral("its entry point made no effect"));
            return std::nullopt;
        }
        if (effect->magic != QKVST2::Magic || !effect->dispatcher) {
            // Nothing in it can be trusted, not even its dispatcher to close it.
            setError(error, QStringLiteral("its entry point made no VST effect (magic 0x%1)")
                                .arg(quint32(effect->magic), 8, 16, QLatin1Char('0')));
            return std::nullopt;
        }
        return queryEffect(effect, path);
    } catch (...) {
        setError(error, QStringLiteral("it threw an exception while being asked"));
        return std::nullopt;
    }
}
