// An application or plug-in bundle as reports and update checks see it: its names, versions,
// icon, preferences, the volume it runs from and the system profile that goes with it.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QVariant>
#include <QVariantList>

#include <memory>
#include <optional>

class QIcon;
class VKBundle;

// Raised by version() when the bundle has no "CFBundleVersion" (or an empty one).
VK_EXPORT extern const QString VKHostNoVersionException; // "SUNoVersionException"

class VK_EXPORT VKHost
{
public:
    // A null bundle means the main bundle. A bundle without identifier is reported on the log
    // (its preferences cannot be found) and the host is made all the same.
    explicit VKHost(std::shared_ptr<VKBundle> bundle = nullptr);
    ~VKHost();
    VKHost(const VKHost &) = delete;
    VKHost &operator=(const VKHost &) = delete;

    std::shared_ptr<VKBundle> bundle() const;
    QString bundlePath() const;
    // "CFBundleDisplayName", else "CFBundleName", else the bundle's file name without its
    // extension.
    QString name() const;
    // "CFBundleVersion"; throws VKHostNoVersionException when missing or empty.
    QString version() const;
    // "CFBundleShortVersionString", else version().
    QString displayVersion() const;
    // The image named by "CFBundleIconFile" (".icns" first, then the name as it stands), else
    // the desktop's icon for an application (main bundle) or for a ".bundle" file.
    QIcon icon() const;
    // Whether the file system holding the bundle is mounted read-only.
    bool isRunningOnReadOnlyVolume() const;
    // "LSUIElement" of the running application's dictionary, whatever bundle this host wraps.
    bool isBackgroundApplication() const;
    // The shared profiler's rows for this host.
    QVariantList systemProfile() const;

    QVariant objectForInfoDictionaryKey(const QString &key) const;
    bool boolForInfoDictionaryKey(const QString &key) const;
    // The application's own defaults for the main bundle, else the defaults of the bundle's
    // identifier (null / false when it has none).
    QVariant objectForUserDefaultsKey(const QString &key) const;
    bool boolForUserDefaultsKey(const QString &key) const;
    // Writes the same way; another bundle's defaults reach the disk at once.
    void setObject(const QVariant &value, const QString &key);
    void setBool(bool value, const QString &key);
    // The user-defaults value when there is one, else the information dictionary's.
    QVariant objectForKey(const QString &key) const;
    bool boolForKey(const QString &key) const;

    // The operating system's version as "major.minor.bugfix"; when a part is missing, the
    // product version as it stands; null when there is none. On Linux the parts are those of
    // os-release's VERSION_ID (see VKSystemInfo::productVersion).
    static QString systemVersionString();
    // The rule on given sources: all three parts give "%ld.%ld.%ld", else the product version.
    static QString systemVersionString(std::optional<long> major, std::optional<long> minor,
                                       std::optional<long> bugFix,
                                       const std::optional<QString> &productVersion);
    // Whether the file system holding `path` is mounted read-only; false when it cannot be told.
    static bool isPathOnReadOnlyVolume(const QString &path);

    // "VKHost <bundle path>" (the path in angle brackets).
    QString description() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
