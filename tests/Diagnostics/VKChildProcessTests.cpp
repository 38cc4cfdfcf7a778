// Child processes that really crash with the crash handler installed, their reports read back
// through the crash readers; and a read-only mount in a child's private mount namespace. The
// children are death tests, which run their test again from the start: they find the parent's
// folder in the environment.
#include "Diagnostics/VKCrashHandler.h"
#include "Diagnostics/VKCrashLogReader.h"
#include "Diagnostics/VKHost.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <QDir>
#include <QRegularExpression>
#include <QSysInfo>

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <thread>

#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true; // the sanitizer's own handler may end the process instead
#else
constexpr bool kSanitized = false;
#endif

// The faults must reach the signal handler as real faults, not as a sanitizer's report.
#if defined(__clang__)
#define VK_REAL_FAULT __attribute__((noinline, no_sanitize("address", "undefined")))
#else
#define VK_REAL_FAULT __attribute__((noinline, no_sanitize_address, no_sanitize_undefined))
#endif

volatile int g_zero = 0;
volatile int g_seven = 7; // volatile too: 1 / x is turned into a comparison
int *volatile g_null = nullptr;

VK_REAL_FAULT void crashWith(const QByteArray &kind)
{
    if (kind == "segv") {
        *g_null = 1;
    } else if (kind == "bus") {
        // Touching a mapped page beyond the end of an empty file.
        char name[] = "/tmp/vkprobe-XXXXXX";
        const int fd = mkstemp(name);
        unlink(name);
        auto *page = static_cast<volatile char *>(
            mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        page[0] = 1;
    } else if (kind == "ill") {
        __builtin_trap();
    } else if (kind == "fpe") {
        std::printf("%d\n", g_seven / g_zero);
    } else if (kind == "abrt") {
        std::abort();
    }
}

VK_REAL_FAULT void faultAgain()
{
    *g_null = 2;
}

// The parent's temporary folder, made by the parent and found by its death tests' children.
QString sharedFolder(std::optional<VKTempDir> &own)
{
    if (qEnvironmentVariableIsEmpty("VK_CHILD_TEST_FOLDER")) {
        own.emplace();
        qputenv("VK_CHILD_TEST_FOLDER", QFile::encodeName(own->path()));
    }
    return qEnvironmentVariable("VK_CHILD_TEST_FOLDER");
}

} // namespace

TEST(VKCrashHandler, EachFatalSignalLeavesAReportTheReadersUnderstand)
{
#if !defined(__x86_64__) && !defined(__i386__)
    GTEST_SKIP() << "the SIGILL and SIGFPE faults are x86 instructions";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
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
    std::optional<VKTempDir> own;
    const QString shared = sharedFolder(own);
    const QString host = QString(QSysInfo::machineHostName()).replace(u'/', u'_');
    const QRegularExpression fileName("^DiagProbe_\\d{4}-\\d\\d-\\d\\d-\\d{6}_" +
                                      QRegularExpression::escape(host) + "\\.crash$");
    const QString version =
        VKBundle::mainBundle()->objectForInfoDictionaryKey(VKBundleShortVersionKey).toString();
    int index = 0;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QString tree = shared + "/" + QString::number(index++);
        VKSearchPaths::TestingRoot root(tree);
        VKUserDefaults::setStandardUserDefaultsFolder(tree + "/prefs");
        const QString folder =
            VKSearchPaths::libraryDirectory(VKSearchPathDomain::User) + "/Logs/DiagnosticReports";
        const auto died = [&](int status) {
            // A sanitizer's handler, handed the fault, may end the process with an abort.
            if (WIFSIGNALED(status))
                return WTERMSIG(status) == c.endsWith ||
                       (kSanitized && WTERMSIG(status) == SIGABRT);
            return kSanitized && WEXITSTATUS(status) != 0;
        };
        EXPECT_EXIT(
            {
                const rlimit noCore{}; // no core files
                setrlimit(RLIMIT_CORE, &noCore);
                if (QByteArray(c.where) == "again")
                    VKCrashHandler::setWriteHookForTesting(faultAgain);
                if (!VKCrashHandler::install("DiagProbe", folder))
                    _exit(3);
                if (QByteArray(c.where) == "thread")
                    std::thread([&] { crashWith(c.kind); }).join();
                else
                    crashWith(c.kind);
            },
            died, "");

        const QStringList reports = QDir(folder).entryList(QDir::Files);
        ASSERT_EQ(reports.size(), 1) << reports.join(", ");
        EXPECT_TRUE(fileName.match(reports.first()).hasMatch()) << reports.first();
        QFile file(folder + "/" + reports.first());
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QString report = QString::fromUtf8(file.readAll());
        const auto has = [&](const QString &pattern) {
            return report.contains(QRegularExpression(pattern));
        };
        EXPECT_TRUE(report.startsWith("Process:         DiagProbe ["));
        EXPECT_TRUE(report.contains("\nVersion:         " + version + " ("));
        EXPECT_TRUE(report.contains(QString("\nException Type:  ") + c.type + "\n"));
        EXPECT_EQ(has("\nCrashed Thread:  \\d+ \\(main thread\\)\n"),
                  QByteArray(c.where) != "thread");
        // The crashing function's frame lies in the test program, with its offset.
        EXPECT_TRUE(
            has("\n\\d+ +test_Diagnostics +0x[0-9a-f]{16} test_Diagnostics \\+ 0x[0-9a-f]+\n"))
            << report;
        const qsizetype images = report.indexOf("\nBinary Images:\n");
        if (QByteArray(c.where) == "again") {
            EXPECT_EQ(images, -1) << "the second fault ended the writing";
            continue;
        }
        ASSERT_GT(images, 0);
        EXPECT_EQ(report.indexOf("\n\n", images + 1), report.size() - 2)
            << "one blank line, at the end of the section";
        EXPECT_TRUE(has("\n0x[0-9a-f]{12,} - 0x[0-9a-f]{12,}  "
                        "test_Diagnostics  /\\S+/test_Diagnostics\n"));
        EXPECT_TRUE(report.contains("  libVessanUtilities.so"));

        // The readers find it and strip the section; their texts are checked on their own.
        EXPECT_EQ(VKCrashLogReader("DiagProbe", {}, true).recentLogString(),
                  report.left(images + 1));
    }
    VKUserDefaults::setStandardUserDefaultsFolder(QString());
    qunsetenv("VK_CHILD_TEST_FOLDER");
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

// A read-only file system mounted in a child's private mount namespace; the child answers for
// the mount, the writable folder above it and a path that does not exist, a bit each.
TEST(VKHost, ReadOnlyVolume)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "mounting needs root";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::optional<VKTempDir> own;
    const QString readOnly = sharedFolder(own) + "/ro";
    QDir().mkpath(readOnly);
    int answers = -1;
    EXPECT_EXIT(
        {
            if (unshare(CLONE_NEWNS) != 0 ||
                mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount("vktest", QFile::encodeName(readOnly), "tmpfs", MS_RDONLY, nullptr) != 0)
                _exit(77);
            _exit(VKHost::isPathOnReadOnlyVolume(readOnly) * 4 +
                  VKHost::isPathOnReadOnlyVolume(readOnly + "/..") * 2 +
                  VKHost::isPathOnReadOnlyVolume(readOnly + "/missing"));
        },
        [&](int status) {
            answers = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            return true;
        },
        "");
    qunsetenv("VK_CHILD_TEST_FOLDER");
    if (answers == 77)
        GTEST_SKIP() << "no private read-only mount here";
    EXPECT_EQ(answers, 4) << "only the mount is read-only";
}
