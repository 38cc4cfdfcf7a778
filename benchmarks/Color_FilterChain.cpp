// Frames per second of a UHD (3840x2160) float frame through a three-filter grading chain
// (exposure, white balance, levels) held in a VKFilterChainWrapper, against the same three GEGL
// operations wired by hand into one graph. Both runs change the exposure every frame so that
// nothing is served from a cache, and both render into the same float buffer. The wrapper's
// work per frame (carrying values along its edges, making the recipe) should cost under 5%;
// compare the two items_per_second (frames per second). A third run puts the library's own
// grading filters (exposure, white balance, lift/gamma/gain) through the wrapper, for their rate.
#include "Color/VKFilter.h"
#include "Color/VKFilterChainWrapper.h"
#include "Color/VKImage.h"

#include <QCoreApplication>
#include <QList>

#include <benchmark/benchmark.h>
#include <gegl.h>

#include <cstdlib>
#include <random>
#include <vector>

namespace {

constexpr int kWidth = 3840;
constexpr int kHeight = 2160;

const std::vector<float> &framePixels()
{
    static const std::vector<float> pixels = [] {
        std::mt19937 random(7);
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        std::vector<float> values(size_t(kWidth) * kHeight * 4);
        for (size_t i = 0; i < values.size(); ++i)
            values[i] = i % 4 == 3 ? 1.0f : unit(random);
        return values;
    }();
    return pixels;
}

// Exposure in stops alternates so that each frame is a new result.
double exposureForFrame(qint64 frame)
{
    return frame % 2 ? 0.5 : 0.25;
}

const QVariantMap kTemperature{{"original-temperature", 6500.0}, {"intended-temperature", 5200.0}};
const QVariantMap kLevels{{"in-low", 0.02}, {"in-high", 0.95}, {"out-low", 0.0}, {"out-high", 1.0}};

void BM_WrapperChain(benchmark::State &state)
{
    const auto exposure = VKFilter::filterWithName("gegl:exposure");
    const auto balance = VKFilter::filterWithName("gegl:color-temperature");
    const auto levels = VKFilter::filterWithName("gegl:levels");
    if (!exposure || !balance || !levels) {
        state.SkipWithError("GEGL lacks one of the operations");
        return;
    }
    auto chain = std::make_shared<VKFilterChainWrapper>();
    chain->concatenateFiltersFromArray({exposure, balance, levels});
    chain->exportInputImageKeyForFilter(exposure);
    chain->exportOutputImageKeyForFilter(levels);
    chain->setDefaults();
    for (auto it = kTemperature.cbegin(); it != kTemperature.cend(); ++it)
        chain->setValueForKey(it.value(), it.key());
    for (auto it = kLevels.cbegin(); it != kLevels.cend(); ++it)
        chain->setValueForKey(it.value(), it.key());
    chain->setValueForKey(
        QVariant::fromValue(VKImage::imageWithFloatPixels(framePixels().data(), kWidth, kHeight)),
        kVKFilterInputKey_inputImage);

    std::vector<float> out(framePixels().size());
    qint64 frame = 0;
    for (auto _ : state) {
        chain->setValueForKey(exposureForFrame(frame++), QStringLiteral("exposure"));
        const VKImage image = chain->outputImage();
        if (!image.renderFloatPixels(QRect(0, 0, kWidth, kHeight), out.data())) {
            state.SkipWithError("the chain rendered nothing");
            return;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_HandBuiltGeglGraph(benchmark::State &state)
{
    const Babl *format = babl_format("RGBA float");
    const GeglRectangle extent = {0, 0, kWidth, kHeight};
    GeglBuffer *buffer = gegl_buffer_new(&extent, format);
    gegl_buffer_set(buffer, &extent, 0, format, framePixels().data(), GEGL_AUTO_ROWSTRIDE);

    GeglNode *graph = gegl_node_new();
    GeglNode *source =
        gegl_node_new_child(graph, "operation", "gegl:buffer-source", "buffer", buffer, nullptr);
    GeglNode *exposure = gegl_node_new_child(graph, "operation", "gegl:exposure", nullptr);
    GeglNode *balance =
        gegl_node_new_child(graph, "operation", "gegl:color-temperature", "original-temperature",
                            6500.0, "intended-temperature", 5200.0, nullptr);
    GeglNode *levels =
        gegl_node_new_child(graph, "operation", "gegl:levels", "in-low", 0.02, "in-high", 0.95,
                            "out-low", 0.0, "out-high", 1.0, nullptr);
    gegl_node_link_many(source, exposure, balance, levels, nullptr);

    std::vector<float> out(framePixels().size());
    qint64 frame = 0;
    for (auto _ : state) {
        gegl_node_set(exposure, "exposure", exposureForFrame(frame++), nullptr);
        gegl_node_blit(levels, 1.0, &extent, format, out.data(), GEGL_AUTO_ROWSTRIDE,
                       GEGL_BLIT_DEFAULT);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations());
    g_object_unref(graph);
    g_object_unref(buffer);
}

void BM_GradingFiltersChain(benchmark::State &state)
{
    const auto exposure = VKFilter::filterWithName("VKExposureFilter");
    const auto balance = VKFilter::filterWithName("VKWhiteBalanceFilter");
    const auto grade = VKFilter::filterWithName("VKLiftGammaGainFilter");
    if (!exposure || !balance || !grade) {
        state.SkipWithError("the grading filters are not registered");
        return;
    }
    auto chain = std::make_shared<VKFilterChainWrapper>();
    chain->concatenateFiltersFromArray({exposure, balance, grade});
    chain->exportInputImageKeyForFilter(exposure);
    chain->exportOutputImageKeyForFilter(grade);
    chain->setDefaults();
    chain->setValueForKey(
        QVariant::fromValue(VKImage::imageWithFloatPixels(framePixels().data(), kWidth, kHeight)),
        kVKFilterInputKey_inputImage);
    std::vector<float> out(framePixels().size());
    qint64 frame = 0;
    for (auto _ : state) {
        chain->setValueForKey(exposureForFrame(frame++), QStringLiteral("inputEV"));
        if (!chain->outputImage().renderFloatPixels(QRect(0, 0, kWidth, kHeight), out.data())) {
            state.SkipWithError("the chain rendered nothing");
            return;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_WrapperChain)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_HandBuiltGeglGraph)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GradingFiltersChain)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // The library sets GEGL up on first use; make sure it is up before the hand-built graph.
    (void)VKFilter::filterWithName(QStringLiteral("gegl:exposure"));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
