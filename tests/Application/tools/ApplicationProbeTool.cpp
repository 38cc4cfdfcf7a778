// A small tool on the application frame, run by the tests as a separate process. It reports
// what it parsed, prints its usage for --help, and finishes from a timer after --delay seconds
// with the exit code given by --exit.
#include "Application/VKApplication.h"
#include "Application/VKPrint.h"

#include <QTimer>

namespace {

// Parsed like any option, but left out of the usage text.
class HiddenOptionConfiguration : public VKApplicationOptionConfiguration
{
public:
    using VKApplicationOptionConfiguration::VKApplicationOptionConfiguration;
};

QString stateName(VKApplication::State state)
{
    switch (state) {
    case VKApplication::State::Created:
        return QStringLiteral("created");
    case VKApplication::State::DelegateRunning:
        return QStringLiteral("delegate running");
    case VKApplication::State::Waiting:
        return QStringLiteral("waiting");
    case VKApplication::State::Finished:
        return QStringLiteral("finished");
    }
    return QString();
}

class ProbeDelegate : public VKApplicationDelegate
{
public:
    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration()
    {
        VKApplicationOptionConfigurationList list =
            VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage({
                QStringLiteral("verbose"),
                QStringLiteral("v"),
                QStringLiteral("Talk more."),
                QStringLiteral("help"),
                QStringLiteral("h"),
                QStringLiteral("Print this text."),
            });
        list.append(std::make_shared<HiddenOptionConfiguration>(
            QStringLiteral("secret"), QStringLiteral("s"), QStringLiteral("Not listed.")));
        list += VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName({
            QStringLiteral("exit"),
            QStringLiteral("x"),
            QStringLiteral("Exit code."),
            QStringLiteral("int"),
            QStringLiteral("code"),
            QStringLiteral("delay"),
            QStringLiteral("d"),
            QStringLiteral("Seconds to wait before finishing."),
            QStringLiteral("float"),
            QStringLiteral("seconds"),
            QStringLiteral("name"),
            QStringLiteral("n"),
            QStringLiteral("Name für den Bericht – ü."),
            QStringLiteral("string"),
            QStringLiteral("näme"),
        });
        return std::make_shared<VKApplicationConfiguration>(
            QStringLiteral("usage: probe [options] files…"),
            QStringLiteral("Exit status: the --exit code (100% honest)."), list);
    }

    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override
    {
        if (arguments->options().contains(QStringLiteral("help"))) {
            application.printUsage();
            application.setExitCode(2);
            application.setFinished(true);
            return;
        }
        for (const QString &argument : arguments->arguments())
            VKPrint(QStringLiteral("argument [%@]"), argument);
        const QVariantMap parameters = arguments->parameters();
        for (auto it = parameters.cbegin(); it != parameters.cend(); ++it)
            VKPrint(QStringLiteral("parameter %@ [%@]"), it.key(), it.value());
        for (const QString &option : arguments->options())
            VKPrint(QStringLiteral("option %@"), option);

        const qint64 exitCode = parameters.value(QStringLiteral("exit")).toLongLong();
        const double delay = parameters.value(QStringLiteral("delay"), -1.0).toDouble();
        if (delay < 0) {
            application.setExitCode(exitCode);
            application.setFinished(true);
            return;
        }
        VKApplication *app = &application;
        QTimer::singleShot(int(delay * 1000), [app, exitCode] {
            VKPrint(QStringLiteral("finishing while %@"), stateName(app->state()));
            app->setExitCode(exitCode);
            app->setFinished(true);
        });
        VKPrint(QStringLiteral("returning while %@"), stateName(application.state()));
    }
};

} // namespace

int main(int argc, char **argv)
{
    return VKRunApplicationWithDelegateClass<ProbeDelegate>(argc, argv);
}
