#include "Foundation/VKSearchPaths.h"

#include "Foundation/VKPathString.h"

#include <QDir>

#include <mutex>

namespace {

std::mutex &rootMutex()
{
    static std::mutex mutex;
    return mutex;
}

QString &testingRoot()
{
    static QString root;
    return root;
}

QString currentRoot()
{
    std::lock_guard lock(rootMutex());
    return testingRoot();
}

// An XDG variable counts only when it is set to an absolute path; otherwise the default, a
// folder below home, is used. Under a testing root the environment is not read at all.
QString xdgFolder(const char *variable, const QString &belowHome)
{
    if (currentRoot().isEmpty()) {
        const QString value = qEnvironmentVariable(variable);
        if (value.startsWith(u'/'))
            return VKPathString::fixingSlashes(value);
    }
    return VKPathString::appendingPathComponent(VKSearchPaths::homeDirectory(), belowHome);
}

} // namespace

QString VKSearchPaths::homeDirectory()
{
    const QString root = currentRoot();
    if (!root.isEmpty())
        return VKPathString::appendingPathComponent(root, QStringLiteral("home"));
    return VKPathString::fixingSlashes(QDir::homePath());
}

QString VKSearchPaths::applicationSupportDirectory()
{
    return xdgFolder("XDG_DATA_HOME", QStringLiteral(".local/share"));
}

QString VKSearchPaths::cachesDirectory()
{
    return xdgFolder("XDG_CACHE_HOME", QStringLiteral(".cache"));
}

QString VKSearchPaths::stateDirectory()
{
    return xdgFolder("XDG_STATE_HOME", QStringLiteral(".local/state"));
}

QString VKSearchPaths::temporaryDirectory()
{
    const QString root = currentRoot();
    QString tmp;
    if (!root.isEmpty())
        tmp = VKPathString::appendingPathComponent(homeDirectory(), QStringLiteral("tmp"));
    else
        tmp = qEnvironmentVariable("TMPDIR");
    if (tmp.isEmpty())
        tmp = QStringLiteral("/tmp");
    tmp = VKPathString::fixingSlashes(tmp);
    if (!tmp.endsWith(u'/'))
        tmp += u'/';
    return tmp;
}

QString VKSearchPaths::libraryDirectory(VKSearchPathDomain domain)
{
    switch (domain) {
    case VKSearchPathDomain::User:
        return VKPathString::appendingPathComponent(stateDirectory(), QStringLiteral("Vessan"));
    case VKSearchPathDomain::Local: {
        const QString root = currentRoot();
        return VKPathString::appendingPathComponent(root.isEmpty() ? QStringLiteral("/") : root,
                                                    QStringLiteral("var/lib/Vessan"));
    }
    case VKSearchPathDomain::Network:
        break;
    }
    return QString();
}

QStringList VKSearchPaths::libraryDirectories(int domains)
{
    QStringList result;
    for (VKSearchPathDomain domain :
         {VKSearchPathDomain::User, VKSearchPathDomain::Local, VKSearchPathDomain::Network}) {
        if (!(domains & static_cast<int>(domain)))
            continue;
        const QString folder = libraryDirectory(domain);
        if (!folder.isNull())
            result.append(folder);
    }
    return result;
}

VKSearchPaths::TestingRoot::TestingRoot(const QString &root)
{
    std::lock_guard lock(rootMutex());
    m_previous = testingRoot();
    testingRoot() = VKPathString::fixingSlashes(root);
}

VKSearchPaths::TestingRoot::~TestingRoot()
{
    std::lock_guard lock(rootMutex());
    testingRoot() = m_previous;
}
