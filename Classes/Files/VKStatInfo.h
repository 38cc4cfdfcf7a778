// What a storage volume is: mount path, space figures, file-system type, names, creation date,
// icon, kind flags, and a text identity (vessanVolumeID) that stays the same across mounts.
//
// One object per mount path lives in a process-wide registry, so every caller shares its cache.
// Values are read in four groups, each with its own time stamp, and a group is read again only
// when its stamp is missing or more than 10 seconds old:
//   statfs        totalBytes, freeBytes, availableBytes, fsType    (statfs(2), the mount table)
//   display name  displayName                                      (QStorageInfo::displayName)
//   volume icon   volumeIcon                                       (the icon theme)
//   volume info   createDate, volumeName, isRemovable, isUnmountable, isNetworkShare
//
// Where the volume-info group comes from on Linux:
//   volume name     the file system's label through libblkid (from the mounted device), else
//                   QStorageInfo::name(); no label at all leaves it unset, so volumeName() falls
//                   back to displayName()
//   creation date   the birth time (statx STATX_BTIME) of the volume's root folder, which ext4,
//                   xfs and btrfs set when the file system is made; none elsewhere
//   bus             udev's ID_BUS of the device (or of its disk), else the first parent device
//                   whose subsystem names a bus (usb, ieee1394/firewire, mmc, nvme, virtio, ...)
//   flags           external bus (usb, ieee1394, mmc): removable and unmountable.
//                   internal bus (ata, scsi, nvme, virtio): removable and unmountable when the
//                   disk's "removable" attribute is 1 (ejectable media) or the bus is ata (a
//                   non-ejectable ATA disk still counts as removable, on purpose); otherwise
//                   neither.
//                   no bus (network shares, loop and virtual devices): unmountable, not
//                   removable; a network share when the file-system type is a network one
//                   (cifs, smb3, smbfs, nfs, nfs4, afpfs, fuse.sshfs, 9p, ceph, glusterfs).
// The step texts of the log ("Can't FSPathMakeRef for %@" ...) name the three reads in order:
// the mount-table entry of the mount path, its device (stat) and its root folder (statx).
//
// Threads: the registry and each object carry a lock of their own, so sharing one object
// between threads is safe; the intended use is one thread (the host's main thread).
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QDateTime>
#include <QIcon>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

// The 8-byte file-system date record: high seconds, low seconds and a 1/65536 fraction, packed
// at offsets 0, 2 and 6, in the host's byte order.
#pragma pack(push, 2)
struct VKUTCDateTime
{
    quint16 highSeconds = 0;
    quint32 lowSeconds = 0;
    quint16 fraction = 0;
};
#pragma pack(pop)
static_assert(sizeof(VKUTCDateTime) == 8);

// Seconds from the reference date (2001-01-01 00:00:00 GMT) to 1904-01-01 00:00:00 GMT,
// -3061152000.0. Worked out from the calendar on first call and kept.
VK_EXPORT double VKStatInfoCarbonReferenceDate();

// The date of a file-system date record. The 8 bytes are read as one little-endian unsigned
// 64-bit word and divided by 65536: for dates before 2040 with a zero fraction that is the low
// seconds since 1904, but high seconds and fraction land in the wrong places. Identities stored
// by earlier versions depend on this reading, so it stays.
VK_EXPORT QDateTime VKStatInfoUTCDateTimeToNSDate(const VKUTCDateTime *record);

class VK_EXPORT VKStatInfo
{
public:
    ~VKStatInfo();
    VKStatInfo(const VKStatInfo &) = delete;
    VKStatInfo &operator=(const VKStatInfo &) = delete;

    // --- Class operations ---

    // The shared object of the volume that holds `path`; null (and `error` filled) when the
    // path does not exist.
    static std::shared_ptr<VKStatInfo> statInfoForPath(const QString &path,
                                                       VKError *error = nullptr);
    // The mount path of the volume holding `path`: the first mounted volume, in the platform's
    // order and leaving "/" aside, whose path components are a prefix of the path's
    // (/media/A does not hold /media/AB/x). Not the longest match. "/" when none matches. A null
    // string, and "Could not get filesystem statistics for file at path %@. File does not
    // exist." in `error`, when nothing (not even a dangling link) is at the path.
    static QString mountPathForPath(const QString &path, VKError *error = nullptr);
    // Registry lookup only (exact mount path); null when absent or for a null argument.
    static std::shared_ptr<VKStatInfo> cachedStatInfoForMountPath(const QString &mountPath);
    // The platform's mounted volumes (QStorageInfo::mountedVolumes(), real file systems only),
    // their root paths in its order.
    static QStringList mountedVolumePaths();

    // A new object, not registered. Null unless `mountPath` is one of mountedVolumePaths();
    // with an `error` pointer the refusal is also logged and stored.
    static std::shared_ptr<VKStatInfo> statInfoWithMountPath(const QString &mountPath,
                                                             VKError *error = nullptr);

    // --- Properties ---

    QString mountPath() const;
    // When each group was last read; null before the first read.
    QDateTime lastUpdateForStatfs() const;
    QDateTime lastUpdateForDisplayName() const;
    QDateTime lastUpdateForVolumeIcon() const;
    QDateTime lastUpdateForFSVolumeInfo() const;

    // The cached values, as last read (no refresh).
    quint64 cachedTotalBytes() const;
    quint64 cachedFreeBytes() const;
    quint64 cachedAvailableBytes() const;
    QString cachedFsType() const;
    QDateTime cachedCreateDate() const;
    QString cachedVolumeName() const;
    QString cachedDisplayName() const;
    QIcon cachedVolumeIcon() const;
    bool cachedIsRemovable() const;
    bool cachedIsUnmountable() const;
    bool cachedIsNetworkShare() const;

    // --- Getters: refresh their group when due, then answer the cached value ---

    quint64 totalBytes();
    quint64 freeBytes();
    quint64 availableBytes();
    QString fsType();
    QString displayName();
    QIcon volumeIcon();
    QDateTime createDate();
    bool isRemovable();
    bool isUnmountable();
    bool isNetworkShare();
    // The volume-info name if there is one, else displayName().
    QString volumeName();

    // "label=%@_created=%@_size=%lld_fsType=%@": the volume name ("unknown" if none), the
    // creation date as "%Y-%m-%d_%H:%M:%S_%z" in the current time zone ("1904-01-01" without
    // one, "none" for smbfs, afpfs, cifs and smb3 shares when the user default
    // "dontUseCreationDateToIdentifyNetworkShares" is on), totalBytes() and fsType().
    QString vessanVolumeID();

    // The udev description of a block device (its properties, completed with ID_FS_LABEL,
    // ID_FS_UUID and ID_FS_TYPE from libblkid where udev has none), by device number, which
    // stands for the volume; nothing when no block device has that number.
    static std::optional<QVariantMap> diskArbitrationInfoForVolumeAtPath(quint64 volumeDevice);

    // --- Refresh steps; each obeys the 10-second rule itself ---

    void updateStatfs();
    void updateDisplayName();
    void updateVolumeIcon();
    void updateFSVolumeInfo();

    // Whether the type names a network file system (cifs, nfs4, fuse.sshfs, ...).
    static bool isNetworkFileSystemType(const QString &fsType);

    // While alive, the refresh rule reads the time from `clock` instead of the system clock,
    // so that tests can move time on. Not for use while other threads read volumes.
    class VK_EXPORT TestingClock
    {
    public:
        explicit TestingClock(std::function<QDateTime()> clock);
        ~TestingClock();
        TestingClock(const TestingClock &) = delete;
        TestingClock &operator=(const TestingClock &) = delete;

    private:
        std::function<QDateTime()> m_previous;
    };

private:
    explicit VKStatInfo(const QString &mountPath);
    struct Private;
    std::unique_ptr<Private> d;
};
