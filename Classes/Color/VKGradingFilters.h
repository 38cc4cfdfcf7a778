// The library's three colour-grading filters, made by name through the filter framework:
// "VKExposureFilter" (stops), "VKWhiteBalanceFilter" (a neutral given as a TTL triple) and
// "VKLiftGammaGainFilter" (three ARL colour wheels). All work on linear RGB; alpha passes.
#pragma once

#include "Color/VKFilter.h"

// out = in × 2^inputEV.
class VK_EXPORT VKExposureFilter : public VKFilter
{
public:
    VKExposureFilter();
    VKImage outputImage() override;
};

// inputNeutral is the colour cast of something that should be grey: its RGB form (r, g, b) gives
// the gains g/r, 1 and g/b. Tint and temperature 0.5 are neutral.
class VK_EXPORT VKWhiteBalanceFilter : public VKFilter
{
public:
    VKWhiteBalanceFilter();
    VKImage outputImage() override;
};

// Each wheel (angle in degrees, radius 0..1, level) gives a colour c = the RGB of hue angle/360,
// saturation radius, value 1 (white at radius 0). Per channel: lift = c × level,
// gamma = c × 10^level, gain = c × 10^level, and out = max(0, gain × (in + lift × (1 − in)))^(1/gamma).
class VK_EXPORT VKLiftGammaGainFilter : public VKFilter
{
public:
    VKLiftGammaGainFilter();
    VKImage outputImage() override;
};
