#include "VKMetadataServiceTool.h"

#include "Application/XPCHelpers.h"
#include "Application/XPCRequest.h"
#include "Files/VKFileSequence.h"
#include "VKToolSupport.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using StringMap = QMap<QString, QString>;

const QString kName = QStringLiteral("name");
const QString kExitMidCall = QStringLiteral("exit-mid-call");
const QString kHelp = QStringLiteral("help");
const QString kPath = QStringLiteral("path");

// How many leading bytes of a file the reply carries (enough for any file signature).
constexpr qint64 kHeaderLength = 16;

int signalPipe[2] = {-1, -1};

void onTerminationSignal(int)
{
    const char byte = 1;
    // Nothing to do if the pipe is full: a wake-up is already pending.
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

QDBusMessage errorReply(const QDBusMessage &message, const char *name, const QString &text)
{
    return message.createErrorReply(QLatin1String(name), text);
}

// The run of `path` among the visible files of its folder, or nothing.
QStringList sequenceRunOf(const QString &path)
{
    const QFileInfo info(path);
    if (info.fileName().startsWith(u'.'))
        return {};
    const QDir folder = info.absoluteDir();
    QStringList files;
    for (const QString &name : folder.entryList(QDir::Files | QDir::NoDotAndDotDot))
        files.append(folder.filePath(name));
    for (const QStringList &run : VKFileSequence::sequencesWithFiles(files)) {
        if (run.contains(path))
            return run;
    }
    return {};
}

} // namespace

QString VKMetadataServiceObject::introspect(const QString &) const
{
    return QStringLiteral("  <interface name=\"%1\">\n"
                          "    <method name=\"%2\">\n"
                          "      <arg name=\"parameters\" type=\"a{ss}\" direction=\"in\"/>\n"
                          "      <arg name=\"reply\" type=\"a{sv}\" direction=\"out\"/>\n"
                          "    </method>\n"
                          "  </interface>\n")
        .arg(QLatin1String(XPCRequest::interfaceName), QLatin1String(XPCRequest::methodName));
}

bool VKMetadataServiceObject::handleMessage(const QDBusMessage &message,
                                            const QDBusConnection &connection)
{
    if (message.type() != QDBusMessage::MethodCallMessage ||
        message.interface() != QLatin1String(XPCRequest::interfaceName) ||
        message.member() != QLatin1String(XPCRequest::methodName))
        return false;
    if (m_exitMidCall)
        std::_Exit(70);
    connection.send(answer(message));
    return true;
}

QDBusMessage VKMetadataServiceObject::answer(const QDBusMessage &message)
{
    if (message.signature() != QLatin1String("a{ss}")) {
        return errorReply(message, invalidArgsError,
                          QStringLiteral("Send takes one dictionary of string parameters "
                                         "(a{ss}), not (%1)")
                              .arg(message.signature()));
    }
    const StringMap parameters = qdbus_cast<StringMap>(message.arguments().constFirst());
    if (!parameters.contains(kPath))
        return errorReply(message, invalidArgsError, QStringLiteral("missing parameter \"path\""));
    const QString given = parameters.value(kPath);
    if (!QDir::isAbsolutePath(given))
        return errorReply(message, invalidArgsError,
                          QStringLiteral("the path must be absolute: \"%1\"").arg(given));
    const QString path = QDir::cleanPath(given);

    struct stat st
    {
    };
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) {
        const int error = errno;
        return errorReply(
            message, error == ENOENT ? fileNotFoundError : failedError,
            QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(std::strerror(error))));
    }
    if (!S_ISREG(st.st_mode))
        return errorReply(message, notAFileError, QStringLiteral("%1: not a file").arg(path));

    const qint64 modifiedMs =
        qint64(st.st_mtim.tv_sec) * 1000 + qint64(st.st_mtim.tv_nsec) / 1000000;
    QVariantMap facts;
    facts.insert(kPath, path);
    facts.insert(QStringLiteral("size"), QVariant::fromValue(qulonglong(st.st_size)));
    facts.insert(QStringLiteral("modificationDate"),
                 QDateTime::fromMSecsSinceEpoch(modifiedMs, Qt::UTC));
    facts.insert(QStringLiteral("modificationTime"),
                 double(st.st_mtim.tv_sec) + double(st.st_mtim.tv_nsec) / 1e9);
    QFile file(path);
    facts.insert(QStringLiteral("header"),
                 file.open(QIODevice::ReadOnly) ? file.read(kHeaderLength) : QByteArray());

    const QStringList run = sequenceRunOf(path);
    const bool member = run.size() > 1;
    facts.insert(QStringLiteral("isSequenceMember"), member);
    if (member) {
        const auto sequence = VKFileSequence::fileSequenceWithSequenceOfFiles(run);
        facts.insert(QStringLiteral("sequenceIdentifier"), sequence->identifier());
        facts.insert(QStringLiteral("sequenceFrameCount"),
                     QVariant::fromValue(qulonglong(sequence->numberOfFiles())));
        facts.insert(QStringLiteral("frameNumber"),
                     QVariant::fromValue(qlonglong(VKFileSequence::frameNumberForFile(path))));
    }

    // Other parameters come back as they were sent, so that callers can tag their requests.
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
        if (!facts.contains(it.key()))
            facts.insert(it.key(), it.value());
    }

    QVariantMap reply;
    encode_dictionary_as_xpc_object(reply, facts);
    return message.createReply(QVariant::fromValue(reply));
}

std::shared_ptr<VKApplicationConfiguration> VKMetadataServiceTool::applicationConfiguration()
{
    VKApplicationOptionConfigurationList list;
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kName, QStringLiteral("n"),
        QStringLiteral("The bus name to own (default %1)").arg(QLatin1String(defaultName)),
        VKApplicationParameterTypeString, QStringLiteral("name")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kExitMidCall, QStringLiteral("x"),
        QStringLiteral("Testing: exit on the first request without answering it")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kHelp, QStringLiteral("h"), QStringLiteral("Print this text")));
    return std::make_shared<VKApplicationConfiguration>(
        QStringLiteral(
            "usage: vkmetad [options]\n\n"
            "Answers metadata requests on the session bus: method Send of interface\n"
            "org.vessan.Utilities.Request at object path /, with a dictionary of string\n"
            "parameters (a{ss}) holding \"path\", an absolute file path. The reply (a{sv})\n"
            "holds path, size, modificationDate, modificationTime, header (the first 16\n"
            "bytes) and isSequenceMember; for a member of a numbered file sequence also\n"
            "sequenceIdentifier, sequenceFrameCount and frameNumber. Other parameters are\n"
            "answered back unchanged. Runs until SIGTERM; exits when the bus goes."),
        QStringLiteral(
            "EXAMPLE\n"
            "\tgdbus call --session --dest org.vessan.Utilities.Metadata "
            "--object-path / \\\n"
            "\t\t--method org.vessan.Utilities.Request.Send "
            "\"{'path': '/shots/A/clip_0001.dpx'}\"\n\n"
            "EXIT STATUS\n"
            "\t0 after SIGTERM or SIGINT; 1 no session bus, the name is taken or the bus went."),
        list);
}

VKMetadataServiceTool::VKMetadataServiceTool() = default;

VKMetadataServiceTool::~VKMetadataServiceTool()
{
    if (m_object)
        QDBusConnection::sessionBus().unregisterObject(QStringLiteral("/"));
}

void VKMetadataServiceTool::application(VKApplication &application,
                                        const std::shared_ptr<VKApplicationArguments> &arguments)
{
    const auto fail = [&application](const QString &text) {
        vkToolWrite(stderr, QStringLiteral("vkmetad: %1\n").arg(text));
        vkToolFinish(application, 1);
    };
    if (arguments->options().contains(kHelp)) {
        application.printUsage();
        vkToolFinish(application, 0);
        return;
    }
    m_name = arguments->parameters().value(kName, QLatin1String(defaultName)).toString();

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        fail(QStringLiteral("no session bus: %1").arg(bus.lastError().message()));
        return;
    }
    qDBusRegisterMetaType<StringMap>();
    m_object =
        std::make_unique<VKMetadataServiceObject>(arguments->options().contains(kExitMidCall));
    if (!bus.registerVirtualObject(QStringLiteral("/"), m_object.get())) {
        fail(QStringLiteral("cannot serve object path /"));
        return;
    }
    if (!bus.registerService(m_name)) {
        fail(QStringLiteral("cannot own the name %1: %2").arg(m_name, bus.lastError().message()));
        return;
    }

    // SIGTERM and SIGINT end the run on the event loop, so that the name is given back.
    if (::pipe(signalPipe) == 0) {
        m_signalNotifier = std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read);
        QObject::connect(m_signalNotifier.get(), &QSocketNotifier::activated, [this, &application] {
            QDBusConnection::sessionBus().unregisterService(m_name);
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
    // A service whose bus went away has no one left to serve.
    m_busWatch = std::make_unique<QTimer>();
    QObject::connect(m_busWatch.get(), &QTimer::timeout, [&application] {
        if (!QDBusConnection::sessionBus().isConnected()) {
            vkToolWrite(stderr, QStringLiteral("vkmetad: lost the session bus\n"));
            vkToolFinish(application, 1);
        }
    });
    m_busWatch->start(1000);
    vkToolWrite(stdout, QStringLiteral("vkmetad: serving %1\n").arg(m_name));
    std::fflush(stdout);
}
