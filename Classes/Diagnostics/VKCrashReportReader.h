// Gathers every unsent crash (".crash") and hang (".hang") report of one application from the
// user's and the local "Logs/DiagnosticReports" folders into one tagged text:
//
//   <crash_logs app_name:"MyApp">
//   <crashLog>
//   ...newest path first...
//   </crashLog>
//   </crash_logs>
//
// and records what it gathered in the sent list it shares with VKCrashLogReader.
#pragma once

#include "Foundation/VKExport.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <memory>

class VK_EXPORT VKCrashReportReader
{
public:
    VKCrashReportReader(const QString &applicationName, const QDateTime &earliestReportDate,
                        bool stripBinaryImagesDescription);
    ~VKCrashReportReader();
    VKCrashReportReader(const VKCrashReportReader &) = delete;
    VKCrashReportReader &operator=(const VKCrashReportReader &) = delete;

    QString applicationName() const;
    void setApplicationName(const QString &name);
    QDateTime earliestReportDate() const;
    void setEarliestReportDate(const QDateTime &date);
    bool stripBinaryImagesDescription() const;
    void setStripBinaryImagesDescription(bool strip);
    // The most bytes read of one report (its last lines); negative (default) reads all.
    qint64 maximumReportSize() const;
    void setMaximumReportSize(qint64 bytes);

    // The reports the last combinedCrashLogString() gathered, unreadable ones included.
    QStringList crashLogFilePaths() const;
    void setCrashLogFilePaths(const QStringList &paths);

    // The tagged text of all unsent reports, greatest path first; a null string when the
    // application name is null or nothing is unsent (crashLogFilePaths() then stays as it
    // was). Reports that are not UTF-8 text add nothing. Stripping may throw as
    // VKCrashLogReader::stripBinaryImages() does.
    QString combinedCrashLogString();
    // The unsent reports in one folder, in listing order.
    QStringList unsentCrashLogFilePathsInDirectory(const QString &folder) const;
    // Adds crashLogFilePaths() to the sent list "SentCrashLogFilePaths".
    void markCrashLogsAsSent();

    static QString stripBinaryImages(const QString &text);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
