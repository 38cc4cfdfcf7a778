#include "Timecode/VKCalc.h"
#include "Timecode/VKTimecode.h"

#include "Foundation/VKError.h"
#include "VKTestSupport.h"

#include <QSet>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

namespace {

constexpr qint64 kMax = std::numeric_limits<qint64>::max();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

} // namespace

TEST(VKTimecode, ClockForm)
{
    // clang-format off
    const struct { qint64 frame; float fps; bool drop; const char *text; } cases[] = {
        {90000, 25, false, "01:00:00.00"}, {-30, 25, false, "-00:00:01.05"},
        {35134, 25, false, "00:23:25.09"}, {-32634, 25, false, "-00:21:45.09"}, // 9 still pads
        {2160024, 24, false, "25:00:01.00"}, {1800, 29.97f, true, "00:01:00.02"},
        {107892, 29.97f, true, "01:00:00.00"}, {1799, 29.97f, true, "00:00:59.29"},
        {17982, 29.97f, true, "00:10:00.00"}, {-1800, 29.97f, true, "-00:01:00.02"},
        {1440, 23.976f, true, "00:01:00.02"}, {1800, 29.97f, false, "00:01:00.00"},
        {3600, 59.94f, true, "00:01:00.00"}, // no drop conversion at 59.94
        {1440, 23.976f, false, "00:01:00.00"},
        {qint64(25) * 3600 * 1000, 25, false, "1000:00:00.00"}, // hours never wrap
        {kMax, 1, false, "2562047788015215:30:08.00"},
        // Rates that give no finite clock.
        {100, 0, false, "∞"}, {-100, 0, false, "-∞"}, {0, 0, false, "nan"}, {5, kNaN, false, "nan"},
        {5, std::numeric_limits<float>::infinity(), false, "nan"}, {25, -25, false, "00:00:-01.00"},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(VKTimecode(c.frame, c.fps, c.drop).timecodeString(), QString::fromUtf8(c.text))
            << c.frame << " at " << c.fps << (c.drop ? " drop" : "");
    EXPECT_EQ(VKTimecode(90000, 25, false).description(), "01:00:00.00 (25.00, 0)");
    EXPECT_EQ(VKTimecode(1800, 29.97f, true).description(), "00:01:00.02 (29.97, 1)");
    EXPECT_EQ(VKTimecode().description(), "nan (0.00, 0)");
}

TEST(VKTimecode, ClockFieldInitialiser)
{
    // clang-format off
    const struct { int hours, minutes, seconds, frames; float fps; qint64 frame; } cases[] = {
        {1, 0, 0, 5, 29.97f, 108005}, // round(29.97) = 30, no drop conversion
        {0, 0, 1, 0, 23.5f, 24},      // half away from zero
        {0, 0, 1, 0, -23.5f, -24},    {0, 0, -1, 3, 25, -22},
        {0, 0, 1, 30, 25, 55}, // frames at or above the rate are added as they are
        {100, 0, 0, 0, 25, 9000000},  {0, 0, 1, 0, kNaN, 0}, {1, 0, 0, 1, 3e38f, kMax},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(VKTimecode(c.hours, c.minutes, c.seconds, c.frames, c.fps, true).frame(), c.frame)
            << c.hours << ":" << c.minutes << ":" << c.seconds << "." << c.frames << "@" << c.fps;
    EXPECT_TRUE(VKTimecode(1, 0, 0, 5, 29.97f, true).drop());
}

TEST(VKTimecode, TextInitialiserAndTheFactoryThatSaysWhy)
{
    // clang-format off
    // The frame the initialiser gives, and what the factory says (null: it answers that frame).
    const struct { const char *text; float fps; bool drop; qint64 frame; const char *failure; } cases[] = {
        {"01:00:00.00+10", 25, false, 90010, nullptr}, {"01000000|25", 24, false, 90000, nullptr},
        {"00:00:01.00|24", 25, false, 24, nullptr}, // frame-preserving
        {"00:01:00.02", 29.97f, true, 1800, nullptr}, {"00:00:10.00/4", 25, false, 62, nullptr},
        {"01:00:00.00+", 25, false, 0,
         "“01:00:00.00+” is not a timecode expression; only “01:00:00.00” in it is."},
        {"+00:00:01.00", 25, false, 0,
         "“+00:00:01.00” is not a timecode expression; only “00:00:01.00” in it is."},
        {"garbage", 25, true, 0, "“garbage” is not a timecode expression."},
        {"", 25, false, 0, "“” is not a timecode expression."},
        {"00:00:01.00/(1-1)", 25, false, kMax, "“00:00:01.00/(1-1)” gives no finite frame count."},
        {"(1-1)/(1-1)", 25, false, 0, "“(1-1)/(1-1)” gives no finite frame count."},
        // 2^63 frames is the first count past the range: it saturates like any larger one.
        {"9223372036854775808", 25, false, kMax, nullptr},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const VKTimecode timecode(c.text, c.fps, c.drop);
        EXPECT_EQ(timecode, VKTimecode(c.frame, c.fps, c.drop));
        EXPECT_EQ(VKTimecode::timecodeWithString(c.text, c.fps, c.drop), timecode);
        VKError error;
        const std::optional<VKTimecode> made =
            VKTimecode::timecodeFromString(c.text, c.fps, c.drop, &error);
        if (c.failure) {
            EXPECT_FALSE(made);
            EXPECT_EQ(error.domain(), VQErrorDomainVessanUtilities);
            EXPECT_EQ(error.code(), QByteArray(c.failure).contains("finite") ? 2 : 1);
            EXPECT_EQ(error.localizedDescription(), QString::fromUtf8(c.failure));
        } else {
            EXPECT_EQ(made, timecode);
            EXPECT_TRUE(error.isNull());
        }
    }
    EXPECT_FALSE(VKTimecode::timecodeFromString("x", 25, false)); // the error may be null
}

TEST(VKTimecode, AddingFrameByFrameOrPreservingTime)
{
    // clang-format off
    const struct { VKTimecode receiver, other; bool preservingTime; float fps; qint64 frame; } cases[] = {
        {{24, 24, false}, {25, 25, false}, true, 25, 50},
        {{24, 24, false}, {25, 25, false}, false, 25, 49},
        {{24, 24, false}, {25, 25, false}, true, 30, 60},
        {{1, 3, false}, {1, 3, false}, true, 3, 2},
        // In float arithmetic; doubles would give 57 and 125.
        {{29, 25, false}, {29, 25, false}, true, 25, 58},
        {{50, 24, false}, {50, 24, false}, true, 30, 124},
        {{-10, 25, false}, {3, 25, false}, false, 25, -7},
        {{kMax, 25, false}, {1, 25, false}, false, 25, kMax},
        {{-kMax, 25, false}, {-2, 25, false}, false, 25, -kMax - 1},
        {{5, 0, false}, {5, 0, false}, true, 25, kMax},
        // Only the receiver's drop flag is refused.
        {{1, 25, false}, {1, 29.97f, true}, true, 29.97f, 2},
    };
    // clang-format on
    for (const auto &c : cases) {
        const VKTimecode sum =
            c.receiver.timecodeByAddingTimecode(c.other, c.preservingTime, c.fps, true);
        EXPECT_EQ(sum, VKTimecode(c.frame, c.fps, true))
            << c.receiver.description().toStdString() << " + "
            << c.other.description().toStdString();
    }
    EXPECT_EQ(vkRaisedBy([] {
                  (void)VKTimecode(1, 29.97f, true)
                      .timecodeByAddingTimecode(VKTimecode(1, 25, false), false, 25, false);
              }),
              "VKUnsupportedParameter|Drop frames are not supported by VKTimecode yet");
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
    const VKTimecode nan(1, kNaN, false);
    EXPECT_TRUE(nan.isEqual(nan)); // the identical object
    EXPECT_FALSE(nan.isEqual(VKTimecode(nan)));
    EXPECT_EQ(QSet<VKTimecode>({a, VKTimecode(100, 25, false), VKTimecode(100, 25, true)}).size(), 2);
    EXPECT_EQ(std::hash<VKTimecode>()(a), qHash(a));
}

TEST(VKCalcDropFrame, ConversionsAtBlockAndMinuteBoundaries)
{
    using F = double (*)(double);
    const F real29 = VKCalc::dropFCfrom29realFC, label29 = VKCalc::realFCfrom29dropFC;
    const F real23 = VKCalc::dropFCfrom23realFC, label23 = VKCalc::realFCfrom23dropFC;
    // Real count to label and back; 1799.5 rounds half up first, negatives divide as C does, and
    // skipped labels read as the real frame before them.
    // clang-format off
    const struct { F convert; double in, out; } cases[] = {
        {real29, 0, 0}, {real29, 1799, 1799}, {real29, 1800, 1802}, {real29, 17981, 17999},
        {real29, 17982, 18000}, {real29, 17983, 18001}, {real29, 107892, 108000},
        {real29, 1799.5, 1802}, {real29, 1799.49, 1799}, {real29, -5, -4},
        {real29, 17982.0 * 200000, 18000.0 * 200000},
        {label29, 1800, 1799}, {label29, 1801, 1799}, {label29, 1802, 1800}, {label29, 18000, 17982},
        {label29, -INFINITY, -INFINITY},
        {real23, 1439, 1439}, {real23, 1440, 1442}, {real23, 14382, 14400},
        {label23, 1440, 1439}, {label23, 1442, 1440}, {label23, 14400, 14382}, {label23, -20000, -19981},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(c.convert(c.in), c.out) << c.in;
    EXPECT_TRUE(std::isnan(VKCalc::dropFCfrom23realFC(std::nan(""))));
    for (int n = 0; n < 2 * 17982 + 5; n += 7)
        ASSERT_EQ(label29(real29(n)), n) << n;
}

TEST(VKCalcFrameRate, TheTableOfCodes)
{
    // clang-format off
    const struct { VKFrameRateCode code; const char *text; double rate; bool drop; } rows[] = {
        {VDCalc24fps, "24", 24, false},         {VDCalc25fps, "25", 25, false},
        {VDCalc30fps, "30", 30, false},         {VDCalc23drop, "23d", 24, true},
        {VDCalc29drop, "29d", 30, true},        {VDCalc23nondrop, "23n", 23.97000000000166, false},
        {VDCalc29nondrop, "29n", 29.97, false}, {VDCalc50fps, "50", 50, false},
        {VDCalc60fps, "60", 60, false},         {VDCalc59nondrop, "59n", 59.940059940059946, false},
        {VDCalc59drop, "59d", 60, true},
    };
    // clang-format on
    ASSERT_EQ(VKFrameRate::allFrameRates().size(), 11);
    VKCalc calc;
    for (int i = 0; i < 11; ++i) {
        const auto &row = rows[i];
        SCOPED_TRACE(row.text);
        EXPECT_EQ(row.code, i);
        const VKFrameRateInfo &info = VKFrameRate::allFrameRates()[i];
        EXPECT_EQ(std::tuple(info.code, info.textCode, info.nominalRate, info.drop),
                  std::tuple(row.code, QString::fromLatin1(row.text), row.rate, row.drop));
        EXPECT_EQ(VKFrameRate::codeForTextCode(row.text), row.code);
        EXPECT_EQ(VKFrameRate::textCodeForCode(row.code), row.text);
        calc.setFps(row.code);
        EXPECT_EQ(calc.framerate(), row.rate);
    }
    // A code outside the table is stored and keeps the rate.
    calc.setFps(VDCalc25fps);
    for (VKFrameRateCode outside : {VKFrameRateCode(11), VKFrameRateCode(-1)}) {
        calc.setFps(outside);
        EXPECT_EQ(calc.fps(), outside);
        EXPECT_EQ(calc.framerate(), 25.0);
        EXPECT_FALSE(VKFrameRate::infoForCode(outside));
        EXPECT_TRUE(VKFrameRate::textCodeForCode(outside).isNull());
    }
    EXPECT_FALSE(calc.setFpsWithTextCode("29D"));
    EXPECT_EQ(calc.fps(), VKFrameRateCode(-1));
    EXPECT_TRUE(calc.setFpsWithTextCode("59n"));
    EXPECT_EQ(calc.fps(), VDCalc59nondrop);
}

TEST(VKCalcFrameRate, CodesFromMeasuredRatesAndTheOnceOnlyLog)
{
    VKLogCapture log;
    VKCalc calc;
    EXPECT_EQ(calc.fps(), VDCalc24fps);
    // clang-format off
    const struct { float rate; bool drop; VKFrameRateCode code; } rows[] = {
        {23.976f, true, VDCalc23drop}, {23.976f, false, VDCalc23nondrop}, {23.98f, true, VDCalc23drop},
        {24.0f, true, VDCalc24fps}, {25.0f, false, VDCalc25fps}, {29.97f, true, VDCalc29drop},
        {29.97f, false, VDCalc29nondrop}, {29.98f, false, VDCalc29nondrop}, {30.0f, true, VDCalc30fps},
        {50.0f, false, VDCalc50fps}, {59.94f, true, VDCalc50fps}, {60.0f, false, VDCalc50fps},
        {120.0f, false, VDCalc50fps}, {49.991f, false, VDCalc50fps},
    };
    // clang-format on
    for (const auto &row : rows) {
        calc.setFps(VDCalc30fps);
        calc.setFrameRate(row.rate, row.drop);
        EXPECT_EQ(calc.fps(), row.code) << row.rate;
    }
    EXPECT_TRUE(log.entries().isEmpty());
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
    EXPECT_EQ(entries[0].message,
              "Unknown framerate: 48.000000 this message will only be logged once");
    EXPECT_EQ(entries[0].level, VKLogLevel::Error);
    EXPECT_EQ(entries[0].className, "VKCalc");
    EXPECT_EQ(entries[0].prettyFunctionOutput, "-[VKCalc setFrameRate:drop:]");
    EXPECT_EQ(entries[0].pointer, vkFormat("%p", static_cast<const void *>(&calc)));
    EXPECT_EQ(entries[3].message,
              "Unknown framerate: 49.990002 this message will only be logged once");
    // Another calculator does not report a rate again; -0 is the rate 0.
    VKCalc other;
    other.setFrameRate(48.0f, false);
    other.setFrameRate(-0.0f, false);
    EXPECT_EQ(log.entries().size(), int(std::size(unknown)));
}
