#include "Foundation/VKStringRanges.h"

#include "Foundation/VKException.h"

#include <QChar>

#include <algorithm>

namespace {

// The code point starting at `index`, reading a surrogate pair only when both halves lie
// before `limit`.
char32_t codePointAt(QStringView s, qsizetype index, qsizetype limit, int *units)
{
    const QChar c = s[index];
    if (c.isHighSurrogate() && index + 1 < limit && s[index + 1].isLowSurrogate()) {
        *units = 2;
        return QChar::surrogateToUcs4(c, s[index + 1]);
    }
    *units = 1;
    return c.unicode();
}

// The code point ending right before `end`, reading a surrogate pair only when both halves lie
// at or after `limit`.
char32_t codePointBefore(QStringView s, qsizetype end, qsizetype limit, int *units)
{
    const QChar c = s[end - 1];
    if (c.isLowSurrogate() && end - 2 >= limit && s[end - 2].isHighSurrogate()) {
        *units = 2;
        return QChar::surrogateToUcs4(s[end - 2], c);
    }
    *units = 1;
    return c.unicode();
}

int decimalDigitValue(char32_t cp)
{
    if (cp >= U'0' && cp <= U'9')
        return int(cp - U'0');
    if (QChar::category(cp) != QChar::Number_DecimalDigit)
        return -1;
    return QChar::digitValue(cp);
}

template <typename Int>
Int readInteger(QStringView s)
{
    constexpr Int maximum = std::numeric_limits<Int>::max();
    constexpr Int minimum = std::numeric_limits<Int>::min();
    qsizetype i = 0;
    const qsizetype n = s.size();
    while (i < n && s[i].isSpace())
        ++i;
    bool negative = false;
    if (i < n && (s[i] == u'+' || s[i] == u'-')) {
        negative = s[i] == u'-';
        ++i;
    }
    Int value = 0;
    bool saturated = false;
    while (i < n) {
        int units = 1;
        const int digit = VKStringRanges::digitValueAt(s, i, &units);
        if (digit < 0)
            break;
        i += units;
        if (saturated)
            continue;
        // Accumulate towards the sign so that the smallest value is reachable.
        if (negative) {
            if (value < (minimum + digit) / 10) {
                saturated = true;
                value = minimum;
            } else {
                value = value * 10 - digit;
            }
        } else if (value > (maximum - digit) / 10) {
            saturated = true;
            value = maximum;
        } else {
            value = value * 10 + digit;
        }
    }
    return value;
}

} // namespace

VKCharacterSet VKCharacterSet::decimalDigitCharacterSet()
{
    VKCharacterSet set;
    set.m_decimalDigits = true;
    return set;
}

VKCharacterSet VKCharacterSet::characterSetWithCharactersInString(const QString &characters)
{
    VKCharacterSet set;
    for (qsizetype i = 0; i < characters.size();) {
        int units = 1;
        set.m_characters.push_back(codePointAt(characters, i, characters.size(), &units));
        i += units;
    }
    std::sort(set.m_characters.begin(), set.m_characters.end());
    set.m_characters.erase(std::unique(set.m_characters.begin(), set.m_characters.end()),
                           set.m_characters.end());
    return set;
}

bool VKCharacterSet::contains(char32_t character) const
{
    if (m_decimalDigits)
        return decimalDigitValue(character) >= 0;
    return std::binary_search(m_characters.begin(), m_characters.end(), character);
}

int VKStringRanges::nonAsciiDigitValueAt(QStringView string, qsizetype index, int *units)
{
    int n = 1;
    const char32_t cp = codePointAt(string, index, string.size(), &n);
    if (units)
        *units = n;
    return decimalDigitValue(cp);
}

int VKStringRanges::nonAsciiDigitValueBefore(QStringView string, qsizetype end, int *units)
{
    int n = 1;
    const char32_t cp = codePointBefore(string, end, 0, &n);
    if (units)
        *units = n;
    return decimalDigitValue(cp);
}

qsizetype VKStringRanges::nonDecimalDigitSuffixStart(QStringView string)
{
    qsizetype end = string.size();
    while (end > 0) {
        int units = 1;
        if (digitValueBefore(string, end, &units) >= 0)
            return end;
        end -= units;
    }
    return 0;
}

qsizetype VKStringRanges::decimalDigitSuffixStart(QStringView string)
{
    qsizetype start = string.size();
    while (start > 0) {
        int units = 1;
        if (digitValueBefore(string, start, &units) < 0)
            break;
        start -= units;
    }
    return start;
}

QString VKStringRanges::nonDecimalDigitSuffix(const QString &string)
{
    return string.mid(nonDecimalDigitSuffixStart(string));
}

QString VKStringRanges::decimalDigitSuffix(const QString &string)
{
    return string.mid(decimalDigitSuffixStart(string));
}

QString VKStringRanges::stringByDeletingSuffix(const QString &string, const QString &suffix)
{
    if (!string.endsWith(suffix))
        return string;
    return string.left(string.size() - suffix.size());
}

VKRange VKStringRanges::rangeBeforeRange(const QString &string, VKRange range)
{
    if (!range.isFound() || range.location <= 0 || string.isEmpty())
        return VKRange::notFound();
    return {0, std::min<qint64>(range.location, string.size())};
}

VKRange VKStringRanges::rangeAfterRange(const QString &string, VKRange range)
{
    if (!range.isFound() || range.location < 0 || range.length < 0)
        return VKRange::notFound();
    const qint64 end = range.end();
    if (end >= string.size())
        return VKRange::notFound();
    return {end, string.size() - end};
}

VKRange VKStringRanges::rangeOfCharactersFromSet(const QString &string, const VKCharacterSet &set,
                                                 unsigned options)
{
    return rangeOfCharactersFromSet(string, set, options, {0, string.size()});
}

VKRange VKStringRanges::rangeOfCharactersFromSet(const QString &string, const VKCharacterSet &set,
                                                 unsigned options, VKRange range)
{
    if (range.location < 0 || range.length < 0 || range.location > string.size()
        || range.length > string.size() - range.location) {
        VKException::raise(VKRangeException, "Range {%lld, %lld} out of bounds; string length %lld",
                           range.location, range.length, qint64(string.size()));
    }
    const qsizetype lo = range.location;
    const qsizetype hi = range.end();
    const bool anchored = options & VKAnchoredSearch;
    int units = 1;

    if (options & VKBackwardsSearch) {
        qsizetype end = hi;
        while (end > lo && !set.contains(codePointBefore(string, end, lo, &units))) {
            if (anchored)
                return VKRange::notFound();
            end -= units;
        }
        if (end == lo)
            return VKRange::notFound();
        qsizetype start = end;
        while (start > lo && set.contains(codePointBefore(string, start, lo, &units)))
            start -= units;
        return {start, end - start};
    }

    qsizetype start = lo;
    while (start < hi && !set.contains(codePointAt(string, start, hi, &units))) {
        if (anchored)
            return VKRange::notFound();
        start += units;
    }
    if (start == hi)
        return VKRange::notFound();
    qsizetype end = start;
    while (end < hi && set.contains(codePointAt(string, end, hi, &units)))
        end += units;
    return {start, end - start};
}

qint32 VKStringRanges::intValue(QStringView string)
{
    return readInteger<qint32>(string);
}

qint64 VKStringRanges::longLongValue(QStringView string)
{
    return readInteger<qint64>(string);
}
