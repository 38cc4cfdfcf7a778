#include "Diagnostics/VKReporter.h"

#include "ReporterTestSupport.h"

namespace {

// Records every callback in order, a run of progress or data calls as one event.
class RecordingReporter : public VKReporter
{
public:
    QStringList events;
    QList<qint64> progress{0, 0, 0}; // bytes written, the last total, the expected total

    void connectionDidSendBodyData(VKURLConnection *, qint64 written, qint64 total,
                                   qint64 expectedTotal) override
    {
        if (events.isEmpty() || events.last() != "progress")
            events << "progress";
        progress = {progress[0] + written, total, expectedTotal};
    }
    void connectionDidReceiveResponse(VKURLConnection *, int code, const QString &text) override
    {
        events << QString("response %1 %2").arg(code).arg(text);
    }
    void connectionDidReceiveData(VKURLConnection *, const QByteArray &data) override
    {
        if (events.last() != "data")
            events << "data";
        mutableReceivedData() += data;
    }
    void connectionDidFinishLoading(VKURLConnection *) override { end("finish"); }
    void connectionDidFailWithError(VKURLConnection *, const VKError &e) override
    {
        end(e.domain() + (e.localizedDescription().isEmpty() ? " failure" : " failure: why"));
    }
    void end(const QString &event)
    {
        events << event;
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
        {"text loses its backslashes, UTF-8, fields in key order",
         {{"path", QString::fromUtf8("C:\\temp\\a \xc3\xa9")}, {"a", QString("1")}},
         part("a", "1") + part("path", "C:/temp/a \xc3\xa9") + end},
        {"file attachment: name only, exact bytes",
         {{"log", QUrl::fromLocalFile(attachment)}},
         file("a.crash", QByteArray("crash\0\r\nbytes", 13)) + end},
        {"unreadable file keeps its headers",
         {{"log", QUrl::fromLocalFile(unreadable)}},
         file("missing.log", "") + end},
        {"number, date and web URL give empty parts",
         {{"n", 42}, {"t", QDateTime::currentDateTimeUtc()}, {"w", QUrl("http://x/y.crash")}},
         ("--" + B + "\r\n\r\n").repeated(3) + end},
    };
    VKReporter reporter;
    for (const auto &c : cases)
        EXPECT_EQ(reporter.generateHTTPBody(c.fields), c.expected) << c.name;
}

// Uploads to vkreportd: a stored report and an unknown path both end in completion, with the
// progress adding up to the body's size; a refused connection ends in failure.
// Uploads to vkreportd: a stored report and an unknown path both end in completion, with the
// progress adding up to the body's size; a refused connection ends in failure; an invalid
// address sends nothing; a reporter gone mid-upload hears nothing.
TEST(VKReporterUpload, AnyHTTPStatusCompletesAndOnlyTransportFailuresFail)
{
    if (QStringLiteral(VKREPORTD_PATH).isEmpty())
        GTEST_SKIP() << "vkreportd is not built (it needs Qt HTTP Server)";
    VKTempDir dir;
    VKReportServerProcess server(dir.makeDir("received"));
    ASSERT_NE(server.port(), 0);
    const QByteArray big(4 << 20, 'x');
    const QVariantMap fields{{"name", QString("D:\\x")},
                             {"file", QUrl::fromLocalFile(dir.writeFile("x.hang", big))}};
    const QString refused = QString("http://127.0.0.1:%1").arg(refusedPort());
    struct Case
    {
        QString address;
        QStringList events;
        QByteArray answer;
    } cases[] = {
        {server.baseURL() + VKCrashReportServerPath,
         {"progress", "response 200 OK", "data", "finish"},
         "stored "},
        {server.baseURL() + "/elsewhere",
         {"progress", "response 404 Not Found", "data", "finish"},
         "no such path\n"},
        {refused + VKCrashReportServerPath, {VKURLConnectionErrorDomain + " failure: why"}, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.address.toStdString());
        RecordingReporter reporter;
        reporter.sendHTTPData(fields, c.address);
        ASSERT_TRUE(reporter.URLConnection());
        ASSERT_TRUE(vkWaitUntil([&] { return !reporter.URLConnection(); }, 20000));
        EXPECT_EQ(reporter.events, c.events);
        EXPECT_TRUE(reporter.receivedData().startsWith(c.answer))
            << reporter.receivedData().constData();
        const qint64 size = reporter.generateHTTPBody(fields).size();
        EXPECT_EQ(reporter.progress, QList<qint64>(3, c.events.size() > 1 ? size : 0));
    }
    ASSERT_EQ(server.reports().size(), 1);
    const VKStoredReport stored = server.report(0);
    EXPECT_EQ(partsOf(stored), QStringList({"file file: x.hang", "field name: D:/x"}));
    EXPECT_TRUE(stored.files.value("file") == big);

    RecordingReporter invalid;
    invalid.setReceivedData("old");
    invalid.sendHTTPData({{"a", QString("b")}}, server.baseURL() + "/bug reports");
    EXPECT_TRUE(invalid.events.isEmpty() && !invalid.URLConnection());
    EXPECT_EQ(invalid.receivedData(), "old");

    auto reporter = std::make_unique<RecordingReporter>();
    reporter->sendHTTPData({{"a", QString("b")}}, server.baseURL() + VKCrashReportServerPath);
    std::weak_ptr<VKURLConnection> connection = reporter->URLConnection();
    reporter.reset();
    // The upload carries on and ends without a delegate to call.
    ASSERT_TRUE(vkWaitUntil([&] { return connection.expired(); }));
    EXPECT_EQ(server.reports().size(), 2);
}

TEST(VKReporterMail, LinkEscapingAndAmpersandRule)
{
    QString body(150, QLatin1Char('x'));
    body[10] = '&';
    body[120] = '&';
    body[130] = ' ';
    body[131] = '\n';
    body[132] = QChar(0xe9);
    const QString range =
        "NSRangeException|-[NSString replaceOccurrencesOfString:withString:options:"
        "range:]: Range {100, %1} out of bounds; string length %2";
    // Shorter texts: the range from 100 wraps around as an unsigned length.
    const struct
    {
        QString body;
        QString expected;
    } cases[] = {
        {body, "mailto:a@b?subject=Crash%20&%20burn&body=" + QString(10, 'x') + "&" +
                   QString(109, 'x') + "+" + QString(9, 'x') + "%20%0A%C3%A9" + QString(17, 'x')},
        {QString(), range.arg("18446744073709551516", "0")},
        {QString(99, '&'), range.arg("18446744073709551615", "99")},
        {QString(100, '&'), "mailto:a@b?subject=Crash%20&%20burn&body=" + QString(100, '&')},
        {QString(101, '&'), "mailto:a@b?subject=Crash%20&%20burn&body=" + QString(100, '&') + "+"},
    };
    for (const auto &c : cases) {
        QString link;
        const QString raised =
            vkRaisedBy([&] { link = VKReporter::mailLinkText(c.body, "Crash & burn", "a@b"); });
        EXPECT_EQ(raised == "no exception" ? link : raised, c.expected) << c.body.size();
    }
}

TEST(VKReporterServer, BaseURLFromDefaultsThenSetter)
{
    ReporterEnvironment env;
    VKReporter::setReportServerBaseURL("http://127.0.0.1:8080/");
    EXPECT_EQ(VKReporter::reportServerAddress(VKCrashReportServerPath),
              "http://127.0.0.1:8080/bugreports/sendbugreport.php");
    env.defaults()->setObject(QString("https://r.example"), VKReportServerBaseURLKey);
    EXPECT_EQ(VKReporter::reportServerAddress(VKBugReportServerPath),
              "https://r.example/orvanta/sendbugreport.php");
}
