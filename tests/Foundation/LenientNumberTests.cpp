// The one lenient number reader: C-library-like prefixes, saturation, locale independence.
#include "Foundation/VKLenientNumber.h"

#include <gtest/gtest.h>

#include <limits>

TEST(VKLenientNumber, ReadsTheLongestNumberAtTheStart)
{
    constexpr double inf = std::numeric_limits<double>::infinity();
    // clang-format off
    const struct { const char *text; double value; } doubles[] = {
        {"1e3", 1000.0}, {"2.5e", 2.5},   {".5", 0.5},      {".", 0.0},     {"-1.25x", -1.25},
        {"  +7", 7.0},   {"0x10", 0.0},   {"inf", 0.0},     {"1e400", inf}, {"-1e400", -inf},
        {"1e-400", 0.0}, {"1,5", 1.0},    {"", 0.0},        {"e5", 0.0},    {"3e+2", 300.0},
    };
    // clang-format on
    for (const auto &c : doubles)
        EXPECT_EQ(VKLenientNumber::doubleValue(QString::fromLatin1(c.text)), c.value) << c.text;
    EXPECT_EQ(VKLenientNumber::floatValue("1e39"), std::numeric_limits<float>::infinity());
    EXPECT_EQ(VKLenientNumber::floatValue("0.1"), 0.1f);

    // clang-format off
    const struct { const char *text; qint64 longValue; qint32 intValue; bool boolValue; } integers[] = {
        {"42abc", 42, 42, true}, {"-17", -17, -17, true},
        {"99999999999", 99999999999LL, std::numeric_limits<qint32>::max(), true},
        {"-99999999999999999999", std::numeric_limits<qint64>::min(), std::numeric_limits<qint32>::min(), true},
        {" +07", 7, 7, true}, {"000", 0, 0, false}, {"YES", 0, 0, true}, {"true", 0, 0, true},
        {"no", 0, 0, false}, {"", 0, 0, false}, {"2.9", 2, 2, true},
    };
    // clang-format on
    for (const auto &c : integers) {
        SCOPED_TRACE(c.text);
        const QString text = QString::fromLatin1(c.text);
        EXPECT_EQ(VKLenientNumber::longLongValue(text), c.longValue);
        EXPECT_EQ(VKLenientNumber::intValue(text), c.intValue);
        EXPECT_EQ(VKLenientNumber::boolValue(text), c.boolValue);
    }
}
