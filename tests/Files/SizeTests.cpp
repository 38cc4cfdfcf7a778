#include "Files/VKFileSize.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <limits>
#include <locale.h>
#include <random>

namespace {

QString sizeText(quint64 bytes)
{
    return VKFileSize::humanReadableFileSizeStringFromByteCount(bytes);
}

QString speedText(quint64 bytesPerSecond)
{
    return VKFileSize::humanReadableCopySpeedStringFromBytesPerSecond(bytesPerSecond);
}

quint64 parse(const QString &text)
{
    return VKFileSize::byteCountFromHumanReadableFileSizeString(text);
}

constexpr quint64 kMax = std::numeric_limits<quint64>::max();

// The size text as the C library prints it, in the C locale whatever the process uses.
QString printfSizeText(quint64 bytes)
{
    static const char *const units[] = {"KB", "MB", "GB", "TB", "PB", "EB", "ZB", "YB"};
    double value = static_cast<double>(bytes) / 1000.0;
    int unit = 0;
    while (value >= 1000.0 && unit < 7) {
        value /= 1000.0;
        ++unit;
    }
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    const locale_t previous = uselocale(cLocale);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.1f %s", value, units[unit]);
    uselocale(previous);
    return QString::fromLatin1(buffer);
}

} // namespace

TEST(VKFileSize, SizeTextUsesDecimalUnitsFromKilobytesUp)
{
    EXPECT_EQ(sizeText(0), "0.0 KB");
    EXPECT_EQ(sizeText(49), "0.0 KB");
    EXPECT_EQ(sizeText(50), "0.1 KB");
    EXPECT_EQ(sizeText(999), "1.0 KB");
    EXPECT_EQ(sizeText(1024), "1.0 KB");
    EXPECT_EQ(sizeText(1500000), "1.5 MB");
    // 0.95 is stored just below itself and 0.25 / 1.25 are exact ties that go to even.
    EXPECT_EQ(sizeText(950), "0.9 KB");
    EXPECT_EQ(sizeText(250), "0.2 KB");
    EXPECT_EQ(sizeText(750), "0.8 KB");
    EXPECT_EQ(sizeText(1250000), "1.2 MB");
    EXPECT_EQ(sizeText(quint64(1) << 63), "9.2 EB");
    EXPECT_EQ(sizeText(kMax), "18.4 EB");
}

TEST(VKFileSize, SizeTextUnitBoundariesAtEveryPowerOfThousand)
{
    // The unit is chosen before rounding, so just below the next unit prints "1000.0".
    const char *const units[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
    quint64 scale = 1;
    for (int power = 0; power < 5; ++power, scale *= 1000) {
        SCOPED_TRACE(power);
        const QString unit = QString::fromLatin1(units[power]);
        EXPECT_EQ(sizeText(999949 * scale), "999.9 " + unit);
        EXPECT_EQ(sizeText(999950 * scale), "1000.0 " + unit);
        EXPECT_EQ(sizeText(999999 * scale), "1000.0 " + unit);
        // The count becomes a double first: 10^18 - 1 is no longer below 10^18.
        EXPECT_EQ(sizeText(1000000 * scale - 1),
                  power < 4 ? "1000.0 " + unit : QStringLiteral("1.0 EB"));
        EXPECT_EQ(sizeText(1000000 * scale), "1.0 " + QString::fromLatin1(units[power + 1]));
    }
}

TEST(VKFileSize, SizeTextRoundsExactlyAsPrintf)
{
    // Counts of every magnitude, and the neighbourhood of every rounding step near a unit
    // boundary, compared with the C library's own "%.1f".
    std::mt19937_64 random(20240307);
    for (int i = 0; i < 200000; ++i) {
        const quint64 bytes = random() >> (random() % 64);
        ASSERT_EQ(sizeText(bytes), printfSizeText(bytes)) << bytes;
    }
    quint64 scale = 1;
    for (int power = 0; power < 6; ++power, scale *= 1000) {
        for (quint64 step = 0; step <= 1000; ++step) {
            const quint64 bytes = step * 1000 * scale + 50 * scale - 1;
            ASSERT_EQ(sizeText(bytes), printfSizeText(bytes)) << bytes;
            ASSERT_EQ(sizeText(bytes + 1), printfSizeText(bytes + 1)) << bytes + 1;
        }
    }
    for (quint64 bytes = kMax; bytes > kMax - 5000; --bytes)
        ASSERT_EQ(sizeText(bytes), printfSizeText(bytes)) << bytes;
}

TEST(VKFileSize, SpeedTextAppendsPerSecond)
{
    EXPECT_EQ(speedText(0), "0.0 KB/s");
    EXPECT_EQ(speedText(12500000), "12.5 MB/s");
    EXPECT_EQ(speedText(999999), "1000.0 KB/s");
    EXPECT_EQ(speedText(kMax), "18.4 EB/s");
}

TEST(VKFileSize, ParserReadsEveryUnitInAnyCase)
{
    const QStringList units = {"B", "KB", "MB", "GB", "TB", "PB", "EB"};
    quint64 scale = 1;
    for (int k = 0; k < 7; ++k, scale *= 1000) {
        const QString unit = units[k];
        SCOPED_TRACE(unit.toStdString());
        EXPECT_EQ(parse("3 " + unit + "/s"), 3 * scale);
        EXPECT_EQ(parse("3 " + unit.toLower() + "/s"), 3 * scale);
        EXPECT_EQ(parse("3" + unit + "/s"), 3 * scale);
        if (unit.size() == 2) {
            EXPECT_EQ(parse("3 " + unit.left(1) + unit.mid(1).toLower() + "/s"), 3 * scale);
            EXPECT_EQ(parse("3 " + unit.left(1).toLower() + unit.mid(1) + "/s"), 3 * scale);
        }
    }
    // Counts from 2^63 up come out unsigned; beyond the 64-bit range they stop at the top.
    EXPECT_EQ(parse("9.3 EB/s"), 9300000000000000000u);
    EXPECT_EQ(parse("10 EB/s"), 10000000000000000000u);
    EXPECT_EQ(parse("18.446 EB/s"), 18446000000000000000u);
    EXPECT_EQ(parse("18.447 EB/s"), kMax);
    EXPECT_EQ(parse("1 ZB/s"), kMax);
    EXPECT_EQ(parse("0.5 yb/s"), kMax);
    EXPECT_EQ(parse(QString(400, u'9') + " B/s"), kMax);
    EXPECT_EQ(parse("0." + QString(400, u'0') + "1 YB/s"), 0u);
}

TEST(VKFileSize, ParserNumberPrefixAndRounding)
{
    EXPECT_EQ(parse("1,5 MB/s"), 1000000u);   // a comma ends the number
    EXPECT_EQ(parse("1.2.3 MB/s"), 1200000u); // so does a second dot
    EXPECT_EQ(parse("1..5 KB/s"), 1000u);
    EXPECT_EQ(parse(".5 KB/s"), 500u);
    EXPECT_EQ(parse("5. KB/s"), 5000u);
    EXPECT_EQ(parse(". KB/s"), 0u);
    EXPECT_EQ(parse(",5 KB/s"), 0u);
    EXPECT_EQ(parse("0012 B/s"), 12u);
    EXPECT_EQ(parse("12 MB/s extra"), 0u);
    // Three decimals, half away from zero, of the number as C reads it (1.2345 and 1.0005 are
    // stored just below themselves, 2.0625 is exact).
    EXPECT_EQ(parse("1.2346 MB/s"), 1235000u);
    EXPECT_EQ(parse("1.2345 MB/s"), 1234000u);
    EXPECT_EQ(parse("1.0005 KB/s"), 1000u);
    EXPECT_EQ(parse("2.0625 KB/s"), 2063u);
    EXPECT_EQ(parse("0.0004 KB/s"), 0u);
    EXPECT_EQ(parse("1.9999 B/s"), 2u);
    EXPECT_EQ(parse("1.4 B/s"), 1u); // truncated toward zero
    // Dividing by 1000 and multiplying back in extended precision can land just below a
    // whole count, which the truncation then drops, or at the top of the range a step above.
    EXPECT_EQ(parse("0.001 KB/s"), 0u);
    EXPECT_EQ(parse("514.6 KB/s"), 514599u);
    EXPECT_EQ(parse("16.2 EB/s"), 16200000000000000001u);
}

TEST(VKFileSize, ParserRejectsWhatIsNotASpeed)
{
    EXPECT_EQ(parse(QString()), 0u);
    EXPECT_EQ(parse(""), 0u);
    EXPECT_EQ(parse("/s"), 0u);
    EXPECT_EQ(parse("12"), 0u);
    EXPECT_EQ(parse("12/s"), 0u);    // no unit
    EXPECT_EQ(parse("12.5 MB"), 0u); // no "/s"
    EXPECT_EQ(parse("12.5 MB/sec"), 0u);
    EXPECT_EQ(parse("12 M/s"), 0u);
    EXPECT_EQ(parse("12 MiB/s"), 0u);
    EXPECT_EQ(parse("12 MB /s"), 0u);  // the letters must touch the "/s"
    EXPECT_EQ(parse("12 MB/s/s"), 0u); // one "/s" comes off, "S" is no unit
    EXPECT_EQ(parse("12 MB/s /s"), 0u);
    EXPECT_EQ(parse("-12 MB/s"), 0u); // no number prefix
    EXPECT_EQ(parse("1e3 B/s"), 1u);  // no exponent: "1" and the unit "B"
    // A unit with digits in it: only the letters after the last digit count.
    EXPECT_EQ(parse("12 M2B/s"), 12u);
    EXPECT_EQ(parse("12 K1MB/s"), 12000000u);
    EXPECT_EQ(parse("12 MB2/s"), 0u);
    // Non-Latin letters belong to the unit and spoil it, whole code points included.
    EXPECT_EQ(parse(QString::fromUtf8("12 \xC2\xB5"
                                      "B/s")),
              0u);
    EXPECT_EQ(parse(QString::fromUtf8("12 \xF0\x9D\x90\x80MB/s")), 0u);
    EXPECT_EQ(parse(QString::fromUtf8("12 \xF0\x9F\x98\x80MB/s")), 12000000u);
}

TEST(VKFileSize, ParserWhiteSpace)
{
    // Trailing space is trimmed; leading space leaves no number.
    EXPECT_EQ(parse("12 MB/s  "), 12000000u);
    EXPECT_EQ(parse("12 MB/s\t \r\n"), 12000000u);
    EXPECT_EQ(parse(" 12 MB/s"), 0u);
    EXPECT_EQ(parse("12\tMB/s"), 12000000u);
    EXPECT_EQ(parse("   "), 0u);
}

TEST(VKFileSize, ParserReadsBackEverySpeedTextToItsPrintedPrecision)
{
    // The speed text keeps one decimal; reading it back gives the printed figure, or one byte
    // off where the extended-precision steps land just beside it.
    std::mt19937_64 random(7);
    const QStringList units = VKFileSize::inputUnits();
    int wrong = 0;
    for (int i = 0; i < 100000; ++i) {
        const quint64 bytes = i < 64 ? kMax >> i : random() >> (random() % 64);
        const QString text = speedText(bytes);
        const QStringList parts = text.split(u' ');
        ASSERT_EQ(parts.size(), 2) << text.toStdString();
        const int unit = units.indexOf(parts[1].chopped(2));
        ASSERT_GE(unit, 1) << text.toStdString();
        // Tenths of the unit; every figure a 64-bit count prints fits in 64 bits again.
        quint64 expected = QString(parts[0]).remove(u'.').toULongLong() * 100;
        for (int k = 1; k < unit; ++k)
            expected *= 1000;
        const quint64 read = parse(text);
        if (read != expected) {
            ++wrong;
            ASSERT_TRUE(read + 1 == expected || read == expected + 1)
                << text.toStdString() << " " << read << " " << expected;
        }
    }
    // Most figures come back exactly.
    EXPECT_LT(wrong, 2000);
    EXPECT_EQ(parse(speedText(12500000)), 12500000u);
    EXPECT_EQ(parse(speedText(0)), 0u);
}
