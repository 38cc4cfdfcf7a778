// A program run by the extension registry tests as a separate process, since the registry is
// read once per process. It embeds its own ":/Info.plist" with roles and links a framework that
// declares more. Its arguments are plug-ins to load first; it prints what the shared registry
// answers, one line per table and per role.
#include "Application/VKExtensionRegistry.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKException.h"

#include "RegistryTestService.h"

#include <QCoreApplication>

#include <cstdio>

int vkRegistryFrameworkMarker();

class VKRegistryMainService : public VKRegistryTestService
{
public:
    QString origin() const override { return QStringLiteral("main"); }
};
VK_REGISTER_CLASS(VKRegistryMainService, VKRegistryTestService)

namespace {

QString orDash(const QString &text)
{
    return text.isNull() ? QStringLiteral("-") : text;
}

QString keys(const std::optional<QVariantMap> &map)
{
    return map ? QStringList(map->keys()).join(u',') : QStringLiteral("-");
}

// "role: class name|class<base|origin of a new object|fresh|the declaration's Note".
QString describeRole(const QString &role)
{
    const auto info = VKExtensionRegistry::classForRole(role);
    const auto first = VKExtensionRegistry::instanceForRole<VKRegistryTestService>(role);
    const auto second = VKExtensionRegistry::instanceForRole<VKRegistryTestService>(role);
    const auto declared = VKExtensionRegistry::sharedRegistry().extensionInfoForRole(role);
    return role + ": " + orDash(VKExtensionRegistry::classNameForRole(role)) + u'|' +
           (info ? info->name + u'<' + info->baseName : QStringLiteral("-")) + u'|' +
           (first ? first->origin() : QStringLiteral("-")) + u'|' +
           (first && second && first != second ? "fresh" : "none") + u'|' +
           orDash(declared ? declared->value(QStringLiteral("Note")).toString() : QString());
}

QString report()
{
    try {
        VKExtensionRegistry &registry = VKExtensionRegistry::sharedRegistry();
        QString text =
            QStringLiteral("same=%1 loaded=%2\nmain: %3\nminor: %4\n")
                .arg(int(&registry == &VKExtensionRegistry::sharedRegistry()))
                .arg(int(registry.extensionInfosLoaded()))
                .arg(keys(registry.mainExtensionInfo()), keys(registry.minorExtensionInfo()));
        for (const char *role : {"SharedRole", "MainRole", "FrameworkRole", "PlugInRole",
                                 "MissingRole", "NumberRole", "UnknownRole"})
            text += describeRole(role) + u'\n';
        return text;
    } catch (const VKException &exception) {
        // The registry was not made: the next use tries again and fails the same way.
        QString again = QStringLiteral("made");
        try {
            VKExtensionRegistry::classNameForRole(QStringLiteral("SharedRole"));
        } catch (const VKException &second) {
            again = second.reason();
        }
        return exception.name() + u'|' + exception.reason() + "\nagain: " + again + u'\n';
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    for (const QString &path : app.arguments().mid(1)) {
        VKError error;
        if (!VKBundle::loadPlugInAtPath(path, &error)) {
            std::printf("cannot load %s: %s\n", qPrintable(path),
                        qPrintable(error.localizedDescription()));
            return 3;
        }
    }
    std::printf("%s", report().toUtf8().constData());
    return vkRegistryFrameworkMarker() == 18 ? 0 : 4;
}
