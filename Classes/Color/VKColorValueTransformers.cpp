#include "Color/VKColorValueTransformers.h"

#include "Color/VKTriple.h"
#include "Foundation/VKNumber.h"

#include <QVariant>

#include <cmath>
#include <optional>

namespace {

const QMetaType kFloatType = QMetaType::fromType<float>();

std::optional<float> floatFrom(const QVariant &value)
{
    if (!VKNumber::isNumber(value))
        return std::nullopt;
    return value.toFloat();
}

QVariant floatVariant(std::optional<float> value)
{
    return value ? QVariant(*value) : QVariant();
}

// The largest channel moved to 0.5, as HSV, with the largest channel as value.
VKHSVTriple centredHSV(const VKRGBTriple &c)
{
    const float m = c.maximum();
    const float offset = float(double(m) - 0.5);
    return c.tripleBySubstracting(offset).hsvTriple().tripleWithValue(m);
}

// The colour of `h` at value 0.5, moved back so that its largest channel is v.
VKRGBTriple uncentredRGB(const VKHSVTriple &h, float v)
{
    const float offset = float(double(v) - 0.5);
    return h.tripleWithValue(0.5f).rgbTriple().tripleByAdding(offset);
}

// Half a turn, wrapped once when strictly above 360.
float halfTurn(float angle)
{
    angle = angle + 180.0f;
    if (angle > 360.0f)
        angle = angle - 360.0f;
    return angle;
}

VKARLTriple logarithmicARL(const VKRGBTriple &c)
{
    return centredHSV(c).arlTripleWithLogarithmicLevel(true);
}

VKRGBTriple fromLogarithmicARL(const VKARLTriple &a)
{
    const VKHSVTriple h = a.hsvTripleWithExponentialValue(true);
    return uncentredRGB(h, h.value());
}

} // namespace

void VKRegisterColorValueTransformers()
{
    const auto add = [](std::shared_ptr<VKValueTransformer> t) {
        const QString name = t->className();
        VKValueTransformer::setValueTransformer(std::move(t), name);
    };
    add(std::make_shared<VDAngleShiftValueTransformer>());
    add(std::make_shared<VKLog10ValueTransformer>());
    add(std::make_shared<VKLog10TripleValueTransformer>());
    add(std::make_shared<VKRGBFlippedToRGBTripleValue>());
    add(std::make_shared<VKRGBToTTLTripleValueTransformer>());
    add(std::make_shared<VKRGBToARLTripleValueTransformer>());
    add(std::make_shared<VKRGBToLogarithmicARLTripleValueTransformer>());
    add(std::make_shared<VKRGBFlippedToLogarithmicARLTripleValueTransformer>());
}

// VDAngleShiftValueTransformer

float VDAngleShiftValueTransformer::transformedFloat(float a) const
{
    const float difference = a - m_angleShift;
    float r = float(360.0 - double(difference));
    if (r >= 360.0f)
        r = r - 360.0f;
    return r;
}

float VDAngleShiftValueTransformer::reverseTransformedFloat(float a) const
{
    float r = float(360.0 - double(a) + double(m_angleShift));
    if (r >= 360.0f)
        r = r - 360.0f;
    return r;
}

QMetaType VDAngleShiftValueTransformer::transformedValueClass() const
{
    return kFloatType;
}

bool VDAngleShiftValueTransformer::allowsReverseTransformation() const
{
    return true;
}

QVariant VDAngleShiftValueTransformer::transformedValue(const QVariant &value) const
{
    const std::optional<float> a = floatFrom(value);
    return a ? QVariant(transformedFloat(*a)) : QVariant();
}

QVariant VDAngleShiftValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    const std::optional<float> a = floatFrom(value);
    return a ? QVariant(reverseTransformedFloat(*a)) : QVariant();
}

QString VDAngleShiftValueTransformer::className() const
{
    return QStringLiteral("VDAngleShiftValueTransformer");
}

// VKLog10ValueTransformer

float VKLog10ValueTransformer::transformedFloat(float value)
{
    return ::log10f(value);
}

float VKLog10ValueTransformer::reverseTransformedFloat(float value)
{
    return ::powf(10.0f, value);
}

QMetaType VKLog10ValueTransformer::transformedValueClass() const
{
    return kFloatType;
}

bool VKLog10ValueTransformer::allowsReverseTransformation() const
{
    return true;
}

QVariant VKLog10ValueTransformer::transformedValue(const QVariant &value) const
{
    const std::optional<float> v = floatFrom(value);
    return floatVariant(v ? std::optional(transformedFloat(*v)) : std::nullopt);
}

QVariant VKLog10ValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    const std::optional<float> v = floatFrom(value);
    return floatVariant(v ? std::optional(reverseTransformedFloat(*v)) : std::nullopt);
}

QString VKLog10ValueTransformer::className() const
{
    return QStringLiteral("VKLog10ValueTransformer");
}

// VKLog10TripleValueTransformer

float VKLog10TripleValueTransformer::transformedFloat(float value)
{
    return ::log10f(value);
}

float VKLog10TripleValueTransformer::reverseTransformedFloat(float value)
{
    return ::powf(10.0f, value);
}

QMetaType VKLog10TripleValueTransformer::transformedValueClass() const
{
    return QMetaType::fromType<VKTriple>();
}

bool VKLog10TripleValueTransformer::allowsReverseTransformation() const
{
    return true;
}

QVariant VKLog10TripleValueTransformer::transformedValue(const QVariant &value) const
{
    std::optional<VKTriple> t = VKTriple::fromVariant(value);
    if (!t)
        return {};
    // The components are replaced in place so that the triple keeps its class.
    t->setX(transformedFloat(t->x()));
    t->setY(transformedFloat(t->y()));
    t->setZ(transformedFloat(t->z()));
    return t->toVariant();
}

QVariant VKLog10TripleValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    std::optional<VKTriple> t = VKTriple::fromVariant(value);
    if (!t)
        return {};
    t->setX(reverseTransformedFloat(t->x()));
    t->setY(reverseTransformedFloat(t->y()));
    t->setZ(reverseTransformedFloat(t->z()));
    return t->toVariant();
}

QString VKLog10TripleValueTransformer::className() const
{
    return QStringLiteral("VKLog10TripleValueTransformer");
}

// VKRGBFlippedToRGBTripleValue

QMetaType VKRGBFlippedToRGBTripleValue::transformedValueClass() const
{
    return QMetaType::fromType<VKRGBTriple>();
}

bool VKRGBFlippedToRGBTripleValue::allowsReverseTransformation() const
{
    return true;
}

QVariant VKRGBFlippedToRGBTripleValue::transformedValue(const QVariant &value) const
{
    const std::optional<VKRGBTriple> c = VKRGBTriple::fromVariant(value);
    if (!c)
        return {};
    return QVariant::fromValue(VKRGBTriple(1.0f / c->red(), 1.0f / c->green(), 1.0f / c->blue()));
}

QVariant VKRGBFlippedToRGBTripleValue::reverseTransformedValue(const QVariant &value) const
{
    return transformedValue(value);
}

QString VKRGBFlippedToRGBTripleValue::className() const
{
    return QStringLiteral("VKRGBFlippedToRGBTripleValue");
}

// VKRGBToTTLTripleValueTransformer

QMetaType VKRGBToTTLTripleValueTransformer::transformedValueClass() const
{
    return QMetaType::fromType<VKTTLTriple>();
}

bool VKRGBToTTLTripleValueTransformer::allowsReverseTransformation() const
{
    return true;
}

QVariant VKRGBToTTLTripleValueTransformer::transformedValue(const QVariant &value) const
{
    const std::optional<VKRGBTriple> c = VKRGBTriple::fromVariant(value);
    return c ? QVariant::fromValue(c->ttlTriple()) : QVariant();
}

QVariant VKRGBToTTLTripleValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    const std::optional<VKTTLTriple> t = VKTTLTriple::fromVariant(value);
    return t ? QVariant::fromValue(t->rgbTriple()) : QVariant();
}

QString VKRGBToTTLTripleValueTransformer::className() const
{
    return QStringLiteral("VKRGBToTTLTripleValueTransformer");
}

// VKRGBToARLTripleValueTransformer

QMetaType VKRGBToARLTripleValueTransformer::transformedValueClass() const
{
    return QMetaType::fromType<VKARLTriple>();
}

bool VKRGBToARLTripleValueTransformer::allowsReverseTransformation() const
{
    return true;
}

QVariant VKRGBToARLTripleValueTransformer::transformedValue(const QVariant &value) const
{
    const std::optional<VKRGBTriple> c = VKRGBTriple::fromVariant(value);
    if (!c)
        return {};
    const VKHSVTriple h = centredHSV(*c);
    return QVariant::fromValue(
        h.tripleWithSaturation(h.saturation() * 2.0f).arlTripleWithLogarithmicLevel(false));
}

QVariant VKRGBToARLTripleValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    const std::optional<VKARLTriple> a = VKARLTriple::fromVariant(value);
    if (!a)
        return {};
    const VKHSVTriple h = a->hsvTripleWithExponentialValue(false);
    return QVariant::fromValue(
        uncentredRGB(h.tripleWithSaturation(h.saturation() * 0.5f), h.value()));
}

QString VKRGBToARLTripleValueTransformer::className() const
{
    return QStringLiteral("VKRGBToARLTripleValueTransformer");
}

// VKRGBToLogarithmicARLTripleValueTransformer

QMetaType VKRGBToLogarithmicARLTripleValueTransformer::transformedValueClass() const
{
    return QMetaType::fromType<VKARLTriple>();
}

bool VKRGBToLogarithmicARLTripleValueTransformer::allowsReverseTransformation() const
{
    return true;
}

QVariant VKRGBToLogarithmicARLTripleValueTransformer::transformedValue(const QVariant &value) const
{
    const std::optional<VKRGBTriple> c = VKRGBTriple::fromVariant(value);
    return c ? QVariant::fromValue(logarithmicARL(*c)) : QVariant();
}

QVariant
VKRGBToLogarithmicARLTripleValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    const std::optional<VKARLTriple> a = VKARLTriple::fromVariant(value);
    return a ? QVariant::fromValue(fromLogarithmicARL(*a)) : QVariant();
}

QString VKRGBToLogarithmicARLTripleValueTransformer::className() const
{
    return QStringLiteral("VKRGBToLogarithmicARLTripleValueTransformer");
}

// VKRGBFlippedToLogarithmicARLTripleValueTransformer

QMetaType VKRGBFlippedToLogarithmicARLTripleValueTransformer::transformedValueClass() const
{
    return QMetaType::fromType<VKARLTriple>();
}

bool VKRGBFlippedToLogarithmicARLTripleValueTransformer::allowsReverseTransformation() const
{
    return true;
}

QVariant
VKRGBFlippedToLogarithmicARLTripleValueTransformer::transformedValue(const QVariant &value) const
{
    const std::optional<VKRGBTriple> c = VKRGBTriple::fromVariant(value);
    if (!c)
        return {};
    const VKARLTriple a = logarithmicARL(*c);
    const VKARLTriple flipped = a.tripleWithLevel(a.level() * -1.0f);
    return QVariant::fromValue(flipped.tripleWithAngle(halfTurn(flipped.angle())));
}

QVariant VKRGBFlippedToLogarithmicARLTripleValueTransformer::reverseTransformedValue(
    const QVariant &value) const
{
    const std::optional<VKARLTriple> a = VKARLTriple::fromVariant(value);
    if (!a)
        return {};
    const VKARLTriple turned = a->tripleWithAngle(halfTurn(a->angle()));
    return QVariant::fromValue(fromLogarithmicARL(turned.tripleWithLevel(turned.level() * -1.0f)));
}

QString VKRGBFlippedToLogarithmicARLTripleValueTransformer::className() const
{
    return QStringLiteral("VKRGBFlippedToLogarithmicARLTripleValueTransformer");
}
