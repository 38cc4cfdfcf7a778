#include "Files/VKHumanReadableValueTransformers.h"
#include "Foundation/VKException.h"
#include "Foundation/VKHumanReadable.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <QDateTime>

#include <cmath>
#include <limits>

// The date transformer stands on its own.
static_assert(!std::is_base_of_v<VKValueTransformer, VKDateToHumanReadableStringValueTransformer>);

TEST(VKHumanReadableValueTransformers, NumbersOfEveryKindAndNonNumbers)
{
    VKByteCountToHumanReadableStringValueTransformer sizes;
    VKBytesPerSecondToHumanReadableStringValueTransformer speeds;
    VKTimeIntervalToHumanReadableStringValueTransformer durations;
    for (const auto &[t, name] : std::initializer_list<std::pair<VKValueTransformer *, QString>>{
             {&sizes, "VKByteCountToHumanReadableStringValueTransformer"},
             {&speeds, "VKBytesPerSecondToHumanReadableStringValueTransformer"},
             {&durations, "VKTimeIntervalToHumanReadableStringValueTransformer"}}) {
        EXPECT_EQ(t->className(), name);
        EXPECT_EQ(t->transformedValueClass(), QMetaType::fromType<QString>());
        EXPECT_FALSE(t->allowsReverseTransformation());
        EXPECT_EQ(vkRaisedBy([&] { t->reverseTransformedValue("1.0 KB"); }),
                  "NSInvalidArgumentException|" + name + " does not support reverse transformation");
        for (const QVariant &value : {QVariant(), QVariant::fromValue(nullptr), QVariant("15"),
                                      QVariant(QVariantList{15})})
            EXPECT_FALSE(t->transformedValue(value).isValid()) << name << " " << value.typeName();
    }
    // Floating-point counts are truncated; negative and NaN counts are no bytes, and counts past
    // the 64-bit range stop at the largest one. Durations are read as floats: 59.4999999 s is
    // 59 s in double precision, but the nearest float is 59.5.
    // clang-format off
    const struct { VKValueTransformer *transformer; QVariant value; const char *text; } cases[] = {
        {&sizes, 1500000, "1.5 MB"}, {&sizes, std::numeric_limits<qulonglong>::max(), "18.4 EB"},
        {&sizes, std::numeric_limits<qlonglong>::max(), "9.2 EB"},
        {&sizes, std::numeric_limits<uint>::max(), "4.3 GB"},
        {&sizes, QVariant::fromValue<short>(500), "0.5 KB"}, {&sizes, true, "0.0 KB"},
        {&sizes, 1999.99, "2.0 KB"}, {&sizes, 49.99f, "0.0 KB"}, {&sizes, -1, "0.0 KB"},
        {&sizes, -1.5, "0.0 KB"}, {&sizes, std::nan(""), "0.0 KB"}, {&sizes, 1e30, "18.4 EB"},
        {&sizes, 18446744073709551616.0, "18.4 EB"}, {&sizes, 18446744073709549568.0, "18.4 EB"},
        {&speeds, 12500000, "12.5 MB/s"}, {&speeds, -700, "0.0 KB/s"}, {&speeds, 7.5e9, "7.5 GB/s"},
        {&durations, 185, "3 min 05 s"}, {&durations, qlonglong(3725), "1 h 02 min"},
        {&durations, std::nan(""), "--"}, {&durations, 59.4999999, "1 min 00 s"},
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
    EXPECT_EQ(dates.className(), "VKDateToHumanReadableStringValueTransformer");
    EXPECT_EQ(dates.transformedValueClass(), QMetaType::fromType<QString>());
    EXPECT_FALSE(dates.allowsReverseTransformation());
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
