// A program run by the extension registry and enumeration tests as a separate process. It embeds
// its own ":/Info.plist" with roles and links a framework that declares more.
//   registry [plug-in...]       loads the plug-ins, then reports the shared registry as JSON
//   enum <key> [identifier]     selects an identifier (if given) in an enumeration kept under
//                               the key, and prints "<selected identifier> <defaults file>"
//   write <file> <key> <value>  stores a value in a defaults file, as another program would
#include "Application/VKExtensionRegistry.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKException.h"
#include "Foundation/VKUserDefaults.h"

#include "../EnumTestEnums.h"
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

int keepEnum(const QString &key, const QString &identifier)
{
    auto display = VKTestDisplayEnum::enumWithUserDefaultsKey(key);
    if (!identifier.isNull())
        display->setSelectedIdentifier(identifier);
    print(display->selectedIdentifier() + u' ' +
          VKUserDefaults::standardUserDefaults()->filePath());
    return 0; // the defaults reach the disk at exit
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationDomain("vessan.example");
    const QStringList arguments = app.arguments().mid(1);
    const QString mode = arguments.value(0);
    if (mode == "registry")
        return reportRegistry(arguments.mid(1)) + 0 * vkRegistryFrameworkMarker();
    if (mode == "enum" && arguments.size() >= 2)
        return keepEnum(arguments.at(1), arguments.value(2));
    if (mode == "write" && arguments.size() == 4) {
        VKUserDefaults defaults(arguments.at(1));
        defaults.setObject(arguments.at(3), arguments.at(2));
        return defaults.synchronize() ? 0 : 4;
    }
    return 2;
}
