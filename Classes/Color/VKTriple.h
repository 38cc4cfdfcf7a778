// Colour triples: three 32-bit float components with arithmetic, clamping, tolerant equality and
// conversions between RGB, HSV, angle/radius/level (ARL) and tint/temperature/level (TTL).
#pragma once

#include "Foundation/VKExport.h"

#include <QMetaType>
#include <QString>

#include <optional>

class QVariant;

// value clamped to minimum..maximum. The upper bound is tested first, so with minimum > maximum
// a value above maximum gives maximum; NaN passes through unchanged.
VK_EXPORT float VDClamp(float value, float minimum, float maximum);

// The class of a triple. The four colour models derive from the plain triple and not from each
// other; the class travels with the value, so a triple keeps it when held as a VKTriple.
enum class VKTripleClass : quint8 { Triple, RGB, HSV, ARL, TTL };

class VKRGBTriple;
class VKHSVTriple;
class VKARLTriple;
class VKTTLTriple;

// A plain value: operations never change the receiver, they answer a new triple of the
// receiver's class.
class VK_EXPORT VKTriple
{
public:
    constexpr VKTriple() = default;
    constexpr VKTriple(float x, float y, float z) : m_x(x), m_y(y), m_z(z) {}

    static VKTriple tripleZero() { return VKTriple(0.0f, 0.0f, 0.0f); }
    static VKTriple tripleOne() { return VKTriple(1.0f, 1.0f, 1.0f); }

    float x() const { return m_x; }
    void setX(float x) { m_x = x; }
    float y() const { return m_y; }
    void setY(float y) { m_y = y; }
    float z() const { return m_z; }
    void setZ(float z) { m_z = z; }

    // Each component op the scalar, in float arithmetic; division by 0 gives infinities or NaN.
    [[nodiscard]] VKTriple tripleByAdding(float s) const;
    [[nodiscard]] VKTriple tripleBySubstracting(float s) const;
    [[nodiscard]] VKTriple tripleByMultiplying(float s) const;
    [[nodiscard]] VKTriple tripleByDividing(float s) const;
    // Compared in x, y, z order (a NaN component gives an order-dependent answer).
    float maximum() const;
    float minimum() const;
    // Each component through VDClamp.
    [[nodiscard]] VKTriple clampToMinimum(float minimum, float maximum) const;

    // True when `other` is of this triple's class (or derives from it) and every component
    // differs from ours by less than 1e-5. An HSV triple never equals an RGB one.
    bool isEqual(const VKTriple &other) const;

    // "<VKRGBTriple: 0x...>\n" and one line per named component ("\t red: 0.50000000\n"); the
    // plain triple has no component names and answers the first line without its newline.
    QString description() const;

    VKTripleClass tripleClass() const { return m_class; }
    QString className() const;
    // Whether this triple's class is `cls` or derives from it.
    bool isKindOfClass(VKTripleClass cls) const
    {
        return cls == VKTripleClass::Triple || cls == m_class;
    }

    // A variant holding the triple as its own class's type (a VKRGBTriple for an RGB triple).
    QVariant toVariant() const;
    // The triple a variant holds, whichever triple type it is; nothing for other values.
    static std::optional<VKTriple> fromVariant(const QVariant &value);

protected:
    constexpr VKTriple(VKTripleClass cls, float x, float y, float z)
        : m_x(x), m_y(y), m_z(z), m_class(cls)
    {}

    float m_x = 0.0f;
    float m_y = 0.0f;
    float m_z = 0.0f;
    VKTripleClass m_class = VKTripleClass::Triple;
};

// What the four colour models share: the base operations answering the model's own type.
template <typename Derived, VKTripleClass Class>
class VKTripleOf : public VKTriple
{
public:
    static constexpr VKTripleClass staticTripleClass = Class;

    constexpr VKTripleOf() : VKTriple(Class, 0.0f, 0.0f, 0.0f) {}
    constexpr VKTripleOf(float x, float y, float z) : VKTriple(Class, x, y, z) {}

    static Derived tripleZero() { return Derived(0.0f, 0.0f, 0.0f); }
    static Derived tripleOne() { return Derived(1.0f, 1.0f, 1.0f); }

    [[nodiscard]] Derived tripleByAdding(float s) const
    {
        return same(VKTriple::tripleByAdding(s));
    }
    [[nodiscard]] Derived tripleBySubstracting(float s) const
    {
        return same(VKTriple::tripleBySubstracting(s));
    }
    [[nodiscard]] Derived tripleByMultiplying(float s) const
    {
        return same(VKTriple::tripleByMultiplying(s));
    }
    [[nodiscard]] Derived tripleByDividing(float s) const
    {
        return same(VKTriple::tripleByDividing(s));
    }
    [[nodiscard]] Derived clampToMinimum(float minimum, float maximum) const
    {
        return same(VKTriple::clampToMinimum(minimum, maximum));
    }

    // The triple as this model when it is one; nothing for another class.
    static std::optional<Derived> fromTriple(const VKTriple &triple)
    {
        if (!triple.isKindOfClass(Class))
            return std::nullopt;
        return same(triple);
    }
    static std::optional<Derived> fromVariant(const QVariant &value)
    {
        const std::optional<VKTriple> triple = VKTriple::fromVariant(value);
        return triple ? fromTriple(*triple) : std::nullopt;
    }

private:
    static Derived same(const VKTriple &t) { return Derived(t.x(), t.y(), t.z()); }
};

class VK_EXPORT VKRGBTriple : public VKTripleOf<VKRGBTriple, VKTripleClass::RGB>
{
public:
    using VKTripleOf::VKTripleOf;

    static VKRGBTriple tripleWithRed(float red, float green, float blue)
    {
        return VKRGBTriple(red, green, blue);
    }

    float red() const { return m_x; }
    void setRed(float v) { m_x = v; }
    float green() const { return m_y; }
    void setGreen(float v) { m_y = v; }
    float blue() const { return m_z; }
    void setBlue(float v) { m_z = v; }

    [[nodiscard]] VKRGBTriple tripleWithRed(float red) const { return {red, m_y, m_z}; }
    [[nodiscard]] VKRGBTriple tripleWithGreen(float green) const { return {m_x, green, m_z}; }
    [[nodiscard]] VKRGBTriple tripleWithBlue(float blue) const { return {m_x, m_y, blue}; }

    // Hue 0..1 from the largest channel (the last of equal largest channels wins), saturation
    // (max - min) / max and value max; nothing is clamped.
    [[nodiscard]] VKHSVTriple hsvTriple() const;
    // White balance: ratios of the channels offset by 0.5, clamped and scaled by 0.05. Not the
    // inverse of VKTTLTriple::rgbTriple.
    [[nodiscard]] VKTTLTriple ttlTriple() const;
};

class VK_EXPORT VKHSVTriple : public VKTripleOf<VKHSVTriple, VKTripleClass::HSV>
{
public:
    using VKTripleOf::VKTripleOf;

    static VKHSVTriple tripleWithHue(float hue, float saturation, float value)
    {
        return VKHSVTriple(hue, saturation, value);
    }

    // 0..1 is one full turn.
    float hue() const { return m_x; }
    void setHue(float v) { m_x = v; }
    float saturation() const { return m_y; }
    void setSaturation(float v) { m_y = v; }
    float value() const { return m_z; }
    void setValue(float v) { m_z = v; }

    [[nodiscard]] VKHSVTriple tripleWithHue(float hue) const { return {hue, m_y, m_z}; }
    [[nodiscard]] VKHSVTriple tripleWithSaturation(float s) const { return {m_x, s, m_z}; }
    [[nodiscard]] VKHSVTriple tripleWithValue(float value) const { return {m_x, m_y, value}; }

    // Clamps to 0..1 first; hue 1 falls into the last sector.
    [[nodiscard]] VKRGBTriple rgbTriple() const;
    // Angle hue × 360, radius saturation, level log10f(value) or value.
    [[nodiscard]] VKARLTriple arlTripleWithLogarithmicLevel(bool logarithmic) const;
    [[nodiscard]] VKARLTriple arlTriple() const;
};

class VK_EXPORT VKARLTriple : public VKTripleOf<VKARLTriple, VKTripleClass::ARL>
{
public:
    using VKTripleOf::VKTripleOf;

    static VKARLTriple tripleWithAngle(float angle, float radius, float level)
    {
        return VKARLTriple(angle, radius, level);
    }

    // Degrees.
    float angle() const { return m_x; }
    void setAngle(float v) { m_x = v; }
    float radius() const { return m_y; }
    void setRadius(float v) { m_y = v; }
    float level() const { return m_z; }
    void setLevel(float v) { m_z = v; }

    [[nodiscard]] VKARLTriple tripleWithAngle(float angle) const { return {angle, m_y, m_z}; }
    [[nodiscard]] VKARLTriple tripleWithRadius(float radius) const { return {m_x, radius, m_z}; }
    [[nodiscard]] VKARLTriple tripleWithLevel(float level) const { return {m_x, m_y, level}; }

    // Hue angle / 360 (not wrapped), saturation radius, value powf(10, level) or level.
    [[nodiscard]] VKHSVTriple hsvTripleWithExponentialValue(bool exponential) const;
    [[nodiscard]] VKHSVTriple hsvTriple() const;
};

class VK_EXPORT VKTTLTriple : public VKTripleOf<VKTTLTriple, VKTripleClass::TTL>
{
public:
    using VKTripleOf::VKTripleOf;

    static VKTTLTriple tripleWithTint(float tint, float temperature, float level)
    {
        return VKTTLTriple(tint, temperature, level);
    }

    float tint() const { return m_x; }
    void setTint(float v) { m_x = v; }
    float temperature() const { return m_y; }
    void setTemperature(float v) { m_y = v; }
    float level() const { return m_z; }
    void setLevel(float v) { m_z = v; }

    [[nodiscard]] VKTTLTriple tripleWithTint(float tint) const { return {tint, m_y, m_z}; }
    [[nodiscard]] VKTTLTriple tripleWithTemperature(float t) const { return {m_x, t, m_z}; }
    [[nodiscard]] VKTTLTriple tripleWithLevel(float level) const { return {m_x, m_y, level}; }

    // The channels from the ratios, then offset by 0.5, scaled by 0.05 and clamped to 0..1.
    [[nodiscard]] VKRGBTriple rgbTriple() const;
};

Q_DECLARE_METATYPE(VKTriple)
Q_DECLARE_METATYPE(VKRGBTriple)
Q_DECLARE_METATYPE(VKHSVTriple)
Q_DECLARE_METATYPE(VKARLTriple)
Q_DECLARE_METATYPE(VKTTLTriple)
