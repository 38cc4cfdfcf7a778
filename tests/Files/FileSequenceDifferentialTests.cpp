// The grouping of paths into runs against a plain reference: sort with the pairwise numeric
// comparison, then walk the sorted list and work out frame, prefix and postfix of every path
// again. Random listings stress what the fast grouping takes shortcuts on: shared and nested
// prefixes, leading zeros, numbers beyond 64 bits, non-ASCII digits, surrogate pairs, names
// differing only in case, duplicates.
#include "Files/VKFileSequence.h"
#include "Foundation/VKNumericStringCompare.h"
#include "Foundation/VKPathString.h"
#include "Foundation/VKStringRanges.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using L = QStringList;

namespace {

struct Parts
{
    qint64 frame = VKNotFound;
    QString prefix, postfix;
};

// The frame is the last run of digits in the last path component; prefix and postfix are the
// whole path before and after it.
Parts referenceParts(const QString &path)
{
    const QString name = VKPathString::lastPathComponent(path);
    const QString left =
        VKStringRanges::stringByDeletingSuffix(name, VKStringRanges::nonDecimalDigitSuffix(name));
    const QString digits = VKStringRanges::decimalDigitSuffix(left);
    if (left.isEmpty() || digits.isEmpty())
        return {};
    const QString postfix = VKStringRanges::nonDecimalDigitSuffix(path);
    const QString beforePostfix = VKStringRanges::stringByDeletingSuffix(path, postfix);
    return {VKStringRanges::intValue(digits),
            VKStringRanges::stringByDeletingSuffix(
                beforePostfix, VKStringRanges::decimalDigitSuffix(beforePostfix)),
            postfix};
}

// A path continues the run before it when both have frames, the same prefix and postfix, and
// its frame is the next one; a path without frame stands alone.
QList<L> referenceSequences(L files)
{
    std::sort(files.begin(), files.end(), VKNumericStringCompare::lessThan);
    QList<L> runs;
    Parts previous;
    for (const QString &file : std::as_const(files)) {
        const Parts parts = referenceParts(file);
        if (runs.isEmpty() || parts.frame == VKNotFound || previous.frame == VKNotFound ||
            parts.frame != previous.frame + 1 || parts.prefix != previous.prefix ||
            parts.postfix != previous.postfix)
            runs.append(L());
        runs.last().append(file);
        previous = parts;
    }
    return runs;
}

// Digits of other scripts: Arabic-Indic, fullwidth, Devanagari, and mathematical bold (outside
// the Basic Multilingual Plane).
constexpr char32_t digitZeros[] = {U'0', U'\u0660', U'\uFF10', U'\u0966', U'\U0001D7CE'};

class ListingGenerator
{
public:
    explicit ListingGenerator(unsigned seed) : m_random(seed) {}

    L listing(int size)
    {
        L files;
        while (files.size() < size) {
            switch (pick(10)) {
            case 0: // a side-car, or digits only in a folder name
                files.append(folder() + pickOf({"notes.txt", "Thumbs.db", "README", "clip.mov",
                                                ".DS_Store", "", "a", "A", "é.x", "🎬"}));
                break;
            case 1: // anything
                files.append(folder() + noise(1 + pick(8)));
                break;
            default:
                appendSequence(files, size - files.size());
            }
        }
        std::shuffle(files.begin(), files.end(), m_random);
        return files;
    }

private:
    int pick(int n) { return int(m_random() % unsigned(n)); }

    QString pickOf(std::initializer_list<const char *> texts)
    {
        return QString::fromUtf8(texts.begin()[pick(int(texts.size()))]);
    }

    // Folders nest and carry numbers themselves, so that prefixes of different runs share
    // beginnings and digits.
    QString folder()
    {
        return pickOf({"", "", "/V/", "/V/reel1/", "/V/reel01/", "/V/reel10/", "/V/Reel1/", "d/",
                       "d/e//", "x7/"});
    }

    QString number(quint64 value, int padding, char32_t zero)
    {
        std::u32string digits;
        for (QChar c : QString::number(value).rightJustified(padding, u'0'))
            digits += zero + char32_t(c.unicode() - u'0');
        return QString::fromStdU32String(digits);
    }

    // Pieces that take apart differently: digits of several scripts, planes and lengths, a
    // lone high surrogate, separators.
    QString noise(int length)
    {
        static const QStringList pieces =
            QString::fromUtf8("a A _ . - / \u00E9 # 0 1 9 00 \u0663 \uFF11 \U0001D7D9 \U0001F600 ~")
                .split(u' ')
            << " " << QString(QChar(0xD835)) << "\t";
        QString s;
        for (int k = 0; k < length; ++k)
            s += pieces[pick(int(pieces.size()))];
        return s;
    }

    void appendSequence(L &files, qsizetype room)
    {
        QString base = pickOf({"clip_", "clip.", "Clip_", "CLIP_", "A001C002_", "shot 10 v", "",
                               "plate-", "r", "ä_"});
        if (pick(3) == 0) // a number inside the name that other runs may share or not
            base += number(quint64(pick(3)), pick(3), digitZeros[pick(5) == 0 ? 1 : 0]) +
                    pickOf({"_", ".", "-", "a"});
        if (pick(8) == 0)
            base = noise(1 + pick(4)) + base;
        const QString postfix =
            pickOf({".dpx", ".dpx", ".DPX", ".exr", "", "a", ".tar.gz", "_final.tif", "/", "!"});
        const int padding = pick(4) == 0 ? 0 : 1 + pick(8);
        const char32_t zero = pick(6) == 0 ? digitZeros[1 + pick(4)] : U'0';
        quint64 start = quint64(pick(20));
        if (pick(15) == 0)
            start = pick(2) ? 2147483640u + quint64(pick(20)) : 18446744073709551600u;
        const int length = std::min<int>(int(room), 1 + pick(pick(4) == 0 ? 60 : 8));
        const bool gaps = pick(3) == 0;
        const QString prefix = folder() + base;
        quint64 frame = start;
        for (int k = 0; k < length; ++k, ++frame) {
            if (gaps && pick(4) == 0)
                frame += quint64(pick(3));
            const QString digits = number(frame, padding, zero);
            files.append(prefix + (pick(12) == 0 ? QString(u'0') + digits : digits) + postfix);
            if (pick(20) == 0)
                files.append(files.last()); // the same path twice
        }
    }

    std::mt19937 m_random;
};

} // namespace

TEST(VKFileSequenceDifferential, RandomListingsGroupLikeTheReference)
{
    // So many listings of so many paths: none, one, and from small to large.
    ListingGenerator generator(15);
    for (const auto &[listings, size] : std::initializer_list<std::pair<int, int>>{
             {1, 0}, {50, 1}, {1500, 12}, {300, 150}, {4, 5000}}) {
        for (int k = 0; k < listings; ++k) {
            const L files = generator.listing(size);
            if (VKFileSequence::sequencesWithFiles(files) != referenceSequences(files)) {
                ADD_FAILURE() << "listing " << k << " of " << size << " paths groups differently:\n"
                              << files.join(u'\n').toStdString();
                return;
            }
        }
    }
}
