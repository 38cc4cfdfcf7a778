#include "Foundation/VKNumericStringCompare.h"

#include "Foundation/VKStringRanges.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace {

// Index of the first differing code unit (the shorter length when one is a prefix of the other).
// Sorting spends most of its time here: names in one folder share long prefixes.
qsizetype mismatchIndex(const char16_t *a, const char16_t *b, qsizetype n)
{
    qsizetype i = 0;
    for (; i + 4 <= n; i += 4) {
        std::uint64_t x, y;
        std::memcpy(&x, a + i, sizeof x);
        std::memcpy(&y, b + i, sizeof y);
        if (x != y) {
            const std::uint64_t diff = x ^ y;
            if constexpr (std::endian::native == std::endian::little)
                return i + std::countr_zero(diff) / 16;
            else
                return i + std::countl_zero(diff) / 16;
        }
    }
    while (i < n && a[i] == b[i])
        ++i;
    return i;
}

// How many strings ahead of use their text is fetched while walking strings in an order that
// is not their order in memory.
constexpr std::size_t prefetchDistance = 8;

// Backs `end` up to a place where a token starts: not inside a surrogate pair or a digit run.
qsizetype tokenStartAtOrBefore(QStringView s, qsizetype end)
{
    if (end > 0 && s[end - 1].isHighSurrogate())
        --end;
    int units = 1;
    while (end > 0 && VKStringRanges::digitValueBefore(s, end, &units) >= 0)
        end -= units;
    return end;
}

// Where a digit run sorts against a non-digit code unit: as "0" would.
int digitAgainstCharacter(char16_t c)
{
    return c > u'0' ? -1 : 1; // c is never an ASCII digit here
}

// Compares the digit runs starting at `i` and `j` by value and moves both indexes past them.
int compareDigitRuns(QStringView a, qsizetype &i, QStringView b, qsizetype &j)
{
    int units = 1;
    // Leading zeros do not count.
    while (i < a.size() && VKStringRanges::digitValueAt(a, i, &units) == 0)
        i += units;
    while (j < b.size() && VKStringRanges::digitValueAt(b, j, &units) == 0)
        j += units;
    // The first differing digit decides between runs of the same length.
    int firstDifference = 0;
    for (;;) {
        const int da = i < a.size() ? VKStringRanges::digitValueAt(a, i, &units) : -1;
        const int ua = units;
        const int db = j < b.size() ? VKStringRanges::digitValueAt(b, j, &units) : -1;
        const int ub = units;
        if (da < 0 && db < 0)
            return firstDifference;
        if (da < 0) { // a's number has fewer significant digits
            while (j < b.size() && VKStringRanges::digitValueAt(b, j, &units) >= 0)
                j += units;
            return -1;
        }
        if (db < 0) {
            while (i < a.size() && VKStringRanges::digitValueAt(a, i, &units) >= 0)
                i += units;
            return 1;
        }
        if (firstDifference == 0 && da != db)
            firstDifference = da < db ? -1 : 1;
        i += ua;
        j += ub;
    }
}

} // namespace

int VKNumericStringCompare::compareNumerically(QStringView a, QStringView b)
{
    const qsizetype common = std::min(a.size(), b.size());
    qsizetype k = mismatchIndex(a.utf16(), b.utf16(), common);
    if (k == a.size() && k == b.size())
        return 0;
    // The shared beginning is tokenised alike in both strings up to the last token start.
    k = tokenStartAtOrBefore(a, k);
    int units = 1;

    qsizetype i = k, j = k;
    while (i < a.size() && j < b.size()) {
        const int da = VKStringRanges::digitValueAt(a, i, &units);
        const int db = VKStringRanges::digitValueAt(b, j, &units);
        if (da >= 0 && db >= 0) {
            if (const int r = compareDigitRuns(a, i, b, j))
                return r;
        } else if (da >= 0) {
            return digitAgainstCharacter(b[j].unicode());
        } else if (db >= 0) {
            return -digitAgainstCharacter(a[i].unicode());
        } else {
            if (a[i] != b[j])
                return a[i].unicode() < b[j].unicode() ? -1 : 1;
            ++i;
            ++j;
        }
    }
    if (i == a.size() && j == b.size())
        return 0;
    return i == a.size() ? -1 : 1;
}

int VKNumericStringCompare::compare(QStringView a, QStringView b)
{
    if (const int r = compareNumerically(a, b))
        return r;
    const qsizetype common = std::min(a.size(), b.size());
    const qsizetype k = mismatchIndex(a.utf16(), b.utf16(), common);
    if (k < common)
        return a[k].unicode() < b[k].unicode() ? -1 : 1;
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

namespace {

// The first 16 bytes of an encoding of `s` from `from` on whose byte order is the numeric order
// above (without the tie break): a character below U+0080 is its value + 1, a digit run the
// byte 0x31 (where "0" + 1 would be), its count of significant digits and then those digits, any
// other code unit 0x90 and its two bytes. The end of the string reads as 0, below everything.
// Keys that differ decide; equal keys leave the decision to compare().
struct SortKey
{
    static constexpr int words = 2;
    static constexpr int size = words * 8;
    std::uint64_t word[words] = {};
    std::uint32_t index = 0;
    bool complete = false; // the whole rest of the string is in the key

    bool operator==(const SortKey &other) const
    {
        return std::equal(word, word + words, other.word);
    }
    bool operator<(const SortKey &other) const
    {
        for (int w = 0; w < words; ++w) {
            if (word[w] != other.word[w])
                return word[w] < other.word[w];
        }
        return false;
    }
};

SortKey sortKey(QStringView s, qsizetype from, std::uint32_t index)
{
    unsigned char bytes[SortKey::size] = {};
    int n = 0;
    auto put = [&](unsigned value) {
        if (n < SortKey::size)
            bytes[n++] = static_cast<unsigned char>(value);
    };
    int units = 1;
    qsizetype i = from;
    while (i < s.size() && n < SortKey::size) {
        if (VKStringRanges::digitValueAt(s, i, &units) < 0) {
            const char16_t c = s[i++].unicode();
            if (c < 0x80) {
                put(c + 1u);
            } else {
                put(0x90);
                put(c >> 8);
                put(c & 0xFF);
            }
            continue;
        }
        while (i < s.size() && VKStringRanges::digitValueAt(s, i, &units) == 0)
            i += units;
        std::uint64_t significant = 0;
        for (qsizetype k = i; k < s.size() && VKStringRanges::digitValueAt(s, k, &units) >= 0;
             k += units)
            ++significant;
        put(0x31);
        if (significant < 0xF0) {
            put(unsigned(significant));
        } else {
            put(0xF0);
            for (int shift = 56; shift >= 0; shift -= 8)
                put(unsigned(significant >> shift) & 0xFF);
        }
        for (int value; i < s.size() && (value = VKStringRanges::digitValueAt(s, i, &units)) >= 0;
             i += units)
            put(unsigned(value));
    }
    SortKey key;
    key.index = index;
    key.complete = i == s.size();
    for (int w = 0; w < SortKey::words; ++w) {
        for (int b = 0; b < 8; ++b)
            key.word[w] = key.word[w] << 8 | bytes[w * 8 + b];
    }
    return key;
}

} // namespace

namespace {

// Sorts keys[begin, end) of strings that all share their first `known` code units. Keys are
// taken after the range's common beginning, so comparisons rarely touch the strings; strings
// whose keys tie are sorted again from further on. Names of one listing share long beginnings
// (folders, clip names), which is where a plain comparison sort loses its time.
void sortRange(const QStringList &strings, std::vector<SortKey> &keys, std::size_t begin,
               std::size_t end, qsizetype known, bool top)
{
    auto fullCompare = [&strings](const SortKey &a, const SortKey &b) {
        return VKNumericStringCompare::compare(strings.at(a.index), strings.at(b.index)) < 0;
    };
    if (end - begin < 2)
        return;
    if (end - begin <= 8) {
        std::sort(keys.begin() + begin, keys.begin() + end, fullCompare);
        return;
    }
    // The common beginning is guessed from a few strings and checked while the keys are made,
    // so that every string is visited once per level; a wrong guess is corrected and the keys
    // made again.
    const QStringView first = strings.at(keys[begin].index);
    qsizetype common = first.size();
    const std::size_t step = std::max<std::size_t>(1, (end - begin) / 32);
    for (std::size_t i = begin + 1; i < end; i += step) {
        const QStringView other = strings.at(keys[i].index);
        const qsizetype limit = std::min(common, other.size());
        if (limit <= known)
            break;
        common = known + mismatchIndex(first.utf16() + known, other.utf16() + known, limit - known);
    }
    for (bool checked = false; !checked;) {
        common = std::max(known, tokenStartAtOrBefore(first, common));
        if (common == known && !top) { // no progress: the keys would tie again
            std::sort(keys.begin() + begin, keys.begin() + end, fullCompare);
            return;
        }
        checked = true;
        for (std::size_t i = begin; i < end && checked; ++i) {
            // The strings of a group lie anywhere in memory: ask for the next ones early.
            if (i + prefetchDistance < end)
                __builtin_prefetch(strings.at(keys[i + prefetchDistance].index).constData());
            const QStringView string = strings.at(keys[i].index);
            const qsizetype limit = std::min(common, string.size());
            const qsizetype shared =
                known + mismatchIndex(first.utf16() + known, string.utf16() + known, limit - known);
            if (shared < common) {
                common = shared;
                checked = false;
            } else {
                keys[i] = sortKey(string, common, keys[i].index);
            }
        }
    }
    std::sort(keys.begin() + begin, keys.begin() + end);
    for (std::size_t i = begin; i < end;) {
        std::size_t j = i + 1;
        while (j < end && keys[j] == keys[i])
            ++j;
        if (j - i > 1) {
            if (keys[i].complete) // numerically equal: only the tie break is left
                std::sort(keys.begin() + i, keys.begin() + j, fullCompare);
            else
                sortRange(strings, keys, i, j, common, false);
        }
        i = j;
    }
}

} // namespace

QList<qsizetype> VKNumericStringCompare::sortedIndexes(const QStringList &strings)
{
    const qsizetype count = strings.size();
    QList<qsizetype> indexes;
    indexes.reserve(count);
    if (count > qsizetype(std::numeric_limits<std::uint32_t>::max())) {
        for (qsizetype i = 0; i < count; ++i)
            indexes.append(i);
        std::sort(indexes.begin(), indexes.end(), [&strings](qsizetype a, qsizetype b) {
            return compare(strings.at(a), strings.at(b)) < 0;
        });
        return indexes;
    }
    std::vector<SortKey> keys(std::size_t(count), SortKey{});
    for (qsizetype i = 0; i < count; ++i)
        keys[std::size_t(i)].index = std::uint32_t(i);
    sortRange(strings, keys, 0, keys.size(), 0, true);
    for (const SortKey &key : keys)
        indexes.append(key.index);
    return indexes;
}

QStringList VKNumericStringCompare::sorted(const QStringList &strings)
{
    QStringList result;
    result.reserve(strings.size());
    for (qsizetype index : sortedIndexes(strings))
        result.append(strings.at(index));
    return result;
}

void VKNumericStringCompare::sort(QStringList &strings)
{
    strings = sorted(strings);
}
