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
#include <QRegularExpression>
#include <QSysInfo>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

extern char **environ;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true; // the sanitizer's own handler may end the process instead
#else
constexpr bool kSanitized = false;
#endif

struct Ending
{
    bool finished = false; // false: still running at the deadline, then killed
    int status = 0;
};

// Runs the probe with XDG_STATE_HOME set; waits at most 20 s (a hang is a failure, not a wait).
Ending runProbe(const QStringList &arguments, const QString &stateHome)
{
    QList<QByteArray> storage{QFile::encodeName(vkTestBinaryPath("vkdiagnostics_probe"))};
    for (const QString &a : arguments)
        storage << a.toUtf8();
    std::vector<char *> argv;
    for (QByteArray &a : storage)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    QList<QByteArray> environment{"XDG_STATE_HOME=" + QFile::encodeName(stateHome)};
    for (char **e = environ; *e; ++e)
        if (!QByteArray(*e).startsWith("XDG_STATE_HOME="))
            environment << QByteArray(*e);
    std::vector<char *> envp;
    for (QByteArray &e : environment)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    Ending ending;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return ending;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        if (waitpid(pid, &ending.status, WNOHANG) == pid) {
            ending.finished = true;
            return ending;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, &ending.status, 0);
    return ending;
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
    struct Case
    {
        const char *name;
        QStringList arguments;
        int endsWith;     // the signal that ends the process
        const char *type; // "Exception Type:" of the report
        bool mainThread;
        bool complete; // false: the second fault ends it before "Binary Images:"
    } cases[] = {
        {"segmentation fault", {"crash", "segv"}, SIGSEGV, "SIGSEGV (signal 11)", true, true},
        {"bus error", {"crash", "bus"}, SIGBUS, "SIGBUS (signal 7)", true, true},
        {"illegal instruction", {"crash", "ill"}, SIGILL, "SIGILL (signal 4)", true, true},
        {"division by zero", {"crash", "fpe"}, SIGFPE, "SIGFPE (signal 8)", true, true},
        {"abort", {"crash", "abrt"}, SIGABRT, "SIGABRT (signal 6)", true, true},
        {"fault on another thread",
         {"crash", "segv", "thread"},
         SIGSEGV,
         "SIGSEGV (signal 11)",
         false,
         true},
        {"abort on another thread",
         {"crash", "abrt", "thread"},
         SIGABRT,
         "SIGABRT (signal 6)",
         false,
         true},
        {"second fault of the same kind while writing",
         {"crash", "segv", "again"},
         SIGSEGV,
         "SIGSEGV (signal 11)",
         true,
         false},
        {"a fault while writing an abort's report",
         {"crash", "abrt", "again"},
         SIGSEGV,
         "SIGABRT (signal 6)",
         true,
         false},
    };
    const QString host = QString(QSysInfo::machineHostName()).replace(u'/', u'_');
    const QRegularExpression fileName("^DiagProbe_\\d{4}-\\d\\d-\\d\\d-\\d{6}_" +
                                      QRegularExpression::escape(host) + "\\.crash$");
    for (const Case &c : cases) {
        VKTempDir tree, prefs;
        VKSearchPaths::TestingRoot root(tree.path());
        VKUserDefaults::setStandardUserDefaultsFolder(prefs.path());
        const Ending ending = runProbe(c.arguments, VKSearchPaths::stateDirectory());
        ASSERT_TRUE(ending.finished) << c.name << ": the process hung";
        // A sanitizer's handler, handed the fault, may end the process with an abort.
        if (WIFSIGNALED(ending.status) && !(kSanitized && WTERMSIG(ending.status) == SIGABRT)) {
            EXPECT_EQ(WTERMSIG(ending.status), c.endsWith) << c.name;
        } else if (!WIFSIGNALED(ending.status)) {
            EXPECT_TRUE(kSanitized && WEXITSTATUS(ending.status) != 0)
                << c.name << ": exited with " << WEXITSTATUS(ending.status);
        }

        const QString folder =
            VKSearchPaths::libraryDirectory(VKSearchPathDomain::User) + "/Logs/DiagnosticReports";
        const QStringList reports = QDir(folder).entryList(QDir::Files);
        ASSERT_EQ(reports.size(), 1) << c.name << ": " << reports.join(", ");
        EXPECT_TRUE(fileName.match(reports.first()).hasMatch())
            << c.name << ": " << reports.first();
        const QString report = readAll(folder + "/" + reports.first());
        EXPECT_TRUE(report.startsWith("Process:         DiagProbe [")) << c.name;
        EXPECT_TRUE(report.contains("\nVersion:         2.5 (")) << c.name;
        EXPECT_TRUE(report.contains(QString("\nException Type:  ") + c.type + "\n")) << c.name;
        EXPECT_EQ(
            report.contains(QRegularExpression("\nCrashed Thread:  \\d+ \\(main thread\\)\n")),
            c.mainThread)
            << c.name;
        // The crashing function's frame lies in the probe, with its offset.
        EXPECT_TRUE(report.contains(QRegularExpression(
            "\n\\d+ +vkdiagnostics_probe +0x[0-9a-f]{16} vkdiagnostics_probe \\+ 0x[0-9a-f]+\n")))
            << c.name << "\n"
            << report;
        const qsizetype images = report.indexOf("\nBinary Images:\n");
        if (!c.complete) {
            EXPECT_EQ(images, -1) << c.name << ": the second fault ended the writing";
            continue;
        }
        ASSERT_GT(images, 0) << c.name;
        EXPECT_TRUE(report.endsWith("\n\n")) << c.name;
        EXPECT_EQ(report.indexOf("\n\n", images + 1), report.size() - 2)
            << c.name << ": one blank line, at the end of the section";
        EXPECT_TRUE(
            report.contains(QRegularExpression("\n0x[0-9a-f]{12,} - 0x[0-9a-f]{12,}  "
                                               "vkdiagnostics_probe  /\\S+/vkdiagnostics_probe\n")))
            << c.name;
        EXPECT_TRUE(report.contains("  libVessanUtilities.so")) << c.name;

        VKCrashReportReader stripping("DiagProbe", QDateTime(), true);
        EXPECT_EQ(stripping.combinedCrashLogString(),
                  "<crash_logs app_name:\"DiagProbe\">\n<crashLog>\n" + report.left(images + 1) +
                      "</crashLog>\n</crash_logs>\n\n\n")
            << c.name;
        VKCrashReportReader whole("DiagProbe", QDateTime(), false);
        EXPECT_EQ(whole.combinedCrashLogString(),
                  "<crash_logs app_name:\"DiagProbe\">\n<crashLog>\n" + report +
                      "</crashLog>\n</crash_logs>\n\n\n")
            << c.name;
        VKCrashLogReader logReader("DiagProbe", QDateTime(), true);
        EXPECT_EQ(logReader.recentLogString(), report.left(images + 1)) << c.name;
        VKUserDefaults::setStandardUserDefaultsFolder(QString());
    }
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
