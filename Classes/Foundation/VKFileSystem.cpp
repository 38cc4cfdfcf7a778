#include "Foundation/VKFileSystem.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>

namespace {

VKError posixError(int code, const QString &what, const QString &path)
{
    return VKError::errorWithDescription(
        VQErrorDomainVessanUtilities, code,
        QStringLiteral("%1 “%2”: %3").arg(what, path, QString::fromLocal8Bit(std::strerror(code))));
}

} // namespace

bool VKFileSystem::fileExistsAtPath(const QString &path)
{
    return fileExistsAtPath(path, nullptr);
}

bool VKFileSystem::fileExistsAtPath(const QString &path, bool *isDirectory)
{
    if (isDirectory)
        *isDirectory = false;
    if (path.isEmpty())
        return false;
    struct stat info;
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return false;
    if (isDirectory)
        *isDirectory = S_ISDIR(info.st_mode);
    return true;
}

qint64 VKFileSystem::filesizeCFI(const QString &path, VKError *error)
{
    struct stat info;
    if (path.isEmpty()) {
        VKError::fill(error, posixError(ENOENT, QStringLiteral("Could not read the size of"), path));
        return 0;
    }
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) {
        VKError::fill(error, posixError(errno, QStringLiteral("Could not read the size of"), path));
        return 0;
    }
    return S_ISREG(info.st_mode) ? qint64(info.st_size) : 0;
}

std::optional<QStringList> VKFileSystem::contentsOfDirectoryAtPath(const QString &path,
                                                                   VKError *error)
{
    const QByteArray encoded = QFile::encodeName(path);
    DIR *dir = path.isEmpty() ? nullptr : ::opendir(encoded.constData());
    if (!dir) {
        VKError::fill(error, posixError(path.isEmpty() ? ENOENT : errno,
                                        QStringLiteral("Could not list the folder"), path));
        return std::nullopt;
    }
    QStringList names;
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(dir);
        if (!entry)
            break;
        const char *name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        names.append(QFile::decodeName(name));
    }
    const int readError = errno;
    ::closedir(dir);
    if (readError != 0) {
        VKError::fill(error, posixError(readError, QStringLiteral("Could not list the folder"), path));
        return std::nullopt;
    }
    return names;
}
