// Finds the system's log files ("system*" in /var/log, any extension).
//
// The only constructor takes the earliest date; the name is always "system". There is on
// purpose no constructor taking an application name: that initialiser never returned (it
// called itself), so it is not offered at all.
#pragma once

#include "Diagnostics/VKLogReader.h"

class VK_EXPORT VKSystemLogReader : public VKLogReader
{
public:
    explicit VKSystemLogReader(const QDateTime &earliestReportDate);

    QString applicationName() const override; // always "system"
    QStringList searchPaths() const override; // "/var/log"
    QString userDefaultsKey() const override; // "SentSystemLogFilePaths"

    // The folder searched instead of /var/log (empty: back to /var/log). For tests.
    static void setLogFolderForTesting(const QString &folder);
};
