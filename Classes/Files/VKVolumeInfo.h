// One mounted volume as the path records see it: its mount path, desktop icon and name.
// Shared between the volume info cache and the paths that lie on the volume.
#pragma once

#include "Foundation/VKExport.h"

#include <QIcon>
#include <QString>

class VK_EXPORT VKVolumeInfo
{
public:
    VKVolumeInfo() = default;
    VKVolumeInfo(const QString &path, const QIcon &icon, const QString &name)
        : m_path(path), m_icon(icon), m_name(name)
    {}

    // The mount path.
    QString path() const { return m_path; }
    void setPath(const QString &path) { m_path = path; }
    // The desktop icon of the mount path (empty on hosts without one).
    QIcon icon() const { return m_icon; }
    void setIcon(const QIcon &icon) { m_icon = icon; }
    // The volume's name.
    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }

    // The mount path, for "%@".
    QString description() const { return m_path; }

private:
    QString m_path;
    QIcon m_icon;
    QString m_name;
};
