#include "Files/VKHumanReadableValueTransformers.h"
#include "Foundation/VKException.h"
#include "Foundation/VKHumanReadable.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <QDateTime>

#include <cmath>
#include <limits>

TEST(VKHumanReadableValueTransformers, NumbersOfEveryKindAndNonNumbers)
{
    VKByteCountToHumanReadableStringValueTransformer sizes;
    VKBytesPerSecondToHumanReadableStringValueTransformer speeds;
    VKTimeIntervalToHumanReadableStringValueTransformer durations;
    // One way only; the refusal names the transformer.
    for (const auto &[t, name] : std::initializer_list<std::pair<VKValueTransformer *, QString>>{
             {&sizes, "VKByteCountToHumanReadableStringValueTransformer"},
             {&speeds, "VKBytesPerSecondToHumanReadableStringValueTransformer"},
             {&durations, "VKTimeIntervalToHumanReadableStringValueTransformer"}}) {
        EXPECT_EQ(vkRaisedBy([&] { t->reverseTransformedValue("1.0 KB"); }),
                  "NSInvalidArgumentException|" + name +
                      " does not support reverse transformation");
        for (const QVariant &value :
             {QVariant(), QVariant::fromValue(nullptr), QVariant("15"), QVariant(QVariantList{15})})
            EXPECT_FALSE(t->transformedValue(value).isValid()) << name << " " << value.typeName();
    }
    // Floating-point counts are truncated (150.5 bytes would round up); negative and NaN counts
    // are no bytes, and counts from 2^64 on stop at the largest one. Durations are read as
    // floats: 59.4999999 s is 59 s in double precision, but the nearest float is 59.5.
    // clang-format off
    const struct { VKValueTransformer *transformer; QVariant value; const char *text; } cases[] = {
        {&sizes, 1500000, "1.5 MB"}, {&sizes, std::numeric_limits<qulonglong>::max(), "18.4 EB"},
        {&sizes, std::numeric_limits<qlonglong>::max(), "9.2 EB"}, {&sizes, true, "0.0 KB"},
        {&sizes, 150.5f, "0.1 KB"}, {&sizes, -1, "0.0 KB"}, {&sizes, -1.5, "0.0 KB"},
        {&sizes, std::nan(""), "0.0 KB"}, {&sizes, 18446744073709551616.0, "18.4 EB"},
        {&sizes, 18446744073709549568.0, "18.4 EB"}, {&speeds, -700, "0.0 KB/s"},
        {&speeds, 12500000, "12.5 MB/s"}, {&durations, 185, "3 min 05 s"},
        {&durations, 59.4999999, "1 min 00 s"},
    };
    // clang-format on
    for (const auto &c : cases) {
        const QVariant result = c.transformer->transformedValue(c.value);
        EXPECT_EQ(result.metaType(), QMetaType::fromType<QString>()) << c.text;
        EXPECT_EQ(result.toString(), c.text) << c.value.toString();
    }
}

TEST(VKHumanReadableValueTransformers, DateTransformerAcceptsDatesOnly)
{
    VKDateToHumanReadableStringValueTransformer dates;
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue(nullptr)})
        EXPECT_FALSE(dates.transformedValue(nothing).isValid());
    for (const QVariant &value : {QVariant("2024-03-07"), QVariant(QDate(2024, 3, 7))})
        EXPECT_EQ(vkRaisedBy([&] { dates.transformedValue(value); }),
                  "NSInvalidArgumentException|Value is not of kind NSDate");
    const QDateTime old(QDate(2001, 1, 1), QTime(12, 0), QTimeZone::utc());
    EXPECT_EQ(dates.transformedValue(old).toString(), VKHumanReadable::humanReadableString(old));
    // An invalid date is still a date; it has no text.
    EXPECT_TRUE(dates.transformedValue(QDateTime()).toString().isNull());
}
