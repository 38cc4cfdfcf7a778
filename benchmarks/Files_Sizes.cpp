// Size and speed texts per second, against straightforward formatting through the general
// printf machinery (QString::asprintf and the library's own vkFormat). A table of a million
// rows needs a million calls; items_per_second gives the rate and the ratio.
#include "Files/VKFileSize.h"
#include "Foundation/VKFormat.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

// Byte counts of every magnitude, as a copy log or a file table holds them.
const std::vector<quint64> &counts()
{
    static const std::vector<quint64> values = [] {
        std::mt19937_64 random(42);
        std::vector<quint64> list(4096);
        for (quint64 &value : list) {
            const quint64 bits = random();
            value = bits >> (bits % 64);
        }
        return list;
    }();
    return values;
}

const char *const kUnits[] = {"KB", "MB", "GB", "TB", "PB", "EB", "ZB", "YB"};

double scaled(quint64 bytes, int &unit)
{
    double value = static_cast<double>(bytes) / 1000.0;
    unit = 0;
    while (value >= 1000.0 && unit < 7) {
        value /= 1000.0;
        ++unit;
    }
    return value;
}

QString referenceSizeAsprintf(quint64 bytes)
{
    int unit = 0;
    const double value = scaled(bytes, unit);
    return QString::asprintf("%.1f %s", value, kUnits[unit]);
}

QString referenceSizeVkFormat(quint64 bytes)
{
    int unit = 0;
    const double value = scaled(bytes, unit);
    return vkFormat(QStringLiteral("%.1f %@"), value, QString::fromLatin1(kUnits[unit]));
}

template <typename Format>
void run(benchmark::State &state, Format format)
{
    const std::vector<quint64> &values = counts();
    size_t i = 0;
    for (auto _ : state) {
        QString text = format(values[i]);
        benchmark::DoNotOptimize(text);
        i = (i + 1) % values.size();
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_SizeText(benchmark::State &state)
{
    run(state, VKFileSize::humanReadableFileSizeStringFromByteCount);
}

void BM_SizeText_ReferenceAsprintf(benchmark::State &state)
{
    run(state, referenceSizeAsprintf);
}

void BM_SizeText_ReferenceVkFormat(benchmark::State &state)
{
    run(state, referenceSizeVkFormat);
}

void BM_SpeedText(benchmark::State &state)
{
    run(state, VKFileSize::humanReadableCopySpeedStringFromBytesPerSecond);
}

void BM_SpeedText_ReferenceAsprintf(benchmark::State &state)
{
    run(state,
        [](quint64 bytes) { return QStringLiteral("%1/s").arg(referenceSizeAsprintf(bytes)); });
}

void BM_SpeedText_ReferenceVkFormat(benchmark::State &state)
{
    run(state, [](quint64 bytes) {
        return vkFormat(QStringLiteral("%@/s"), referenceSizeVkFormat(bytes));
    });
}

void BM_ParseSpeedText(benchmark::State &state)
{
    std::vector<QString> texts;
    for (quint64 value : counts())
        texts.push_back(VKFileSize::humanReadableCopySpeedStringFromBytesPerSecond(value));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(VKFileSize::byteCountFromHumanReadableFileSizeString(texts[i]));
        i = (i + 1) % texts.size();
    }
    state.SetItemsProcessed(state.iterations());
}

// A million-row column filled in one go, ours against the asprintf reference.
void BM_MillionRowColumn(benchmark::State &state)
{
    const bool reference = state.range(0) != 0;
    const std::vector<quint64> &values = counts();
    for (auto _ : state) {
        std::vector<QString> column;
        column.reserve(1000000);
        for (size_t row = 0; row < 1000000; ++row) {
            const quint64 bytes = values[row % values.size()];
            column.push_back(reference
                                 ? referenceSizeAsprintf(bytes)
                                 : VKFileSize::humanReadableFileSizeStringFromByteCount(bytes));
        }
        benchmark::DoNotOptimize(column.data());
    }
    state.SetLabel(reference ? "asprintf reference" : "VKFileSize");
    state.SetItemsProcessed(state.iterations() * 1000000);
}

} // namespace

BENCHMARK(BM_SizeText);
BENCHMARK(BM_SizeText_ReferenceAsprintf);
BENCHMARK(BM_SizeText_ReferenceVkFormat);
BENCHMARK(BM_SpeedText);
BENCHMARK(BM_SpeedText_ReferenceAsprintf);
BENCHMARK(BM_SpeedText_ReferenceVkFormat);
BENCHMARK(BM_ParseSpeedText);
BENCHMARK(BM_MillionRowColumn)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
