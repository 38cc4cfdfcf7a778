#include "Color/VKGradingFilters.h"

#include "Color/VKImage.h"
#include "Color/VKTriple.h"

#include <algorithm>
#include <array>
#include <cmath>

VK_REGISTER_FILTER(VKExposureFilter, "VKExposureFilter")
VK_REGISTER_FILTER(VKWhiteBalanceFilter, "VKWhiteBalanceFilter")
VK_REGISTER_FILTER(VKLiftGammaGainFilter, "VKLiftGammaGainFilter")

namespace {

const QVariantMap kImageAttributes = {{VKAttributeType, VKAttributeTypeImage}};

QVariantMap tripleAttributes(const QVariant &defaultValue, const char *description)
{
    return {{VKAttributeType, VKAttributeTypeTriple},
            {VKAttributeDefault, defaultValue},
            {VKAttributeDescription, QString::fromLatin1(description)}};
}

template <typename T>
T tripleValue(const QVariant &value, T fallback)
{
    return T::fromVariant(value).value_or(fallback);
}

VKRGBTriple wheelColor(const VKARLTriple &wheel)
{
    return VKHSVTriple(wheel.angle() / 360.0f, wheel.radius(), 1.0f).rgbTriple();
}

} // namespace

VKExposureFilter::VKExposureFilter() : VKFilter(QStringLiteral("VKExposureFilter"))
{
    declareInputKey(VKFilterInputImageKey, kImageAttributes);
    declareInputKey(QStringLiteral("inputEV"),
                    {{VKAttributeType, VKAttributeTypeDouble},
                     {VKAttributeMin, -10.0},
                     {VKAttributeMax, 10.0},
                     {VKAttributeDefault, 0.0},
                     {VKAttributeDescription, QStringLiteral("Exposure change in stops")}});
}

VKImage VKExposureFilter::outputImage()
{
    bool ok = false;
    double ev = inputValue(QStringLiteral("inputEV")).toDouble(&ok);
    if (!ok || !std::isfinite(ev))
        ev = 0;
    const float factor = float(std::exp2(std::clamp(ev, -10.0, 10.0)));
    return inputImage().imageByApplyingPointFunction([factor](float *p, qint64 n) {
        for (qint64 i = 0; i < n; ++i, p += 4) {
            p[0] *= factor;
            p[1] *= factor;
            p[2] *= factor;
        }
    });
}

VKWhiteBalanceFilter::VKWhiteBalanceFilter() : VKFilter(QStringLiteral("VKWhiteBalanceFilter"))
{
    declareInputKey(VKFilterInputImageKey, kImageAttributes);
    declareInputKey(QStringLiteral("inputNeutral"),
                    tripleAttributes(QVariant::fromValue(VKTTLTriple(0.5f, 0.5f, 0.125f)),
                                     "The colour cast (tint, temperature, level) to remove"));
}

VKImage VKWhiteBalanceFilter::outputImage()
{
    const VKTTLTriple neutral = tripleValue(inputValue(QStringLiteral("inputNeutral")),
                                            VKTTLTriple(0.5f, 0.5f, 0.125f));
    const VKRGBTriple cast = neutral.rgbTriple();
    // The RGB form never drops below 0.025, so the divisions are safe.
    const float r = cast.y() / cast.x(), b = cast.y() / cast.z();
    return inputImage().imageByApplyingPointFunction([r, b](float *p, qint64 n) {
        for (qint64 i = 0; i < n; ++i, p += 4) {
            p[0] *= r;
            p[2] *= b;
        }
    });
}

VKLiftGammaGainFilter::VKLiftGammaGainFilter() : VKFilter(QStringLiteral("VKLiftGammaGainFilter"))
{
    const QVariant zero = QVariant::fromValue(VKARLTriple(0, 0, 0));
    declareInputKey(VKFilterInputImageKey, kImageAttributes);
    declareInputKey(QStringLiteral("inputLift"), tripleAttributes(zero, "Lift wheel"));
    declareInputKey(QStringLiteral("inputGamma"), tripleAttributes(zero, "Gamma wheel"));
    declareInputKey(QStringLiteral("inputGain"), tripleAttributes(zero, "Gain wheel"));
}

VKImage VKLiftGammaGainFilter::outputImage()
{
    const VKARLTriple zero(0, 0, 0);
    const VKARLTriple liftWheel = tripleValue(inputValue(QStringLiteral("inputLift")), zero);
    const VKARLTriple gammaWheel = tripleValue(inputValue(QStringLiteral("inputGamma")), zero);
    const VKARLTriple gainWheel = tripleValue(inputValue(QStringLiteral("inputGain")), zero);
    struct Channel
    {
        float lift, inverseGamma, gain;
    };
    auto channels = [&](const VKRGBTriple &l, const VKRGBTriple &gm, const VKRGBTriple &gn) {
        const float gammaScale = std::pow(10.0f, gammaWheel.level());
        const float gainScale = std::pow(10.0f, gainWheel.level());
        const float lifts[3] = {l.x(), l.y(), l.z()};
        const float gammas[3] = {gm.x(), gm.y(), gm.z()};
        const float gains[3] = {gn.x(), gn.y(), gn.z()};
        std::array<Channel, 3> out{};
        for (int c = 0; c < 3; ++c) {
            const float gamma = gammas[c] * gammaScale;
            out[c] = {lifts[c] * liftWheel.level(), gamma > 0 ? 1.0f / gamma : 1.0f,
                      gains[c] * gainScale};
        }
        return out;
    };
    const std::array<Channel, 3> ch =
        channels(wheelColor(liftWheel), wheelColor(gammaWheel), wheelColor(gainWheel));
    return inputImage().imageByApplyingPointFunction([ch](float *p, qint64 n) {
        for (qint64 i = 0; i < n; ++i, p += 4) {
            for (int c = 0; c < 3; ++c) {
                const float v = ch[c].gain * (p[c] + ch[c].lift * (1.0f - p[c]));
                p[c] = v > 0 ? std::pow(v, ch[c].inverseGamma) : 0.0f;
            }
        }
    });
}
