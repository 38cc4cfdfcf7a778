// Child processes that really crash with the handler installed; their reports are then read
// back through the crash readers.
#include "Diagnostics/VKCrashHandler.h"
#include "Diagnostics/VKCrashLogReader.h"
#include "Diagnostics/VKCrashReportReader.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSysInfo>

#include <gtest/gtest.h>

#include <csignal>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true; // the sanitizer's own handler may end the process instead
#else
constexpr bool kSanitized = false;
#endif

struct Ending
{
    bool finished = false; // false: still running at the deadline, then killed
    bool signaled = false;
    int code = 0; // the signal that ended the process, or its exit status
};

// Runs the probe with XDG_STATE_HOME set; waits at most 20 s (a hang is a failure, not a wait).
Ending runProbe(const QStringList &arguments, const QString &stateHome)
{
    QProcess probe;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_STATE_HOME", stateHome);
    probe.setProcessEnvironment(environment);
    probe.setStandardOutputFile(QProcess::nullDevice());
    probe.setStandardErrorFile(QProcess::nullDevice());
    probe.start(vkTestBinaryPath("vkdiagnostics_probe"), arguments);
    const bool finished = probe.waitForFinished(20000);
    if (!finished) {
        probe.kill();
        probe.waitForFinished();
    }
    return {finished, probe.exitStatus() == QProcess::CrashExit, probe.exitCode()};
}

QString readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

TEST(VKCrashHandler, EachFatalSignalLeavesAReportTheReadersUnderstand)
{
#if !defined(__x86_64__) && !defined(__i386__)
    GTEST_SKIP() << "the probe's SIGILL and SIGFPE faults are x86 instructions";
#endif
    const struct
    {
        const char *name;
        const char *kind;
        const char *where; // "", "thread": crash on another thread, "again": fault while writing
        int endsWith;      // the signal that ends the process
        const char *type;  // "Exception Type:" of the report
    } cases[] = {
        {"segmentation fault", "segv", "", SIGSEGV, "SIGSEGV (signal 11)"},
        {"bus error", "bus", "", SIGBUS, "SIGBUS (signal 7)"},
        {"illegal instruction", "ill", "", SIGILL, "SIGILL (signal 4)"},
        {"division by zero", "fpe", "", SIGFPE, "SIGFPE (signal 8)"},
        {"abort", "abrt", "", SIGABRT, "SIGABRT (signal 6)"},
        {"fault on another thread", "segv", "thread", SIGSEGV, "SIGSEGV (signal 11)"},
        {"abort on another thread", "abrt", "thread", SIGABRT, "SIGABRT (signal 6)"},
        // The second fault ends the process before "Binary Images:" is written.
        {"second fault of the same kind", "segv", "again", SIGSEGV, "SIGSEGV (signal 11)"},
        {"a fault while writing an abort's report", "abrt", "again", SIGSEGV, "SIGABRT (signal 6)"},
    };
    const QString host = QString(QSysInfo::machineHostName()).replace(u'/', u'_');
    const QRegularExpression fileName("^DiagProbe_\\d{4}-\\d\\d-\\d\\d-\\d{6}_" +
                                      QRegularExpression::escape(host) + "\\.crash$");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VKTempDir tree, prefs;
        VKSearchPaths::TestingRoot root(tree.path());
        VKUserDefaults::setStandardUserDefaultsFolder(prefs.path());
        QStringList arguments{"crash", c.kind};
        if (*c.where)
            arguments << c.where;
        const Ending ending = runProbe(arguments, VKSearchPaths::stateDirectory());
        ASSERT_TRUE(ending.finished) << "the process hung";
        // A sanitizer's handler, handed the fault, may end the process with an abort.
        if (ending.signaled && !(kSanitized && ending.code == SIGABRT)) {
            EXPECT_EQ(ending.code, c.endsWith);
        } else if (!ending.signaled) {
            EXPECT_TRUE(kSanitized && ending.code != 0) << "exited with " << ending.code;
        }

        const QString folder =
            VKSearchPaths::libraryDirectory(VKSearchPathDomain::User) + "/Logs/DiagnosticReports";
        const QStringList reports = QDir(folder).entryList(QDir::Files);
        ASSERT_EQ(reports.size(), 1) << reports.join(", ");
        EXPECT_TRUE(fileName.match(reports.first()).hasMatch()) << reports.first();
        const QString report = readAll(folder + "/" + reports.first());
        const auto has = [&](const QString &pattern) {
            return report.contains(QRegularExpression(pattern));
        };
        EXPECT_TRUE(report.startsWith("Process:         DiagProbe ["));
        EXPECT_TRUE(report.contains("\nVersion:         2.5 ("));
        EXPECT_TRUE(report.contains(QString("\nException Type:  ") + c.type + "\n"));
        EXPECT_EQ(has("\nCrashed Thread:  \\d+ \\(main thread\\)\n"),
                  QByteArray(c.where) != "thread");
        // The crashing function's frame lies in the probe, with its offset.
        EXPECT_TRUE(has(
            "\n\\d+ +vkdiagnostics_probe +0x[0-9a-f]{16} vkdiagnostics_probe \\+ 0x[0-9a-f]+\n"))
            << report;
        const qsizetype images = report.indexOf("\nBinary Images:\n");
        if (QByteArray(c.where) == "again") {
            EXPECT_EQ(images, -1) << "the second fault ended the writing";
            continue;
        }
        ASSERT_GT(images, 0);
        EXPECT_TRUE(report.endsWith("\n\n"));
        EXPECT_EQ(report.indexOf("\n\n", images + 1), report.size() - 2)
            << "one blank line, at the end of the section";
        EXPECT_TRUE(has("\n0x[0-9a-f]{12,} - 0x[0-9a-f]{12,}  "
                        "vkdiagnostics_probe  /\\S+/vkdiagnostics_probe\n"));
        EXPECT_TRUE(report.contains("  libVessanUtilities.so"));

        const auto combined = [](const QString &log) {
            return "<crash_logs app_name:\"DiagProbe\">\n<crashLog>\n" + log +
                   "</crashLog>\n</crash_logs>\n\n\n";
        };
        const QString stripped = report.left(images + 1);
        EXPECT_EQ(VKCrashReportReader("DiagProbe", {}, true).combinedCrashLogString(),
                  combined(stripped));
        EXPECT_EQ(VKCrashReportReader("DiagProbe", {}, false).combinedCrashLogString(),
                  combined(report));
        EXPECT_EQ(VKCrashLogReader("DiagProbe", {}, true).recentLogString(), stripped);
    }
    VKUserDefaults::setStandardUserDefaultsFolder(QString());
}

TEST(VKCrashHandler, InstallAndUninstall)
{
    VKTempDir tree;
    const QString folder = tree.filePath("reports/deeper");
    struct sigaction before
    {
    };
    sigaction(SIGSEGV, nullptr, &before);
    ASSERT_TRUE(VKCrashHandler::install("InProcess", folder));
    EXPECT_TRUE(QFileInfo(folder).isDir()) << "made when missing";
    EXPECT_EQ(VKCrashHandler::reportFolder(), folder);
    EXPECT_TRUE(VKCrashHandler::install("InProcess", folder)) << "again: settings only";
    VKCrashHandler::uninstall();
    EXPECT_FALSE(VKCrashHandler::isInstalled());
    struct sigaction after
    {
    };
    sigaction(SIGSEGV, nullptr, &after);
    EXPECT_EQ(after.sa_sigaction, before.sa_sigaction) << "the earlier handler is back";
    EXPECT_FALSE(VKCrashHandler::install("InProcess", tree.writeFile("a file")))
        << "a folder that cannot be made";
    VKCrashHandler::uninstall();
}
