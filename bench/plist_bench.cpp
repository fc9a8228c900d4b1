// Reading and writing a plug-in catalogue sized property list (about 1 MB as XML), the
// largest kind of file the library keeps.

#include "QKPropertyList.h"

#include <QDateTime>
#include <QTimeZone>

#include <benchmark/benchmark.h>

namespace {

constexpr int entryCount = 2000;

// Thousands of catalogue entries: strings, numbers, flags, a date and a small description.
QVariantList catalogue()
{
    static const QVariantList entries = [] {
        QVariantList list;
        const QDateTime start(QDate(2023, 1, 1), QTime(0, 0), QTimeZone::utc());
        for (int i = 0; i < entryCount; ++i) {
            QByteArray description(20, '\0');
            for (int b = 0; b < 20; ++b)
                description[b] = char((i * 31 + b * 7) & 0xff);
            list << QVariantMap{
                {QStringLiteral("componentDescription"), description},
                {QStringLiteral("computerCode"), QStringLiteral("4f1c2a9e0b7d4e8f9a6b3c2d1e0f%1")
                                                     .arg(i % 97, 4, 10, QLatin1Char('0'))},
                {QStringLiteral("name"), QStringLiteral("Spectral Delay %1 (Stereo)").arg(i)},
                {QStringLiteral("manufacturer"), QStringLiteral("Maker № %1").arg(i % 40)},
                {QStringLiteral("version"), qint64(0x10000 + i)},
                {QStringLiteral("gain"), -6.0 + i * 0.001},
                {QStringLiteral("validated"), start.addSecs(qint64(i) * 3607)},
                {QStringLiteral("supportsMonoInput"), i % 2 == 0},
                {QStringLiteral("supportsStereoOutput"), true},
                {QStringLiteral("ignore"), i % 50 == 0},
            };
        }
        return list;
    }();
    return entries;
}

void write(benchmark::State &state, QKPropertyList::Format format)
{
    const QVariantList tree = catalogue();
    qsizetype bytes = 0;
    for (auto _ : state) {
        const QByteArray data = QKPropertyList::toData(tree, format);
        bytes = data.size();
        benchmark::DoNotOptimize(data.constData());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * bytes);
    state.counters["size_kB"] = double(bytes) / 1024;
}

void read(benchmark::State &state, QKPropertyList::Format format)
{
    const QByteArray data = QKPropertyList::toData(catalogue(), format);
    for (auto _ : state) {
        const QVariant tree = QKPropertyList::fromData(data);
        if (tree.toList().size() != entryCount)
            state.SkipWithError("the property list did not read back");
        benchmark::DoNotOptimize(tree.constData());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * data.size());
    state.counters["size_kB"] = double(data.size()) / 1024;
}

void writeXml(benchmark::State &state)
{
    write(state, QKPropertyList::Format::Xml);
}
void writeBinary(benchmark::State &state)
{
    write(state, QKPropertyList::Format::Binary);
}
void readXml(benchmark::State &state)
{
    read(state, QKPropertyList::Format::Xml);
}
void readBinary(benchmark::State &state)
{
    read(state, QKPropertyList::Format::Binary);
}

} // namespace

BENCHMARK(writeXml)->Unit(benchmark::kMillisecond);
BENCHMARK(writeBinary)->Unit(benchmark::kMillisecond);
BENCHMARK(readXml)->Unit(benchmark::kMillisecond);
BENCHMARK(readBinary)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
