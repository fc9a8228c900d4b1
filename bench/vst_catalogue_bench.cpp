// The VST catalogue over 1,000 plug-ins: the first validation loads each one; a cached
// re-validation (every launch after the first) must stay well under 50 ms.

#include <QKApplication.h>
#include <QKVSTManager.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int PluginCount = 1000;
QString g_pluginFolder;

std::unique_ptr<QKVSTManager> makeManager()
{
    auto manager = std::make_unique<QKVSTManager>(QStringLiteral("bench-machine"));
    manager->setPluginFolders({g_pluginFolder});
    return manager;
}

// Distinct files, so that each one is really loaded and not found among the open libraries.
bool makePlugins()
{
    for (int i = 0; i < PluginCount; ++i) {
        const QString folder = g_pluginFolder + QStringLiteral("/Vendor%1").arg(i % 20);
        QDir().mkpath(folder);
        if (!QFile::copy(QStringLiteral(QK_BENCH_VST_PLUGIN),
                         folder + QStringLiteral("/Plugin%1.so").arg(i)))
            return false;
    }
    return true;
}

void BM_FirstValidation(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        QFile::remove(makeManager()->databasePath());
        state.ResumeTiming();
        auto manager = makeManager();
        manager->validate();
        benchmark::DoNotOptimize(manager->database().size());
    }
}
BENCHMARK(BM_FirstValidation)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CachedRevalidation(benchmark::State &state)
{
    makeManager()->validate();
    for (auto _ : state) {
        auto manager = makeManager();
        manager->validate();
        if (manager->database().size() != PluginCount)
            state.SkipWithError("the catalogue lost plug-ins");
    }
}
BENCHMARK(BM_CachedRevalidation)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    if (!home.isValid())
        return 2;
    setenv("HOME", QFile::encodeName(home.path()).constData(), 1);
    for (const char *variable : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"})
        unsetenv(variable);
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QKApplication app(argc, argv);
    g_pluginFolder = home.filePath(QStringLiteral("vst"));
    if (!makePlugins()) {
        std::fprintf(stderr, "Cannot copy the test plug-in.\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
