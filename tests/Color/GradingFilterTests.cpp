#include "Color/VKColorSpaceController.h"
#include "Color/VKFilterFactory.h"
#include "Color/VKGradingFilters.h"
#include "Color/VKImage.h"
#include "Color/VKTriple.h"

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
    struct Case
    {
        const char *name;
        const char *filter;
        QVariantMap values;
        float expected[4];
    };
    const float inv = 1.0f / 2.0f; // 1 / gamma for a gamma wheel at level log10(2)
    const Case cases[] = {
        {"exposure defaults to nothing", "VKExposureFilter", {}, {0.2f, 0.4f, 0.8f, 0.5f}},
        {"one stop up", "VKExposureFilter", {{"inputEV", 1.0}}, {0.4f, 0.8f, 1.6f, 0.5f}},
        {"two stops down", "VKExposureFilter", {{"inputEV", -2}}, {0.05f, 0.1f, 0.2f, 0.5f}},
        {"beyond ten stops clamps", "VKExposureFilter", {{"inputEV", 40.0}},
         {0.2f * 1024, 0.4f * 1024, 0.8f * 1024, 0.5f}},
        {"a neutral balance changes nothing", "VKWhiteBalanceFilter", {}, {0.2f, 0.4f, 0.8f, 0.5f}},
        // Temperature 0.75: the cast is (0.04375, 0.04375, 0.03125), so blue gains 1.4.
        {"a warm cast lifts blue", "VKWhiteBalanceFilter",
         {{"inputNeutral", QVariant::fromValue(VKTTLTriple(0.5f, 0.75f, 0.125f))}},
         {0.2f, 0.4f, 0.8f * 1.4f, 0.5f}},
        {"centred wheels change nothing", "VKLiftGammaGainFilter", {}, {0.2f, 0.4f, 0.8f, 0.5f}},
        {"gain level log10(2) doubles", "VKLiftGammaGainFilter",
         {{"inputGain", QVariant::fromValue(VKARLTriple(0, 0, std::log10(2.0f)))}},
         {0.4f, 0.8f, 1.6f, 0.5f}},
        {"lift 0.5 halves the distance to white", "VKLiftGammaGainFilter",
         {{"inputLift", QVariant::fromValue(VKARLTriple(0, 0, 0.5f))}}, {0.6f, 0.7f, 0.9f, 0.5f}},
        {"gamma 2 takes square roots", "VKLiftGammaGainFilter",
         {{"inputGamma", QVariant::fromValue(VKARLTriple(0, 0, std::log10(2.0f)))}},
         {std::pow(0.2f, inv), std::pow(0.4f, inv), std::pow(0.8f, inv), 0.5f}},
        // A red gain wheel at full radius: hue 0, saturation 1 is (1, 0, 0).
        {"a red gain wheel keeps only red", "VKLiftGammaGainFilter",
         {{"inputGain", QVariant::fromValue(VKARLTriple(0, 1, 0))}}, {0.2f, 0, 0, 0.5f}},
    };
    const VKImage input = VKImage::imageWithFloatPixels(kPixel, 1, 1);
    for (const Case &c : cases) {
        const auto filter = VKFilterFactory::filterWithName(QString::fromLatin1(c.filter));
        ASSERT_TRUE(filter) << c.name;
        filter->setValueForKey(QVariant::fromValue(input), VKFilterInputImageKey);
        for (auto it = c.values.cbegin(); it != c.values.cend(); ++it)
            filter->setValueForKey(it.value(), it.key());
        const QList<float> out = filter->outputImage().floatPixels(QRect(0, 0, 1, 1));
        ASSERT_EQ(out.size(), 4) << c.name;
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(out[i], c.expected[i], 1e-4f) << c.name << " channel " << i;
    }
}

TEST(VKGradingFilters, WithoutAnInputImageThereIsNoOutput)
{
    for (const char *name : {"VKExposureFilter", "VKWhiteBalanceFilter", "VKLiftGammaGainFilter"}) {
        const auto filter = VKFilterFactory::filterWithName(QString::fromLatin1(name));
        ASSERT_TRUE(filter) << name;
        EXPECT_TRUE(filter->outputImage().isNull()) << name;
        EXPECT_EQ(filter->inputKeys().first(), "inputImage") << name;
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
    babl_process(babl_fish(babl_format("RGBA float"),
                           VKColorSpaceController::proPhotoLinearColorSpace().bablRGBAFloatFormat()),
                 red, out, 1);
    EXPECT_GT(out[0], 0.4f);
    EXPECT_LT(out[0], 0.9f);
    EXPECT_GT(out[1], 0.01f);
}

} // namespace
