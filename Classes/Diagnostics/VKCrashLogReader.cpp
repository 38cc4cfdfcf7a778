#include "Diagnostics/VKCrashLogReader.h"

#include "Foundation/VKException.h"
#include "Foundation/VKStringRanges.h"

const QString kVKSentCrashLogFilePaths = QStringLiteral("SentCrashLogFilePaths");

VKCrashLogReader::VKCrashLogReader(const QString &applicationName,
                                   const QDateTime &earliestReportDate,
                                   bool stripBinaryImagesDescription)
    : VKLogReader(applicationName, earliestReportDate), m_strip(stripBinaryImagesDescription)
{}

bool VKCrashLogReader::stripBinaryImagesDescription() const
{
    return m_strip;
}

void VKCrashLogReader::setStripBinaryImagesDescription(bool strip)
{
    m_strip = strip;
}

QStringList VKCrashLogReader::searchPaths() const
{
    QStringList paths;
    for (const QString &folder : VKLogReader::searchPaths())
        paths.append(folder + QStringLiteral("/Logs/DiagnosticReports"));
    return paths;
}

QString VKCrashLogReader::userDefaultsKey() const
{
    return kVKSentCrashLogFilePaths;
}

QString VKCrashLogReader::recentLogString() const
{
    const QString text = VKLogReader::recentLogString();
    return m_strip ? stripBinaryImages(text) : text;
}

QString VKCrashLogReader::stripBinaryImages(const QString &text)
{
    if (text.isNull())
        return QString();
    QString copy = text;
    auto findHeader = [&copy] {
        qsizetype at =
            copy.indexOf(QLatin1String("Binary Images Description:"), 0, Qt::CaseInsensitive);
        if (at < 0)
            at = copy.indexOf(QLatin1String("Binary Images:"), 0, Qt::CaseInsensitive);
        return at;
    };
    for (qsizetype at = findHeader(); at >= 0; at = findHeader()) {
        const qsizetype blank = copy.indexOf(QLatin1String("\n\n"), at);
        if (blank < 0) {
            // The deletion would run from the not-found marker: far past the end.
            VKException::raise(VKRangeException,
                               QStringLiteral("-[NSMutableString deleteCharactersInRange:]: "
                                              "Range {%lu, %lu} out of bounds; string length %lu"),
                               quint64(at), quint64(VKNotFound) + 2 - quint64(at),
                               quint64(copy.size()));
        }
        copy.remove(at, blank + 2 - at);
    }
    return copy;
}
