#include "Color/VKColorSpaceController.h"
#include "Color/VKFilterFactory.h"
#include "Color/VKGradingFilters.h"
#include "Color/VKImage.h"
#include "Color/VKTriple.h"

#include "ColorTestSupport.h"
#include "VKTestSupport.h"

#include <QColorSpace>
#include <QFile>

#include <gtest/gtest.h>

#include <babl/babl.h>

#include <cmath>

namespace {

// Linear values 0.2, 0.4 and 0.8 with alpha 0.5.
const float kPixel[4] = {0.2f, 0.4f, 0.8f, 0.5f};

TEST(VKGradingFilters, PixelsMatchTheArithmeticByHand)
{
    const char *exposure = "VKExposureFilter", *balance = "VKWhiteBalanceFilter",
               *wheels = "VKLiftGammaGainFilter";
    const auto arl = [](float radius, float level) {
        return QVariant::fromValue(VKARLTriple(0, radius, level));
    };
    const float lg2 = std::log10(2.0f); // the level of a gain of 2, or of a gamma of 2
    const struct
    {
        const char *filter, *name;
        QVariantMap values;
        QList<float> expected;
    } cases[] = {
        {exposure, "defaults to nothing", {}, {0.2f, 0.4f, 0.8f, 0.5f}},
        {exposure, "one stop up", {{"inputEV", 1.0}}, {0.4f, 0.8f, 1.6f, 0.5f}},
        {exposure, "two stops down", {{"inputEV", -2}}, {0.05f, 0.1f, 0.2f, 0.5f}},
        {exposure, "beyond ten stops clamps", {{"inputEV", 40.0}}, {204.8f, 409.6f, 819.2f, 0.5f}},
        {balance, "a neutral balance changes nothing", {}, {0.2f, 0.4f, 0.8f, 0.5f}},
        // Tint 0.25, temperature 0.6: the cast is (0.0475, 0.0325, 0.04), which green divides.
        {balance,
         "a cast scales red and blue to green",
         {{"inputNeutral", QVariant::fromValue(VKTTLTriple(0.25f, 0.6f, 0.125f))}},
         {0.1368421f, 0.4f, 0.65f, 0.5f}},
        {wheels, "centred wheels change nothing", {}, {0.2f, 0.4f, 0.8f, 0.5f}},
        {wheels, "gain 2 doubles", {{"inputGain", arl(0, lg2)}}, {0.4f, 0.8f, 1.6f, 0.5f}},
        {wheels,
         "lift 0.5 halves the distance to white",
         {{"inputLift", arl(0, 0.5f)}},
         {0.6f, 0.7f, 0.9f, 0.5f}},
        {wheels,
         "gamma 2 takes square roots",
         {{"inputGamma", arl(0, lg2)}},
         {0.4472136f, 0.6324555f, 0.8944272f, 0.5f}},
        // Hue 0 at saturation 1 is (1, 0, 0).
        {wheels, "a red gain wheel keeps only red", {{"inputGain", arl(1, 0)}}, {0.2f, 0, 0, 0.5f}},
    };
    const VKImage input = VKImage::imageWithFloatPixels(kPixel, 1, 1);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto filter = VKFilterFactory::filterWithName(QString::fromLatin1(c.filter));
        ASSERT_TRUE(filter);
        EXPECT_TRUE(filter->outputImage().isNull()) << "no input image yet";
        filter->setValueForKey(QVariant::fromValue(input), VKFilterInputImageKey);
        for (auto it = c.values.cbegin(); it != c.values.cend(); ++it)
            filter->setValueForKey(it.value(), it.key());
        EXPECT_TRUE(
            vkNear(filter->outputImage().floatPixels(QRect(0, 0, 1, 1)), c.expected, 1e-4f));
    }
}

// Runs before any other test of this suite makes the Rec. 709 space.
TEST(VKColorSpaceController, AProfileThatCannotBeReadIsTriedAgain)
{
    VKColorSpaceController *controller = VKColorSpaceController::sharedController();
    VKTempDir dir;
    dir.writeFile("rec709.icc", "not a profile");
    controller->setProfileFolder(dir.path());
    VKLogCapture capture;
    EXPECT_TRUE(controller->colorSpace(VKColorSpaceController::Rec709).isNull());
    controller->setProfileFolder(dir.filePath("missing"));
    EXPECT_TRUE(controller->colorSpace(VKColorSpaceController::Rec709).isNull());
    controller->setProfileFolder({});
    const QStringList log = capture.messages();
    ASSERT_EQ(log.size(), 2);
    EXPECT_TRUE(log[0].startsWith("the colour profile " + dir.path() + "/rec709.icc is not usable"))
        << log[0];
    EXPECT_TRUE(log[1].startsWith("could not read the colour profile " + dir.path() +
                                  "/missing/rec709.icc"))
        << log[1];
    EXPECT_FALSE(controller->colorSpace(VKColorSpaceController::Rec709).isNull())
        << "tried again with the built-in profile";
}

TEST(VKColorSpaceController, FiveSpacesMadeOnceAndTheProfilesRead)
{
    struct Case
    {
        const char *name;
        VKColorSpace (*get)();
        bool linear;
        bool fromProfile;
    };
    const Case cases[] = {
        {"device", &VKColorSpaceController::deviceColorSpace, false, false},
        {"Rec. 709", &VKColorSpaceController::rec709ColorSpace, false, true},
        {"linear", &VKColorSpaceController::rgbLinearColorSpace, true, false},
        {"ProPhoto", &VKColorSpaceController::proPhotoLinearColorSpace, true, true},
        {"generic", &VKColorSpaceController::genericRGBColorSpace, false, false},
    };
    for (const Case &c : cases) {
        const VKColorSpace space = c.get();
        ASSERT_FALSE(space.isNull()) << c.name;
        EXPECT_EQ(space, c.get()) << c.name << ": made once";
        EXPECT_EQ(space.isLinear(), c.linear) << c.name;
        EXPECT_EQ(!space.iccProfile().isEmpty(), c.fromProfile) << c.name;
        EXPECT_TRUE(space.toQColorSpace().isValid()) << c.name;
        EXPECT_TRUE(space.bablRGBAFloatFormat()) << c.name;
    }
    // The profiles carry the standard primaries and curves.
    const QColorSpace rec709 = VKColorSpaceController::rec709ColorSpace().toQColorSpace();
    EXPECT_EQ(rec709.primaries(), QColorSpace::Primaries::SRgb);
    const QColorSpace proPhoto = VKColorSpaceController::proPhotoLinearColorSpace().toQColorSpace();
    EXPECT_EQ(proPhoto.primaries(), QColorSpace::Primaries::ProPhotoRgb);
    EXPECT_EQ(proPhoto.transferFunction(), QColorSpace::TransferFunction::Linear);

    // Linear white through ProPhoto stays white; pure sRGB red is not pure in ProPhoto.
    const float red[4] = {1, 0, 0, 1};
    float out[4] = {};
    babl_process(
        babl_fish(babl_format("RGBA float"),
                  VKColorSpaceController::proPhotoLinearColorSpace().bablRGBAFloatFormat()),
        red, out, 1);
    EXPECT_GT(out[0], 0.4f);
    EXPECT_LT(out[0], 0.9f);
    EXPECT_GT(out[1], 0.01f);
}

} // namespace
