#include "Foundation/VKException.h"
#include "Interface/VKDisplayValueTransformers.h"
#include "Interface/VKOrderedSet.h"

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QPixmap>

#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace {

// The colour as 16-bit red, green, blue and alpha.
std::array<int, 4> rgba(const QVariant &v)
{
    const QRgba64 c = v.value<QColor>().rgba64();
    return {c.red(), c.green(), c.blue(), c.alpha()};
}

constexpr std::array<int, 4> kBlack = {0, 0, 0, 65535};
constexpr std::array<int, 4> kDarkGray = {21845, 21845, 21845, 65535}; // a third of white
constexpr std::array<int, 4> kRed = {52428, 0, 0, 65535};              // 0.8 of full red

} // namespace

TEST(VKDisplayValueTransformers, StateToTextColour)
{
    struct ColourCase
    {
        const char *name;
        QVariant state;
        std::array<int, 4> enabled, disabled, red;
    } cases[] = {
        {"yes", QVariant(true), kBlack, kDarkGray, kRed},
        {"no", QVariant(false), kDarkGray, kBlack, kBlack},
        {"missing", QVariant(), kDarkGray, kBlack, kBlack},
        {"nonZeroNumber", QVariant(0.5), kBlack, kDarkGray, kRed},
        {"zero", QVariant(0), kDarkGray, kBlack, kBlack},
        {"textYes", QVariant(QStringLiteral("  +00Yes")), kBlack, kDarkGray, kRed},
        {"textDigit", QVariant(QStringLiteral("-007")), kBlack, kDarkGray, kRed},
        {"textNo", QVariant(QStringLiteral("no")), kDarkGray, kBlack, kBlack},
        {"textZeros", QVariant(QStringLiteral("000")), kDarkGray, kBlack, kBlack},
    };
    const VDEnabledStateToTextColorValueTransformer enabled;
    const VDDisabledStateToTextColorValueTransformer disabled;
    const VDEnabledStateToRedTextColorValueTransformer red;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(rgba(enabled.transformedValue(c.state)), c.enabled);
        EXPECT_EQ(rgba(disabled.transformedValue(c.state)), c.disabled);
        EXPECT_EQ(rgba(red.transformedValue(c.state)), c.red);
    }
    // An RGB colour, not merely one that converts to the same RGBA (QColor's == compares the
    // colour model too).
    const QColor shown = red.transformedValue(true).value<QColor>();
    EXPECT_EQ(shown, shown.toRgb());
    EXPECT_EQ(enabled.transformedValueClass(), QMetaType::fromType<QColor>());
}

TEST(VKDisplayValueTransformers, ThresholdFlags)
{
    constexpr double huge = 1e10;
    struct FlagCase
    {
        const char *name;
        QVariant value;
        // greater than 0, 1, 2, less than 0, 1, 2; -1 for no answer
        int flags[6];
    } cases[] = {
        {"zero", 0, {0, 0, 0, 0, 1, 1}},
        {"oneNineIsOne", 1.9, {1, 0, 0, 0, 0, 1}},
        {"two", 2, {1, 1, 0, 0, 0, 0}},
        {"three", 3u, {1, 1, 1, 0, 0, 0}},
        {"zeroPointNine", 0.9f, {0, 0, 0, 0, 1, 1}},
        {"minusPointOneIsZero", -0.1, {0, 0, 0, 0, 1, 1}},
        {"minusOne", -1, {0, 0, 0, 1, 1, 1}},
        {"yes", true, {1, 0, 0, 0, 0, 1}},
        {"hugeSaturates", huge, {1, 1, 1, 0, 0, 0}},
        {"hugeNegative", -huge, {0, 0, 0, 1, 1, 1}},
        {"wideIntegerKeepsLow32Bits", Q_INT64_C(0x100000001), {1, 0, 0, 0, 0, 1}},
        {"wideIntegerNegativeLow", Q_INT64_C(0x1FFFFFFFF), {0, 0, 0, 1, 1, 1}},
        {"nanIsZero", std::numeric_limits<double>::quiet_NaN(), {0, 0, 0, 0, 1, 1}},
        {"text", QStringLiteral("5"), {-1, -1, -1, -1, -1, -1}},
        {"missing", QVariant(), {-1, -1, -1, -1, -1, -1}},
    };
    const VKGreaterThanZeroValueTransformer g0;
    const VKGreaterThanOneValueTransformer g1;
    const VKGreaterThanTwoValueTransformer g2;
    const VKLessThanZeroValueTransformer l0;
    const VKLessThanOneValueTransformer l1;
    const VKLessThanTwoValueTransformer l2;
    const auto flag = [](const QVariant &v) {
        if (!v.isValid())
            return -1;
        EXPECT_EQ(v.metaType(), QMetaType::fromType<bool>());
        return v.toBool() ? 1 : 0;
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const int got[6] = {flag(g0.transformedValue(c.value)), flag(g1.transformedValue(c.value)),
                            flag(g2.transformedValue(c.value)), flag(l0.transformedValue(c.value)),
                            flag(l1.transformedValue(c.value)), flag(l2.transformedValue(c.value))};
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(got[i], c.flags[i]) << "transformer " << i;
    }
    // The "less than" flags are not transformers of the registry's kind, but answer alike.
    static_assert(!std::is_base_of_v<VKValueTransformer, VKLessThanOneValueTransformer>);
    EXPECT_FALSE(l1.allowsReverseTransformation());
    EXPECT_EQ(l1.transformedValueClass(), QMetaType::fromType<bool>());
}

TEST(VKDisplayValueTransformers, PortNumbers)
{
    struct PortCase
    {
        const char *name;
        QVariant value;
        bool valid;
    } cases[] = {
        {"1023", 1023, false},
        {"1024", 1024, true},
        {"65535", 65535, true},
        {"65536", 65536, false},
        {"fractionCut", 1023.9, false},
        {"fractionBelowTop", 65535.9, true},
        {"negative", -8080, false},
        {"wide", Q_INT64_C(0x100000400), false},
        {"text", QStringLiteral("8080"), false},
        {"missing", QVariant(), false},
    };
    const VKIsValidPortNumberValueTransformer t;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QVariant v = t.transformedValue(c.value);
        ASSERT_EQ(v.metaType(), QMetaType::fromType<bool>());
        EXPECT_EQ(v.toBool(), c.valid);
    }
}

TEST(VKDisplayValueTransformers, NumberFormats)
{
    struct FormatCase
    {
        const char *name;
        QVariant value;
        const char *three, *plusMinusThree, *integer, *plusMinusInteger;
    } cases[] = {
        {"one", 1, "1.000", "+1.000", "1", "+1"},
        {"three", 3, "3.000", "+3.000", "3", "+3"},
        {"minusHalf", -0.5, "-0.500", "-0.500", "-0", "-0"},
        {"halfToEven", 0.5, "0.500", "+0.500", "0", "+0"},
        {"oneAndHalfToEven", 1.5, "1.500", "+1.500", "2", "+2"},
        {"twoAndHalfToEven", 2.5, "2.500", "+2.500", "2", "+2"},
        // Read as floats: 0.0025 is just below the half and 0.0065 just above it.
        {"floatBelowHalf", 0.0025, "0.002", "+0.002", "0", "+0"},
        {"floatAboveHalf", 0.0065, "0.007", "+0.007", "0", "+0"},
        {"bigFloat", 16777217.0, "16777216.000", "+16777216.000", "16777216", "+16777216"},
    };
    const VKThreeDigitsFloat three;
    const VKPlusMinusThreeDigitsFloat plusMinusThree;
    const VKInteger integer;
    const VKPlusMinusInteger plusMinusInteger;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(three.transformedValue(c.value).toString(), QLatin1String(c.three));
        EXPECT_EQ(plusMinusThree.transformedValue(c.value).toString(),
                  QLatin1String(c.plusMinusThree));
        EXPECT_EQ(integer.transformedValue(c.value).toString(), QLatin1String(c.integer));
        EXPECT_EQ(plusMinusInteger.transformedValue(c.value).toString(),
                  QLatin1String(c.plusMinusInteger));
    }
    EXPECT_FALSE(three.transformedValue(QStringLiteral("1")).isValid());

    struct ReverseCase
    {
        const char *name;
        QVariant value;
        float expected;
    } reverses[] = {
        {"text", QStringLiteral("+1.250"), 1.25f},
        {"leadingNumber", QStringLiteral("  -3.5 dB"), -3.5f},
        {"noNumber", QStringLiteral("abc"), 0.0f},
        {"number", 2.5, 2.5f},
        {"missing", QVariant(), 0.0f},
    };
    for (const auto &c : reverses) {
        SCOPED_TRACE(c.name);
        for (const VKValueTransformer *t : std::initializer_list<const VKValueTransformer *>{
                 &three, &plusMinusThree, &integer, &plusMinusInteger}) {
            const QVariant v = t->reverseTransformedValue(c.value);
            ASSERT_EQ(v.metaType(), QMetaType::fromType<float>());
            EXPECT_EQ(v.toFloat(), c.expected);
        }
    }
}

TEST(VKDisplayValueTransformers, DoublingOrderedSetsAndImages)
{
    const VDMultiplyByTwoValueTransformer doubling;
    EXPECT_EQ(doubling.transformedValue(0.25).toFloat(), 0.5f);
    EXPECT_EQ(doubling.reverseTransformedValue(0.5f).toFloat(), 0.25f);
    EXPECT_EQ(doubling.transformedValue(0.25).metaType(), QMetaType::fromType<float>());
    // Single precision: 2^24 + 1 is 2^24 as a float.
    EXPECT_EQ(doubling.transformedValue(16777217).toFloat(), 33554432.0f);
    EXPECT_FALSE(doubling.transformedValue(QStringLiteral("2")).isValid());
    EXPECT_FALSE(doubling.reverseTransformedValue(QVariant()).isValid());

    const VKOrderedSetToArrayValueTransformer sets;
    const QVariantList withDuplicates = {QStringLiteral("b"), 1, QStringLiteral("a"), 1.0,
                                         QStringLiteral("b")};
    const QVariant set = sets.reverseTransformedValue(withDuplicates);
    ASSERT_EQ(set.metaType(), QMetaType::fromType<VKOrderedSet>());
    const QVariantList expected = {QStringLiteral("b"), 1, QStringLiteral("a")};
    EXPECT_EQ(set.value<VKOrderedSet>().array(), expected);
    EXPECT_EQ(sets.transformedValue(set).toList(), expected);
    EXPECT_EQ(
        sets.reverseTransformedValue(QStringList{"x", "x", "y"}).value<VKOrderedSet>().count(), 2);
    EXPECT_FALSE(sets.transformedValue(withDuplicates).isValid());
    EXPECT_FALSE(sets.reverseTransformedValue(QStringLiteral("a")).isValid());

    struct ImageCase
    {
        const char *name;
        QVariant value;
        QRgb pixel; // 0 for no image
    } images[] = {
        {"withoutExtension", QStringLiteral("swatch"), qRgb(255, 0, 0)},
        {"withExtension", QStringLiteral("swatch.png"), qRgb(255, 0, 0)},
        {"inImagesFolder", QStringLiteral("badge"), qRgb(0, 0, 255)},
        {"missing", QStringLiteral("nothing"), 0},
        {"wrongExtension", QStringLiteral("swatch.svg"), 0},
        {"folderIsNoImage", QStringLiteral("images"), 0},
        {"empty", QString(), 0},
        {"notText", 3, 0},
    };
    const VKImageNameToImageValueTransformer imageNames;
    for (const auto &c : images) {
        SCOPED_TRACE(c.name);
        const QVariant v = imageNames.transformedValue(c.value);
        if (!c.pixel) {
            EXPECT_FALSE(v.isValid());
            continue;
        }
        ASSERT_EQ(v.metaType(), QMetaType::fromType<QIcon>());
        const QImage image = v.value<QIcon>().pixmap(QSize(2, 2)).toImage();
        ASSERT_FALSE(image.isNull());
        EXPECT_EQ(image.pixel(0, 0) & 0xFFFFFF, c.pixel & 0xFFFFFF);
    }
}

TEST(VKDisplayValueTransformers, ReversingAndRegistry)
{
    VKRegisterDisplayValueTransformers();
    struct RegistryCase
    {
        const char *name;
        bool reversible;
    } cases[] = {
        {"VDEnabledStateToTextColorValueTransformer", false},
        {"VDDisabledStateToTextColorValueTransformer", false},
        {"VDEnabledStateToRedTextColorValueTransformer", false},
        {"VKGreaterThanZeroValueTransformer", false},
        {"VKGreaterThanOneValueTransformer", false},
        {"VKGreaterThanTwoValueTransformer", false},
        {"VKIsValidPortNumberValueTransformer", false},
        {"VKOrderedSetToArrayValueTransformer", true},
        {"VKImageNameToImageValueTransformer", false},
        {"VDMultiplyByTwoValueTransformer", true},
        {"VKThreeDigitsFloat", true},
        {"VKPlusMinusThreeDigitsFloat", true},
        {"VKInteger", true},
        {"VKPlusMinusInteger", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto t = VKValueTransformer::valueTransformerForName(QLatin1String(c.name));
        ASSERT_TRUE(t);
        EXPECT_EQ(t->className(), QLatin1String(c.name));
        EXPECT_EQ(t->allowsReverseTransformation(), c.reversible);
        if (c.reversible)
            continue;
        try {
            t->reverseTransformedValue(1);
            ADD_FAILURE() << "no exception";
        } catch (const VKException &e) {
            EXPECT_EQ(e.name(), VKInvalidArgumentException);
            EXPECT_EQ(e.reason(), QString::fromLatin1(c.name) +
                                      QStringLiteral(" does not support reverse transformation"));
        }
    }
    EXPECT_FALSE(VKValueTransformer::valueTransformerForName(
        QStringLiteral("VKLessThanZeroValueTransformer")));
    try {
        VKLessThanTwoValueTransformer().reverseTransformedValue(1);
        ADD_FAILURE() << "no exception";
    } catch (const VKException &e) {
        EXPECT_EQ(e.reason(), QStringLiteral("VKLessThanTwoValueTransformer does not support "
                                             "reverse transformation"));
    }
}
