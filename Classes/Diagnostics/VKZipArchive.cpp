#include "Diagnostics/VKZipArchive.h"

#include <QFile>
#include <QFileInfo>

#include <zip.h>

namespace {

QString zipErrorText(zip_t *archive)
{
    return QString::fromUtf8(zip_strerror(archive));
}

} // namespace

bool VKZipArchive::createZipFileAtPath(const QString &archivePath, const QStringList &paths,
                                       QString *errorString)
{
    auto fail = [errorString](const QString &why) {
        if (errorString)
            *errorString = why;
        return false;
    };
    int openError = 0;
    zip_t *archive =
        zip_open(QFile::encodeName(archivePath).constData(), ZIP_CREATE | ZIP_TRUNCATE, &openError);
    if (!archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, openError);
        const QString why = QString::fromUtf8(zip_error_strerror(&error));
        zip_error_fini(&error);
        return fail(why);
    }
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (!info.isFile() || !info.isReadable()) {
            zip_discard(archive);
            return fail(QStringLiteral("Not a readable file: %1").arg(path));
        }
        // libzip reads the file (to its end) when the archive is closed.
        zip_source_t *source =
            zip_source_file(archive, QFile::encodeName(path).constData(), 0, -1);
        if (!source) {
            const QString why = zipErrorText(archive);
            zip_discard(archive);
            return fail(why);
        }
        if (zip_file_add(archive, info.fileName().toUtf8().constData(), source,
                         ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8) < 0) {
            zip_source_free(source);
            const QString why = zipErrorText(archive);
            zip_discard(archive);
            return fail(why);
        }
    }
    if (zip_close(archive) < 0) {
        const QString why = zipErrorText(archive);
        zip_discard(archive);
        QFile::remove(archivePath);
        return fail(why);
    }
    if (paths.isEmpty() && !QFile::exists(archivePath)) {
        // libzip writes nothing for an empty archive; write the bare end record ourselves.
        QFile file(archivePath);
        static const char endRecord[22] = {'P', 'K', 5, 6};
        if (!file.open(QIODevice::WriteOnly) || file.write(endRecord, 22) != 22)
            return fail(file.errorString());
    }
    return true;
}
