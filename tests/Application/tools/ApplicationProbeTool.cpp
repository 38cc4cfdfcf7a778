// A small tool on the application frame, run by the tests as a separate process. It prints its
// usage for --help and finishes from a timer after --delay seconds with the exit code given by
// --exit. It also prints the launch and termination notifications it receives.
#include "Application/VKApplication.h"
#include "Application/VKPrint.h"
#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKNotificationCenter.h"

#include <QTimer>

namespace {

class ProbeDelegate : public VKApplicationDelegate
{
public:
    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration()
    {
        auto list = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
            {"help", "h", "Print this text."});
        list += VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
            {"exit", "x", "Exit code.", "int", "code", //
             "delay", "d", "Seconds before finishing.", "float", "seconds"});
        return std::make_shared<VKApplicationConfiguration>("usage: probe", "(100% honest)", list);
    }

    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override
    {
        const QVariantMap parameters = arguments->parameters();
        if (arguments->options().contains(QStringLiteral("help")))
            application.printUsage();
        const qint64 exitCode = parameters.value(QStringLiteral("exit")).toLongLong();
        VKApplication *app = &application;
        QTimer::singleShot(int(parameters.value(QStringLiteral("delay")).toDouble() * 1000),
                           [app, exitCode] {
                               VKPrint(QStringLiteral("finishing"));
                               app->setExitCode(exitCode);
                               app->setFinished(true);
                           });
        VKPrint(QStringLiteral("returning"));
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
    return VKRunApplicationWithDelegateClass<ProbeDelegate>(argc, argv);
}
