// A file's creation date: its birth time as the file system keeps it (statx STATX_BTIME),
// to the millisecond. File systems that keep none give no date.
#pragma once

#include "Foundation/VKExport.h"

#include <QDateTime>
#include <QString>

#include <optional>

class VK_EXPORT VKFileCreationDate
{
public:
    // The birth time in UTC, or nothing when the file is missing or has none.
    static std::optional<QDateTime> creationDate(const QString &path);
};
