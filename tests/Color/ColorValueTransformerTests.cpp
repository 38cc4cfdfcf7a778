#include "Color/VKColorValueTransformers.h"
#include "Color/VKTriple.h"

#include <QVariant>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <memory>

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

quint32 bits(float v)
{
    return std::bit_cast<quint32>(v);
}

std::optional<VKTriple> triple(const QVariant &v)
{
    return VKTriple::fromVariant(v);
}

::testing::AssertionResult isTriple(const QVariant &v, VKTripleClass cls, float x, float y, float z)
{
    const std::optional<VKTriple> t = triple(v);
    if (!t)
        return ::testing::AssertionFailure() << "not a triple: " << v.typeName();
    if (t->tripleClass() != cls)
        return ::testing::AssertionFailure() << "class " << t->className().toStdString();
    if (bits(t->x()) != bits(x) || bits(t->y()) != bits(y) || bits(t->z()) != bits(z))
        return ::testing::AssertionFailure()
               << std::hexfloat << t->x() << ", " << t->y() << ", " << t->z();
    return ::testing::AssertionSuccess();
}

QVariant rgb(float r, float g, float b)
{
    return QVariant::fromValue(VKRGBTriple(r, g, b));
}

} // namespace

TEST(VDAngleShiftValueTransformer, MirrorsAndShifts)
{
    struct AngleCase
    {
        const char *name;
        float shift, angle;
        bool reverse;
        float expected;
    } cases[] = {
        {"ninety", 0, 90, false, 270},
        {"zeroWraps360", 0, 0, false, 0},
        {"fullTurn", 0, 360, false, 0},
        {"shiftWrapsOnce", 90, 0, false, 90},
        {"noWrapBelowZero", 90, 500, false, -50},
        {"reverseWraps", 90, 90, true, 0},
        {"reverseOneTurnUp", 0, -360, true, 360},
        // The reverse sums in double: in float these end one unit lower or higher.
        {"reverseInDouble", 170.457f, 62.045f, true, 0x1.b1a5ep+6f},
        {"reverseInDouble2", 224.614f, 119.339f, true, 0x1.a51998p+6f},
        {"reverseInDouble3", 39.403f, 85.837f, true, 0x1.3990e6p+8f},
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

TEST(VKLog10ValueTransformer, NumbersAndTriples)
{
    const VKLog10ValueTransformer t;
    EXPECT_EQ(t.transformedValue(100).toFloat(), 2.0f);
    EXPECT_EQ(t.reverseTransformedValue(2).toFloat(), 100.0f);
    EXPECT_EQ(t.transformedValue(0).toFloat(), -kInf);
    EXPECT_TRUE(std::isnan(t.transformedValue(-1).toFloat()));
    EXPECT_EQ(t.transformedValue(100).metaType(), QMetaType::fromType<float>());

    // The triple keeps its class.
    const VKLog10TripleValueTransformer tt;
    EXPECT_TRUE(isTriple(tt.transformedValue(QVariant::fromValue(VKHSVTriple(100, 1, 0))),
                         VKTripleClass::HSV, 2, 0, -kInf));
    EXPECT_TRUE(isTriple(tt.reverseTransformedValue(QVariant::fromValue(VKTTLTriple(2, 0, -1))),
                         VKTripleClass::TTL, 100, 1, 0x1.99999ap-4f));
    EXPECT_TRUE(isTriple(tt.transformedValue(QVariant::fromValue(VKTriple(10, 10, 10))),
                         VKTripleClass::Triple, 1, 1, 1));
}

TEST(VKColorValueTransformers, RGBToTTLAndReciprocal)
{
    const VKRGBToTTLTripleValueTransformer ttl;
    EXPECT_TRUE(isTriple(ttl.transformedValue(rgb(0, 0, 0)), VKTripleClass::TTL, 0.5f, 0.5f,
                         0x1.99999cp-7f));
    EXPECT_TRUE(
        isTriple(ttl.reverseTransformedValue(QVariant::fromValue(VKTTLTriple(0.5f, 0.5f, 1))),
                 VKTripleClass::RGB, 0.125f, 0.125f, 0.125f));

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
        {"roundingOnTheWayBack",
         plain,
         {0.2f, 0.4f, 0.6f},
         {210, 0x1.99999cp+0f, 0x1.333334p-1f},
         {0x1.999998p-3f, 0x1.99999cp-2f, 0x1.333334p-1f}},
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
    EXPECT_EQ(triple(flipped->transformedValue(rgb(0.5f, 0.5f, 1.0f)))->x(), 60.0f);
    EXPECT_EQ(triple(flipped->transformedValue(rgb(0.5f, 1.0f, 1.0f)))->x(), 360.0f);
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
        EXPECT_TRUE(t->allowsReverseTransformation());
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
    EXPECT_FALSE(
        VKRGBToTTLTripleValueTransformer().reverseTransformedValue(rgb(1, 1, 1)).isValid());
    EXPECT_FALSE(VKRGBToARLTripleValueTransformer().reverseTransformedValue(hsv).isValid());
    EXPECT_FALSE(VKRGBFlippedToRGBTripleValue().transformedValue(hsv).isValid());
}
