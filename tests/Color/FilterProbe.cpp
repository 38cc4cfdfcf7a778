// Runs the filter factory in a process of its own and prints what it found as JSON:
//   vkfilterprobe [--again] [name...]
// With --again the image plug-ins are loaded a second time. Each name is asked of the factory.
#include "Color/VKAbstractCompoundFilterProvider.h"
#include "Color/VKFilter.h"
#include "Color/VKFilterFactory.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKLogger.h"

#include <QCoreApplication>
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

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    auto sink = std::make_shared<VKCapturingLogSink>();
    VKLogger::shared().setSinks({sink});
    QStringList names = app.arguments().mid(1);
    const bool again = names.removeAll(QStringLiteral("--again")) > 0;

    VKFilterFactory *factory = VKFilterFactory::sharedFactory();
    QJsonObject out;
    auto errorJson = [](const VKError &error) -> QJsonValue {
        if (error.isNull())
            return QJsonValue::Null;
        return QJsonObject{{"domain", error.domain()},
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
