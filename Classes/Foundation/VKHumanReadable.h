// Short display texts for durations and dates, the same everywhere in the library and in every
// locale (progress labels, table columns, logs).
#pragma once

#include "Foundation/VKExport.h"

#include <QDateTime>
#include <QString>
#include <QTimeZone>

class VK_EXPORT VKHumanReadable
{
public:
    // A duration in at most two units, the second one two digits wide. The value is rounded
    // to the unit shown last (half away from zero) before the units are chosen, so that a
    // text never reads "60 s" or "60 min":
    //   0 -> "0 s", 0.4 -> "0 s", 12 -> "12 s", 59.6 -> "1 min 00 s", 185 -> "3 min 05 s",
    //   3599.6 -> "1 h 00 min", 3725 -> "1 h 02 min", 86399 -> "1 d 00 h",
    //   183600 -> "2 d 03 h".
    // Negative durations carry a "-" ("-12 s"); a value rounding to zero shows as "0 s".
    // An infinite or NaN duration (an estimate that cannot be made) gives "--".
    static QString humanReadableStringForDuration(double seconds);

    // A date as the user reads it in the system time zone, measured against the current time.
    // See the overload below for the forms.
    static QString humanReadableString(const QDateTime &date);

    // A date shown in `zone`, with the calendar day compared to the one of `now` in that zone:
    //   the same day         -> "Today, 14:05"
    //   the day before       -> "Yesterday, 09:12"
    //   the day after        -> "Tomorrow, 07:30" (clocks of other machines run ahead)
    //   any other day        -> "2024-03-07 14:05"
    // Hours are 24-hour and zero-padded. An invalid date gives a null string; an invalid `now`
    // always gives the absolute form; an invalid `zone` shows the date in UTC.
    static QString humanReadableString(const QDateTime &date, const QDateTime &now,
                                       const QTimeZone &zone);
};
