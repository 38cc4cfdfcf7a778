// A program run by the extension registry tests as a separate process, since the registry is
// read once per process. It embeds its own ":/Info.plist" with roles and links a framework that
// declares more. Its arguments are plug-ins to load first; it reports the shared registry as JSON.
#include "Application/VKExtensionRegistry.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKException.h"

#include "RegistryTestService.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

int vkRegistryFrameworkMarker();

class VKRegistryMainService : public VKRegistryTestService
{
public:
    QString origin() const override { return QStringLiteral("main"); }
};
VK_REGISTER_CLASS(VKRegistryMainService, VKRegistryTestService)

namespace {

void print(const QString &line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

QJsonValue optionalMap(const std::optional<QVariantMap> &map)
{
    return map ? QJsonValue(QJsonObject::fromVariantMap(*map)) : QJsonValue();
}

QJsonObject describeRole(const QString &role)
{
    const QString className = VKExtensionRegistry::classNameForRole(role);
    const auto info = VKExtensionRegistry::classForRole(role);
    const auto first = VKExtensionRegistry::instanceForRole<VKRegistryTestService>(role);
    const auto second = VKExtensionRegistry::instanceForRole<VKRegistryTestService>(role);
    return QJsonObject{
        {"info", optionalMap(VKExtensionRegistry::sharedRegistry().extensionInfoForRole(role))},
        {"className", className.isNull() ? QJsonValue() : QJsonValue(className)},
        {"class", info ? QJsonValue(info->name + u'<' + info->baseName) : QJsonValue()},
        {"origin", first ? QJsonValue(first->origin()) : QJsonValue()},
        {"fresh", first && second && first != second},
    };
}

int reportRegistry(const QStringList &plugIns)
{
    for (const QString &path : plugIns) {
        VKError error;
        if (!VKBundle::loadPlugInAtPath(path, &error)) {
            print("cannot load " + path + ": " + error.localizedDescription());
            return 3;
        }
    }
    QJsonObject report;
    try {
        VKExtensionRegistry &registry = VKExtensionRegistry::sharedRegistry();
        QJsonObject roles;
        for (const char *role : {"SharedRole", "MainRole", "FrameworkRole", "PlugInRole",
                                 "MissingRole", "NumberRole", "UnknownRole"})
            roles.insert(role, describeRole(role));
        report = QJsonObject{
            {"same", &registry == &VKExtensionRegistry::sharedRegistry()},
            {"loaded", registry.extensionInfosLoaded()},
            {"main", optionalMap(registry.mainExtensionInfo())},
            {"minor", QJsonObject::fromVariantMap(registry.minorExtensionInfo())},
            {"roles", roles},
        };
    } catch (const VKException &exception) {
        report.insert("exception", exception.name() + u'|' + exception.reason());
        // The registry was not made: the next use tries again and fails the same way.
        try {
            VKExtensionRegistry::classNameForRole("SharedRole");
            report.insert("again", "made");
        } catch (const VKException &again) {
            report.insert("again", again.reason());
        }
    }
    print(QString::fromUtf8(QJsonDocument(report).toJson(QJsonDocument::Compact)));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    return reportRegistry(app.arguments().mid(1)) + 0 * vkRegistryFrameworkMarker();
}
