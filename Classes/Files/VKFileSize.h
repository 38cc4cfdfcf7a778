// Short display texts for byte counts and copy speeds, and the reading of a speed text back into
// a byte count. All units are decimal: one kilobyte is 1000 bytes.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>

class VK_EXPORT VKFileSize
{
public:
    // "KB" ... "YB": the units a size text may end with. There is no byte unit on output.
    static const QStringList &outputUnits();
    // "B", "KB" ... "YB": the units a speed text may carry; index k stands for 1000^k.
    static const QStringList &inputUnits();

    // The count in the largest unit that keeps the figure below 1000 (the test is made before
    // rounding), with one decimal place and printf's rounding:
    //   0 -> "0.0 KB", 500 -> "0.5 KB", 999 -> "1.0 KB", 1250 -> "1.2 KB" (a tie goes to even),
    //   999960 -> "1000.0 KB", 1500000 -> "1.5 MB", 18446744073709551615 -> "18.4 EB".
    // The decimal separator is always ".", whatever the process locale.
    static QString humanReadableFileSizeStringFromByteCount(quint64 bytes);

    // The size text followed by "/s": 12500000 -> "12.5 MB/s", 0 -> "0.0 KB/s".
    static QString humanReadableCopySpeedStringFromBytesPerSecond(quint64 bytesPerSecond);

    // Reads a speed text back: "12.5 MB/s" -> 12500000, "3 kb/s" -> 3000, "700 B/s" -> 700.
    // Answers 0 for any text it does not accept. The rules, kept as the speed texts need them:
    //  - the number is the longest prefix of digits, "," and "." of the untrimmed text, read as
    //    C reads a decimal number: reading stops where the number cannot go on, so a comma ends
    //    it ("1,5 MB/s" -> 1000000) and a second dot too ("1.2.3 MB/s" -> 1200000); a leading
    //    space leaves no number (" 12 MB/s" -> 0);
    //  - the number is rounded to three decimals (half away from zero) in extended precision;
    //  - the trimmed text must end with "/s" ("12.5 MB" -> 0); after that one "/s" is removed,
    //    the letters at its end, upper-cased, must be one of inputUnits() ("M/s", "MiB/s",
    //    "MB/s/s" -> 0);
    //  - the product is truncated toward zero; counts of 2^63 and more come out unsigned, and
    //    counts beyond the largest unsigned 64-bit value stop there.
    // A speed text read back gives its printed figure to the byte in about 99.5% of cases; the
    // extended-precision steps leave the rest one byte off ("514.6 KB/s" -> 514599,
    // "16.2 EB/s" -> 16200000000000000001).
    static quint64 byteCountFromHumanReadableFileSizeString(const QString &text);

    // A number's value as a byte count: integers as they are, floating-point values truncated
    // toward zero; negative values and NaN give 0, values beyond the 64-bit range stop at the
    // largest count. Anything that is not a number gives 0.
    static quint64 byteCountValue(const QVariant &number);
};
