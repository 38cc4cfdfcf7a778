#include "VKReportServerTool.h"

#include "VKReportServer.h"
#include "VKToolSupport.h"

#include <QDir>
#include <QSocketNotifier>

#include <csignal>
#include <optional>

#include <unistd.h>

namespace {

const QString kPort = QStringLiteral("port");
const QString kDir = QStringLiteral("dir");
const QString kAddress = QStringLiteral("address");
const QString kMaxBody = QStringLiteral("max-body");
const QString kMaxUnpacked = QStringLiteral("max-unpacked");
const QString kIdleTimeout = QStringLiteral("idle-timeout");
const QString kHelp = QStringLiteral("help");
constexpr double kDefaultIdleSeconds = 60;

int signalPipe[2] = {-1, -1};

void onTerminationSignal(int)
{
    const char byte = 1;
    // Nothing to do if the pipe is full: a wake-up is already pending.
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

// A whole number of at least `minimum` from the option `key`, or nothing.
std::optional<qint64> numberOption(const VKApplicationArguments &arguments, const QString &key,
                                   qint64 fallback, qint64 minimum, qint64 maximum)
{
    const QVariant value = arguments.parameters().value(key);
    if (!value.isValid())
        return fallback;
    bool ok = false;
    const qint64 number = value.toString().toLongLong(&ok);
    if (!ok || number < minimum || number > maximum)
        return std::nullopt;
    return number;
}

} // namespace

std::shared_ptr<VKApplicationConfiguration> VKReportServerTool::applicationConfiguration()
{
    const VKUploadLimits limits;
    VKApplicationOptionConfigurationList list;
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kPort, QStringLiteral("p"),
        QStringLiteral("The port to listen on, 0 for any free one (default %1)").arg(defaultPort),
        VKApplicationParameterTypeString, QStringLiteral("port")));
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kDir, QStringLiteral("d"),
        QStringLiteral("The folder that receives the reports (default ./reports)"),
        VKApplicationParameterTypeString, QStringLiteral("folder")));
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kAddress, QStringLiteral("a"),
        QStringLiteral("The address to listen on (default 127.0.0.1; 0.0.0.0 for all)"),
        VKApplicationParameterTypeString, QStringLiteral("address")));
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kMaxBody, QStringLiteral("b"),
        QStringLiteral("The largest request body taken, in bytes (default %1)")
            .arg(limits.maxBodyBytes),
        VKApplicationParameterTypeString, QStringLiteral("bytes")));
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kMaxUnpacked, QStringLiteral("u"),
        QStringLiteral("The most bytes the archives of one report may unpack to (default %1)")
            .arg(limits.maxUnpackedBytes),
        VKApplicationParameterTypeString, QStringLiteral("bytes")));
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kIdleTimeout, QStringLiteral("i"),
        QStringLiteral("Close a connection that stays silent this long; fractions allowed "
                       "(default %1)")
            .arg(kDefaultIdleSeconds),
        VKApplicationParameterTypeString, QStringLiteral("seconds")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kHelp, QStringLiteral("h"), QStringLiteral("Print this text")));
    return std::make_shared<VKApplicationConfiguration>(
        QStringLiteral(
            "usage: vkreportd [options]\n\n"
            "Receives crash and bug reports posted as multipart forms to\n"
            "/bugreports/sendbugreport.php and /orvanta/sendbugreport.php and stores each one\n"
            "as a folder <yyyyMMdd-HHmmss>-<n> (UTC): a <field>.txt per field, attachments\n"
            "under their file names, zip archives also unpacked into a folder beside them,\n"
            "and _parts.tsv listing the parts in the order they came. Prints one line per\n"
            "request. Runs until SIGTERM or SIGINT."),
        QStringLiteral("EXAMPLE\n"
                       "\tvkreportd --port 8080 --dir /srv/reports\n\n"
                       "EXIT STATUS\n"
                       "\t0 after SIGTERM or SIGINT; 1 the port or folder cannot be used; 2 a "
                       "bad option value."),
        list);
}

VKReportServerTool::VKReportServerTool() = default;
VKReportServerTool::~VKReportServerTool() = default;

void VKReportServerTool::application(VKApplication &application,
                                     const std::shared_ptr<VKApplicationArguments> &arguments)
{
    const auto fail = [&application](int status, const QString &text) {
        vkToolWrite(stderr, QStringLiteral("vkreportd: %1\n").arg(text));
        vkToolFinish(application, status);
    };
    if (arguments->options().contains(kHelp)) {
        application.printUsage();
        vkToolFinish(application, 0);
        return;
    }
    VKUploadLimits limits;
    const auto port = numberOption(*arguments, kPort, defaultPort, 0, 65535);
    const auto maxBody =
        numberOption(*arguments, kMaxBody, limits.maxBodyBytes, 1, qint64(1) << 40);
    const auto maxUnpacked =
        numberOption(*arguments, kMaxUnpacked, limits.maxUnpackedBytes, 0, qint64(1) << 50);
    if (!port) {
        fail(2, QStringLiteral("--port takes a number from 0 to 65535"));
        return;
    }
    if (!maxBody || !maxUnpacked) {
        fail(2, QStringLiteral("--max-body and --max-unpacked take a positive number of bytes"));
        return;
    }
    bool idleOk = true;
    const double idleSeconds =
        arguments->parameters().contains(kIdleTimeout)
            ? arguments->parameters().value(kIdleTimeout).toString().toDouble(&idleOk)
            : kDefaultIdleSeconds;
    // At least a millisecond, at most a day.
    if (!idleOk || !(idleSeconds >= 0.001 && idleSeconds <= 86400)) {
        fail(2, QStringLiteral("--idle-timeout takes a number of seconds from 0.001 to 86400"));
        return;
    }
    limits.maxBodyBytes = *maxBody;
    limits.maxUnpackedBytes = *maxUnpacked;
    const QString addressText =
        arguments->parameters().value(kAddress, QStringLiteral("127.0.0.1")).toString();
    const QHostAddress address(addressText);
    if (address.isNull()) {
        fail(2, QStringLiteral("not an address: %1").arg(addressText));
        return;
    }
    const QString folder = QDir::current().absoluteFilePath(
        arguments->parameters().value(kDir, QStringLiteral("reports")).toString());
    if (!QDir().mkpath(folder)) {
        fail(1, QStringLiteral("cannot make the folder %1").arg(folder));
        return;
    }

    m_server = std::make_unique<VKReportServer>(folder, limits);
    m_server->setIdleTimeout(std::chrono::milliseconds(qRound64(idleSeconds * 1000)));
    QString error;
    const quint16 bound = m_server->listenOn(address, quint16(*port), &error);
    if (bound == 0) {
        fail(1, QStringLiteral("cannot listen on %1 port %2: %3")
                    .arg(address.toString())
                    .arg(*port)
                    .arg(error));
        return;
    }

    // SIGTERM and SIGINT end the run on the event loop, after the request in hand.
    if (::pipe(signalPipe) == 0) {
        m_signalNotifier = std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read);
        QObject::connect(m_signalNotifier.get(), &QSocketNotifier::activated, [this, &application] {
            m_signalNotifier->setEnabled(false);
            vkToolFinish(application, 0);
        });
        struct sigaction action
        {
        };
        action.sa_handler = onTerminationSignal;
        sigemptyset(&action.sa_mask);
        ::sigaction(SIGTERM, &action, nullptr);
        ::sigaction(SIGINT, &action, nullptr);
    }
    vkToolWrite(stdout, QStringLiteral("vkreportd: listening on %1 port %2, reports in %3\n")
                            .arg(address.toString())
                            .arg(bound)
                            .arg(folder));
    std::fflush(stdout);
}
