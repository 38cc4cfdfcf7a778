#include "VKReportStore.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include <zip.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr qsizetype kMaxNameBytes = 200;
constexpr int kMaxReportsPerSecond = 100000;
constexpr qint64 kCopyChunk = 64 * 1024;

// Hands out names inside one folder, never the same twice ("a.txt", "a-2.txt", ...).
class NameSet
{
public:
    QString claim(const QString &name)
    {
        QString candidate = name;
        const qsizetype dot = name.lastIndexOf(u'.');
        const QString stem = dot > 0 ? name.left(dot) : name;
        const QString extension = dot > 0 ? name.mid(dot) : QString();
        for (int n = 2; m_used.contains(candidate.toCaseFolded()); ++n)
            candidate = QStringLiteral("%1-%2%3").arg(stem).arg(n).arg(extension);
        m_used.insert(candidate.toCaseFolded());
        return candidate;
    }

private:
    // Case-folded, so that a report copied to a case-insensitive disk keeps every file.
    QSet<QString> m_used;
};

// One manifest cell: no tabs or line breaks inside.
QString cell(const QString &text)
{
    QString result = text;
    for (QChar &c : result) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            c = u' ';
    }
    return result;
}

bool writeNewFile(const QString &path, const QByteArray &bytes, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
        file.write(bytes) != bytes.size() || !file.flush()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

struct ZipCloser
{
    void operator()(zip_t *archive) const { zip_discard(archive); }
};
struct ZipFileCloser
{
    void operator()(zip_file_t *file) const { zip_fclose(file); }
};

enum class UnpackStatus { Unpacked, TooLarge, Unreadable, Failed };

// Unpacks the zip archive `bytes` flat into the new folder `folder`: every regular entry under
// its safe base name; folders, links and other special entries are skipped, so nothing can
// point out of the folder. Sizes are counted as the bytes come out, never taken from the
// archive's directory. `unpackedBytes` is the running total of the report.
UnpackStatus unpackArchive(const QByteArray &bytes, const QString &folder,
                           const VKUploadLimits &limits, qint64 &unpackedBytes, int &entryCount,
                           QString *error)
{
    zip_error_t zipError;
    zip_error_init(&zipError);
    zip_source_t *source =
        zip_source_buffer_create(bytes.constData(), zip_uint64_t(bytes.size()), 0, &zipError);
    if (!source) {
        *error = QString::fromUtf8(zip_error_strerror(&zipError));
        zip_error_fini(&zipError);
        return UnpackStatus::Failed;
    }
    std::unique_ptr<zip_t, ZipCloser> archive(zip_open_from_source(source, ZIP_RDONLY, &zipError));
    if (!archive) {
        zip_source_free(source);
        *error = QStringLiteral("not a readable zip archive (%1)")
                     .arg(QString::fromUtf8(zip_error_strerror(&zipError)));
        zip_error_fini(&zipError);
        return UnpackStatus::Unreadable;
    }
    zip_error_fini(&zipError);

    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    if (count > limits.maxArchiveEntries) {
        *error = QStringLiteral("archive of %1 entries, more than %2")
                     .arg(count)
                     .arg(limits.maxArchiveEntries);
        return UnpackStatus::TooLarge;
    }
    if (!QDir().mkdir(folder)) {
        *error = QStringLiteral("cannot make the folder %1").arg(folder);
        return UnpackStatus::Failed;
    }
    NameSet names;
    entryCount = 0;
    QByteArray buffer(kCopyChunk, Qt::Uninitialized);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char *rawName = zip_get_name(archive.get(), zip_uint64_t(i), ZIP_FL_ENC_GUESS);
        if (!rawName || !*rawName || rawName[std::strlen(rawName) - 1] == '/')
            continue; // a folder entry
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        if (zip_file_get_external_attributes(archive.get(), zip_uint64_t(i), 0, &system,
                                             &attributes) == 0 &&
            system == ZIP_OPSYS_UNIX) {
            const mode_t mode = mode_t(attributes >> 16);
            if ((mode & S_IFMT) != 0 && !S_ISREG(mode))
                continue; // a link, device or fifo
        }
        std::unique_ptr<zip_file_t, ZipFileCloser> entry(
            zip_fopen_index(archive.get(), zip_uint64_t(i), 0));
        if (!entry) {
            *error = QStringLiteral("entry %1 cannot be read (%2)")
                         .arg(QString::fromUtf8(rawName),
                              QString::fromUtf8(zip_strerror(archive.get())));
            return UnpackStatus::Unreadable;
        }
        QFile out(QDir(folder).filePath(names.claim(VKReportStore::safeBaseName(rawName))));
        if (!out.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            *error = QStringLiteral("cannot write %1: %2").arg(out.fileName(), out.errorString());
            return UnpackStatus::Failed;
        }
        for (;;) {
            const zip_int64_t n =
                zip_fread(entry.get(), buffer.data(), zip_uint64_t(buffer.size()));
            if (n < 0) {
                *error = QStringLiteral("entry %1 is damaged (%2)")
                             .arg(QString::fromUtf8(rawName),
                                  QString::fromUtf8(zip_file_strerror(entry.get())));
                return UnpackStatus::Unreadable;
            }
            if (n == 0)
                break;
            unpackedBytes += n;
            if (unpackedBytes > limits.maxUnpackedBytes) {
                *error = QStringLiteral("archives unpack to more than %1 bytes")
                             .arg(limits.maxUnpackedBytes);
                return UnpackStatus::TooLarge;
            }
            if (out.write(buffer.constData(), n) != n) {
                *error =
                    QStringLiteral("cannot write %1: %2").arg(out.fileName(), out.errorString());
                return UnpackStatus::Failed;
            }
        }
        ++entryCount;
    }
    return UnpackStatus::Unpacked;
}

// Renames `from` to `to` unless `to` exists (a folder too, even an empty one).
bool renameNoReplace(const QString &from, const QString &to, int *error)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) ==
        0)
        return true;
    *error = errno;
    return false;
}

} // namespace

VKReportStore::VKReportStore(const QString &folder, const VKUploadLimits &limits)
    : m_folder(folder), m_limits(limits)
{}

QString VKReportStore::safeBaseName(const QByteArray &name)
{
    QString text = QString::fromUtf8(name);
    text.replace(u'\\', u'/');
    text = text.mid(text.lastIndexOf(u'/') + 1);
    static const QString kept = QStringLiteral(" ._-+,()@");
    QString result;
    result.reserve(text.size());
    for (const QChar c : text) {
        if (c.isLetterOrNumber() && !c.isSurrogate())
            result.append(c);
        else if (kept.contains(c))
            result.append(c);
        else if (!c.isLowSurrogate())
            result.append(u'_'); // a surrogate pair becomes one "_"
    }
    qsizetype start = 0;
    while (start < result.size() && (result.at(start) == u'.' || result.at(start) == u' '))
        ++start;
    result = result.mid(start);
    while (result.endsWith(u' '))
        result.chop(1);
    // Keep the extension when shortening, so that an archive stays recognisable.
    const qsizetype dot = result.lastIndexOf(u'.');
    const QString extension = dot > 0 && result.size() - dot <= 16 ? result.mid(dot) : QString();
    QString stem = result.left(result.size() - extension.size());
    while (!stem.isEmpty() && (stem + extension).toUtf8().size() > kMaxNameBytes)
        stem.chop(1);
    result = stem + extension;
    if (result.toUtf8().size() > kMaxNameBytes || result.isEmpty() || result.startsWith(u'.'))
        return QStringLiteral("unnamed");
    return result;
}

VKReportStore::Result VKReportStore::store(const QList<VKMultipartPart> &parts,
                                           const QDateTime &receivedAt)
{
    Result result;
    if (!QDir().mkpath(m_folder)) {
        result.error = QStringLiteral("cannot make the folder %1").arg(m_folder);
        return result;
    }
    // Hidden and in the same folder, so that the final rename stays on one file system.
    QTemporaryDir incoming(QDir(m_folder).filePath(QStringLiteral(".incoming-XXXXXX")));
    if (!incoming.isValid()) {
        result.error = QStringLiteral("cannot make a temporary folder in %1: %2")
                           .arg(m_folder, incoming.errorString());
        return result;
    }
    const QDir dir(incoming.path());
    NameSet names;
    names.claim(QLatin1String(manifestName));
    QStringList manifest;
    qint64 unpackedBytes = 0;

    for (const VKMultipartPart &part : parts) {
        const QString field = QString::fromUtf8(part.name);
        result.byteCount += part.body.size();
        if (!part.isFile()) {
            const QString stored = names.claim(safeBaseName(part.name) + QStringLiteral(".txt"));
            if (!writeNewFile(dir.filePath(stored), part.body, &result.error))
                return result;
            manifest.append(
                QStringLiteral("field\t%1\t%2\t%3").arg(cell(field), stored).arg(part.body.size()));
            ++result.fieldCount;
            continue;
        }
        const QString stored = names.claim(safeBaseName(part.fileName));
        if (!writeNewFile(dir.filePath(stored), part.body, &result.error))
            return result;
        manifest.append(QStringLiteral("file\t%1\t%2\t%3\t%4")
                            .arg(cell(field), stored)
                            .arg(part.body.size())
                            .arg(cell(QString::fromUtf8(part.fileName))));
        ++result.fileCount;
        if (!stored.endsWith(QLatin1String(".zip"), Qt::CaseInsensitive))
            continue;

        const QString folder = names.claim(stored.chopped(4).isEmpty() ? QStringLiteral("unnamed")
                                                                       : stored.chopped(4));
        QString error;
        int entries = 0;
        switch (unpackArchive(part.body, dir.filePath(folder), m_limits, unpackedBytes, entries,
                              &error)) {
        case UnpackStatus::Unpacked:
            manifest.append(
                QStringLiteral("archive\t%1\t%2/\t%3").arg(cell(field), folder).arg(entries));
            ++result.archiveCount;
            break;
        case UnpackStatus::Unreadable:
            // Kept as it came: the maker may still want to look at it.
            QDir(dir.filePath(folder)).removeRecursively();
            result.notes.append(QStringLiteral("%1 not unpacked: %2").arg(stored, error));
            break;
        case UnpackStatus::TooLarge:
            result.status = TooLarge;
            result.error = QStringLiteral("%1: %2").arg(stored, error);
            return result;
        case UnpackStatus::Failed:
            result.error = QStringLiteral("%1: %2").arg(stored, error);
            return result;
        }
    }
    if (!writeNewFile(dir.filePath(QLatin1String(manifestName)),
                      manifest.isEmpty() ? QByteArray() : (manifest.join(u'\n') + u'\n').toUtf8(),
                      &result.error))
        return result;

    // Readable by the maker's other tools, whatever the temporary folder's mode was.
    QFile::setPermissions(incoming.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                               QFileDevice::ExeOwner | QFileDevice::ReadGroup |
                                               QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                               QFileDevice::ExeOther);
    const QString stamp = receivedAt.toUTC().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    for (int n = 1; n <= kMaxReportsPerSecond; ++n) {
        const QString name = QStringLiteral("%1-%2").arg(stamp).arg(n);
        int error = 0;
        if (renameNoReplace(incoming.path(), QDir(m_folder).filePath(name), &error)) {
            incoming.setAutoRemove(false);
            result.folderName = name;
            result.status = Stored;
            return result;
        }
        if (error != EEXIST && error != ENOTEMPTY) {
            result.error = QStringLiteral("cannot move the report into %1: %2")
                               .arg(m_folder, QString::fromLocal8Bit(std::strerror(error)));
            return result;
        }
    }
    result.error = QStringLiteral("no free report name for %1").arg(stamp);
    return result;
}
