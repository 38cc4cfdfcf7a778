// A path tied to its volume: the volume record and the path inside the volume. Path records
// have identity (they are shared, and compared as objects), so they are held by shared_ptr.
//
//   /home/ann/a.mov      -> volume "/",           relative path "home/ann/a.mov"
//   /media/Card/DCIM/    -> volume "/media/Card", relative path "DCIM/", a directory
#pragma once

#include "Files/VKVolumeInfo.h"
#include "Foundation/VKExport.h"

#include <QString>

#include <memory>

class VK_EXPORT VKPath
{
public:
    // The path of an absolute path, with the volume from the shared volume info cache; null
    // when the cache has no volume for it. A trailing "/" marks a directory (the disk is not
    // asked). The relative path stays null if the path does not begin with the mount path.
    static std::shared_ptr<VKPath> pathWithAbsoluteFilePath(const QString &absoluteFilePath);
    // Stores the three values as they are given.
    static std::shared_ptr<VKPath>
    pathWithVolumeInfo(const std::shared_ptr<VKVolumeInfo> &volumeInfo, const QString &relativePath,
                       bool isDirectory);

    VKPath() = default;
    VKPath(const std::shared_ptr<VKVolumeInfo> &volumeInfo, const QString &relativePath,
           bool isDirectory)
        : m_volumeInfo(volumeInfo), m_relativeFilePath(relativePath), m_isDirectory(isDirectory)
    {}

    std::shared_ptr<VKVolumeInfo> volumeInfo() const { return m_volumeInfo; }
    void setVolumeInfo(const std::shared_ptr<VKVolumeInfo> &volumeInfo)
    {
        m_volumeInfo = volumeInfo;
    }
    // The path inside the volume, without a leading "/".
    QString relativeFilePath() const { return m_relativeFilePath; }
    void setRelativeFilePath(const QString &path) { m_relativeFilePath = path; }
    bool isDirectory() const { return m_isDirectory; }
    void setIsDirectory(bool isDirectory) { m_isDirectory = isDirectory; }

    // The volume's mount path (null without a volume).
    QString volumeMountPath() const;
    // The mount path with the relative path appended as a path component.
    QString absoluteFilePath() const;

    // The order of the two absolute paths, by plain comparison of their UTF-16 code units:
    // -1, 0 or 1.
    int compare(const VKPath &other) const;

    QString description() const { return absoluteFilePath(); }

private:
    std::shared_ptr<VKVolumeInfo> m_volumeInfo;
    QString m_relativeFilePath;
    bool m_isDirectory = false;
};
