#include "Foundation/VKException.h"
#include "Foundation/VKNumericStringCompare.h"
#include "Foundation/VKStringRanges.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

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
    EXPECT_EQ(R::nonDecimalDigitSuffix("A001_C002.0001.dpx"), QStringLiteral(".dpx"));
    EXPECT_EQ(R::nonDecimalDigitSuffix("clip7"), QStringLiteral(""));
    EXPECT_EQ(R::nonDecimalDigitSuffix("clip.dpx"), QStringLiteral("clip.dpx"));
    EXPECT_EQ(R::nonDecimalDigitSuffix(""), QStringLiteral(""));
    EXPECT_EQ(R::decimalDigitSuffix("clip7"), QStringLiteral("7"));
    EXPECT_EQ(R::decimalDigitSuffix("A001_C002.0001"), QStringLiteral("0001"));
    EXPECT_EQ(R::decimalDigitSuffix("clip7a"), QStringLiteral(""));
    EXPECT_EQ(R::decimalDigitSuffix("12345"), QStringLiteral("12345"));
    EXPECT_EQ(R::decimalDigitSuffix(""), QStringLiteral(""));
    // Digits of other scripts, and one outside the Basic Multilingual Plane.
    EXPECT_EQ(R::decimalDigitSuffix(u"clip_\u0661\u0662"_qs), u"\u0661\u0662"_qs);
    EXPECT_EQ(R::nonDecimalDigitSuffix(u"clip_\uFF11.dpx"_qs), QStringLiteral(".dpx"));
    EXPECT_EQ(R::decimalDigitSuffix("a" + wideDigit(1) + wideDigit(2)), wideDigit(1) + wideDigit(2));
    EXPECT_EQ(R::nonDecimalDigitSuffix("a" + wideDigit(3) + ".x"), QStringLiteral(".x"));
    // Superscripts have a digit value but are not decimal digits.
    EXPECT_EQ(R::decimalDigitSuffix(u"x\u00B2"_qs), QStringLiteral(""));
}

TEST(VKStringRanges, DeletingSuffix)
{
    EXPECT_EQ(R::stringByDeletingSuffix("clip_0001.dpx", ".dpx"), QStringLiteral("clip_0001"));
    EXPECT_EQ(R::stringByDeletingSuffix("clip_0001.dpx", ""), QStringLiteral("clip_0001.dpx"));
    EXPECT_EQ(R::stringByDeletingSuffix("clip", "clip"), QStringLiteral(""));
    EXPECT_EQ(R::stringByDeletingSuffix("clip.dpx", ".tif"), QStringLiteral("clip.dpx"));
}

TEST(VKStringRanges, RangesBeforeAndAfterAreNotFoundWhenEmpty)
{
    const QString s = "abcdef";
    EXPECT_EQ(R::rangeBeforeRange(s, {2, 2}), (VKRange{0, 2}));
    EXPECT_EQ(R::rangeAfterRange(s, {2, 2}), (VKRange{4, 2}));
    EXPECT_FALSE(R::rangeBeforeRange(s, {0, 3}).isFound());
    EXPECT_FALSE(R::rangeAfterRange(s, {3, 3}).isFound());
    EXPECT_FALSE(R::rangeAfterRange(s, {0, 6}).isFound());
    EXPECT_EQ(R::rangeAfterRange(s, {0, 0}), (VKRange{0, 6}));
    EXPECT_EQ(R::rangeBeforeRange(s, {6, 0}), (VKRange{0, 6}));
    EXPECT_FALSE(R::rangeBeforeRange(s, VKRange::notFound()).isFound());
    EXPECT_FALSE(R::rangeAfterRange(s, VKRange::notFound()).isFound());
    EXPECT_EQ(VKRange::notFound().location, 0x7FFFFFFFFFFFFFFFLL);
}

TEST(VKStringRanges, CharacterSearchCoversTheWholeRun)
{
    const QString s = "ab12cd345ef";
    EXPECT_EQ(R::rangeOfCharactersFromSet(s, digits), (VKRange{2, 2}));
    EXPECT_EQ(R::rangeOfCharactersFromSet(s, digits, VKBackwardsSearch), (VKRange{6, 3}));
    EXPECT_FALSE(R::rangeOfCharactersFromSet(s, digits, VKAnchoredSearch).isFound());
    EXPECT_FALSE(
        R::rangeOfCharactersFromSet(s, digits, VKBackwardsSearch | VKAnchoredSearch).isFound());
    EXPECT_FALSE(R::rangeOfCharactersFromSet("abc", digits).isFound());
    EXPECT_FALSE(R::rangeOfCharactersFromSet("", digits, VKBackwardsSearch).isFound());
    EXPECT_EQ(R::rangeOfCharactersFromSet("##a###", hashes, VKBackwardsSearch), (VKRange{3, 3}));
    EXPECT_EQ(R::rangeOfCharactersFromSet("##a###", hashes), (VKRange{0, 2}));

    // Within a range the run stops at the range's edges, and anchoring is to its ends.
    const unsigned justBefore = VKBackwardsSearch | VKAnchoredSearch;
    EXPECT_EQ(R::rangeOfCharactersFromSet(s, digits, justBefore, {0, 8}), (VKRange{6, 2}));
    EXPECT_EQ(R::rangeOfCharactersFromSet(s, digits, VKAnchoredSearch, {7, 4}), (VKRange{7, 2}));
    EXPECT_EQ(R::rangeOfCharactersFromSet(s, digits, VKNoSearchOptions, {3, 8}), (VKRange{3, 1}));
    EXPECT_FALSE(R::rangeOfCharactersFromSet(s, digits, justBefore, {0, 5}).isFound());
    EXPECT_FALSE(R::rangeOfCharactersFromSet(s, digits, VKNoSearchOptions, {4, 0}).isFound());

    // A two-unit digit is one character: never split, never half-matched at a range edge.
    const QString wide = "x" + wideDigit(4) + wideDigit(5) + "y";
    EXPECT_EQ(R::rangeOfCharactersFromSet(wide, digits, VKBackwardsSearch), (VKRange{1, 4}));
    EXPECT_EQ(R::rangeOfCharactersFromSet(wide, digits, VKNoSearchOptions, {1, 3}), (VKRange{1, 2}));
}

TEST(VKStringRanges, SearchOutsideTheStringRaisesRangeException)
{
    try {
        R::rangeOfCharactersFromSet("abc", digits, VKNoSearchOptions, {2, 5});
        FAIL() << "no exception";
    } catch (const VKException &e) {
        EXPECT_EQ(e.name(), VKRangeException);
        EXPECT_EQ(e.reason(), QStringLiteral("Range {2, 5} out of bounds; string length 3"));
    }
    EXPECT_THROW(R::rangeOfCharactersFromSet("abc", digits, VKNoSearchOptions, {-1, 1}),
                 VKException);
    EXPECT_THROW(R::rangeOfCharactersFromSet("abc", digits, VKNoSearchOptions,
                                             VKRange::notFound()),
                 VKException);
}

TEST(VKStringRanges, LenientIntegerReadingSaturates)
{
    EXPECT_EQ(R::intValue(u"0001"), 1);
    EXPECT_EQ(R::intValue(u"  -42abc"), -42);
    EXPECT_EQ(R::intValue(u"+7"), 7);
    EXPECT_EQ(R::intValue(u"abc"), 0);
    EXPECT_EQ(R::intValue(u""), 0);
    EXPECT_EQ(R::intValue(u"2147483647"), 2147483647);
    EXPECT_EQ(R::intValue(u"2147483648"), 2147483647);
    EXPECT_EQ(R::intValue(u"99999999999999999999999"), 2147483647);
    EXPECT_EQ(R::intValue(u"-2147483648"), -2147483647 - 1);
    EXPECT_EQ(R::intValue(u"-2147483649"), -2147483647 - 1);
    EXPECT_EQ(R::longLongValue(u"9223372036854775807"), 9223372036854775807LL);
    EXPECT_EQ(R::longLongValue(u"9223372036854775808"), 9223372036854775807LL);
    EXPECT_EQ(R::longLongValue(u"4294967296"), 4294967296LL);
    EXPECT_EQ(R::intValue(u"\u0661\u0662"), 12);
    EXPECT_EQ(R::intValue(QString("1" + wideDigit(9))), 19);
}

TEST(VKNumericStringCompare, NumbersCompareByValue)
{
    auto less = [](const QString &a, const QString &b) {
        return VKNumericStringCompare::compare(a, b) < 0 && VKNumericStringCompare::compare(b, a) > 0;
    };
    EXPECT_TRUE(less("a9", "a10"));
    EXPECT_TRUE(less("clip_2.dpx", "clip_10.dpx"));
    EXPECT_TRUE(less("a1b9", "a1b10"));
    EXPECT_TRUE(less("a", "a1"));
    EXPECT_TRUE(less("clip", "clip_1"));
    EXPECT_TRUE(less("x99999999999999999999998", "x99999999999999999999999"));
    EXPECT_TRUE(less("x99999999999999999999999", "x100000000000000000000000"));
    // Case-sensitive, by code unit.
    EXPECT_TRUE(less("B", "a"));
    EXPECT_TRUE(less("Clip_2", "clip_1"));
    // A number sorts where "0" would against other characters.
    EXPECT_TRUE(less("a 1", "a1"));
    EXPECT_TRUE(less("a.dpx", "a1.dpx"));
    EXPECT_TRUE(less("a9", "a_"));
    EXPECT_TRUE(less("a/1", "a1"));
    // Digits of other scripts count by value too.
    EXPECT_TRUE(less(u"a\u0669"_qs, "a10"));
    EXPECT_TRUE(less("a3", u"a\u0664"_qs));
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
