// Small text operations shared by the timecode value and the calculator: the clock form
// hh:mm:ss.ff, the clock-field readers, digit runs and the lenient reading of a number.
#pragma once

#include "Foundation/VKExport.h"

#include <QList>
#include <QString>

class VK_EXPORT VKTimecodeText
{
public:
    // The clock form "%@%2.2d:%2.2d:%2.2d.%2.2d" of a non-negative count `v` at the whole rate
    // `wholeRate`, preceded by "-" when `negative`. Seconds are floor(v + 0.5) / wholeRate;
    // hours are not wrapped at 24 and print with as many digits as they need.
    // Where the floating-point rules give no finite clock (a rate of 0, an infinite or
    // not-a-number count) the text is "∞" or "-∞" for an infinite number of seconds and "nan"
    // for an undefined one.
    static QString clockString(bool negative, double v, double wholeRate);

    // Every run of decimal digits, in order, each read as a double. Digits of any script count
    // (the runs a "\d+" search finds).
    static QList<double> digitRuns(const QString &text);

    // The number at the start of the text after leading white space: an optional sign, digits,
    // an optional fraction and exponent, the longest such prefix counting ("12.5 " gives 12.5,
    // "x" gives 0).
    static double leadingNumberValue(const QString &text);

    // A double truncated toward zero to 64 bits: values beyond the range saturate and a
    // not-a-number value gives 0.
    static qint64 truncatedToInt64(double value);

    // The fields of a clock text such as "01:02:03.04", "-00:00:01.05", "01:02:03:04" or
    // "01;02;03;04": digit runs read from the right. The last run is the frames when a ".", ";"
    // or "," precedes it or when there are four or more runs; the runs before it are seconds,
    // minutes and hours. Missing fields are 0; values beyond 32 bits saturate.
    static int hoursFromTimecodeString(const QString &text);
    static int minutesFromTimecodeString(const QString &text);
    static int secondsFromTimecodeString(const QString &text);
    static int framesFromTimecodeString(const QString &text);
    // A clock text is negative when its first character after white space is "-".
    static bool timeStampNegative(const QString &text);
};
