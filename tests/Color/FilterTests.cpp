// Images (pixels in and out, from many threads), filters made by name (GEGL operations,
// registered and grading filters), their archives, and the colour spaces.
#include "Color/VKColorSpaceController.h"
#include "Color/VKFilter.h"
#include "Color/VKFilterFactory.h"
#include "Color/VKGradingFilters.h"
#include "Color/VKImage.h"
#include "Color/VKTriple.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"

#include "VKTestSupport.h"

#include <QColor>
#include <QColorSpace>
#include <QImage>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

namespace {

// The same number of values, each within `tolerance` of the expected one.
::testing::AssertionResult vkNear(const QList<float> &actual, const QList<float> &expected,
                                  float tolerance = 1e-5f)
{
    if (actual.size() != expected.size())
        return ::testing::AssertionFailure()
               << actual.size() << " values, expected " << expected.size();
    for (qsizetype i = 0; i < actual.size(); ++i) {
        if (std::fabs(actual[i] - expected[i]) > tolerance)
            return ::testing::AssertionFailure()
                   << "value " << i << ": " << actual[i] << " expected " << expected[i];
    }
    return ::testing::AssertionSuccess();
}

// A 2x1 image: a mid grey pixel and a coloured one with half alpha.
const float kPixels[8] = {0.25f, 0.25f, 0.25f, 1.0f, 0.5f, 0.125f, 1.0f, 0.5f};

VKImage twoPixels()
{
    return VKImage::imageWithFloatPixels(kPixels, 2, 1);
}

TEST(VKImage, PixelsComeBackAsTheyWentInAndNothingComesOfNothing)
{
    const float one[4] = {1, 1, 1, 1};
    // Rows padded with four junk floats each are read by their stride.
    const float padded[16] = {1, 0, 0, 1, 9, 9, 9, 9, 0, 1, 0, 1, 9, 9, 9, 9};
    const QRect first(0, 0, 1, 1);
    const struct
    {
        const char *name;
        VKImage image;
        QRect rect;
        QList<float> expected = {}; // empty: a null image
    } cases[] = {
        {"whole image", twoPixels(), QRect(0, 0, 2, 1), QList<float>(kPixels, kPixels + 8)},
        {"second pixel only", twoPixels(), QRect(1, 0, 1, 1), {0.5f, 0.125f, 1.0f, 0.5f}},
        {"outside is transparent black", twoPixels(), QRect(2, 0, 1, 1), {0, 0, 0, 0}},
        {"a rectangle across the edge",
         twoPixels(),
         QRect(-1, 0, 2, 1),
         {0, 0, 0, 0, 0.25f, 0.25f, 0.25f, 1}},
        {"rows by their stride",
         VKImage::imageWithFloatPixels(padded, 1, 2, 8 * sizeof(float)),
         QRect(0, 0, 1, 2),
         {1, 0, 0, 1, 0, 1, 0, 1}},
        {"no pixels", VKImage::imageWithFloatPixels(nullptr, 1, 1), first},
        {"zero width", VKImage::imageWithFloatPixels(one, 0, 1), first},
        {"negative height", VKImage::imageWithFloatPixels(one, 1, -1), first},
        {"null QImage", VKImage::imageWithQImage(QImage()), first},
        {"unknown generator", VKImage::imageWithOperation(QStringLiteral("gegl:no-such-op")),
         first},
        {"unknown operation", twoPixels().imageByApplyingOperation(QStringLiteral("vk:none")),
         first},
        {"operation on the null image",
         VKImage().imageByApplyingOperation(QStringLiteral("gegl:nop")), first},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.image.isNull(), c.expected.isEmpty());
        EXPECT_TRUE(vkNear(c.image.floatPixels(c.rect), c.expected));
    }
    EXPECT_EQ(twoPixels().extent(), QRect(0, 0, 2, 1));
    float out[4];
    EXPECT_FALSE(VKImage().renderFloatPixels(first, out));
    EXPECT_FALSE(twoPixels().renderFloatPixels(QRect(0, 0, 0, 1), out));
    EXPECT_TRUE(twoPixels().renderImage(first, QImage::Format_Mono).isNull());
}

TEST(VKImage, QImagesAreSRGBEncodedAndFloatImagesLinear)
{
    const VKImage image = twoPixels();
    const QImage bytes = image.renderImage(QRect(0, 0, 2, 1));
    ASSERT_EQ(bytes.format(), QImage::Format_RGBA8888);
    // 0.25 linear is 137 in sRGB, 0.5 is 188, 0.125 is 99.
    const uchar *p = bytes.constBits();
    EXPECT_EQ(QList<int>({p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]}),
              QList<int>({137, 137, 137, 255, 188, 99, 255, 128}));
    const QImage floats = image.renderImage(QRect(0, 0, 2, 1), QImage::Format_RGBA32FPx4);
    ASSERT_EQ(floats.format(), QImage::Format_RGBA32FPx4);
    const auto *f = reinterpret_cast<const float *>(floats.constBits());
    EXPECT_TRUE(vkNear(QList<float>(f, f + 8), QList<float>(kPixels, kPixels + 8)));
    // And back: an 8-bit image read as sRGB.
    const VKImage again = VKImage::imageWithQImage(bytes);
    EXPECT_TRUE(vkNear(again.floatPixels(QRect(0, 0, 1, 1)), {0.25f, 0.25f, 0.25f, 1}, 2e-3f));
}

TEST(VKImage, PointFunctionsRunOnStraightLinearPixelsFromManyThreads)
{
    const int size = 256;
    const QList<float> pixels(size * size * 4, 0.25f);
    const VKImage source = VKImage::imageWithFloatPixels(pixels.constData(), size, size);
    std::atomic<qint64> seen{0};
    const VKImage doubled = source.imageByApplyingPointFunction([&seen](float *rgba, qint64 n) {
        for (qint64 i = 0; i < n; ++i)
            rgba[i * 4] *= 2;
        seen += n;
    });
    // The recipe runs nothing until rendered, and each render runs it again.
    EXPECT_EQ(seen.load(), 0);
    QList<float> expected = pixels;
    for (qsizetype i = 0; i < expected.size(); i += 4)
        expected[i] = 0.5f;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&] { wrong += doubled.floatPixels(QRect(0, 0, size, size)) != expected; });
    for (std::thread &t : threads)
        t.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GE(seen.load(), qint64(size) * size);
    EXPECT_EQ(source.floatPixels(QRect(0, 0, size, size)), pixels);
}

TEST(VKOperationFilter, KeysAndAttributesComeFromTheOperation)
{
    const auto filter = VKFilter::filterWithName(QStringLiteral("gegl:exposure"));
    ASSERT_TRUE(filter);
    EXPECT_EQ(filter->className(), QStringLiteral("VKOperationFilter"));
    EXPECT_EQ(filter->inputKeys(), QStringList({"inputImage", "black-level", "exposure"}));
    EXPECT_EQ(filter->inputParameterKeys(), QStringList({"black-level", "exposure"}));
    const QVariantMap exposure = filter->customAttributes().value("exposure").toMap();
    EXPECT_EQ(exposure.value(VKAttributeType).toString(), VKAttributeTypeDouble);
    EXPECT_EQ(exposure.value(VKAttributeDefault).toDouble(), 0.0);
    EXPECT_EQ(filter->attributes().value(VKAttributeFilterName).toString(), "gegl:exposure");

    // Generators take no image; compositors take a second one.
    const auto color = VKFilter::filterWithName(QStringLiteral("gegl:color"));
    ASSERT_TRUE(color);
    EXPECT_FALSE(color->inputKeys().contains("inputImage"));
    const auto over = VKFilter::filterWithName(QStringLiteral("gegl:over"));
    ASSERT_TRUE(over);
    EXPECT_EQ(over->inputKeys().mid(0, 2), QStringList({"inputImage", "inputAuxImage"}));

    EXPECT_FALSE(VKFilter::filterWithName(QStringLiteral("gegl:no-such-op")));
    EXPECT_FALSE(VKFilter::filterWithName(QString()));
    EXPECT_TRUE(VKFilter::isFilterNameKnown("gegl:over"));
    EXPECT_FALSE(VKFilter::isFilterNameKnown("Exposure"));
}

TEST(VKOperationFilter, OutputFollowsTheValuesSetAtTheTimeItWasAskedAndArchivesNameIt)
{
    const struct
    {
        const char *name;
        const char *operation;
        QVariantMap values;
        QList<float> expected; // of the first pixel, 0.25 grey
    } cases[] = {
        {"one stop up doubles", "gegl:exposure", {{"exposure", 1.0}}, {0.5f, 0.5f, 0.5f, 1}},
        {"a string is no number and leaves the default",
         "gegl:exposure",
         {{"exposure", QStringLiteral("2")}},
         {0.25f, 0.25f, 0.25f, 1}},
        {"booleans and limits",
         "gegl:rgb-clip",
         {{"clip-low", true}, {"low-limit", 0.3}},
         {0.3f, 0.3f, 0.3f, 1}},
    };
    const auto firstPixel = [](const VKImage &image) {
        return image.floatPixels(QRect(0, 0, 1, 1));
    };
    for (const auto &c : cases) {
        const auto filter = VKFilter::filterWithName(QString::fromLatin1(c.operation));
        ASSERT_TRUE(filter) << c.name;
        filter->setDefaults();
        filter->setValueForKey(QVariant::fromValue(twoPixels()), VKFilterInputImageKey);
        for (auto it = c.values.cbegin(); it != c.values.cend(); ++it)
            filter->setValueForKey(it.value(), it.key());
        const VKImage out = filter->valueForKey(VKFilterOutputImageKey).value<VKImage>();
        EXPECT_TRUE(vkNear(firstPixel(out), c.expected, 1e-4f)) << c.name;
    }

    const auto filter = VKFilter::filterWithName(QStringLiteral("gegl:exposure"));
    EXPECT_FALSE(filter->valueForKey("exposure").isValid()) << "unset until setDefaults";
    // A value beyond the range renders as the range's end.
    filter->setValueForKey(QVariant::fromValue(twoPixels()), VKFilterInputImageKey);
    filter->setValueForKey(1e9, "exposure");
    const QList<float> beyond = firstPixel(filter->outputImage());
    filter->setValueForKey(filter->customAttributes()["exposure"].toMap()[VKAttributeMax],
                           "exposure");
    EXPECT_TRUE(vkNear(beyond, firstPixel(filter->outputImage()), 1e-2f));
    EXPECT_GT(beyond.value(0), 100.0f);
    // An image made earlier keeps the values of its time.
    filter->setValueForKey(1.0, "exposure");
    const VKImage before = filter->outputImage();
    filter->setValueForKey(2.0, "exposure");
    EXPECT_TRUE(vkNear(firstPixel(before), {0.5f, 0.5f, 0.5f, 1}));
    EXPECT_TRUE(vkNear(firstPixel(filter->outputImage()), {1, 1, 1, 1}));
    // setDefaults resets parameters but keeps the image.
    filter->setDefaults();
    EXPECT_EQ(filter->valueForKey("exposure").toDouble(), 0.0);
    EXPECT_FALSE(filter->outputImage().isNull());
    filter->setValueForKey(QVariant(), VKFilterInputImageKey);
    EXPECT_FALSE(filter->valueForKey(VKFilterOutputImageKey).isValid()) << "no input image";

    // Archives name the operation; one naming an operation GEGL lacks fails.
    filter->setValueForKey(1.5, "exposure");
    VKError error;
    const QByteArray data = VKKeyedArchiver::archivedDataWithRootObject(filter, &error);
    const auto restored = VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilter>(data, &error);
    ASSERT_TRUE(restored) << error.description();
    EXPECT_EQ(restored->name(), "gegl:exposure");
    EXPECT_EQ(restored->valueForKey("exposure").toDouble(), 1.5);
    EXPECT_FALSE(VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilter>(
        QByteArray(data).replace("gegl:exposure", "gegl:exposurX"), &error));
    EXPECT_EQ(error.code(), 4864);
    EXPECT_EQ(error.localizedDescription(),
              "The archive holds a filter \"gegl:exposurX\" that cannot be made.");
}

class CountingFilter : public VKFilter
{
public:
    CountingFilter() : VKFilter(QStringLiteral("VKCountingTestFilter"))
    {
        declareInputKey(VKFilterInputImageKey, {{VKAttributeType, VKAttributeTypeImage}});
        declareInputKey("inputGain",
                        {{VKAttributeType, VKAttributeTypeTriple},
                         {VKAttributeDefault, QVariant::fromValue(VKRGBTriple(1, 1, 1))}});
        declareInputKey("inputTint", {{VKAttributeType, VKAttributeTypeColor}});
    }
};

TEST(VKFilter, RegisteredFiltersAreMadeByNameAndArchiveTheirValues)
{
    VKFilter::registerFilter("VKCountingTestFilter",
                             [] { return std::make_shared<CountingFilter>(); });
    VKClassRegistry::registerClass<CountingFilter, VKFilter>("VKCountingTestFilter", "VKFilter");
    EXPECT_LT(VKFilter::filterNames().indexOf("VKCountingTestFilter"),
              VKFilter::filterNames().indexOf("gegl:exposure"));
    const auto filter = VKFilter::filterWithName("VKCountingTestFilter");
    ASSERT_TRUE(filter);
    filter->setDefaults();
    filter->setValueForKey(QVariant::fromValue(QColor(255, 0, 0)), "inputTint");
    filter->setValueForKey(QVariant::fromValue(twoPixels()), VKFilterInputImageKey);
    // Every kind of triple comes back as its own kind, the colour comes back, the image not.
    for (const VKTriple &t : {VKTriple(VKRGBTriple(1, 2, 3)), VKTriple(VKHSVTriple(1, 2, 3)),
                              VKTriple(VKARLTriple(0.5f, 0.25f, 2)), VKTriple(VKTTLTriple(1, 2, 3)),
                              VKTriple(1, 2, 3)}) {
        SCOPED_TRACE(t.className().toStdString());
        filter->setValueForKey(t.toVariant(), "inputGain");
        VKError error;
        const auto back = VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilter>(
            VKKeyedArchiver::archivedDataWithRootObject(filter, &error), &error);
        ASSERT_TRUE(back) << error.description();
        EXPECT_EQ(back->name(), "VKCountingTestFilter");
        EXPECT_TRUE(t.isEqual(*VKTriple::fromVariant(back->valueForKey("inputGain"))));
        EXPECT_EQ(back->valueForKey("inputTint").value<QColor>(), QColor(255, 0, 0));
        EXPECT_FALSE(back->valueForKey(VKFilterInputImageKey).isValid());
    }

    EXPECT_TRUE(VKFilter::unregisterFilter("VKCountingTestFilter"));
    EXPECT_FALSE(VKFilter::filterWithName("VKCountingTestFilter"));
    VKClassRegistry::unregisterClass("VKCountingTestFilter");
}

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
    using P = QColorSpace::Primaries;
    const struct
    {
        const char *name;
        VKColorSpace (*get)();
        bool linear, fromProfile;
        P primaries;
    } cases[] = {
        {"device", &VKColorSpaceController::deviceColorSpace, false, false, P::SRgb},
        {"Rec. 709", &VKColorSpaceController::rec709ColorSpace, false, true, P::SRgb},
        {"linear", &VKColorSpaceController::rgbLinearColorSpace, true, false, P::SRgb},
        {"ProPhoto", &VKColorSpaceController::proPhotoLinearColorSpace, true, true, P::ProPhotoRgb},
        {"generic", &VKColorSpaceController::genericRGBColorSpace, false, false, P::SRgb},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const VKColorSpace space = c.get();
        ASSERT_FALSE(space.isNull());
        EXPECT_EQ(space, c.get()) << "made once";
        EXPECT_EQ(space.isLinear(), c.linear);
        EXPECT_EQ(!space.iccProfile().isEmpty(), c.fromProfile);
        EXPECT_EQ(space.toQColorSpace().primaries(), c.primaries);
        EXPECT_TRUE(space.bablRGBAFloatFormat());
    }
}

} // namespace
