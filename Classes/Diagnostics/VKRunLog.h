// The application's run logs: one "<application name>_<date-time>.vqnLog" per run in the
// user's "Logs/Vessan" folder, the last few kept, where VKRunLogReader finds them.
#pragma once

#include "Foundation/VKExport.h"

#include <QDateTime>
#include <QString>

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
};
