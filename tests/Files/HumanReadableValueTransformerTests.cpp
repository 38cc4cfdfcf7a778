#include "Files/VKHumanReadableValueTransformers.h"
#include "Foundation/VKException.h"
#include "Foundation/VKHumanReadable.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QRegularExpression>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>

// The date transformer stands on its own.
static_assert(!std::is_base_of_v<VKValueTransformer, VKDateToHumanReadableStringValueTransformer>);

TEST(VKHumanReadableValueTransformers, KindsReverseFlagsAndNonNumbers)
{
    // clang-format off
    const std::shared_ptr<VKValueTransformer> transformers[] = {
        std::make_shared<VKByteCountToHumanReadableStringValueTransformer>(),
        std::make_shared<VKBytesPerSecondToHumanReadableStringValueTransformer>(),
        std::make_shared<VKTimeIntervalToHumanReadableStringValueTransformer>(),
    };
    // clang-format on
    const QVariant nonNumbers[] = {QVariant(),
                                   QVariant::fromValue(nullptr),
                                   QVariant("1500000"),
                                   QVariant(QByteArray("12")),
                                   QVariant(QDateTime::currentDateTimeUtc()),
                                   QVariant(QVariantList{1500000})};
    for (const auto &t : transformers) {
        const QString name = t->className();
        EXPECT_TRUE(name.startsWith("VK") &&
                    name.endsWith("ToHumanReadableStringValueTransformer"));
        EXPECT_EQ(t->transformedValueClass(), QMetaType::fromType<QString>());
        EXPECT_FALSE(t->allowsReverseTransformation());
        EXPECT_EQ(vkRaisedBy([&] { t->reverseTransformedValue("1.0 KB"); }),
                  "NSInvalidArgumentException|" + name +
                      " does not support reverse transformation");
        for (const QVariant &value : nonNumbers)
            EXPECT_FALSE(t->transformedValue(value).isValid()) << name << " " << value.typeName();
    }
    EXPECT_EQ(transformers[1]->className(),
              "VKBytesPerSecondToHumanReadableStringValueTransformer");
    VKDateToHumanReadableStringValueTransformer date;
    EXPECT_EQ(date.className(), "VKDateToHumanReadableStringValueTransformer");
    EXPECT_EQ(date.transformedValueClass(), QMetaType::fromType<QString>());
    EXPECT_FALSE(date.allowsReverseTransformation());
}

TEST(VKHumanReadableValueTransformers, NumbersOfEveryKind)
{
    VKByteCountToHumanReadableStringValueTransformer sizes;
    VKBytesPerSecondToHumanReadableStringValueTransformer speeds;
    VKTimeIntervalToHumanReadableStringValueTransformer durations;
    // clang-format off
    const struct { VKValueTransformer *transformer; QVariant value; const char *text; } cases[] = {
        {&sizes, 1500000, "1.5 MB"}, {&sizes, std::numeric_limits<qulonglong>::max(), "18.4 EB"},
        {&sizes, std::numeric_limits<qlonglong>::max(), "9.2 EB"},
        {&sizes, std::numeric_limits<uint>::max(), "4.3 GB"},
        {&sizes, QVariant::fromValue<short>(500), "0.5 KB"}, {&sizes, true, "0.0 KB"},
        // Floating-point counts are truncated; negative and NaN counts are no bytes, and counts
        // past the 64-bit range stop at the largest one.
        {&sizes, 1999.99, "2.0 KB"}, {&sizes, 49.99f, "0.0 KB"}, {&sizes, -1, "0.0 KB"},
        {&sizes, -1.5, "0.0 KB"}, {&sizes, std::nan(""), "0.0 KB"}, {&sizes, 1e30, "18.4 EB"},
        {&sizes, 18446744073709551616.0, "18.4 EB"}, {&sizes, 18446744073709549568.0, "18.4 EB"},
        {&sizes, std::numeric_limits<double>::infinity(), "18.4 EB"},
        {&speeds, 12500000, "12.5 MB/s"}, {&speeds, -700, "0.0 KB/s"}, {&speeds, 7.5e9, "7.5 GB/s"},
        {&durations, 185, "3 min 05 s"}, {&durations, qlonglong(3725), "1 h 02 min"},
        {&durations, 12.0f, "12 s"}, {&durations, std::nan(""), "--"},
        // 59.4999999 s is 59 s in double precision, but the nearest float is 59.5.
        {&durations, 59.4999999, "1 min 00 s"},
    };
    // clang-format on
    for (const auto &c : cases) {
        const QVariant result = c.transformer->transformedValue(c.value);
        EXPECT_EQ(result.metaType(), QMetaType::fromType<QString>()) << c.text;
        EXPECT_EQ(result.toString(), c.text) << c.value.toString().toStdString();
    }
    EXPECT_EQ(VKHumanReadable::humanReadableStringForDuration(59.4999999), "59 s");
}

TEST(VKHumanReadableValueTransformers, DateTransformerAcceptsDatesOnly)
{
    VKDateToHumanReadableStringValueTransformer dates;
    EXPECT_FALSE(dates.transformedValue(QVariant()).isValid());
    EXPECT_FALSE(dates.transformedValue(QVariant::fromValue(nullptr)).isValid());
    for (const QVariant &value : {QVariant("2024-03-07"), QVariant(QDate(2024, 3, 7)),
                                  QVariant(978307200), QVariant(QVariantList{QDateTime()})})
        EXPECT_EQ(vkRaisedBy([&] { dates.transformedValue(value); }),
                  "NSInvalidArgumentException|Value is not of kind NSDate")
            << value.typeName();

    const QDateTime old(QDate(2001, 1, 1), QTime(12, 0), QTimeZone::utc());
    const QString oldText = dates.transformedValue(old).toString();
    EXPECT_TRUE(QRegularExpression("^2001-01-01 [0-2][0-9]:[0-5][0-9]$").match(oldText).hasMatch())
        << oldText.toStdString();
    EXPECT_EQ(oldText, VKHumanReadable::humanReadableString(old));
    const QString nowText = dates.transformedValue(QDateTime::currentDateTimeUtc()).toString();
    EXPECT_TRUE(nowText.startsWith("Today, ") || nowText.startsWith("Yesterday, "))
        << nowText.toStdString();
    // An invalid date is still a date; it has no text.
    EXPECT_TRUE(dates.transformedValue(QDateTime()).toString().isNull());
}
