#include "Foundation/VKDate.h"


#include <cmath>

QDateTime VKDate::referenceDate()
{
    return QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
}

QDateTime VKDate::now()
{
    return QDateTime::currentDateTimeUtc();
}

double VKDate::timeIntervalSince1970(const QDateTime &date)
{
    if (!date.isValid())
        return std::nan("");
    return static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0;
}

QDateTime VKDate::dateWithTimeIntervalSince1970(double seconds)
{
    if (!std::isfinite(seconds))
        return QDateTime();
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::llround(seconds * 1000.0)),
                                          Qt::UTC);
}

double VKDate::timeIntervalSinceReferenceDate(const QDateTime &date)
{
    return timeIntervalSince1970(date) - referenceDateSince1970;
}

QDateTime VKDate::dateWithTimeIntervalSinceReferenceDate(double seconds)
{
    return dateWithTimeIntervalSince1970(seconds + referenceDateSince1970);
}

double VKDate::timeIntervalBetween(const QDateTime &date, const QDateTime &since)
{
    return timeIntervalSince1970(date) - timeIntervalSince1970(since);
}
