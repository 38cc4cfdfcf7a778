#include "Diagnostics/VKRunLog.h"

#include "Diagnostics/VKLogFiles_p.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKSearchPaths.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <mutex>

namespace {

std::mutex g_sinkMutex;
std::shared_ptr<VKFileLogSink> g_sink; // guarded by g_sinkMutex

// Removes the oldest of the application's run logs in `folder` but `keep`, leaving `except`.
void removeOldRunLogs(const QString &folder, const QString &applicationName, int keep,
                      const QString &except = {})
{
    QStringList previous;
    for (const QString &entry : VKLogFiles::entryNames(folder)) {
        if (entry != except && VKRunLog::isRunLogFileName(entry, applicationName))
            previous.append(entry);
    }
    // Names sort by start time: the date comes right after the fixed prefix.
    std::sort(previous.begin(), previous.end());
    const qsizetype excess = previous.size() - qMax(keep, 0);
    for (qsizetype i = 0; i < excess; ++i)
        QFile::remove(folder + QLatin1Char('/') + previous[i]);
}

} // namespace

QString VKRunLog::runLogDirectory()
{
    const QString library = VKSearchPaths::libraryDirectory(VKSearchPathDomain::User);
    return library.isEmpty() ? QString() : library + QStringLiteral("/Logs/Vessan");
}

QString VKRunLog::runLogFileName(const QString &applicationName, const QDateTime &start)
{
    return applicationName + QLatin1Char('_') +
           start.toUTC().toString(QStringLiteral("yyyy-MM-dd-HHmmss")) + QStringLiteral(".vqnLog");
}

QString VKRunLog::prepareRunLogFile(const QString &applicationName, const QDateTime &start,
                                    int keep)
{
    const QString folder = runLogDirectory();
    if (folder.isEmpty() || !QDir().mkpath(folder))
        return QString();
    const QString name = runLogFileName(applicationName, start);
    removeOldRunLogs(folder, applicationName, keep - 1, name);
    return folder + QLatin1Char('/') + name;
}

bool VKRunLog::isRunLogFileName(const QString &fileName, const QString &applicationName)
{
    // "<name>_" + "yyyy-MM-dd-HHmmss" + an optional "_<pid>" + ".vqnLog"; "<name>_notes.vqnLog"
    // and other applications' names with the same beginning are not ours.
    static const QRegularExpression tail(
        QStringLiteral("^_\\d{4}-\\d{2}-\\d{2}-\\d{6}(_\\d+)?\\.vqnLog$"));
    return fileName.startsWith(applicationName) &&
           tail.match(QStringView(fileName).mid(applicationName.size())).hasMatch();
}

std::shared_ptr<VKFileLogSink> VKRunLog::startRunLog(const QString &applicationName, int keep)
{
    std::lock_guard lock(g_sinkMutex);
    if (g_sink)
        return g_sink;
    QString name = applicationName;
    if (name.isEmpty())
        name = VKBundle::mainBundle()->objectForInfoDictionaryKey(VKBundleNameKey).toString();
    // The sink does the same to the file name.
    name.replace(u'/', u'_');
    const QString folder = runLogDirectory();
    if (folder.isEmpty() || !QDir().mkpath(folder)) {
        VKLogger::error(
            {QStringLiteral("VKRunLog"), QStringLiteral("+[VKRunLog startRunLog]"), nullptr},
            "The run-log folder %@ cannot be made", folder);
        return nullptr;
    }
    removeOldRunLogs(folder, name, keep - 1);
    g_sink = std::make_shared<VKFileLogSink>(folder, name);
    VKLogger::shared().addSink(g_sink);
    return g_sink;
}

void VKRunLog::stopRunLog()
{
    std::shared_ptr<VKFileLogSink> sink;
    {
        std::lock_guard lock(g_sinkMutex);
        sink = std::move(g_sink);
    }
    if (sink)
        VKLogger::shared().removeSink(sink);
}
