#include "Files/VKStatInfo.h"

#include "Files/VKPathUtility.h"
#include "Foundation/VKDate.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKPathString.h"
#include "Foundation/VKUserDefaults.h"

#include <QFile>
#include <QStorageInfo>
#include <QTimeZone>
#include <QtEndian>

#include <atomic>
#include <cstring>
#include <ctime>
#include <mutex>

#include <blkid/blkid.h>
#include <fcntl.h>
#include <libudev.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

namespace {

const QString kClassName = QStringLiteral("VKStatInfo");

VKLogContext logContext(const char *operation, const void *object)
{
    return {kClassName, QString::fromLatin1(operation), object};
}

constexpr double kRefreshInterval = -10.0;

std::mutex &clockMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::function<QDateTime()> &testingClock()
{
    static std::function<QDateTime()> clock;
    return clock;
}

QDateTime now()
{
    std::function<QDateTime()> clock;
    {
        std::lock_guard lock(clockMutex());
        clock = testingClock();
    }
    return clock ? clock() : VKDate::now();
}

// A group is due when it was never read or its stamp lies more than 10 seconds back.
bool isDue(const QDateTime &stamp)
{
    return stamp.isNull() || VKDate::timeIntervalBetween(stamp, now()) < kRefreshInterval;
}

struct Registry
{
    std::mutex mutex;
    QList<std::shared_ptr<VKStatInfo>> objects;
};

Registry &registry()
{
    static Registry *shared = new Registry; // lives for the process
    return *shared;
}

// One line of /proc/self/mountinfo.
struct MountEntry
{
    QString fsType;
    QString source;
};

// "\040" and the other octal escapes of the mount table.
QString unescapeMountField(const QByteArray &field)
{
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int value = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out.append(static_cast<char>(value));
                i += 3;
                continue;
            }
        }
        out.append(field[i]);
    }
    return QString::fromUtf8(out);
}

// The topmost mount at exactly `mountPath`, if any.
std::optional<MountEntry> mountEntryForMountPath(const QString &mountPath)
{
    QFile file(QStringLiteral("/proc/self/mountinfo"));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    std::optional<MountEntry> found;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        const qsizetype separator = fields.indexOf("-");
        if (fields.size() < 5 || separator < 0 || separator + 2 >= fields.size())
            continue;
        if (unescapeMountField(fields[4]) != mountPath)
            continue;
        found = MountEntry{unescapeMountField(fields[separator + 1]),
                           unescapeMountField(fields[separator + 2])};
    }
    return found;
}

// The label and uuid of a device through libblkid; needs read access to the device.
QVariantMap blkidValues(const QString &devicePath)
{
    QVariantMap values;
    const QByteArray path = QFile::encodeName(devicePath);
    blkid_probe probe = blkid_new_probe_from_filename(path.constData());
    if (!probe)
        return values;
    blkid_probe_enable_superblocks(probe, 1);
    blkid_probe_set_superblocks_flags(probe,
                                      BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE);
    if (blkid_do_safeprobe(probe) == 0) {
        const std::pair<const char *, const char *> keys[] = {
            {"LABEL", "ID_FS_LABEL"}, {"UUID", "ID_FS_UUID"}, {"TYPE", "ID_FS_TYPE"}};
        for (const auto &[name, key] : keys) {
            const char *data = nullptr;
            size_t length = 0;
            if (blkid_probe_lookup_value(probe, name, &data, &length) == 0 && data)
                values.insert(QString::fromLatin1(key), QString::fromUtf8(data));
        }
    }
    blkid_free_probe(probe);
    return values;
}

// The device number of a block device node, or 0.
dev_t blockDeviceNumber(const QString &devicePath)
{
    struct stat st
    {
    };
    if (devicePath.startsWith(u'/') && stat(QFile::encodeName(devicePath).constData(), &st) == 0 &&
        S_ISBLK(st.st_mode))
        return st.st_rdev;
    return 0;
}

enum class Bus { None, External, Internal };

struct DeviceKind
{
    Bus bus = Bus::None;
    QString busName;
    bool ejectable = false;
};

QString busOfParents(udev_device *device)
{
    QString found;
    for (udev_device *parent = udev_device_get_parent(device); parent;
         parent = udev_device_get_parent(parent)) {
        const QString subsystem = QString::fromLatin1(udev_device_get_subsystem(parent));
        if (subsystem == u"usb" || subsystem == u"mmc")
            return subsystem;
        if (subsystem == u"firewire" || subsystem == u"ieee1394")
            return QStringLiteral("ieee1394");
        if (found.isEmpty()) {
            const QString devpath = QString::fromLatin1(udev_device_get_devpath(parent));
            if (devpath.contains(QStringLiteral("/ata")))
                found = QStringLiteral("ata");
            else if (subsystem == u"nvme" || subsystem == u"virtio" || subsystem == u"scsi")
                found = subsystem;
        }
    }
    return found;
}

// The bus and ejectability of a block device; nothing when udev cannot be asked.
std::optional<DeviceKind> deviceKind(dev_t number)
{
    if (number == 0)
        return DeviceKind{};
    udev *context = udev_new();
    if (!context)
        return std::nullopt;
    DeviceKind kind;
    if (udev_device *device = udev_device_new_from_devnum(context, 'b', number)) {
        udev_device *disk = device;
        if (qstrcmp(udev_device_get_devtype(device), "partition") == 0) {
            if (udev_device *parent =
                    udev_device_get_parent_with_subsystem_devtype(device, "block", "disk"))
                disk = parent;
        }
        const char *bus = udev_device_get_property_value(device, "ID_BUS");
        kind.busName = bus ? QString::fromLatin1(bus) : busOfParents(disk);
        const char *removable = udev_device_get_sysattr_value(disk, "removable");
        kind.ejectable = removable && qstrcmp(removable, "1") == 0;
        udev_device_unref(device);
    }
    udev_unref(context);
    static const QStringList external = {QStringLiteral("usb"), QStringLiteral("ieee1394"),
                                         QStringLiteral("mmc")};
    static const QStringList internal = {QStringLiteral("ata"), QStringLiteral("scsi"),
                                         QStringLiteral("nvme"), QStringLiteral("virtio")};
    if (external.contains(kind.busName))
        kind.bus = Bus::External;
    else if (internal.contains(kind.busName))
        kind.bus = Bus::Internal;
    return kind;
}

QString calendarFormat(const QDateTime &date, const char *format)
{
    const time_t seconds = static_cast<time_t>(date.toSecsSinceEpoch());
    struct tm local
    {
    };
    if (!localtime_r(&seconds, &local))
        return QString();
    char buffer[128];
    const size_t length = std::strftime(buffer, sizeof buffer, format, &local);
    return QString::fromLatin1(buffer, static_cast<qsizetype>(length));
}

} // namespace

double VKStatInfoCarbonReferenceDate()
{
    static std::atomic<double> stored{0.0};
    double value = stored.load(std::memory_order_relaxed);
    if (value == 0.0) {
        const QDateTime carbonEpoch(QDate(1904, 1, 1), QTime(0, 0), QTimeZone("GMT"));
        value = VKDate::timeIntervalSinceReferenceDate(carbonEpoch);
        stored.store(value, std::memory_order_relaxed);
    }
    return value;
}

QDateTime VKStatInfoUTCDateTimeToNSDate(const VKUTCDateTime *record)
{
    if (!record)
        return QDateTime();
    const quint64 word = qFromLittleEndian<quint64>(record);
    const double seconds = static_cast<double>(word) / 65536.0;
    return VKDate::dateWithTimeIntervalSinceReferenceDate(seconds +
                                                          VKStatInfoCarbonReferenceDate());
}

struct VKStatInfo::Private
{
    mutable std::recursive_mutex mutex;
    QString mountPath;
    QDateTime lastUpdateForStatfs;
    QDateTime lastUpdateForDisplayName;
    QDateTime lastUpdateForVolumeIcon;
    QDateTime lastUpdateForFSVolumeInfo;
    quint64 totalBytes = 0;
    quint64 freeBytes = 0;
    quint64 availableBytes = 0;
    QString fsType;
    QDateTime createDate;
    QString volumeName;
    QString displayName;
    QIcon volumeIcon;
    bool isRemovable = false;
    bool isUnmountable = false;
    bool isNetworkShare = false;
};

VKStatInfo::VKStatInfo(const QString &mountPath) : d(std::make_unique<Private>())
{
    d->mountPath = mountPath;
}

VKStatInfo::~VKStatInfo() = default;

QStringList VKStatInfo::mountedVolumePaths()
{
    QStringList paths;
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    paths.reserve(volumes.size());
    for (const QStorageInfo &volume : volumes)
        paths.append(volume.rootPath());
    return paths;
}

QString VKStatInfo::mountPathForPath(const QString &path, VKError *error)
{
    struct stat st
    {
    };
    if (path.isEmpty() || lstat(QFile::encodeName(path).constData(), &st) != 0) {
        VKError::fill(error, VKError::errorWithDescription(
                                 VQErrorDomainVessanUtilities, 0,
                                 QStringLiteral("Could not get filesystem statistics for file at "
                                                "path %1. File does not exist.")
                                     .arg(path)));
        return QString();
    }
    const QStringList components = VKPathString::pathComponents(path);
    const QStringList mountPaths = mountedVolumePaths();
    for (const QString &mountPath : mountPaths) {
        if (mountPath == u"/")
            continue;
        const QStringList mountComponents = VKPathString::pathComponents(mountPath);
        if (components.size() == mountComponents.size()) {
            if (path == mountPath)
                return mountPath;
            continue;
        }
        if (components.size() < mountComponents.size())
            continue;
        bool prefix = true;
        for (qsizetype i = 0; i < mountComponents.size() && prefix; ++i)
            prefix = mountComponents[i] == components[i];
        if (prefix)
            return mountPath;
    }
    return QStringLiteral("/");
}

std::shared_ptr<VKStatInfo> VKStatInfo::cachedStatInfoForMountPath(const QString &mountPath)
{
    if (mountPath.isNull())
        return nullptr;
    Registry &shared = registry();
    std::lock_guard lock(shared.mutex);
    for (const std::shared_ptr<VKStatInfo> &object : std::as_const(shared.objects)) {
        if (object->d->mountPath == mountPath)
            return object;
    }
    return nullptr;
}

std::shared_ptr<VKStatInfo> VKStatInfo::statInfoForPath(const QString &path, VKError *error)
{
    const QString mountPath = mountPathForPath(path, error);
    if (mountPath.isNull())
        return nullptr;
    Registry &shared = registry();
    std::lock_guard lock(shared.mutex);
    for (const std::shared_ptr<VKStatInfo> &object : std::as_const(shared.objects)) {
        if (object->d->mountPath == mountPath)
            return object;
    }
    std::shared_ptr<VKStatInfo> object = statInfoWithMountPath(mountPath, error);
    if (object)
        shared.objects.append(object);
    return object;
}

std::shared_ptr<VKStatInfo> VKStatInfo::statInfoWithMountPath(const QString &mountPath,
                                                              VKError *error)
{
    if (!mountedVolumePaths().contains(mountPath)) {
        if (error) {
            const QString format = QStringLiteral(
                "Could not init statistics for file at path %@. Path is no mount path.");
            VKLogger::error(logContext("-[VKStatInfo initWithMountPath:error:]", nullptr), format,
                            mountPath);
            *error = VKError::errorWithDescription(VQErrorDomainVessanUtilities, 0,
                                                   vkFormat(format, mountPath));
        }
        return nullptr;
    }
    return std::shared_ptr<VKStatInfo>(new VKStatInfo(mountPath));
}

// --- Properties ---

#define VK_STATINFO_GETTER(type, name, member)                                                     \
    type VKStatInfo::name() const                                                                  \
    {                                                                                              \
        std::lock_guard lock(d->mutex);                                                            \
        return d->member;                                                                          \
    }

VK_STATINFO_GETTER(QString, mountPath, mountPath)
VK_STATINFO_GETTER(QDateTime, lastUpdateForStatfs, lastUpdateForStatfs)
VK_STATINFO_GETTER(QDateTime, lastUpdateForDisplayName, lastUpdateForDisplayName)
VK_STATINFO_GETTER(QDateTime, lastUpdateForVolumeIcon, lastUpdateForVolumeIcon)
VK_STATINFO_GETTER(QDateTime, lastUpdateForFSVolumeInfo, lastUpdateForFSVolumeInfo)
VK_STATINFO_GETTER(quint64, cachedTotalBytes, totalBytes)
VK_STATINFO_GETTER(quint64, cachedFreeBytes, freeBytes)
VK_STATINFO_GETTER(quint64, cachedAvailableBytes, availableBytes)
VK_STATINFO_GETTER(QString, cachedFsType, fsType)
VK_STATINFO_GETTER(QDateTime, cachedCreateDate, createDate)
VK_STATINFO_GETTER(QString, cachedVolumeName, volumeName)
VK_STATINFO_GETTER(QString, cachedDisplayName, displayName)
VK_STATINFO_GETTER(QIcon, cachedVolumeIcon, volumeIcon)
VK_STATINFO_GETTER(bool, cachedIsRemovable, isRemovable)
VK_STATINFO_GETTER(bool, cachedIsUnmountable, isUnmountable)
VK_STATINFO_GETTER(bool, cachedIsNetworkShare, isNetworkShare)

#undef VK_STATINFO_GETTER

// --- Refreshing getters ---

#define VK_STATINFO_REFRESHING_GETTER(type, name, update, member)                                  \
    type VKStatInfo::name()                                                                        \
    {                                                                                              \
        std::lock_guard lock(d->mutex);                                                            \
        update();                                                                                  \
        return d->member;                                                                          \
    }

VK_STATINFO_REFRESHING_GETTER(quint64, totalBytes, updateStatfs, totalBytes)
VK_STATINFO_REFRESHING_GETTER(quint64, freeBytes, updateStatfs, freeBytes)
VK_STATINFO_REFRESHING_GETTER(quint64, availableBytes, updateStatfs, availableBytes)
VK_STATINFO_REFRESHING_GETTER(QString, fsType, updateStatfs, fsType)
VK_STATINFO_REFRESHING_GETTER(QString, displayName, updateDisplayName, displayName)
VK_STATINFO_REFRESHING_GETTER(QIcon, volumeIcon, updateVolumeIcon, volumeIcon)
VK_STATINFO_REFRESHING_GETTER(QDateTime, createDate, updateFSVolumeInfo, createDate)
VK_STATINFO_REFRESHING_GETTER(bool, isRemovable, updateFSVolumeInfo, isRemovable)
VK_STATINFO_REFRESHING_GETTER(bool, isUnmountable, updateFSVolumeInfo, isUnmountable)
VK_STATINFO_REFRESHING_GETTER(bool, isNetworkShare, updateFSVolumeInfo, isNetworkShare)

#undef VK_STATINFO_REFRESHING_GETTER

QString VKStatInfo::volumeName()
{
    std::lock_guard lock(d->mutex);
    updateFSVolumeInfo();
    if (!d->volumeName.isNull())
        return d->volumeName;
    return displayName();
}

QString VKStatInfo::vessanVolumeID()
{
    std::lock_guard lock(d->mutex);
    QString label = volumeName();
    if (label.isNull())
        label = QStringLiteral("unknown");
    const quint64 size = totalBytes();
    QString type = fsType();
    if (type.isNull())
        type = QStringLiteral("unknown");

    QString created = QStringLiteral("1904-01-01");
    // cifs and smb3 are the Linux names of the same shares as smbfs.
    static const QStringList sharesWithoutDate = {QStringLiteral("smbfs"), QStringLiteral("afpfs"),
                                                  QStringLiteral("cifs"), QStringLiteral("smb3")};
    const std::shared_ptr<VKUserDefaults> defaults = VKUserDefaults::standardUserDefaults();
    if (defaults &&
        defaults->boolForKey(QStringLiteral("dontUseCreationDateToIdentifyNetworkShares")) &&
        sharesWithoutDate.contains(type)) {
        created = QStringLiteral("none");
    } else {
        const QDateTime date = createDate();
        if (!date.isNull())
            created = calendarFormat(date, "%Y-%m-%d_%H:%M:%S_%z");
    }
    return QStringLiteral("label=%1_created=%2_size=%3_fsType=%4")
        .arg(label, created, QString::number(static_cast<qint64>(size)), type);
}

std::optional<QVariantMap> VKStatInfo::diskArbitrationInfoForVolumeAtPath(quint64 volumeDevice)
{
    if (volumeDevice == 0)
        return std::nullopt;
    udev *context = udev_new();
    if (!context)
        return std::nullopt;
    udev_device *device =
        udev_device_new_from_devnum(context, 'b', static_cast<dev_t>(volumeDevice));
    if (!device) {
        udev_unref(context);
        return std::nullopt;
    }
    QVariantMap description;
    udev_list_entry *entry = nullptr;
    udev_list_entry_foreach(entry, udev_device_get_properties_list_entry(device))
    {
        description.insert(QString::fromUtf8(udev_list_entry_get_name(entry)),
                           QString::fromUtf8(udev_list_entry_get_value(entry)));
    }
    const char *node = udev_device_get_devnode(device);
    const QVariantMap probed = node ? blkidValues(QString::fromUtf8(node)) : QVariantMap();
    for (auto it = probed.begin(); it != probed.end(); ++it) {
        if (!description.contains(it.key()))
            description.insert(it.key(), it.value());
    }
    udev_device_unref(device);
    udev_unref(context);
    return description;
}

// --- Refresh steps ---

void VKStatInfo::updateStatfs()
{
    std::lock_guard lock(d->mutex);
    if (!isDue(d->lastUpdateForStatfs))
        return;
    // On Linux the mount point stays as an empty folder after unmounting, and statfs would
    // answer for the file system below it; a mount path that left the table counts as failed.
    const std::optional<MountEntry> entry = mountEntryForMountPath(d->mountPath);
    struct statfs st
    {
    };
    if (!entry || statfs(QFile::encodeName(d->mountPath).constData(), &st) != 0) {
        VKLogger::error(logContext("-[VKStatInfo updateStatfs]", this),
                        QStringLiteral("Could not execute statfs for path %@"), d->mountPath);
        return;
    }
    const quint64 blockSize = static_cast<quint64>(st.f_bsize);
    d->totalBytes = blockSize * static_cast<quint64>(st.f_blocks);
    d->freeBytes = blockSize * static_cast<quint64>(st.f_bfree);
    d->availableBytes = blockSize * static_cast<quint64>(st.f_bavail);
    d->fsType = entry->fsType;
    d->lastUpdateForStatfs = now();
}

void VKStatInfo::updateDisplayName()
{
    std::lock_guard lock(d->mutex);
    if (!isDue(d->lastUpdateForDisplayName))
        return;
    d->displayName = QStorageInfo(d->mountPath).displayName();
    d->lastUpdateForDisplayName = now();
}

void VKStatInfo::updateVolumeIcon()
{
    std::lock_guard lock(d->mutex);
    if (!isDue(d->lastUpdateForVolumeIcon))
        return;
    const char *name = "drive-harddisk";
    if (isNetworkShare())
        name = "folder-remote";
    else if (isRemovable())
        name = "drive-removable-media";
    d->volumeIcon = VKPathUtility::themeIcon(QString::fromLatin1(name));
    d->lastUpdateForVolumeIcon = now();
}

void VKStatInfo::updateFSVolumeInfo()
{
    std::lock_guard lock(d->mutex);
    if (!isDue(d->lastUpdateForFSVolumeInfo))
        return;
    const VKLogContext context = logContext("-[VKStatInfo updateFSVolumeInfo]", this);
    const QByteArray mountPath = QFile::encodeName(d->mountPath);
    struct stat st
    {
    };
    struct statx sx
    {
    };
    const std::optional<MountEntry> entry = mountEntryForMountPath(d->mountPath);
    if (!entry) {
        VKLogger::error(context, QStringLiteral("Can't FSPathMakeRef for %@"), d->mountPath);
    } else if (stat(mountPath.constData(), &st) != 0) {
        VKLogger::error(context, QStringLiteral("Can't FSGetCatalogInfo for %@"), d->mountPath);
    } else {
        if (statx(AT_FDCWD, mountPath.constData(), 0, STATX_BTIME, &sx) != 0) {
            VKLogger::error(context, QStringLiteral("Can't FSGetVolumeInfo for %@"), d->mountPath);
        } else {
            d->createDate =
                (sx.stx_mask & STATX_BTIME)
                    ? VKDate::dateWithTimeIntervalSince1970(
                          static_cast<double>(sx.stx_btime.tv_sec) + sx.stx_btime.tv_nsec / 1e9)
                    : QDateTime();
            QString label =
                blkidValues(entry->source).value(QStringLiteral("ID_FS_LABEL")).toString();
            if (label.isEmpty())
                label = QStorageInfo(d->mountPath).name();
            d->volumeName = label.isEmpty() ? QString() : label;
        }

        const dev_t device = blockDeviceNumber(entry->source);
        if (const std::optional<DeviceKind> kind = deviceKind(device)) {
            switch (kind->bus) {
            case Bus::External:
                d->isRemovable = true;
                d->isUnmountable = true;
                break;
            case Bus::Internal: {
                // An ATA disk that cannot eject still counts as removable.
                const bool removable = kind->ejectable || kind->busName == u"ata";
                d->isRemovable = removable;
                d->isUnmountable = removable;
                break;
            }
            case Bus::None:
                d->isNetworkShare = isNetworkFileSystemType(entry->fsType);
                d->isRemovable = false;
                d->isUnmountable = true;
                break;
            }
        }
    }
    d->lastUpdateForFSVolumeInfo = now();
}

bool VKStatInfo::isNetworkFileSystemType(const QString &fsType)
{
    static const QStringList types = {QStringLiteral("cifs"),       QStringLiteral("smb3"),
                                      QStringLiteral("smbfs"),      QStringLiteral("nfs"),
                                      QStringLiteral("nfs4"),       QStringLiteral("afpfs"),
                                      QStringLiteral("fuse.sshfs"), QStringLiteral("9p"),
                                      QStringLiteral("ceph"),       QStringLiteral("glusterfs")};
    return types.contains(fsType);
}

VKStatInfo::TestingClock::TestingClock(std::function<QDateTime()> clock)
{
    std::lock_guard lock(clockMutex());
    m_previous = std::exchange(testingClock(), std::move(clock));
}

VKStatInfo::TestingClock::~TestingClock()
{
    std::lock_guard lock(clockMutex());
    testingClock() = std::move(m_previous);
}
