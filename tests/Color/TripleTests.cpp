// Colour triples (conversions bit for bit, clamps, equality, texts) and the value transformers
// built on them.
#include "Color/VKColorValueTransformers.h"
#include "Color/VKTriple.h"

#include <QRegularExpression>
#include <QVariant>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <memory>

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

quint32 bits(float v)
{
    return std::bit_cast<quint32>(v);
}

// Bit for bit, except that any NaN matches a NaN; of class `cls` when one is given.
::testing::AssertionResult sameBits(const std::optional<VKTriple> &actual, const VKTriple &expected,
                                    std::optional<VKTripleClass> cls = {})
{
    if (!actual)
        return ::testing::AssertionFailure() << "not a triple";
    if (cls && actual->tripleClass() != *cls)
        return ::testing::AssertionFailure() << "class " << actual->className().toStdString();
    const float a[3] = {actual->x(), actual->y(), actual->z()};
    const float e[3] = {expected.x(), expected.y(), expected.z()};
    for (int i = 0; i < 3; ++i) {
        if (std::isnan(e[i]) ? !std::isnan(a[i]) : bits(a[i]) != bits(e[i]))
            return ::testing::AssertionFailure()
                   << "component " << i << ": " << std::hexfloat << a[i] << " expected " << e[i];
    }
    return ::testing::AssertionSuccess();
}

// What a transformer answered: a triple of class `cls`, bit for bit.
::testing::AssertionResult isTriple(const QVariant &v, VKTripleClass cls, float x, float y, float z)
{
    return sameBits(VKTriple::fromVariant(v), {x, y, z}, cls);
}

QVariant rgb(float r, float g, float b)
{
    return QVariant::fromValue(VKRGBTriple(r, g, b));
}

struct ConversionCase
{
    const char *name;
    VKTriple input;
    VKTriple output;
};

} // namespace

// Each conversion bit for bit: HSV by sector, with clamps, NaNs and rounding pinned; TTL both
// ways, which are not inverses of each other.
TEST(VKTriple, ConversionsBitForBit)
{
    const ConversionCase toHSV[] = {
        {"red", {1, 0, 0}, {0, 1, 1}},
        {"grey", {0.5f, 0.5f, 0.5f}, {0, 0, 0.5f}},
        {"black", {0, 0, 0}, {0, 0, 0}},
        {"yellowLastEqualWins", {1, 1, 0}, {0x1.555556p-3f, 1, 1}},
        {"blueLargest", {0.2f, 0.4f, 0.6f}, {0x1.2aaaaap-1f, 0x1.555556p-1f, 0x1.333334p-1f}},
        {"negativeHueWraps", {0.9f, 0.1f, 0.5f}, {0x1.d55556p-1f, 0x1.c71c7p-1f, 0x1.ccccccp-1f}},
        {"unclamped", {-0.5f, 0.25f, 1.5f}, {0x1.355556p-1f, 0x1.555556p+0f, 1.5f}},
        {"maxZeroHasNoSaturation", {0, 0, -1}, {0x1.555556p-3f, 0, 0}},
        {"infiniteRed", {kInf, 0, 0}, {0, kNaN, kInf}},
        // The candidate of the largest channel is 60 × (k + quotient) in double: an all-float
        // sum rounds this one a bit higher.
        {"doubleSum", {0.366f, 0.058f, 0.507f}, {0x1.8fde8cp-1f, 0x1.c56d92p-1f, 0x1.039582p-1f}},
    };
    const ConversionCase hsvToRGB[] = {
        {"hue0", {0, 1, 1}, {1, 0, 0}},
        {"hueSixth", {1.0f / 6, 1, 1}, {1, 1, 0}},
        {"hueThird", {1.0f / 3, 1, 1}, {0, 1, 0x1p-24f}},
        {"hueHalf", {0.5f, 1, 1}, {0, 1, 1}},
        {"hueTwoThirds", {2.0f / 3, 1, 1}, {0x1p-23f, 0, 1}},
        {"hueFiveSixths", {5.0f / 6, 1, 1}, {0x1.fffffcp-1f, 0, 1}},
        {"hue1IsLastSector", {1, 1, 1}, {1, 0, 0}},
        {"clampedAbove", {kInf, 2, 5}, {1, 0, 0}},
        {"clampedBelow", {-3, 0.5f, -1}, {0, 0, 0}},
        {"nanHueHasNoSector", {kNaN, 1, 1}, {0, 0, 0}},
        {"nanSaturation", {0.5f, kNaN, 1}, {kNaN, kNaN, 1}},
        {"sector4", {0.7f, 0.3f, 0.8f}, {0x1.374bc6p-1f, 0x1.1eb852p-1f, 0x1.99999ap-1f}},
        // f = h6 - i is kept as a float: in double this one ends a bit higher.
        {"floatFraction",
         {0.366f, 0.058f, 0.507f},
         {0x1.e90e6ap-2f, 0x1.039582p-1f, 0x1.eef54cp-2f}},
        // 1 - saturation × f in float: with all-float sector arithmetic this one differs.
        {"floatProducts",
         {0.639f, 0.372f, 0.548f},
         {0x1.606748p-2f, 0x1.830e42p-2f, 0x1.189374p-1f}},
    };
    const ConversionCase toTTL[] = {
        {"blackToTTL", {0, 0, 0}, {0.5f, 0.5f, 0x1.99999cp-7f}},
        {"clampedAtTop", {1, 1, 1}, {0.5f, 0.5f, 0x1.99988ep-6f}},
        {"clampedAtBottom", {-1, -1, -1}, {0.5f, 0.5f, 0x1.0c6f7ap-22f}},
        {"colourToTTL", {0.2f, 0.4f, 0.6f}, {0.5625f, 0x1.a5a648p-2f, 0x1.8de512p-6f}},
        {"nanPassesTheClamp", {kNaN, 0, 0}, {kNaN, kNaN, kNaN}},
    };
    const ConversionCase ttlToRGB[] = {
        {"zeroGivesOffset", {0, 0, 0}, {0x1.99999ap-6f, 0x1.99999ap-6f, 0x1.99999ap-6f}},
        {"clampedAtOne", {1, 1, 100}, {0x1.99999ap-6f, 1, 0x1.99999ap-6f}},
        {"clampedAtZero", {0, 0, -100}, {0x1.99999ap-6f, 0x1.99999ap-6f, 0}},
        {"colour", {0.3f, 0.6f, 0.7f}, {0x1.240b78p-3f, 0x1.34d6a2p-4f, 0x1.a786cp-4f}},
        // (1 - x) in double carries the blue product in double; all in float it differs.
        {"doubleBlue", {0.489f, 0.039f, 0.668f}, {0x1.f0d864p-6f, 0x1.ed16d0p-6f, 0x1.3fed36p-3f}},
    };
    const auto check = [](const auto &cases, auto convert) {
        for (const ConversionCase &c : cases) {
            SCOPED_TRACE(c.name);
            EXPECT_TRUE(sameBits(convert(c.input), c.output));
        }
    };
    check(toHSV, [](const VKTriple &t) { return VKRGBTriple(t.x(), t.y(), t.z()).hsvTriple(); });
    check(hsvToRGB, [](const VKTriple &t) { return VKHSVTriple(t.x(), t.y(), t.z()).rgbTriple(); });
    check(toTTL, [](const VKTriple &t) { return VKRGBTriple(t.x(), t.y(), t.z()).ttlTriple(); });
    check(ttlToRGB, [](const VKTriple &t) { return VKTTLTriple(t.x(), t.y(), t.z()).rgbTriple(); });
    // A value of 0 has the level -inf; hues are not wrapped: an angle of 450 gives 1.25.
    EXPECT_TRUE(sameBits(VKHSVTriple(0.25f, 0.5f, 0).arlTriple(), {90, 0.5f, -kInf}));
    EXPECT_TRUE(sameBits(VKARLTriple(450, 0.5f, -1).hsvTriple(), {1.25f, 0.5f, 0x1.99999ap-4f}));
    EXPECT_TRUE(sameBits(VKARLTriple(450, 0.5f, -1).hsvTripleWithExponentialValue(false),
                         {1.25f, 0.5f, -1}));
}

TEST(VKTriple, ClampArithmeticAndExtremes)
{
    struct ClampCase
    {
        const char *name;
        float value, minimum, maximum, expected;
    } clamps[] = {
        {"above", 2, 0, 1, 1},       {"below", -1, 0, 1, 0},    {"upperFirst", 0.5f, 1, 0, 0},
        {"bothBroken", -5, 1, 0, 1}, {"nan", kNaN, 0, 1, kNaN}, {"nanBound", 0.5f, kNaN, 1, 0.5f},
    };
    for (const auto &c : clamps) {
        SCOPED_TRACE(c.name);
        const float r = VDClamp(c.value, c.minimum, c.maximum);
        EXPECT_TRUE(std::isnan(c.expected) ? std::isnan(r) : r == c.expected) << r;
    }

    const VKRGBTriple t(1, 0, -1);
    EXPECT_TRUE(sameBits(t.tripleByDividing(0), {kInf, kNaN, -kInf}));
    EXPECT_TRUE(sameBits(t.tripleBySubstracting(0.5f), {0.5f, -0.5f, -1.5f}));
    EXPECT_TRUE(sameBits(t.clampToMinimum(-0.5f, 0.5f), {0.5f, 0, -0.5f}));
    EXPECT_EQ(std::make_pair(t.minimum(), t.maximum()), std::make_pair(-1.0f, 1.0f));
    // The operations answer the receiver's class, even through the plain type.
    const VKTriple plain = VKHSVTriple::tripleOne();
    EXPECT_EQ(plain.tripleByAdding(1).tripleClass(), VKTripleClass::HSV);
}

TEST(VKTriple, TolerantEqualityFollowsTheClass)
{
    const VKRGBTriple base(0.5f, 0.5f, 0.5f);
    struct EqualityCase
    {
        const char *name;
        VKTriple receiver;
        VKTriple other;
        bool equal;
    } cases[] = {
        {"within", base, base.tripleWithGreen(0.500009f), true},
        {"beyond", base, base.tripleWithBlue(0.5001f), false},
        {"hsvIsNotRGB", base, VKHSVTriple(0.5f, 0.5f, 0.5f), false},
        {"rgbIsNotHSV", VKHSVTriple(0.5f, 0.5f, 0.5f), base, false},
        {"subclassOfPlain", VKTriple(0.5f, 0.5f, 0.5f), base, true},
        {"plainIsNoRGB", base, VKTriple(0.5f, 0.5f, 0.5f), false},
        {"nanNeverEqual", VKRGBTriple(kNaN, 0, 0), VKRGBTriple(kNaN, 0, 0), false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.receiver.isEqual(c.other), c.equal);
    }
    // A difference just below 1e-5 in float counts as equal, 1e-5 itself (as a float, above
    // the double 1e-5) does not.
    EXPECT_TRUE(VKRGBTriple(0, 0, 0).isEqual(VKRGBTriple(0, 0, 0x1.4f8b58p-17f)));
    EXPECT_FALSE(VKRGBTriple(0, 0, 0).isEqual(VKRGBTriple(0, 0, 0x1.4f8b5ap-17f)));
}

TEST(VKTriple, DescriptionAndVariants)
{
    struct DescriptionCase
    {
        const char *name;
        VKTriple triple;
        const char *text;
    } cases[] = {
        {"rgb", VKRGBTriple(0.5f, 1, -0.25f),
         "<VKRGBTriple: P>\n\t red: 0.50000000\n\t green: 1.00000000\n\t blue: -0.25000000\n"},
        {"hsv", VKHSVTriple(0.1f, 0, 1),
         "<VKHSVTriple: P>\n\t hue: 0.10000000\n\t saturation: 0.00000000\n\t value: 1.00000000\n"},
        {"arl", VKARLTriple(90, 0.5f, -kInf),
         "<VKARLTriple: P>\n\t angle: 90.00000000\n\t radius: 0.50000000\n\t level: -inf\n"},
        {"ttl", VKTTLTriple(kNaN, 2, 3),
         "<VKTTLTriple: P>\n\t tint: nan\n\t temperature: 2.00000000\n\t level: 3.00000000\n"},
        {"plain", VKTriple(1, 2, 3), "<VKTriple: P>"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QString text = c.triple.description();
        text.replace(QRegularExpression(QStringLiteral("0x[0-9a-f]+")), QStringLiteral("P"));
        EXPECT_EQ(text, QString::fromLatin1(c.text));
        // A variant holds the triple as its own class's type.
        EXPECT_EQ(c.triple.toVariant().metaType().name(), c.triple.className().toLatin1());
    }
    EXPECT_FALSE(VKTriple::fromVariant(QVariant(QStringLiteral("red"))));
    EXPECT_FALSE(VKRGBTriple::fromVariant(VKHSVTriple(1, 1, 1).toVariant()));
}

TEST(VDAngleShiftValueTransformer, MirrorsAndShifts)
{
    struct AngleCase
    {
        const char *name;
        float shift, angle;
        bool reverse;
        float expected;
    } cases[] = {
        {"zeroWraps360", 0, 0, false, 0},
        {"fullTurn", 0, 360, false, 0},
        {"shiftWrapsOnce", 90, 0, false, 90},
        {"noWrapBelowZero", 90, 500, false, -50},
        {"reverseWraps", 90, 90, true, 0},
        {"reverseOneTurnUp", 0, -360, true, 360},
        // The reverse sums in double: in float this one ends one unit off.
        {"reverseInDouble", 170.457f, 62.045f, true, 0x1.b1a5ep+6f},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const VDAngleShiftValueTransformer t(c.shift);
        const float r =
            c.reverse ? t.reverseTransformedFloat(c.angle) : t.transformedFloat(c.angle);
        EXPECT_EQ(bits(r), bits(c.expected)) << r;
        const QVariant v = c.reverse ? t.reverseTransformedValue(c.angle)
                                     : t.transformedValue(QVariant(double(c.angle)));
        EXPECT_EQ(v.metaType(), QMetaType::fromType<float>());
        EXPECT_EQ(bits(v.toFloat()), bits(c.expected));
    }
}

TEST(VKColorValueTransformers, LogarithmsTTLAndReciprocalsKeepTheClass)
{
    const QVariant two = VKLog10ValueTransformer().transformedValue(100);
    EXPECT_EQ(two.metaType(), QMetaType::fromType<float>());
    EXPECT_EQ(two.toFloat(), 2.0f);
    EXPECT_EQ(VKLog10ValueTransformer().reverseTransformedValue(2).toFloat(), 100.0f);
    const VKLog10TripleValueTransformer log10;
    EXPECT_TRUE(isTriple(log10.transformedValue(QVariant::fromValue(VKHSVTriple(100, 1, 0))),
                         VKTripleClass::HSV, 2, 0, -kInf));
    EXPECT_TRUE(isTriple(log10.reverseTransformedValue(QVariant::fromValue(VKTTLTriple(2, 0, -1))),
                         VKTripleClass::TTL, 100, 1, 0x1.99999ap-4f));
    EXPECT_TRUE(isTriple(VKRGBToTTLTripleValueTransformer().transformedValue(rgb(0, 0, 0)),
                         VKTripleClass::TTL, 0.5f, 0.5f, 0x1.99999cp-7f));
    const VKRGBFlippedToRGBTripleValue flipped;
    EXPECT_TRUE(
        isTriple(flipped.transformedValue(rgb(0.5f, 0, -4)), VKTripleClass::RGB, 2, kInf, -0.25f));
    EXPECT_TRUE(isTriple(flipped.reverseTransformedValue(rgb(4, 1, 0.25f)), VKTripleClass::RGB,
                         0.25f, 1, 4));
}

TEST(VKColorValueTransformers, ARLWheels)
{
    const auto plain = std::make_shared<VKRGBToARLTripleValueTransformer>();
    const auto logarithmic = std::make_shared<VKRGBToLogarithmicARLTripleValueTransformer>();
    const auto flipped = std::make_shared<VKRGBFlippedToLogarithmicARLTripleValueTransformer>();
    const struct
    {
        const char *name;
        std::shared_ptr<VKValueTransformer> transformer;
        VKRGBTriple input;
        VKARLTriple arl;
        VKRGBTriple back; // {}: the input itself
    } cases[] = {
        {"greyHasNoRadius", plain, {0.3f, 0.3f, 0.3f}, {0, 0, 0x1.333334p-2f}, {}},
        {"radiusDoubled", plain, {0.8f, 0.5f, 0.6f}, {340, 0x1.333334p+0f, 0x1.99999ap-1f}, {}},
        {"whiteLevelZero", logarithmic, {1, 1, 1}, {0, 0, 0}, {}},
        {"tenthLevelMinusOne",
         logarithmic,
         {0.1f, 0.1f, 0.1f},
         {0, 0, -1},
         {0x1.999998p-4f, 0x1.999998p-4f, 0x1.999998p-4f}},
        {"logColour", logarithmic, {0.8f, 0.5f, 0.6f}, {340, 0x1.333334p-1f, -0x1.8cf182p-4f}, {}},
        {"flippedWraps", flipped, {0.8f, 0.5f, 0.6f}, {160, 0x1.333334p-1f, 0x1.8cf182p-4f}, {}},
        {"flippedUnwrapped", flipped, {0.5f, 0.6f, 0.8f}, {40, 0x1.333334p-1f, 0x1.8cf182p-4f}, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QVariant arl = c.transformer->transformedValue(QVariant::fromValue(c.input));
        EXPECT_TRUE(isTriple(arl, VKTripleClass::ARL, c.arl.x(), c.arl.y(), c.arl.z()));
        const VKRGBTriple back = c.back.maximum() == 0 ? c.input : c.back;
        EXPECT_TRUE(isTriple(c.transformer->reverseTransformedValue(arl), VKTripleClass::RGB,
                             back.x(), back.y(), back.z()));
    }
    // A half turn of exactly 360 is not wrapped.
    EXPECT_EQ(VKTriple::fromVariant(flipped->transformedValue(rgb(0.5f, 0.5f, 1.0f)))->x(), 60.0f);
    EXPECT_EQ(VKTriple::fromVariant(flipped->transformedValue(rgb(0.5f, 1.0f, 1.0f)))->x(), 360.0f);
}

TEST(VKColorValueTransformers, WrongKindsGiveNothingAndNamesRegister)
{
    VKRegisterColorValueTransformers();
    // The first two take numbers, the others triples.
    const char *names[] = {"VDAngleShiftValueTransformer",
                           "VKLog10ValueTransformer",
                           "VKLog10TripleValueTransformer",
                           "VKRGBFlippedToRGBTripleValue",
                           "VKRGBToTTLTripleValueTransformer",
                           "VKRGBToARLTripleValueTransformer",
                           "VKRGBToLogarithmicARLTripleValueTransformer",
                           "VKRGBFlippedToLogarithmicARLTripleValueTransformer"};
    for (size_t i = 0; i < std::size(names); ++i) {
        SCOPED_TRACE(names[i]);
        const auto t = VKValueTransformer::valueTransformerForName(QString::fromLatin1(names[i]));
        ASSERT_TRUE(t);
        EXPECT_EQ(t->className(), QString::fromLatin1(names[i]));
        const QVariant wrong[] = {QVariant(), QVariant(QStringLiteral("1")),
                                  QVariant::fromValue(nullptr),
                                  i >= 2 ? QVariant(1.0) : rgb(1, 1, 1)};
        for (const QVariant &v : wrong) {
            EXPECT_FALSE(t->transformedValue(v).isValid()) << v.typeName();
            EXPECT_FALSE(t->reverseTransformedValue(v).isValid()) << v.typeName();
        }
    }
    // Triples of another model are the wrong kind too.
    const QVariant hsv = QVariant::fromValue(VKHSVTriple(1, 1, 1));
    EXPECT_FALSE(VKRGBToTTLTripleValueTransformer().transformedValue(hsv).isValid());
    EXPECT_FALSE(VKRGBToARLTripleValueTransformer().reverseTransformedValue(hsv).isValid());
    EXPECT_FALSE(VKRGBFlippedToRGBTripleValue().transformedValue(hsv).isValid());
}
