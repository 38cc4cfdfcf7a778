// Ordering of names with numbers in them: runs of decimal digits compare by their value, so
// "a9" sorts before "a10" and "clip_2" before "clip_10". The comparison is case-sensitive and
// total: strings whose numbers only differ in leading zeros ("a01", "a1") still get a fixed
// order, so sorting the same names always gives the same list.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>
#include <QStringView>

class VK_EXPORT VKNumericStringCompare
{
public:
    // Negative, zero or positive as `a` sorts before, equal to or after `b`. Zero only for
    // equal strings.
    //  - Outside digit runs, UTF-16 code units compare by value (so "B" < "a").
    //  - Digit runs (any Unicode decimal digits) compare by numeric value, of any length.
    //  - A digit run sorts where the character "0" would against a non-digit character.
    //  - A string that ends first sorts first ("clip" < "clip_1").
    //  - When the strings are equal in all of the above, the first differing code unit decides
    //    ("a01" < "a1", because "0" < "1").
    static int compare(QStringView a, QStringView b);

    // The numeric order alone, without the final tie break: 0 for "a01" and "a1".
    static int compareNumerically(QStringView a, QStringView b);

    static bool lessThan(const QString &a, const QString &b) { return compare(a, b) < 0; }

    // The strings in the order of compare(). Near n log n, and built for long lists of names
    // that share long beginnings (a million paths of one card).
    static QStringList sorted(const QStringList &strings);
    // Where each string of sorted() comes from: sorted()[i] is strings[sortedIndexes()[i]].
    static QList<qsizetype> sortedIndexes(const QStringList &strings);
    // Sorts in place, as sorted() does.
    static void sort(QStringList &strings);
};
