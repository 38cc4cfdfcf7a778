#include "Diagnostics/VKLogReader.h"

#include "Diagnostics/VKLogFiles_p.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include <QFileInfo>

#include <algorithm>
#include <mutex>

struct VKLogReader::Private
{
    mutable std::mutex mutex;
    QString applicationName;
    QDateTime earliestReportDate;
    qint64 maximumLogStringSize = -1;
};

VKLogReader::VKLogReader(const QString &applicationName, const QDateTime &earliestReportDate)
    : d(std::make_unique<Private>())
{
    d->applicationName = applicationName;
    d->earliestReportDate = earliestReportDate;
}

VKLogReader::~VKLogReader() = default;

QString VKLogReader::applicationName() const
{
    std::lock_guard lock(d->mutex);
    return d->applicationName;
}

void VKLogReader::setApplicationName(const QString &name)
{
    std::lock_guard lock(d->mutex);
    d->applicationName = name;
}

QDateTime VKLogReader::earliestReportDate() const
{
    std::lock_guard lock(d->mutex);
    return d->earliestReportDate;
}

void VKLogReader::setEarliestReportDate(const QDateTime &date)
{
    std::lock_guard lock(d->mutex);
    d->earliestReportDate = date;
}

qint64 VKLogReader::maximumLogStringSize() const
{
    std::lock_guard lock(d->mutex);
    return d->maximumLogStringSize;
}

void VKLogReader::setMaximumLogStringSize(qint64 bytes)
{
    std::lock_guard lock(d->mutex);
    d->maximumLogStringSize = bytes;
}

QStringList VKLogReader::searchPaths() const
{
    return VKSearchPaths::libraryDirectories(int(VKSearchPathDomain::User) |
                                             int(VKSearchPathDomain::Local) |
                                             int(VKSearchPathDomain::Network));
}

QString VKLogReader::filePathPrefix() const
{
    return applicationName();
}

QString VKLogReader::filePathExtension() const
{
    return QString();
}

QString VKLogReader::userDefaultsKey() const
{
    return QString();
}

QStringList VKLogReader::allLogFilePaths() const
{
    const QString prefix = filePathPrefix();
    const QString extension = filePathExtension();
    QStringList paths;
    for (const QString &folder : searchPaths()) {
        for (const QString &name : VKLogFiles::entryNames(folder)) {
            if (!prefix.isNull() && !name.startsWith(prefix, Qt::CaseSensitive))
                continue;
            if (!extension.isNull()) {
                const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
                if (dot < 0 || name.mid(dot + 1) != extension)
                    continue;
            }
            paths.append(folder.endsWith(QLatin1Char('/')) ? folder + name
                                                           : folder + QLatin1Char('/') + name);
        }
    }
    return paths;
}

QStringList VKLogReader::unsentLogFilePaths() const
{
    const QStringList all = allLogFilePaths();
    const QString key = userDefaultsKey();
    if (key.isNull())
        return all;
    const QStringList sent = VKLogFiles::sentPaths(key);
    const QDateTime earliest = earliestReportDate();
    QStringList unsent;
    for (const QString &path : all) {
        if (!sent.contains(path) && VKLogFiles::isCreatedAfter(path, earliest))
            unsent.append(path);
    }
    return unsent;
}

std::optional<QStringList> VKLogReader::sentLogFilePaths() const
{
    const QString key = userDefaultsKey();
    if (key.isNull() || !VKUserDefaults::standardUserDefaults()->objectForKey(key).isValid())
        return std::nullopt;
    return VKLogFiles::sentPaths(key);
}

void VKLogReader::markUnsentLogsAsSent()
{
    const QString key = userDefaultsKey();
    if (key.isNull())
        return;
    VKLogFiles::addSentPaths(key, unsentLogFilePaths());
}

QString VKLogReader::recentLogString() const
{
    QStringList unsent = unsentLogFilePaths();
    if (unsent.isEmpty())
        return QString();
    std::sort(unsent.begin(), unsent.end());
    return readLog(unsent.last());
}

QString VKLogReader::readLog(const QString &path) const
{
    return VKLogFiles::readUTF8(path, maximumLogStringSize());
}
