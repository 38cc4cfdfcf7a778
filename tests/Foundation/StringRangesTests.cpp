#include "Foundation/VKException.h"
#include "Foundation/VKNumericStringCompare.h"
#include "Foundation/VKStringRanges.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

using R = VKStringRanges;

namespace {

const VKCharacterSet digits = VKCharacterSet::decimalDigitCharacterSet();
const VKCharacterSet hashes = VKCharacterSet::characterSetWithCharactersInString("#");

// U+1D7D8 MATHEMATICAL DOUBLE-STRUCK DIGIT ZERO plus n: a digit that takes two code units.
QString wideDigit(int n)
{
    return QString::fromUcs4(std::u32string(1, char32_t(0x1D7D8 + n)).c_str(), 1);
}

} // namespace

TEST(VKStringRanges, DigitAndNonDigitSuffixes)
{
    const QString w1 = wideDigit(1), w2 = wideDigit(2);
    // Digits of other scripts count, one outside the Basic Multilingual Plane too; superscripts
    // have a digit value but are not decimal digits.
    // clang-format off
    const struct { QString string, digits, nonDigits; } cases[] = {
        {"A001_C002.0001.dpx", "", ".dpx"}, {"A001_C002.0001", "0001", ""}, {"clip7", "7", ""},
        {"clip.dpx", "", "clip.dpx"}, {"clip7a", "", "a"}, {"12345", "12345", ""}, {"", "", ""},
        {u"clip_\u0661\u0662"_qs, u"\u0661\u0662"_qs, ""}, {u"clip_\uFF11.dpx"_qs, "", ".dpx"},
        {"a" + w1 + w2, w1 + w2, ""}, {"a" + wideDigit(3) + ".x", "", ".x"}, {u"x\u00B2"_qs, "", u"x\u00B2"_qs},
    };
    // clang-format on
    for (const auto &c : cases) {
        EXPECT_EQ(R::decimalDigitSuffix(c.string), c.digits) << c.string;
        EXPECT_EQ(R::nonDecimalDigitSuffix(c.string), c.nonDigits) << c.string;
    }
    for (const auto &[string, suffix, expected] : QList<std::tuple<QString, QString, QString>>{
             {"clip_0001.dpx", ".dpx", "clip_0001"}, {"clip_0001.dpx", "", "clip_0001.dpx"},
             {"clip", "clip", ""}, {"clip.dpx", ".tif", "clip.dpx"}})
        EXPECT_EQ(R::stringByDeletingSuffix(string, suffix), expected) << string << " - " << suffix;
}

TEST(VKStringRanges, RangesBeforeAndAfterAreNotFoundWhenEmpty)
{
    const VKRange none = VKRange::notFound();
    EXPECT_EQ(none.location, 0x7FFFFFFFFFFFFFFFLL);
    // clang-format off
    const struct { VKRange range, before, after; } cases[] = {
        {{2, 2}, {0, 2}, {4, 2}}, {{0, 3}, none, {3, 3}}, {{3, 3}, {0, 3}, none}, {{0, 6}, none, none},
        {{0, 0}, none, {0, 6}}, {{6, 0}, {0, 6}, none}, {none, none, none},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.range.location << "," << c.range.length);
        EXPECT_EQ(R::rangeBeforeRange("abcdef", c.range), c.before);
        EXPECT_EQ(R::rangeAfterRange("abcdef", c.range), c.after);
    }
}

TEST(VKStringRanges, CharacterSearchCoversTheWholeRun)
{
    const VKRange none = VKRange::notFound(), whole{-1, -1};
    const unsigned back = VKBackwardsSearch, anchored = VKAnchoredSearch;
    const QString s = "ab12cd345ef", wide = "x" + wideDigit(4) + wideDigit(5) + "y";
    // Within a range the run stops at the range's edges, and anchoring is to its ends. A
    // two-unit digit is one character: never split, never half-matched at a range edge.
    // clang-format off
    const struct { QString string; VKCharacterSet set; unsigned options; VKRange within, expected; } cases[] = {
        {s, digits, 0, whole, {2, 2}}, {s, digits, back, whole, {6, 3}}, {s, digits, anchored, whole, none},
        {s, digits, back | anchored, whole, none}, {"abc", digits, 0, whole, none},
        {"", digits, back, whole, none}, {"##a###", hashes, back, whole, {3, 3}},
        {"##a###", hashes, 0, whole, {0, 2}},
        {s, digits, back | anchored, {0, 8}, {6, 2}}, {s, digits, anchored, {7, 4}, {7, 2}},
        {s, digits, 0, {3, 8}, {3, 1}}, {s, digits, back | anchored, {0, 5}, none},
        {s, digits, 0, {4, 0}, none},
        {wide, digits, back, whole, {1, 4}}, {wide, digits, 0, {1, 3}, {1, 2}},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.string << " options " << c.options << " within "
                                        << c.within.location << "," << c.within.length);
        EXPECT_EQ(c.within.location < 0
                      ? R::rangeOfCharactersFromSet(c.string, c.set, c.options)
                      : R::rangeOfCharactersFromSet(c.string, c.set, c.options, c.within),
                  c.expected);
    }
    EXPECT_EQ(vkRaisedBy([] { R::rangeOfCharactersFromSet("abc", digits, 0, {2, 5}); }),
              "NSRangeException|Range {2, 5} out of bounds; string length 3");
    EXPECT_THROW(R::rangeOfCharactersFromSet("abc", digits, 0, {-1, 1}), VKException);
    EXPECT_THROW(R::rangeOfCharactersFromSet("abc", digits, 0, none), VKException);
}

TEST(VKStringRanges, LenientIntegerReadingSaturates)
{
    constexpr qint64 intMax = 2147483647, intMin = -intMax - 1, longMax = 9223372036854775807LL;
    // clang-format off
    const struct { QString text; qint64 expected; bool asLongLong; } cases[] = {
        {"0001", 1, false}, {"  -42abc", -42, false}, {"+7", 7, false}, {"abc", 0, false},
        {"", 0, false}, {"2147483647", intMax, false}, {"2147483648", intMax, false},
        {"99999999999999999999999", intMax, false}, {"-2147483648", intMin, false},
        {"-2147483649", intMin, false}, {u"\u0661\u0662"_qs, 12, false}, {"1" + wideDigit(9), 19, false},
        {"9223372036854775807", longMax, true}, {"9223372036854775808", longMax, true},
        {"4294967296", 4294967296LL, true},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(c.asLongLong ? R::longLongValue(c.text) : R::intValue(c.text), c.expected)
            << c.text;
}

TEST(VKNumericStringCompare, NumbersCompareByValue)
{
    // Case-sensitive, by code unit; a number sorts where "0" would against other characters;
    // digits of other scripts count by value too.
    // clang-format off
    const std::pair<QString, QString> ordered[] = {
        {"a9", "a10"}, {"clip_2.dpx", "clip_10.dpx"}, {"a1b9", "a1b10"}, {"a", "a1"}, {"clip", "clip_1"},
        {"x99999999999999999999998", "x99999999999999999999999"},
        {"x99999999999999999999999", "x100000000000000000000000"},
        {"B", "a"}, {"Clip_2", "clip_1"}, {"a 1", "a1"}, {"a.dpx", "a1.dpx"}, {"a9", "a_"}, {"a/1", "a1"},
        {u"a\u0669"_qs, "a10"}, {"a3", u"a\u0664"_qs},
    };
    // clang-format on
    for (const auto &[a, b] : ordered) {
        EXPECT_LT(VKNumericStringCompare::compare(a, b), 0) << a << " < " << b;
        EXPECT_GT(VKNumericStringCompare::compare(b, a), 0) << b << " > " << a;
    }
    EXPECT_EQ(VKNumericStringCompare::compare(u"same", u"same"), 0);
}

TEST(VKNumericStringCompare, EqualNumbersStillGetAFixedOrder)
{
    EXPECT_EQ(VKNumericStringCompare::compareNumerically(u"a01", u"a1"), 0);
    EXPECT_LT(VKNumericStringCompare::compare(u"a01", u"a1"), 0);
    EXPECT_GT(VKNumericStringCompare::compare(u"a1", u"a01"), 0);
    EXPECT_EQ(VKNumericStringCompare::compareNumerically(u"a01b2", u"a1b02"), 0);
    EXPECT_LT(VKNumericStringCompare::compare(u"a01b2", u"a1b02"), 0);
    // After equal numbers of different lengths the rest still lines up.
    EXPECT_LT(VKNumericStringCompare::compare(u"a01b", u"a1c"), 0);
    EXPECT_GT(VKNumericStringCompare::compare(u"a001c", u"a1b"), 0);
    EXPECT_EQ(VKNumericStringCompare::compareNumerically(u"x0", u"x000"), 0);
    EXPECT_NE(VKNumericStringCompare::compare(u"x0", u"x000"), 0);
}

TEST(VKNumericStringCompare, SortingIsATotalOrderOnMixedNames)
{
    // Names made of a few confusable pieces: leading zeros, case, numbers against punctuation,
    // digits of two scripts. Any sort must then agree with every pairwise comparison.
    const QStringList pieces = {"0", "00", "1", "01", "9", "10", "a", "A", "_", ".", " ",
                                u"\u0661"_qs, u"\u0660\u0661"_qs, "/", "z"};
    std::mt19937 random(7);
    QStringList names;
    for (int n = 0; n < 400; ++n) {
        QString name;
        const int count = 1 + int(random() % 4);
        for (int k = 0; k < count; ++k)
            name += pieces[random() % pieces.size()];
        names.append(name);
    }
    QStringList sorted = names;
    VKNumericStringCompare::sort(sorted);
    for (qsizetype i = 0; i + 1 < sorted.size(); ++i)
        ASSERT_LE(VKNumericStringCompare::compare(sorted[i], sorted[i + 1]), 0)
            << sorted[i].toStdString() << " / " << sorted[i + 1].toStdString();
    for (int t = 0; t < 3000; ++t) {
        const QString &a = names[random() % names.size()];
        const QString &b = names[random() % names.size()];
        const QString &c = names[random() % names.size()];
        const int ab = VKNumericStringCompare::compare(a, b);
        ASSERT_EQ(ab, -VKNumericStringCompare::compare(b, a));
        ASSERT_EQ(ab == 0, a == b);
        if (ab < 0 && VKNumericStringCompare::compare(b, c) < 0) {
            ASSERT_LT(VKNumericStringCompare::compare(a, c), 0)
                << a.toStdString() << " " << b.toStdString() << " " << c.toStdString();
        }
    }
    // The order does not depend on the input order.
    QStringList shuffled = names;
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    VKNumericStringCompare::sort(shuffled);
    EXPECT_EQ(shuffled, sorted);
}

TEST(VKNumericStringCompare, SortingLongListsAgreesWithThePairwiseOrder)
{
    // Long shared beginnings, numbers split across key boundaries, leading zeros, very long
    // digit runs, non-ASCII characters and digits: the fast sort must give exactly the order of
    // a plain comparison sort.
    std::mt19937 random(11);
    const QStringList folders = {"/Volumes/CARD_01/A001_C0001_REEL/", "/Volumes/CARD_01/A001_C0001_REEL",
                                 "/Volumes/CARD_1/", u"/V/caf\u00E9/"_qs, "/V/r\u0661/"};
    QStringList names;
    for (int n = 0; n < 5000; ++n) {
        QString name = folders[random() % folders.size()];
        name += QStringList{"A001C001_plate_v", "A001C001_grade_v", "a", "A", ""}[random() % 5];
        name += QString::number(random() % 3).rightJustified(int(random() % 3), u'0');
        if (random() % 7 == 0)
            name += QString(int(240 + random() % 20), u'7') + QString::number(random() % 10);
        name += QStringList{".", "_", "", u"\u0662"_qs}[random() % 4];
        name += QString::number(random() % 200).rightJustified(int(random() % 8), u'0');
        name += QStringList{".dpx", ".exr", "", "0"}[random() % 4];
        names.append(name);
    }
    QStringList expected = names;
    std::sort(expected.begin(), expected.end(), VKNumericStringCompare::lessThan);
    EXPECT_EQ(VKNumericStringCompare::sorted(names), expected);
    const QList<qsizetype> indexes = VKNumericStringCompare::sortedIndexes(names);
    ASSERT_EQ(indexes.size(), names.size());
    for (qsizetype i = 0; i < indexes.size(); ++i)
        ASSERT_EQ(names[indexes[i]], expected[i]);
    EXPECT_EQ(VKNumericStringCompare::sorted({}), QStringList{});
    EXPECT_EQ(VKNumericStringCompare::sorted({"x"}), QStringList{"x"});
}
