// The LV2 plug-ins the catalogue tests install. They make no sound; what matters is how they
// describe themselves, what they ask of the host and how they behave when instantiated.

#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>

#include <unistd.h>

namespace {

#define QK_TEST_URI "http://example.org/qk-test/"

struct Plugin
{
    void *ports[8] = {};
};

void connectPort(LV2_Handle instance, uint32_t port, void *data)
{
    if (port < 8)
        static_cast<Plugin *>(instance)->ports[port] = data;
}

void activate(LV2_Handle) {}
void run(LV2_Handle, uint32_t) {}
void deactivate(LV2_Handle) {}

void cleanup(LV2_Handle instance)
{
    delete static_cast<Plugin *>(instance);
}

const void *noExtensionData(const char *)
{
    return nullptr;
}

LV2_Handle instantiate(const LV2_Descriptor *, double, const char *, const LV2_Feature *const *)
{
    return new (std::nothrow) Plugin;
}

const void *feature(const LV2_Feature *const *features, const char *uri)
{
    for (; features && *features; ++features) {
        if (std::strcmp((*features)->URI, uri) == 0)
            return (*features)->data ? (*features)->data : uri;
    }
    return nullptr;
}

// Fails, as a strict plug-in would, unless the host's features are there and usable.
LV2_Handle instantiateChecked(const LV2_Descriptor *descriptor, double rate, const char *bundle,
                              const LV2_Feature *const *features)
{
    const auto *map = static_cast<const LV2_URID_Map *>(feature(features, LV2_URID__map));
    const auto *unmap = static_cast<const LV2_URID_Unmap *>(feature(features, LV2_URID__unmap));
    const auto *options =
        static_cast<const LV2_Options_Option *>(feature(features, LV2_OPTIONS__options));
    const auto *schedule =
        static_cast<const LV2_Worker_Schedule *>(feature(features, LV2_WORKER__schedule));
    if (!map || !unmap || !options || !schedule || !schedule->schedule_work ||
        !feature(features, LV2_BUF_SIZE__boundedBlockLength))
        return nullptr;
    const LV2_URID maxBlock = map->map(map->handle, LV2_BUF_SIZE__maxBlockLength);
    const LV2_URID minBlock = map->map(map->handle, LV2_BUF_SIZE__minBlockLength);
    if (maxBlock == 0 || maxBlock == minBlock ||
        std::strcmp(unmap->unmap(unmap->handle, maxBlock), LV2_BUF_SIZE__maxBlockLength) != 0)
        return nullptr;
    int found = 0;
    for (const LV2_Options_Option *option = options; option->key; ++option) {
        if ((option->key == maxBlock || option->key == minBlock) &&
            option->size == sizeof(int32_t) && *static_cast<const int32_t *>(option->value) > 0)
            ++found;
    }
    return found == 2 ? instantiate(descriptor, rate, bundle, features) : nullptr;
}

LV2_Worker_Status work(LV2_Handle, LV2_Worker_Respond_Function respond,
                       LV2_Worker_Respond_Handle handle, uint32_t size, const void *data)
{
    return respond(handle, size, data);
}

LV2_Worker_Status workResponse(LV2_Handle, uint32_t, const void *)
{
    return LV2_WORKER_SUCCESS;
}

const void *workerExtensionData(const char *uri)
{
    static const LV2_Worker_Interface worker{work, workResponse, nullptr};
    return std::strcmp(uri, LV2_WORKER__interface) == 0 ? &worker : nullptr;
}

__attribute__((no_sanitize("null"))) LV2_Handle
instantiateCrashing(const LV2_Descriptor *, double, const char *, const LV2_Feature *const *)
{
    *static_cast<volatile int *>(nullptr) = 42;
    return nullptr;
}

// Starts a thread that runs this library's code for as long as the process lives, as plug-ins
// with worker threads they never stop do.
std::atomic<unsigned> beats{0};

LV2_Handle instantiateBusy(const LV2_Descriptor *descriptor, double rate, const char *bundle,
                           const LV2_Feature *const *features)
{
    static std::once_flag started;
    std::call_once(started, [] {
        std::thread([] {
            for (;;) {
                beats.fetch_add(1);
                ::usleep(500);
            }
        }).detach();
    });
    return instantiate(descriptor, rate, bundle, features);
}

#define QK_TEST_PLUGIN(name, instantiateFunction, extensionData)                                   \
    LV2_Descriptor                                                                                 \
    {                                                                                              \
        QK_TEST_URI name, instantiateFunction, connectPort, activate, run, deactivate, cleanup,    \
            extensionData                                                                          \
    }

const LV2_Descriptor descriptors[] = {
    QK_TEST_PLUGIN("delay", instantiate, noExtensionData),
    QK_TEST_PLUGIN("arpeggiator", instantiate, noExtensionData),
    QK_TEST_PLUGIN("noise", instantiateChecked, workerExtensionData),
    QK_TEST_PLUGIN("piano", instantiate, noExtensionData),
    QK_TEST_PLUGIN("teleport", instantiate, noExtensionData),
    QK_TEST_PLUGIN("anonymous", instantiate, noExtensionData),
    QK_TEST_PLUGIN("crasher", instantiateCrashing, noExtensionData),
    QK_TEST_PLUGIN("busy", instantiateBusy, noExtensionData),
};

// Copies of the delay under URIs of their own, for the benchmark's generated bundles.
constexpr uint32_t BenchCopies = 100;
char benchURIs[BenchCopies][64];
LV2_Descriptor benchDescriptors[BenchCopies];

} // namespace

extern "C" LV2_SYMBOL_EXPORT const LV2_Descriptor *lv2_descriptor(uint32_t index)
{
    constexpr uint32_t count = sizeof descriptors / sizeof descriptors[0];
    if (index < count)
        return &descriptors[index];
    if (index >= count + BenchCopies)
        return nullptr;
    const uint32_t copy = index - count;
    std::snprintf(benchURIs[copy], sizeof benchURIs[copy], QK_TEST_URI "bench/%u", copy);
    benchDescriptors[copy] = descriptors[0];
    benchDescriptors[copy].URI = benchURIs[copy];
    return &benchDescriptors[copy];
}
