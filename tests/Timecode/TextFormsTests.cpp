#include "Timecode/VKCalc.h"
#include "Timecode/VKTimecodeText.h"

#include "Foundation/VKException.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << (text.isNull() ? std::string("(null)") : '"' + text.toStdString() + '"');
}

namespace {

VKCalc &calcAt(qint32 code)
{
    static VKCalc calc;
    calc.setFps(code);
    return calc;
}

} // namespace

TEST(VKCalcReaders, LongFormAt25)
{
    VKCalc &c = calcAt(VDCalc25fps);
    EXPECT_EQ(c.framecountPTFromString("01:00:00.00"), 90000);
    EXPECT_EQ(c.framecountPTFromString("1:30"), 2250);
    EXPECT_EQ(c.framecountPTFromString("10.12"), 262);
    EXPECT_EQ(c.framecountPTFromString("01:00:00.00|24"), 90000);
    EXPECT_EQ(c.framecountPFFromString("01:00:00.00|24"), 86400);
    EXPECT_EQ(c.framecountPFFromString("50|25"), 50);
    EXPECT_EQ(c.framecountPTFromString("50|24"), 50 * 25 / 24.0);
    EXPECT_EQ(c.framecountPTFromString(" 0 1 : 0 0 "), 1500);         // spaces go, digits join
    EXPECT_EQ(c.framecountPTFromString("1:00:00:00"), 216000 * 25);   // more fields: powers of 60
    EXPECT_EQ(c.framecountPTFromString("00:00:00.01|24"), 25 / 24.0); // not rounded
    EXPECT_EQ(c.framecountPTFromString(""), 0);
    EXPECT_EQ(c.framecountPTFromString("."), 0);
    // An unknown suffix keeps the seconds total alone, in both modes.
    EXPECT_EQ(c.framecountPTFromString("00:00:02.05|50"), 2);
    EXPECT_EQ(c.framecountPFFromString("00:00:02.05|24 "), 48 + 5); // spaces are removed first
    EXPECT_EQ(c.framecountPFFromString("00:00:02.05|24\t"), 2);     // other white space is not
    EXPECT_EQ(c.framecountPTFromString("00:00:02.05|24|25"), 125);  // frames 24, suffix "24|25"
    // Digits of other scripts count as digits.
    EXPECT_EQ(c.framecountPTFromString(u"\u0661:\u0663\u0660"_qs), 2250);
}

TEST(VKCalcReaders, DropFrameLabelsAtDropCodesAndSuffixes)
{
    EXPECT_EQ(calcAt(VDCalc29drop).framecountPTFromString("00:01:00.02"), 1800);
    EXPECT_EQ(calcAt(VDCalc29drop).framecountPTFromString("00:10:00.00"), 17982);
    EXPECT_EQ(calcAt(VDCalc29drop).framecountPFFromString("01:00:00.00"), 107892);
    EXPECT_EQ(calcAt(VDCalc23drop).framecountPTFromString("00:01:00.02"), 1440);
    EXPECT_EQ(calcAt(VDCalc25fps).framecountPFFromString("00:01:00.02|29d"), 1800);
    EXPECT_EQ(calcAt(VDCalc24fps).framecountPFFromString("00:01:00.02|23d"), 1440);
    EXPECT_EQ(calcAt(VDCalc29nondrop).framecountPFFromString("00:01:00.02|29d"), 1800);
    // A drop code re-reads a suffixed count as a label in time-preserving mode.
    EXPECT_EQ(calcAt(VDCalc29drop).framecountPTFromString("00:01:00.02|29d"), 1800);
    EXPECT_EQ(calcAt(VDCalc23drop).framecountPTFromString("00:01:00.02|23d"), 1440);
    EXPECT_DOUBLE_EQ(
        calcAt(VDCalc23drop).framecountPTFromString("00:01:00.02|29d"),
        VKCalc::realFCfrom23dropFC(VKCalc::dropFCfrom23realFC(1800 * 23.97000000000166 / 29.97)));
    // 59.94 drop converts nothing.
    EXPECT_EQ(calcAt(VDCalc59drop).framecountPTFromString("00:01:00.02"), 3602);
}

TEST(VKCalcReaders, ShortForm)
{
    VKCalc &c = calcAt(VDCalc25fps);
    EXPECT_EQ(c.framecountPTFromShortString("0100"), c.framecountPTFromString("00:00:01.00"));
    EXPECT_EQ(c.framecountPTFromShortString("01000000|25"),
              c.framecountPTFromString("01:00:00.00|25"));
    EXPECT_EQ(c.framecountPFFromShortString("01000000|24"), 86400);
    EXPECT_EQ(c.framecountPTFromShortString("012345678"), c.framecountPTFromString("12:34:56.78"));
    EXPECT_EQ(c.framecountPTFromShortString(" 0100"), 25); // the grammar's leading white space
    EXPECT_EQ(c.framecountPTFromShortString(""), 0);
    EXPECT_EQ(c.framecountPTFromShortString("|25"), 0);
}

TEST(VKCalcWriter, ClockTextOfFrameCounts)
{
    EXPECT_EQ(calcAt(VDCalc25fps).stringFromFramecount(-25), "-00:00:01.00");
    EXPECT_EQ(calcAt(VDCalc25fps).stringFromFramecount(24.5), "00:00:01.00"); // rounds half up
    EXPECT_EQ(calcAt(VDCalc25fps).stringFromFramecount(24.49), "00:00:00.24");
    EXPECT_EQ(calcAt(VDCalc29drop).stringFromFramecount(107892), "01:00:00.00");
    EXPECT_EQ(calcAt(VDCalc29drop).stringFromFramecount(1799), "00:00:59.29");
    EXPECT_EQ(calcAt(VDCalc29drop).stringFromFramecount(1800), "00:01:00.02");
    EXPECT_EQ(calcAt(VDCalc29drop).stringFromFramecount(-1800), "-00:01:00.02");
    EXPECT_EQ(calcAt(VDCalc23drop).stringFromFramecount(1440), "00:01:00.02");
    EXPECT_EQ(calcAt(VDCalc59drop).stringFromFramecount(3600), "00:01:00.00");
    EXPECT_EQ(calcAt(VDCalc23nondrop).stringFromFramecount(24), "00:00:01.00");
    EXPECT_EQ(calcAt(VDCalc59nondrop).stringFromFramecount(3600), "00:01:00.00");
    EXPECT_EQ(calcAt(VDCalc25fps).stringFromFramecount(25.0 * 3600 * 100), "100:00:00.00");
    // Hours beyond 64 bits still print every digit.
    const QString huge = calcAt(VDCalc25fps).stringFromFramecount(1e30);
    EXPECT_TRUE(huge.startsWith("11111111111111")) << huge.toStdString();
    EXPECT_EQ(huge.size(), 35);
    EXPECT_EQ(calcAt(VDCalc25fps).stringFromFramecount(INFINITY), "∞");
    EXPECT_EQ(calcAt(VDCalc25fps).stringFromFramecount(-INFINITY), "-∞");
    EXPECT_EQ(calcAt(VDCalc25fps).stringFromFramecount(std::nan("")), "nan");
    EXPECT_EQ(calcAt(VDCalc29drop).stringFromFramecount(std::nan("")), "nan");
}

TEST(VKCalcWriter, ClockFieldsToFrames)
{
    VKCalc &c = calcAt(VDCalc25fps);
    EXPECT_EQ(c.framecountFromTCString("01:00:00.00"), 90000);
    EXPECT_EQ(c.framecountFromTCString("00:00:01.24"), 49);
    EXPECT_EQ(c.framecountFromTCString("-00:00:01.05"), -30);
    EXPECT_EQ(c.framecountFromTCString(" -01:00:00:10"), -90010);
    EXPECT_EQ(c.framecountFromTCString("00:01:30"), 2250);
    EXPECT_EQ(c.framecountFromTCString("1.5"), 30);
    EXPECT_EQ(c.framecountFromTCString(""), 0);
    EXPECT_EQ(calcAt(VDCalc29drop).framecountFromTCString("00:00:00.29"), 29);
    // Round trip through the writer at every non-drop code.
    for (qint32 code : {VDCalc24fps, VDCalc25fps, VDCalc30fps, VDCalc50fps, VDCalc60fps}) {
        VKCalc &calc = calcAt(code);
        for (double n : {0.0, 1.0, 59.0, 1799.0, 1800.0, 17982.0, 2160024.0, -31.0})
            EXPECT_EQ(calc.framecountFromTCString(calc.stringFromFramecount(n)), n) << code;
    }
    EXPECT_EQ(VKTimecodeText::hoursFromTimecodeString("12;34;56;07"), 12);
    EXPECT_EQ(VKTimecodeText::framesFromTimecodeString("12;34;56;07"), 7);
    EXPECT_EQ(VKTimecodeText::hoursFromTimecodeString("99999999999:00:00.00"),
              std::numeric_limits<int>::max());
    EXPECT_FALSE(VKTimecodeText::timeStampNegative("1-2"));
}

TEST(VKCalcBeautifier, CanonicalTimestamps)
{
    VKCalc &c = calcAt(VDCalc25fps);
    EXPECT_EQ(c.beautifyExpression("1:30:00 + 0100"), "01:30:00.00|25+00:00:01.00|25");
    EXPECT_EQ(c.beautifyExpression("1:30"), "1:30");
    EXPECT_EQ(c.beautifyExpression("1:02:03.04|29d"), "01:02:03.04|29d");
    EXPECT_EQ(c.beautifyExpression("1:02:03.4"), "01:02:03.04|25");
    EXPECT_EQ(c.beautifyExpression("1:2:3|25"), "01:02:03.00|25|25");
    EXPECT_EQ(c.beautifyExpression("0001:02:03"), "01:02:03.00|25");
    EXPECT_EQ(c.beautifyExpression("2*1:00:00-0100|24"), "2*01:00:00.00|25-00:00:01.00|24");
    EXPECT_EQ(c.beautifyExpression("012345678"), "12:34:56.78|25");
    EXPECT_EQ(c.beautifyExpression("01"), "01"); // too short for the packed form
    EXPECT_EQ(c.beautifyExpression("10100"), "10100");
    EXPECT_EQ(c.beautifyExpression("x0100"), "x0100"); // no word boundary
    EXPECT_EQ(c.beautifyExpression("(0100)"), "(00:00:01.00|25)");
    EXPECT_EQ(c.beautifyExpression(""), "");
    EXPECT_EQ(calcAt(VDCalc59drop).beautifyExpression("1:00:00"), "01:00:00.00|59d");
    EXPECT_EQ(calcAt(VDCalc60fps).beautifyExpression("0100|5d"), "00:00:01.00|5d");
    // The canonical text evaluates to what the typed text meant.
    VKCalc &d = calcAt(VDCalc29drop);
    EXPECT_EQ(d.evalPTToFrames(d.beautifyExpression("1:00:00 + 0100")), 107892 + 30);
    // A code outside the table has no text code.
    calcAt(25);
    EXPECT_EQ(calcAt(25).beautifyTimestampString("1:2:3"), "01:02:03.00");
}

TEST(VKCalcBeautifier, TimestampStringSlots)
{
    VKCalc &c = calcAt(VDCalc30fps);
    EXPECT_EQ(c.beautifyTimestampString("5"), "00:00:05.00|30");
    EXPECT_EQ(c.beautifyTimestampString("1.5"), "00:00:01.05|30");
    EXPECT_EQ(c.beautifyTimestampString("1:2:3.4|23n"), "01:02:03.04|23n");
    EXPECT_EQ(c.beautifyTimestampString("1:2:3:4:5:6"), "04:05:06.00|30"); // extra runs dropped
    EXPECT_EQ(c.beautifyTimestampString("123:4"), "00:123:04.00|30");
    EXPECT_EQ(c.beautifyShortTimestampString("0100"), "00:00:01.00|30");
    EXPECT_EQ(c.beautifyShortTimestampString(""), "00:00:00.00|30");
    EXPECT_EQ(c.beautifyTimestamp({0, {}, 0, 0, 4, "1:00"}, nullptr), "00:01:00.00|30");
    EXPECT_EQ(c.beautifyShortTimestamp({0, {}, 0, 0, 4, "0100"}, nullptr), "00:00:01.00|30");
}

TEST(VKCalcColouring, MarksWhatLaxEvaluationUses)
{
    VKCalc &c = calcAt(VDCalc25fps);
    const QColor red(Qt::red);
    const QColor black(Qt::black);
    VKAttributedString typed(QStringLiteral("01:00:00.00+"));
    const VKAttributedString coloured = c.colorizeLazyEvaluatedString(typed);
    ASSERT_EQ(coloured.runs().size(), 2);
    EXPECT_EQ(coloured.runs()[0].range, (VKAttributedString::Range{0, 11}));
    EXPECT_EQ(coloured.foregroundColorAtIndex(0), black);
    EXPECT_EQ(coloured.foregroundColorAtIndex(11), red);

    // Before, inside and after; other attributes stay.
    VKAttributedString mixed(QStringLiteral("ab 2*3 cd"));
    mixed.addAttribute(VKBaselineOffsetAttributeName, 2.0, {0, 4});
    const VKAttributedString result = c.colorizeLazyEvaluatedString(mixed);
    EXPECT_EQ(result.string(), mixed.string());
    EXPECT_EQ(result.foregroundColorAtIndex(1), red);
    EXPECT_EQ(result.foregroundColorAtIndex(2), black); // the number absorbs the spaces
    EXPECT_EQ(result.foregroundColorAtIndex(6), black);
    EXPECT_EQ(result.foregroundColorAtIndex(7), red);
    EXPECT_EQ(result.attributeAtIndex(VKBaselineOffsetAttributeName, 3), QVariant(2.0));
    EXPECT_EQ(c.lazyevalPTToFrames(mixed.string()), 6.0);

    const VKAttributedString none = c.colorizeLazyEvaluatedString(VKAttributedString("abc"));
    ASSERT_EQ(none.runs().size(), 1);
    EXPECT_EQ(none.foregroundColorAtIndex(2), red);
    EXPECT_TRUE(c.colorizeLazyEvaluatedString(VKAttributedString()).isEmpty());
}
