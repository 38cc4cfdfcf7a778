// The library's one lenient reader of numbers in text, the way the platform's string-to-number
// conversions read them: leading white space is skipped, the longest numeric prefix is used, and
// a text without one reads as 0. It never fails, which is what command-line values, loosely
// typed configuration files and stored defaults need.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringView>

class VK_EXPORT VKLenientNumber
{
public:
    // Optional sign, digits with an optional fraction, and an optional exponent that is only
    // taken when digits follow it: "1e3" is 1000, "2.5e" is 2.5, ".5" is 0.5, "." is 0. No hex,
    // "inf" or "nan" forms. Out of range gives +-infinity (or 0 on underflow). The decimal
    // separator is always ".", whatever the locale.
    static double doubleValue(const QString &text);
    static float floatValue(const QString &text);

    // Optional sign and decimal digits; anything after them is ignored. Values beyond the type
    // saturate at its largest or smallest value ("99999999999" is 2147483647 as an int).
    static qint32 intValue(QStringView text);
    static qint64 longLongValue(QStringView text);

    // True when the first character after white space, an optional sign and any zeros is "Y",
    // "y", "T", "t" or a digit 1-9: "YES", "true", " +07" are true; "no", "000", "" are false.
    static bool boolValue(QStringView text);
};
