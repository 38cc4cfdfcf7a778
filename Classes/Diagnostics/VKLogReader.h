// Finds the logs a report should carry: files in a list of folders whose names start with a
// prefix and end with an extension, leaving out those already sent (a list of paths in the
// user defaults, one per kind of log) and those created at or before an earliest date.
//
// Subclasses choose the folders, prefix, extension and user-defaults key by overriding the
// four answers. Readers report no errors: unlistable folders, unreadable files and missing
// creation dates are skipped (a file without a creation date counts as new).
#pragma once

#include "Foundation/VKExport.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

class VK_EXPORT VKLogReader
{
public:
    VKLogReader(const QString &applicationName, const QDateTime &earliestReportDate);
    virtual ~VKLogReader();
    VKLogReader(const VKLogReader &) = delete;
    VKLogReader &operator=(const VKLogReader &) = delete;

    // Atomic properties: any thread may read and set them.
    virtual QString applicationName() const;
    void setApplicationName(const QString &name);
    QDateTime earliestReportDate() const;
    void setEarliestReportDate(const QDateTime &date);

    // The most bytes recentLogString() reads of one file; a longer file gives its last lines
    // only. Negative (the default) reads whole files.
    qint64 maximumLogStringSize() const;
    void setMaximumLogStringSize(qint64 bytes);

    // The overridable answers, in the order the search consults them. The base answers the
    // "Library" folders of the user and local domains (VKSearchPaths), the application name,
    // no extension and no key.
    virtual QStringList searchPaths() const;
    virtual QString filePathPrefix() const;
    virtual QString filePathExtension() const;
    virtual QString userDefaultsKey() const;

    // Full paths of the matching files, folder by folder in listing order. The prefix is
    // case-sensitive; the extension (after the last dot) must equal filePathExtension().
    QStringList allLogFilePaths() const;
    // Matching files not in the sent list and created after earliestReportDate(). With no
    // user-defaults key, every matching file.
    QStringList unsentLogFilePaths() const;
    // The sent list as stored (its string members), or nothing when none is stored.
    std::optional<QStringList> sentLogFilePaths() const;
    // Adds the current unsent files to the sent list (nothing without a user-defaults key).
    void markUnsentLogsAsSent();
    // The UTF-8 text of the unsent file whose path sorts last, or a null string.
    virtual QString recentLogString() const;

protected:
    // Reads one log as recentLogString() does, within maximumLogStringSize().
    QString readLog(const QString &path) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
