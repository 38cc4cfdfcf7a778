// Reads the leading number of a text the way the platform's string-to-number conversions do:
// leading white space is skipped, the longest numeric prefix is used, and a text without one
// reads as 0. It never fails, which is what command-line values and loosely typed
// configuration files need.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>

class VK_EXPORT VKLenientNumber
{
public:
    // Optional sign and decimal digits; "12abc" is 12, "1e3" is 1, "" and "-" are 0. Values
    // beyond 32 bits stick at INT_MAX or INT_MIN.
    static qint32 intValue(const QString &text);
    // Optional sign, digits with an optional fraction, and an optional exponent that is only
    // taken when digits follow it: "1e3" is 1000, "2.5e" is 2.5, ".5" is 0.5, "." is 0. No hex,
    // "inf" or "nan" forms. Out of range gives +-infinity (or 0 on underflow). The decimal
    // separator is always ".", whatever the locale.
    static double doubleValue(const QString &text);
    static float floatValue(const QString &text);
};
