#include "Files/VKVolumeInfoCache.h"

#include "Files/VKPathUtility.h"
#include "Files/VKStatInfo.h"
#include "Foundation/VKPathString.h"
#include "Foundation/VKSearchPaths.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <mutex>

#include <sys/stat.h>

struct VKVolumeInfoCache::Private
{
    mutable std::recursive_mutex mutex;
    QHash<QString, std::shared_ptr<VKVolumeInfo>> volumeInfos;
};

VKVolumeInfoCache::VKVolumeInfoCache() : d(std::make_unique<Private>()) {}

VKVolumeInfoCache::~VKVolumeInfoCache() = default;

VKVolumeInfoCache *VKVolumeInfoCache::sharedCache()
{
    static std::mutex mutex;
    static VKVolumeInfoCache *shared = nullptr; // lives for the process
    std::lock_guard lock(mutex);
    if (!shared) {
        auto cache = std::unique_ptr<VKVolumeInfoCache>(new VKVolumeInfoCache);
        if (!cache->createCacheFolder().isNull())
            return nullptr;
        cache->reloadVolumeInfos();
        shared = cache.release();
    }
    return shared;
}

const QStringList &VKVolumeInfoCache::removableMediaRoots()
{
    static const QStringList roots = {QStringLiteral("/Volumes"), QStringLiteral("/media"),
                                      QStringLiteral("/run/media"), QStringLiteral("/mnt")};
    return roots;
}

std::shared_ptr<VKVolumeInfo> VKVolumeInfoCache::volumeInfoForPath(const QString &path)
{
    std::lock_guard lock(d->mutex);
    bool underMediaRoot = false;
    for (const QString &root : removableMediaRoots())
        underMediaRoot = underMediaRoot || path.startsWith(root);
    if (!underMediaRoot)
        return d->volumeInfos.value(QStringLiteral("/"));

    const auto findKey = [&]() -> QString {
        for (auto it = d->volumeInfos.cbegin(); it != d->volumeInfos.cend(); ++it) {
            if (it.key() != u"/" && path.startsWith(it.key()))
                return it.key();
        }
        return QString();
    };
    QString key = findKey();
    if (key.isNull()) {
        reloadVolumeInfos();
        key = findKey();
        if (key.isNull())
            return nullptr;
    }
    return d->volumeInfos.value(key);
}

void VKVolumeInfoCache::reloadVolumeInfos()
{
    std::lock_guard lock(d->mutex);
    QHash<QString, std::shared_ptr<VKVolumeInfo>> table;
    for (const QString &path : VKStatInfo::mountedVolumePaths()) {
        const std::shared_ptr<VKStatInfo> statInfo = VKStatInfo::statInfoForPath(path);
        auto info = std::make_shared<VKVolumeInfo>();
        info->setIcon(statInfo ? statInfo->volumeIcon() : VKPathUtility::iconForFile(path));
        info->setName(statInfo ? statInfo->volumeName() : QString());
        info->setPath(path);
        table.insert(path, info);
    }
    d->volumeInfos = std::move(table);
}

QHash<QString, std::shared_ptr<VKVolumeInfo>> VKVolumeInfoCache::volumeInfos() const
{
    std::lock_guard lock(d->mutex);
    return d->volumeInfos;
}

QString VKVolumeInfoCache::cachesFolder() const
{
    QString caches = VKSearchPaths::cachesDirectory();
    if (caches.isEmpty())
        caches = VKSearchPaths::temporaryDirectory();
    return VKPathString::appendingPathComponent(caches,
                                                QStringLiteral("Vessan/Utilities/VolumeIcons"));
}

VKError VKVolumeInfoCache::createCacheFolder() const
{
    const QString folder = cachesFolder();
    const QByteArray bytes = QFile::encodeName(folder);
    struct stat st
    {
    };
    if (::lstat(bytes.constData(), &st) == 0)
        return VKError();
    // mkdir -p, stopping at the first step that fails.
    for (qsizetype i = 1; i <= bytes.size(); ++i) {
        if (i < bytes.size() && bytes[i] != '/')
            continue;
        const QByteArray prefix = bytes.left(i);
        if (::mkdir(prefix.constData(), 0755) == 0 || errno == EEXIST)
            continue;
        const int code = errno;
        return VKError::errorWithDescription(
            VQErrorDomainVessanUtilities, code,
            QStringLiteral("%1: %2").arg(folder, QString::fromLocal8Bit(std::strerror(code))));
    }
    return VKError();
}
