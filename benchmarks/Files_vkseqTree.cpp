// vkseq -R against a bare recursive opendir/readdir walk that only counts entries, on a tree of
// 1,000,000 empty files in about 1,840 folders: camera cards, CG renders, scans, stills and
// audio stems; mostly 4-digit padding, a third of the sequences with dropped frames, 5% side-car
// files without a frame number. Each iteration runs the walk and then vkseq (a child process,
// output to /dev/null), so both see the same cache and machine load; the best of each gives the
// ratio. vkseq's peak resident memory is read for the whole tree and for one of its four top
// folders, to show that it does not grow with the tree.
//
// Environment:
//   VKSEQ          the vkseq to run (default: tools/vkseq/vkseq next to this build's benchmarks)
//   VKSEQ_TREE     a folder for the tree that is kept: built when missing, reused when present
//                  (default: a temporary folder, removed at the end)
//   VKSEQ_FILES    the number of files (default 1000000)
//   VKSEQ_OUTPUT   where vkseq writes its listing in the last iteration (default /dev/null)
//   VKSEQ_BEFORE   another vkseq (say, the build before a change), run in each iteration as well
//                  and compared against the same walk
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

namespace fs = std::filesystem;

std::string environment(const char *name, const std::string &fallback = {})
{
    const char *value = std::getenv(name);
    return value && *value ? std::string(value) : fallback;
}

// --- The tree ---

std::string format(const char *pattern, auto... values)
{
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, pattern, values...);
    return buffer;
}

// Side-car names hold no digit: letters stand in for a counter.
std::string letters(unsigned value)
{
    std::string s;
    do {
        s.insert(s.begin(), char('a' + value % 26));
        value /= 26;
    } while (value);
    return s;
}

void touch(const std::string &path)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        std::perror(path.c_str());
        std::exit(1);
    }
    ::close(fd);
}

// Writes `files` files under `root`; answers the number of leaf folders.
int buildTree(const std::string &root, long files)
{
    constexpr int leafFolders = 1840;
    std::mt19937 random(20240601);
    const char *sidecars[] = {"notes.txt", "metadata.xml", "Thumbs.db", "README",
                              "clip.mov",  "report.pdf",   "LUT.cube",  "checksum.sha"};
    long written = 0;
    for (int leaf = 0; leaf < leafFolders; ++leaf) {
        const int kind = leaf % 4;
        std::string folder;
        switch (kind) {
        case 0:
            folder = format("cards/CARD_%c%03d/A%03dC%03d_230601_R%04X", 'A' + leaf % 3, leaf / 40,
                            leaf / 40, leaf % 40, unsigned(random() % 0xFFFF));
            break;
        case 1:
            folder = format("renders/shot_%03d/comp_v%03d", leaf / 12, 1 + leaf % 12);
            break;
        case 2:
            folder = format("scans/reel_%02d/roll_%03d", leaf / 60, leaf % 60);
            break;
        default:
            folder = format("stills_audio/day_%02d/cam_%c_%03d", leaf / 50, 'a' + leaf % 5, leaf);
            break;
        }
        fs::create_directories(root + "/" + folder);
        const long remaining = files - written;
        const int left = leafFolders - leaf;
        long count = left == 1
                         ? remaining
                         : std::min<long>(remaining, remaining / left / 2 +
                                                         long(random() % (remaining / left + 1)));
        const long sidecarCount = count / 20;
        for (long k = 0; k < sidecarCount; ++k) {
            const std::string name = sidecars[k % 8];
            const auto dot = name.find('.');
            touch(root + "/" + folder + "/" + name.substr(0, dot) + "_" + letters(unsigned(k)) +
                  (dot == std::string::npos ? "" : name.substr(dot)));
        }
        long frames = count - sidecarCount;
        for (int s = 0; frames > 0; ++s) {
            const long length = s == 3 ? frames : std::min<long>(frames, 50 + long(random() % 800));
            frames -= length;
            const int padding = random() % 10 < 8 ? 4 : int(5 + random() % 4);
            const bool gaps = random() % 3 == 0;
            std::string base;
            long start = 0;
            switch (kind) {
            case 0:
                base = format("A%03dC%03d_%02d.", leaf / 40, leaf % 40, s);
                start = long(random() % 5000);
                break;
            case 1:
                base = format("shot_%03d_comp_v%03d_layer%d.", leaf / 12, 1 + leaf % 12, s);
                start = 1001;
                break;
            case 2:
                base = format("scan_r%02d_%d_", leaf / 60, s);
                start = 86400 + long(random() % 100000);
                break;
            default:
                base = s % 2 ? format("stem_%02d_dialog_", s) : format("IMG%c_", 'A' + s);
                start = long(random() % 3000);
                break;
            }
            const char *extension = kind == 0   ? ".ari"
                                    : kind == 1 ? ".exr"
                                    : kind == 2 ? ".dpx"
                                    : s % 2     ? ".wav"
                                                : ".JPG";
            long frame = start;
            for (long k = 0; k < length; ++k, ++frame) {
                if (gaps && random() % 50 == 0)
                    frame += 1 + long(random() % 5);
                touch(root + "/" + folder + "/" + base + format("%0*ld", padding, frame) +
                      extension);
            }
        }
        written += count;
    }
    return leafFolders;
}

// --- The floor: a bare walk ---

long bareWalk(const std::string &path)
{
    DIR *dir = ::opendir(path.c_str());
    if (!dir)
        return 0;
    long count = 0;
    while (const dirent *entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.' &&
            (entry->d_name[1] == 0 || (entry->d_name[1] == '.' && entry->d_name[2] == 0)))
            continue;
        ++count;
        if (entry->d_type == DT_DIR)
            count += bareWalk(path + "/" + entry->d_name);
    }
    ::closedir(dir);
    return count;
}

// --- vkseq as a child process ---

struct ChildRun
{
    double seconds = 0;
    double cpuSeconds = 0; // user and system time
    long maxResidentKB = 0;
    int status = -1;
};

ChildRun runTool(const std::string &tool, const std::vector<std::string> &arguments,
                 const std::string &output)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(tool.c_str()));
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);

    ChildRun run;
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawn(&pid, tool.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return run;
    }
    rusage usage{};
    int status = 0;
    while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.maxResidentKB = usage.ru_maxrss;
    run.cpuSeconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    run.status = status;
    posix_spawn_file_actions_destroy(&actions);
    return run;
}

double processCpuSeconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

std::string g_tool;
std::string g_before;
std::string g_tree;

void BM_BareWalkVersusVkseq(benchmark::State &state)
{
    // Wall time is what a user waits for; CPU time (user and system) is what stays meaningful
    // when other work shares the machine.
    double bestWalk = 1e9, bestTool = 1e9, bestWalkCpu = 1e9, bestToolCpu = 1e9;
    double bestBefore = 1e9, bestBeforeCpu = 1e9;
    long entries = 0;
    ChildRun last;
    for (auto _ : state) {
        if (!g_before.empty()) {
            const ChildRun before = runTool(g_before, {"-R", g_tree}, "/dev/null");
            bestBefore = std::min(bestBefore, before.seconds);
            bestBeforeCpu = std::min(bestBeforeCpu, before.cpuSeconds);
        }
        const auto start = std::chrono::steady_clock::now();
        const double startCpu = processCpuSeconds();
        entries = bareWalk(g_tree);
        bestWalkCpu = std::min(bestWalkCpu, processCpuSeconds() - startCpu);
        bestWalk = std::min(
            bestWalk,
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        last = runTool(g_tool, {"-R", g_tree}, "/dev/null");
        if (last.status != 0) {
            state.SkipWithError("vkseq failed");
            return;
        }
        bestTool = std::min(bestTool, last.seconds);
        bestToolCpu = std::min(bestToolCpu, last.cpuSeconds);
        state.SetIterationTime(last.seconds);
    }
    const std::string output = environment("VKSEQ_OUTPUT");
    if (!output.empty())
        runTool(g_tool, {"-R", g_tree}, output);
    // One top folder of four: peak memory should not depend on the size of the tree.
    const ChildRun part = runTool(g_tool, {"-R", g_tree + "/renders"}, "/dev/null");
    state.counters["entries"] = double(entries);
    state.counters["bare_walk_best_s"] = bestWalk;
    state.counters["vkseq_best_s"] = bestTool;
    state.counters["ratio"] = bestTool / bestWalk;
    state.counters["bare_walk_cpu_s"] = bestWalkCpu;
    state.counters["vkseq_cpu_s"] = bestToolCpu;
    state.counters["cpu_ratio"] = bestToolCpu / bestWalkCpu;
    state.counters["vkseq_maxrss_MB"] = double(last.maxResidentKB) / 1024.0;
    state.counters["vkseq_quarter_maxrss_MB"] = double(part.maxResidentKB) / 1024.0;
    std::fprintf(stderr,
                 "bare walk %.3f s (CPU %.3f s), vkseq -R %.3f s (CPU %.3f s), best of %lld: "
                 "ratio %.2f (CPU %.2f); vkseq peak RSS %.1f MB for the tree, %.1f MB for a "
                 "quarter of it\n",
                 bestWalk, bestWalkCpu, bestTool, bestToolCpu, (long long)state.iterations(),
                 bestTool / bestWalk, bestToolCpu / bestWalkCpu,
                 double(last.maxResidentKB) / 1024.0, double(part.maxResidentKB) / 1024.0);
    if (!g_before.empty()) {
        state.counters["before_ratio"] = bestBefore / bestWalk;
        state.counters["before_cpu_ratio"] = bestBeforeCpu / bestWalkCpu;
        std::fprintf(stderr, "before: vkseq -R %.3f s (CPU %.3f s): ratio %.2f (CPU %.2f)\n",
                     bestBefore, bestBeforeCpu, bestBefore / bestWalk, bestBeforeCpu / bestWalkCpu);
    }
}

BENCHMARK(BM_BareWalkVersusVkseq)->Iterations(7)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;

    const fs::path self = fs::read_symlink("/proc/self/exe");
    g_tool =
        environment("VKSEQ", (self.parent_path().parent_path() / "tools/vkseq/vkseq").string());
    if (::access(g_tool.c_str(), X_OK) != 0) {
        std::fprintf(stderr, "no vkseq at %s: build it or set VKSEQ\n", g_tool.c_str());
        return 1;
    }
    g_before = environment("VKSEQ_BEFORE");
    const long files = std::stol(environment("VKSEQ_FILES", "1000000"));
    const std::string kept = environment("VKSEQ_TREE");
    std::string temporary;
    if (kept.empty()) {
        char pattern[] = "/tmp/vkseq_tree_XXXXXX";
        if (!::mkdtemp(pattern)) {
            std::perror("mkdtemp");
            return 1;
        }
        temporary = g_tree = pattern;
    } else {
        g_tree = kept;
    }
    if (!fs::exists(g_tree + "/cards")) {
        const auto start = std::chrono::steady_clock::now();
        std::fprintf(stderr, "building %ld files in %s...\n", files, g_tree.c_str());
        const int folders = buildTree(g_tree, files);
        std::fprintf(
            stderr, "built %d leaf folders in %.1f s\n", folders,
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    bareWalk(g_tree); // warm the cache
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (!temporary.empty())
        fs::remove_all(temporary);
    return 0;
}
