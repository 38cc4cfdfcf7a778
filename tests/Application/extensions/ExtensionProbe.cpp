// A tool on the frame, run as a process of its own (which makes and ends its application and reads
// the registry afresh), with an ":/Info.plist" of roles and a framework declaring more. It prints
// the lifecycle notifications, its usage and, after loading the plug-ins it is given, what the
// registry answers; it finishes from a timer with the exit code given by --exit.
#include "Application/VKApplication.h"
#include "Application/VKExtensionRegistry.h"
#include "Application/VKPrint.h"
#include "Application/VKResponder.h"
#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKException.h"
#include "Foundation/VKNotificationCenter.h"

#include <QTimer>

int vkRegistryFrameworkMarker();

class VKRegistryMainService : public VKResponder
{
public:
    VKRegistryMainService() { setObjectName(QStringLiteral("main")); }
};
VK_REGISTER_CLASS(VKRegistryMainService, VKResponder)

namespace {

// "role: class name|name of a new object|fresh|the declaration's Note", with "-" for nothing and
// the class name marked when no such class is loaded.
QString describeRole(const QString &role)
{
    const auto first = VKExtensionRegistry::instanceForRole<VKResponder>(role);
    const auto second = VKExtensionRegistry::instanceForRole<VKResponder>(role);
    const auto declared = VKExtensionRegistry::sharedRegistry().extensionInfoForRole(role);
    QStringList facets{VKExtensionRegistry::classNameForRole(role),
                       first ? first->objectName() : QString(),
                       first && second && first != second ? "fresh" : QString(),
                       declared ? declared->value(QStringLiteral("Note")).toString() : QString()};
    if (!facets[0].isEmpty() && !VKExtensionRegistry::classForRole(role))
        facets[0] += QStringLiteral(" (not loaded)");
    for (QString &facet : facets)
        facet = facet.isEmpty() ? QStringLiteral("-") : facet;
    return role + ": " + facets.join(u'|');
}

QString report()
{
    try {
        VKExtensionRegistry &registry = VKExtensionRegistry::sharedRegistry();
        QStringList lines{"main: " + QStringList(registry.mainExtensionInfo()->keys()).join(u','),
                          "minor: " + QStringList(registry.minorExtensionInfo().keys()).join(u',')};
        for (const char *role : {"SharedRole", "MainRole", "FrameworkRole", "PlugInRole",
                                 "MissingRole", "NumberRole", "UnknownRole"})
            lines << describeRole(role);
        return lines.join(u'\n');
    } catch (const VKException &exception) {
        // The registry was not made: the next use tries again and fails the same way.
        static bool again = false;
        const QString text = exception.name() + u'|' + exception.reason();
        return std::exchange(again, true) ? text : text + "\nagain: " + report();
    }
}

class Probe : public VKApplicationDelegate
{
public:
    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration()
    {
        return std::make_shared<VKApplicationConfiguration>(
            "usage: probe", "(100% honest)",
            VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
                {"exit", "x", "Exit code.", "int", "code"}));
    }

    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override
    {
        application.printUsage();
        for (const QString &path : arguments->arguments())
            VKBundle::loadPlugInAtPath(path);
        VKPrint(QStringLiteral("%@"), report());
        const qint64 exitCode = arguments->parameters().value(QStringLiteral("exit")).toLongLong();
        QTimer::singleShot(0, [app = &application, exitCode] {
            VKPrint(QStringLiteral("finishing"));
            app->setExitCode(exitCode);
            app->setFinished(true);
        });
    }
};

} // namespace

int main(int argc, char **argv)
{
    for (const QString &name :
         {VKApplicationWillFinishLaunchingNotification, VKApplicationDidFinishLaunchingNotification,
          VKApplicationWillTerminateNotification})
        VKNotificationCenter::defaultCenter().addObserver(
            nullptr, name, nullptr, [](const VKNotification &notification) {
                VKPrint(QStringLiteral("notification %@"), notification.name());
            });
    return vkRegistryFrameworkMarker() == 18 ? VKRunApplicationWithDelegateClass<Probe>(argc, argv)
                                             : 4;
}
