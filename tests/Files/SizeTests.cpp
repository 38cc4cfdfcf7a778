#include "Files/VKFileSize.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr quint64 kMax = std::numeric_limits<quint64>::max();
constexpr auto sizeText = &VKFileSize::humanReadableFileSizeStringFromByteCount;
constexpr auto parse = &VKFileSize::byteCountFromHumanReadableFileSizeString;

} // namespace

TEST(VKFileSize, SizeAndSpeedTexts)
{
    // Rounded as printf("%.1f") rounds: 0.95 is stored just below itself; 0.25 and 1.25 are
    // exact ties that go to even.
    // clang-format off
    const struct { quint64 bytes; const char *text; } cases[] = {
        {0, "0.0 KB"}, {49, "0.0 KB"}, {50, "0.1 KB"}, {999, "1.0 KB"}, {950, "0.9 KB"},
        {250, "0.2 KB"}, {1250000, "1.2 MB"}, {quint64(1) << 63, "9.2 EB"}, {kMax, "18.4 EB"},
    };
    // clang-format on
    for (const auto &c : cases) {
        EXPECT_EQ(sizeText(c.bytes), c.text) << c.bytes;
        EXPECT_EQ(VKFileSize::humanReadableCopySpeedStringFromBytesPerSecond(c.bytes),
                  QString::fromLatin1(c.text) + "/s");
    }
    // The unit is chosen before rounding, so just below the next unit prints "1000.0"; the count
    // becomes a double first, so 10^18 - 1 is no longer below 10^18.
    const char *const units[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
    quint64 scale = 1;
    for (int power = 0; power < 5; ++power, scale *= 1000) {
        const QString unit = QString::fromLatin1(units[power]);
        EXPECT_EQ(sizeText(999949 * scale), "999.9 " + unit);
        EXPECT_EQ(sizeText(999950 * scale), "1000.0 " + unit);
        EXPECT_EQ(sizeText(1000000 * scale - 1), power < 4 ? "1000.0 " + unit : QString("1.0 EB"));
        EXPECT_EQ(sizeText(1000000 * scale), "1.0 " + QString::fromLatin1(units[power + 1]));
    }
}

TEST(VKFileSize, ParserReadsNumberAndUnit)
{
    // Every unit, in either case, with or without a space.
    quint64 scale = 1;
    for (const QString unit : {"B", "KB", "MB", "GB", "TB", "PB", "EB"}) {
        EXPECT_EQ(parse("3 " + unit + "/s"), 3 * scale) << unit.toStdString();
        EXPECT_EQ(parse("3" + unit.toLower() + "/s"), 3 * scale) << unit.toStdString();
        scale *= 1000;
    }
    // clang-format off
    const struct { const char16_t *text; quint64 bytes; } cases[] = {
        // From 2^63 up the count is unsigned; from 2^64 on it stops at the top.
        {u"9.3 EB/s", 9300000000000000000u}, {u"0.5 yb/s", kMax},
        {u"18446744073709549568 B/s", 18446744073709549568u}, // the last double below 2^64
        {u"18446744073709551616 B/s", kMax},                  // exactly 2^64
        // The number: digits, one dot; a comma or a second dot ends it.
        {u"1,5 MB/s", 1000000}, {u"1.2.3 MB/s", 1200000}, {u".5 KB/s", 500}, {u". KB/s", 0},
        {u"0012 B/s", 12},
        {u"1e3 B/s", 1}, // no exponent: "1" and the unit "B"
        // Three decimals, half away from zero, of the number as C reads it (1.2345 is stored
        // just below itself, 2.0625 is exact); then truncation toward zero.
        {u"1.2346 MB/s", 1235000}, {u"1.2345 MB/s", 1234000}, {u"2.0625 KB/s", 2063},
        {u"0.0004 KB/s", 0}, {u"1.9999 B/s", 2}, {u"1.4 B/s", 1},
        {u"514.6 KB/s", 514599}, // extended precision lands just below
        {u"16.2 EB/s", 16200000000000000001u},
        // White space: trailing is trimmed, leading leaves no number.
        {u"12 MB/s\t \r\n", 12000000}, {u"12\tMB/s", 12000000}, {u" 12 MB/s", 0},
        // Only the letters after the last digit are the unit; whole code points count.
        {u"12 M2B/s", 12}, {u"12 K1MB/s", 12000000}, {u"12 \U0001F600MB/s", 12000000},
        {u"12 \U0001D400MB/s", 0}, // a letter outside the basic plane
        {u"12 \u00B5B/s", 0},
        // Not a speed.
        {u"", 0}, {u"/s", 0}, {u"12", 0}, {u"12/s", 0}, {u"12.5 MB/sec", 0}, {u"12 M/s", 0},
        {u"12 MB /s", 0}, {u"12 MB/s/s", 0}, {u"12 MB2/s", 0}, {u"-12 MB/s", 0},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(parse(QString::fromUtf16(c.text)), c.bytes)
            << QString::fromUtf16(c.text).toStdString();
    EXPECT_EQ(parse(QString()), 0u);
    EXPECT_EQ(parse(QString(400, u'9') + " B/s"), kMax);
    EXPECT_EQ(parse("0." + QString(400, u'0') + "1 YB/s"), 0u);
}
