// Value transformers for colour controls: an angle mirrored and shifted, base-10 logarithms of
// numbers and triples, reciprocals, and RGB triples shown as TTL or ARL triples on a wheel.
// All of them reverse, and answer a null variant for a null value or one of the wrong kind.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKValueTransformer.h"

// Registers one shared instance of each colour transformer under its class name (the angle
// shift with a shift of 0).
VK_EXPORT void VKRegisterColorValueTransformers();

// A number (degrees) mirrored and rotated by angleShift; the two directions are each other's
// inverse within one turn. Results of 360 or more are wrapped once; results below 0 are not.
class VK_EXPORT VDAngleShiftValueTransformer : public VKValueTransformer
{
public:
    VDAngleShiftValueTransformer() = default;
    explicit VDAngleShiftValueTransformer(float angleShift) : m_angleShift(angleShift) {}

    float angleShift() const { return m_angleShift; }
    void setAngleShift(float angleShift) { m_angleShift = angleShift; }

    // 360 - (a - shift), the difference in float and the rest in double.
    float transformedFloat(float a) const;
    // 360 - a + shift in double.
    float reverseTransformedFloat(float a) const;

    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QVariant reverseTransformedValue(const QVariant &value) const override;
    QString className() const override;

private:
    float m_angleShift = 0.0f;
};

// A number to log10f of it and back with powf(10, x).
class VK_EXPORT VKLog10ValueTransformer : public VKValueTransformer
{
public:
    static float transformedFloat(float value);
    static float reverseTransformedFloat(float value);

    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QVariant reverseTransformedValue(const QVariant &value) const override;
    QString className() const override;
};

// Any triple to log10f of each component and back; the result keeps the input's class.
class VK_EXPORT VKLog10TripleValueTransformer : public VKValueTransformer
{
public:
    static float transformedFloat(float value);
    static float reverseTransformedFloat(float value);

    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QVariant reverseTransformedValue(const QVariant &value) const override;
    QString className() const override;
};

// An RGB triple to (1/red, 1/green, 1/blue), both ways; a zero component gives infinity.
class VK_EXPORT VKRGBFlippedToRGBTripleValue : public VKValueTransformer
{
public:
    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QVariant reverseTransformedValue(const QVariant &value) const override;
    QString className() const override;
};

// An RGB triple to its TTL triple, and a TTL triple to its RGB triple (not inverses).
class VK_EXPORT VKRGBToTTLTripleValueTransformer : public VKValueTransformer
{
public:
    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QVariant reverseTransformedValue(const QVariant &value) const override;
    QString className() const override;
};

// An RGB triple to an ARL triple: hue as angle, the saturation of the colour moved so that its
// largest channel is 0.5, doubled, as radius, and the largest channel as level. The reverse is
// its inverse while that saturation stays within 0..1.
class VK_EXPORT VKRGBToARLTripleValueTransformer : public VKValueTransformer
{
public:
    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QVariant reverseTransformedValue(const QVariant &value) const override;
    QString className() const override;
};

// As VKRGBToARLTripleValueTransformer without doubling the radius and with log10f of the
// largest channel as level.
class VK_EXPORT VKRGBToLogarithmicARLTripleValueTransformer : public VKValueTransformer
{
public:
    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QVariant reverseTransformedValue(const QVariant &value) const override;
    QString className() const override;
};

// The logarithmic ARL triple turned half a turn with its level negated.
class VK_EXPORT VKRGBFlippedToLogarithmicARLTripleValueTransformer : public VKValueTransformer
{
public:
    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QVariant reverseTransformedValue(const QVariant &value) const override;
    QString className() const override;
};
