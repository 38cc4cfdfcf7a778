#include "Foundation/VKAttributedString.h"
#include "Timecode/VKCalc.h"
#include "Timecode/VKTimecode.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

namespace {

// A calculator at a code.
struct Calc
{
    explicit Calc(VKFrameRateCode code = VDCalc25fps) { calc.setFps(code); }
    VKCalc calc;
};


} // namespace

TEST(VKCalcGrammar, GroupsNamesAndHandlers)
{
    // Every group of the grammar, named or not, by number: 30 in all, the history groups within
    // the engine's limit of 31.
    const QMap<int, QString> pt = {{1, "tss"},    {3, "tss1"},  {5, "tss2"},  {8, "tss1"},
                                   {10, "tss2"},  {12, "tsm"},  {14, "tsm1"}, {15, "tsm2"},
                                   {16, "tsm2"},  {18, "tsm2"}, {19, "tsm3"}, {20, "zm"},
                                   {21, "zm1"},   {22, "zm2"},  {23, "ts"},   {25, "ts2PT"},
                                   {28, "ts1PT"}, {29, "z"},    {30, "z2"}};
    EXPECT_EQ(VKCalc::grammarGroupCount(true), 30);
    EXPECT_EQ(VKCalc::grammarGroupCount(false), 30);
    EXPECT_EQ(VKCalc::grammarGroupNames(true), pt);
    QMap<int, QString> pf = pt;
    pf[25] = "ts2PF";
    pf[28] = "ts1PF";
    EXPECT_EQ(VKCalc::grammarGroupNames(false), pf);
    EXPECT_EQ(VKCalc::calcRegexPF(), QString(VKCalc::calcRegexPT()).replace("PT>", "PF>"));

    // Every recorded name of either mode but the alternatives' own names has a handler; zs1 and
    // zs2 are the only handlers no group records.
    EXPECT_EQ(VKCalc::reductionHandlerNames(),
              QStringList({"ts1PF", "ts1PT", "ts2PF", "ts2PT", "tsm1", "tsm2", "tsm3", "tss1", "tss2",
                           "z2", "zm1", "zm2", "zs1", "zs2"}));
}

TEST(VKCalcEvaluation, StrictAndLaxResultsAt25)
{
    const std::optional<double> none;
    // clang-format off
    const struct { const char *text; std::optional<double> strict, lax; } cases[] = {
        {"01:00:00.00+00:00:01.00", 90025, 90025}, {"00:00:10.00*2", 500, 500},
        {"2*3*00:00:01.00", 150, 150}, {"00:00:10.00/4", 62.5, 62.5},
        {"01:00:00.00 + 12", 90012, 90012}, // a bare number counts frames
        {"00:00:01.00+2*3", 31, 31}, {"2.", 2, 2},
        {"10-2-3", 5, 5}, // left associative
        {"100/5/2", 10, 10},
        {"2*3+4*5", 26, 26}, // precedence
        {"0100", 25, 25},    // short timestamp
        {"50|25", 50, 50}, {"48|24", 50, 50}, {"1:30", 2250, 2250}, {":05", 125, 125},
        {"0001:00", 1500, 1500}, // leading zeros before a clock
        {"10.12", 10.12, 10.12}, // no colon: a plain number
        {"((1+2)*(3+4))*00:00:00.01", 21, 21},
        // White space only where numbers, timestamps and a group in timestamp position take it.
        {"  01:00:00.00\t+\n12  ", 90012, 90012}, {" ( 00:00:01.00 ) * 2", 50, 50},
        {"2*(1+1) ", 4, 4}, {"(1+1)/ 2", 1, 1}, {"\u3000" "12", 12, 12},
        {"00:00:01.00*(1+1)*2", 100, 100},
        {"00:00:01.00*(1+1) *2", none, 50}, // a group in number position takes none
        {"00:00:01.00/(2) +1", none, 12.5},
        {"(2+3) *00:00:01.00", none, 5}, // the first match is "(2+3) "
        {"0100 |25", none, 25},
        // Not in the grammar at all.
        {"00:00:01.00*00:00:01.00", none, 25}, {"2/00:00:01.00", none, 2},
        {"0.5", none, 5}, // no number starts with 0
        {"-5", none, 5},  // no unary minus
        {"+00:00:01.00", none, 25}, {"1+", none, 1}, {"01:00:00.00+", none, 90000},
        {"01:00:00.00|59d", none, 90000}, // 50, 59d, 59n and 60 are no suffixes
        {"00:00:01.00|60", none, 25},
        {"00:00:01|25", none, 25}, // a suffix only after frames
        {"5|25", none, 5},         // a frame count has two digits
        {"00:00:01,05", none, 25}, // frames only after a full stop
        {"1:2:3:4", none, 93075}, {"1 :00", none, 1}, {"x7y", none, 7}, {"abc", none, none},
        {"", none, none},
    };
    // clang-format on
    Calc c;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(c.calc.evalPTToFrames(row.text), row.strict);
        EXPECT_EQ(c.calc.lazyevalPTToFrames(row.text), row.lax);
        EXPECT_EQ(c.calc.evalPT(row.text, VDCalcTime).isNull(), !row.strict);
        if (!QByteArray(row.text).contains('|')) {
            EXPECT_EQ(c.calc.evalPFToFrames(row.text), row.strict);
        }
    }
}

TEST(VKCalcEvaluation, RateSuffixesInBothModes)
{
    // Every suffix at a non-drop (25) and a drop (29.97 drop) calculator rate.
    const double r23 = 23.97000000000166;
    // clang-format off
    const struct { const char *text; double pt25, pf25, pt29d, pf29d; } rows[] = {
        {"00:00:01.00|24", 25, 24, VKCalc::realFCfrom29dropFC(30), 24},
        {"01:00:00.00|24", 90000, 86400, VKCalc::realFCfrom29dropFC(108000), 86400},
        {"00:01:00.00|24", 1500, 1440, VKCalc::realFCfrom29dropFC(1440 * 30.0 / 24), 1440},
        {"00:01:00.00|25", 1500, 1500, VKCalc::realFCfrom29dropFC(1500 * 30.0 / 25), 1500},
        {"00:01:00.00|30", 1500, 1800, VKCalc::realFCfrom29dropFC(1800), 1800},
        {"00:01:00.02|23d", VKCalc::realFCfrom23dropFC(1442) * 25 / r23, 1440,
         VKCalc::realFCfrom29dropFC(VKCalc::dropFCfrom29realFC(1440 * 29.97 / r23)), 1440},
        {"00:01:00.02|29d", 1800 * 25 / 29.97, 1800, 1800, 1800},
        {"00:01:00.00|23n", 1440 * 25 / r23, 1440, VKCalc::realFCfrom29dropFC(1440 * 30 / r23), 1440},
        {"00:01:00.00|29n", 1800 * 25 / 29.97, 1800, VKCalc::realFCfrom29dropFC(1800 * 30 / 29.97), 1800},
        {"01000000|25", 90000, 90000, VKCalc::realFCfrom29dropFC(108000), 90000},
    };
    // clang-format on
    Calc at25;
    Calc drop(VDCalc29drop);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_DOUBLE_EQ(*at25.calc.evalPTToFrames(row.text), row.pt25);
        EXPECT_DOUBLE_EQ(*at25.calc.evalPFToFrames(row.text), row.pf25);
        EXPECT_DOUBLE_EQ(*drop.calc.evalPTToFrames(row.text), row.pt29d);
        EXPECT_DOUBLE_EQ(*drop.calc.evalPFToFrames(row.text), row.pf29d);
    }
}

TEST(VKCalcDisplay, BoundsAreExclusiveAndUseTheNarrowedFloat)
{
    enum Kind { Strict, Lax };
    const VKDisplayMode frames = VKDisplayMode(5);
    // clang-format off
    const struct { Kind kind; const char *text; VKDisplayMode mode; const char *shown; } cases[] = {
        // Clock: ±86400750 lies between the floats 86400744 and 86400752.
        {Strict, "86400744", VDCalcTime, "960:00:29.19"},
        {Strict, "86400748", VDCalcTime, "∞"}, // rounds to 86400752
        {Strict, "1-86400745", VDCalcTime, "-960:00:29.19"},
        {Strict, "1-86400753", VDCalcTime, "-∞"},
        {Strict, "86400744", VDCalcDiskSpace, "960:00:29.19"},
        {Strict, "1-86400753", VDCalcDiskSpace, "-∞"},
        // Film: 52000000 and -5200004, not mirrored.
        {Strict, "52", VDCalcFilmLength, "1.00 m"},
        {Strict, "52000001", VDCalcFilmLength, "999999.00 m"}, // narrowed onto the bound
        {Strict, "52000004", VDCalcFilmLength, "∞"},
        {Strict, "1-5200001", VDCalcFilmLength, "-99999.90 m"},
        {Strict, "1-5200005", VDCalcFilmLength, "-99999.98 m"}, // equal to the bound
        {Strict, "1-5200006", VDCalcFilmLength, "-∞"},
        // Frame counts: strict 999999999 (1e9 as a float is beyond), lax 9999999999.
        {Strict, "999999936", frames, "999999936"}, {Strict, "999999999", frames, "∞"},
        {Strict, "1-999999936", frames, "-999999936"}, {Strict, "1-999999999", frames, "-∞"},
        {Lax, "999999999", frames, "1000000000"}, {Lax, "9999998976", frames, "9999998976"},
        {Lax, "9999999999", frames, "∞"}, {Lax, "1-9999998976", frames, "-9999998976"},
        {Lax, "1-9999999999", frames, "-∞"},
        {Strict, "16777217", frames, "16777216"}, // above 2^24: the nearest float
        // Division by zero and undefined results.
        {Strict, "00:00:01.00/(1-1)", VDCalcTime, "∞"},
        {Strict, "00:00:01.00*(1-2)/(1-1)", VDCalcTime, "-∞"},
        {Strict, "1/(1-1)", VKCalcFrameCount, "∞"}, {Strict, "(1-1)/(1-1)", VDCalcTime, "nan"},
        {Strict, "(1-1)/(1-1)", VDCalcFilmLength, "nan m"}, {Lax, "(1-1)/(1-1)", frames, "nan"},
    };
    // clang-format on
    for (const auto &row : cases) {
        Calc c;
        EXPECT_EQ(row.kind == Strict ? c.calc.evalPT(row.text, row.mode)
                                     : c.calc.lazyevalPF(row.text, row.mode),
                  QString::fromUtf8(row.shown))
            << row.text << " in mode " << row.mode;
    }
    Calc c;
    EXPECT_EQ(c.calc.evalPTToFrames("00:00:01.00/(1-1)"), INFINITY);
    EXPECT_EQ(c.calc.evalPTToFrames("(1-2)*00:00:01.00/(1-1)"), std::nullopt);
    EXPECT_EQ(c.calc.evalPT("16777219", VDCalcTime), c.calc.stringFromFramecount(16777220));
}

TEST(VKCalcDisplay, CachedResultsChangeOnlyThroughTheirOwnDisplay)
{
    Calc c;
    EXPECT_EQ(c.calc.cachedResultPT(), 0.0f);
    EXPECT_EQ(c.calc.evalPT("25", VDCalcTime), "00:00:01.00");
    EXPECT_EQ(c.calc.cachedResultPT(), 25.0f);
    EXPECT_EQ(c.calc.cachedResultPF(), 0.0f);
    EXPECT_TRUE(c.calc.evalPT("bad", VDCalcTime).isNull());
    EXPECT_EQ(c.calc.cachedResultPT(), 25.0f);
    EXPECT_EQ(c.calc.lazyevalPF("x00:00:02.00|24y", VDCalcTime), "00:00:01.23");
    EXPECT_EQ(c.calc.cachedResultPF(), 48.0f);
    (void)c.calc.evalPTToFrames("99"); // evaluation without display leaves the cache
    EXPECT_EQ(c.calc.cachedResultPT(), 25.0f);
    EXPECT_EQ(c.calc.evalPF("00:00:01.00|30", VDCalcFilmLength), "0.58 m");
    EXPECT_EQ(c.calc.cachedResultPF(), 30.0f);
    EXPECT_TRUE(std::isnan(*c.calc.evaluateToFrames("(1-1)/(1-1)", VKCalcLazyEvaluation)));
    EXPECT_EQ(c.calc.cachedResultPF(), 30.0f);
}

TEST(VKCalcStack, WalkLeavesTheStackAsItFoundItAndHandlersPopRightFirst)
{
    Calc c;
    c.calc.push(QStringLiteral(" 12.5 "));
    c.calc.push(7.0);
    EXPECT_EQ(c.calc.evalPTToFrames("(1+2)*00:00:01.00-3"), 72.0);
    EXPECT_EQ(c.calc.stackDepth(), 2);
    EXPECT_EQ(c.calc.pop(), QVariant(7.0));
    EXPECT_EQ(VKCalc::numericValue(c.calc.pop()), 12.5);
    EXPECT_FALSE(c.calc.pop().isValid());
    // A text is read as C reads a leading number, with digits of any script.
    // clang-format off
    const struct { const char16_t *text; double value; } texts[] = {
        {u"x1", 0}, {u"\t-3e2z", -300}, {u"+4.5e+1", 45}, {u"+x", 0}, {u"\u0663.5", 3.5},
        {u"1e", 1}, {u".5", 0.5}, {u".", 0},
    };
    // clang-format on
    for (const auto &t : texts)
        EXPECT_EQ(VKCalc::numericValue(QString::fromUtf16(t.text)), t.value)
            << QString::fromUtf16(t.text).toStdString();

    // Each handler pops the right operand, then the left (a text read as a number), and pushes
    // the result; an empty stack reads as 0. zs1 and zs2 are called directly: no group of the
    // grammar records them.
    // clang-format off
    const struct { const char *name; void (VKCalc::*handler)(const VKCalcCapture &); double result; } handlers[] = {
        {"tss1", &VKCalc::reduce_tss1, 7},   {"tss2", &VKCalc::reduce_tss2, 3},
        {"tsm1", &VKCalc::reduce_tsm1, 10},  {"tsm2", &VKCalc::reduce_tsm2, 10},
        {"tsm3", &VKCalc::reduce_tsm3, 2.5}, {"zm1", &VKCalc::reduce_zm1, 10},
        {"zm2", &VKCalc::reduce_zm2, 2.5},   {"zs1", &VKCalc::reduce_zs1, 7},
        {"zs2", &VKCalc::reduce_zs2, 3},
    };
    // clang-format on
    for (const auto &h : handlers) {
        c.calc.push(QStringLiteral("5"));
        c.calc.push(2.0);
        (c.calc.*h.handler)({});
        EXPECT_EQ(c.calc.pop(), QVariant(h.result)) << h.name;
        EXPECT_EQ(c.calc.stackDepth(), 0) << h.name;
    }
    c.calc.reduce_tss2({});
    EXPECT_EQ(c.calc.pop(), QVariant(0.0));
}

TEST(VKCalcGrammar, KeptAndPerCallGrammarsGiveTheSameResults)
{
    Calc kept;
    Calc fresh;
    fresh.calc.setKeepsCompiledGrammar(false);
    for (const char *text : {"01:00:00.00+00:00:01.00", "(2+3) *00:00:01.00", "0.5",
                             "00:00:01.00|29d-0100|23d", "1:30:00*2/3", "x 5 y"}) {
        for (int options = 0; options < 4; ++options) // strict or lax, preserving time or not
            EXPECT_EQ(kept.calc.evaluateToFrames(text, VKCalcEvaluationOptions::fromInt(options)),
                      fresh.calc.evaluateToFrames(text, VKCalcEvaluationOptions::fromInt(options)))
                << text << " " << options;
    }
    const VKAttributedString typed(QStringLiteral("01:00:00.00+"));
    EXPECT_EQ(kept.calc.colorizeLazyEvaluatedString(typed),
              fresh.calc.colorizeLazyEvaluatedString(typed));
}

TEST(VKCalcThreads, OwnCalculatorsTheSharedOneAndTimecodesAtTheirOwnRates)
{
    // Own calculators share the kept grammar; one shared calculator is safe for strict
    // frame-preserving evaluation; timecodes from text at different rates go through the
    // library's one calculator and must not take each other's rate.
    VKCalc shared;
    shared.setFps(VDCalc25fps);
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    const float rates[] = {24.0f, 25.0f, 30.0f, 29.97f};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &shared, &failures, &rates] {
            VKCalc own;
            own.setFps(t % 2 ? VDCalc25fps : VDCalc30fps);
            const double second = t % 2 ? 25 : 30;
            for (int i = 0; i < 300; ++i) {
                if (own.evalPTToFrames(QStringLiteral("00:00:01.00*%1+1").arg(i + 1)) !=
                    second * (i + 1) + 1)
                    ++failures;
                const int n = 10 + t * 1000 + i;
                if (shared.evalPFToFrames(QStringLiteral("%1+00:00:01.00").arg(n)) != n + 25.0)
                    ++failures;
                const VKTimecode tc(QStringLiteral("00:00:02.00+%1").arg(i + 1), rates[t], false);
                if (tc.frame() != (t == 3 ? 60 : qint64(rates[t]) * 2) + i + 1)
                    ++failures;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(shared.stackDepth(), 0);
    EXPECT_EQ(VKTimecode::sharedCalc(), VKTimecode::sharedCalc());
    EXPECT_EQ(VKTimecode::sharedCalc()->stackDepth(), 0);
}
