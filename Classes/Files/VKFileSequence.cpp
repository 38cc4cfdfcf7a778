#include "Files/VKFileSequence.h"

#include "Foundation/VKException.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKNumericStringCompare.h"
#include "Foundation/VKPathString.h"

#include <QDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <vector>

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
    // Most names end in ASCII: find the digits with one scan from the end, and leave anything
    // else to the general search below.
    const char16_t *units = path.utf16();
    qsizetype scan = path.size();
    while (scan > 0 && units[scan - 1] == u'/')
        --scan;
    for (; scan > 0; --scan) {
        const char16_t c = units[scan - 1];
        if (c >= 0x80)
            break;
        if (c >= u'0' && c <= u'9') {
            qsizetype start = scan - 1;
            while (start > 0 && units[start - 1] >= u'0' && units[start - 1] <= u'9')
                --start;
            if (start > 0 && units[start - 1] >= 0x80)
                break; // the run may go on with digits of other scripts
            return {start, scan};
        }
        if (c == u'/')
            return {};
    }

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
    return VKStringRanges::intValue(
        path.sliced(digits.digitsStart, digits.digitsEnd - digits.digitsStart));
}

QString identifierForRange(const QString &prefix, quint64 start, quint64 end, quint64 padding,
                           const QString &postfix)
{
    return prefix + QString::number(start) + u'-' + QString::number(end) +
           QString(qsizetype(padding), u'#') + postfix;
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

namespace {

// Paths are numbered with 32 bits inside the grouping; the top bit marks a path without frame.
constexpr quint32 noFrameBit = 0x80000000u;
// A frame value at or beyond this is not kept; such paths tie and their strings decide.
constexpr quint32 valueCeiling = 0xFFFFFFFFu;

// Distinct texts by exact contents, each with a small id. The texts are views into strings the
// caller keeps alive. A listing repeats the few prefixes of a folder over and over, so the last
// few answers are compared before hashing, for as long as that keeps finding them: in a shuffled
// list it hardly ever does, and the comparisons are then left out.
class TextIds
{
public:
    quint32 idOf(QStringView text)
    {
        if (comparesRecentFirst()) {
            for (const quint32 id : m_recent) {
                if (id < m_texts.size() && equal(m_texts[id], text)) {
                    m_recentScore = std::min(m_recentScore + 1, recentMaximum);
                    return id;
                }
            }
        }
        return idOf(text, hashOf(text));
    }

    // The same with the hash worked out beforehand (see prefetchSlot()).
    quint32 idOf(QStringView text, quint32 hash)
    {
        if ((m_texts.size() + 1) * 2 > m_slots.size())
            grow();
        const std::size_t mask = m_slots.size() - 1;
        for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
            Slot &s = m_slots[slot];
            if (s.id == empty) {
                s = {text.utf16(), std::size_t(text.size()), quint32(m_texts.size()), hash};
                m_texts.push_back(text);
                return remember(s.id);
            }
            if (s.hash == hash && s.size == std::size_t(text.size()) &&
                std::memcmp(s.text, text.utf16(), s.size * 2) == 0)
                return remember(s.id);
        }
    }

    // Whether idOf() tries the last answers before hashing: if so, hashing ahead is wasted.
    bool comparesRecentFirst() const { return m_recentScore >= recentThreshold; }

    // Looking up a text takes a slot and then the text it holds, each likely a cache miss in a
    // long list: a caller that knows what comes next fetches the slot a few texts ahead, and
    // the text a few later, once the slot has arrived.
    void prefetchSlot(quint32 hash) const
    {
        if (!m_slots.empty())
            __builtin_prefetch(&m_slots[hash & (m_slots.size() - 1)]);
    }
    void prefetchText(quint32 hash) const
    {
        if (!m_slots.empty())
            __builtin_prefetch(m_slots[hash & (m_slots.size() - 1)].text);
    }

    // Sixteen bytes a round, each round's product independent of the others so that they
    // overlap; the rotation keeps the order of the rounds in the hash. The texts are paths, not
    // adversaries.
    static quint32 hashOf(QStringView text)
    {
        const char *bytes = reinterpret_cast<const char *>(text.utf16());
        std::size_t length = std::size_t(text.size()) * 2;
        quint64 h = 0x9E3779B97F4A7C15ull ^ length;
        const char *end = bytes + length;
        auto load = [](const char *at) {
            quint64 word;
            std::memcpy(&word, at, 8);
            return word;
        };
        for (; end - bytes > 16; bytes += 16)
            h = (h << 23 | h >> 41) ^
                mix(load(bytes) ^ 0xA0761D6478BD642Full, load(bytes + 8) ^ 0xE7037ED1A0B428DBull);
        // The last sixteen bytes are read whole, overlapping the rounds before if need be:
        // bytes stored a few at a time would stall the loads that read them back.
        quint64 a = 0, b = 0;
        if (length >= 16) {
            a = load(end - 16);
            b = load(end - 8);
        } else if (length >= 8) {
            a = load(bytes);
            b = load(end - 8);
        } else if (length >= 4) {
            quint32 first, last;
            std::memcpy(&first, bytes, 4);
            std::memcpy(&last, end - 4, 4);
            a = first;
            b = last;
        } else if (length >= 2) {
            quint16 unit;
            std::memcpy(&unit, bytes, 2);
            a = unit;
        }
        h = mix(h ^ mix(a ^ 0x8EBC6AF09C88C6E3ull, b ^ 0x589965CC75374CC3ull),
                0xFF51AFD7ED558CCDull);
        return quint32(h ^ h >> 32);
    }

    const std::vector<QStringView> &texts() const { return m_texts; }

private:
    static constexpr quint32 empty = 0xFFFFFFFFu;
    static constexpr int recentThreshold = 8;
    static constexpr int recentMaximum = 16;

    static bool equal(QStringView a, QStringView b)
    {
        return a.size() == b.size() &&
               std::memcmp(a.utf16(), b.utf16(), std::size_t(a.size()) * 2) == 0;
    }

    // Both halves of a 64 by 64 bit product.
    __extension__ typedef unsigned __int128 Product;
    static quint64 mix(quint64 a, quint64 b)
    {
        const Product product = Product(a) * b;
        return quint64(product) ^ quint64(product >> 64);
    }

    // Whether the answer was among the last few tells if comparing with them first pays.
    quint32 remember(quint32 id)
    {
        const bool recent =
            std::find(std::begin(m_recent), std::end(m_recent), id) != std::end(m_recent);
        m_recentScore =
            recent ? std::min(m_recentScore + 1, recentMaximum) : std::max(m_recentScore - 1, 0);
        if (id != m_recent[0]) {
            std::memmove(m_recent + 1, m_recent, sizeof m_recent - sizeof *m_recent);
            m_recent[0] = id;
        }
        return id;
    }

    struct Slot
    {
        const char16_t *text = nullptr;
        std::size_t size = 0;
        quint32 id = empty;
        quint32 hash = 0;
    };

    void grow()
    {
        std::vector<Slot> old(std::max<std::size_t>(16, m_slots.size() * 2));
        old.swap(m_slots);
        const std::size_t mask = m_slots.size() - 1;
        for (const Slot &s : old) {
            if (s.id == empty)
                continue;
            std::size_t slot = s.hash & mask;
            while (m_slots[slot].id != empty)
                slot = (slot + 1) & mask;
            m_slots[slot] = s;
        }
    }

    std::vector<Slot> m_slots;
    std::vector<QStringView> m_texts;
    quint32 m_recent[4] = {empty, empty, empty, empty};
    int m_recentScore = recentMaximum;
};

// Asks for the first and last cache line of a string's data, the first holding the header with
// its reference count. Fetching never faults, whatever the address.
void prefetchString(const QString &text)
{
    const quintptr start = quintptr(text.constData());
    __builtin_prefetch(reinterpret_cast<const void *>(start - sizeof(QArrayData)));
    __builtin_prefetch(reinterpret_cast<const void *>(start + quintptr(text.size()) * 2));
}

// Copies of the paths of a list, in its order, for the runs made of them. The runs take them
// out in sorted order, bitwise (QString is relocatable): a copy taken out is neither destroyed
// nor written here, so its place is only read once. Whatever was not taken is destroyed.
class PathCopies
{
public:
    explicit PathCopies(std::size_t capacity)
        : m_data(std::allocator<QString>().allocate(capacity)), m_capacity(capacity)
    {
    }
    PathCopies(const PathCopies &) = delete;
    PathCopies &operator=(const PathCopies &) = delete;
    ~PathCopies()
    {
        std::destroy_n(m_data, m_owned);
        std::allocator<QString>().deallocate(m_data, m_capacity);
    }

    void append(const QString &path) { std::construct_at(m_data + m_owned++, path); }

    // The runs in sorted order: `order` holds every copy's index once, and `runLengths` cuts it.
    // The runs are written in memory order; the copies are read out of order, fetched a few
    // members ahead.
    template <typename Index>
    QList<QStringList> takeRuns(const std::vector<Index> &order,
                                const std::vector<Index> &runLengths)
    {
        static_assert(QTypeInfo<QString>::isRelocatable);
        constexpr std::size_t ahead = 16;
        const std::size_t count = order.size();
        Q_ASSERT(count == m_owned);
        std::size_t position = 0;
        try {
            QList<QStringList> runs;
            runs.reserve(qsizetype(runLengths.size()));
            for (const Index length : runLengths) {
                // Null strings own nothing: they are written over without being destroyed.
                QStringList run(static_cast<qsizetype>(length));
                QString *members = run.data();
                for (Index k = 0; k < length; ++k, ++position) {
                    if (position + ahead < count)
                        __builtin_prefetch(m_data + order[position + ahead]);
                    std::memcpy(static_cast<void *>(members + k),
                                static_cast<const void *>(m_data + order[position]),
                                sizeof(QString));
                }
                runs.append(std::move(run));
            }
            m_owned = 0;
            return runs;
        } catch (...) {
            // Only making a run throws, before it holds anything: the runs made so far hold
            // the copies taken, and the rest are still here.
            for (std::size_t p = position; p < count; ++p)
                std::destroy_at(m_data + order[p]);
            m_owned = 0;
            throw;
        }
    }

private:
    QString *m_data;
    std::size_t m_capacity;
    std::size_t m_owned = 0; // copies made, all still here until takeRuns()
};

// Plain UTF-16 code unit order, a string that ends first sorting first.
bool codeUnitLess(QStringView a, QStringView b)
{
    return std::lexicographical_compare(a.utf16(), a.utf16() + a.size(), b.utf16(),
                                        b.utf16() + b.size());
}

// Whether `key` starts with the tokens of `prefix` (digit runs equal in value, other code units
// equal) and then goes on with a digit. Paths of a prefix sort against such a key by their frame
// number, so their places cannot be told from the prefix alone.
bool continuesWithDigitAfter(QStringView prefix, QStringView key)
{
    qsizetype i = 0, j = 0;
    int units = 1;
    while (i < prefix.size()) {
        if (j >= key.size())
            return false;
        const bool digitA = VKStringRanges::digitValueAt(prefix, i, &units) >= 0;
        const bool digitB = VKStringRanges::digitValueAt(key, j, &units) >= 0;
        if (digitA != digitB)
            return false;
        if (!digitA) {
            if (prefix[i] != key[j])
                return false;
            ++i;
            ++j;
            continue;
        }
        qsizetype endA = i, endB = j;
        while (endA < prefix.size() && VKStringRanges::digitValueAt(prefix, endA, &units) >= 0)
            endA += units;
        while (endB < key.size() && VKStringRanges::digitValueAt(key, endB, &units) >= 0)
            endB += units;
        if (VKNumericStringCompare::compareNumerically(prefix.sliced(i, endA - i),
                                                       key.sliced(j, endB - j)) != 0)
            return false;
        i = endA;
        j = endB;
    }
    return j < key.size() && VKStringRanges::digitValueAt(key, j, &units) >= 0;
}

// Groups paths into runs without comparing whole paths in the common case.
//
// Every path with a frame number is prefix + frame digits + postfix, where the prefix ends with a
// non-digit and the postfix holds no digit at all. Paths of one prefix therefore sort by (frame
// value, postfix) and only ties need their strings; and different prefixes mostly sort as the
// prefixes followed by a digit run would. So each path is read once into (prefix id, postfix id,
// frame value); the distinct prefixes and the paths without frame are sorted as strings; paths
// are placed per prefix by counting and sorted inside their prefix on integers.
//
// Prefixes whose order depends on the frame number (clip_ against clip_1_, whose paths interleave:
// clip_1_5 sorts before clip_2) lie next to each other in that order, the shortest first followed
// by all keys that continue it with a digit. Such a cluster is merged with whole-path comparisons.
class Grouping
{
public:
    explicit Grouping(const QStringList &files) : m_files(files) {}

    // The files' indexes in sorted order, and the length of every run in that order. With
    // `copies`, it also receives a copy of every file in the order of the list.
    void run(std::vector<quint32> &order, std::vector<quint32> &runLengths,
             PathCopies *copies = nullptr)
    {
        readPaths(copies);
        sortBuckets();
        placePaths();
        sortInsideBuckets();
        mergeClusters();
        findRuns(order, runLengths);
    }

private:
    struct Info
    {
        quint32 bucket;  // prefix id, or noFrameBit | number of the path without frame
        quint32 postfix; // postfix id
        quint32 value;   // frame value, at most valueCeiling
    };

    QStringView path(quint32 index) const { return m_files.at(index); }

    bool lessPath(quint32 a, quint32 b) const
    {
        return VKNumericStringCompare::compare(path(a), path(b)) < 0;
    }

    // A copy raises the count in the string's header, a locked write that waits for its cache
    // line: here the line has just been read, while later, in a list too long for the cache,
    // it would have to be fetched again.
    void readPaths(PathCopies *copies)
    {
        const qsizetype count = m_files.size();
        m_info.resize(std::size_t(count));
        // Each path is taken apart a few paths ahead of its lookup, so that the prefix's slot and
        // text are on their way by then (when the recent prefixes do not find it first). The
        // string itself, header and end, is fetched twice as far ahead again: in a list longer
        // than the cache it comes from memory.
        struct Ahead
        {
            FrameDigits digits;
            quint32 hash = 0;
            bool hashed = false;
        };
        constexpr qsizetype ahead = 8;
        Ahead ring[ahead];
        auto lookAhead = [this, &ring](qsizetype j) {
            Ahead &a = ring[j % ahead];
            const QStringView p = m_files.at(j);
            a.digits = frameDigitsOf(p);
            a.hashed = a.digits.found() && !m_prefixes.comparesRecentFirst();
            if (a.hashed) {
                a.hash = TextIds::hashOf(p.first(a.digits.digitsStart));
                m_prefixes.prefetchSlot(a.hash);
            }
        };
        for (qsizetype j = 0; j < std::min(ahead, count); ++j)
            lookAhead(j);
        for (qsizetype i = 0; i < count; ++i) {
            const QStringView p = m_files.at(i);
            const Ahead a = ring[i % ahead];
            if (i + ahead < count)
                lookAhead(i + ahead);
            if (i + 2 * ahead < count)
                prefetchString(m_files.at(i + 2 * ahead));
            if (const Ahead &half = ring[(i + ahead / 2) % ahead];
                i + ahead / 2 < count && half.hashed)
                m_prefixes.prefetchText(half.hash);
            const FrameDigits digits = a.digits;
            if (copies)
                copies->append(m_files.at(i));
            if (!digits.found()) {
                m_info[std::size_t(i)] = {noFrameBit | quint32(m_noFrame.size()), 0, 0};
                m_noFrame.push_back(quint32(i));
                continue;
            }
            quint64 value = 0;
            int units = 1;
            for (qsizetype k = digits.digitsStart; k < digits.digitsEnd && value < valueCeiling;
                 k += units)
                value = value * 10 + quint64(VKStringRanges::digitValueAt(p, k, &units));
            const QStringView prefix = p.first(digits.digitsStart);
            const quint32 id =
                a.hashed ? m_prefixes.idOf(prefix, a.hash) : m_prefixes.idOf(prefix);
            if (id == m_prefixCount.size())
                m_prefixCount.push_back(0);
            ++m_prefixCount[id];
            m_info[std::size_t(i)] = {id, m_postfixes.idOf(p.sliced(digits.digitsEnd)),
                                      quint32(std::min<quint64>(value, valueCeiling))};
        }
        // Postfixes hold no digits: their rank is their code unit order.
        const std::vector<QStringView> &postfixes = m_postfixes.texts();
        std::vector<quint32> byText(postfixes.size());
        for (std::size_t k = 0; k < byText.size(); ++k)
            byText[k] = quint32(k);
        std::sort(byText.begin(), byText.end(), [&postfixes](quint32 a, quint32 b) {
            return codeUnitLess(postfixes[a], postfixes[b]);
        });
        m_postfixRank.resize(postfixes.size());
        for (std::size_t k = 0; k < byText.size(); ++k)
            m_postfixRank[byText[k]] = quint32(k);
    }

    quint32 &rankOf(quint32 bucket)
    {
        return bucket & noFrameBit ? m_noFrameRank[bucket & ~noFrameBit] : m_prefixRank[bucket];
    }

    // Orders prefixes (as if a frame number followed) and paths without frame together, and
    // finds the clusters of prefixes that interleave.
    void sortBuckets()
    {
        const std::vector<QStringView> &prefixes = m_prefixes.texts();
        QStringList keys;
        keys.reserve(qsizetype(prefixes.size() + m_noFrame.size()));
        for (QStringView prefix : prefixes) {
            QString key;
            key.reserve(prefix.size() + 1);
            key.append(prefix);
            key.append(u'0');
            keys.append(std::move(key));
        }
        for (quint32 index : m_noFrame)
            keys.append(m_files.at(index));
        const QList<qsizetype> sorted = VKNumericStringCompare::sortedIndexes(keys);

        m_buckets.resize(std::size_t(sorted.size()));
        m_prefixRank.resize(prefixes.size());
        m_noFrameRank.resize(m_noFrame.size());
        const quint32 prefixCount = quint32(prefixes.size());
        for (std::size_t r = 0; r < m_buckets.size(); ++r) {
            const quint32 key = quint32(sorted[qsizetype(r)]);
            m_buckets[r] = key < prefixCount ? key : noFrameBit | (key - prefixCount);
            rankOf(m_buckets[r]) = quint32(r);
        }
        for (std::size_t r = 0; r < m_buckets.size();) {
            std::size_t s = r + 1;
            if (!(m_buckets[r] & noFrameBit)) {
                const QStringView prefix = prefixes[m_buckets[r]];
                while (s < m_buckets.size() &&
                       continuesWithDigitAfter(prefix, keys.at(sorted[qsizetype(s)])))
                    ++s;
            }
            if (s - r > 1)
                m_clusters.push_back({quint32(r), quint32(s)});
            r = s;
        }
    }

    // One path in the order being made: its bucket, and its frame value and postfix rank as
    // one number that sorts them.
    struct Entry
    {
        quint64 key;
        quint32 index;
        quint32 bucket;

        quint32 postfix() const { return quint32(key); }
        // Values beyond 32 bits are not kept; their strings decide.
        bool valueKept() const { return key >> 32 != valueCeiling; }
        qint64 frame() const
        {
            return qint64(
                std::min<quint64>(key >> 32, quint64(std::numeric_limits<qint32>::max())));
        }
    };

    // Puts the paths in bucket order by counting; inside a bucket they keep the input order.
    // The sizes of the buckets were counted while reading, so the paths are read once here.
    void placePaths()
    {
        m_bucketStart.resize(m_buckets.size() + 1);
        m_bucketStart[0] = 0;
        for (std::size_t r = 0; r < m_buckets.size(); ++r) {
            const quint32 bucket = m_buckets[r];
            m_bucketStart[r + 1] =
                m_bucketStart[r] + (bucket & noFrameBit ? 1 : m_prefixCount[bucket]);
        }
        std::vector<quint32> next(m_bucketStart.begin(), m_bucketStart.end() - 1);
        m_entries.resize(m_info.size());
        for (std::size_t i = 0; i < m_info.size(); ++i) {
            const Info &info = m_info[i];
            const quint32 postfix =
                info.bucket & noFrameBit ? 0 : m_postfixRank[info.postfix];
            m_entries[next[rankOf(info.bucket)]++] = {quint64(info.value) << 32 | postfix,
                                                      quint32(i), info.bucket};
        }
        std::vector<Info>().swap(m_info);
    }

    // The frames of a bucket are mostly one run with a few gaps: when its keys span little more
    // than its size, they are placed by counting, in linear time. Answers false otherwise.
    bool sortByCounting(std::vector<Entry>::iterator begin, std::vector<Entry>::iterator end)
    {
        const std::size_t count = std::size_t(end - begin);
        // A prefix mostly comes with one postfix: only the ranks that occur here take slots.
        quint64 low = ~quint64(0), high = 0;
        quint32 lowPostfix = ~quint32(0), highPostfix = 0;
        for (auto e = begin; e != end; ++e) {
            if (!e->valueKept())
                return false;
            low = std::min(low, e->key >> 32);
            high = std::max(high, e->key >> 32);
            lowPostfix = std::min(lowPostfix, e->postfix());
            highPostfix = std::max(highPostfix, e->postfix());
        }
        const quint64 postfixSpan = quint64(highPostfix - lowPostfix) + 1;
        const quint64 span = (high - low + 1) * postfixSpan;
        if (span > 4 * count + 256)
            return false;
        auto slot = [low, lowPostfix, postfixSpan](const Entry &e) {
            return std::size_t(((e.key >> 32) - low) * postfixSpan + (e.postfix() - lowPostfix));
        };
        m_counts.assign(std::size_t(span) + 1, 0);
        for (auto e = begin; e != end; ++e)
            ++m_counts[slot(*e) + 1];
        for (std::size_t k = 1; k < m_counts.size(); ++k)
            m_counts[k] += m_counts[k - 1];
        m_scratch.resize(count);
        for (auto e = begin; e != end; ++e)
            m_scratch[m_counts[slot(*e)]++] = *e;
        std::copy(m_scratch.begin(), m_scratch.end(), begin);
        return true;
    }

    // Frame value, then postfix; the strings decide what is left.
    void sortInsideBuckets()
    {
        auto byKey = [](const Entry &a, const Entry &b) { return a.key < b.key; };
        auto byPath = [this](const Entry &a, const Entry &b) { return lessPath(a.index, b.index); };
        for (std::size_t r = 0; r < m_buckets.size(); ++r) {
            const auto begin = m_entries.begin() + m_bucketStart[r];
            const auto end = m_entries.begin() + m_bucketStart[r + 1];
            if (end - begin < 2)
                continue;
            if (!sortByCounting(begin, end))
                std::sort(begin, end, byKey);
            for (auto k = begin; k != end;) {
                auto l = k + 1;
                if (k->valueKept()) {
                    while (l != end && l->key == k->key)
                        ++l;
                } else {
                    l = end; // the values that were not kept all sort last
                }
                if (l - k > 1)
                    std::sort(k, l, byPath);
                k = l;
            }
        }
    }

    // Each bucket of a cluster is in order; merging them pairwise orders the cluster.
    void mergeClusters()
    {
        auto byPath = [this](const Entry &a, const Entry &b) { return lessPath(a.index, b.index); };
        for (const auto &[first, last] : m_clusters) {
            for (quint32 width = 1; width < last - first; width *= 2) {
                for (quint32 r = first; r + width < last; r += 2 * width) {
                    const auto begin = m_entries.begin() + m_bucketStart[r];
                    const auto middle = m_entries.begin() + m_bucketStart[r + width];
                    const auto end =
                        m_entries.begin() + m_bucketStart[std::min(r + 2 * width, last)];
                    std::inplace_merge(begin, middle, end, byPath);
                }
            }
        }
    }

    void findRuns(std::vector<quint32> &order, std::vector<quint32> &runLengths)
    {
        const std::size_t count = m_entries.size();
        for (std::size_t i = 0; i < count;) {
            std::size_t j = i + 1;
            if (!(m_entries[i].bucket & noFrameBit)) {
                // The bucket stands for the prefix; no path without frame shares one.
                for (; j < count; ++j) {
                    const Entry &previous = m_entries[j - 1];
                    const Entry &entry = m_entries[j];
                    if (entry.bucket != previous.bucket || entry.postfix() != previous.postfix() ||
                        entry.frame() != previous.frame() + 1)
                        break;
                }
            }
            runLengths.push_back(quint32(j - i));
            i = j;
        }
        order.resize(count);
        for (std::size_t k = 0; k < count; ++k)
            order[k] = m_entries[k].index;
        std::vector<Entry>().swap(m_entries);
    }

    const QStringList &m_files;
    std::vector<Info> m_info;
    TextIds m_prefixes;
    TextIds m_postfixes;
    std::vector<Entry> m_entries;       // the paths in the order being made
    std::vector<Entry> m_scratch;       // for sorting by counting
    std::vector<quint32> m_counts;      // for sorting by counting
    std::vector<quint32> m_prefixCount; // paths of each prefix
    std::vector<quint32> m_postfixRank; // code unit order of each postfix
    std::vector<quint32> m_noFrame;     // index of each path without frame
    std::vector<quint32> m_buckets;     // buckets in sorted order
    std::vector<quint32> m_prefixRank;  // place of each prefix in m_buckets
    std::vector<quint32> m_noFrameRank; // place of each path without frame in m_buckets
    std::vector<quint32> m_bucketStart; // where each bucket's paths start in the order
    std::vector<std::pair<quint32, quint32>> m_clusters; // bucket ranges that interleave
};

} // namespace

namespace {

// Beyond what 32-bit numbering holds: sorts whole paths and walks them.
void runsByComparison(const QStringList &files, std::vector<qsizetype> &order,
                      std::vector<qsizetype> &runLengths)
{
    const QList<qsizetype> sorted = VKNumericStringCompare::sortedIndexes(files);
    order.assign(sorted.begin(), sorted.end());
    auto at = [&files, &order](qsizetype k) -> const QString & { return files.at(order[k]); };
    for (qsizetype i = 0; i < qsizetype(order.size());) {
        qsizetype j = i + 1;
        if (VKFileSequence::frameNumberForFile(at(i)) != VKFileSequence::notFound) {
            while (j < qsizetype(order.size()) &&
                   VKFileSequence::frameNumberForFile(at(j)) ==
                       VKFileSequence::frameNumberForFile(at(j - 1)) + 1 &&
                   VKFileSequence::postfixStringForFile(at(j)) ==
                       VKFileSequence::postfixStringForFile(at(j - 1)) &&
                   VKFileSequence::prefixStringForFile(at(j)) ==
                       VKFileSequence::prefixStringForFile(at(j - 1)))
                ++j;
        }
        runLengths.push_back(j - i);
        i = j;
    }
}

} // namespace

QList<QStringList> VKFileSequence::sequencesWithFiles(const QStringList &files)
{
    if (files.size() >= qsizetype(noFrameBit)) {
        std::vector<qsizetype> order, runLengths;
        runsByComparison(files, order, runLengths);
        PathCopies copies(order.size());
        for (const QString &file : files)
            copies.append(file);
        return copies.takeRuns(order, runLengths);
    }
    std::vector<quint32> order, runLengths;
    PathCopies copies(std::size_t(files.size()));
    Grouping(files).run(order, runLengths, &copies);
    return copies.takeRuns(order, runLengths);
}

QList<qsizetype> VKFileSequence::runLengthsWithFiles(const QStringList &files,
                                                     QList<qsizetype> &order)
{
    if (files.size() >= qsizetype(noFrameBit)) {
        std::vector<qsizetype> sorted, runLengths;
        runsByComparison(files, sorted, runLengths);
        order = QList<qsizetype>(sorted.begin(), sorted.end());
        return QList<qsizetype>(runLengths.begin(), runLengths.end());
    }
    std::vector<quint32> sorted, runLengths;
    Grouping(files).run(sorted, runLengths);
    order = QList<qsizetype>(sorted.begin(), sorted.end());
    return QList<qsizetype>(runLengths.begin(), runLengths.end());
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

std::shared_ptr<VKFileSequence>
VKFileSequence::fileSequenceWithIdentifier(const QString &identifier)
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
    if (sequence->m_startFrame != quint64(notFound) &&
        sequence->m_endFrameInclusive != quint64(notFound)) {
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

        const qsizetype lastComponent =
            identifier.lastIndexOf(VKPathString::lastPathComponent(identifier));
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
        const QString prefix = before.isFound() ? identifier.sliced(before.location, before.length)
                                                : QStringLiteral("");

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
        urls.append(QUrl::fromLocalFile(
            VKPathString::isAbsolutePath(path) ? path : current.absoluteFilePath(path)));
    return urls;
}

// --- Sizes ---

qint64 VKFileSequence::fileSizeOfFileAtIndex(quint64 index) const
{
    const QString path = filePathForRelativeFrameNumber(index);
    if (path.isNull()) {
        VKLogger::error(
            {className, QStringLiteral("-[VKFileSequence fileSizeOfFileAtIndex:]"), this},
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
