// The audio unit catalogue over 100 generated LV2 bundles: a first validation (every plug-in
// instantiated), a cached re-validation in a running process, and one that has to load the
// lilv world again, as a fresh process does.

#include "QKAUManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <sys/stat.h>
#include <utime.h>

namespace {

constexpr int Bundles = 100;

struct Installation
{
    QTemporaryDir home;
    QString plugins;

    Installation()
    {
        qputenv("HOME", QFile::encodeName(home.path()));
        plugins = home.filePath(QStringLiteral("lv2"));
        for (int i = 0; i < Bundles; ++i) {
            const QString bundle = plugins + QStringLiteral("/bench-%1.lv2/").arg(i);
            QDir().mkpath(bundle);
            QFile::copy(QStringLiteral(QK_TEST_LV2_BINARY),
                        bundle + QStringLiteral("qktestplugins.so"));
            const QByteArray uri =
                "<http://example.org/qk-test/bench/" + QByteArray::number(i) + ">";
            QFile manifest(bundle + QStringLiteral("manifest.ttl"));
            manifest.open(QIODevice::WriteOnly);
            manifest.write("@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                           "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n" +
                           uri +
                           " a lv2:Plugin ; lv2:binary <qktestplugins.so> ; "
                           "rdfs:seeAlso <plugin.ttl> .\n");
            QFile data(bundle + QStringLiteral("plugin.ttl"));
            data.open(QIODevice::WriteOnly);
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
        qputenv("LV2_PATH", QFile::encodeName(plugins));
    }
};

Installation &installation()
{
    static Installation installed;
    return installed;
}

void BM_FirstValidation(benchmark::State &state)
{
    const QString path = QKAUManager(QStringLiteral("bench")).databasePath();
    for (auto _ : state) {
        QFile::remove(path);
        QKAUManager manager(QStringLiteral("bench"));
        manager.validate();
        benchmark::DoNotOptimize(manager.database().size());
    }
}

void BM_CachedRevalidation(benchmark::State &state)
{
    QKAUManager(QStringLiteral("bench")).validate();
    for (auto _ : state) {
        QKAUManager manager(QStringLiteral("bench"));
        manager.validate();
        benchmark::DoNotOptimize(manager.database().size());
    }
}

void BM_CachedRevalidationLoadingTheWorld(benchmark::State &state)
{
    QKAUManager(QStringLiteral("bench")).validate();
    const QByteArray folder = QFile::encodeName(installation().plugins);
    time_t stamp = 1000000000;
    for (auto _ : state) {
        // A new modification date of the folder makes the host load its world again.
        const utimbuf times{stamp, stamp};
        ++stamp;
        ::utime(folder.constData(), &times);
        QKAUManager manager(QStringLiteral("bench"));
        manager.validate();
        benchmark::DoNotOptimize(manager.database().size());
    }
}

} // namespace

BENCHMARK(BM_FirstValidation)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CachedRevalidation)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CachedRevalidationLoadingTheWorld)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    installation();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
