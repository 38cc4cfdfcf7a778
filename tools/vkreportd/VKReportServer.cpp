#include "VKReportServer.h"

#include "VKReportStore.h"

#include <QDateTime>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cstdio>

#include <sys/socket.h>

namespace {

// Room for the request line and headers on top of the body limit.
constexpr qint64 kHeaderAllowance = 64 * 1024;
// A refused client may finish sending what it started; beyond this it is cut off.
constexpr qint64 kDrainFactor = 4;

const char kReceivedProperty[] = "vkReceivedBytes";
const char kRefusedProperty[] = "vkRefused";
const char kDrainedProperty[] = "vkDrainedBytes";
const char kTargetProperty[] = "vkRequestTarget";
const char kAnsweredProperty[] = "vkAnswered";
// The request's head as far as it has arrived (the parser takes each arrival after the watch
// has seen it); set to null once the head was read whole, or could not be.
const char kHeadProperty[] = "vkRequestHead";

using StatusCode = QHttpServerResponder::StatusCode;

QString peerOf(const QTcpSocket *socket)
{
    return socket->peerAddress().toString();
}

// The target of the request line at the start of `bytes` ("/x" of "POST /x HTTP/1.1").
QString targetOf(const QByteArray &bytes)
{
    const QByteArray line = bytes.left(bytes.indexOf("\r\n"));
    const QList<QByteArray> words = line.split(' ');
    return words.size() == 3 ? QString::fromLatin1(words.at(1).left(200)) : QStringLiteral("-");
}

// The Content-Length of the request head at the start of `bytes`, -1 when there is none yet.
qint64 contentLengthOf(const QByteArray &bytes)
{
    const qsizetype end = bytes.indexOf("\r\n\r\n");
    if (end < 0)
        return -1;
    for (const QByteArray &line : bytes.left(end).split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed().toLower() == "content-length") {
            bool ok = false;
            const qint64 length = line.mid(colon + 1).trimmed().toLongLong(&ok);
            return ok ? length : -1;
        }
    }
    return -1;
}

} // namespace

// Hands every new connection to VKReportServer::watch before the HTTP parser connects to it,
// so that the watch runs first on each arrival of bytes.
class VKGuardedTcpServer : public QTcpServer
{
public:
    VKGuardedTcpServer(VKReportServer *owner, std::chrono::milliseconds idleTimeout)
        : m_owner(owner), m_idleTimeout(idleTimeout)
    {}

protected:
    void incomingConnection(qintptr handle) override
    {
        auto *socket = new QTcpSocket(this);
        if (!socket->setSocketDescriptor(handle)) {
            delete socket;
            return;
        }
        QObject::connect(socket, &QTcpSocket::readyRead, socket,
                         [owner = m_owner, socket] { owner->watch(socket); });
        // Owned by the socket, so it goes with the connection.
        auto *idle = new QTimer(socket);
        idle->setSingleShot(true);
        idle->setInterval(m_idleTimeout);
        QObject::connect(idle, &QTimer::timeout, socket,
                         [owner = m_owner, socket] { owner->closeIdle(socket); });
        const auto restart = [idle] { idle->start(); };
        QObject::connect(socket, &QTcpSocket::readyRead, idle, restart);
        QObject::connect(socket, &QTcpSocket::bytesWritten, idle, restart);
        QObject::connect(socket, &QTcpSocket::disconnected, idle, &QTimer::stop);
        idle->start();
        addPendingConnection(socket);
    }

private:
    VKReportServer *m_owner;
    std::chrono::milliseconds m_idleTimeout;
};

VKReportServer::VKReportServer(const QString &folder, const VKUploadLimits &limits)
    : m_folder(folder), m_limits(limits)
{
    m_logger = [](const QString &line) {
        std::fputs(qPrintable(line + u'\n'), stdout);
        std::fflush(stdout);
    };
}

VKReportServer::~VKReportServer() = default;

void VKReportServer::setIdleTimeout(std::chrono::milliseconds timeout)
{
    m_idleTimeout = timeout;
}

void VKReportServer::setLogger(std::function<void(const QString &)> logger)
{
    m_logger = std::move(logger);
}

quint16 VKReportServer::listenOn(const QHostAddress &address, quint16 port, QString *error)
{
    auto *server = new VKGuardedTcpServer(this, m_idleTimeout);
    if (!server->listen(address, port)) {
        *error = server->errorString();
        delete server;
        return 0;
    }
    bind(server);
    return server->serverPort();
}

void VKReportServer::log(const QString &peer, const QString &what)
{
    m_logger(QStringLiteral("%1 %2 %3")
                 .arg(QDateTime::currentDateTimeUtc().toString(Qt::ISODate), peer, what));
}

void VKReportServer::watch(QTcpSocket *socket)
{
    if (socket->property(kRefusedProperty).toBool()) {
        if (socket->isTransactionStarted())
            socket->commitTransaction();
        const qint64 drained =
            socket->property(kDrainedProperty).toLongLong() + socket->readAll().size();
        socket->setProperty(kDrainedProperty, drained);
        if (drained > kDrainFactor * (m_limits.maxBodyBytes + kHeaderAllowance))
            socket->abort();
        return;
    }
    const qint64 before = socket->property(kReceivedProperty).toLongLong();
    const qint64 received = before + socket->bytesAvailable();
    socket->setProperty(kReceivedProperty, received);
    const QVariant headSoFar = socket->property(kHeadProperty);
    if (before == 0 || headSoFar.isValid()) {
        // Until the head is complete (it may come in pieces): refuse a declared length that is
        // too large as soon as it is known.
        const QByteArray head = headSoFar.toByteArray() +
                                socket->peek(kHeaderAllowance - headSoFar.toByteArray().size());
        socket->setProperty(kTargetProperty, targetOf(head));
        const bool whole = head.contains("\r\n\r\n") || head.size() >= kHeaderAllowance;
        socket->setProperty(kHeadProperty, whole ? QVariant() : QVariant(head));
        const qint64 length = contentLengthOf(head);
        if (length > m_limits.maxBodyBytes) {
            refuse(socket, QStringLiteral("declared body of %1 bytes, more than %2")
                               .arg(length)
                               .arg(m_limits.maxBodyBytes));
            return;
        }
    }
    if (received > m_limits.maxBodyBytes + kHeaderAllowance)
        refuse(socket, QStringLiteral("request of more than %1 bytes")
                           .arg(m_limits.maxBodyBytes + kHeaderAllowance));
}

void VKReportServer::answerOutsideParser(QTcpSocket *socket, const QByteArray &status,
                                         const QString &text)
{
    log(peerOf(socket), QStringLiteral("%1 %2 %3")
                            .arg(QString::fromLatin1(status.left(3)),
                                 socket->property(kTargetProperty).toString(), text));
    const QByteArray body = text.toUtf8() + '\n';
    socket->write("HTTP/1.1 " + status +
                  "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " +
                  QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
}

void VKReportServer::refuse(QTcpSocket *socket, const QString &reason)
{
    // The HTTP parser sees nothing more of this connection.
    QObject::disconnect(socket, &QTcpSocket::readyRead, this, nullptr);
    socket->setProperty(kRefusedProperty, true);
    if (socket->isTransactionStarted())
        socket->commitTransaction();
    socket->setProperty(kDrainedProperty, socket->readAll().size());
    answerOutsideParser(socket, "413 Payload Too Large", reason);
    // Shut the sending side once the answer is out; the client closes when it has read it.
    QObject::connect(socket, &QTcpSocket::bytesWritten, socket, [socket] {
        if (socket->bytesToWrite() == 0)
            ::shutdown(int(socket->socketDescriptor()), SHUT_WR);
    });
    socket->flush();
}

void VKReportServer::closeIdle(QTcpSocket *socket)
{
    if (socket->state() != QAbstractSocket::ConnectedState)
        return;
    if (socket->property(kRefusedProperty).toBool()) {
        socket->abort(); // its 413 is logged already
        return;
    }
    const QString seconds = QString::number(double(m_idleTimeout.count()) / 1000.0);
    if (socket->property(kReceivedProperty).toLongLong() > 0) {
        answerOutsideParser(
            socket, "408 Request Timeout",
            QStringLiteral("request unfinished after %1 s of silence").arg(seconds));
        socket->disconnectFromHost();
        return;
    }
    if (!socket->property(kAnsweredProperty).toBool())
        log(peerOf(socket), QStringLiteral("- - closed: nothing sent for %1 s").arg(seconds));
    socket->abort();
}

bool VKReportServer::handleRequest(const QHttpServerRequest &request, QTcpSocket *socket)
{
    // The next request on this connection counts anew.
    socket->setProperty(kReceivedProperty, 0);
    socket->setProperty(kAnsweredProperty, true);
    QHttpServerResponder responder = makeResponder(request, socket);
    const QString path = request.url().path();
    const QString peer = peerOf(socket);
    const auto answer = [&](StatusCode status, const QString &text) {
        log(peer, QStringLiteral("%1 %2 %3").arg(int(status)).arg(path, text));
        responder.write(text.toUtf8() + '\n', "text/plain; charset=utf-8", status);
    };

    if (path != QLatin1String(crashReportPath) && path != QLatin1String(bugReportPath)) {
        answer(StatusCode::NotFound, QStringLiteral("no such path"));
        return true;
    }
    if (request.method() != QHttpServerRequest::Method::Post) {
        answer(StatusCode::MethodNotAllowed, QStringLiteral("reports are sent with POST"));
        return true;
    }
    const QByteArray boundary =
        VKMultipartReader::boundaryOfContentType(request.value("Content-Type"));
    if (boundary.isNull()) {
        answer(StatusCode::BadRequest, QStringLiteral("not multipart/form-data with a boundary"));
        return true;
    }
    const VKMultipartReader::Result form =
        VKMultipartReader::read(request.body(), boundary, m_limits);
    if (form.status != VKMultipartReader::Ok) {
        answer(form.status == VKMultipartReader::TooLarge ? StatusCode::PayloadTooLarge
                                                          : StatusCode::BadRequest,
               form.error);
        return true;
    }
    const VKReportStore::Result stored =
        VKReportStore(m_folder, m_limits).store(form.parts, QDateTime::currentDateTimeUtc());
    switch (stored.status) {
    case VKReportStore::Stored: {
        QString text = QStringLiteral("stored %1 (%2 fields, %3 files, %4 archives, %5 bytes)")
                           .arg(stored.folderName)
                           .arg(stored.fieldCount)
                           .arg(stored.fileCount)
                           .arg(stored.archiveCount)
                           .arg(stored.byteCount);
        for (const QString &note : stored.notes)
            text += QStringLiteral("; ") + note;
        answer(StatusCode::Ok, text);
        break;
    }
    case VKReportStore::TooLarge:
        answer(StatusCode::PayloadTooLarge, stored.error);
        break;
    case VKReportStore::Failed:
        answer(StatusCode::InternalServerError, stored.error);
        break;
    }
    return true;
}

void VKReportServer::missingHandler(const QHttpServerRequest &request, QTcpSocket *socket)
{
    makeResponder(request, socket).write(StatusCode::NotFound);
}
