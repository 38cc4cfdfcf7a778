#include "Timecode/VKCalc.h"
#include "Timecode/VKTimecode.h"

#include "Foundation/VKException.h"
#include "VKTestSupport.h"

#include <QHash>
#include <QSet>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <ostream>
#include <thread>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << (text.isNull() ? std::string("(null)") : '"' + text.toStdString() + '"');
}

TEST(VKTimecode, ClockFormAtWholeAndDropRates)
{
    EXPECT_EQ(VKTimecode(90000, 25, false).timecodeString(), "01:00:00.00");
    EXPECT_EQ(VKTimecode(-30, 25, false).timecodeString(), "-00:00:01.05");
    EXPECT_EQ(VKTimecode(2160024, 24, false).timecodeString(), "25:00:01.00");
    EXPECT_EQ(VKTimecode(1800, 29.97f, true).timecodeString(), "00:01:00.02");
    EXPECT_EQ(VKTimecode(107892, 29.97f, true).timecodeString(), "01:00:00.00");
    EXPECT_EQ(VKTimecode(1799, 29.97f, true).timecodeString(), "00:00:59.29");
    EXPECT_EQ(VKTimecode(17982, 29.97f, true).timecodeString(), "00:10:00.00");
    EXPECT_EQ(VKTimecode(-1800, 29.97f, true).timecodeString(), "-00:01:00.02");
    EXPECT_EQ(VKTimecode(1440, 23.976f, true).timecodeString(), "00:01:00.02");
    EXPECT_EQ(VKTimecode(1800, 29.97f, false).timecodeString(), "00:01:00.00");
    // 59.94 has no drop conversion; 23.976 without drop counts whole seconds of 24.
    EXPECT_EQ(VKTimecode(3600, 59.94f, true).timecodeString(), "00:01:00.00");
    EXPECT_EQ(VKTimecode(1440, 23.976f, false).timecodeString(), "00:01:00.00");
    // Hours are never wrapped and take the digits they need.
    EXPECT_EQ(VKTimecode(qint64(25) * 3600 * 1000, 25, false).timecodeString(), "1000:00:00.00");
    EXPECT_EQ(VKTimecode(std::numeric_limits<qint64>::max(), 1, false).timecodeString(),
              "2562047788015215:30:08.00");
    EXPECT_EQ(VKTimecode(90000, 25, false).description(), "01:00:00.00 (25.00, 0)");
    EXPECT_EQ(VKTimecode(1800, 29.97f, true).description(), "00:01:00.02 (29.97, 1)");
}

TEST(VKTimecode, RatesWithoutAFiniteClockHaveDefinedTexts)
{
    EXPECT_EQ(VKTimecode(100, 0, false).timecodeString(), "∞");
    EXPECT_EQ(VKTimecode(-100, 0, false).timecodeString(), "-∞");
    EXPECT_EQ(VKTimecode(0, 0, false).timecodeString(), "nan");
    EXPECT_EQ(VKTimecode().description(), "nan (0.00, 0)");
    EXPECT_EQ(VKTimecode(5, std::numeric_limits<float>::quiet_NaN(), false).timecodeString(), "nan");
    EXPECT_EQ(VKTimecode(5, std::numeric_limits<float>::infinity(), false).timecodeString(), "nan");
    EXPECT_EQ(VKTimecode(25, -25, false).timecodeString(), "00:00:-01.00");
}

TEST(VKTimecode, ClockFieldInitialiser)
{
    EXPECT_EQ(VKTimecode(1, 0, 0, 5, 29.97f, true).frame(), 108005);
    EXPECT_EQ(VKTimecode(1, 0, 0, 5, 29.97f, true).drop(), true);
    EXPECT_EQ(VKTimecode(0, 0, 1, 0, 23.5f, false).frame(), 24);   // half away from zero
    EXPECT_EQ(VKTimecode(0, 0, 1, 0, -23.5f, false).frame(), -24);
    EXPECT_EQ(VKTimecode(0, 0, -1, 3, 25, false).frame(), -22);
    EXPECT_EQ(VKTimecode(100, 0, 0, 0, 25, false).frame(), 9000000);
    EXPECT_EQ(VKTimecode(0, 0, 1, 0, std::numeric_limits<float>::quiet_NaN(), false).frame(), 0);
    EXPECT_EQ(VKTimecode(1, 0, 0, 1, 3e38f, false).frame(), std::numeric_limits<qint64>::max());
}

TEST(VKTimecode, TextInitialiserUsesStrictFramePreservingEvaluation)
{
    EXPECT_EQ(VKTimecode("01:00:00.00+10", 25, false).frame(), 90010);
    EXPECT_EQ(VKTimecode::timecodeWithString("01000000|25", 24, false).frame(), 90000);
    EXPECT_EQ(VKTimecode("00:00:01.00|24", 25, false).frame(), 24);
    EXPECT_EQ(VKTimecode("00:01:00.02", 29.97f, true).frame(), 1800);
    EXPECT_EQ(VKTimecode("00:00:10.00/4", 25, false).frame(), 62);
    EXPECT_EQ(VKTimecode("00:00:01.00/(1-1)", 25, false).frame(),
              std::numeric_limits<qint64>::max());
    EXPECT_EQ(VKTimecode("(1-1)/(1-1)", 25, false).frame(), 0);
    const VKTimecode bad("garbage", 25, true);
    EXPECT_EQ(bad.frame(), 0);
    EXPECT_EQ(bad.fps(), 25.0f);
    EXPECT_TRUE(bad.drop());
    EXPECT_EQ(VKTimecode("01:00:00.00+", 25, false).frame(), 0); // strict, not lax
}

TEST(VKTimecode, AddingFrameByFrameOrPreservingTime)
{
    const VKTimecode a(24, 24, false);
    const VKTimecode b(25, 25, false);
    EXPECT_EQ(a.timecodeByAddingTimecode(b, true, 25, false).frame(), 50);
    EXPECT_EQ(a.timecodeByAddingTimecode(b, false, 25, false).frame(), 49);
    const VKTimecode sum = a.timecodeByAddingTimecode(b, true, 30, true);
    EXPECT_EQ(sum.fps(), 30.0f);
    EXPECT_TRUE(sum.drop());
    EXPECT_EQ(sum.frame(), 60);
    const VKTimecode third(1, 3, false);
    EXPECT_EQ(third.timecodeByAddingTimecode(third, true, 3, false).frame(), 2);
    // In float arithmetic; doubles would give 57 and 125.
    const VKTimecode at25(29, 25, false);
    EXPECT_EQ(at25.timecodeByAddingTimecode(at25, true, 25, false).frame(), 58);
    const VKTimecode at24(50, 24, false);
    EXPECT_EQ(at24.timecodeByAddingTimecode(at24, true, 30, false).frame(), 124);
    EXPECT_EQ(VKTimecode(-10, 25, false).timecodeByAddingTimecode(VKTimecode(3, 25, false), false,
                                                                 25, false)
                  .frame(),
              -7);
    EXPECT_EQ(VKTimecode(std::numeric_limits<qint64>::max(), 25, false)
                  .timecodeByAddingTimecode(VKTimecode(1, 25, false), false, 25, false)
                  .frame(),
              std::numeric_limits<qint64>::max());
    EXPECT_EQ(VKTimecode(5, 0, false).timecodeByAddingTimecode(VKTimecode(5, 0, false), true, 25,
                                                              false)
                  .frame(),
              std::numeric_limits<qint64>::max());
    // Only the receiver's drop flag is refused.
    EXPECT_NO_THROW(VKTimecode(1, 25, false).timecodeByAddingTimecode(VKTimecode(1, 29.97f, true),
                                                                     true, 29.97f, true));
    try {
        VKTimecode(1, 29.97f, true).timecodeByAddingTimecode(VKTimecode(1, 25, false), false, 25,
                                                             false);
        FAIL() << "no exception";
    } catch (const VKException &e) {
        EXPECT_EQ(e.name(), "VKUnsupportedParameter");
        EXPECT_EQ(e.reason(), "Drop frames are not supported by VKTimecode yet");
    }
}

TEST(VKTimecode, EqualityAndHash)
{
    const VKTimecode a(100, 25, false);
    EXPECT_EQ(a, VKTimecode(100, 25, false));
    EXPECT_NE(a, VKTimecode(100, 25, true));
    EXPECT_NE(a, VKTimecode(101, 25, false));
    EXPECT_NE(VKTimecode(1, 29.97f, false), VKTimecode(1, 29.970001f, false));
    EXPECT_EQ(VKTimecode(1, 0.0f, false), VKTimecode(1, -0.0f, false));
    EXPECT_EQ(qHash(VKTimecode(1, 0.0f, false)), qHash(VKTimecode(1, -0.0f, false)));
    const VKTimecode nan(1, std::numeric_limits<float>::quiet_NaN(), false);
    EXPECT_TRUE(nan.isEqual(nan)); // the identical object
    EXPECT_FALSE(nan.isEqual(VKTimecode(nan)));
    QSet<VKTimecode> set{a, VKTimecode(100, 25, false), VKTimecode(100, 25, true)};
    EXPECT_EQ(set.size(), 2);
    EXPECT_EQ(std::hash<VKTimecode>()(a), qHash(a));
}

TEST(VKCalcDropFrame, ConversionsAtBlockAndMinuteBoundaries)
{
    const double real29[] = {0, 1799, 1800, 17981, 17982, 17983, 35964, 107892};
    const double label29[] = {0, 1799, 1802, 17999, 18000, 18001, 36000, 108000};
    for (size_t i = 0; i < std::size(real29); ++i) {
        EXPECT_EQ(VKCalc::dropFCfrom29realFC(real29[i]), label29[i]) << real29[i];
        EXPECT_EQ(VKCalc::realFCfrom29dropFC(label29[i]), real29[i]) << label29[i];
    }
    // Labels skipped at a minute start land on the frame before.
    EXPECT_EQ(VKCalc::realFCfrom29dropFC(1800), 1799);
    EXPECT_EQ(VKCalc::realFCfrom29dropFC(1801), 1799);
    EXPECT_EQ(VKCalc::realFCfrom29dropFC(1802), 1800);
    EXPECT_EQ(VKCalc::realFCfrom29dropFC(18000), 17982);
    EXPECT_EQ(VKCalc::dropFCfrom23realFC(1440), 1442);
    EXPECT_EQ(VKCalc::dropFCfrom23realFC(14382), 14400);
    EXPECT_EQ(VKCalc::dropFCfrom23realFC(1439), 1439);
    EXPECT_EQ(VKCalc::realFCfrom23dropFC(1442), 1440);
    EXPECT_EQ(VKCalc::realFCfrom23dropFC(14400), 14382);
    EXPECT_EQ(VKCalc::realFCfrom23dropFC(1440), 1439);
    // Rounding half up before the one-based count.
    EXPECT_EQ(VKCalc::dropFCfrom29realFC(1799.5), 1802);
    EXPECT_EQ(VKCalc::dropFCfrom29realFC(1799.49), 1799);
    // Round trip over the first two ten-minute blocks.
    for (int n = 0; n < 2 * 17982 + 5; n += 7)
        ASSERT_EQ(VKCalc::realFCfrom29dropFC(VKCalc::dropFCfrom29realFC(n)), n) << n;
    // Negative counts follow C division (truncation toward zero).
    EXPECT_EQ(VKCalc::dropFCfrom29realFC(-5), -4);
    EXPECT_EQ(VKCalc::realFCfrom23dropFC(-20000), -19981);
    // Beyond 32 bits the count continues instead of wrapping; non-finite counts pass through.
    EXPECT_EQ(VKCalc::dropFCfrom29realFC(17982.0 * 200000), 18000.0 * 200000);
    EXPECT_TRUE(std::isnan(VKCalc::dropFCfrom23realFC(std::nan(""))));
    EXPECT_EQ(VKCalc::realFCfrom29dropFC(-INFINITY), -INFINITY);
}

TEST(VKCalcFrameRate, CodesFromMeasuredRatesAndTheOnceOnlyLog)
{
    VKLogCapture log;
    VKCalc calc;
    EXPECT_EQ(calc.fps(), VDCalc24fps);
    EXPECT_EQ(calc.framerate(), 24.0);
    struct Row
    {
        float rate;
        bool drop;
        qint32 code;
    };
    const Row rows[] = {
        {23.976f, true, VDCalc23drop},  {23.976f, false, VDCalc23nondrop},
        {23.98f, true, VDCalc23drop},   {24.0f, true, VDCalc24fps},
        {25.0f, false, VDCalc25fps},    {29.97f, true, VDCalc29drop},
        {29.97f, false, VDCalc29nondrop}, {29.98f, false, VDCalc29nondrop},
        {30.0f, true, VDCalc30fps},     {50.0f, false, VDCalc50fps},
        {59.94f, true, VDCalc50fps},    {60.0f, false, VDCalc50fps},
        {120.0f, false, VDCalc50fps},   {49.991f, false, VDCalc50fps},
    };
    for (const Row &row : rows) {
        calc.setFps(VDCalc30fps);
        calc.setFrameRate(row.rate, row.drop);
        EXPECT_EQ(calc.fps(), row.code) << row.rate;
    }
    EXPECT_TRUE(log.entries().isEmpty());
    calc.setFrameRate(60, false);
    EXPECT_EQ(calc.framerate(), 50.0);

    // Rates no test accepts, each reported once per process: the bounds are exclusive.
    const float unknown[] = {48.0f, 23.96f, 24.01f, 49.99f, 0.0f, -25.0f};
    for (float rate : unknown) {
        calc.setFps(VDCalc30fps);
        calc.setFrameRate(rate, false);
        EXPECT_EQ(calc.fps(), VDCalc24fps) << rate;
        calc.setFrameRate(rate, true);
    }
    const QList<VKLogEntry> entries = log.entries();
    ASSERT_EQ(entries.size(), int(std::size(unknown)));
    EXPECT_EQ(entries[0].message, "Unknown framerate: 48.000000 this message will only be logged once");
    EXPECT_EQ(entries[0].level, VKLogLevel::Error);
    EXPECT_EQ(entries[0].className, "VKCalc");
    EXPECT_EQ(entries[0].prettyFunctionOutput, "-[VKCalc setFrameRate:drop:]");
    EXPECT_EQ(entries[0].pointer, vkFormat("%p", static_cast<const void *>(&calc)));
    EXPECT_EQ(entries[3].message, "Unknown framerate: 49.990002 this message will only be logged once");
    // Another calculator does not report a rate again; -0 is the rate 0.
    VKCalc other;
    other.setFrameRate(48.0f, false);
    other.setFrameRate(-0.0f, false);
    EXPECT_EQ(log.entries().size(), int(std::size(unknown)));
}

TEST(VKCalcFrameRate, TableAndTextCodes)
{
    VKCalc calc;
    const char *codes[] = {"24", "25", "30", "23d", "29d", "23n", "29n", "50", "60", "59n", "59d"};
    const double rates[] = {24, 25, 30, 24, 30, 23.97000000000166, 29.97, 50, 60,
                            59.940059940059946, 60};
    for (qint32 code = 0; code < 11; ++code) {
        calc.setFps(code);
        EXPECT_EQ(calc.framerate(), rates[code]) << code;
        EXPECT_EQ(VKFrameRate::textCodeForCode(code), codes[code]);
        EXPECT_EQ(VKFrameRate::codeForTextCode(codes[code]), code);
    }
    EXPECT_EQ(std::bit_cast<quint64>(VKFrameRate::infoForCode(VDCalc23nondrop)->nominalRate),
              0x4037F851EB85208CULL);
    EXPECT_EQ(std::bit_cast<quint64>(VKFrameRate::infoForCode(VDCalc59nondrop)->nominalRate),
              0x404DF853E2556B29ULL);
    EXPECT_TRUE(VKFrameRate::infoForCode(VDCalc59drop)->drop);
    EXPECT_FALSE(VKFrameRate::infoForCode(VDCalc59nondrop)->drop);
    // A code outside the table is stored and keeps the rate.
    calc.setFps(VDCalc25fps);
    calc.setFps(11);
    EXPECT_EQ(calc.fps(), 11);
    EXPECT_EQ(calc.framerate(), 25.0);
    calc.setFps(-1);
    EXPECT_EQ(calc.framerate(), 25.0);
    EXPECT_FALSE(calc.setFpsWithTextCode("29D"));
    EXPECT_EQ(calc.fps(), -1);
    EXPECT_TRUE(calc.setFpsWithTextCode("59n"));
    EXPECT_EQ(calc.fps(), VDCalc59nondrop);
}

TEST(VKTimecodeThreads, TextInitialisersAtDifferentRatesDoNotMix)
{
    // Each thread builds timecodes at its own rate through the one shared calculator.
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    const float rates[] = {24.0f, 25.0f, 30.0f, 29.97f};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &rates, &failures] {
            for (int i = 0; i < 400; ++i) {
                const VKTimecode tc(QStringLiteral("00:00:02.00+%1").arg(i + 1), rates[t], false);
                const qint64 expected = (t == 3 ? 60 : qint64(rates[t]) * 2) + i + 1;
                if (tc.frame() != expected)
                    ++failures;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(VKTimecode::sharedCalc(), VKTimecode::sharedCalc());
    EXPECT_EQ(VKTimecode::sharedCalc()->stackDepth(), 0);
}
