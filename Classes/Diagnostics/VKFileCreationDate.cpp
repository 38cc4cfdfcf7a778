#include "Diagnostics/VKFileCreationDate.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>

std::optional<QDateTime> VKFileCreationDate::creationDate(const QString &path)
{
    struct statx info
    {
    };
    const QByteArray native = QFile::encodeName(path);
    if (statx(AT_FDCWD, native.constData(), 0, STATX_BTIME, &info) != 0)
        return std::nullopt;
    if (!(info.stx_mask & STATX_BTIME))
        return std::nullopt;
    const qint64 ms = qint64(info.stx_btime.tv_sec) * 1000 + info.stx_btime.tv_nsec / 1000000;
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}
