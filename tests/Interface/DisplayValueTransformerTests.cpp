#include "Interface/VKDisplayValueTransformers.h"
#include "Interface/VKOrderedSet.h"

#include "VKTestSupport.h"

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QPixmap>

#include <gtest/gtest.h>

#include <limits>

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
    // clang-format off
    const struct { QVariant state; std::array<int, 4> enabled, disabled, red; } cases[] = {
        {true, kBlack, kDarkGray, kRed}, {false, kDarkGray, kBlack, kBlack},
        {QVariant(), kDarkGray, kBlack, kBlack}, {0.5, kBlack, kDarkGray, kRed},
        {0, kDarkGray, kBlack, kBlack}, {QStringLiteral("  +00Yes"), kBlack, kDarkGray, kRed},
        {QStringLiteral("-007"), kBlack, kDarkGray, kRed}, {QStringLiteral("no"), kDarkGray, kBlack, kBlack},
        {QStringLiteral("000"), kDarkGray, kBlack, kBlack},
    };
    // clang-format on
    const VDEnabledStateToTextColorValueTransformer enabled;
    const VDDisabledStateToTextColorValueTransformer disabled;
    const VDEnabledStateToRedTextColorValueTransformer red;
    for (const auto &c : cases) {
        EXPECT_EQ(rgba(enabled.transformedValue(c.state)), c.enabled) << c.state.toString();
        EXPECT_EQ(rgba(disabled.transformedValue(c.state)), c.disabled) << c.state.toString();
        EXPECT_EQ(rgba(red.transformedValue(c.state)), c.red) << c.state.toString();
    }
    // An RGB colour, not merely one that converts to the same RGBA (QColor's == compares the
    // colour model too).
    const QColor shown = red.transformedValue(true).value<QColor>();
    EXPECT_EQ(shown, shown.toRgb());
}

TEST(VKDisplayValueTransformers, ThresholdFlagsAndPortNumbers)
{
    // Greater than 0, 1, 2, less than 0, 1, 2; "-" for no answer. Numbers are read as 32-bit
    // integers: fractions cut, huge values saturate, wide integers keep their low 32 bits.
    // clang-format off
    const struct { QVariant value; const char *flags; } cases[] = {
        {0, "000011"}, {1.9, "100001"}, {2, "110000"}, {3u, "111000"}, {0.9f, "000011"},
        {-0.1, "000011"}, {-1, "000111"}, {true, "100001"}, {1e10, "111000"}, {-1e10, "000111"},
        {Q_INT64_C(0x100000001), "100001"}, {Q_INT64_C(0x1FFFFFFFF), "000111"},
        {std::numeric_limits<double>::quiet_NaN(), "000011"}, {QStringLiteral("5"), "------"},
        {QVariant(), "------"},
    };
    // clang-format on
    const VKGreaterThanZeroValueTransformer g0;
    const VKGreaterThanOneValueTransformer g1;
    const VKGreaterThanTwoValueTransformer g2;
    const VKLessThanZeroValueTransformer l0;
    const VKLessThanOneValueTransformer l1;
    const VKLessThanTwoValueTransformer l2;
    const auto flag = [](const QVariant &v) {
        EXPECT_TRUE(!v.isValid() || v.metaType() == QMetaType::fromType<bool>());
        return !v.isValid() ? u'-' : v.toBool() ? u'1' : u'0';
    };
    for (const auto &c : cases) {
        const QString got = QString(flag(g0.transformedValue(c.value))) +
                            flag(g1.transformedValue(c.value)) + flag(g2.transformedValue(c.value)) +
                            flag(l0.transformedValue(c.value)) + flag(l1.transformedValue(c.value)) +
                            flag(l2.transformedValue(c.value));
        EXPECT_EQ(got, QString::fromLatin1(c.flags)) << c.value.toString();
    }
    // The "less than" flags are not transformers of the registry's kind, but answer alike.
    static_assert(!std::is_base_of_v<VKValueTransformer, VKLessThanOneValueTransformer>);
    EXPECT_FALSE(l1.allowsReverseTransformation());
    EXPECT_EQ(l1.transformedValueClass(), QMetaType::fromType<bool>());
    EXPECT_EQ(vkRaisedBy([] { VKLessThanTwoValueTransformer().reverseTransformedValue(1); }),
              "NSInvalidArgumentException|VKLessThanTwoValueTransformer does not support reverse "
              "transformation");

    // clang-format off
    const struct { QVariant value; bool valid; } ports[] = {
        {1023, false}, {1024, true}, {65535, true}, {65536, false}, {1023.9, false}, {65535.9, true},
        {-8080, false}, {Q_INT64_C(0x100000400), false}, {QStringLiteral("8080"), false}, {QVariant(), false},
    };
    // clang-format on
    const VKIsValidPortNumberValueTransformer port;
    for (const auto &c : ports) {
        const QVariant v = port.transformedValue(c.value);
        ASSERT_EQ(v.metaType(), QMetaType::fromType<bool>());
        EXPECT_EQ(v.toBool(), c.valid) << c.value.toString();
    }
}

TEST(VKDisplayValueTransformers, NumberFormats)
{
    // Halves go to even; values are read as floats: 0.0025 is just below the half and 0.0065
    // just above it.
    // clang-format off
    const struct { QVariant value; const char *three, *plusMinusThree, *integer, *plusMinusInteger; } cases[] = {
        {1, "1.000", "+1.000", "1", "+1"}, {-0.5, "-0.500", "-0.500", "-0", "-0"},
        {0.5, "0.500", "+0.500", "0", "+0"}, {1.5, "1.500", "+1.500", "2", "+2"},
        {2.5, "2.500", "+2.500", "2", "+2"}, {0.0025, "0.002", "+0.002", "0", "+0"},
        {0.0065, "0.007", "+0.007", "0", "+0"},
        {16777217.0, "16777216.000", "+16777216.000", "16777216", "+16777216"},
    };
    // clang-format on
    const VKThreeDigitsFloat three;
    const VKPlusMinusThreeDigitsFloat plusMinusThree;
    const VKInteger integer;
    const VKPlusMinusInteger plusMinusInteger;
    for (const auto &c : cases) {
        EXPECT_EQ(three.transformedValue(c.value).toString(), c.three);
        EXPECT_EQ(plusMinusThree.transformedValue(c.value).toString(), c.plusMinusThree);
        EXPECT_EQ(integer.transformedValue(c.value).toString(), c.integer);
        EXPECT_EQ(plusMinusInteger.transformedValue(c.value).toString(), c.plusMinusInteger);
    }
    EXPECT_FALSE(three.transformedValue(QStringLiteral("1")).isValid());
    // Back: the leading number of a text, or the number, as a float.
    // clang-format off
    const std::pair<QVariant, float> reverses[] = {{QStringLiteral("+1.250"), 1.25f},
        {QStringLiteral("  -3.5 dB"), -3.5f}, {QStringLiteral("abc"), 0.0f}, {2.5, 2.5f}, {QVariant(), 0.0f}};
    // clang-format on
    for (const auto &[value, expected] : reverses) {
        for (const VKValueTransformer *t : std::initializer_list<const VKValueTransformer *>{
                 &three, &plusMinusThree, &integer, &plusMinusInteger}) {
            const QVariant v = t->reverseTransformedValue(value);
            ASSERT_EQ(v.metaType(), QMetaType::fromType<float>());
            EXPECT_EQ(v.toFloat(), expected) << value.toString();
        }
    }
}

TEST(VKDisplayValueTransformers, DoublingOrderedSetsAndImages)
{
    const VDMultiplyByTwoValueTransformer doubling;
    EXPECT_EQ(doubling.transformedValue(0.25).metaType(), QMetaType::fromType<float>());
    EXPECT_EQ(doubling.transformedValue(0.25).toFloat(), 0.5f);
    EXPECT_EQ(doubling.reverseTransformedValue(0.5f).toFloat(), 0.25f);
    EXPECT_EQ(doubling.transformedValue(16777217).toFloat(), 33554432.0f); // 2^24 + 1 as a float
    EXPECT_FALSE(doubling.transformedValue(QStringLiteral("2")).isValid());
    EXPECT_FALSE(doubling.reverseTransformedValue(QVariant()).isValid());

    const VKOrderedSetToArrayValueTransformer sets;
    const QVariant set = sets.reverseTransformedValue(
        QVariantList{QStringLiteral("b"), 1, QStringLiteral("a"), 1.0, QStringLiteral("b")});
    ASSERT_EQ(set.metaType(), QMetaType::fromType<VKOrderedSet>());
    const QVariantList expected = {QStringLiteral("b"), 1, QStringLiteral("a")};
    EXPECT_EQ(set.value<VKOrderedSet>().array(), expected);
    EXPECT_EQ(sets.transformedValue(set).toList(), expected);
    EXPECT_EQ(
        sets.reverseTransformedValue(QStringList{"x", "x", "y"}).value<VKOrderedSet>().count(), 2);
    EXPECT_FALSE(sets.transformedValue(expected).isValid());
    EXPECT_FALSE(sets.reverseTransformedValue(QStringLiteral("a")).isValid());

    // Images among the application's resources, with or without extension; 0: no image.
    const std::pair<QVariant, QRgb> images[] = {
        {QStringLiteral("swatch"), qRgb(255, 0, 0)}, {QStringLiteral("swatch.png"), qRgb(255, 0, 0)},
        {QStringLiteral("badge"), qRgb(0, 0, 255)},  {QStringLiteral("nothing"), 0},
        {QStringLiteral("swatch.svg"), 0},           {QStringLiteral("images"), 0},
        {QString(), 0},                              {3, 0}};
    const VKImageNameToImageValueTransformer imageNames;
    for (const auto &[name, pixel] : images) {
        const QVariant v = imageNames.transformedValue(name);
        ASSERT_EQ(v.isValid(), pixel != 0) << name.toString();
        if (!pixel)
            continue;
        ASSERT_EQ(v.metaType(), QMetaType::fromType<QIcon>());
        const QImage image = v.value<QIcon>().pixmap(QSize(2, 2)).toImage();
        ASSERT_FALSE(image.isNull());
        EXPECT_EQ(image.pixel(0, 0) & 0xFFFFFF, pixel & 0xFFFFFF) << name.toString();
    }
}

TEST(VKDisplayValueTransformers, ReversingAndRegistry)
{
    VKRegisterDisplayValueTransformers();
    // clang-format off
    const std::pair<const char *, bool> registered[] = {
        {"VDEnabledStateToTextColorValueTransformer", false}, {"VDDisabledStateToTextColorValueTransformer", false},
        {"VDEnabledStateToRedTextColorValueTransformer", false}, {"VKGreaterThanZeroValueTransformer", false},
        {"VKGreaterThanOneValueTransformer", false}, {"VKGreaterThanTwoValueTransformer", false},
        {"VKIsValidPortNumberValueTransformer", false}, {"VKOrderedSetToArrayValueTransformer", true},
        {"VKImageNameToImageValueTransformer", false}, {"VDMultiplyByTwoValueTransformer", true},
        {"VKThreeDigitsFloat", true}, {"VKPlusMinusThreeDigitsFloat", true}, {"VKInteger", true},
        {"VKPlusMinusInteger", true},
    };
    // clang-format on
    for (const auto &[name, reversible] : registered) {
        const auto t = VKValueTransformer::valueTransformerForName(QLatin1String(name));
        ASSERT_TRUE(t) << name;
        EXPECT_EQ(t->className(), QLatin1String(name));
        EXPECT_EQ(t->allowsReverseTransformation(), reversible) << name;
        EXPECT_EQ(vkRaisedBy([&] { t->reverseTransformedValue(1); }),
                  reversible ? "no exception"
                             : "NSInvalidArgumentException|" + QString::fromLatin1(name) +
                                   " does not support reverse transformation");
    }
    EXPECT_FALSE(VKValueTransformer::valueTransformerForName(
        QStringLiteral("VKLessThanZeroValueTransformer")));
}
