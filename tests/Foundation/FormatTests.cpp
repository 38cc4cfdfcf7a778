#include "Foundation/VKFormat.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

struct Described
{
    QString description() const { return QStringLiteral("<described>"); }
};

} // namespace

TEST(VKFormat, TimecodeFormatWithObjectAndZeroPaddedFields)
{
    EXPECT_EQ(vkFormat("%@%2.2d:%2.2d:%2.2d.%2.2d", QStringLiteral("-"), 1, 2, 3, 4),
              QStringLiteral("-01:02:03.04"));
    EXPECT_EQ(vkFormat("%@%2.2d:%2.2d:%2.2d.%2.2d", QStringLiteral(""), 100, 0, 59, 24),
              QStringLiteral("100:00:59.24"));
}

TEST(VKFormat, IntegerLengthModifiersNarrowLikeC)
{
    EXPECT_EQ(vkFormat("Could not get filePath for index %lu", qulonglong(42)),
              QStringLiteral("Could not get filePath for index 42"));
    EXPECT_EQ(vkFormat("%lu", -1), QStringLiteral("18446744073709551615"));
    EXPECT_EQ(vkFormat("%d", qint64(0x100000001LL)), QStringLiteral("1"));
    EXPECT_EQ(vkFormat("%lld", LLONG_MAX), QStringLiteral("9223372036854775807"));
    EXPECT_EQ(vkFormat("%qd", qint64(-5)), QStringLiteral("-5"));
    EXPECT_EQ(vkFormat("%hd", 65537), QStringLiteral("1"));
    EXPECT_EQ(vkFormat("%u", -1), QStringLiteral("4294967295"));
    EXPECT_EQ(vkFormat("%x|%X|%o", 255, 255, 8), QStringLiteral("ff|FF|10"));
    EXPECT_EQ(vkFormat("%-5d|%05d|%+d", 7, 7, 7), QStringLiteral("7    |00007|+7"));
    EXPECT_EQ(vkFormat("%*d", 4, 7), QStringLiteral("   7"));
}

TEST(VKFormat, FloatingPoint)
{
    EXPECT_EQ(vkFormat("Unknown framerate: %f this message will only be logged once", 12.5),
              QStringLiteral("Unknown framerate: 12.500000 this message will only be logged once"));
    EXPECT_EQ(vkFormat("%.1f %.3g %e", 2.25f, 1234.5, 0.5), QStringLiteral("2.2 1.23e+03 5.000000e-01"));
    EXPECT_EQ(vkFormat("%f", 3), QStringLiteral("3.000000"));
}

TEST(VKFormat, ObjectsStringsAndNull)
{
    EXPECT_EQ(vkFormat("%@|%@|%@", QString(), nullptr, QVariant()), QStringLiteral("(null)|(null)|(null)"));
    EXPECT_EQ(vkFormat("[%@]", QStringLiteral("")), QStringLiteral("[]"));
    EXPECT_EQ(vkFormat("%@ and %s", "utf8 \u00e9", QStringLiteral("q")), QStringLiteral("utf8 \u00e9 and q"));
    EXPECT_EQ(vkFormat("%@", Described{}), QStringLiteral("<described>"));
    EXPECT_EQ(vkFormat("%@ %@ %@", QVariant(25), QVariant(0.1), QVariant(true)), QStringLiteral("25 0.1 1"));
    EXPECT_EQ(vkFormat("%@", QVariant(25.0f)), QStringLiteral("25"));
    EXPECT_EQ(vkFormat("%@", QStringList{QStringLiteral("a"), QStringLiteral("b c")}),
              QStringLiteral("(\n    a,\n    \"b c\"\n)"));
    EXPECT_EQ(vkFormat("%@", QVariantMap{{QStringLiteral("k"), 1}}), QStringLiteral("{\n    k = 1;\n}"));
    EXPECT_EQ(vkFormat("%@", QByteArray("\x01\x02\x03\x04\x05", 5)), QStringLiteral("<01020304 05>"));
    EXPECT_EQ(vkFormat("%5@|%-5s|%.2@", QStringLiteral("ab"), "cd", QStringLiteral("xyz")),
              QStringLiteral("   ab|cd   |xy"));
}

TEST(VKFormat, PercentPointersPositionsAndMalformedFormats)
{
    EXPECT_EQ(vkFormat("100%% done"), QStringLiteral("100% done"));
    EXPECT_EQ(vkFormat("%p", static_cast<const void *>(nullptr)), QStringLiteral("0x0"));
    EXPECT_EQ(vkFormat("%p", reinterpret_cast<const void *>(0xdeadbeefULL)), QStringLiteral("0xdeadbeef"));
    EXPECT_EQ(vkFormat("%2$@-%1$@", QStringLiteral("a"), QStringLiteral("b")), QStringLiteral("b-a"));
    // Missing arguments print nothing; unknown conversions and a lone '%' are kept.
    EXPECT_EQ(vkFormat("a%db%@c"), QStringLiteral("abc"));
    EXPECT_EQ(vkFormat("50%"), QStringLiteral("50%"));
    EXPECT_EQ(vkFormat("%k%y", 1), QStringLiteral("%k%y"));
    EXPECT_EQ(vkFormat("%2.2"), QStringLiteral("%2.2"));
}
