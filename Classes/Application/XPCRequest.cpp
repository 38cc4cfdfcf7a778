#include "Application/XPCRequest.h"

#include "Application/XPCHelpers.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKLogger.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QMap>

#include <mutex>

namespace {

using StringMap = QMap<QString, QString>;

VKLogContext logContext(const XPCRequest *request)
{
    return {QStringLiteral("XPCRequest"), QStringLiteral("-[XPCRequest send]"), request};
}

// Text as a C string carries it: up to the first NUL.
QString cStringText(const QString &text)
{
    const qsizetype nul = text.indexOf(QChar(u'\0'));
    return nul < 0 ? text : text.left(nul);
}

enum class Failure { Other, Invalid, Interrupted };

Failure failureOf(const QDBusMessage &reply)
{
    const QString name = reply.errorName();
    // The service is not on the bus, or its name cannot be one.
    if (name == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown") ||
        name == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner") ||
        name == QDBusError::errorString(QDBusError::InvalidService))
        return Failure::Invalid;
    // The service left the bus before answering (the daemon answers NoReply for it), the answer
    // did not come in time, or our own connection went.
    if (name == QLatin1String("org.freedesktop.DBus.Error.NoReply") ||
        name == QLatin1String("org.freedesktop.DBus.Error.Disconnected"))
        return Failure::Interrupted;
    return Failure::Other;
}

std::optional<QVariantMap> replyDictionary(const QDBusMessage &reply)
{
    if (reply.signature() != QLatin1String("a{sv}"))
        return std::nullopt;
    const QVariant argument = reply.arguments().constFirst();
    if (argument.metaType() == QMetaType::fromType<QVariantMap>())
        return decode_dictionary_from_xpc_object(argument.toMap());
    return decode_dictionary_from_xpc_object(qdbus_cast<QVariantMap>(argument));
}

} // namespace

struct XPCRequest::Private
{
    QString connectionName;
    QVariantMap parameters;
    int timeout = XPCRequest::defaultTimeout;
};

XPCRequest::XPCRequest(const QString &connectionName) : d(std::make_unique<Private>())
{
    d->connectionName = connectionName;
}

XPCRequest::~XPCRequest() = default;

QString XPCRequest::connectionName() const
{
    return d->connectionName;
}

void XPCRequest::setConnectionName(const QString &connectionName)
{
    d->connectionName = connectionName;
}

QVariantMap XPCRequest::parameters() const
{
    return d->parameters;
}

void XPCRequest::setParameters(const QVariantMap &parameters)
{
    d->parameters = parameters;
}

int XPCRequest::timeout() const
{
    return d->timeout;
}

void XPCRequest::setTimeout(int milliseconds)
{
    d->timeout = milliseconds;
}

std::optional<QVariantMap> XPCRequest::send() const
{
    static std::once_flag registered;
    std::call_once(registered, [] { qDBusRegisterMetaType<StringMap>(); });

    const QString service = cStringText(d->connectionName);
    // Every parameter travels as the C string of its description, whatever its type.
    StringMap message;
    for (auto it = d->parameters.cbegin(); it != d->parameters.cend(); ++it)
        message.insert(cStringText(it.key()), cStringText(VKFormat::describe(it.value())));

    QDBusConnection bus = QDBusConnection::sessionBus();
    QDBusMessage reply;
    Failure failure = Failure::Invalid;
    if (bus.isConnected()) {
        QDBusMessage call =
            QDBusMessage::createMethodCall(service, QLatin1String(objectPath),
                                           QLatin1String(interfaceName), QLatin1String(methodName));
        call << QVariant::fromValue(message);
        reply = bus.call(call, QDBus::Block, d->timeout);
        if (reply.type() == QDBusMessage::ReplyMessage)
            return replyDictionary(reply);
        if (reply.type() != QDBusMessage::ErrorMessage)
            return std::nullopt;
        failure = failureOf(reply);
    }
    // Every error reply is logged; only the two connection failures say more.
    VKLogger::error(logContext(this), QStringLiteral("error calling metadata XPC service"));
    if (failure == Failure::Interrupted)
        VKLogger::error(logContext(this),
                        QStringLiteral("premature exit of service, maybe it crashed?"));
    else if (failure == Failure::Invalid)
        VKLogger::error(logContext(this),
                        QStringLiteral("connection is invalid, service %s not found"), service);
    return std::nullopt;
}
