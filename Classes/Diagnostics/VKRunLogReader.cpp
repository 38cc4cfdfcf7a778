#include "Diagnostics/VKRunLogReader.h"

QStringList VKRunLogReader::searchPaths() const
{
    QStringList paths;
    for (const QString &folder : VKLogReader::searchPaths())
        paths.append(folder + QStringLiteral("/Logs/Vessan"));
    return paths;
}

QString VKRunLogReader::filePathExtension() const
{
    return QStringLiteral("vqnLog");
}

QString VKRunLogReader::userDefaultsKey() const
{
    return QStringLiteral("SentRunLogFilePaths");
}
