// A small program run by the Foundation tests as a separate process: it embeds ":/Info.plist",
// links a library that declares itself as a framework, and reports its bundles ("bundle") or
// the order of its lifecycle notifications ("lifecycle") on standard output.
#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKNotificationCenter.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <cstdio>

int vkTestFrameworkMarker();

namespace {

void print(const QString &line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

int reportBundles()
{
    QJsonArray frameworks;
    for (const auto &framework : VKBundle::allFrameworks())
        frameworks.append(
            QJsonArray{framework->bundleIdentifier(),
                       framework->objectForInfoDictionaryKey("CFBundleVersion").toString()});
    const auto main = VKBundle::mainBundle();
    QJsonObject report{
        {"info", QJsonObject::fromVariantMap(main->infoDictionary())},
        {"path", main->bundlePath()},
        {"frameworks", frameworks},
        {"lookup", VKBundle::bundleWithIdentifier("com.vessan.tests.Framework")->description()},
        {"resource", main->pathForResource("Info", "plist")},
        {"frameworkRoles",
         QJsonObject::fromVariantMap(VKBundle::bundleWithIdentifier("com.vessan.tests.Framework")
                                         ->objectForInfoDictionaryKey("VKExtensions")
                                         .toMap())},
        {"marker", vkTestFrameworkMarker()},
    };
    print(QString::fromUtf8(QJsonDocument(report).toJson(QJsonDocument::Compact)));
    return 0;
}

int reportLifecycle(QCoreApplication &app)
{
    for (const QString &name :
         {VKApplicationWillFinishLaunchingNotification, VKApplicationDidFinishLaunchingNotification,
          VKApplicationWillTerminateNotification})
        VKNotificationCenter::defaultCenter().addObserver(
            nullptr, name, nullptr, [](const VKNotification &n) { print(n.name()); });
    print("attach " + QString::number(VKApplicationLifecycle::attachToApplication()));
    print("attach again " + QString::number(VKApplicationLifecycle::attachToApplication()));
    print("launched " + QString::number(VKApplicationLifecycle::hasFinishedLaunching()));
    QTimer::singleShot(0, &app, [&app] {
        print("timer, launched " + QString::number(VKApplicationLifecycle::hasFinishedLaunching()));
        app.quit();
    });
    const int code = app.exec();
    print("exec returned");
    VKApplicationLifecycle::applicationWillTerminate(); // already posted: nothing
    return code;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationDomain("vessan.example");
    QCoreApplication::setApplicationVersion("5.0.1");
    const QString mode = app.arguments().value(1);
    if (mode == "bundle")
        return reportBundles();
    if (mode == "lifecycle")
        return reportLifecycle(app);
    return 2;
}
