#include "Foundation/VKHumanReadable.h"

#include <cmath>

namespace {

// Whole numbers of any size (a float duration can reach 10^38 seconds) without exponent.
QString wholeNumber(double value)
{
    return QString::number(value, 'f', 0);
}

QString twoDigits(double value)
{
    return QString::number(static_cast<int>(value)).rightJustified(2, u'0');
}

QString positiveDuration(double seconds)
{
    const double wholeSeconds = std::round(seconds);
    if (wholeSeconds < 60.0)
        return wholeNumber(wholeSeconds) + QStringLiteral(" s");
    if (wholeSeconds < 3600.0) {
        const double minutes = std::floor(wholeSeconds / 60.0);
        return wholeNumber(minutes) + QStringLiteral(" min ") +
               twoDigits(wholeSeconds - minutes * 60.0) + QStringLiteral(" s");
    }
    const double wholeMinutes = std::round(seconds / 60.0);
    if (wholeMinutes < 1440.0) {
        const double hours = std::floor(wholeMinutes / 60.0);
        return wholeNumber(hours) + QStringLiteral(" h ") + twoDigits(wholeMinutes - hours * 60.0) +
               QStringLiteral(" min");
    }
    const double wholeHours = std::round(seconds / 3600.0);
    // fmod stays exact where the count of hours is too large for an integer type.
    const double hours = std::fmod(wholeHours, 24.0);
    return wholeNumber((wholeHours - hours) / 24.0) + QStringLiteral(" d ") + twoDigits(hours) +
           QStringLiteral(" h");
}

} // namespace

QString VKHumanReadable::humanReadableStringForDuration(double seconds)
{
    if (!std::isfinite(seconds))
        return QStringLiteral("--");
    const QString text = positiveDuration(std::fabs(seconds));
    if (seconds < 0.0 && text != QLatin1String("0 s"))
        return u'-' + text;
    return text;
}

QString VKHumanReadable::humanReadableString(const QDateTime &date)
{
    return humanReadableString(date, QDateTime::currentDateTimeUtc(), QTimeZone::systemTimeZone());
}

QString VKHumanReadable::humanReadableString(const QDateTime &date, const QDateTime &now,
                                             const QTimeZone &zone)
{
    if (!date.isValid())
        return QString();
    const QDateTime local = zone.isValid() ? date.toTimeZone(zone) : date.toUTC();
    const QString time = local.time().toString(QStringLiteral("HH:mm"));
    if (now.isValid()) {
        const QDate today = (zone.isValid() ? now.toTimeZone(zone) : now.toUTC()).date();
        switch (today.daysTo(local.date())) {
        case 0:
            return QStringLiteral("Today, ") + time;
        case -1:
            return QStringLiteral("Yesterday, ") + time;
        case 1:
            return QStringLiteral("Tomorrow, ") + time;
        default:
            break;
        }
    }
    return local.date().toString(QStringLiteral("yyyy-MM-dd")) + u' ' + time;
}
