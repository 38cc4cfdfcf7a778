// Short display lines for a list of paths that still tell them apart: per path the volume, the
// deepest folder that distinguishes it from every other path, and the file, each with a small
// icon. All the work is done by the constructor; the results are read afterwards.
//
// A line is a styled text of runs, in order (each part only when its flag is on):
//   [volume icon] "\u00A0<volume name> — "  [folder icon] "\u00A0<folder> — "
//   [file icon] "\u00A0<file name>"
// Text runs carry the system font at 13 points. An icon run is one U+FFFC character carrying
// the icon (miniature form, a QIcon) and the baseline offset -3.0; neighbouring text with the
// same font is one run. The folder part is left out when the file name alone tells the path
// apart or nothing does.
#pragma once

#include "Files/VKPath.h"
#include "Foundation/VKAttributedString.h"
#include "Foundation/VKExport.h"
#include "Foundation/VKStringRanges.h"

#include <QList>

#include <memory>

class VK_EXPORT VKPathShortener
{
public:
    // The index of a path that nothing tells apart.
    static constexpr quint64 notFound = static_cast<quint64>(VKNotFound);

    VKPathShortener(const QList<std::shared_ptr<VKPath>> &paths, bool includeVolumeInfo,
                    bool includeFolderInfo, bool includeFileInfo);
    ~VKPathShortener();
    VKPathShortener(const VKPathShortener &) = delete;
    VKPathShortener &operator=(const VKPathShortener &) = delete;

    QList<std::shared_ptr<VKPath>> paths() const;
    void setPaths(const QList<std::shared_ptr<VKPath>> &paths);
    bool includeVolumeInfo() const;
    void setIncludeVolumeInfo(bool include);
    bool includeFolderInfo() const;
    void setIncludeFolderInfo(bool include);
    bool includeFileInfo() const;
    void setIncludeFileInfo(bool include);
    // Per path, the index (in its relative path components) of the component that tells it
    // apart, or notFound.
    QList<quint64> uniquePathComponentIndices() const;
    void setUniquePathComponentIndices(const QList<quint64> &indices);
    // Per path, its display line.
    QList<VKAttributedString> beautifiedPaths() const;
    void setBeautifiedPaths(const QList<VKAttributedString> &lines);

    // Fills uniquePathComponentIndices(): notFound for a single path, otherwise each path
    // against all the other path objects (the same object listed twice is no rival of itself;
    // two objects for the same file are). Gives the same answers as indexOfComponentInPath()
    // per path, in n log n rather than n squared.
    void findUniquePathComponentIndices();
    // Compares relative path components from the end: the answer is the index of the
    // component at which the last rival in `others` differs, or notFound when a rival matches
    // every component. With no rivals it is the file name's index.
    static quint64 indexOfComponentInPath(const VKPath &path,
                                          const QList<std::shared_ptr<VKPath>> &others);
    // Fills beautifiedPaths() from the paths, flags and indices.
    void createBeautifiedPaths();

    // The attributes of text runs and of icon runs.
    static VKTextAttributes textAttributes();
    static VKTextAttributes iconAttributes(const QIcon &icon);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
