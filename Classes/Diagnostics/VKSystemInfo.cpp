#include "Diagnostics/VKSystemInfo.h"

#include <QFile>
#include <QMutex>

#include <atomic>

namespace {
QMutex g_pathMutex;
QString g_osReleasePath;
std::atomic<int> g_cachedOSVersion{0};
} // namespace

VKSystemInfo &VKSystemInfo::sharedInfo()
{
    static VKSystemInfo *info = new VKSystemInfo;
    return *info;
}

int VKSystemInfo::osVersion()
{
    if (const int cached = g_cachedOSVersion.load())
        return cached;
    const auto version = productVersion();
    const int computed = version ? osVersionForProductVersion(*version) : 0;
    if (computed)
        g_cachedOSVersion.store(computed);
    return computed;
}

int VKSystemInfo::osVersionForProductVersion(const QString &productVersion)
{
    for (int minor = 2; minor <= 9; ++minor) {
        if (productVersion.startsWith(QStringLiteral("10.%1").arg(minor)))
            return 100 + minor;
    }
    return 0;
}

std::optional<QString> VKSystemInfo::productVersion()
{
    QString path;
    {
        QMutexLocker locker(&g_pathMutex);
        path = g_osReleasePath.isEmpty() ? QStringLiteral("/etc/os-release") : g_osReleasePath;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return std::nullopt;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (!line.startsWith(QLatin1String("VERSION_ID=")))
            continue;
        QString value = line.mid(11);
        if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
            value.back() == value.front())
            value = value.mid(1, value.size() - 2);
        return value;
    }
    return std::nullopt;
}

void VKSystemInfo::setOSReleasePathForTesting(const QString &path)
{
    QMutexLocker locker(&g_pathMutex);
    g_osReleasePath = path;
    g_cachedOSVersion.store(0);
}
