// Both plug-in catalogues over 1,000 generated VST plug-ins and 100 LV2 bundles: the first
// validation, which loads every plug-in, in the host and in validator processes; and the
// cached re-validation of every launch after the first, which must stay well under 50 ms,
// with the lilv world already loaded and loaded again as after a change to the LV2 folder.
// (A new process finding the folder unchanged loads no world: it lists the plug-ins from
// the descriptions the last world gave.)

#include <QKAUManager.h>
#include <QKApplication.h>
#include <QKVSTManager.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <utime.h>

namespace {

constexpr int VSTCount = 1000;
constexpr int LV2Count = 100;
const QString Machine = QStringLiteral("bench-machine");
QString g_vstFolder;
QString g_lv2Folder;

// Distinct files, so that each one is really loaded and not found among the open libraries.
bool makeVSTPlugins()
{
    for (int i = 0; i < VSTCount; ++i) {
        const QString folder = g_vstFolder + QStringLiteral("/Vendor%1").arg(i % 20);
        QDir().mkpath(folder);
        if (!QFile::copy(QStringLiteral(QK_BENCH_VST_PLUGIN),
                         folder + QStringLiteral("/Plugin%1.so").arg(i)))
            return false;
    }
    return true;
}

// The tests' LV2 binary also describes 100 plug-ins for this; each gets a bundle of its own.
bool makeLV2Bundles()
{
    for (int i = 0; i < LV2Count; ++i) {
        const QString bundle = g_lv2Folder + QStringLiteral("/bench-%1.lv2/").arg(i);
        QDir().mkpath(bundle);
        if (!QFile::copy(QStringLiteral(QK_BENCH_LV2_BINARY),
                         bundle + QStringLiteral("qktestplugins.so")))
            return false;
        const QByteArray uri = "<http://example.org/qk-test/bench/" + QByteArray::number(i) + ">";
        QFile manifest(bundle + QStringLiteral("manifest.ttl"));
        QFile data(bundle + QStringLiteral("plugin.ttl"));
        if (!manifest.open(QIODevice::WriteOnly) || !data.open(QIODevice::WriteOnly))
            return false;
        manifest.write("@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                       "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n" +
                       uri +
                       " a lv2:Plugin ; lv2:binary <qktestplugins.so> ; "
                       "rdfs:seeAlso <plugin.ttl> .\n");
        data.write("@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
                   "@prefix foaf: <http://xmlns.com/foaf/0.1/> .\n"
                   "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n" +
                   uri + " a lv2:Plugin ; doap:name \"Delay " + QByteArray::number(i) +
                   "\" ; doap:maintainer [ foaf:name \"Bench\" ] ;\n"
                   " lv2:port [ a lv2:InputPort, lv2:AudioPort ; lv2:index 0 ; lv2:symbol "
                   "\"in\" ; lv2:name \"In\" ] ,\n"
                   " [ a lv2:OutputPort, lv2:AudioPort ; lv2:index 1 ; lv2:symbol \"out\" ; "
                   "lv2:name \"Out\" ] ,\n"
                   " [ a lv2:InputPort, lv2:ControlPort ; lv2:index 2 ; lv2:symbol \"time\" ; "
                   "lv2:name \"Time\" ; lv2:default 0.5 ] .\n");
    }
    return true;
}

struct Catalogues
{
    explicit Catalogues(bool outOfProcess = false) : units(Machine), vsts(Machine)
    {
        vsts.setPluginFolders({g_vstFolder});
        units.setValidatesOutOfProcess(outOfProcess);
        vsts.setValidatesOutOfProcess(outOfProcess);
    }
    void validate()
    {
        units.validate();
        vsts.validate();
    }
    qsizetype size() const { return units.database().size() + vsts.database().size(); }
    // Every plug-in opened and described, none given up on.
    bool allLoaded() const
    {
        return std::all_of(units.database().cbegin(), units.database().cend(),
                           [](const QKAUDescription &unit) {
                               return !unit.ignore() && !unit.name().isEmpty();
                           }) &&
               std::all_of(
                   vsts.database().cbegin(), vsts.database().cend(),
                   [](const QKVSTDescription &vst) { return !vst.ignore() && vst.isLoaded(); });
    }

    QKAUManager units;
    QKVSTManager vsts;
};

void BM_FirstValidation(benchmark::State &state)
{
    const bool outOfProcess = state.range(0) != 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            Catalogues old;
            QFile::remove(old.units.databasePath());
            QFile::remove(old.vsts.databasePath());
        }
        state.ResumeTiming();
        Catalogues catalogues(outOfProcess);
        catalogues.validate();
        if (catalogues.size() != VSTCount + LV2Count || !catalogues.allLoaded())
            state.SkipWithError("plug-ins are missing from the catalogues");
    }
}
BENCHMARK(BM_FirstValidation)
    ->ArgName("out_of_process")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_CachedRevalidation(benchmark::State &state)
{
    const bool reloadWorld = state.range(0) != 0;
    Catalogues().validate();
    const QByteArray lv2Folder = QFile::encodeName(g_lv2Folder);
    time_t stamp = 1000000000;
    for (auto _ : state) {
        if (reloadWorld) {
            // A new date of the plug-in folder makes the host load the lilv world again.
            const utimbuf times{stamp, stamp};
            ++stamp;
            ::utime(lv2Folder.constData(), &times);
        }
        Catalogues catalogues;
        catalogues.validate();
        if (catalogues.size() != VSTCount + LV2Count)
            state.SkipWithError("the catalogues lost plug-ins");
    }
}
BENCHMARK(BM_CachedRevalidation)
    ->ArgName("loading_the_world")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

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
    g_vstFolder = home.filePath(QStringLiteral("vst"));
    g_lv2Folder = home.filePath(QStringLiteral("lv2"));
    setenv("LV2_PATH", QFile::encodeName(g_lv2Folder).constData(), 1);
    QKApplication app(argc, argv);
    if (!makeVSTPlugins() || !makeLV2Bundles()) {
        std::fprintf(stderr, "Cannot copy the test plug-ins.\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
