#include "Foundation/VKLenientNumber.h"

#include "Foundation/VKStringRanges.h"

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale.h>
#include <string>

namespace {

qsizetype skipSpace(const QString &text)
{
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    return i;
}

bool isDigit(const QString &text, qsizetype i)
{
    return i < text.size() && text.at(i) >= u'0' && text.at(i) <= u'9';
}

} // namespace

double VKLenientNumber::doubleValue(const QString &text)
{
    qsizetype i = skipSpace(text);
    std::string number;
    if (i < text.size() && (text.at(i) == u'+' || text.at(i) == u'-')) {
        if (text.at(i) == u'-')
            number += '-';
        ++i;
    }
    bool sawDigit = false;
    for (; isDigit(text, i); ++i, sawDigit = true)
        number += static_cast<char>(text.at(i).unicode());
    if (i < text.size() && text.at(i) == u'.') {
        number += '.';
        for (++i; isDigit(text, i); ++i, sawDigit = true)
            number += static_cast<char>(text.at(i).unicode());
    }
    if (!sawDigit)
        return 0.0;
    if (i < text.size() && (text.at(i) == u'e' || text.at(i) == u'E')) {
        qsizetype j = i + 1;
        std::string exponent = "e";
        if (j < text.size() && (text.at(j) == u'+' || text.at(j) == u'-'))
            exponent += static_cast<char>(text.at(j++).unicode());
        if (isDigit(text, j)) {
            for (; isDigit(text, j); ++j)
                exponent += static_cast<char>(text.at(j).unicode());
            number += exponent;
        }
    }
    // strtod_l in the C locale: the text is already cut to its numeric prefix, and strtod's
    // overflow and underflow answers (+-HUGE_VAL, 0) are the ones wanted.
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    const double value = strtod_l(number.c_str(), nullptr, cLocale);
    return value;
}

float VKLenientNumber::floatValue(const QString &text)
{
    const double value = doubleValue(text);
    if (std::isfinite(value) && std::fabs(value) > std::numeric_limits<float>::max())
        return value < 0 ? -HUGE_VALF : HUGE_VALF;
    return static_cast<float>(value);
}

qint32 VKLenientNumber::intValue(QStringView text)
{
    return VKStringRanges::intValue(text);
}

qint64 VKLenientNumber::longLongValue(QStringView text)
{
    return VKStringRanges::longLongValue(text);
}

bool VKLenientNumber::boolValue(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    if (i < text.size() && (text.at(i) == u'+' || text.at(i) == u'-'))
        ++i;
    while (i < text.size() && text.at(i) == u'0')
        ++i;
    if (i >= text.size())
        return false;
    const QChar c = text.at(i);
    return c == u'Y' || c == u'y' || c == u'T' || c == u't' || (c >= u'1' && c <= u'9');
}
