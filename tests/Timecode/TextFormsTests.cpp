#include "Foundation/VKAttributedString.h"
#include "Timecode/VKCalc.h"
#include "Timecode/VKTimecodeText.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

VKCalc &calcAt(VKFrameRateCode code)
{
    static VKCalc calc;
    calc.setFps(code);
    return calc;
}

} // namespace

TEST(VKCalcReaders, LongAndShortForms)
{
    const double at24 = 25 / 24.0;
    // clang-format off
    const struct { VKFrameRateCode code; const char16_t *text; double pt, pf; } cases[] = {
        {VDCalc25fps, u"01:00:00.00", 90000, 90000}, {VDCalc25fps, u"1:30", 2250, 2250},
        {VDCalc25fps, u"10.12", 262, 262}, // ten seconds and twelve frames
        {VDCalc25fps, u"50|25", 50, 50},
        {VDCalc25fps, u"50|24", 50 * at24, 50},
        {VDCalc25fps, u"00:00:00.01|24", at24, 1},              // not rounded
        {VDCalc25fps, u" 0 1 : 0 0 ", 1500, 1500},              // spaces go, digits join
        {VDCalc25fps, u"1:00:00:00", 216000 * 25, 216000 * 25}, // more fields: powers of 60
        {VDCalc25fps, u"00:00:01.25", 50, 50},                  // frames at or above the rate stay
        {VDCalc25fps, u"00:00:00.99", 99, 99},
        {VDCalc25fps, u"00:00:01,05", 1625, 1625}, // a comma is no frame separator: 0:0:1:5
        {VDCalc25fps, u"", 0, 0}, {VDCalc25fps, u".", 0, 0},
        {VDCalc25fps, u"00:00:02.05|50", 2, 2}, // an unknown suffix keeps the seconds alone
        {VDCalc25fps, u"00:00:02.05|24 ", 50 * 53 / 48.0, 53}, // spaces are removed first
        {VDCalc25fps, u"00:00:02.05|24\t", 2, 2},              // other white space is not
        {VDCalc25fps, u"\u0661:\u0663\u0660", 2250, 2250},     // digits of any script
        // Drop-frame labels at the drop codes and suffixes.
        {VDCalc29drop, u"00:01:00.02", 1800, 1800}, {VDCalc29drop, u"00:10:00.00", 17982, 17982},
        {VDCalc29drop, u"01:00:00.00", 107892, 107892},
        {VDCalc23drop, u"00:01:00.02", 1440, 1440},
        {VDCalc23drop, u"00:01:00.02|23d", 1440, 1440},
        {VDCalc24fps, u"00:01:00.02|23d", VKCalc::realFCfrom23dropFC(1442) * 24 / 23.97000000000166, 1440},
        {VDCalc29nondrop, u"00:01:00.02|29d", 1800, 1800},
        {VDCalc59drop, u"00:01:00.02", 3602, 3602}, // 59.94 drop converts nothing
    };
    // clang-format on
    for (const auto &c : cases) {
        const QString text = QString::fromUtf16(c.text);
        SCOPED_TRACE(text.toStdString() + " at code " + std::to_string(c.code));
        EXPECT_DOUBLE_EQ(calcAt(c.code).framecountPTFromString(text), c.pt);
        EXPECT_DOUBLE_EQ(calcAt(c.code).framecountPFFromString(text), c.pf);
    }
    EXPECT_DOUBLE_EQ(
        calcAt(VDCalc23drop).framecountPTFromString("00:01:00.02|29d"),
        VKCalc::realFCfrom23dropFC(VKCalc::dropFCfrom23realFC(1800 * 23.97000000000166 / 29.97)));

    // Packed forms: only the last eight digits count.
    VKCalc &c = calcAt(VDCalc25fps);
    // clang-format off
    const struct { const char *packed, *clock; } packed[] = {
        {"0100", "00:00:01.00"}, {"01000000|25", "01:00:00.00|25"}, {"01000000|24", "01:00:00.00|24"},
        {"012345678", "12:34:56.78"}, {" 0100", "00:00:01.00"}, {"", "00:00:00.00"}, {"|25", "00:00:00.00|25"}};
    // clang-format on
    for (const auto &p : packed) {
        EXPECT_EQ(c.framecountPTFromShortString(p.packed), c.framecountPTFromString(p.clock));
        EXPECT_EQ(c.framecountPFFromShortString(p.packed), c.framecountPFFromString(p.clock));
    }
}

TEST(VKCalcWriter, ClockTextOfFrameCounts)
{
    // clang-format off
    const struct { VKFrameRateCode code; double frames; const char *text; } cases[] = {
        {VDCalc25fps, -25, "-00:00:01.00"}, {VDCalc25fps, 24.5, "00:00:01.00"}, // rounds half up
        {VDCalc25fps, 24.49, "00:00:00.24"}, {VDCalc25fps, 25.0 * 3600 * 100, "100:00:00.00"},
        {VDCalc29drop, 107892, "01:00:00.00"}, {VDCalc29drop, 1799, "00:00:59.29"},
        {VDCalc29drop, 1800, "00:01:00.02"}, {VDCalc29drop, -1800, "-00:01:00.02"},
        {VDCalc23drop, 1440, "00:01:00.02"}, {VDCalc23drop, -1440, "-00:01:00.02"},
        {VDCalc59drop, 3600, "00:01:00.00"}, {VDCalc23nondrop, 24, "00:00:01.00"},
        {VDCalc59nondrop, 3600, "00:01:00.00"}, {VDCalc25fps, INFINITY, "∞"},
        {VDCalc25fps, -INFINITY, "-∞"}, {VDCalc29drop, std::nan(""), "nan"},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(calcAt(c.code).stringFromFramecount(c.frames), QString::fromUtf8(c.text))
            << c.frames << " at code " << c.code;
    // Hours beyond 64 bits still print every digit.
    const QString huge = calcAt(VDCalc25fps).stringFromFramecount(1e30);
    EXPECT_TRUE(huge.startsWith("11111111111111") && huge.size() == 35) << huge;
}

TEST(VKCalcWriter, ClockFieldsToFrames)
{
    // clang-format off
    const struct { const char *text; double frames; } cases[] = {
        // A comma before the frames marks them, even with fewer than four fields; frames are
        // divided by R + 0.5, so those above the rate lose some.
        {"01:00:00.00", 90000}, {"00:00:01.24", 49}, {"-00:00:01.05", -30}, {"00:01,05", 30},
        {" -01:00:00:10", -90010}, {"00:01:30", 2250}, {"1.5", 30}, {"", 0}, {"00:00:01,05", 30},
        {"+00:00:01.05", 30}, {"12;34;56;07", 1132407}, {"00:00:00.25", 25}, {"00:00:00.30", 29},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(calcAt(VDCalc25fps).framecountFromTCString(c.text), c.frames) << c.text;
    EXPECT_EQ(calcAt(VDCalc29drop).framecountFromTCString("00:00:00.29"), 29);
    // Round trip through the writer at every non-drop code.
    for (VKFrameRateCode code : {VDCalc24fps, VDCalc25fps, VDCalc30fps, VDCalc50fps, VDCalc60fps}) {
        VKCalc &calc = calcAt(code);
        for (double n : {0.0, 1.0, 59.0, 1799.0, 1800.0, 17982.0, 2160024.0, -31.0})
            EXPECT_EQ(calc.framecountFromTCString(calc.stringFromFramecount(n)), n) << code;
    }
    EXPECT_EQ(VKTimecodeText::hoursFromTimecodeString("99999999999:00:00.00"),
              std::numeric_limits<int>::max());
    EXPECT_FALSE(VKTimecodeText::timeStampNegative("1-2"));
}

TEST(VKCalcBeautifier, CanonicalTimestamps)
{
    // clang-format off
    const struct { VKFrameRateCode code; const char *typed, *canonical; } cases[] = {
        // Fewer than two colons stay; a written suffix is kept; "01" is too short for the packed
        // form, "x0100" has no word boundary before it.
        {VDCalc25fps, "1:30:00 + 0100", "01:30:00.00|25+00:00:01.00|25"}, {VDCalc25fps, "1:30", "1:30"},
        {VDCalc25fps, "1:02:03.04|29d", "01:02:03.04|29d"}, {VDCalc25fps, "1:02:03.4", "01:02:03.04|25"},
        {VDCalc25fps, "1:2:3|25", "01:02:03.00|25|25"}, {VDCalc25fps, "0001:02:03", "01:02:03.00|25"},
        {VDCalc25fps, "2*1:00:00-0100|24", "2*01:00:00.00|25-00:00:01.00|24"},
        {VDCalc25fps, "012345678", "12:34:56.78|25"}, {VDCalc25fps, "01", "01"},
        {VDCalc25fps, "10100", "10100"}, {VDCalc25fps, "x0100", "x0100"},
        {VDCalc25fps, "(0100)", "(00:00:01.00|25)"}, {VDCalc25fps, "", ""},
        {VDCalc59drop, "1:00:00", "01:00:00.00|59d"}, {VDCalc60fps, "0100|5d", "00:00:01.00|5d"},
        {VKFrameRateCode(25), "1:2:3", "01:02:03.00"}, // a code outside the table: no suffix
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(calcAt(c.code).beautifyExpression(c.typed), c.canonical) << c.typed;
    // The canonical text evaluates to what the typed text meant.
    VKCalc &d = calcAt(VDCalc29drop);
    EXPECT_EQ(d.evalPTToFrames(d.beautifyExpression("1:00:00 + 0100")), 107892 + 30);

    VKCalc &c = calcAt(VDCalc30fps);
    // One timestamp at a time; extra runs are dropped.
    // clang-format off
    const struct { const char *text, *canonical; } textSlots[] = {
        {"5", "00:00:05.00|30"}, {"1.5", "00:00:01.05|30"}, {"1:2:3.4|23n", "01:02:03.04|23n"},
        {"1:2:3:4:5:6", "04:05:06.00|30"}, {"123:4", "00:123:04.00|30"}};
    // clang-format on
    for (const auto &s : textSlots)
        EXPECT_EQ(c.beautifyTimestampString(s.text), s.canonical) << s.text;
    EXPECT_EQ(c.beautifyShortTimestampString(""), "00:00:00.00|30");
    EXPECT_EQ(c.beautifyTimestamp({0, {}, 0, 0, 4, "1:00"}, nullptr), "00:01:00.00|30");
    EXPECT_EQ(c.beautifyShortTimestamp({0, {}, 0, 0, 4, "0100"}, nullptr), "00:00:01.00|30");
}

TEST(VKCalcColouring, MarksWhatLaxEvaluationUses)
{
    VKCalc &c = calcAt(VDCalc25fps);
    // Each character as "k" (black: used) or "r" (red: ignored).
    const auto shades = [&](const VKAttributedString &text) {
        const VKAttributedString coloured = c.colorizeLazyEvaluatedString(text);
        EXPECT_EQ(coloured.string(), text.string());
        QString out;
        for (qsizetype i = 0; i < coloured.length(); ++i)
            out += coloured.foregroundColorAtIndex(i) == QColor(Qt::black) ? u'k' : u'r';
        return out;
    };
    EXPECT_EQ(shades(VKAttributedString("01:00:00.00+")), "kkkkkkkkkkkr");
    EXPECT_EQ(shades(VKAttributedString("abc")), "rrr");
    EXPECT_EQ(shades(VKAttributedString()), "");
    // Before, inside and after; other attributes stay.
    VKAttributedString mixed(QStringLiteral("ab 2*3 cd"));
    mixed.addAttribute(VKBaselineOffsetAttributeName, 2.0, {0, 4});
    EXPECT_EQ(shades(mixed), "rrkkkkkrr");
    EXPECT_EQ(c.colorizeLazyEvaluatedString(mixed).attributeAtIndex(VKBaselineOffsetAttributeName, 3),
              QVariant(2.0));
    EXPECT_EQ(c.colorizeLazyEvaluatedString(VKAttributedString("abc")).foregroundColorAtIndex(0),
              QColor(Qt::red));
}
