#include "Files/VKPath.h"

#include "Files/VKVolumeInfoCache.h"
#include "Foundation/VKPathString.h"

std::shared_ptr<VKPath> VKPath::pathWithAbsoluteFilePath(const QString &absoluteFilePath)
{
    VKVolumeInfoCache *cache = VKVolumeInfoCache::sharedCache();
    std::shared_ptr<VKVolumeInfo> volume =
        cache ? cache->volumeInfoForPath(absoluteFilePath) : nullptr;
    if (!volume)
        return nullptr;
    auto path = std::make_shared<VKPath>();
    path->m_volumeInfo = volume;
    if (absoluteFilePath.endsWith(u'/'))
        path->m_isDirectory = true;
    const QString mountPath = volume->path();
    if (absoluteFilePath.startsWith(mountPath)) {
        QString relative = absoluteFilePath.mid(mountPath.size());
        if (relative.startsWith(u'/'))
            relative.remove(0, 1);
        path->m_relativeFilePath = relative;
    }
    return path;
}

std::shared_ptr<VKPath> VKPath::pathWithVolumeInfo(const std::shared_ptr<VKVolumeInfo> &volumeInfo,
                                                   const QString &relativePath, bool isDirectory)
{
    return std::make_shared<VKPath>(volumeInfo, relativePath, isDirectory);
}

QString VKPath::volumeMountPath() const
{
    return m_volumeInfo ? m_volumeInfo->path() : QString();
}

QString VKPath::absoluteFilePath() const
{
    return VKPathString::appendingPathComponent(volumeMountPath(), m_relativeFilePath);
}

int VKPath::compare(const VKPath &other) const
{
    const int order = QString::compare(absoluteFilePath(), other.absoluteFilePath());
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}
