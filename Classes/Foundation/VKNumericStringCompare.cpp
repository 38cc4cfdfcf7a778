#include "Foundation/VKNumericStringCompare.h"

#include "Foundation/VKStringRanges.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

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
    // Back up to where a token starts in both strings: not inside a surrogate pair, and at the
    // start of a digit run that reaches the mismatch.
    if (k > 0 && a[k - 1].isHighSurrogate())
        --k;
    int units = 1;
    while (k > 0 && VKStringRanges::digitValueBefore(a.first(k), k, &units) >= 0)
        k -= units;

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

void VKNumericStringCompare::sort(QStringList &strings)
{
    std::sort(strings.begin(), strings.end(), lessThan);
}
