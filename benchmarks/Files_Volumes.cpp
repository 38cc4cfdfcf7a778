// Volume lookups and path shortening at the sizes a copy list reaches.
//  - volumeInfoForPath on the cached table, against what a lookup costs when the table has to
//    be read again (a path on no known volume reloads it).
//  - indexOfComponentInPath against 10,000 rivals, and the shortener's pass over every path of
//    a list, against the one-path-at-a-time rule it replaces (quadratic; run at 1,000 paths).
#include "Files/VKPathShortener.h"
#include "Files/VKVolumeInfoCache.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

QList<std::shared_ptr<VKPath>> makePaths(int count)
{
    static const auto volume = std::make_shared<VKVolumeInfo>(QStringLiteral("/media/CARD_A"),
                                                              QIcon(), QStringLiteral("CARD_A"));
    QList<std::shared_ptr<VKPath>> paths;
    paths.reserve(count);
    for (int i = 0; i < count; ++i) {
        // Cards of 500 clips over 4 days; clip names repeat across cards.
        const QString relative = QStringLiteral("Shoot/Card_%1/Day%2/Clips/C%3.mov")
                                     .arg(i / 500)
                                     .arg(i % 4)
                                     .arg(i % 500, 4, 10, QChar(u'0'));
        paths.append(VKPath::pathWithVolumeInfo(volume, relative, false));
    }
    return paths;
}

VKVolumeInfoCache *cache()
{
    static QTemporaryDir caches;
    static bool once = [] {
        qputenv("XDG_CACHE_HOME", QFile::encodeName(caches.path()));
        return true;
    }();
    (void)once;
    return VKVolumeInfoCache::sharedCache();
}

void BM_VolumeInfoForPath_CachedTable(benchmark::State &state)
{
    VKVolumeInfoCache *shared = cache();
    const QString path = QStringLiteral("/home/ann/Shoot/Card_3/Day2/C0042.mov");
    for (auto _ : state)
        benchmark::DoNotOptimize(shared->volumeInfoForPath(path));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VolumeInfoForPath_CachedTable);

void BM_VolumeInfoForPath_Reference_ReloadEachTime(benchmark::State &state)
{
    VKVolumeInfoCache *shared = cache();
    const QString path = QStringLiteral("/media/NOT_MOUNTED/C0042.mov");
    for (auto _ : state)
        benchmark::DoNotOptimize(shared->volumeInfoForPath(path));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VolumeInfoForPath_Reference_ReloadEachTime);

void BM_IndexOfComponentInPath_10000Rivals(benchmark::State &state)
{
    const QList<std::shared_ptr<VKPath>> paths = makePaths(10001);
    const QList<std::shared_ptr<VKPath>> others = paths.mid(1);
    for (auto _ : state)
        benchmark::DoNotOptimize(VKPathShortener::indexOfComponentInPath(*paths[0], others));
    state.SetItemsProcessed(state.iterations() * others.size());
}
BENCHMARK(BM_IndexOfComponentInPath_10000Rivals)->Unit(benchmark::kMillisecond);

void BM_Shortener_AllPaths(benchmark::State &state)
{
    const QList<std::shared_ptr<VKPath>> paths = makePaths(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const VKPathShortener shortener(paths, false, false, false);
        benchmark::DoNotOptimize(shortener.uniquePathComponentIndices());
    }
    state.SetItemsProcessed(state.iterations() * paths.size());
}
BENCHMARK(BM_Shortener_AllPaths)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_Shortener_Reference_OnePathAtATime(benchmark::State &state)
{
    const QList<std::shared_ptr<VKPath>> paths = makePaths(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        QList<quint64> indices;
        for (const std::shared_ptr<VKPath> &path : paths) {
            QList<std::shared_ptr<VKPath>> others = paths;
            others.removeAll(path);
            indices.append(VKPathShortener::indexOfComponentInPath(*path, others));
        }
        benchmark::DoNotOptimize(indices);
    }
    state.SetItemsProcessed(state.iterations() * paths.size());
}
BENCHMARK(BM_Shortener_Reference_OnePathAtATime)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
