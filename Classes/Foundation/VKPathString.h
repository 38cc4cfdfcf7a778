// Path operations with the desktop platform's semantics, which several parts of the library
// depend on to the letter. Paths are '/'-separated text; nothing here touches the disk except
// tilde expansion (user database). The folders of the platform are VKSearchPaths'.
//
//   pathComponents("/Volumes/A/")  -> "/", "Volumes", "A", "/"   (a root and a trailing slash
//                                     are components of their own)
//   pathComponents("a//b")         -> "a", "b"
//   lastPathComponent("/tmp/")     -> "tmp";   lastPathComponent("/") -> "/"
//   deletingLastPathComponent("/tmp") -> "/";  deletingLastPathComponent("a") -> ""
//   pathExtension(".profile")      -> "";      pathExtension("a.tar.gz") -> "gz"
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>

class VK_EXPORT VKPathString
{
public:
    static QStringList pathComponents(const QString &path);
    // Joins components; a leading "/" component makes an absolute path, and repeated or
    // trailing slashes are removed from the result.
    static QString pathWithComponents(const QStringList &components);
    static QString lastPathComponent(const QString &path);
    static QString deletingLastPathComponent(const QString &path);
    static QString pathExtension(const QString &path);
    static QString deletingPathExtension(const QString &path);
    // "" + "a" -> "a"; "/" + "a" -> "/a"; "/tmp/" + "a/" -> "/tmp/a".
    static QString appendingPathComponent(const QString &path, const QString &component);
    // "a" + "txt" -> "a.txt"; answers the path unchanged for an empty extension.
    static QString appendingPathExtension(const QString &path, const QString &extension);
    // "~" and "~/x" expand to the home folder, "~user/x" to that user's home folder; a path
    // whose user is unknown, or that does not start with "~", is only cleaned of extra slashes.
    static QString expandingTildeInPath(const QString &path);
    static bool isAbsolutePath(const QString &path);
    // Repeated slashes collapse to one and a trailing slash goes (except for the root "/").
    static QString fixingSlashes(const QString &path);
};
