#include "Application/VKApplication.h"

#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKLenientNumber.h"
#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKPropertyList.h"
#include "Foundation/VKStringRanges.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QEventLoop>
#include <QFile>
#include <QPointer>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <cstdio>
#include <limits>
#include <optional>
#include <typeinfo>

namespace {

constexpr int VKApplicationPollInterval = 200; // milliseconds between tests of `finished`

// Groups of `size` strings, read up to the end or the first null string, each group made into
// one configuration by `make`.
template <typename Make>
VKApplicationOptionConfigurationList configurationsFromGroups(const QStringList &items,
                                                              qsizetype size, Make make)
{
    qsizetype count = 0;
    while (count < items.size() && !items.at(count).isNull())
        ++count;
    if (count % size != 0)
        VKException::raise(VKInvalidArgumentException,
                           QStringLiteral("number of variable arguments must be a multiple of %d"),
                           int(size));
    VKApplicationOptionConfigurationList result;
    for (qsizetype i = 0; i < count; i += size)
        result.append(make(items.mid(i, size)));
    return result;
}

VKApplicationParameterType parameterTypeFromName(const QString &name)
{
    if (name == QLatin1String("float"))
        return VKApplicationParameterTypeFloat;
    if (name == QLatin1String("int"))
        return VKApplicationParameterTypeInteger;
    return VKApplicationParameterTypeString;
}

std::shared_ptr<VKApplicationOptionConfiguration>
configurationWithIdentifier(const QString &identifier,
                            const VKApplicationOptionConfigurationList &configurations,
                            QString (VKApplicationOptionConfiguration::*getter)() const)
{
    if (identifier.isNull())
        return nullptr;
    for (const auto &configuration : configurations) {
        if (!configuration)
            continue;
        const QString candidate = ((*configuration).*getter)();
        // QString() == QString("") in Qt; a null identifier must not match an empty token.
        if (!candidate.isNull() && candidate == identifier)
            return configuration;
    }
    return nullptr;
}

// A configuration without a long identifier cannot be reported in the parse result.
void requireLongIdentifier(const VKApplicationOptionConfiguration &configuration,
                           const QString &token)
{
    if (configuration.longIdentifier().isNull())
        VKException::raise(VKInvalidArgumentException,
                           QStringLiteral("the option configuration matching \"%@\" has no long "
                                          "identifier"),
                           token);
}

VKLogContext logContext(const VKApplication *application, const char *operation)
{
    return {QStringLiteral("VKApplication"), QString::fromLatin1(operation), application};
}

} // namespace

class VKApplicationPrivate
{
public:
    std::shared_ptr<VKApplicationDelegate> delegate;
    std::optional<VKApplicationDelegateClass> delegateClass;
    // Set from the delegate's thread or any other; read once per turn of the wait.
    std::atomic<bool> finished{false};
    std::atomic<qint64> exitCode{0};
    std::atomic<VKApplication::State> state{VKApplication::State::Created};
    // Only touched on the waiting thread; set while the wait runs.
    QPointer<QEventLoop> waitLoop;
    std::atomic<const void *> waitThread{nullptr};
};

VKApplication::VKApplication() : d(std::make_unique<VKApplicationPrivate>()) {}

VKApplication::~VKApplication() = default;

std::shared_ptr<VKApplicationDelegate> VKApplication::delegate() const
{
    return d->delegate;
}

void VKApplication::setDelegate(const std::shared_ptr<VKApplicationDelegate> &delegate)
{
    d->delegate = delegate;
}

bool VKApplication::isFinished() const
{
    return d->finished.load();
}

qint64 VKApplication::exitCode() const
{
    return d->exitCode.load();
}

void VKApplication::setExitCode(qint64 exitCode)
{
    d->exitCode.store(exitCode);
}

VKApplication::State VKApplication::state() const
{
    return d->state.load();
}

void VKApplication::setFinished(bool finished)
{
    // Once the flag is set, a waiting thread may return and destroy the application, so a caller
    // on another thread must not touch it afterwards: decide where we are first.
    const bool onWaitingThread = d->waitThread.load() == QThread::currentThread();
    d->finished.store(finished);
    if (!finished || !onWaitingThread || !d->waitLoop)
        return;
    // Let the events queued so far run, then stop waiting without the rest of the poll slice.
    QMetaObject::invokeMethod(d->waitLoop.data(), &QEventLoop::quit, Qt::QueuedConnection);
}

qint64 VKApplication::runWithDelegateClass(const VKApplicationDelegateClass &delegateClass,
                                           const QStringList &rawArguments)
{
    d->delegateClass = delegateClass;
    const std::shared_ptr<VKApplicationDelegate> delegate = delegateClass.createDelegate();
    if (!delegate)
        VKException::raise(VKInvalidArgumentException,
                           QStringLiteral("the delegate class %@ created no delegate"),
                           delegateClass.className());
    setDelegate(delegate);
    d->state.store(State::DelegateRunning);
    try {
        const auto arguments =
            parseRawArguments(rawArguments, delegateClass.applicationConfiguration());
        delegate->application(*this, arguments);
        waitUntilFinished();
    } catch (...) {
        // Whatever the delegate had set, a run that an exception ends has failed.
        d->exitCode.store(1);
        d->finished.store(true);
        d->state.store(State::Finished);
        throw;
    }
    d->state.store(State::Finished);
    return exitCode();
}

void VKApplication::waitUntilFinished()
{
    if (d->finished.load())
        return;
    if (!QCoreApplication::instance())
        VKException::raise(VKInternalInconsistencyException,
                           QStringLiteral("VKApplication needs a QCoreApplication to wait for its "
                                          "delegate; run tools with "
                                          "VKRunApplicationWithDelegateClass"));
    d->state.store(State::Waiting);
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(VKApplicationPollInterval);
    QObject::connect(&poll, &QTimer::timeout, &loop, [this, &loop] {
        if (d->finished.load())
            loop.quit();
    });
    d->waitLoop = &loop;
    d->waitThread.store(QThread::currentThread());
    struct EndOfWait
    {
        VKApplicationPrivate *d;
        ~EndOfWait()
        {
            d->waitThread.store(nullptr);
            d->waitLoop = nullptr;
        }
    } endOfWait{d.get()};
    poll.start();
    while (!d->finished.load())
        loop.exec();
}

std::shared_ptr<VKApplicationArguments>
VKApplication::parseRawArguments(const QStringList &rawArguments,
                                 const std::shared_ptr<VKApplicationConfiguration> &configuration)
{
    const VKApplicationOptionConfigurationList configurations =
        configuration ? configuration->optionConfigurations()
                      : VKApplicationOptionConfigurationList();
    QStringList arguments;
    QVariantMap parameters;
    QStringList options;
    const qsizetype count = rawArguments.size();
    for (qsizetype i = 0; i < count; ++i) {
        const QString &token = rawArguments.at(i);
        std::shared_ptr<VKApplicationOptionConfiguration> match;
        if (token.startsWith(u'-') && !token.startsWith(QLatin1String("--")))
            match = configurationWithShortIdentifier(token.mid(1), configurations);
        else if (token.startsWith(QLatin1String("--")))
            match = configurationWithLongIdentifier(token.mid(2), configurations);
        if (!match) {
            arguments.append(token);
            continue;
        }
        // Parameters first: a parameter configuration is a kind of option configuration.
        if (const auto *parameter =
                dynamic_cast<const VKApplicationParameterConfiguration *>(match.get())) {
            // A parameter without a value is dropped before anything else is asked of it.
            if (i + 1 >= count)
                continue;
            requireLongIdentifier(*match, token);
            const QString &text = rawArguments.at(++i);
            QVariant value;
            if (parameter->parameterType() == VKApplicationParameterTypeFloat)
                value = QVariant(VKLenientNumber::floatValue(text));
            else if (parameter->parameterType() == VKApplicationParameterTypeInteger)
                value = QVariant(VKStringRanges::intValue(text));
            else
                value = QVariant(text);
            parameters.insert(parameter->longIdentifier(), value);
        } else {
            requireLongIdentifier(*match, token);
            options.append(match->longIdentifier());
        }
    }
    return std::make_shared<VKApplicationArguments>(arguments, parameters, options);
}

std::shared_ptr<VKApplicationOptionConfiguration> VKApplication::configurationWithShortIdentifier(
    const QString &identifier, const VKApplicationOptionConfigurationList &configurations)
{
    return configurationWithIdentifier(identifier, configurations,
                                       &VKApplicationOptionConfiguration::shortIdentifier);
}

std::shared_ptr<VKApplicationOptionConfiguration> VKApplication::configurationWithLongIdentifier(
    const QString &identifier, const VKApplicationOptionConfigurationList &configurations)
{
    return configurationWithIdentifier(identifier, configurations,
                                       &VKApplicationOptionConfiguration::longIdentifier);
}

void VKApplication::printUsage() const
{
    if (!d->delegateClass)
        return;
    const QByteArray text = usageText(d->delegateClass->applicationConfiguration()).toUtf8();
    std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
    std::fflush(stdout);
}

QString VKApplication::usageText(const std::shared_ptr<VKApplicationConfiguration> &configuration)
{
    if (!configuration)
        return QStringLiteral("\n\n\n\n");
    QString text = configuration->usagePrefix() + QStringLiteral("\n\n");
    const VKApplicationOptionConfigurationList configurations =
        configuration->optionConfigurations();
    if (!configurations.isEmpty())
        text += QStringLiteral("OPTIONS\n");
    for (const auto &item : configurations) {
        if (!item)
            continue;
        // Exact classes only: derived configuration classes describe themselves elsewhere.
        const std::type_info &type = typeid(*item);
        if (type == typeid(VKApplicationOptionConfiguration)) {
            text += QStringLiteral("\t-") + item->shortIdentifier() + QStringLiteral(", --") +
                    item->longIdentifier() + u'\n';
        } else if (type == typeid(VKApplicationParameterConfiguration)) {
            const auto &parameter = static_cast<const VKApplicationParameterConfiguration &>(*item);
            text += QStringLiteral("\t-") + parameter.shortIdentifier() + QStringLiteral(", --") +
                    parameter.longIdentifier() + QStringLiteral(" <") + parameter.parameterName() +
                    QStringLiteral(">\n");
        } else {
            continue;
        }
        text += QStringLiteral("\t\t") + item->usageDescription() + QStringLiteral("\n\n");
    }
    text += u'\n' + configuration->usageSuffix() + u'\n';
    return text;
}

VKApplicationOptionConfigurationList
VKApplication::applicationConfigurationFromFileAtPath(const QString &path)
{
    const std::optional<QVariantMap> dictionary = VKPropertyList::dictionaryWithContentsOfFile(path);
    if (!dictionary)
        return {};
    VKApplicationOptionConfigurationList result;
    for (const QVariant &entry : dictionary->value(VKApplicationConfigurationParameters).toList()) {
        if (entry.metaType().id() == QMetaType::QVariantMap)
            result.append(VKApplicationParameterConfiguration::parameterConfigurationFromDictionary(
                entry.toMap()));
    }
    for (const QVariant &entry : dictionary->value(VKApplicationConfigurationOptions).toList()) {
        if (entry.metaType().id() == QMetaType::QVariantMap)
            result.append(
                VKApplicationOptionConfiguration::optionConfigurationFromDictionary(entry.toMap()));
    }
    return result;
}

VKApplicationOptionConfigurationList
VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
    std::initializer_list<QString> items)
{
    return parametersWithLongIdentifierShortIdentifierUsageTypeAndName(QStringList(items));
}

VKApplicationOptionConfigurationList
VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(const QStringList &items)
{
    return configurationsFromGroups(items, 5, [](const QStringList &group) {
        return VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
            group[0], group[1], group[2], parameterTypeFromName(group[3]), group[4]);
    });
}

VKApplicationOptionConfigurationList
VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
    std::initializer_list<QString> items)
{
    return optionsWithLongIdentifierShortIdentifierAndUsage(QStringList(items));
}

VKApplicationOptionConfigurationList
VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(const QStringList &items)
{
    return configurationsFromGroups(items, 3, [](const QStringList &group) {
        return VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
            group[0], group[1], group[2]);
    });
}

int VKRunApplicationWithDelegateClass(const VKApplicationDelegateClass &delegateClass, int argc,
                                      char **argv)
{
    QStringList rawArguments;
    for (int i = 1; i < argc && argv && argv[i]; ++i)
        rawArguments.append(QString::fromUtf8(argv[i]));

    // The application object keeps a reference to the count, so it lives in this frame.
    int applicationArgc = argv ? argc : 0;
    char *noArguments[] = {nullptr};
    std::unique_ptr<QCoreApplication> ownApplication;
    if (!QCoreApplication::instance())
        ownApplication =
            std::make_unique<QCoreApplication>(applicationArgc, argv ? argv : noArguments);

    // Hosts listen for launch and termination (the action dispatch links its targets at
    // launch): "will finish launching" now, "did finish launching" on the wait's first turn.
    VKApplicationLifecycle::attachToApplication();

    int result = 1;
    {
        VKApplication application;
        try {
            result =
                static_cast<int>(application.runWithDelegateClass(delegateClass, rawArguments));
        } catch (const VKException &exception) {
            VKLogger::error(logContext(&application, "VKRunApplicationWithDelegateClass"),
                            QStringLiteral("%@ stopped the run: %@"), exception.name(),
                            exception.reason());
        } catch (const std::exception &exception) {
            VKLogger::error(logContext(&application, "VKRunApplicationWithDelegateClass"),
                            QStringLiteral("an exception stopped the run: %s"), exception.what());
        } catch (...) {
            VKLogger::error(logContext(&application, "VKRunApplicationWithDelegateClass"),
                            QStringLiteral("an exception of unknown type stopped the run"));
        }
    }
    // An application made here ends with the run; one the host made lives on, and its end is
    // announced when it quits.
    if (ownApplication)
        VKApplicationLifecycle::applicationWillTerminate();
    std::fflush(stdout);
    return result;
}
