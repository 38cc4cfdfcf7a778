// States: not installed; installed (our handler on the five fatal signals, the earlier actions
// kept); handling (one thread writes a report). install(), uninstall() and
// refreshBinaryImages() run under g_mutex on ordinary threads; the handler takes no lock.
//
// What the handler reads is prepared beforehand in one of two static blocks: the writer fills
// the block not in use and then publishes it with one atomic store, so a crash during a refresh
// still sees a complete block. Inside the handler only async-signal-safe calls are made
// (open, write, close, clock_gettime, getpid, gettid, nanosleep, sigaction, raise) plus
// libunwind's local unwinding, which is made for signal handlers.
//
// A second fatal signal on the thread that is writing is blocked (the five signals are in the
// handler's mask), so the kernel ends the process with it at once instead of re-entering. Another
// thread crashing meanwhile waits a little for the report and then ends the process itself.
#include "Diagnostics/VKCrashHandler.h"

#include "Diagnostics/VKHost.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKSearchPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSysInfo>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>

#include <fcntl.h>
#include <link.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#define UNW_LOCAL_ONLY
#include <libunwind.h>

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr int kMaximumModules = 512;
constexpr int kMaximumFrames = 128;
constexpr size_t kPathSize = 512;

struct Module
{
    uintptr_t base = 0; // load bias: addresses in the file are relative to it
    uintptr_t start = 0;
    uintptr_t end = 0; // last byte
    char name[96] = {};
    char path[kPathSize] = {};
};

struct Prepared
{
    char folder[kPathSize] = {};
    char fileNamePrefix[256] = {}; // "<application name>_"
    char host[128] = {};
    char header[4096] = {}; // the lines from "Process:" to "Host:", the pid left out
    char processName[256] = {};
    int moduleCount = 0;
    Module modules[kMaximumModules];
};

std::mutex g_mutex;                        // install, uninstall, refresh
Prepared g_blocks[2];                      // written under g_mutex, one published at a time
std::atomic<Prepared *> g_active{nullptr}; // what the handler reads
std::atomic<bool> g_installed{false};
std::atomic<int> g_handling{0};
std::atomic<void (*)()> g_writeHook{nullptr};
struct sigaction g_previous[NSIG]; // written while installed is false

QString g_applicationName; // under g_mutex
QString g_folder;

void copyText(char *target, size_t size, const QByteArray &text)
{
    const size_t length = std::min(size - 1, size_t(text.size()));
    std::memcpy(target, text.constData(), length);
    target[length] = '\0';
}

// --- Async-signal-safe output ------------------------------------------------------------

class Writer
{
public:
    explicit Writer(int fd) : m_fd(fd) {}
    ~Writer() { flush(); }

    void text(const char *s)
    {
        while (*s)
            byte(*s++);
    }
    void padded(const char *s, size_t width)
    {
        size_t n = 0;
        for (; s[n]; ++n)
            byte(s[n]);
        for (; n < width; ++n)
            byte(' ');
    }
    void decimal(unsigned long long value, int minimumDigits = 1)
    {
        char digits[24];
        int n = 0;
        do {
            digits[n++] = char('0' + value % 10);
            value /= 10;
        } while (value);
        for (int i = n; i < minimumDigits; ++i)
            byte('0');
        while (n)
            byte(digits[--n]);
    }
    void hex(unsigned long long value, int minimumDigits = 1)
    {
        char digits[24];
        int n = 0;
        do {
            digits[n++] = "0123456789abcdef"[value & 15];
            value >>= 4;
        } while (value);
        text("0x");
        for (int i = n; i < minimumDigits; ++i)
            byte('0');
        while (n)
            byte(digits[--n]);
    }
    void flush()
    {
        size_t done = 0;
        while (done < m_used) {
            const ssize_t n = ::write(m_fd, m_buffer + done, m_used - done);
            if (n <= 0)
                break;
            done += size_t(n);
        }
        m_used = 0;
    }

private:
    void byte(char c)
    {
        if (m_used == sizeof m_buffer)
            flush();
        m_buffer[m_used++] = c;
    }
    int m_fd;
    char m_buffer[2048];
    size_t m_used = 0;
};

// Calendar fields of a UTC time, without the C library's locale and time-zone machinery.
struct CivilTime
{
    long long year;
    unsigned month, day, hour, minute, second;
};

CivilTime civilTime(long long seconds)
{
    long long days = seconds / 86400;
    long long rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    // Days since 1970-01-01 to year, month, day in the proleptic Gregorian calendar.
    days += 719468;
    const long long era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned dayOfEra = unsigned(days - era * 146097);
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned mp = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * mp + 2) / 5 + 1;
    const unsigned month = mp < 10 ? mp + 3 : mp - 9;
    const long long year = (long long)yearOfEra + era * 400 + (month <= 2);
    return {year, month, day, unsigned(rest / 3600), unsigned(rest / 60 % 60), unsigned(rest % 60)};
}

const char *signalName(int signal)
{
    switch (signal) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGBUS:
        return "SIGBUS";
    case SIGILL:
        return "SIGILL";
    case SIGFPE:
        return "SIGFPE";
    case SIGABRT:
        return "SIGABRT";
    default:
        return "signal";
    }
}

const Module *moduleFor(const Prepared &p, uintptr_t address)
{
    for (int i = 0; i < p.moduleCount; ++i)
        if (address >= p.modules[i].start && address <= p.modules[i].end)
            return &p.modules[i];
    return nullptr;
}

// Opens "<prefix><date>_<host>.crash" in the folder; when that exists, the process number is
// added before the extension.
int openReport(const Prepared &p, const CivilTime &t)
{
    char path[kPathSize * 2];
    for (int attempt = 0; attempt < 2; ++attempt) {
        char *end = path;
        const auto add = [&](const char *s) {
            while (*s && end < path + sizeof path - 1)
                *end++ = *s++;
        };
        const auto addNumber = [&](unsigned long long value, int digits) {
            char buffer[24];
            int n = 0;
            do {
                buffer[n++] = char('0' + value % 10);
                value /= 10;
            } while (value);
            for (int i = n; i < digits; ++i)
                add("0");
            while (n && end < path + sizeof path - 1)
                *end++ = buffer[--n];
        };
        add(p.folder);
        add("/");
        add(p.fileNamePrefix);
        addNumber((unsigned long long)t.year, 4);
        add("-");
        addNumber(t.month, 2);
        add("-");
        addNumber(t.day, 2);
        add("-");
        addNumber(t.hour, 2);
        addNumber(t.minute, 2);
        addNumber(t.second, 2);
        add("_");
        add(p.host);
        if (attempt == 1) {
            add("_");
            addNumber((unsigned long long)getpid(), 1);
        }
        add(".crash");
        *end = '\0';
        const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    return -1;
}

void writeBacktrace(Writer &out, const Prepared &p, void *context)
{
    unw_cursor_t cursor;
    unw_context_t local;
    bool started = false;
#if defined(__x86_64__) || defined(__aarch64__)
    // There libunwind's context is the signal's ucontext, so the walk starts at the fault.
    started = context && unw_init_local2(&cursor, static_cast<unw_context_t *>(context),
                                         UNW_INIT_SIGNAL_FRAME) == 0;
#endif
    if (!started) {
        (void)context;
        started = unw_getcontext(&local) == 0 && unw_init_local(&cursor, &local) == 0;
    }
    if (!started)
        return;
    for (int frame = 0; frame < kMaximumFrames; ++frame) {
        unw_word_t ip = 0;
        if (unw_get_reg(&cursor, UNW_REG_IP, &ip) != 0 || ip == 0)
            break;
        // A return address may lie just past its function; the call lies before it.
        const Module *module = moduleFor(p, frame == 0 ? ip : ip - 1);
        char index[8];
        int n = 0;
        int f = frame;
        do {
            index[n++] = char('0' + f % 10);
            f /= 10;
        } while (f);
        char indexText[8];
        for (int i = 0; i < n; ++i)
            indexText[i] = index[n - 1 - i];
        indexText[n] = '\0';
        out.padded(indexText, 4);
        out.padded(module ? module->name : "???", 32);
        out.text(" ");
        out.hex(ip, 16);
        if (module) {
            out.text(" ");
            out.text(module->name);
            out.text(" + ");
            out.hex(ip - module->base);
        }
        out.text("\n");
        if (unw_step(&cursor) <= 0)
            break;
    }
}

void writeReport(int signal, siginfo_t *info, void *context)
{
    const Prepared *p = g_active.load(std::memory_order_acquire);
    if (!p)
        return;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const CivilTime t = civilTime(now.tv_sec);
    const int fd = openReport(*p, t);
    if (fd < 0)
        return;
    {
        Writer out(fd);
        out.text("Process:         ");
        out.text(p->processName);
        out.text(" [");
        out.decimal((unsigned long long)getpid());
        out.text("]\n");
        out.text(p->header);
        out.text("\nDate/Time:       ");
        out.decimal((unsigned long long)t.year, 4);
        out.text("-");
        out.decimal(t.month, 2);
        out.text("-");
        out.decimal(t.day, 2);
        out.text(" ");
        out.decimal(t.hour, 2);
        out.text(":");
        out.decimal(t.minute, 2);
        out.text(":");
        out.decimal(t.second, 2);
        out.text(".");
        out.decimal((unsigned long long)(now.tv_nsec / 1000000), 3);
        out.text(" +0000\n");
        const long thread = syscall(SYS_gettid);
        out.text("Crashed Thread:  ");
        out.decimal((unsigned long long)thread);
        out.text(thread == getpid() ? " (main thread)\n" : "\n");
        out.text("\nException Type:  ");
        out.text(signalName(signal));
        out.text(" (signal ");
        out.decimal((unsigned long long)signal);
        out.text(")\nException Codes: code ");
        if (info && info->si_code < 0) {
            out.text("-");
            out.decimal((unsigned long long)-info->si_code);
        } else {
            out.decimal(info ? (unsigned long long)info->si_code : 0);
        }
        if (info && signal != SIGABRT) {
            out.text(" at ");
            out.hex((unsigned long long)(uintptr_t)info->si_addr, 16);
        }
        out.text("\n\nThread ");
        out.decimal((unsigned long long)thread);
        out.text(" Crashed:\n");
        out.flush();
        writeBacktrace(out, *p, context);
        out.flush();
        if (void (*hook)() = g_writeHook.load())
            hook();
        out.text("\nBinary Images:\n");
        for (int i = 0; i < p->moduleCount; ++i) {
            const Module &m = p->modules[i];
            out.hex(m.start, 12);
            out.text(" - ");
            out.hex(m.end, 12);
            out.text("  ");
            out.text(m.name);
            out.text("  ");
            out.text(m.path);
            out.text("\n");
        }
        // The blank line that ends the section (the readers strip up to it).
        out.text("\n");
    }
    close(fd);
}

void handleSignal(int signal, siginfo_t *info, void *context)
{
    const int savedErrno = errno;
    int expected = 0;
    if (g_handling.compare_exchange_strong(expected, 1)) {
        writeReport(signal, info, context);
    } else {
        // Another thread is writing its report; it ends the process when done. Should it hang,
        // this one ends it after about two seconds.
        for (int i = 0; i < 40; ++i) {
            timespec pause{0, 50 * 1000 * 1000};
            nanosleep(&pause, nullptr);
        }
    }
    // Hand the signal on to what was there before; an ignored fatal signal would come back here
    // or loop, so that one gets the default.
    struct sigaction previous = g_previous[signal];
    if (!(previous.sa_flags & SA_SIGINFO) && previous.sa_handler == SIG_IGN)
        previous.sa_handler = SIG_DFL;
    sigaction(signal, &previous, nullptr);
    errno = savedErrno;
    // A fault the kernel raised comes back when the instruction runs again, now to the earlier
    // handler with its own details; a sent signal (abort, kill) must be sent again.
    if (info && info->si_code > 0 && signal != SIGABRT)
        return;
    raise(signal);
}

int addModule(dl_phdr_info *info, size_t, void *data)
{
    auto *p = static_cast<Prepared *>(data);
    if (p->moduleCount >= kMaximumModules)
        return 1;
    uintptr_t start = UINTPTR_MAX, end = 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) &header = info->dlpi_phdr[i];
        if (header.p_type != PT_LOAD)
            continue;
        start = std::min<uintptr_t>(start, info->dlpi_addr + header.p_vaddr);
        end = std::max<uintptr_t>(end, info->dlpi_addr + header.p_vaddr + header.p_memsz);
    }
    if (end == 0)
        return 0;
    QByteArray path(info->dlpi_name ? info->dlpi_name : "");
    if (path.isEmpty()) {
        // The first entry, the executable, has no name of its own.
        if (p->moduleCount != 0)
            return 0;
        path = QFile::encodeName(QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget());
    }
    Module &m = p->modules[p->moduleCount++];
    m.base = info->dlpi_addr;
    m.start = start;
    m.end = end - 1;
    copyText(m.path, sizeof m.path, path);
    copyText(m.name, sizeof m.name, path.mid(path.lastIndexOf('/') + 1));
    return 0;
}

// Fills the block not in use and publishes it. Under g_mutex.
void prepare()
{
    Prepared *current = g_active.load();
    Prepared *next = current == &g_blocks[0] ? &g_blocks[1] : &g_blocks[0];
    std::memset(static_cast<void *>(next), 0, sizeof *next); // too big for a temporary

    const auto main = VKBundle::mainBundle();
    QString host = QSysInfo::machineHostName();
    host.replace(u'/', u'_');
    QString name = g_applicationName;
    name.replace(u'/', u'_');
    const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    const QString shortVersion =
        main->objectForInfoDictionaryKey(VKBundleShortVersionKey).toString();
    const QString version = main->objectForInfoDictionaryKey(VKBundleVersionKey).toString();

    copyText(next->folder, sizeof next->folder, QFile::encodeName(g_folder));
    copyText(next->fileNamePrefix, sizeof next->fileNamePrefix, (name + u'_').toUtf8());
    copyText(next->host, sizeof next->host, host.toUtf8());
    copyText(next->processName, sizeof next->processName, name.toUtf8());
    const QString header =
        QStringLiteral("Path:            %1\n"
                       "Identifier:      %2\n"
                       "Version:         %3 (%4)\n"
                       "Code Type:       %5\n"
                       "OS Version:      %6 (%7 %8)\n"
                       "Host:            %9\n")
            .arg(executable, main->bundleIdentifier(), shortVersion, version,
                 QSysInfo::currentCpuArchitecture(), VKHost::systemVersionString(),
                 QSysInfo::kernelType(), QSysInfo::kernelVersion(), QSysInfo::machineHostName());
    copyText(next->header, sizeof next->header, header.toUtf8());
    dl_iterate_phdr(addModule, next);
    g_active.store(next, std::memory_order_release);
}

} // namespace

bool VKCrashHandler::install(const QString &applicationName, const QString &folder)
{
    QString name = applicationName;
    if (name.isEmpty())
        name = VKBundle::mainBundle()->objectForInfoDictionaryKey(VKBundleNameKey).toString();
    QString reports = folder;
    if (reports.isEmpty()) {
        const QString library = VKSearchPaths::libraryDirectory(VKSearchPathDomain::User);
        if (!library.isEmpty())
            reports = library + QStringLiteral("/Logs/DiagnosticReports");
    }
    if (reports.isEmpty() || !QDir().mkpath(reports))
        return false;
    std::lock_guard lock(g_mutex);
    g_applicationName = name;
    g_folder = QDir(reports).absolutePath();
    prepare();
    if (g_installed.load())
        return true;
    // A stack overflow leaves no stack to run the handler on: give this thread another one,
    // unless it has one already.
    static char alternateStack[64 * 1024];
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE)) {
        stack_t ours{};
        ours.ss_sp = alternateStack;
        ours.ss_size = sizeof alternateStack;
        sigaltstack(&ours, nullptr);
    }
    struct sigaction action
    {
    };
    action.sa_sigaction = handleSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int signal : kSignals)
        sigaddset(&action.sa_mask, signal);
    for (int signal : kSignals)
        sigaction(signal, &action, &g_previous[signal]);
    g_installed.store(true);
    return true;
}

void VKCrashHandler::uninstall()
{
    std::lock_guard lock(g_mutex);
    if (!g_installed.load())
        return;
    for (int signal : kSignals)
        sigaction(signal, &g_previous[signal], nullptr);
    g_installed.store(false);
}

bool VKCrashHandler::isInstalled()
{
    return g_installed.load();
}

QString VKCrashHandler::reportFolder()
{
    std::lock_guard lock(g_mutex);
    return g_active.load() ? g_folder : QString();
}

void VKCrashHandler::refreshBinaryImages()
{
    std::lock_guard lock(g_mutex);
    if (g_active.load())
        prepare();
}

void VKCrashHandler::setWriteHookForTesting(void (*hook)())
{
    g_writeHook.store(hook);
}
