// Reading and writing a plug-in catalogue sized property list (about 1 MB as XML), the
// largest kind of file the library keeps, and reading hostile files that must be refused (or,
// for strings full of entity references, read) quickly.

#include "QKPropertyList.h"

#include <QDateTime>
#include <QTimeZone>
#include <QtEndian>

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

// Arrays each holding the next, @p depth deep, as binary with 4-byte references.
QByteArray deepBinary(int depth)
{
    QByteArray data("bplist00");
    QByteArray table;
    const auto ref = [](quint32 index) {
        QByteArray bytes(4, '\0');
        qToBigEndian(index, bytes.data());
        return bytes;
    };
    for (int i = 0; i <= depth; ++i) {
        table += ref(quint32(data.size()));
        data += i < depth ? "\xa1" + ref(quint32(i + 1)) : QByteArray("\xa0");
    }
    QByteArray trailer(32, '\0');
    trailer[6] = trailer[7] = 4;
    qToBigEndian(quint64(depth + 1), trailer.data() + 8);
    qToBigEndian(quint64(data.size()), trailer.data() + 24);
    return data + table + trailer;
}

QByteArray deepXml(int depth)
{
    return "<plist>" + QByteArray("<array>").repeated(depth) +
           QByteArray("</array>").repeated(depth) + "</plist>";
}

void readHostile(benchmark::State &state, const QByteArray &data, bool valid)
{
    for (auto _ : state) {
        const QVariant tree = QKPropertyList::fromData(data);
        if (tree.isValid() != valid)
            state.SkipWithError(valid ? "refused a valid file" : "read a hostile file");
        benchmark::DoNotOptimize(tree.constData());
    }
    state.counters["size_kB"] = double(data.size()) / 1024;
}

void readDeepBinary(benchmark::State &state)
{
    readHostile(state, deepBinary(int(state.range(0))), false);
}
void readDeepXml(benchmark::State &state)
{
    readHostile(state, deepXml(int(state.range(0))), false);
}
// One string of 2,000,000 "&lt;".
void readEntityString(benchmark::State &state)
{
    readHostile(state,
                "<plist><string>" + QByteArray("&lt;").repeated(2000000) + "</string></plist>",
                true);
}
// A defaults file as the library writes it, one value a 1M-character string of "<&>".
void readEntityDefaults(benchmark::State &state)
{
    const QVariantMap defaults{{QStringLiteral("text"), QStringLiteral("<&>").repeated(333334)}};
    readHostile(state, QKPropertyList::toData(defaults), true);
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
BENCHMARK(readDeepBinary)->Arg(20000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(readDeepXml)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(readEntityString)->Unit(benchmark::kMillisecond);
BENCHMARK(readEntityDefaults)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
