#include "Files/VKHumanReadableValueTransformers.h"
#include "Foundation/VKException.h"
#include "Foundation/VKHumanReadable.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QDateTime>
#include <QRegularExpression>
#include <QVariantList>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <type_traits>

static_assert(
    std::is_base_of_v<VKValueTransformer, VKByteCountToHumanReadableStringValueTransformer>);
static_assert(
    std::is_base_of_v<VKValueTransformer, VKBytesPerSecondToHumanReadableStringValueTransformer>);
static_assert(
    std::is_base_of_v<VKValueTransformer, VKTimeIntervalToHumanReadableStringValueTransformer>);
// The date transformer stands on its own.
static_assert(!std::is_base_of_v<VKValueTransformer, VKDateToHumanReadableStringValueTransformer>);

namespace {

QString reason(const std::function<void()> &call)
{
    try {
        call();
    } catch (const VKException &e) {
        return e.name() + u'|' + e.reason();
    }
    return QStringLiteral("no exception");
}

// What every non-number gives from the three number transformers.
const QList<QVariant> &nonNumbers()
{
    static const QList<QVariant> values = {
        QVariant(),
        QVariant::fromValue(nullptr),
        QVariant(QStringLiteral("1500000")),
        QVariant(QString()),
        QVariant(QByteArray("12")),
        QVariant(QDateTime::currentDateTimeUtc()),
        QVariant(QVariantList{1500000}),
    };
    return values;
}

} // namespace

TEST(VKHumanReadableValueTransformers, KindsAndReverseFlags)
{
    const std::unique_ptr<VKValueTransformer> transformers[] = {
        std::make_unique<VKByteCountToHumanReadableStringValueTransformer>(),
        std::make_unique<VKBytesPerSecondToHumanReadableStringValueTransformer>(),
        std::make_unique<VKTimeIntervalToHumanReadableStringValueTransformer>(),
    };
    const char *const names[] = {
        "VKByteCountToHumanReadableStringValueTransformer",
        "VKBytesPerSecondToHumanReadableStringValueTransformer",
        "VKTimeIntervalToHumanReadableStringValueTransformer",
    };
    for (int i = 0; i < 3; ++i) {
        const VKValueTransformer &t = *transformers[i];
        EXPECT_EQ(t.className(), names[i]);
        EXPECT_EQ(t.transformedValueClass(), QMetaType::fromType<QString>());
        EXPECT_FALSE(t.allowsReverseTransformation());
        EXPECT_EQ(reason([&] { t.reverseTransformedValue(QStringLiteral("1.0 KB")); }),
                  QStringLiteral("NSInvalidArgumentException|") + names[i] +
                      " does not support reverse transformation");
        for (const QVariant &value : nonNumbers())
            EXPECT_FALSE(t.transformedValue(value).isValid()) << names[i] << " " << i;
    }
    VKDateToHumanReadableStringValueTransformer date;
    EXPECT_EQ(date.className(), "VKDateToHumanReadableStringValueTransformer");
    EXPECT_EQ(date.transformedValueClass(), QMetaType::fromType<QString>());
    EXPECT_FALSE(date.allowsReverseTransformation());
}

TEST(VKHumanReadableValueTransformers, ByteCountsOfEveryNumberKind)
{
    VKByteCountToHumanReadableStringValueTransformer sizes;
    auto text = [&](const QVariant &v) {
        const QVariant result = sizes.transformedValue(v);
        EXPECT_EQ(result.metaType(), QMetaType::fromType<QString>());
        return result.toString();
    };
    EXPECT_EQ(text(1500000), "1.5 MB");
    EXPECT_EQ(text(std::numeric_limits<qulonglong>::max()), "18.4 EB");
    EXPECT_EQ(text(std::numeric_limits<qlonglong>::max()), "9.2 EB");
    EXPECT_EQ(text(std::numeric_limits<uint>::max()), "4.3 GB");
    EXPECT_EQ(text(QVariant::fromValue<short>(500)), "0.5 KB");
    EXPECT_EQ(text(true), "0.0 KB");
    // Floating-point counts are truncated; negative and NaN counts are no bytes at all, and
    // counts past the 64-bit range stop at the largest one.
    EXPECT_EQ(text(1999.99), "2.0 KB");
    EXPECT_EQ(text(49.99f), "0.0 KB");
    EXPECT_EQ(text(-1), "0.0 KB");
    EXPECT_EQ(text(-1.5), "0.0 KB");
    EXPECT_EQ(text(std::nan("")), "0.0 KB");
    EXPECT_EQ(text(1e30), "18.4 EB");
    EXPECT_EQ(text(std::numeric_limits<double>::infinity()), "18.4 EB");

    VKBytesPerSecondToHumanReadableStringValueTransformer speeds;
    EXPECT_EQ(speeds.transformedValue(12500000).toString(), "12.5 MB/s");
    EXPECT_EQ(speeds.transformedValue(-700).toString(), "0.0 KB/s");
    EXPECT_EQ(speeds.transformedValue(7.5e9).toString(), "7.5 GB/s");
}

TEST(VKHumanReadableValueTransformers, DurationsAtFloatPrecision)
{
    VKTimeIntervalToHumanReadableStringValueTransformer durations;
    EXPECT_EQ(durations.transformedValue(185).toString(), "3 min 05 s");
    EXPECT_EQ(durations.transformedValue(qlonglong(3725)).toString(), "1 h 02 min");
    EXPECT_EQ(durations.transformedValue(12.0f).toString(), "12 s");
    EXPECT_EQ(durations.transformedValue(std::nan("")).toString(), "--");
    // 59.4999999 s reads as 59 s in double precision, but the nearest float is 59.5.
    EXPECT_EQ(VKHumanReadable::humanReadableStringForDuration(59.4999999), "59 s");
    EXPECT_EQ(durations.transformedValue(59.4999999).toString(), "1 min 00 s");
}

TEST(VKHumanReadableValueTransformers, DateTransformerAcceptsDatesOnly)
{
    VKDateToHumanReadableStringValueTransformer dates;
    EXPECT_FALSE(dates.transformedValue(QVariant()).isValid());
    EXPECT_FALSE(dates.transformedValue(QVariant::fromValue(nullptr)).isValid());
    const QString expected = "NSInvalidArgumentException|Value is not of kind NSDate";
    EXPECT_EQ(reason([&] { dates.transformedValue(QStringLiteral("2024-03-07")); }), expected);
    EXPECT_EQ(reason([&] { dates.transformedValue(QDate(2024, 3, 7)); }), expected);
    EXPECT_EQ(reason([&] { dates.transformedValue(978307200); }), expected);
    EXPECT_EQ(reason([&] { dates.transformedValue(QVariantList{QDateTime()}); }), expected);

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
