// The conversions mix float and double on purpose: results are pinned to the last bit, so each
// expression below keeps the types it is written with. This folder is built with
// -ffp-contract=off (see Subsystem.cmake) so that no multiply-add is fused.
#include "Color/VKTriple.h"

#include "Foundation/VKFormat.h"

#include <QVariant>

#include <cmath>

namespace {

// The conversions run per pixel: these stay inside this file so that the compiler inlines them
// instead of calling through the library's exported symbols.
inline float clampValue(float value, float minimum, float maximum)
{
    if (value > maximum)
        return maximum;
    if (minimum > value)
        return minimum;
    return value;
}

inline float largest(float x, float y, float z)
{
    const float xy = x > y ? x : y;
    return xy > z ? xy : z;
}

inline float smallest(float x, float y, float z)
{
    const float xy = x < y ? x : y;
    return xy < z ? xy : z;
}

} // namespace

float VDClamp(float value, float minimum, float maximum)
{
    return clampValue(value, minimum, maximum);
}

VKTriple VKTriple::tripleByAdding(float s) const
{
    return VKTriple(m_class, m_x + s, m_y + s, m_z + s);
}

VKTriple VKTriple::tripleBySubstracting(float s) const
{
    return VKTriple(m_class, m_x - s, m_y - s, m_z - s);
}

VKTriple VKTriple::tripleByMultiplying(float s) const
{
    return VKTriple(m_class, m_x * s, m_y * s, m_z * s);
}

VKTriple VKTriple::tripleByDividing(float s) const
{
    return VKTriple(m_class, m_x / s, m_y / s, m_z / s);
}

float VKTriple::maximum() const
{
    return largest(m_x, m_y, m_z);
}

float VKTriple::minimum() const
{
    return smallest(m_x, m_y, m_z);
}

VKTriple VKTriple::clampToMinimum(float minimum, float maximum) const
{
    return VKTriple(m_class, clampValue(m_x, minimum, maximum), clampValue(m_y, minimum, maximum),
                    clampValue(m_z, minimum, maximum));
}

bool VKTriple::isEqual(const VKTriple &other) const
{
    if (!other.isKindOfClass(m_class))
        return false;
    // Float differences against the double 1e-5, strictly less.
    constexpr double tolerance = 0.00001;
    return std::fabs(m_x - other.m_x) < tolerance && std::fabs(m_y - other.m_y) < tolerance &&
           std::fabs(m_z - other.m_z) < tolerance;
}

QString VKTriple::className() const
{
    switch (m_class) {
    case VKTripleClass::RGB:
        return QStringLiteral("VKRGBTriple");
    case VKTripleClass::HSV:
        return QStringLiteral("VKHSVTriple");
    case VKTripleClass::ARL:
        return QStringLiteral("VKARLTriple");
    case VKTripleClass::TTL:
        return QStringLiteral("VKTTLTriple");
    case VKTripleClass::Triple:
        break;
    }
    return QStringLiteral("VKTriple");
}

QString VKTriple::description() const
{
    const QString object = vkFormat("<%@: %p>", className(), static_cast<const void *>(this));
    const char *names[3] = {};
    switch (m_class) {
    case VKTripleClass::RGB:
        names[0] = "red", names[1] = "green", names[2] = "blue";
        break;
    case VKTripleClass::HSV:
        names[0] = "hue", names[1] = "saturation", names[2] = "value";
        break;
    case VKTripleClass::ARL:
        names[0] = "angle", names[1] = "radius", names[2] = "level";
        break;
    case VKTripleClass::TTL:
        names[0] = "tint", names[1] = "temperature", names[2] = "level";
        break;
    case VKTripleClass::Triple:
        return object;
    }
    return object + QStringLiteral("\n") + vkFormat("\t %s: %.8f\n", names[0], m_x) +
           vkFormat("\t %s: %.8f\n", names[1], m_y) + vkFormat("\t %s: %.8f\n", names[2], m_z);
}

QVariant VKTriple::toVariant() const
{
    switch (m_class) {
    case VKTripleClass::RGB:
        return QVariant::fromValue(VKRGBTriple(m_x, m_y, m_z));
    case VKTripleClass::HSV:
        return QVariant::fromValue(VKHSVTriple(m_x, m_y, m_z));
    case VKTripleClass::ARL:
        return QVariant::fromValue(VKARLTriple(m_x, m_y, m_z));
    case VKTripleClass::TTL:
        return QVariant::fromValue(VKTTLTriple(m_x, m_y, m_z));
    case VKTripleClass::Triple:
        break;
    }
    return QVariant::fromValue(*this);
}

std::optional<VKTriple> VKTriple::fromVariant(const QVariant &value)
{
    const QMetaType type = value.metaType();
    if (type == QMetaType::fromType<VKTriple>())
        return *static_cast<const VKTriple *>(value.constData());
    if (type == QMetaType::fromType<VKRGBTriple>())
        return *static_cast<const VKRGBTriple *>(value.constData());
    if (type == QMetaType::fromType<VKHSVTriple>())
        return *static_cast<const VKHSVTriple *>(value.constData());
    if (type == QMetaType::fromType<VKARLTriple>())
        return *static_cast<const VKARLTriple *>(value.constData());
    if (type == QMetaType::fromType<VKTTLTriple>())
        return *static_cast<const VKTTLTriple *>(value.constData());
    return std::nullopt;
}

VKHSVTriple VKRGBTriple::hsvTriple() const
{
    const float r = m_x, g = m_y, b = m_z;
    const float max = largest(r, g, b);
    const float min = smallest(r, g, b);
    const float d = max - min;

    float hue = 0.0f;
    if (max != min) {
        // The candidate of the last channel equal to the largest wins (equal channels give
        // equal candidates), so only that one is computed. The quotient in float, the rest in
        // double, stored as float.
        if (max == b)
            hue = float(60.0 * (4.0 + double((r - g) / d)));
        else if (max == g)
            hue = float(60.0 * (2.0 + double((b - r) / d)));
        else if (max == r)
            hue = float(60.0 * (0.0 + double((g - b) / d)));
    }
    if (hue < 0.0f)
        hue = hue + 360.0f;
    hue = hue / 360.0f;

    const float saturation = max != 0.0f ? d / max : 0.0f;
    return VKHSVTriple(hue, saturation, max);
}

VKTTLTriple VKRGBTriple::ttlTriple() const
{
    // The offset and the clamp keep every denominator above zero.
    // tripleByAdding 0.5, clampToMinimum 0.00001 .. 0.99999, tripleByMultiplying 0.05.
    const auto channel = [](float x) { return clampValue(x + 0.5f, 0.00001f, 0.99999f) * 0.05f; };
    const float r = channel(m_x), g = channel(m_y), b = channel(m_z);
    const float tint = g / (g + r);
    const float temperature = r / (b + r);
    const float level = (r + b + g) / 8.0f + (b * g) / (8.0f * r);
    return VKTTLTriple(tint, temperature, level);
}

VKRGBTriple VKHSVTriple::rgbTriple() const
{
    const float hue = clampValue(m_x, 0.0f, 1.0f);
    const float s = clampValue(m_y, 0.0f, 1.0f);
    const float value = clampValue(m_z, 0.0f, 1.0f);
    const double h6 = 360.0 * double(hue) / 60.0;
    // h6 is 0..6 or NaN here: truncation is floor, and avoids a call into the maths library.
    float i = h6 >= 0.0 ? float(static_cast<int>(h6)) : float(std::floor(h6));
    if (i == 6.0f)
        i = 5.0f; // hue 1 is the end of the last sector, not the start of a seventh
    const float f = float(h6 - double(i));

    const float v = value * 1.0f;
    const float p = value * (1.0f - s);
    const float q = value * (1.0f - s * f);
    const float t = value * (1.0f - s * (1.0f - f));

    // Compared as floats: a NaN sector must not be converted to an integer.
    if (i == 0.0f)
        return VKRGBTriple(v, t, p);
    if (i == 1.0f)
        return VKRGBTriple(q, v, p);
    if (i == 2.0f)
        return VKRGBTriple(p, v, t);
    if (i == 3.0f)
        return VKRGBTriple(p, q, v);
    if (i == 4.0f)
        return VKRGBTriple(t, p, v);
    if (i == 5.0f)
        return VKRGBTriple(v, p, q);
    return VKRGBTriple(0.0f, 0.0f, 0.0f);
}

VKARLTriple VKHSVTriple::arlTripleWithLogarithmicLevel(bool logarithmic) const
{
    const float level = logarithmic ? ::log10f(value()) : value();
    return VKARLTriple(hue() * 360.0f, saturation(), level);
}

VKARLTriple VKHSVTriple::arlTriple() const
{
    return arlTripleWithLogarithmicLevel(true);
}

VKHSVTriple VKARLTriple::hsvTripleWithExponentialValue(bool exponential) const
{
    const float value = exponential ? ::powf(10.0f, level()) : level();
    return VKHSVTriple(angle() / 360.0f, radius(), value);
}

VKHSVTriple VKARLTriple::hsvTriple() const
{
    return hsvTripleWithExponentialValue(true);
}

VKRGBTriple VKTTLTriple::rgbTriple() const
{
    const float tn = tint(), tp = temperature(), lv = level();
    // Mixed as written: (1.0 - x) brings the rest of a product into double, while tp * tn * lv
    // stays in float until the final × 8.0.
    const float r = float(tp * (1.0 - tn) * lv * 8.0);
    const float g = float(tp * tn * lv * 8.0);
    const float b = float((1.0 - tp) * (1.0 - tn) * lv * 8.0);
    // tripleByAdding 0.5, tripleByMultiplying 0.05, clampToMinimum 0 .. 1.
    const auto channel = [](float x) { return clampValue((x + 0.5f) * 0.05f, 0.0f, 1.0f); };
    return VKRGBTriple(channel(r), channel(g), channel(b));
}
