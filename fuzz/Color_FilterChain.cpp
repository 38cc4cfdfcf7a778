// Feeds arbitrary bytes to the unarchiver as a filter graph. Whatever decodes must evaluate
// without crashing (a graph that loops may only raise), archive again, and that archive must
// decode to a graph that archives to the very same bytes.
#include "Color/VKFilterChainWrapper.h"
#include "Color/VKImage.h"
#include "Foundation/VKException.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"
#include "Foundation/VKLogger.h"

#include <QCoreApplication>

#include <cstdint>
#include <cstdlib>

namespace {

// The factory loads plug-ins on the main thread: give the process one.
QCoreApplication *application()
{
    static int argc = 1;
    static char name[] = "fuzz_Color_FilterChain";
    static char *argv[] = {name, nullptr};
    static auto *app = new QCoreApplication(argc, argv);
    return app;
}

void evaluate(VKFilterChainWrapper &wrapper)
{
    const float pixel[] = {0.5f, 0.25f, 1.0f, 1.0f};
    try {
        wrapper.setValueForKey(QVariant::fromValue(VKImage::imageWithFloatPixels(pixel, 1, 1)),
                               kVKFilterInputKey_inputImage);
        (void)wrapper.outputImage();
    } catch (const VKException &) {
        // Inner filters may refuse the keys an archive connects; that is not a crash.
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    application();
    // Unknown class names are logged by the factory on every run; keep the output readable.
    VKLogger::shared().setSinks({});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(bytes), static_cast<qsizetype>(size));
    VKError error;
    auto wrapper = VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilterChainWrapper>(input, &error);
    if (!wrapper) {
        if (error.isNull())
            std::abort(); // a failure always says why
        return 0;
    }
    evaluate(*wrapper);
    const QByteArray once = VKKeyedArchiver::archivedDataWithRootObject(wrapper, &error);
    if (once.isEmpty())
        return 0; // values the inner filters took from the archive may not archive again
    auto again = VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilterChainWrapper>(once, &error);
    if (!again)
        std::abort();
    if (VKKeyedArchiver::archivedDataWithRootObject(again, &error) != once)
        std::abort();
    return 0;
}
