// Runs the filter factory in a process of its own and prints what it found as JSON:
//   vkfilterprobe [--again] [name...]
// With --again the image plug-ins are loaded a second time. Each name is asked of the factory.
//   vkfilterprobe --restore <archive>
// decodes a filter chain before anything else touches the factory, and renders a 2x1 image,
// (0.25, 0.5, 1, 1) and (0, 0.125, 2, 1), through it.
#include "Color/VKAbstractCompoundFilterProvider.h"
#include "Color/VKFilterChainWrapper.h"
#include "Color/VKFilterFactory.h"
#include "Color/VKImage.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKKeyedUnarchiver.h"
#include "Foundation/VKLogger.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

// Claims "Grade" (which the plug-in offers too) and "Unbuildable", which it cannot make.
class VKProbeFilterProvider : public VKAbstractCompoundFilterProvider
{
public:
    QStringList filterNames() const override { return {"Grade", "Unbuildable"}; }
    std::shared_ptr<VKFilter> filterWithName(const QString &name, const QVariantMap &) override
    {
        if (name != QLatin1String("Grade"))
            return nullptr;
        return VKFilter::filterWithName(QStringLiteral("gegl:nop"));
    }
};
VK_REGISTER_CLASS(VKProbeFilterProvider, VKAbstractCompoundFilterProvider)

namespace {

// "before" and "after": whether the class Grade was known around the decoding; "error", or the
// rendered floats as "pixels".
QJsonObject restore(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    QJsonObject out{{"before", VKClassRegistry::classNamed("Grade").has_value()}};
    VKError error;
    const auto chain =
        VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilterChainWrapper>(file.readAll(), &error);
    out["after"] = VKClassRegistry::classNamed("Grade").has_value();
    if (!chain) {
        out["error"] = error.localizedDescription();
        return out;
    }
    const float input[8] = {0.25f, 0.5f, 1.0f, 1.0f, 0.0f, 0.125f, 2.0f, 1.0f};
    chain->setValueForKey(QVariant::fromValue(VKImage::imageWithFloatPixels(input, 2, 1)),
                          VKFilterInputImageKey);
    QJsonArray pixels;
    for (const float value : chain->outputImage().floatPixels(QRect(0, 0, 2, 1)))
        pixels.append(double(value));
    out["pixels"] = pixels;
    return out;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    auto sink = std::make_shared<VKCapturingLogSink>();
    VKLogger::shared().setSinks({sink});
    QStringList names = app.arguments().mid(1);
    if (names.size() == 2 && names[0] == QLatin1String("--restore")) {
        std::fputs(QJsonDocument(restore(names[1])).toJson(QJsonDocument::Compact), stdout);
        return 0;
    }
    const bool again = names.removeAll(QStringLiteral("--again")) > 0;

    VKFilterFactory *factory = VKFilterFactory::sharedFactory();
    QJsonObject out;
    auto errorJson = [](const VKError &error) -> QJsonValue {
        if (error.isNull())
            return QJsonValue::Null;
        return QJsonObject{
            {"domain", error.domain()},
            {"code", error.code()},
            {"reason", error.userInfo().value(VKLocalizedFailureReasonKey).toString()}};
    };
    out["folder"] = VKFilterFactory::filtersFolderPath();
    out["singleFilterNames"] = QJsonArray::fromStringList(factory->singleFilterNames());
    out["filterNames"] = QJsonArray::fromStringList(factory->filterNames());
    out["pluginLoadError"] = errorJson(factory->pluginLoadError());
    if (again) {
        VKError error;
        out["againAnswered"] = factory->loadImagePluginsError(&error);
        out["againError"] = errorJson(error);
        out["againKept"] = errorJson(factory->pluginLoadError());
    }
    QJsonObject made;
    for (const QString &name : names) {
        const std::shared_ptr<VKFilter> filter = VKFilterFactory::filterWithName(name);
        made[name] = filter ? QJsonValue(filter->name()) : QJsonValue(QJsonValue::Null);
    }
    out["made"] = made;
    out["log"] = QJsonArray::fromStringList(sink->messages());
    std::fputs(QJsonDocument(out).toJson(QJsonDocument::Compact).constData(), stdout);
    return 0;
}
