// Colour conversions per second: RGB -> HSV -> RGB and RGB -> TTL through the triples, against a
// straightforward double-precision reference written inline here. A colour tool converts every
// pixel of a frame (8.3 million for UHD), so tens of millions per second is the goal;
// items_per_second gives the rate and the ratio.
#include "Color/VKTriple.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

struct Pixel
{
    float r, g, b;
};

const std::vector<Pixel> &pixels()
{
    static const std::vector<Pixel> values = [] {
        std::mt19937 random(42);
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        std::vector<Pixel> list(1 << 16);
        for (Pixel &p : list)
            p = {unit(random), unit(random), unit(random)};
        return list;
    }();
    return values;
}

// The textbook conversions in double, without the library's float steps.
void referenceHSV(double r, double g, double b, double &h, double &s, double &v)
{
    const double max = std::max({r, g, b}), min = std::min({r, g, b}), d = max - min;
    h = 0.0;
    if (d > 0.0) {
        if (max == r)
            h = std::fmod((g - b) / d + 6.0, 6.0);
        else if (max == g)
            h = (b - r) / d + 2.0;
        else
            h = (r - g) / d + 4.0;
        h /= 6.0;
    }
    s = max > 0.0 ? d / max : 0.0;
    v = max;
}

void referenceRGB(double h, double s, double v, double &r, double &g, double &b)
{
    const double h6 = std::clamp(h, 0.0, 1.0) * 6.0;
    const int i = std::min(int(h6), 5);
    const double f = h6 - i, p = v * (1 - s), q = v * (1 - s * f), t = v * (1 - s * (1 - f));
    switch (i) {
    case 0:
        r = v, g = t, b = p;
        break;
    case 1:
        r = q, g = v, b = p;
        break;
    case 2:
        r = p, g = v, b = t;
        break;
    case 3:
        r = p, g = q, b = v;
        break;
    case 4:
        r = t, g = p, b = v;
        break;
    default:
        r = v, g = p, b = q;
        break;
    }
}

void BM_TripleRGBToHSVToRGB(benchmark::State &state)
{
    const std::vector<Pixel> &in = pixels();
    for (auto _ : state) {
        for (const Pixel &p : in) {
            const VKRGBTriple back = VKRGBTriple(p.r, p.g, p.b).hsvTriple().rgbTriple();
            benchmark::DoNotOptimize(back);
        }
    }
    state.SetItemsProcessed(state.iterations() * int64_t(in.size()));
}
BENCHMARK(BM_TripleRGBToHSVToRGB);

void BM_ReferenceRGBToHSVToRGB(benchmark::State &state)
{
    const std::vector<Pixel> &in = pixels();
    for (auto _ : state) {
        for (const Pixel &p : in) {
            double h, s, v, r, g, b;
            referenceHSV(p.r, p.g, p.b, h, s, v);
            referenceRGB(h, s, v, r, g, b);
            benchmark::DoNotOptimize(r);
            benchmark::DoNotOptimize(g);
            benchmark::DoNotOptimize(b);
        }
    }
    state.SetItemsProcessed(state.iterations() * int64_t(in.size()));
}
BENCHMARK(BM_ReferenceRGBToHSVToRGB);

void BM_TripleRGBToTTL(benchmark::State &state)
{
    const std::vector<Pixel> &in = pixels();
    for (auto _ : state) {
        for (const Pixel &p : in) {
            const VKTTLTriple ttl = VKRGBTriple(p.r, p.g, p.b).ttlTriple();
            benchmark::DoNotOptimize(ttl);
        }
    }
    state.SetItemsProcessed(state.iterations() * int64_t(in.size()));
}
BENCHMARK(BM_TripleRGBToTTL);

void BM_ReferenceRGBToTTL(benchmark::State &state)
{
    const std::vector<Pixel> &in = pixels();
    for (auto _ : state) {
        for (const Pixel &p : in) {
            const double r = std::clamp(p.r + 0.5, 1e-5, 0.99999) * 0.05;
            const double g = std::clamp(p.g + 0.5, 1e-5, 0.99999) * 0.05;
            const double b = std::clamp(p.b + 0.5, 1e-5, 0.99999) * 0.05;
            const double tint = g / (g + r), temperature = r / (b + r);
            const double level = (r + b + g) / 8 + (b * g) / (8 * r);
            benchmark::DoNotOptimize(tint);
            benchmark::DoNotOptimize(temperature);
            benchmark::DoNotOptimize(level);
        }
    }
    state.SetItemsProcessed(state.iterations() * int64_t(in.size()));
}
BENCHMARK(BM_ReferenceRGBToTTL);

} // namespace

BENCHMARK_MAIN();
