// One VST 2 test plug-in; the build makes each variant from it with its own definitions.

#include "QKVST2.h"

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

intptr_t dispatch(QKVST2::AEffect *, int32_t opcode, int32_t, intptr_t, void *ptr, float)
{
    const char *text = nullptr;
    switch (opcode) {
    case QKVST2::effGetEffectName:
        text = QK_TEST_EFFECT_NAME;
        break;
    case QKVST2::effGetProductString:
        text = QK_TEST_PRODUCT;
        break;
    case QKVST2::effGetVendorString:
        text = QK_TEST_VENDOR;
        break;
    case QKVST2::effGetPlugCategory:
        return QK_TEST_CATEGORY;
    default:
        return 0;
    }
    std::strcpy(static_cast<char *>(ptr), text);
    return text[0] != '\0';
}

QKVST2::AEffect g_effect = {};

// A real fault at address zero; the sanitizers' null check must not report it first, and the
// compiler must not see the address to turn the store into something else.
volatile intptr_t g_nowhere = 0;

__attribute__((noinline, no_sanitize("null"))) void crash(int *address)
{
    *static_cast<volatile int *>(address) = 42;
}

// A thread that runs the plug-in's own code for as long as the process lives, as plug-ins
// with worker or timer threads they never stop do.
std::atomic<unsigned> g_beats{0};

void keepBeating()
{
    for (;;) {
        g_beats.fetch_add(1);
        ::usleep(500);
    }
}

QKVST2::AEffect *makeEffect(QKVST2::HostCallback host)
{
    if (QK_TEST_BEHAVIOUR == 5) {
        static std::once_flag started;
        std::call_once(started, [] { std::thread(keepBeating).detach(); });
    }
    if (QK_TEST_BEHAVIOUR == 1)
        crash(reinterpret_cast<int *>(g_nowhere));
    while (QK_TEST_BEHAVIOUR == 2)
        ::pause();
    if (QK_TEST_BEHAVIOUR == 3)
        return nullptr;
    // Plug-ins decide on features by the host's version; one that gets no 2400 gives up.
    if (host(nullptr, QKVST2::audioMasterVersion, 0, 0, nullptr, 0.0f) != QKVST2::HostVersion ||
        host(nullptr, 7, 0, 0, nullptr, 0.0f) != 0)
        return nullptr;
    g_effect.magic = QK_TEST_BEHAVIOUR == 4 ? 0x56737451 : QKVST2::Magic;
    g_effect.dispatcher = dispatch;
    g_effect.numInputs = QK_TEST_INPUTS;
    g_effect.numOutputs = QK_TEST_OUTPUTS;
    g_effect.flags = QK_TEST_FLAGS;
    return &g_effect;
}

} // namespace

#if QK_TEST_MAIN_ONLY
// Older plug-ins export their entry point as "main"; a C++ function cannot have that name.
extern "C" __attribute__((visibility("default"))) QKVST2::AEffect *
legacyMain(QKVST2::HostCallback host) __asm__("main");
QKVST2::AEffect *legacyMain(QKVST2::HostCallback host)
{
    return makeEffect(host);
}
#else
extern "C" __attribute__((visibility("default"))) QKVST2::AEffect *
VSTPluginMain(QKVST2::HostCallback host)
{
    return makeEffect(host);
}
#endif
