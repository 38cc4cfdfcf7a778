// Writes the library's two ICC profiles into the folder given as the only argument, at build
// time: "rec709.icc" (Rec. 709 primaries, D65, the Rec. 709 transfer curve) and "ProPhoto.icc"
// (ROMM primaries, D50, a linear curve).
#include <lcms2.h>

#include <cstdio>
#include <string>

namespace {

bool writeProfile(const std::string &path, const cmsCIExyY &white, const cmsCIExyYTRIPLE &primaries,
                  cmsToneCurve *curve, const char *description)
{
    cmsToneCurve *curves[3] = {curve, curve, curve};
    cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    if (!profile)
        return false;
    cmsMLU *text = cmsMLUalloc(nullptr, 1);
    cmsMLUsetASCII(text, "en", "US", description);
    cmsWriteTag(profile, cmsSigProfileDescriptionTag, text);
    cmsMLUfree(text);
    const bool saved = cmsSaveProfileToFile(profile, path.c_str());
    cmsCloseProfile(profile);
    return saved;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <output folder>\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];

    // Rec. 709 decoding: L = ((V + 0.099) / 1.099)^(1 / 0.45) from V = 0.081, V / 4.5 below.
    const cmsFloat64Number rec709Curve[5] = {1.0 / 0.45, 1.0 / 1.099, 0.099 / 1.099, 1.0 / 4.5,
                                             0.081};
    const cmsCIExyY d65 = {0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE rec709 = {{0.640, 0.330, 1.0}, {0.300, 0.600, 1.0}, {0.150, 0.060, 1.0}};
    cmsToneCurve *rec709Tone = cmsBuildParametricToneCurve(nullptr, 4, rec709Curve);

    const cmsCIExyY d50 = {0.3457, 0.3585, 1.0};
    const cmsCIExyYTRIPLE romm = {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
    cmsToneCurve *linear = cmsBuildGamma(nullptr, 1.0);

    const bool ok = writeProfile(folder + "/rec709.icc", d65, rec709, rec709Tone, "Rec. 709") &&
                    writeProfile(folder + "/ProPhoto.icc", d50, romm, linear, "ProPhoto linear");
    cmsFreeToneCurve(rec709Tone);
    cmsFreeToneCurve(linear);
    if (!ok) {
        std::fprintf(stderr, "could not write the profiles into %s\n", folder.c_str());
        return 1;
    }
    return 0;
}
