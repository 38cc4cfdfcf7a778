// Helpers the log readers share: listing a folder, the creation-date rule, the sent lists in
// the user defaults and reading a log as UTF-8 text. Not installed.
#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

namespace VKLogFiles {

// The names in `folder` in listing order (not recursive, no "." or ".."); nothing when the
// folder cannot be listed.
QStringList entryNames(const QString &folder);

// Whether a file counts as new: created strictly after `earliest`, or without a creation
// date, or `earliest` is null. Compared to the millisecond.
bool isCreatedAfter(const QString &path, const QDateTime &earliest);

// The sent list under `key` in the standard user defaults (string members only).
QStringList sentPaths(const QString &key);
// Adds `paths` to the list under `key`. Members that are not strings stay as they are; a
// value that is no list is replaced.
void addSentPaths(const QString &key, const QStringList &paths);

// The file as UTF-8 text; a null string when it cannot be read or is not valid UTF-8. With
// `maximumSize` >= 0 a longer file gives only its last `maximumSize` bytes, from the first
// line that starts inside them.
QString readUTF8(const QString &path, qint64 maximumSize = -1);

} // namespace VKLogFiles
