#include "Diagnostics/VKRunLog.h"

#include "Diagnostics/VKLogFiles_p.h"
#include "Foundation/VKSearchPaths.h"

#include <QDir>
#include <QFile>

#include <algorithm>

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
    // Only names of this application's own form count: "<name>_" + 17 characters + ".vqnLog".
    const QString prefix = applicationName + QLatin1Char('_');
    const qsizetype length = name.size();
    QStringList previous;
    for (const QString &entry : VKLogFiles::entryNames(folder)) {
        if (entry != name && entry.size() == length && entry.startsWith(prefix) &&
            entry.endsWith(QLatin1String(".vqnLog")))
            previous.append(entry);
    }
    std::sort(previous.begin(), previous.end());
    const qsizetype excess = previous.size() - qMax(keep - 1, 0);
    for (qsizetype i = 0; i < excess; ++i)
        QFile::remove(folder + QLatin1Char('/') + previous[i]);
    return folder + QLatin1Char('/') + name;
}
