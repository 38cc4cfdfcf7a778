#include "Diagnostics/VKCrashReportReader.h"

#include "Diagnostics/VKCrashLogReader.h"
#include "Diagnostics/VKLogFiles_p.h"
#include "Foundation/VKSearchPaths.h"

#include <algorithm>

struct VKCrashReportReader::Private
{
    QString applicationName;
    QDateTime earliestReportDate;
    bool strip = false;
    qint64 maximumReportSize = -1;
    QStringList crashLogFilePaths;
};

VKCrashReportReader::VKCrashReportReader(const QString &applicationName,
                                         const QDateTime &earliestReportDate,
                                         bool stripBinaryImagesDescription)
    : d(std::make_unique<Private>())
{
    d->applicationName = applicationName;
    d->earliestReportDate = earliestReportDate;
    d->strip = stripBinaryImagesDescription;
}

VKCrashReportReader::~VKCrashReportReader() = default;

QString VKCrashReportReader::applicationName() const
{
    return d->applicationName;
}
void VKCrashReportReader::setApplicationName(const QString &name)
{
    d->applicationName = name;
}
QDateTime VKCrashReportReader::earliestReportDate() const
{
    return d->earliestReportDate;
}
void VKCrashReportReader::setEarliestReportDate(const QDateTime &date)
{
    d->earliestReportDate = date;
}
bool VKCrashReportReader::stripBinaryImagesDescription() const
{
    return d->strip;
}
void VKCrashReportReader::setStripBinaryImagesDescription(bool strip)
{
    d->strip = strip;
}
qint64 VKCrashReportReader::maximumReportSize() const
{
    return d->maximumReportSize;
}
void VKCrashReportReader::setMaximumReportSize(qint64 bytes)
{
    d->maximumReportSize = bytes;
}
QStringList VKCrashReportReader::crashLogFilePaths() const
{
    return d->crashLogFilePaths;
}
void VKCrashReportReader::setCrashLogFilePaths(const QStringList &paths)
{
    d->crashLogFilePaths = paths;
}

QStringList VKCrashReportReader::unsentCrashLogFilePathsInDirectory(const QString &folder) const
{
    const QStringList sent = VKLogFiles::sentPaths(kVKSentCrashLogFilePaths);
    QStringList unsent;
    for (const QString &name : VKLogFiles::entryNames(folder)) {
        if (!name.startsWith(d->applicationName, Qt::CaseSensitive))
            continue;
        const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
        const QString extension = dot < 0 ? QString() : name.mid(dot + 1);
        if (extension != QLatin1String("crash") && extension != QLatin1String("hang"))
            continue;
        const QString path = folder + QLatin1Char('/') + name;
        if (!sent.contains(path) && VKLogFiles::isCreatedAfter(path, d->earliestReportDate))
            unsent.append(path);
    }
    return unsent;
}

QString VKCrashReportReader::combinedCrashLogString()
{
    if (d->applicationName.isNull())
        return QString();
    QStringList gathered;
    const QStringList folders = VKSearchPaths::libraryDirectories(int(VKSearchPathDomain::User) |
                                                                  int(VKSearchPathDomain::Local));
    for (const QString &folder : folders)
        gathered +=
            unsentCrashLogFilePathsInDirectory(folder + QStringLiteral("/Logs/DiagnosticReports"));
    if (gathered.isEmpty())
        return QString();

    QString text = QStringLiteral("<crash_logs app_name:\"%1\">\n").arg(d->applicationName);
    QStringList sorted = gathered;
    std::sort(sorted.begin(), sorted.end());
    for (auto it = sorted.crbegin(); it != sorted.crend(); ++it) {
        const QString report = VKLogFiles::readUTF8(*it, d->maximumReportSize);
        if (report.isNull())
            continue;
        text += QStringLiteral("<crashLog>\n") + report + QStringLiteral("</crashLog>\n");
    }
    text += QStringLiteral("</crash_logs>\n\n\n");
    if (d->strip)
        text = stripBinaryImages(text);
    d->crashLogFilePaths = gathered;
    return text;
}

void VKCrashReportReader::markCrashLogsAsSent()
{
    VKLogFiles::addSentPaths(kVKSentCrashLogFilePaths, d->crashLogFilePaths);
}

QString VKCrashReportReader::stripBinaryImages(const QString &text)
{
    return VKCrashLogReader::stripBinaryImages(text);
}
