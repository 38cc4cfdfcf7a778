// String helpers for names with numbers in them: digit and non-digit suffixes, ranges before
// and after a range, a character-set search that answers the whole run of matching characters,
// and the lenient integer reading of a string.
//
// Positions and lengths count UTF-16 code units, as QString does. "Decimal digit" means any
// character of the Unicode category Nd (ASCII 0-9, Arabic-Indic, fullwidth, ... including digits
// outside the Basic Multilingual Plane, which take two code units).
//
//   nonDecimalDigitSuffix("A001_C002.0001.dpx") -> ".dpx"   decimalDigitSuffix("clip7") -> "7"
//   nonDecimalDigitSuffix("clip.dpx") -> "clip.dpx"         decimalDigitSuffix("clip7a") -> ""
//   rangeOfCharactersFromSet("ab12cd345", digits, Backwards) -> {6, 3}
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringView>

#include <cstdint>
#include <limits>
#include <vector>

// The marker for an absent index, frame number or range location.
inline constexpr qint64 VKNotFound = std::numeric_limits<qint64>::max();

// A run of code units: a start and a length. A range that was not found has the location
// VKNotFound and the length 0.
struct VK_EXPORT VKRange
{
    qint64 location = VKNotFound;
    qint64 length = 0;

    bool isFound() const { return location != VKNotFound; }
    qint64 end() const { return location + length; }
    bool operator==(const VKRange &other) const = default;

    static VKRange notFound() { return {}; }
};

// A set of characters (code points) to search for.
class VK_EXPORT VKCharacterSet
{
public:
    // Every character of the Unicode category Nd.
    static VKCharacterSet decimalDigitCharacterSet();
    // Exactly the characters of `characters`.
    static VKCharacterSet characterSetWithCharactersInString(const QString &characters);

    bool contains(char32_t character) const;

private:
    bool m_decimalDigits = false;
    std::vector<char32_t> m_characters; // sorted
};

// Search options; the values are the platform's.
enum VKStringSearchOption : unsigned {
    VKNoSearchOptions = 0,
    // Find the last run instead of the first.
    VKBackwardsSearch = 4,
    // The run must touch the start of the searched range (with VKBackwardsSearch: its end).
    VKAnchoredSearch = 8,
};

class VK_EXPORT VKStringRanges
{
public:
    // The longest tail without any decimal digit: "" when the string ends with a digit, the
    // whole string when it holds none.
    static QString nonDecimalDigitSuffix(const QString &string);
    // The longest tail made of decimal digits only; "" when the string does not end with one.
    static QString decimalDigitSuffix(const QString &string);
    // The same two tails as the index where they start (no copies); the tail is
    // string.mid(index).
    static qsizetype nonDecimalDigitSuffixStart(QStringView string);
    static qsizetype decimalDigitSuffixStart(QStringView string);

    // The string without `suffix`; the string itself when it does not end with it.
    static QString stringByDeletingSuffix(const QString &string, const QString &suffix);

    // From index 0 up to the start of `range`, or not found when that would be empty (or
    // `range` was not found).
    static VKRange rangeBeforeRange(const QString &string, VKRange range);
    // From the end of `range` to the end of the string, or not found when that would be empty
    // (or `range` was not found).
    static VKRange rangeAfterRange(const QString &string, VKRange range);

    // Like a search for one character of `set`, but the answer covers the whole run of
    // consecutive characters of the set at the match, limited to the searched range. A range
    // that does not lie inside the string raises VKRangeException.
    static VKRange rangeOfCharactersFromSet(const QString &string, const VKCharacterSet &set,
                                            unsigned options = VKNoSearchOptions);
    static VKRange rangeOfCharactersFromSet(const QString &string, const VKCharacterSet &set,
                                            unsigned options, VKRange range);

    // The value of the decimal digit at `index` (0-9), or -1; `units` receives how many code
    // units the character takes (1 or 2).
    static int digitValueAt(QStringView string, qsizetype index, int *units = nullptr)
    {
        const char16_t c = string[index].unicode();
        if (units)
            *units = 1;
        if (c >= u'0' && c <= u'9')
            return c - u'0';
        if (c < 0x80)
            return -1;
        return nonAsciiDigitValueAt(string, index, units);
    }
    // The value of the decimal digit that ends right before `end`, or -1.
    static int digitValueBefore(QStringView string, qsizetype end, int *units = nullptr)
    {
        const char16_t c = string[end - 1].unicode();
        if (units)
            *units = 1;
        if (c >= u'0' && c <= u'9')
            return c - u'0';
        if (c < 0x80)
            return -1;
        return nonAsciiDigitValueBefore(string, end, units);
    }

    // The platform's lenient reading of an integer: leading white space is skipped, an optional
    // sign and the decimal digits that follow are read, anything after them is ignored, and a
    // string that does not start with a number reads as 0. Values beyond the type saturate at
    // its largest or smallest value.
    static qint32 intValue(QStringView string);
    static qint64 longLongValue(QStringView string);

private:
    static int nonAsciiDigitValueAt(QStringView string, qsizetype index, int *units);
    static int nonAsciiDigitValueBefore(QStringView string, qsizetype end, int *units);
};
