// Decoding the Wii Remote's richest input report (0x33: buttons, forces and four infrared
// dots) and handing it to a delegate. The remote sends up to a hundred of these a second on
// the GUI thread, so each must cost well under a microsecond and allocate nothing.

#include "QKFakeWiiRemote.h"
#include "QKWiiRemote.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long long> s_allocations{0};

// What a host does with a report: look at the buttons and where the remote points.
struct Delegate : QKWiiRemoteDelegate
{
    void wiiRemoteButtonChanged(QKWiiRemote *, quint16 changed, bool state) override
    {
        presses += state ? changed : 0;
    }
    void wiiRemoteMoved(QKWiiRemote *remote) override
    {
        if (remote->hasCursorLocation())
            x += remote->cursorLocation().x();
    }
    unsigned presses = 0;
    double x = 0.0;
};

void decodeInfraredReport(benchmark::State &state)
{
    QKWiiRemote *remote = QKWiiRemote::remoteWithTransport(std::make_shared<QKFakeWiiRemote>());
    Delegate delegate;
    remote->setDelegate(&delegate);
    // Two reports that differ in buttons, forces and dots, so every step does its work.
    const quint8 reports[2][19] = {{0xA1, 0x33, 0x00, 0x08, 0x82, 0x7F, 0x9A, 0x10, 0x20, 0x35,
                                    0x90, 0x28, 0x35, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
                                   {0xA1, 0x33, 0x10, 0x00, 0x7E, 0x81, 0x98, 0x14, 0x22, 0x35,
                                    0x94, 0x2A, 0x35, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    const long long allocationsBefore = s_allocations.load();
    std::size_t i = 0;
    for (auto _ : state) {
        remote->l2capChannelData(reports[i & 1], sizeof(reports[0]));
        ++i;
    }
    const long long allocations = s_allocations.load() - allocationsBefore;
    benchmark::DoNotOptimize(delegate.x);
    state.counters["allocations"] = double(allocations);
    state.counters["allocations/report"] =
        benchmark::Counter(double(allocations), benchmark::Counter::kAvgIterations);
    state.SetItemsProcessed(state.iterations());
    QKWiiRemote::dispose();
}
BENCHMARK(decodeInfraredReport);

} // namespace

// Counts every allocation of the process, so the benchmark can show the path makes none.
void *operator new(std::size_t size)
{
    s_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

BENCHMARK_MAIN();
