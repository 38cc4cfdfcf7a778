// Reads the leading floating-point number of a text the way the platform's string-to-number
// conversions do: leading white space is skipped, the longest numeric prefix is used, and a
// text without one reads as 0. It never fails, which is what command-line values and loosely
// typed configuration files need. Integers are read by VKStringRanges::intValue.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>

class VK_EXPORT VKLenientNumber
{
public:
    // Optional sign, digits with an optional fraction, and an optional exponent that is only
    // taken when digits follow it: "1e3" is 1000, "2.5e" is 2.5, ".5" is 0.5, "." is 0. No hex,
    // "inf" or "nan" forms. Out of range gives +-infinity (or 0 on underflow). The decimal
    // separator is always ".", whatever the locale.
    static double doubleValue(const QString &text);
    static float floatValue(const QString &text);
};
