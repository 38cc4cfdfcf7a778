// Where a host application keeps its files (application support, caches, the library
// database, thumbnails, logos, volume icons), the creation of those folders, and the desktop
// icons of paths that the volume and path classes show.
//
// The folders lie in SUPPORT/Vessan/LIBNAME, where SUPPORT is the user's XDG data folder
// (VKSearchPaths::applicationSupportDirectory(), else the temporary folder) and LIBNAME the
// host's library name ("VessanApplication" unless the host sets its own).
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QIcon>
#include <QString>

#include <functional>

class VK_EXPORT VKPathUtility
{
public:
    // --- Folders ---

    static QString applicationSupportFolder();
    // The same folder as applicationSupportFolder().
    static QString cachesFolder();
    // applicationSupportFolder()/LIBNAME.vddb.
    static QString libraryDataBasePath();
    static QString databaseBackupFolder();
    static QString logosFolder();
    static QString thumbnailsFolder();
    static QString volumeIconCachesFolder();
    // volumeIconCachesFolder()/<uuid>.jpg.
    static QString cacheImagePathWithVolumeUUID(const QString &uuid);

    // The host's library name, or "VessanApplication".
    static QString libraryNameFromCurrentApplication();
    // A host names its library by setting a function that answers it; an empty function goes
    // back to the default name.
    static void setLibraryNameFunction(std::function<QString()> libraryName);

    // --- Creating folders ---

    // Creates applicationSupportFolder(), cachesFolder(), thumbnailsFolder() and logosFolder(),
    // in that order.
    static void createBasicApplicationsPaths();
    // Makes sure a folder is at `path`: something else there is removed first, and a missing
    // folder is made with its parents. Either failure is logged ("Could not remove item at
    // path %@", "Could create directory at path %@") and handed to the terminate function,
    // which by default prints "<message> (<reason>)" on standard error and exits with
    // status 1.
    static void createDirectoryAtPath(const QString &path);

    // Shows a fatal folder error and ends the application. `message` is the logged text,
    // `error` the system's reason. A GUI host replaces it with one that shows a dialog; if a
    // replacement returns, createDirectoryAtPath() gives up on that path.
    using TerminateFunction = std::function<void(const QString &message, const VKError &error)>;
    // Sets the function (an empty one restores the default) and answers the previous one.
    static TerminateFunction setTerminateFunction(TerminateFunction function);

    // --- Desktop icons (empty icons without a QGuiApplication) ---

    // The icon the desktop shows for a path: by its kind for folders, by its name's type for
    // files, whether or not they exist.
    static QIcon iconForFile(const QString &path);
    // The generic folder icon.
    static QIcon genericFolderIcon();
    // An icon of the current icon theme by name.
    static QIcon themeIcon(const QString &name);
    // The small form of an icon that sits in a 13-point text line (16 by 16 pixels).
    static QIcon miniatureIcon(const QIcon &icon);
    static constexpr int miniatureIconSize = 16;
};
