#include "Files/VKFileSequence.h"

#include "Foundation/VKException.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKNumericStringCompare.h"
#include "Foundation/VKPathString.h"

#include <QDir>

#include <cstdio>
#include <exception>

namespace {

const QString className = QStringLiteral("VKFileSequence");

// Where the frame digits of a path lie: path[digitsStart, digitsEnd). The prefix is everything
// before, the postfix everything after. Worked out on the whole path, but only digits inside
// the last path component count.
struct FrameDigits
{
    qsizetype digitsStart = -1;
    qsizetype digitsEnd = -1;

    bool found() const { return digitsStart >= 0; }
};

FrameDigits frameDigitsOf(QStringView path)
{
    const qsizetype end = VKStringRanges::nonDecimalDigitSuffixStart(path);
    if (end == 0)
        return {};
    // The non-digit tail may only hold the trailing slashes of the last component; a slash
    // before them means the digits are in a folder name.
    qsizetype tailEnd = path.size();
    while (tailEnd > end && path[tailEnd - 1] == u'/')
        --tailEnd;
    if (path.sliced(end, tailEnd - end).contains(u'/'))
        return {};
    return {VKStringRanges::decimalDigitSuffixStart(path.first(end)), end};
}

qint64 frameNumberOf(QStringView path, const FrameDigits &digits)
{
    if (!digits.found())
        return VKFileSequence::notFound;
    return VKStringRanges::intValue(path.sliced(digits.digitsStart,
                                                digits.digitsEnd - digits.digitsStart));
}

QString identifierForRange(const QString &prefix, quint64 start, quint64 end, quint64 padding,
                           const QString &postfix)
{
    return prefix + QString::number(start) + u'-' + QString::number(end)
           + QString(qsizetype(padding), u'#') + postfix;
}

} // namespace

// --- Class operations ---

QString VKFileSequence::frameStringForFile(const QString &path)
{
    const FrameDigits digits = frameDigitsOf(path);
    if (!digits.found())
        return {};
    return path.sliced(digits.digitsStart, digits.digitsEnd - digits.digitsStart);
}

qint64 VKFileSequence::frameNumberForFile(const QString &path)
{
    return frameNumberOf(path, frameDigitsOf(path));
}

QString VKFileSequence::prefixStringForFile(const QString &path)
{
    const FrameDigits digits = frameDigitsOf(path);
    if (!digits.found())
        return {};
    return path.first(digits.digitsStart);
}

QString VKFileSequence::postfixStringForFile(const QString &path)
{
    const FrameDigits digits = frameDigitsOf(path);
    if (!digits.found())
        return {};
    return path.sliced(digits.digitsEnd);
}

quint64 VKFileSequence::paddingForFile(const QString &path)
{
    const QString frame = frameStringForFile(path);
    if (frame.startsWith(u'0'))
        return quint64(frame.size());
    return 1;
}

QList<QStringList> VKFileSequence::sequencesWithFiles(const QStringList &files)
{
    // The walk goes through the files in sorted order by index; each path is visited once for
    // its frame, prefix and postfix and once more when its run is copied out.
    const QList<qsizetype> order = VKNumericStringCompare::sortedIndexes(files);

    // What the walk needs of one path; views into `files`, which outlives them.
    struct Element
    {
        qint64 frame = notFound;
        QStringView prefix;
        QStringView postfix;
    };
    auto elementAt = [&files, &order](qsizetype position) {
        // Sorted order jumps around in memory: fetch the paths a little ahead.
        if (position + 8 < order.size())
            __builtin_prefetch(files.at(order.at(position + 8)).constData());
        const QStringView path = files.at(order.at(position));
        const FrameDigits digits = frameDigitsOf(path);
        if (!digits.found())
            return Element{notFound, {}, {}};
        return Element{frameNumberOf(path, digits), path.first(digits.digitsStart),
                       path.sliced(digits.digitsEnd)};
    };

    QList<QStringList> runs;
    const qsizetype count = order.size();
    qsizetype i = 0;
    Element first = count > 0 ? elementAt(0) : Element{};
    while (i < count) {
        qsizetype j = i + 1;
        if (first.frame != notFound) {
            Element previous = first;
            while (j < count) {
                const Element element = elementAt(j);
                const bool continues = element.frame != notFound
                                       && element.frame == previous.frame + 1
                                       && element.postfix == previous.postfix
                                       && element.prefix == previous.prefix;
                if (!continues) {
                    first = element; // opens the next run; no need to work it out again
                    break;
                }
                previous = element;
                ++j;
            }
        } else if (j < count) {
            first = elementAt(j);
        }
        QStringList run;
        run.reserve(j - i);
        for (qsizetype k = i; k < j; ++k)
            run.append(files.at(order.at(k)));
        runs.append(std::move(run));
        i = j;
    }
    return runs;
}

QList<std::shared_ptr<VKFileSequence>>
VKFileSequence::fileSequencesWithFiles(const QStringList &files)
{
    QList<std::shared_ptr<VKFileSequence>> sequences;
    for (const QStringList &run : sequencesWithFiles(files))
        sequences.append(fileSequenceWithSequenceOfFiles(run));
    return sequences;
}

// --- Initialisers ---

std::shared_ptr<VKFileSequence> VKFileSequence::fileSequenceWithIdentifier(const QString &identifier)
{
    auto sequence = std::make_shared<VKFileSequence>();
    sequence->m_startFrame = ~quint64(0);
    sequence->m_endFrameInclusive = ~quint64(0);
    if (!sequence->parseIdentifier(identifier))
        return nullptr;
    return sequence;
}

std::shared_ptr<VKFileSequence> VKFileSequence::fileSequenceWithFiles(const QStringList &files)
{
    const QList<QStringList> runs = sequencesWithFiles(files);
    if (runs.size() != 1)
        return nullptr;
    return fileSequenceWithSequenceOfFiles(runs.first());
}

std::shared_ptr<VKFileSequence>
VKFileSequence::fileSequenceWithSequenceOfFiles(const QStringList &files)
{
    if (files.isEmpty())
        return nullptr;
    auto sequence = std::make_shared<VKFileSequence>();
    const QString &first = files.first();
    sequence->m_startFrame = quint64(frameNumberForFile(first));
    sequence->m_endFrameInclusive = quint64(frameNumberForFile(files.last()));
    if (sequence->m_startFrame != quint64(notFound)
        && sequence->m_endFrameInclusive != quint64(notFound)) {
        sequence->m_prefix = prefixStringForFile(first);
        sequence->m_postfix = postfixStringForFile(first);
        sequence->m_padding = paddingForFile(first);
    } else {
        sequence->m_prefix = first;
        sequence->m_postfix = QStringLiteral("");
        sequence->m_padding = 0;
    }
    return sequence;
}

// --- Identifiers ---

bool VKFileSequence::parseIdentifier(const QString &identifier)
{
    const VKLogContext context{className, QStringLiteral("-[VKFileSequence parseIdentifier:]"),
                               this};
    if (identifier.isNull()) {
        VKLogger::error(context, "[VKFileSequence parseIdentifier:] was called with nil argument");
        return false;
    }
    if (identifier.isEmpty()) {
        VKLogger::error(context,
                        "[VKFileSequence parseIdentifier:] was called with zero length argument");
        return false;
    }
    try {
        static const VKCharacterSet hashes =
            VKCharacterSet::characterSetWithCharactersInString(QStringLiteral("#"));
        static const VKCharacterSet dashes =
            VKCharacterSet::characterSetWithCharactersInString(QStringLiteral("-"));
        static const VKCharacterSet digits = VKCharacterSet::decimalDigitCharacterSet();
        constexpr unsigned justBefore = VKBackwardsSearch | VKAnchoredSearch;

        const qsizetype lastComponent = identifier.lastIndexOf(VKPathString::lastPathComponent(identifier));
        const VKRange hashRun =
            VKStringRanges::rangeOfCharactersFromSet(identifier, hashes, VKBackwardsSearch);
        if (!hashRun.isFound() || lastComponent < 0 || lastComponent > hashRun.location)
            return false;

        VKRange before = VKStringRanges::rangeBeforeRange(identifier, hashRun);
        if (!before.isFound())
            return false;
        const VKRange endDigits =
            VKStringRanges::rangeOfCharactersFromSet(identifier, digits, justBefore, before);
        if (!endDigits.isFound())
            return false;

        before = VKStringRanges::rangeBeforeRange(identifier, endDigits);
        if (!before.isFound())
            return false;
        const VKRange dash =
            VKStringRanges::rangeOfCharactersFromSet(identifier, dashes, justBefore, before);
        if (!dash.isFound() || dash.length != 1)
            return false;

        before = VKStringRanges::rangeBeforeRange(identifier, dash);
        if (!before.isFound())
            return false;
        const VKRange startDigits =
            VKStringRanges::rangeOfCharactersFromSet(identifier, digits, justBefore, before);
        if (!startDigits.isFound())
            return false;

        const VKRange after = VKStringRanges::rangeAfterRange(identifier, hashRun);
        const QString postfix =
            after.isFound() ? identifier.sliced(after.location, after.length) : QStringLiteral("");
        before = VKStringRanges::rangeBeforeRange(identifier, startDigits);
        const QString prefix =
            before.isFound() ? identifier.sliced(before.location, before.length) : QStringLiteral("");

        const qint64 start = VKStringRanges::longLongValue(
            QStringView(identifier).sliced(startDigits.location, startDigits.length));
        const qint64 end = VKStringRanges::longLongValue(
            QStringView(identifier).sliced(endDigits.location, endDigits.length));
        if (start > end)
            return false;

        m_padding = quint64(hashRun.length);
        m_postfix = postfix;
        m_prefix = prefix;
        m_startFrame = quint64(start);
        m_endFrameInclusive = quint64(end);
        return true;
    } catch (const VKException &exception) {
        VKLogger::error(context,
                        "[VKFileSequence parseIdentifier:] could not parse identifier %@ because "
                        "of exception: %@",
                        identifier, exception.reason());
    } catch (const std::exception &exception) {
        VKLogger::error(context,
                        "[VKFileSequence parseIdentifier:] could not parse identifier %@ because "
                        "of exception: %@",
                        identifier, exception.what());
    }
    return false;
}

QString VKFileSequence::identifier() const
{
    if (m_startFrame == quint64(notFound) || m_endFrameInclusive == quint64(notFound))
        return m_prefix;
    return identifierForRange(m_prefix, m_startFrame, m_endFrameInclusive, m_padding, m_postfix);
}

QString VKFileSequence::identifierWithInPoint(quint64 in, quint64 out) const
{
    const quint64 count = numberOfFiles();
    if (in > count || out > count)
        return identifier();
    return identifierForRange(m_prefix, m_startFrame + in, m_startFrame + out, m_padding,
                              m_postfix);
}

QString VKFileSequence::paddingString() const
{
    return QString(qsizetype(m_padding), u'#');
}

// --- Members ---

quint64 VKFileSequence::numberOfFiles() const
{
    return m_endFrameInclusive - m_startFrame + 1;
}

QString VKFileSequence::filenameForAbsoluteFrameNumber(quint64 frame) const
{
    if (frame < m_startFrame || frame > m_endFrameInclusive) {
        std::printf("ERROR: framenumber: %d not in range of sequence.\n", int(frame));
        return {};
    }
    return m_prefix + QString::number(frame).rightJustified(qsizetype(m_padding), u'0') + m_postfix;
}

QString VKFileSequence::filePathForRelativeFrameNumber(quint64 index) const
{
    return filenameForAbsoluteFrameNumber(m_startFrame + index);
}

QStringList VKFileSequence::allFilePaths() const
{
    QStringList paths;
    const quint64 count = numberOfFiles();
    paths.reserve(qsizetype(count));
    for (quint64 index = 0; index < count; ++index)
        paths.append(filePathForRelativeFrameNumber(index));
    return paths;
}

QList<QUrl> VKFileSequence::allFileURLs() const
{
    QList<QUrl> urls;
    const QDir current = QDir::current();
    for (const QString &path : allFilePaths())
        urls.append(QUrl::fromLocalFile(VKPathString::isAbsolutePath(path) ? path
                                                                     : current.absoluteFilePath(path)));
    return urls;
}

// --- Sizes ---

qint64 VKFileSequence::fileSizeOfFileAtIndex(quint64 index) const
{
    const QString path = filePathForRelativeFrameNumber(index);
    if (path.isNull()) {
        VKLogger::error({className, QStringLiteral("-[VKFileSequence fileSizeOfFileAtIndex:]"), this},
                        "Could not get filePath for index %lu", index);
        return 0;
    }
    return VKFileSystem::filesizeCFI(path);
}

quint64 VKFileSequence::fileSizeFromAllFiles() const
{
    quint64 sum = 0;
    const quint64 count = numberOfFiles();
    for (quint64 index = 0; index < count; ++index)
        sum += quint64(fileSizeOfFileAtIndex(index));
    return sum;
}

qint64 VKFileSequence::overallByteCount() const
{
    const quint64 count = numberOfFiles();
    if (count < 3)
        return qint64(fileSizeFromAllFiles());
    const qint64 first = fileSizeOfFileAtIndex(0);
    const qint64 middle = fileSizeOfFileAtIndex(count / 2);
    const qint64 last = fileSizeOfFileAtIndex(count - 1);
    if (first == middle && middle == last)
        return qint64(quint64(first) * count);
    return qint64(fileSizeFromAllFiles());
}
