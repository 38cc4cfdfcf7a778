#include "Diagnostics/VKSystemLogReader.h"

#include <QMutex>

namespace {
QMutex g_folderMutex;
QString g_folder;
} // namespace

VKSystemLogReader::VKSystemLogReader(const QDateTime &earliestReportDate)
    : VKLogReader(QStringLiteral("system"), earliestReportDate)
{}

QString VKSystemLogReader::applicationName() const
{
    return QStringLiteral("system");
}

QStringList VKSystemLogReader::searchPaths() const
{
    QMutexLocker locker(&g_folderMutex);
    return {g_folder.isEmpty() ? QStringLiteral("/var/log") : g_folder};
}

QString VKSystemLogReader::userDefaultsKey() const
{
    return QStringLiteral("SentSystemLogFilePaths");
}

void VKSystemLogReader::setLogFolderForTesting(const QString &folder)
{
    QMutexLocker locker(&g_folderMutex);
    g_folder = folder;
}
