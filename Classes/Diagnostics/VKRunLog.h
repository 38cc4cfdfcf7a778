// The application's run logs: one "<application name>_<date-time>.vqnLog" per run in the
// user's "Logs/Vessan" folder, the last few kept, where VKRunLogReader finds them.
#pragma once

#include "Foundation/VKExport.h"

#include <QDateTime>
#include <QString>

#include <memory>

class VKFileLogSink;

class VK_EXPORT VKRunLog
{
public:
    // The user's run-log folder: the user "Library" folder + "Logs/Vessan".
    static QString runLogDirectory();
    // "<applicationName>_yyyy-MM-dd-HHmmss.vqnLog" for `start` in UTC; names sort by time.
    static QString runLogFileName(const QString &applicationName, const QDateTime &start);
    // Makes the folder, removes the oldest run logs of `applicationName` so that `keep` remain
    // with the new one, and answers the new file's path (the file itself is not created).
    // A null string when the folder cannot be made. Other files in the folder stay.
    static QString prepareRunLogFile(const QString &applicationName, const QDateTime &start,
                                     int keep = 5);

    // The one call a host makes at start: removes the oldest run logs of `applicationName`
    // (default: the main bundle's "CFBundleName") so that `keep` remain with this run's, and
    // adds a VKFileLogSink writing into the run-log folder to VKLogger. Its file,
    // "<name>_<yyyy-MM-dd-HHmmss>_<pid>.vqnLog", appears with the first entry. Calling it again
    // answers the sink already added. Null when the folder cannot be made.
    static std::shared_ptr<VKFileLogSink> startRunLog(const QString &applicationName = {},
                                                      int keep = 5);
    // Removes the sink startRunLog() added, so that the next call starts a new run log.
    static void stopRunLog();
    // Whether `fileName` is one of `applicationName`'s run logs, with or without the process
    // number the file sink adds.
    static bool isRunLogFileName(const QString &fileName, const QString &applicationName);
};
