// Writes zip archives of a few files stored flat: each file under its own name, no folders.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>

class VK_EXPORT VKZipArchive
{
public:
    // Creates (or replaces) the archive at `archivePath` with the files in `paths`, each stored
    // compressed under its file name. False when the archive cannot be written or a file cannot
    // be read or is not a regular file; no archive is left behind then. `errorString` says why.
    [[nodiscard]] static bool createZipFileAtPath(const QString &archivePath,
                                                  const QStringList &paths,
                                                  QString *errorString = nullptr);

private:
    VKZipArchive() = delete;
};
