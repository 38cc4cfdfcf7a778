// The folders of the platform a host keeps its files in: home, application support, caches,
// temporary files, the user's state folder and the "Library" folders of each domain.
//
// On Linux they follow the XDG base directories; a variable that is unset, empty or relative is
// ignored, as the XDG rules say. The "Library" folders are:
//   user    = $XDG_STATE_HOME/Vessan   (default ~/.local/state/Vessan)
//   local   = /var/lib/Vessan
//   network = none (a null string)
//
// Tests point every folder into a temporary tree with VKSearchPaths::TestingRoot.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>

enum class VKSearchPathDomain : int { User = 1, Local = 2, Network = 4 };

class VK_EXPORT VKSearchPaths
{
public:
    static QString homeDirectory();
    // $XDG_DATA_HOME, else ~/.local/share.
    static QString applicationSupportDirectory();
    // $XDG_CACHE_HOME, else ~/.cache.
    static QString cachesDirectory();
    // $XDG_STATE_HOME, else ~/.local/state.
    static QString stateDirectory();
    // $TMPDIR or "/tmp", always ending with "/".
    static QString temporaryDirectory();

    // The "Library" folder of one domain; a null string for a domain that has none (network).
    static QString libraryDirectory(VKSearchPathDomain domain);
    // The "Library" folders of the domains in `domains` (an or-ed set of VKSearchPathDomain
    // values), in the order user, local, network, leaving out the domains that have none.
    static QStringList libraryDirectories(int domains);

    // While alive, every folder above lies inside `root`: home is root/home, the XDG folders
    // and the temporary folder sit in that home as their defaults would, and the local library
    // folder is root/var/lib/Vessan. Nothing is created. Instances may nest; the innermost
    // wins until it goes. Meant for tests; not for use while other threads read the folders.
    class VK_EXPORT TestingRoot
    {
    public:
        explicit TestingRoot(const QString &root);
        ~TestingRoot();
        TestingRoot(const TestingRoot &) = delete;
        TestingRoot &operator=(const TestingRoot &) = delete;

    private:
        QString m_previous;
    };
};
