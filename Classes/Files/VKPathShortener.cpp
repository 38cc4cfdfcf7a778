#include "Files/VKPathShortener.h"

#include "Files/VKPathUtility.h"
#include "Files/VKVolumeInfoCache.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKPathString.h"

#include <QFont>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHash>

#include <algorithm>
#include <numeric>

namespace {

const QChar kNoBreakSpace(0x00A0);
const QChar kObjectReplacement(0xFFFC);
const QString kSeparator = QStringLiteral(" \u2014 ");

QStringList relativeComponents(const VKPath *path)
{
    return path ? VKPathString::pathComponents(path->relativeFilePath()) : QStringList();
}

} // namespace

struct VKPathShortener::Private
{
    QList<std::shared_ptr<VKPath>> paths;
    bool includeVolumeInfo = false;
    bool includeFolderInfo = false;
    bool includeFileInfo = false;
    QList<quint64> uniquePathComponentIndices;
    QList<VKAttributedString> beautifiedPaths;
};

VKPathShortener::VKPathShortener(const QList<std::shared_ptr<VKPath>> &paths,
                                 bool includeVolumeInfo, bool includeFolderInfo,
                                 bool includeFileInfo)
    : d(std::make_unique<Private>())
{
    d->paths = paths;
    d->includeVolumeInfo = includeVolumeInfo;
    d->includeFolderInfo = includeFolderInfo;
    d->includeFileInfo = includeFileInfo;
    findUniquePathComponentIndices();
    createBeautifiedPaths();
}

VKPathShortener::~VKPathShortener() = default;

QList<std::shared_ptr<VKPath>> VKPathShortener::paths() const
{
    return d->paths;
}
void VKPathShortener::setPaths(const QList<std::shared_ptr<VKPath>> &paths)
{
    d->paths = paths;
}
bool VKPathShortener::includeVolumeInfo() const
{
    return d->includeVolumeInfo;
}
void VKPathShortener::setIncludeVolumeInfo(bool include)
{
    d->includeVolumeInfo = include;
}
bool VKPathShortener::includeFolderInfo() const
{
    return d->includeFolderInfo;
}
void VKPathShortener::setIncludeFolderInfo(bool include)
{
    d->includeFolderInfo = include;
}
bool VKPathShortener::includeFileInfo() const
{
    return d->includeFileInfo;
}
void VKPathShortener::setIncludeFileInfo(bool include)
{
    d->includeFileInfo = include;
}
QList<quint64> VKPathShortener::uniquePathComponentIndices() const
{
    return d->uniquePathComponentIndices;
}
void VKPathShortener::setUniquePathComponentIndices(const QList<quint64> &indices)
{
    d->uniquePathComponentIndices = indices;
}
QList<VKAttributedString> VKPathShortener::beautifiedPaths() const
{
    return d->beautifiedPaths;
}
void VKPathShortener::setBeautifiedPaths(const QList<VKAttributedString> &lines)
{
    d->beautifiedPaths = lines;
}

quint64 VKPathShortener::indexOfComponentInPath(const VKPath &path,
                                                const QList<std::shared_ptr<VKPath>> &others)
{
    const QStringList components = relativeComponents(&path);
    const qsizetype n = components.size();
    QList<QStringList> rivals;
    rivals.reserve(others.size());
    for (const std::shared_ptr<VKPath> &other : others)
        rivals.append(relativeComponents(other.get()));

    qsizetype k = 0;
    for (; k < n; ++k) {
        const QString &component = components[n - 1 - k];
        rivals.removeIf([&](const QStringList &rival) {
            return rival.isEmpty() || rival.size() <= k || rival[rival.size() - 1 - k] != component;
        });
        if (rivals.isEmpty())
            break;
    }
    return k < n ? static_cast<quint64>(n - 1 - k) : notFound;
}

void VKPathShortener::findUniquePathComponentIndices()
{
    QList<quint64> indices;
    if (d->paths.size() == 1) {
        indices.append(notFound);
        d->uniquePathComponentIndices = indices;
        return;
    }
    // Walking the components from the end, the rivals left after step k are those sharing the
    // last k + 1 components with the path, so the answer only depends on the longest common
    // suffix with any other object. After sorting the reversed component lists, that longest
    // suffix is shared with a neighbour in the order.
    QHash<const VKPath *, qsizetype> slotOfObject;
    QList<QStringList> reversed;
    for (const std::shared_ptr<VKPath> &path : std::as_const(d->paths)) {
        if (slotOfObject.contains(path.get()))
            continue;
        slotOfObject.insert(path.get(), reversed.size());
        QStringList components = relativeComponents(path.get());
        std::reverse(components.begin(), components.end());
        reversed.append(components);
    }
    QList<qsizetype> order(reversed.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) {
        return std::lexicographical_compare(reversed[a].cbegin(), reversed[a].cend(),
                                            reversed[b].cbegin(), reversed[b].cend());
    });
    const auto commonPrefix = [&](qsizetype a, qsizetype b) {
        const QStringList &x = reversed[a];
        const QStringList &y = reversed[b];
        qsizetype length = 0;
        while (length < x.size() && length < y.size() && x[length] == y[length])
            ++length;
        return length;
    };
    QList<qsizetype> longestShared(reversed.size(), 0);
    for (qsizetype i = 0; i + 1 < order.size(); ++i) {
        const qsizetype shared = commonPrefix(order[i], order[i + 1]);
        longestShared[order[i]] = std::max(longestShared[order[i]], shared);
        longestShared[order[i + 1]] = std::max(longestShared[order[i + 1]], shared);
    }
    indices.reserve(d->paths.size());
    for (const std::shared_ptr<VKPath> &path : std::as_const(d->paths)) {
        const qsizetype slot = slotOfObject.value(path.get());
        const qsizetype n = reversed[slot].size();
        const qsizetype shared = longestShared[slot];
        indices.append(shared < n ? static_cast<quint64>(n - 1 - shared) : notFound);
    }
    d->uniquePathComponentIndices = indices;
}

VKTextAttributes VKPathShortener::textAttributes()
{
    QFont font;
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setPointSizeF(13.0);
    return {{VKFontAttributeName, QVariant::fromValue(font)}};
}

VKTextAttributes VKPathShortener::iconAttributes(const QIcon &icon)
{
    return {{VKAttachmentAttributeName, QVariant::fromValue(icon)},
            {VKBaselineOffsetAttributeName, -3.0}};
}

void VKPathShortener::createBeautifiedPaths()
{
    const VKTextAttributes text = textAttributes();
    const auto appendPart = [&](VKAttributedString &line, const QIcon &icon, const QString &name) {
        line.append(QString(kObjectReplacement),
                    iconAttributes(VKPathUtility::miniatureIcon(icon)));
        line.append(kNoBreakSpace + name, text);
    };

    QList<VKAttributedString> lines;
    lines.reserve(d->paths.size());
    for (qsizetype i = 0; i < d->paths.size(); ++i) {
        VKAttributedString line;
        const std::shared_ptr<VKPath> &path = d->paths[i];
        if (!path) {
            lines.append(line);
            continue;
        }
        const quint64 unique =
            i < d->uniquePathComponentIndices.size() ? d->uniquePathComponentIndices[i] : notFound;
        const QStringList components = relativeComponents(path.get());

        if (d->includeVolumeInfo) {
            std::shared_ptr<VKVolumeInfo> volume = path->volumeInfo();
            if (!volume) {
                if (VKVolumeInfoCache *cache = VKVolumeInfoCache::sharedCache())
                    volume = cache->volumeInfoForPath(path->volumeMountPath());
            }
            if (volume) {
                appendPart(line, volume->icon(), volume->name());
                if (d->includeFileInfo || d->includeFolderInfo)
                    line.append(kSeparator, text);
            }
        }

        if (d->includeFolderInfo && unique != notFound &&
            unique != static_cast<quint64>(components.size()) - 1) {
            const QStringList folderComponents =
                components.mid(0, static_cast<qsizetype>(unique) + 1);
            const QString folder = VKPathString::appendingPathComponent(
                path->volumeMountPath(), VKPathString::pathWithComponents(folderComponents));
            const QIcon icon = VKFileSystem::fileExistsAtPath(folder)
                                   ? VKPathUtility::iconForFile(folder)
                                   : VKPathUtility::genericFolderIcon();
            appendPart(line, icon, folderComponents.last());
            line.append(kSeparator, text);
        }

        if (d->includeFileInfo) {
            const QString absolute = path->absoluteFilePath();
            QIcon icon;
            if (VKFileSystem::fileExistsAtPath(absolute))
                icon = VKPathUtility::iconForFile(absolute);
            else if (path->isDirectory())
                icon = VKPathUtility::genericFolderIcon();
            else
                icon = VKPathUtility::iconForFile(absolute);
            appendPart(line, icon, VKPathString::lastPathComponent(path->relativeFilePath()));
        }
        lines.append(line);
    }
    d->beautifiedPaths = lines;
}
