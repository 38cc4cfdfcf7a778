#include "Foundation/VKPathString.h"

#include "Foundation/VKSearchPaths.h"

#include <QDir>

#include <pwd.h>
#include <unistd.h>

#include <vector>

QString VKPathString::fixingSlashes(const QString &path)
{
    if (path.isEmpty())
        return path;
    QString result;
    result.reserve(path.size());
    QChar previous;
    for (QChar c : path) {
        if (c == u'/' && previous == u'/')
            continue;
        result += c;
        previous = c;
    }
    if (result.size() > 1 && result.endsWith(u'/'))
        result.chop(1);
    return result;
}

QStringList VKPathString::pathComponents(const QString &path)
{
    QStringList result;
    if (path.isEmpty())
        return result;
    const qsizetype n = path.size();
    qsizetype i = 0;
    if (path[0] == u'/')
        result.append(QStringLiteral("/"));
    while (i < n) {
        while (i < n && path[i] == u'/')
            ++i;
        if (i == n)
            break;
        qsizetype end = i;
        while (end < n && path[end] != u'/')
            ++end;
        result.append(path.mid(i, end - i));
        i = end;
    }
    if (n > 1 && path.endsWith(u'/'))
        result.append(QStringLiteral("/"));
    return result;
}

QString VKPathString::pathWithComponents(const QStringList &components)
{
    QString result;
    for (const QString &component : components) {
        if (component.isEmpty())
            continue;
        if (!result.isEmpty() && !result.endsWith(u'/'))
            result += u'/';
        result += component;
    }
    return fixingSlashes(result);
}

QString VKPathString::lastPathComponent(const QString &path)
{
    const QString fixed = fixingSlashes(path);
    if (fixed.size() <= 1)
        return fixed;
    const qsizetype slash = fixed.lastIndexOf(u'/');
    return slash < 0 ? fixed : fixed.mid(slash + 1);
}

QString VKPathString::deletingLastPathComponent(const QString &path)
{
    const QString fixed = fixingSlashes(path);
    if (fixed.isEmpty() || fixed == QLatin1String("/"))
        return fixed;
    const qsizetype slash = fixed.lastIndexOf(u'/');
    if (slash < 0)
        return QStringLiteral("");
    if (slash == 0)
        return QStringLiteral("/");
    return fixed.left(slash);
}

namespace {

// Index of the first character of the extension in `fixed`, or -1.
qsizetype extensionStart(const QString &fixed)
{
    const qsizetype slash = fixed.lastIndexOf(u'/');
    const qsizetype componentStart = slash + 1;
    const qsizetype dot = fixed.lastIndexOf(u'.');
    if (dot <= componentStart || dot < 0)
        return -1;
    return dot + 1;
}

} // namespace

QString VKPathString::pathExtension(const QString &path)
{
    const QString fixed = fixingSlashes(path);
    const qsizetype start = extensionStart(fixed);
    return start < 0 ? QStringLiteral("") : fixed.mid(start);
}

QString VKPathString::deletingPathExtension(const QString &path)
{
    const QString fixed = fixingSlashes(path);
    const qsizetype start = extensionStart(fixed);
    return start < 0 ? fixed : fixed.left(start - 1);
}

QString VKPathString::appendingPathComponent(const QString &path, const QString &component)
{
    QString result = path;
    if (!result.isEmpty() && !result.endsWith(u'/') && !component.isEmpty())
        result += u'/';
    result += component;
    return fixingSlashes(result);
}

QString VKPathString::appendingPathExtension(const QString &path, const QString &extension)
{
    if (extension.isEmpty())
        return path;
    const QString fixed = fixingSlashes(path);
    return fixed + u'.' + extension;
}

QString VKPathString::expandingTildeInPath(const QString &path)
{
    if (!path.startsWith(u'~'))
        return fixingSlashes(path);
    qsizetype slash = path.indexOf(u'/');
    if (slash < 0)
        slash = path.size();
    const QString user = path.mid(1, slash - 1);
    QString home;
    if (user.isEmpty()) {
        home = VKSearchPaths::homeDirectory();
    } else {
        const QByteArray name = user.toUtf8();
        long size = sysconf(_SC_GETPW_R_SIZE_MAX);
        std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
        passwd entry{};
        passwd *found = nullptr;
        if (getpwnam_r(name.constData(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
            !found)
            return fixingSlashes(path);
        home = QString::fromLocal8Bit(found->pw_dir);
    }
    return fixingSlashes(home + path.mid(slash));
}

bool VKPathString::isAbsolutePath(const QString &path)
{
    return path.startsWith(u'/') || path.startsWith(u'~');
}
