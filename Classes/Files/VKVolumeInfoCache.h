// The shared table of mounted volumes (mount path, icon, name) that path records are tied to,
// rebuilt when a path names a volume the table does not know.
//
// volumeInfoForPath() maps every path outside the removable-media roots ("/media",
// "/run/media", "/mnt" and "/Volumes") to the root volume "/", whether or not it exists. Inside
// them it takes the first mount path in the table's own (hash) order that is a plain character
// prefix of the path: /media/A also answers for /media/AB/x. This differs on purpose from the
// component-wise rule of VKStatInfo::mountPathForPath().
//
// Threads: one recursive lock per instance, held by volumeInfoForPath() and
// reloadVolumeInfos(); callers may come from any thread.
#pragma once

#include "Files/VKVolumeInfo.h"
#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <memory>

class VK_EXPORT VKVolumeInfoCache
{
public:
    ~VKVolumeInfoCache();
    VKVolumeInfoCache(const VKVolumeInfoCache &) = delete;
    VKVolumeInfoCache &operator=(const VKVolumeInfoCache &) = delete;

    // The one instance, made on first use: it creates its cache folder and reads the volume
    // table. Null when the folder cannot be made (the next call tries again).
    static VKVolumeInfoCache *sharedCache();

    // The roots below which removable volumes are mounted.
    static const QStringList &removableMediaRoots();

    // The volume of `path`, or null when it lies under a removable-media root and no mounted
    // volume matches even after reloading the table.
    std::shared_ptr<VKVolumeInfo> volumeInfoForPath(const QString &path);
    // Reads the table again from the mounted volumes.
    void reloadVolumeInfos();
    // The current table, by mount path.
    QHash<QString, std::shared_ptr<VKVolumeInfo>> volumeInfos() const;

    // The cache's own folder: the user's caches folder + "Vessan/Utilities/VolumeIcons".
    QString cachesFolder() const;
    // Makes the folder (with its parents) when nothing is there; a null error on success.
    VKError createCacheFolder() const;

private:
    VKVolumeInfoCache();
    struct Private;
    std::unique_ptr<Private> d;
};
