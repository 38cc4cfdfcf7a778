#include "Foundation/VKHumanReadable.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

#include <cmath>
#include <limits>

namespace {

QString duration(double seconds)
{
    return VKHumanReadable::humanReadableStringForDuration(seconds);
}

QDateTime utc(int year, int month, int day, int hour, int minute)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute), QTimeZone::utc());
}

} // namespace

TEST(VKHumanReadable, DurationUnitsRoundingAndSign)
{
    constexpr double inf = std::numeric_limits<double>::infinity();
    // Rounding happens before the unit is chosen, so "60 s", "60 min" or "24 h" never appear.
    // clang-format off
    const struct { double seconds; const char *text; } cases[] = {
        {0.4, "0 s"}, {0.5, "1 s"}, {59.4, "59 s"}, {59.5, "1 min 00 s"}, {60, "1 min 00 s"},
        {185, "3 min 05 s"}, {3599.4, "59 min 59 s"}, {3599.5, "1 h 00 min"}, {3600, "1 h 00 min"},
        {3629.9, "1 h 00 min"}, {3630, "1 h 01 min"}, {3725, "1 h 02 min"},
        {86369.9, "23 h 59 min"}, {86370, "1 d 00 h"}, {86400, "1 d 00 h"}, {88199, "1 d 00 h"},
        {88200, "1 d 01 h"}, {170999, "1 d 23 h"}, {171000, "2 d 00 h"}, {1e9, "11574 d 02 h"},
        {-12, "-12 s"}, {-3725, "-1 h 02 min"}, {-0.4, "0 s"},
        {std::nan(""), "--"}, {inf, "--"}, {-inf, "--"},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(duration(c.seconds), c.text) << c.seconds;
    // The largest float still gives whole numbers, never an exponent.
    const QString largest = duration(std::numeric_limits<float>::max());
    EXPECT_TRUE(QRegularExpression("^[0-9]{30,} d [0-2][0-9] h$").match(largest).hasMatch())
        << largest.toStdString();
    EXPECT_TRUE(duration(-std::numeric_limits<float>::max()).startsWith(u'-'));
}

TEST(VKHumanReadable, DateRelativeToTodayInTheGivenZone)
{
    const QTimeZone plusTwo(2 * 3600), berlin("Europe/Berlin");
    const QDateTime now = utc(2024, 3, 7, 12, 0), date = utc(2024, 3, 7, 12, 5);
    const QDateTime berlinNow = utc(2024, 3, 31, 12, 0); // a 23-hour day there
    // Days are the zone's days, not UTC's; the zone of the date itself does not matter.
    // clang-format off
    const struct { QDateTime date, now; QTimeZone zone; const char *text; } cases[] = {
        {date, now, plusTwo, "Today, 14:05"}, {now, now, plusTwo, "Today, 14:00"},
        {utc(2024, 3, 6, 22, 0), now, plusTwo, "Today, 00:00"},
        {utc(2024, 3, 6, 21, 59), now, plusTwo, "Yesterday, 23:59"},
        {utc(2024, 3, 6, 7, 12), now, plusTwo, "Yesterday, 09:12"},
        {utc(2024, 3, 5, 22, 0), now, plusTwo, "Yesterday, 00:00"},
        {utc(2024, 3, 5, 21, 59), now, plusTwo, "2024-03-05 23:59"},
        {utc(2024, 3, 7, 21, 59), now, plusTwo, "Today, 23:59"},
        {utc(2024, 3, 7, 22, 0), now, plusTwo, "Tomorrow, 00:00"},
        {utc(2024, 3, 8, 21, 59), now, plusTwo, "Tomorrow, 23:59"},
        {utc(2024, 3, 8, 22, 0), now, plusTwo, "2024-03-09 00:00"},
        {utc(1999, 12, 31, 23, 0), now, plusTwo, "2000-01-01 01:00"},
        {QDateTime(QDate(2024, 3, 7), QTime(7, 5), QTimeZone(-5 * 3600)), now, plusTwo, "Today, 14:05"},
        {utc(2023, 12, 31, 21, 50), utc(2023, 12, 31, 22, 30), plusTwo, "Yesterday, 23:50"},
        // February 29th sits between these two in a leap year only.
        {utc(2023, 2, 28, 23, 0), utc(2023, 3, 1, 1, 0), QTimeZone::utc(), "Yesterday, 23:00"},
        {utc(2024, 2, 28, 23, 0), utc(2024, 3, 1, 1, 0), QTimeZone::utc(), "2024-02-28 23:00"},
        // No "now": never relative; no zone: UTC.
        {date, QDateTime(), QTimeZone::utc(), "2024-03-07 12:05"},
        {date, date, QTimeZone(), "Today, 12:05"},
        {utc(2024, 3, 31, 1, 30), berlinNow, berlin, "Today, 03:30"},
        {utc(2024, 3, 30, 23, 0), berlinNow, berlin, "Today, 00:00"},
        {utc(2024, 3, 30, 22, 59), berlinNow, berlin, "Yesterday, 23:59"},
        {utc(2024, 7, 1, 12, 0), berlinNow, berlin, "2024-07-01 14:00"},
    };
    // clang-format on
    for (const auto &c : cases) {
        if (c.now == berlinNow && !berlin.isValid())
            continue;
        EXPECT_EQ(VKHumanReadable::humanReadableString(c.date, c.now, c.zone), c.text)
            << c.date.toString(Qt::ISODate) << " at " << c.now.toString(Qt::ISODate);
    }
    EXPECT_TRUE(VKHumanReadable::humanReadableString(QDateTime(), date, QTimeZone::utc()).isNull());
    EXPECT_TRUE(VKHumanReadable::humanReadableString(QDateTime()).isNull());
    if (!berlin.isValid())
        GTEST_SKIP() << "no time zone data: the daylight-saving cases did not run";
}
