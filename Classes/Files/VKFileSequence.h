// A numbered file sequence: a run of files whose names differ only in a frame number
// (clip_0001.dpx, clip_0002.dpx, ...). Groups path lists into runs, describes a run by one
// identifier (/Volumes/A/clip_1-100####.dpx), parses identifiers back, regenerates member paths
// and sums the members' sizes.
//
// The frame number of a file is the last run of decimal digits in its name that is followed only
// by non-digits: A001_C002.0001.dpx has frame 1, clip7a has 7, clip.dpx has none. Frame numbers
// read from names saturate at 2147483647.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKStringRanges.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>

class VK_EXPORT VKFileSequence
{
public:
    // The frame number of a file without one, and a range that was not found.
    static constexpr qint64 notFound = VKNotFound;

    // An empty sequence: no prefix or postfix, padding 0, frames 0 to 0.
    VKFileSequence() = default;

    // --- Class operations ---

    // Splits `files` into runs: sorted by name with numbers compared by value, then cut wherever
    // the next file has no frame number, does not continue the frame count by exactly one, or
    // has another prefix or postfix. Every input path is in exactly one run; runs and their
    // members come in sorted order; a file without frame number is a run of its own. Near
    // n log n, and each path's frame, prefix and postfix are worked out once.
    static QList<QStringList> sequencesWithFiles(const QStringList &files);
    // The same runs as places instead of copies, for callers that only need a few members of
    // each: `order` receives the indexes into `files` in sorted order, and the answer is the
    // length of each run in that order.
    static QList<qsizetype> runLengthsWithFiles(const QStringList &files, QList<qsizetype> &order);
    // sequencesWithFiles() made into sequences, one per run (never null).
    static QList<std::shared_ptr<VKFileSequence>> fileSequencesWithFiles(const QStringList &files);

    // The frame digits of the file name ("0001" for /a/clip_0001.dpx), or a null string.
    static QString frameStringForFile(const QString &path);
    // The frame digits read as a 32-bit number (saturating), or notFound.
    static qint64 frameNumberForFile(const QString &path);
    // The whole path before the frame digits (/a/clip_), or a null string without frame digits.
    static QString prefixStringForFile(const QString &path);
    // Everything after the frame digits (.dpx), or a null string without frame digits.
    static QString postfixStringForFile(const QString &path);
    // The number of frame digits when they start with "0", otherwise 1: only leading zeros
    // reveal padding.
    static quint64 paddingForFile(const QString &path);

    // --- Initialisers (null on failure) ---

    // Parses `identifier`; null when it is not an identifier.
    static std::shared_ptr<VKFileSequence> fileSequenceWithIdentifier(const QString &identifier);
    // The sequence of `files` when they form exactly one run; null for zero or several runs.
    static std::shared_ptr<VKFileSequence> fileSequenceWithFiles(const QStringList &files);
    // The sequence of one run, already in order (null for an empty list). Start and end come
    // from the first and last file; prefix, postfix and padding from the first. When either has
    // no frame number, the first file stands for the whole list: prefix = that path, postfix "",
    // padding 0.
    static std::shared_ptr<VKFileSequence>
    fileSequenceWithSequenceOfFiles(const QStringList &files);

    // --- Properties ---

    // A free slot for the caller; nothing here reads or sets it.
    QString folderPath() const { return m_folderPath; }
    void setFolderPath(const QString &folderPath) { m_folderPath = folderPath; }
    // Everything before the frame digits, folder included (/Volumes/A/clip_).
    QString prefix() const { return m_prefix; }
    void setPrefix(const QString &prefix) { m_prefix = prefix; }
    // Everything after the frame digits (.dpx).
    QString postfix() const { return m_postfix; }
    void setPostfix(const QString &postfix) { m_postfix = postfix; }
    // The minimum number of digits of a frame number in a member name.
    quint64 padding() const { return m_padding; }
    void setPadding(quint64 padding) { m_padding = padding; }
    quint64 startFrame() const { return m_startFrame; }
    void setStartFrame(quint64 frame) { m_startFrame = frame; }
    quint64 endFrameInclusive() const { return m_endFrameInclusive; }
    void setEndFrameInclusive(quint64 frame) { m_endFrameInclusive = frame; }

    // --- Identifiers ---

    // Reads prefix, start, end, padding and postfix from an identifier such as
    // /V/clip_1-100####.dpx. Answers false and changes nothing when it does not parse: no "#"
    // run in the last path component, no "start-end" right before it, or start after end.
    bool parseIdentifier(const QString &identifier);
    // prefix + start + "-" + end + padding times "#" + postfix; only the prefix when start or
    // end is notFound (a sequence made from a file without frame number).
    QString identifier() const;
    // The identifier of the part from `in` to `out`, counted from the first member. Points up to
    // and including numberOfFiles() are accepted; otherwise the whole identifier is answered.
    QString identifierWithInPoint(quint64 in, quint64 out) const;
    // "#" repeated padding times.
    QString paddingString() const;

    // --- Members ---

    // endFrameInclusive - startFrame + 1, in unsigned 64-bit arithmetic.
    quint64 numberOfFiles() const;
    // The older name of numberOfFiles().
    quint64 duration() const;

    // prefix + frame (left-padded with "0" to padding digits, never cut) + postfix. For a frame
    // outside the sequence, writes "ERROR: framenumber: %d not in range of sequence." to
    // standard output and answers a null string.
    QString filenameForAbsoluteFrameNumber(quint64 frame) const;
    // The member `index` places after the first one.
    QString filePathForRelativeFrameNumber(quint64 index) const;
    // The same as filePathForRelativeFrameNumber(); logs that it is deprecated and who called.
    [[deprecated("use filePathForRelativeFrameNumber")]] QString
    filenameForRelativeFrameNumber(quint64 index) const;
    // Every member path, in frame order.
    QStringList allFilePaths() const;
    // Every member as a file URL (relative paths taken from the current folder), in order.
    QList<QUrl> allFileURLs() const;

    // --- Sizes ---

    // The data size of member `index`; 0 (and a log entry) for an index outside the sequence,
    // 0 for a member that cannot be read.
    qint64 fileSizeOfFileAtIndex(quint64 index) const;
    // The sum over all members.
    quint64 fileSizeFromAllFiles() const;
    // The total size, estimated: when the first, middle and last members have the same size,
    // that size times numberOfFiles() without reading the others; otherwise (or with fewer than
    // three members) the exact sum.
    qint64 overallByteCount() const;

private:
    QString m_folderPath;
    QString m_prefix;
    QString m_postfix;
    quint64 m_padding = 0;
    quint64 m_startFrame = 0;
    quint64 m_endFrameInclusive = 0;
};
