// The HTTP side of vkreportd: accepts report uploads on the two report paths, reads them with
// VKMultipartReader, stores them with VKReportStore and logs one line per request.
//
// Each connection is watched before the HTTP parser reads it: the bytes received are counted
// as they arrive and a Content-Length above the limit is refused at once, so that a huge body
// is never buffered. A refused connection gets a 413 answer, its further bytes are read and
// thrown away (up to a cap) and its sending side is shut so that the client sees the answer.
//
// Each connection also has an idle timer, restarted whenever bytes arrive or leave. When it runs
// out, a connection in the middle of a request gets a 408 answer and is closed; one that sent
// nothing since its last answer (or ever) is closed without an answer. Only the 408 and a
// connection that never sent a byte are logged: idle keep-alive connections close quietly.
// Everything runs on the thread that owns the server (the main thread); no locks.
#pragma once

#include "VKMultipartReader.h"

#include <QAbstractHttpServer>
#include <QHostAddress>

#include <chrono>
#include <functional>

class QTcpSocket;

class VKReportServer : public QAbstractHttpServer
{
public:
    // The paths reports are posted to: crash reports and bug reports.
    static constexpr char crashReportPath[] = "/bugreports/sendbugreport.php";
    static constexpr char bugReportPath[] = "/orvanta/sendbugreport.php";

    VKReportServer(const QString &folder, const VKUploadLimits &limits);
    ~VKReportServer() override;

    // Listens on `address`:`port` (0 picks a free port) and answers the port, or 0 with the
    // reason in `error`.
    quint16 listenOn(const QHostAddress &address, quint16 port, QString *error);

    // Where each log line goes (standard output by default).
    void setLogger(std::function<void(const QString &)> logger);

    // How long a connection may stay silent before it is closed; applies to connections
    // accepted afterwards.
    void setIdleTimeout(std::chrono::milliseconds timeout);

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    friend class VKGuardedTcpServer;
    void watch(QTcpSocket *socket);
    void refuse(QTcpSocket *socket, const QString &reason);
    void closeIdle(QTcpSocket *socket);
    // Logs and writes a last plain-text answer ("413 Payload Too Large" and `text`) on a
    // connection that the HTTP parser will not finish.
    void answerOutsideParser(QTcpSocket *socket, const QByteArray &status, const QString &text);
    void log(const QString &peer, const QString &what);

    QString m_folder;
    VKUploadLimits m_limits;
    std::chrono::milliseconds m_idleTimeout{std::chrono::seconds(60)};
    std::function<void(const QString &)> m_logger;
};
