#include "Diagnostics/VKLogFiles_p.h"

#include "Diagnostics/VKFileCreationDate.h"
#include "Foundation/VKUserDefaults.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QStringDecoder>

#include <dirent.h>

namespace VKLogFiles {

QStringList entryNames(const QString &folder)
{
    QStringList names;
    if (folder.isEmpty())
        return names;
    // readdir keeps the file system's listing order, as the readers promise.
    DIR *dir = opendir(QFile::encodeName(folder).constData());
    if (!dir)
        return names;
    while (dirent *entry = readdir(dir)) {
        const QString name = QFile::decodeName(entry->d_name);
        if (name != QLatin1String(".") && name != QLatin1String(".."))
            names.append(name);
    }
    closedir(dir);
    return names;
}

bool isCreatedAfter(const QString &path, const QDateTime &earliest)
{
    if (!earliest.isValid())
        return true;
    const auto created = VKFileCreationDate::creationDate(path);
    if (!created)
        return true;
    return created->toMSecsSinceEpoch() > earliest.toMSecsSinceEpoch();
}

QStringList sentPaths(const QString &key)
{
    QStringList paths;
    for (const QVariant &element : VKUserDefaults::standardUserDefaults()->arrayForKey(key)) {
        if (element.typeId() == QMetaType::QString)
            paths.append(element.toString());
    }
    return paths;
}

void addSentPaths(const QString &key, const QStringList &paths)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    QVariantList stored = defaults->arrayForKey(key);
    QSet<QString> known;
    for (const QVariant &element : stored) {
        if (element.typeId() == QMetaType::QString)
            known.insert(element.toString());
    }
    for (const QString &path : paths) {
        if (!known.contains(path)) {
            known.insert(path);
            stored.append(path);
        }
    }
    defaults->setObject(stored, key);
    defaults->synchronize();
}

QString readUTF8(const QString &path, qint64 maximumSize)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    QByteArray bytes;
    if (maximumSize >= 0 && file.size() > maximumSize) {
        file.seek(file.size() - maximumSize);
        bytes = file.read(maximumSize);
        const qsizetype newline = bytes.indexOf('\n');
        bytes = newline < 0 ? QByteArray() : bytes.mid(newline + 1);
    } else {
        bytes = file.readAll();
    }
    if (file.error() != QFileDevice::NoError)
        return QString();
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return QString();
    if (text.isNull())
        text = QLatin1String("");
    return text;
}

} // namespace VKLogFiles
