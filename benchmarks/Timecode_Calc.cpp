// The calculator with its grammars kept compiled against the reference that compiles them on
// every evaluation (the ratio is printed at the end; the goal is at least 10x), and the rates
// of the clock writers and the drop-frame conversions.
#include "Timecode/VKCalc.h"
#include "Timecode/VKTimecode.h"

#include <benchmark/benchmark.h>

#include <QStringList>

#include <cstdio>
#include <map>
#include <string>

namespace {

const QStringList &typicalExpressions()
{
    static const QStringList expressions = {
        QStringLiteral("01:00:00.00+00:00:01.00"),
        QStringLiteral("01:30:00.00|25+00:00:01.00|25"),
        QStringLiteral("(2+3)*00:00:01.00"),
        QStringLiteral("00:00:10.00/4"),
        QStringLiteral("01:00:00.00 + 12"),
        QStringLiteral("2*3*00:00:01.00"),
        QStringLiteral("00:00:01.00|29d-0100|23d"),
        QStringLiteral("0100"),
        QStringLiteral("1:30"),
        QStringLiteral("25"),
    };
    return expressions;
}

void evaluateAll(benchmark::State &state, bool keep)
{
    VKCalc calc;
    calc.setFps(VDCalc25fps);
    calc.setKeepsCompiledGrammar(keep);
    const QStringList &expressions = typicalExpressions();
    for (auto _ : state) {
        for (const QString &text : expressions) {
            benchmark::DoNotOptimize(calc.evalPTToFrames(text));
            benchmark::DoNotOptimize(calc.evalPFToFrames(text));
        }
    }
    state.SetItemsProcessed(state.iterations() * expressions.size() * 2);
}

void BM_EvaluateKeptGrammar(benchmark::State &state)
{
    evaluateAll(state, true);
}
BENCHMARK(BM_EvaluateKeptGrammar);

void BM_EvaluateCompilingPerCall(benchmark::State &state)
{
    evaluateAll(state, false);
}
BENCHMARK(BM_EvaluateCompilingPerCall);

void BM_StringFromFramecount(benchmark::State &state)
{
    VKCalc calc;
    calc.setFps(VDCalc29drop);
    double n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(calc.stringFromFramecount(n));
        n += 997;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StringFromFramecount);

void BM_TimecodeString(benchmark::State &state)
{
    VKTimecode timecode(0, 25, false);
    for (auto _ : state) {
        benchmark::DoNotOptimize(timecode.timecodeString());
        timecode.setFrame(timecode.frame() + 997);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimecodeString);

void BM_DropFrameConversions(benchmark::State &state)
{
    double n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(VKCalc::dropFCfrom29realFC(n));
        benchmark::DoNotOptimize(VKCalc::realFCfrom29dropFC(n));
        benchmark::DoNotOptimize(VKCalc::dropFCfrom23realFC(n));
        benchmark::DoNotOptimize(VKCalc::realFCfrom23dropFC(n));
        n += 13;
    }
    state.SetItemsProcessed(state.iterations() * 4);
}
BENCHMARK(BM_DropFrameConversions);

// Prints as usual and keeps each benchmark's time per iteration for the ratio.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            times[run.benchmark_name()] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto kept = reporter.times.find("BM_EvaluateKeptGrammar");
    const auto fresh = reporter.times.find("BM_EvaluateCompilingPerCall");
    if (kept != reporter.times.end() && fresh != reporter.times.end() && kept->second > 0) {
        const double ratio = fresh->second / kept->second;
        std::printf("kept grammar is %.1fx faster than compiling per call (goal: 10x) -> %s\n",
                    ratio, ratio >= 10 ? "met" : "NOT met");
    }
    benchmark::Shutdown();
    return 0;
}
