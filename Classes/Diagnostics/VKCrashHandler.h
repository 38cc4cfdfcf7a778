// Writes a crash report when the process dies of a fatal signal, so that the crash readers find
// it at the next start: "<application name>_<yyyy-MM-dd-HHmmss>_<host>.crash" in the user's
// "Logs/DiagnosticReports" folder.
//
// A report holds the process, version, date, signal, the crashing thread's backtrace (addresses
// with the module and the offset in it) and a "Binary Images:" section ended by a blank line.
// Everything the handler needs is prepared by install(); the handler itself uses only
// async-signal-safe calls, then hands the signal to the handler that was there before (usually
// the system's default), so the process still ends as it would have.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>

class VK_EXPORT VKCrashHandler
{
public:
    // Catches SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT. `applicationName` defaults to the
    // main bundle's "CFBundleName", `folder` to the user's "Logs/DiagnosticReports" (made when
    // missing). Call again after settings change; answers false when the folder cannot be made.
    static bool install(const QString &applicationName = {}, const QString &folder = {});
    // Puts the earlier handlers back.
    static void uninstall();
    static bool isInstalled();
    // The folder reports go to; null before install().
    static QString reportFolder();

    // Reads the list of loaded modules again; call after loading plug-ins, since the handler
    // cannot do it safely at the time of the crash. install() does it too.
    static void refreshBinaryImages();

    // Called by the handler between the backtrace and the binary images. For tests that
    // fault again while a report is written; not for new callers.
    static void setWriteHookForTesting(void (*hook)());
};
