// vkdemo as a process: a crash, the next start that sends the report to a real vkreportd on
// 127.0.0.1, and the headless screenshots. Each case runs in its own home and XDG folders.
#include "VKReportServerProcess.h"
#include "VKTestSupport.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>

#include <gtest/gtest.h>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true; // the sanitizer's own fault handler may win over the demo's
#else
constexpr bool kSanitized = false;
#endif

struct DemoRun
{
    bool crashed = false;
    int exitCode = -1;
    QString output;
};

class Demo
{
public:
    Demo()
    {
        m_environment = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_DATA_HOME",
                                 "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
            const QString folder = m_home.makeDir(QString::fromLatin1(name));
            QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            m_environment.insert(QString::fromLatin1(name), folder);
        }
        m_environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        m_environment.remove(QStringLiteral("EMAIL"));
        // The demo's own handler is under test, not the sanitizer's.
        if (kSanitized) {
            for (const QString &name :
                 {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("TSAN_OPTIONS")}) {
                const QString options = m_environment.value(name);
                m_environment.insert(name,
                                     options + (options.isEmpty() ? "" : ":") + "handle_segv=0");
            }
        }
    }

    DemoRun run(const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(m_environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(QStringLiteral(VKDEMO_PATH), arguments);
        DemoRun run;
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            run.output = QStringLiteral("(still running after a minute)");
            return run;
        }
        run.crashed = process.exitStatus() == QProcess::CrashExit;
        run.exitCode = run.crashed ? -1 : process.exitCode();
        run.output = QString::fromUtf8(process.readAll());
        return run;
    }

    QStringList crashReports() const
    {
        QStringList found;
        for (const QString &path : allFiles(m_home.path()))
            if (path.endsWith(QLatin1String(".crash")))
                found << path;
        return found;
    }

    QString filePath(const QString &name) const { return m_home.filePath(name); }

    static QStringList allFiles(const QString &folder)
    {
        QStringList files;
        const QDir dir(folder);
        for (const QFileInfo &info :
             dir.entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden)) {
            if (info.isDir())
                files += allFiles(info.filePath());
            else
                files << info.filePath();
        }
        return files;
    }

private:
    VKTempDir m_home;
    QProcessEnvironment m_environment;
};

// A port on 127.0.0.1 that refuses connections: bound once, then released.
quint16 refusedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

const QString kSent = QStringLiteral("vkdemo: Report sent, Thank you for your feedback!");
const QString kNothing = QStringLiteral("vkdemo: no crash report to send");

} // namespace

TEST(DemoProcess, CrashThenSendOnNextStart)
{
    struct Case
    {
        const char *name;
        bool crashFirst;
        bool refuse;           // send to a port that refuses, then again to the server
        int sends;             // sends to the server after the crash
        QStringList lastLines; // the last line of each send's output, in order
        int stored;            // report folders the server ends with
    };
    const QList<Case> cases{
        {"nothing to send on a first start", false, false, 1, {kNothing}, 0},
        {"a crash is sent once", true, false, 2, {kSent, kNothing}, 1},
        {"a refused send keeps the report for the next try",
         true,
         true,
         1,
         {QStringLiteral("vkdemo: Sending failed"), kSent},
         1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Demo demo;
        VKTempDir reports;
        VKReportServerProcess server(reports.path());
        ASSERT_NE(server.port(), 0);
        if (c.crashFirst) {
            const DemoRun crash = demo.run({"--crash-now"});
            if (kSanitized && demo.crashReports().isEmpty())
                GTEST_SKIP() << "the sanitizer ended the crash before the demo's handler ran";
            EXPECT_TRUE(crash.crashed) << crash.output;
            ASSERT_EQ(demo.crashReports().size(), 1);
            EXPECT_TRUE(
                QFileInfo(demo.crashReports().constFirst()).fileName().startsWith("vkdemo_"));
        }
        QStringList lines;
        QList<int> codes;
        const auto send = [&](quint16 port) {
            const DemoRun run =
                demo.run({"--report-server", QStringLiteral("http://127.0.0.1:%1").arg(port),
                          "--send-crash-report"});
            EXPECT_FALSE(run.crashed) << run.output;
            lines << run.output.trimmed().split(u'\n').constLast();
            codes << run.exitCode;
        };
        if (c.refuse)
            send(refusedPort());
        for (int i = 0; i < c.sends; ++i)
            send(server.port());
        ASSERT_EQ(lines.size(), c.lastLines.size());
        for (int i = 0; i < lines.size(); ++i) {
            EXPECT_TRUE(lines[i].startsWith(c.lastLines[i])) << i << ": " << lines[i];
            EXPECT_EQ(codes[i], c.lastLines[i] == QStringLiteral("vkdemo: Sending failed") ? 1 : 0)
                << i;
        }
        ASSERT_EQ(server.reports().size(), c.stored);
        if (c.stored) {
            const VKStoredReport report = server.report(0);
            EXPECT_EQ(report.fields.value("APPLICATION_NAME"), "vkdemo");
            EXPECT_EQ(report.fields.value("CRASH_REPORTS_COUNT_ALL"), "1");
            EXPECT_EQ(report.fields.value("CRASH_REPORTS_COUNT_ATTACHED"), "1");
            const QString text = QString::fromUtf8(report.fields.value("CRASH_REPORT"));
            EXPECT_TRUE(text.startsWith("Process:         vkdemo [")) << text;
            EXPECT_TRUE(text.contains("Exception Type:  SIGSEGV (signal 11)")) << text;
            // The whole report, binary images included, arrives in the archive.
            const QString name = QFileInfo(demo.crashReports().constFirst()).fileName();
            EXPECT_TRUE(report.archives.value("CRASH_REPORTS_ATTACHMENT")
                            .value(name)
                            .contains("Binary Images:"))
                << name;
        }
    }
}

TEST(DemoProcess, ScreenshotsOfBothWindows)
{
    struct Case
    {
        const char *name;
        QString file;
        QString bugFile;
    };
    const QList<Case> cases{
        {"\"crash\" in the name becomes \"bug\"", "crash-reporter.png", "bug-reporter.png"},
        {"the last \"crash\" only", "crash-crash.png", "crash-bug.png"},
        {"no \"crash\": \"-bug\" is added", "shot.png", "shot-bug.png"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Demo demo;
        const DemoRun run = demo.run({"--screenshot", demo.filePath(c.file)});
        ASSERT_EQ(run.exitCode, 0) << run.output;
        for (const QString &name : {c.file, c.bugFile}) {
            const QImage image(demo.filePath(name));
            EXPECT_FALSE(image.isNull()) << name;
            EXPECT_GE(image.width(), 300) << name;
            EXPECT_GE(image.height(), 150) << name;
        }
    }
}
