#include "Timecode/VKCalc.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <thread>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << (text.isNull() ? std::string("(null)") : '"' + text.toStdString() + '"');
}

namespace {

// A calculator at a code; evaluations in every mode.
struct Calc
{
    explicit Calc(qint32 code = VDCalc25fps) { calc.setFps(code); }
    std::optional<double> pt(const QString &text) { return calc.evalPTToFrames(text); }
    std::optional<double> pf(const QString &text) { return calc.evalPFToFrames(text); }
    std::optional<double> lazyPt(const QString &text) { return calc.lazyevalPTToFrames(text); }
    std::optional<double> lazyPf(const QString &text) { return calc.lazyevalPFToFrames(text); }
    VKCalc calc;
};

} // namespace

TEST(VKCalcGrammar, CompilesToThirtyGroupsInBothModes)
{
    EXPECT_EQ(VKCalc::calcRegexPT().size(), 763);
    QString pf = VKCalc::calcRegexPT();
    pf.replace(QStringLiteral("PT>"), QStringLiteral("PF>"));
    EXPECT_EQ(VKCalc::calcRegexPF(), pf);
    EXPECT_EQ(VKCalc::calcRegexPF().count(QStringLiteral("PF")), 2);
}

TEST(VKCalcEvaluation, SumsProductsAndQuotientsAt25)
{
    Calc c;
    EXPECT_EQ(c.pt("01:00:00.00+00:00:01.00"), 90025.0);
    EXPECT_EQ(c.calc.evalPT("01:00:00.00+00:00:01.00", VDCalcTime), "01:00:01.00");
    EXPECT_EQ(c.pt("00:00:10.00*2"), 500.0);
    EXPECT_EQ(c.pt("2*3*00:00:01.00"), 150.0);
    EXPECT_EQ(c.pt("00:00:10.00/4"), 62.5);
    EXPECT_EQ(c.pt("01:00:00.00 + 12"), 90012.0);
    EXPECT_EQ(c.pt("00:00:01.00+2*3"), 31.0);
    EXPECT_EQ(c.pt("2."), 2.0);
    EXPECT_EQ(c.pt("10-2-3"), 5.0); // left associative
    EXPECT_EQ(c.pt("100/5/2"), 10.0);
    EXPECT_EQ(c.pt("2*3+4*5"), 26.0); // precedence
    EXPECT_EQ(c.pt("0100"), 25.0);    // short timestamp
    EXPECT_EQ(c.pt("50|25"), 50.0);
    EXPECT_EQ(c.pt("1:30"), 2250.0);
    EXPECT_EQ(c.pt(":05"), 125.0);
    EXPECT_EQ(c.pt("0001:00"), 1500.0); // leading zeros before a clock
    EXPECT_EQ(c.pt("((1+2)*(3+4))*00:00:00.01"), 21.0);
}

TEST(VKCalcEvaluation, RejectedTextsAndFirstMatchNotLongest)
{
    Calc c;
    for (const char *text : {"(2+3) *00:00:01.00",
                             "00:00:01.00*00:00:01.00",
                             "2/00:00:01.00",
                             "0.5",
                             ".5",
                             "",
                             " ",
                             "-5",
                             "1+",
                             "+1",
                             "01:00|50",
                             "01:00:00.00|59d",
                             "01:00:00.00 |25",
                             "5|25",
                             "abc",
                             "00: 00:01.00",
                             "1 :00",
                             "00:00:01.00|60",
                             "00:00:01.00|50",
                             "00:00:01|25",
                             "1:2:3:4"}) {
        EXPECT_EQ(c.pt(text), std::nullopt) << text;
        EXPECT_EQ(c.pf(text), std::nullopt) << text;
        EXPECT_TRUE(c.calc.evalPT(text, VDCalcTime).isNull()) << text;
    }
    // Lax evaluation uses the first match anywhere.
    EXPECT_EQ(c.lazyPt("0.5"), 5.0);
    EXPECT_EQ(c.lazyPt("(2+3) *00:00:01.00"), 5.0);
    EXPECT_EQ(c.lazyPt("01:00:00.00+"), 90000.0);
    EXPECT_EQ(c.lazyPt("1 :00"), 1.0);
    EXPECT_EQ(c.lazyPt("00:00:01.00|60"), 25.0);
    EXPECT_EQ(c.lazyPt("x7y"), 7.0);
    EXPECT_EQ(c.lazyPt("abc"), std::nullopt);
    EXPECT_EQ(c.lazyPt(""), std::nullopt);
}

TEST(VKCalcEvaluation, WhitespaceWhereTheRulesAbsorbIt)
{
    Calc c;
    EXPECT_EQ(c.pt("  01:00:00.00\t+\n12  "), 90012.0);
    EXPECT_EQ(c.pt(" 2 * 00:00:01.00 "), 50.0);
    EXPECT_EQ(c.pt(" ( 00:00:01.00 ) * 2"), 50.0); // a group in timestamp position
    EXPECT_EQ(c.pt("10.12"), 10.12);               // no colon: a plain number
    EXPECT_EQ(c.pt("2*(1+1) "), 4.0);              // a group in timestamp position takes it
    EXPECT_EQ(c.pt("(1+1)/ 2"), 1.0);
    // A group in number position takes none after it.
    EXPECT_EQ(c.pt("00:00:01.00*(1+1) *2"), std::nullopt);
    EXPECT_EQ(c.pt("00:00:01.00*(1+1)*2"), 100.0);
    EXPECT_EQ(c.pt("00:00:01.00/(2) +1"), std::nullopt);
    EXPECT_EQ(c.lazyPt("00:00:01.00/(2) +1"), 12.5);
    EXPECT_EQ(c.pt("( 1+1 )*2"), 4.0);
    EXPECT_EQ(c.pt("0100 |25"), std::nullopt);
    EXPECT_EQ(c.pt("\u3000"
                   "12"),
              12.0); // any white space the engine knows is absorbed
}

TEST(VKCalcEvaluation, RateSuffixesInBothModes)
{
    Calc c;
    EXPECT_EQ(c.pt("00:00:01.00|24"), 25.0);
    EXPECT_EQ(c.pf("00:00:01.00|24"), 24.0);
    EXPECT_EQ(c.pt("01:00:00.00|24"), 90000.0);
    EXPECT_EQ(c.pf("01:00:00.00|24"), 86400.0);
    EXPECT_EQ(c.pf("01000000|25"), 90000.0);
    EXPECT_EQ(c.pt("48|24"), 50.0);

    // Every suffix at a non-drop (25) and a drop (29.97 drop) calculator rate.
    struct Row
    {
        const char *text;
        double pt25, pf25, pt29d, pf29d;
    };
    const double r23 = 23.97000000000166;
    const Row rows[] = {
        {"00:01:00.00|24", 1500, 1440, VKCalc::realFCfrom29dropFC(1440 * 30.0 / 24), 1440},
        {"00:01:00.00|25", 1500, 1500, VKCalc::realFCfrom29dropFC(1500 * 30.0 / 25), 1500},
        {"00:01:00.00|30", 1500, 1800, VKCalc::realFCfrom29dropFC(1800), 1800},
        {"00:01:00.02|23d", VKCalc::realFCfrom23dropFC(1442) * 25 / r23, 1440,
         VKCalc::realFCfrom29dropFC(VKCalc::dropFCfrom29realFC(1440 * 29.97 / r23)), 1440},
        {"00:01:00.02|29d", 1800 * 25 / 29.97, 1800, 1800, 1800},
        {"00:01:00.00|23n", 1440 * 25 / r23, 1440, VKCalc::realFCfrom29dropFC(1440 * 30 / r23),
         1440},
        {"00:01:00.00|29n", 1800 * 25 / 29.97, 1800, VKCalc::realFCfrom29dropFC(1800 * 30 / 29.97),
         1800},
    };
    Calc drop(VDCalc29drop);
    for (const Row &row : rows) {
        EXPECT_DOUBLE_EQ(*c.pt(row.text), row.pt25) << row.text;
        EXPECT_DOUBLE_EQ(*c.pf(row.text), row.pf25) << row.text;
        EXPECT_DOUBLE_EQ(*drop.pt(row.text), row.pt29d) << row.text;
        EXPECT_DOUBLE_EQ(*drop.pf(row.text), row.pf29d) << row.text;
    }
}

TEST(VKCalcEvaluation, DivisionByZeroAndNotANumber)
{
    Calc c;
    EXPECT_EQ(c.pt("00:00:01.00/(1-1)"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(c.calc.evalPT("00:00:01.00/(1-1)", VDCalcTime), "∞");
    EXPECT_EQ(c.calc.evalPT("00:00:01.00*(1-2)/(1-1)", VDCalcTime), "-∞");
    EXPECT_EQ(c.pt("(1-2)*00:00:01.00/(1-1)"), std::nullopt); // z*ts cannot be divided
    EXPECT_EQ(c.calc.evalPT("1/(1-1)", VKCalcFrameCount), "∞");
    EXPECT_TRUE(std::isnan(*c.pt("(1-1)/(1-1)")));
    EXPECT_EQ(c.calc.evalPT("(1-1)/(1-1)", VDCalcTime), "nan");
    EXPECT_EQ(c.calc.evalPT("(1-1)/(1-1)", VDCalcDiskSpace), "nan");
    EXPECT_EQ(c.calc.evalPT("(1-1)/(1-1)", VDCalcFilmLength), "nan m");
    EXPECT_EQ(c.calc.lazyevalPF("(1-1)/(1-1)", 7), "nan");
    EXPECT_TRUE(std::isnan(c.calc.cachedResultPF()));
}

TEST(VKCalcDisplay, BoundsAreExclusiveAndUseTheNarrowedFloat)
{
    Calc c;
    // Clock: ±86400750, which lies between the floats 86400744 and 86400752.
    EXPECT_EQ(c.calc.evalPT("86400744", VDCalcTime), "960:00:29.19");
    EXPECT_EQ(c.calc.evalPT("86400748", VDCalcTime), "∞"); // rounds to 86400752
    EXPECT_EQ(c.calc.evalPT("1-86400745", VDCalcTime), "-960:00:29.19");
    EXPECT_EQ(c.calc.evalPT("1-86400753", VDCalcTime), "-∞");
    EXPECT_EQ(c.calc.evalPT("86400744", VDCalcDiskSpace), "960:00:29.19");
    // Film: 52000000 and -5200004.
    EXPECT_EQ(c.calc.evalPT("52", VDCalcFilmLength), "1.00 m");
    EXPECT_EQ(c.calc.evalPT("52000000", VDCalcFilmLength), "999999.00 m");
    EXPECT_EQ(c.calc.evalPT("52000001", VDCalcFilmLength), "999999.00 m"); // narrowed to the bound
    EXPECT_EQ(c.calc.evalPT("52000004", VDCalcFilmLength), "∞");
    EXPECT_EQ(c.calc.evalPT("1-5200001", VDCalcFilmLength), "-99999.90 m");
    EXPECT_EQ(c.calc.evalPT("1-5200005", VDCalcFilmLength), "-99999.98 m"); // equal to the bound
    EXPECT_EQ(c.calc.evalPT("1-5200006", VDCalcFilmLength), "-∞");
    // Frame counts: strict 999999999 (as floats: 1e9 is beyond), lax 9999999999.
    EXPECT_EQ(c.calc.evalPT("999999936", 5), "999999936");
    EXPECT_EQ(c.calc.evalPT("999999999", 5), "∞"); // narrows to 1e9
    EXPECT_EQ(c.calc.evalPT("1-999999936", 5), "-999999936");
    EXPECT_EQ(c.calc.lazyevalPT("999999999", 5), "1000000000");
    EXPECT_EQ(c.calc.lazyevalPT("9999998976", 5), "9999998976");
    EXPECT_EQ(c.calc.lazyevalPT("9999999999", 5), "∞");
    EXPECT_EQ(c.calc.lazyevalPT("1-9999998976", 5), "-9999998976");
    // Counts above 2^24 show as the nearest float.
    EXPECT_EQ(c.calc.evalPT("16777217", 5), "16777216");
    EXPECT_EQ(c.calc.cachedResultPT(), 16777216.0f);
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
    c.pt("99"); // evaluation without display leaves the cache
    EXPECT_EQ(c.calc.cachedResultPT(), 25.0f);
    EXPECT_EQ(c.calc.evalPF("00:00:01.00|30", VDCalcFilmLength), "0.58 m");
}

TEST(VKCalcStack, WalkLeavesTheStackAsItFoundIt)
{
    Calc c;
    c.calc.push(QStringLiteral(" 12.5 "));
    c.calc.push(7.0);
    EXPECT_EQ(c.pt("(1+2)*00:00:01.00-3"), 72.0);
    EXPECT_EQ(c.calc.stackDepth(), 2);
    EXPECT_EQ(c.calc.pop(), QVariant(7.0));
    EXPECT_EQ(VKCalc::numericValue(c.calc.pop()), 12.5);
    EXPECT_FALSE(c.calc.pop().isValid());
    EXPECT_EQ(VKCalc::numericValue(QVariant()), 0.0);
    EXPECT_EQ(VKCalc::numericValue(QStringLiteral("x1")), 0.0);
    EXPECT_EQ(VKCalc::numericValue(QStringLiteral("\t-3e2z")), -300.0);
    // An operator with an empty stack reads nothing as 0.
    c.calc.reduce_tss2({});
    EXPECT_EQ(c.calc.pop(), QVariant(0.0));
    // The two handlers the grammar never reaches.
    c.calc.push(5.0);
    c.calc.push(QStringLiteral("2"));
    c.calc.reduce_zs2({});
    EXPECT_EQ(c.calc.pop(), QVariant(3.0));
}

TEST(VKCalcGrammar, KeptAndPerCallGrammarsGiveTheSameResults)
{
    Calc kept;
    Calc fresh;
    fresh.calc.setKeepsCompiledGrammar(false);
    for (const char *text :
         {"01:00:00.00+00:00:01.00", "2*3*00:00:01.00", "(2+3) *00:00:01.00", "0.5",
          "00:00:01.00|29d-0100|23d", "1:30:00*2/3", "((1))", "x 5 y", "00:00:01.00/(1-1)"}) {
        for (bool pt : {true, false}) {
            for (bool lazy : {true, false}) {
                const auto a = kept.calc.evaluateToFrames(text, pt, lazy);
                const auto b = fresh.calc.evaluateToFrames(text, pt, lazy);
                ASSERT_EQ(a.has_value(), b.has_value()) << text;
                if (a && !std::isnan(*a)) {
                    EXPECT_EQ(*a, *b) << text;
                }
            }
        }
    }
    const VKAttributedString typed(QStringLiteral("01:00:00.00+"));
    EXPECT_EQ(kept.calc.colorizeLazyEvaluatedString(typed),
              fresh.calc.colorizeLazyEvaluatedString(typed));
}

TEST(VKCalcThreads, CalculatorsOnSeveralThreadsShareTheKeptGrammar)
{
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &failures] {
            VKCalc calc;
            calc.setFps(t % 2 ? VDCalc25fps : VDCalc30fps);
            const double second = t % 2 ? 25 : 30;
            for (int i = 0; i < 300; ++i) {
                const auto r = calc.evalPTToFrames(QStringLiteral("00:00:01.00*%1+1").arg(i + 1));
                if (r != second * (i + 1) + 1)
                    ++failures;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
}

TEST(VKCalcThreads, StrictFramePreservingEvaluationOnOneSharedCalculator)
{
    VKCalc calc;
    calc.setFps(VDCalc25fps);
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &calc, &failures] {
            for (int i = 0; i < 300; ++i) {
                const int n = 10 + t * 1000 + i;
                if (calc.evalPFToFrames(QString::number(n) + QStringLiteral("+00:00:01.00")) !=
                    n + 25.0)
                    ++failures;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(calc.stackDepth(), 0);
}
