#include "Foundation/VKHumanReadable.h"

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

TEST(VKHumanReadable, DurationUnitsAndPadding)
{
    EXPECT_EQ(duration(0.4), "0 s");
    EXPECT_EQ(duration(0.5), "1 s");
    EXPECT_EQ(duration(59.4), "59 s");
    EXPECT_EQ(duration(60), "1 min 00 s");
    EXPECT_EQ(duration(185), "3 min 05 s");
    EXPECT_EQ(duration(3599.4), "59 min 59 s");
    EXPECT_EQ(duration(3600), "1 h 00 min");
    EXPECT_EQ(duration(3725), "1 h 02 min");
    EXPECT_EQ(duration(86369.9), "23 h 59 min");
    EXPECT_EQ(duration(86400), "1 d 00 h");
    EXPECT_EQ(duration(1e9), "11574 d 02 h");
}

TEST(VKHumanReadable, DurationRoundsBeforeChoosingUnits)
{
    // Rounding up to the next unit never leaves "60 s", "60 min" or "24 h".
    EXPECT_EQ(duration(59.5), "1 min 00 s");
    EXPECT_EQ(duration(3599.5), "1 h 00 min");
    EXPECT_EQ(duration(3629.9), "1 h 00 min");
    EXPECT_EQ(duration(3630), "1 h 01 min");
    EXPECT_EQ(duration(86370), "1 d 00 h");
    EXPECT_EQ(duration(88199), "1 d 00 h");
    EXPECT_EQ(duration(88200), "1 d 01 h");
    EXPECT_EQ(duration(170999), "1 d 23 h");
    EXPECT_EQ(duration(171000), "2 d 00 h");
}

TEST(VKHumanReadable, DurationSignAndOddValues)
{
    EXPECT_EQ(duration(-12), "-12 s");
    EXPECT_EQ(duration(-3725), "-1 h 02 min");
    EXPECT_EQ(duration(-0.4), "0 s");
    EXPECT_EQ(duration(std::numeric_limits<double>::quiet_NaN()), "--");
    EXPECT_EQ(duration(std::numeric_limits<double>::infinity()), "--");
    EXPECT_EQ(duration(-std::numeric_limits<double>::infinity()), "--");
    // The largest float still gives whole numbers, never an exponent.
    const QString largest = duration(std::numeric_limits<float>::max());
    EXPECT_TRUE(QRegularExpression("^[0-9]{30,} d [0-2][0-9] h$").match(largest).hasMatch())
        << largest.toStdString();
    EXPECT_TRUE(duration(-std::numeric_limits<float>::max()).startsWith(u'-'));
}

TEST(VKHumanReadable, DateRelativeToTodayInTheGivenZone)
{
    const QTimeZone plusTwo(2 * 3600);
    const QDateTime now = utc(2024, 3, 7, 12, 0); // 14:00 in the zone
    auto text = [&](const QDateTime &date) {
        return VKHumanReadable::humanReadableString(date, now, plusTwo);
    };
    EXPECT_EQ(text(utc(2024, 3, 7, 12, 5)), "Today, 14:05");
    EXPECT_EQ(text(now), "Today, 14:00");
    // Days are the zone's days, not UTC's.
    EXPECT_EQ(text(utc(2024, 3, 6, 22, 0)), "Today, 00:00");
    EXPECT_EQ(text(utc(2024, 3, 6, 21, 59)), "Yesterday, 23:59");
    EXPECT_EQ(text(utc(2024, 3, 6, 7, 12)), "Yesterday, 09:12");
    EXPECT_EQ(text(utc(2024, 3, 5, 22, 0)), "Yesterday, 00:00");
    EXPECT_EQ(text(utc(2024, 3, 5, 21, 59)), "2024-03-05 23:59");
    EXPECT_EQ(text(utc(2024, 3, 7, 21, 59)), "Today, 23:59");
    EXPECT_EQ(text(utc(2024, 3, 7, 22, 0)), "Tomorrow, 00:00");
    EXPECT_EQ(text(utc(2024, 3, 8, 21, 59)), "Tomorrow, 23:59");
    EXPECT_EQ(text(utc(2024, 3, 8, 22, 0)), "2024-03-09 00:00");
    EXPECT_EQ(text(utc(1999, 12, 31, 23, 0)), "2000-01-01 01:00");
    // The zone of the date itself does not matter, only the instant.
    EXPECT_EQ(text(QDateTime(QDate(2024, 3, 7), QTime(7, 5), QTimeZone(-5 * 3600))),
              "Today, 14:05");
}

TEST(VKHumanReadable, DateAcrossYearEndAndDaylightSaving)
{
    const QTimeZone plusTwo(2 * 3600);
    EXPECT_EQ(VKHumanReadable::humanReadableString(utc(2023, 12, 31, 21, 50),
                                                   utc(2023, 12, 31, 22, 30), plusTwo),
              "Yesterday, 23:50");
    // February 29th sits between these two in a leap year only.
    EXPECT_EQ(VKHumanReadable::humanReadableString(utc(2023, 2, 28, 23, 0), utc(2023, 3, 1, 1, 0),
                                                   QTimeZone::utc()),
              "Yesterday, 23:00");
    EXPECT_EQ(VKHumanReadable::humanReadableString(utc(2024, 2, 28, 23, 0), utc(2024, 3, 1, 1, 0),
                                                   QTimeZone::utc()),
              "2024-02-28 23:00");

    const QTimeZone berlin("Europe/Berlin");
    if (!berlin.isValid())
        GTEST_SKIP() << "no time zone data";
    // 2024-03-31 is 23 hours long in Berlin: clocks go from 02:00 to 03:00.
    const QDateTime now = utc(2024, 3, 31, 12, 0);
    EXPECT_EQ(VKHumanReadable::humanReadableString(utc(2024, 3, 31, 1, 30), now, berlin),
              "Today, 03:30");
    EXPECT_EQ(VKHumanReadable::humanReadableString(utc(2024, 3, 30, 23, 0), now, berlin),
              "Today, 00:00");
    EXPECT_EQ(VKHumanReadable::humanReadableString(utc(2024, 3, 30, 22, 59), now, berlin),
              "Yesterday, 23:59");
    EXPECT_EQ(VKHumanReadable::humanReadableString(utc(2024, 7, 1, 12, 0), now, berlin),
              "2024-07-01 14:00");
}

TEST(VKHumanReadable, DateWithMissingParts)
{
    const QDateTime date = utc(2024, 3, 7, 12, 5);
    EXPECT_TRUE(VKHumanReadable::humanReadableString(QDateTime(), date, QTimeZone::utc()).isNull());
    EXPECT_EQ(VKHumanReadable::humanReadableString(date, QDateTime(), QTimeZone::utc()),
              "2024-03-07 12:05");
    EXPECT_EQ(VKHumanReadable::humanReadableString(date, date, QTimeZone()), "Today, 12:05");
    EXPECT_TRUE(VKHumanReadable::humanReadableString(QDateTime()).isNull());
}
