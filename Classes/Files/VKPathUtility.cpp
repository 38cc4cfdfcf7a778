#include "Files/VKPathUtility.h"

#include "Foundation/VKLogger.h"
#include "Foundation/VKPathString.h"
#include "Foundation/VKSearchPaths.h"

#include <QAbstractFileIconProvider>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPixmap>
#include <QThread>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kClassName = QStringLiteral("VKPathUtility");

std::mutex &hooksMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::function<QString()> &libraryNameFunction()
{
    static std::function<QString()> function;
    return function;
}

void defaultTerminate(const QString &message, const VKError &error)
{
    const QByteArray text =
        QStringLiteral("%1 (%2)\n").arg(message, error.localizedDescription()).toUtf8();
    std::fflush(stdout);
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stderr);
    std::fflush(stderr);
    std::exit(1);
}

VKPathUtility::TerminateFunction &terminateFunction()
{
    static VKPathUtility::TerminateFunction function;
    return function;
}

void terminateWith(const QString &message, const VKError &error)
{
    VKPathUtility::TerminateFunction function;
    {
        std::lock_guard lock(hooksMutex());
        function = terminateFunction();
    }
    if (function)
        function(message, error);
    else
        defaultTerminate(message, error);
}

VKError posixError(int code)
{
    return VKError::errorWithDescription(VQErrorDomainVessanUtilities, code,
                                         QString::fromLocal8Bit(std::strerror(code)));
}

// mkdir -p, answering the errno of the step that failed (0 on success).
int makePath(const QString &path)
{
    QByteArray bytes = QFile::encodeName(path);
    for (qsizetype i = 1; i <= bytes.size(); ++i) {
        if (i < bytes.size() && bytes[i] != '/')
            continue;
        const QByteArray prefix = bytes.left(i);
        if (::mkdir(prefix.constData(), 0755) == 0)
            continue;
        const int code = errno;
        struct stat st
        {
        };
        if (code == EEXIST && ::stat(prefix.constData(), &st) == 0 && S_ISDIR(st.st_mode))
            continue;
        return code == EEXIST ? ENOTDIR : code;
    }
    return 0;
}

// Icons need the GUI application and its thread; everywhere else they are empty.
bool canMakeIcons()
{
    QCoreApplication *app = QCoreApplication::instance();
    return qobject_cast<QGuiApplication *>(app) && QThread::currentThread() == app->thread();
}

} // namespace

QString VKPathUtility::libraryNameFromCurrentApplication()
{
    std::function<QString()> function;
    {
        std::lock_guard lock(hooksMutex());
        function = libraryNameFunction();
    }
    return function ? function() : QStringLiteral("VessanApplication");
}

void VKPathUtility::setLibraryNameFunction(std::function<QString()> libraryName)
{
    std::lock_guard lock(hooksMutex());
    libraryNameFunction() = std::move(libraryName);
}

QString VKPathUtility::applicationSupportFolder()
{
    QString support = VKSearchPaths::applicationSupportDirectory();
    if (support.isEmpty())
        support = VKSearchPaths::temporaryDirectory();
    return VKPathString::appendingPathComponent(
        VKPathString::appendingPathComponent(support, QStringLiteral("Vessan")),
        libraryNameFromCurrentApplication());
}

QString VKPathUtility::cachesFolder()
{
    return applicationSupportFolder();
}

QString VKPathUtility::libraryDataBasePath()
{
    return VKPathString::appendingPathComponent(
        applicationSupportFolder(),
        QStringLiteral("%1.vddb").arg(libraryNameFromCurrentApplication()));
}

QString VKPathUtility::databaseBackupFolder()
{
    return VKPathString::appendingPathComponent(applicationSupportFolder(),
                                                QStringLiteral("Backup"));
}

QString VKPathUtility::logosFolder()
{
    return VKPathString::appendingPathComponent(cachesFolder(), QStringLiteral("Logos"));
}

QString VKPathUtility::thumbnailsFolder()
{
    return VKPathString::appendingPathComponent(cachesFolder(), QStringLiteral("Thumbnails"));
}

QString VKPathUtility::volumeIconCachesFolder()
{
    return VKPathString::appendingPathComponent(cachesFolder(), QStringLiteral("VolumeIcons"));
}

QString VKPathUtility::cacheImagePathWithVolumeUUID(const QString &uuid)
{
    return VKPathString::appendingPathExtension(
        VKPathString::appendingPathComponent(volumeIconCachesFolder(), uuid),
        QStringLiteral("jpg"));
}

void VKPathUtility::createBasicApplicationsPaths()
{
    createDirectoryAtPath(applicationSupportFolder());
    createDirectoryAtPath(cachesFolder());
    createDirectoryAtPath(thumbnailsFolder());
    createDirectoryAtPath(logosFolder());
}

void VKPathUtility::createDirectoryAtPath(const QString &path)
{
    const VKLogContext context{kClassName,
                               QStringLiteral("+[VKPathUtility createDirectoryAtPath:]"), nullptr};
    const QByteArray bytes = QFile::encodeName(path);
    struct stat st
    {
    };
    if (::stat(bytes.constData(), &st) == 0 && !S_ISDIR(st.st_mode)) {
        if (::unlink(bytes.constData()) != 0) {
            const VKError error = posixError(errno);
            const QString format = QStringLiteral("Could not remove item at path %@");
            VKLogger::error(context, format, path);
            terminateWith(vkFormat(format, path), error);
            return;
        }
    }
    if (::stat(bytes.constData(), &st) != 0) {
        if (const int code = path.isEmpty() ? ENOENT : makePath(path); code != 0) {
            const VKError error = posixError(code);
            // The missing "not" is how this message has always read.
            const QString format = QStringLiteral("Could create directory at path %@");
            VKLogger::error(context, format, path);
            terminateWith(vkFormat(format, path), error);
        }
    }
}

VKPathUtility::TerminateFunction VKPathUtility::setTerminateFunction(TerminateFunction function)
{
    std::lock_guard lock(hooksMutex());
    return std::exchange(terminateFunction(), std::move(function));
}

QIcon VKPathUtility::iconForFile(const QString &path)
{
    if (!canMakeIcons())
        return QIcon();
    static QAbstractFileIconProvider provider;
    return provider.icon(QFileInfo(path));
}

QIcon VKPathUtility::genericFolderIcon()
{
    if (!canMakeIcons())
        return QIcon();
    static QAbstractFileIconProvider provider;
    return provider.icon(QAbstractFileIconProvider::Folder);
}

QIcon VKPathUtility::themeIcon(const QString &name)
{
    if (!canMakeIcons())
        return QIcon();
    return QIcon::fromTheme(name);
}

QIcon VKPathUtility::miniatureIcon(const QIcon &icon)
{
    if (icon.isNull() || !canMakeIcons())
        return QIcon();
    QIcon miniature;
    miniature.addPixmap(icon.pixmap(miniatureIconSize, miniatureIconSize));
    return miniature;
}
