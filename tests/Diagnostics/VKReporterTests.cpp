#include "Diagnostics/VKReporter.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <QDesktopServices>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

namespace {

// A one-request-at-a-time HTTP server on 127.0.0.1 that keeps what arrives: the request line,
// the headers and the body. It answers with `status`, or closes the socket once
// `closeAfterBytes` of the body have arrived.
class TestHTTPServer : public QObject
{
public:
    int status = 200;
    QByteArray reason = "OK";
    QByteArray answer = "thanks";
    qint64 closeAfterBytes = -1;

    QByteArray requestLine;
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;
    int requests = 0;

    TestHTTPServer()
    {
        m_server.listen(QHostAddress::LocalHost);
        QObject::connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                auto buffer = std::make_shared<QByteArray>();
                QObject::connect(socket, &QTcpSocket::readyRead, this,
                                 [this, socket, buffer] { read(socket, *buffer); });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }
    QString address(const QString &path = "/bugreports/sendbugreport.php") const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
    }

private:
    void read(QTcpSocket *socket, QByteArray &buffer)
    {
        buffer += socket->readAll();
        const qsizetype end = buffer.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        const QList<QByteArray> lines = buffer.left(end).split('\n');
        QMap<QByteArray, QByteArray> received;
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const QByteArray line = lines[i].trimmed();
            const qsizetype colon = line.indexOf(':');
            received[line.left(colon).toLower()] = line.mid(colon + 1).trimmed();
        }
        const qint64 length = received.value("content-length").toLongLong();
        const qint64 have = buffer.size() - end - 4;
        if (closeAfterBytes >= 0 && have >= closeAfterBytes) {
            socket->abort();
            return;
        }
        if (have < length)
            return;
        requestLine = lines[0].trimmed();
        headers = received;
        body = buffer.mid(end + 4, length);
        buffer.clear();
        ++requests;
        socket->write("HTTP/1.1 " + QByteArray::number(status) + " " + reason +
                      "\r\nContent-Length: " + QByteArray::number(answer.size()) +
                      "\r\nConnection: close\r\n\r\n" + answer);
        socket->disconnectFromHost();
    }

    QTcpServer m_server;
};

// Records every callback in order.
class RecordingReporter : public VKReporter
{
public:
    QStringList events;
    qint64 bytesWritten = 0;
    qint64 lastTotal = 0;
    qint64 expected = 0;
    int status = 0;
    QString reason;
    VKError error;
    bool ended = false;

    void connectionDidSendBodyData(VKURLConnection *, qint64 written, qint64 total,
                                   qint64 expectedTotal) override
    {
        if (events.isEmpty() || events.last() != "progress")
            events << "progress";
        bytesWritten += written;
        lastTotal = total;
        expected = expectedTotal;
    }
    void connectionDidReceiveResponse(VKURLConnection *, int code, const QString &text) override
    {
        events << "response";
        status = code;
        reason = text;
    }
    void connectionDidReceiveData(VKURLConnection *, const QByteArray &data) override
    {
        if (events.last() != "data")
            events << "data";
        mutableReceivedData() += data;
    }
    void connectionDidFinishLoading(VKURLConnection *) override
    {
        events << "finish";
        ended = true;
        setURLConnection(nullptr);
    }
    void connectionDidFailWithError(VKURLConnection *, const VKError &e) override
    {
        events << "fail";
        error = e;
        ended = true;
        setURLConnection(nullptr);
    }
};

const QByteArray B = "0xKh3mLbOuNdArY";

} // namespace

TEST(VKReporterBody, PartsByteForByte)
{
    VKTempDir dir;
    const QString attachment = dir.writeFile("Logs/a.crash", QByteArray("crash\0\r\nbytes", 13));
    const QString unreadable = dir.filePath("missing.log");
    const auto part = [](const QByteArray &name, const QByteArray &value) {
        return "--" + B + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" +
               value + "\r\n";
    };
    const auto file = [](const QByteArray &fileName, const QByteArray &bytes) {
        return "--" + B + "\r\nContent-Disposition: form-data; name=\"log\"; filename=\"" +
               fileName + "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + bytes + "\r\n";
    };
    const QByteArray end = "--" + B + "--\r\n";
    const struct
    {
        const char *name;
        QVariantMap fields;
        QByteArray expected;
    } cases[] = {
        {"empty dictionary", {}, end},
        {"string with backslashes",
         {{"path", QString("C:\\temp\\a")}},
         part("path", "C:/temp/a") + end},
        {"user text loses its backslashes too, UTF-8",
         {{"desc", QString::fromUtf8("a\\b \xc3\xa9")}},
         part("desc", "a/b \xc3\xa9") + end},
        {"file attachment: name only, exact bytes",
         {{"log", QUrl::fromLocalFile(attachment)}},
         file("a.crash", QByteArray("crash\0\r\nbytes", 13)) + end},
        {"unreadable file keeps its headers",
         {{"log", QUrl::fromLocalFile(unreadable)}},
         file("missing.log", "") + end},
        {"number, date and web URL give empty parts",
         {{"n", 42}, {"t", QDateTime::currentDateTimeUtc()}, {"w", QUrl("http://x/y.crash")}},
         ("--" + B + "\r\n\r\n").repeated(3) + end},
        {"several fields in key order",
         {{"b", QString("2")}, {"a", QString("1")}},
         part("a", "1") + part("b", "2") + end},
    };
    VKReporter reporter;
    for (const auto &c : cases)
        EXPECT_EQ(reporter.generateHTTPBody(c.fields), c.expected) << c.name;
}

TEST(VKReporterUpload, BodyArrivesAndAnyHTTPStatusEndsInCompletion)
{
    VKTempDir dir;
    const QVariantMap fields{{"name", QString("D:\\x")},
                             {"file", QUrl::fromLocalFile(dir.writeFile("x.hang", "hang report"))}};
    struct Case
    {
        int status;
        QByteArray reason;
    } cases[] = {{200, "OK"}, {404, "Not Found"}, {500, "Internal Server Error"}};
    for (const Case &c : cases) {
        TestHTTPServer server;
        server.status = c.status;
        server.reason = c.reason;
        RecordingReporter reporter;
        reporter.sendHTTPData(fields, server.address());
        ASSERT_TRUE(reporter.URLConnection()) << c.status;
        ASSERT_TRUE(vkWaitUntil([&] { return reporter.ended; })) << c.status;
        EXPECT_EQ(server.requestLine, "POST /bugreports/sendbugreport.php HTTP/1.1");
        EXPECT_EQ(server.headers.value("content-type"), "multipart/form-data; boundary=" + B);
        EXPECT_EQ(server.body, reporter.generateHTTPBody(fields));
        EXPECT_EQ(reporter.events, QStringList({"progress", "response", "data", "finish"}))
            << c.status;
        EXPECT_EQ(reporter.status, c.status);
        EXPECT_EQ(reporter.reason, QString::fromLatin1(c.reason));
        EXPECT_EQ(reporter.receivedData(), "thanks") << c.status;
        EXPECT_FALSE(reporter.URLConnection()) << c.status;
    }
}

TEST(VKReporterUpload, TransportFailuresEndInFailure)
{
    // A port that was just free on 127.0.0.1 refuses at once.
    quint16 closedPort;
    {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        closedPort = probe.serverPort();
    }
    RecordingReporter refused;
    refused.sendHTTPData({{"a", QString("b")}},
                         QStringLiteral("http://127.0.0.1:%1/x").arg(closedPort));
    ASSERT_TRUE(vkWaitUntil([&] { return refused.ended; }));
    EXPECT_EQ(refused.events.last(), "fail");
    EXPECT_FALSE(refused.events.contains("response"));
    EXPECT_EQ(refused.error.domain(), VKURLConnectionErrorDomain);
    EXPECT_FALSE(refused.error.localizedDescription().isEmpty());

    VKTempDir dir;
    const QString big = dir.writeFile("big.bin", QByteArray(4 << 20, 'x'));
    TestHTTPServer server;
    server.closeAfterBytes = 1 << 20;
    RecordingReporter closed;
    closed.sendHTTPData({{"f", QUrl::fromLocalFile(big)}}, server.address());
    ASSERT_TRUE(vkWaitUntil([&] { return closed.ended; }, 20000));
    EXPECT_EQ(closed.events.last(), "fail");
    EXPECT_EQ(server.requests, 0);
}

TEST(VKReporterUpload, InvalidAddressSendsNothing)
{
    TestHTTPServer server;
    RecordingReporter reporter;
    reporter.setReceivedData("old");
    reporter.sendHTTPData({{"a", QString("b")}},
                          server.address().replace("/bugreports", "/bug reports"));
    vkSpinEventLoop(100);
    EXPECT_EQ(server.requests, 0);
    EXPECT_TRUE(reporter.events.isEmpty());
    EXPECT_FALSE(reporter.URLConnection());
    EXPECT_EQ(reporter.receivedData(), "old");
}

TEST(VKReporterUpload, ProgressAddsUpToTheBodySize)
{
    VKTempDir dir;
    const QString big = dir.writeFile("big.bin", QByteArray(20 << 20, 'x'));
    const QVariantMap fields{{"log", QUrl::fromLocalFile(big)}};
    TestHTTPServer server;
    RecordingReporter reporter;
    reporter.sendHTTPData(fields, server.address());
    ASSERT_TRUE(vkWaitUntil([&] { return reporter.ended; }, 60000));
    const qint64 size = reporter.generateHTTPBody(fields).size();
    EXPECT_GT(size, 20 << 20);
    EXPECT_EQ(QList<qint64>({reporter.bytesWritten, reporter.lastTotal, reporter.expected,
                             server.body.size()}),
              QList<qint64>(4, size));
    EXPECT_EQ(reporter.events.last(), "finish");
}

TEST(VKReporterUpload, DestroyedReporterHearsNothing)
{
    TestHTTPServer server;
    auto reporter = std::make_unique<RecordingReporter>();
    reporter->sendHTTPData({{"a", QString("b")}}, server.address());
    std::weak_ptr<VKURLConnection> connection = reporter->URLConnection();
    reporter.reset();
    // The upload carries on and ends without a delegate to call.
    ASSERT_TRUE(vkWaitUntil([&] { return connection.expired(); }));
    EXPECT_EQ(server.requests, 1);
}

namespace {
class MailCatcher : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> urls;
public Q_SLOTS:
    void open(const QUrl &url) { urls << url; }
};
} // namespace

TEST(VKReporterMail, LinkEscapingAndAmpersandRule)
{
    MailCatcher catcher;
    QDesktopServices::setUrlHandler("mailto", &catcher, "open");
    QString body(150, QLatin1Char('x'));
    body[10] = '&';
    body[120] = '&';
    body[130] = ' ';
    body[131] = '\n';
    body[132] = QChar(0xe9);
    VKReporter reporter;
    reporter.openMessageInMailClient(body, "Crash & burn", "support@example.com");
    ASSERT_EQ(catcher.urls.size(), 1);
    const QString expected =
        "mailto:support@example.com?subject=Crash%20&%20burn&body=" + QString(10, 'x') + "&" +
        QString(109, 'x') + "+" + QString(9, 'x') + "%20%0A%C3%A9" + QString(17, 'x');
    EXPECT_EQ(QString::fromLatin1(catcher.urls[0].toEncoded()), expected);

    // Shorter texts: the range from 100 wraps around as an unsigned length.
    const QString range =
        "NSRangeException|-[NSString replaceOccurrencesOfString:withString:options:"
        "range:]: Range {100, %1} out of bounds; string length %2";
    const struct
    {
        int length;
        QString raised;
    } cases[] = {{0, range.arg("18446744073709551516", "0")},
                 {99, range.arg("18446744073709551615", "99")},
                 {100, "no exception"}};
    for (const auto &c : cases) {
        const QString text(c.length, QLatin1Char('&'));
        EXPECT_EQ(vkRaisedBy([&] { reporter.openMessageInMailClient(text, "s", "a@b"); }),
                  c.raised);
    }
    EXPECT_TRUE(catcher.urls.last().toEncoded().endsWith("body=" + QByteArray(100, '&')));
    QDesktopServices::unsetUrlHandler("mailto");
}

TEST(VKReporterServer, BaseURLFromDefaultsThenSetter)
{
    VKTempDir dir;
    VKUserDefaults::setStandardUserDefaultsFolder(dir.path());
    VKReporter::setReportServerBaseURL("http://127.0.0.1:8080/");
    EXPECT_EQ(VKReporter::reportServerAddress(VKCrashReportServerPath),
              "http://127.0.0.1:8080/bugreports/sendbugreport.php");
    VKUserDefaults::standardUserDefaults()->setObject(QString("https://r.example"),
                                                      VKReportServerBaseURLKey);
    EXPECT_EQ(VKReporter::reportServerAddress(VKBugReportServerPath),
              "https://r.example/orvanta/sendbugreport.php");
    VKReporter::setReportServerBaseURL(QString());
    VKUserDefaults::setStandardUserDefaultsFolder(QString());
}

#include "VKReporterTests.moc"
