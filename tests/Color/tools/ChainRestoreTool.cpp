// Restores a filter chain from an archive file in a fresh process and prints what it renders:
//   vkchain_restore <archive> <pixels> <width> <height> <class>
// <pixels> holds width*height*4 native floats (straight linear RGBA) for "inputImage". The first
// line says whether <class> was known before and after decoding ("before: no after: yes"), the
// second holds the rendered floats ("%.9g", space-separated). Failures go to standard error with
// exit status 1.
#include "Color/VKFilterChainWrapper.h"
#include "Color/VKImage.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKKeyedUnarchiver.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

int fail(const QString &message)
{
    std::fprintf(stderr, "%s\n", qPrintable(message));
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 6)
        return fail("usage: vkchain_restore <archive> <pixels> <width> <height> <class>");
    const QByteArray archive = readAll(args[1]);
    const QByteArray pixels = readAll(args[2]);
    const int width = args[3].toInt(), height = args[4].toInt();
    if (pixels.size() != qsizetype(width) * height * 4 * qsizetype(sizeof(float)))
        return fail("the pixel file does not match the size");

    const bool knownBefore = VKClassRegistry::classNamed(args[5]).has_value();
    VKError error;
    const auto chain =
        VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilterChainWrapper>(archive, &error);
    if (!chain)
        return fail("error: " + error.localizedDescription());
    const bool knownAfter = VKClassRegistry::classNamed(args[5]).has_value();

    chain->setValueForKey(QVariant::fromValue(VKImage::imageWithFloatPixels(
                              reinterpret_cast<const float *>(pixels.constData()), width, height)),
                          kVKFilterInputKey_inputImage);
    const QList<float> out = chain->outputImage().floatPixels(QRect(0, 0, width, height));
    if (out.isEmpty())
        return fail("error: the chain rendered nothing");
    std::printf("before: %s after: %s\n", knownBefore ? "yes" : "no", knownAfter ? "yes" : "no");
    for (qsizetype i = 0; i < out.size(); ++i)
        std::printf(i ? " %.9g" : "%.9g", double(out[i]));
    std::printf("\n");
    return 0;
}
