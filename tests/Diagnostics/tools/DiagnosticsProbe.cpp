// Runs pieces of the diagnostics code in a process of its own, for the tests that need one:
//   readonly PATH                        prints 1 when PATH lies on a read-only file system
//   crash KIND [thread] [again]          installs the crash handler as "DiagProbe" 2.5 and dies
//                                        of KIND (segv, bus, ill, fpe, abrt), on another thread
//                                        and/or faulting again while the report is written
#include "Diagnostics/VKCrashHandler.h"
#include "Diagnostics/VKHost.h"

#include <QCoreApplication>
#include <QString>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

volatile int g_zero = 0;
volatile int g_seven = 7; // volatile too: 1 / x is turned into a comparison
int *volatile g_null = nullptr;

// The faults must reach the signal handler as real faults, not as a sanitizer's report.
#if defined(__clang__)
#define VK_REAL_FAULT __attribute__((noinline, no_sanitize("address", "undefined")))
#else
#define VK_REAL_FAULT __attribute__((noinline, no_sanitize_address, no_sanitize_undefined))
#endif

VK_REAL_FAULT void crashWith(const char *kind)
{
    if (std::strcmp(kind, "segv") == 0) {
        *g_null = 1;
    } else if (std::strcmp(kind, "bus") == 0) {
        // Touching a mapped page beyond the end of an empty file.
        char name[] = "/tmp/vkprobe-XXXXXX";
        const int fd = mkstemp(name);
        unlink(name);
        auto *page = static_cast<volatile char *>(
            mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        page[0] = 1;
    } else if (std::strcmp(kind, "ill") == 0) {
        __builtin_trap();
    } else if (std::strcmp(kind, "fpe") == 0) {
        std::printf("%d\n", g_seven / g_zero);
    } else if (std::strcmp(kind, "abrt") == 0) {
        std::abort();
    }
}

VK_REAL_FAULT void faultAgain()
{
    *g_null = 2;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && std::strcmp(argv[1], "readonly") == 0) {
        std::printf("%d\n", VKHost::isPathOnReadOnlyVolume(QString::fromLocal8Bit(argv[2])));
        return 0;
    }
    if (argc >= 3 && std::strcmp(argv[1], "crash") == 0) {
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        QCoreApplication application(argc, argv);
        QCoreApplication::setApplicationName(QStringLiteral("DiagProbe"));
        QCoreApplication::setApplicationVersion(QStringLiteral("2.5"));
        bool onThread = false;
        for (int i = 3; i < argc; ++i) {
            if (std::strcmp(argv[i], "thread") == 0)
                onThread = true;
            else if (std::strcmp(argv[i], "again") == 0)
                VKCrashHandler::setWriteHookForTesting(faultAgain);
        }
        if (!VKCrashHandler::install())
            return 3;
        std::printf("%s\n", qPrintable(VKCrashHandler::reportFolder()));
        std::fflush(stdout);
        if (onThread)
            std::thread([&] { crashWith(argv[2]); }).join();
        else
            crashWith(argv[2]);
        return 4; // not reached for a known kind
    }
    std::fprintf(stderr,
                 "usage: vkdiagnostics_probe readonly PATH | crash KIND [thread] [again]\n");
    return 2;
}
