// Dates as the library counts them: QDateTime in UTC and intervals in seconds (double), measured
// from the reference date 2001-01-01 00:00:00 UTC or from 1970-01-01 00:00:00 UTC.
#pragma once

#include "Foundation/VKExport.h"

#include <QDateTime>

class VK_EXPORT VKDate
{
public:
    // 2001-01-01 00:00:00 UTC.
    static QDateTime referenceDate();
    // Seconds between the reference date and 1970-01-01 (978307200).
    static constexpr double referenceDateSince1970 = 978307200.0;

    static QDateTime now();
    static double timeIntervalSinceReferenceDate(const QDateTime &date);
    static QDateTime dateWithTimeIntervalSinceReferenceDate(double seconds);
    static double timeIntervalSince1970(const QDateTime &date);
    static QDateTime dateWithTimeIntervalSince1970(double seconds);
    // Seconds from `since` to `date` (negative when `date` is earlier).
    static double timeIntervalBetween(const QDateTime &date, const QDateTime &since);
};
