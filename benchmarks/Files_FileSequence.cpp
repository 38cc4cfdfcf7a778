// Grouping of camera-card and render-folder listings into file sequences, at 10,000, 100,000
// and 1,000,000 paths: paths per second and the peak heap used on top of the input. At the end,
// the growth from 100,000 to 1,000,000 paths of every grouping measured at both sizes, as the
// ratio of their times, for each repetition (--benchmark_repetitions) with the console output.
//
// The reference is the straightforward grouping: a numeric comparison that cuts the digit runs
// out of both strings on every comparison, and a walk that works out frame number, prefix and
// postfix again through string copies for every step (and twice for the path that ends a run).
// It runs where it finishes in reasonable time; its result is checked against the library's at
// startup so that both measure the same work.
#include "Files/VKFileSequence.h"
#include "Foundation/VKNumericStringCompare.h"
#include "Foundation/VKPathString.h"
#include "Foundation/VKStringRanges.h"

#include <benchmark/benchmark.h>

#include <QStringList>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

// --- Heap accounting ---
// Every allocation of the process (Qt's string data included) goes through these replacements
// of the C allocator, which keep the bytes in use and their high-water mark.

extern "C" {
void *__libc_malloc(size_t size);
void __libc_free(void *pointer);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *pointer, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<long long> heapInUse{0};
std::atomic<long long> heapPeak{0};

void account(long long delta)
{
    const long long now = heapInUse.fetch_add(delta, std::memory_order_relaxed) + delta;
    long long peak = heapPeak.load(std::memory_order_relaxed);
    while (now > peak && !heapPeak.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
    }
}

long long usable(void *pointer)
{
    return pointer ? (long long)malloc_usable_size(pointer) : 0;
}

} // namespace

extern "C" {
void *malloc(size_t size)
{
    void *p = __libc_malloc(size);
    account(usable(p));
    return p;
}
void free(void *pointer)
{
    account(-usable(pointer));
    __libc_free(pointer);
}
void *calloc(size_t count, size_t size)
{
    void *p = __libc_calloc(count, size);
    account(usable(p));
    return p;
}
void *realloc(void *pointer, size_t size)
{
    const long long before = usable(pointer);
    void *p = __libc_realloc(pointer, size);
    if (p)
        account(usable(p) - before);
    else if (size == 0)
        account(-before);
    return p;
}
void *memalign(size_t alignment, size_t size)
{
    void *p = __libc_memalign(alignment, size);
    account(usable(p));
    return p;
}
void *aligned_alloc(size_t alignment, size_t size)
{
    return memalign(alignment, size);
}
int posix_memalign(void **out, size_t alignment, size_t size)
{
    void *p = memalign(alignment, size);
    if (!p)
        return ENOMEM;
    *out = p;
    return 0;
}
void *valloc(size_t size)
{
    return memalign(size_t(sysconf(_SC_PAGESIZE)), size);
}
void *pvalloc(size_t size)
{
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    return memalign(page, (size + page - 1) / page * page);
}
}

namespace {

// --- Listings ---

// A realistic mix: camera cards and render folders, several sequences per folder with paddings
// from 4 to 7 and several extensions, dropped frames, names that only differ in case or
// extension, and files without digits (sidecars, notes). In listing order, folders come one after
// the other and the names inside a folder in no particular order; the shuffled order mixes the
// whole list, as when listings of several sources are merged. Either way the strings are
// allocated in the order of the list, as when it is read.
enum class Order { Listing, Shuffled };

QStringList generatePaths(qsizetype count, Order order)
{
    std::mt19937 random(20240601);
    const QStringList extensions = {".dpx", ".exr", ".tif", ".ari", ".dng", ".DPX"};
    const QStringList loose = {"notes.txt", "Thumbs.db", "metadata.xml", "README", "clip.mov",
                               ".DS_Store"};
    QStringList paths;
    paths.reserve(count);
    QList<qsizetype> folderStarts;
    int folderNumber = 0;
    while (paths.size() < count) {
        ++folderNumber;
        folderStarts.append(paths.size());
        const QString folder = QStringLiteral("/Volumes/CARD_%1/A%2_C%3_REEL/")
                                   .arg(folderNumber % 40, 2, 10, QLatin1Char('0'))
                                   .arg(folderNumber % 997, 3, 10, QLatin1Char('0'))
                                   .arg(folderNumber, 4, 10, QLatin1Char('0'));
        const int sequences = 1 + int(random() % 4);
        for (int s = 0; s < sequences; ++s) {
            const QString name = QStringLiteral("A%1C%2_%3_v%4.")
                                     .arg(folderNumber % 997, 3, 10, QLatin1Char('0'))
                                     .arg(s + 1, 3, 10, QLatin1Char('0'))
                                     .arg(s % 2 ? "grade" : "plate")
                                     .arg(1 + random() % 3);
            const QString extension = extensions[random() % extensions.size()];
            const int padding = 4 + int(random() % 4);
            const int start = int(random() % 86400);
            const int length = 20 + int(random() % 2000);
            for (int f = start; f < start + length; ++f) {
                if (random() % 100 == 0)
                    continue; // a dropped frame
                paths.append(folder + name
                             + QString::number(f).rightJustified(padding, QLatin1Char('0'))
                             + extension);
            }
        }
        for (int k = int(random() % 3); k > 0; --k)
            paths.append(folder + loose[random() % loose.size()]);
    }
    paths.resize(count);
    folderStarts.append(count);
    for (qsizetype f = 0; f + 1 < folderStarts.size(); ++f)
        std::shuffle(paths.begin() + std::min(folderStarts[f], count),
                     paths.begin() + std::min(folderStarts[f + 1], count), random);
    if (order == Order::Shuffled)
        std::shuffle(paths.begin(), paths.end(), random);
    QStringList copied;
    copied.reserve(count);
    for (const QString &path : paths)
        copied.append(QString(path.constData(), path.size()));
    return copied;
}

const QStringList &pathsFor(qsizetype count, Order order = Order::Listing)
{
    static std::map<std::pair<qsizetype, Order>, QStringList> cache;
    auto it = cache.find({count, order});
    if (it == cache.end())
        it = cache.emplace(std::pair{count, order}, generatePaths(count, order)).first;
    return it->second;
}

// --- Reference grouping ---

bool isDigit(QChar c)
{
    return c.isDigit();
}

// Cuts the digit runs out as strings on every call.
int referenceCompare(const QString &a, const QString &b)
{
    qsizetype i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            qsizetype ei = i, ej = j;
            while (ei < a.size() && isDigit(a[ei]))
                ++ei;
            while (ej < b.size() && isDigit(b[ej]))
                ++ej;
            QString ra = a.mid(i, ei - i), rb = b.mid(j, ej - j);
            while (ra.size() > 1 && ra.startsWith(u'0'))
                ra.remove(0, 1);
            while (rb.size() > 1 && rb.startsWith(u'0'))
                rb.remove(0, 1);
            if (ra.size() != rb.size())
                return ra.size() < rb.size() ? -1 : 1;
            if (const int r = ra.compare(rb))
                return r < 0 ? -1 : 1;
            i = ei;
            j = ej;
        } else if (isDigit(a[i])) {
            return b[j].unicode() > u'0' ? -1 : 1;
        } else if (isDigit(b[j])) {
            return a[i].unicode() > u'0' ? 1 : -1;
        } else {
            if (a[i] != b[j])
                return a[i].unicode() < b[j].unicode() ? -1 : 1;
            ++i;
            ++j;
        }
    }
    if (i < a.size() || j < b.size())
        return i == a.size() ? -1 : 1;
    const int r = a.compare(b);
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

qint64 referenceFrame(const QString &path)
{
    const QString name = VKPathString::lastPathComponent(path);
    const QString left =
        VKStringRanges::stringByDeletingSuffix(name, VKStringRanges::nonDecimalDigitSuffix(name));
    const QString digits = VKStringRanges::decimalDigitSuffix(left);
    if (left.isEmpty() || digits.isEmpty())
        return VKNotFound;
    return VKStringRanges::intValue(digits);
}

QString referencePostfix(const QString &path)
{
    return VKStringRanges::nonDecimalDigitSuffix(path);
}

QString referencePrefix(const QString &path)
{
    const QString left =
        VKStringRanges::stringByDeletingSuffix(path, VKStringRanges::nonDecimalDigitSuffix(path));
    return VKStringRanges::stringByDeletingSuffix(left, VKStringRanges::decimalDigitSuffix(left));
}

QList<QStringList> referenceSequences(const QStringList &files)
{
    QStringList sorted = files;
    std::sort(sorted.begin(), sorted.end(),
              [](const QString &a, const QString &b) { return referenceCompare(a, b) < 0; });
    QList<QStringList> runs;
    qsizetype i = 0;
    while (i < sorted.size()) {
        QStringList run;
        bool havePrevious = false;
        qint64 previousFrame = 0;
        QString previousPrefix, previousPostfix;
        for (qsizetype j = i; j < sorted.size(); ++j) {
            const qint64 frame = referenceFrame(sorted[j]);
            const QString prefix = referencePrefix(sorted[j]);
            const QString postfix = referencePostfix(sorted[j]);
            if (frame == VKNotFound)
                break;
            if (havePrevious
                && (frame != previousFrame + 1 || postfix != previousPostfix
                    || prefix != previousPrefix))
                break;
            run.append(sorted[j]);
            havePrevious = true;
            previousFrame = frame;
            previousPrefix = prefix;
            previousPostfix = postfix;
        }
        if (run.isEmpty())
            run.append(sorted[i]);
        i += run.size();
        runs.append(run);
    }
    return runs;
}

// --- Benchmarks ---

template <typename Group>
void measure(benchmark::State &state, Group group, Order order = Order::Listing)
{
    const QStringList &input = pathsFor(state.range(0), order);
    long long peak = 0;
    qsizetype runCount = 0;
    for (auto _ : state) {
        const long long baseline = heapInUse.load();
        heapPeak.store(baseline);
        {
            const QList<QStringList> runs = group(input);
            runCount = runs.size();
            benchmark::DoNotOptimize(runs.constData());
        }
        peak = std::max(peak, heapPeak.load() - baseline);
    }
    state.counters["paths_per_second"] =
        benchmark::Counter(double(input.size()), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["peak_heap_MB"] = double(peak) / 1e6;
    state.counters["peak_bytes_per_path"] = double(peak) / double(input.size());
    state.counters["runs"] = double(runCount);
}

void BM_SequencesWithFiles(benchmark::State &state)
{
    measure(state, [](const QStringList &files) { return VKFileSequence::sequencesWithFiles(files); });
}

void BM_SequencesWithFiles_Shuffled(benchmark::State &state)
{
    measure(
        state, [](const QStringList &files) { return VKFileSequence::sequencesWithFiles(files); },
        Order::Shuffled);
}

void BM_SequencesWithFiles_Reference_Shuffled(benchmark::State &state)
{
    measure(state, referenceSequences, Order::Shuffled);
}

void BM_SequencesWithFiles_Reference(benchmark::State &state)
{
    measure(state, referenceSequences);
}

// The sorting step alone (shuffled), to tell it from the walk.
void BM_NumericSortIndexes(benchmark::State &state)
{
    const QStringList &input = pathsFor(state.range(0), Order::Shuffled);
    for (auto _ : state)
        benchmark::DoNotOptimize(VKNumericStringCompare::sortedIndexes(input).constData());
    state.counters["paths_per_second"] =
        benchmark::Counter(double(input.size()), benchmark::Counter::kIsIterationInvariantRate);
}

BENCHMARK(BM_NumericSortIndexes)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SequencesWithFiles)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SequencesWithFiles_Reference)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SequencesWithFiles_Shuffled)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SequencesWithFiles_Reference_Shuffled)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// The console output, keeping every run's times to print the growth from 100,000 to 1,000,000
// paths at the end. Repetitions pair up in the order they ran.
class GrowthReporter : public benchmark::ConsoleReporter
{
public:
    GrowthReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Color : OO_None) {}

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration)
                m_times[run.run_name.function_name][run.run_name.args].push_back(
                    {run.GetAdjustedCPUTime(), run.GetAdjustedRealTime()});
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printGrowth() const
    {
        for (const auto &[name, bySize] : m_times) {
            const auto small = bySize.find("100000");
            const auto large = bySize.find("1000000");
            if (small == bySize.end() || large == bySize.end())
                continue;
            const std::size_t pairs = std::min(small->second.size(), large->second.size());
            std::printf("%s, 1,000,000 / 100,000 paths:", name.c_str());
            for (std::size_t k = 0; k < pairs; ++k)
                std::printf(" CPU %.2fx wall %.2fx;", large->second[k].first / small->second[k].first,
                            large->second[k].second / small->second[k].second);
            std::printf("\n");
        }
    }

private:
    std::map<std::string, std::map<std::string, std::vector<std::pair<double, double>>>> m_times;
};

// Both variants must answer the same before their speeds mean anything.
bool variantsAgree()
{
    for (Order order : {Order::Listing, Order::Shuffled}) {
        const QStringList &input = pathsFor(10'000, order);
        if (VKFileSequence::sequencesWithFiles(input) != referenceSequences(input))
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (!variantsAgree()) {
        std::fprintf(stderr, "the library and the reference group the paths differently\n");
        return 1;
    }
    // Another output format is left as asked for, without the growth.
    bool console = true;
    for (int k = 1; k < argc; ++k)
        console = console && std::strncmp(argv[k], "--benchmark_format=", 19) != 0;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (console) {
        GrowthReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        reporter.printGrowth();
    } else {
        benchmark::RunSpecifiedBenchmarks();
    }
    benchmark::Shutdown();
    return 0;
}
