// Small file-system questions asked all over the library: does something exist at a path, how
// many bytes of data does a file hold, which names does a folder list.
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>

#include <optional>

class VK_EXPORT VKFileSystem
{
public:
    // Whether anything (file, folder, device...) exists at `path`, following symbolic links.
    // An empty path exists nowhere.
    static bool fileExistsAtPath(const QString &path);
    // The same, and whether it is a folder.
    static bool fileExistsAtPath(const QString &path, bool *isDirectory);

    // The size of the file's data in bytes (symbolic links followed). Folders and other
    // non-regular files hold no data and answer 0, as does a path where nothing can be read;
    // `error` then tells why.
    static qint64 filesizeCFI(const QString &path, VKError *error = nullptr);

    // The names of a folder's entries (hidden ones included, without "." and ".."), in the
    // order the file system lists them. Nothing (and `error` filled) when the folder cannot be
    // listed: it does not exist, is not a folder, or may not be read.
    static std::optional<QStringList> contentsOfDirectoryAtPath(const QString &path,
                                                                VKError *error = nullptr);
};
