#include "Files/VKFileSize.h"

#include "Foundation/VKNumber.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace {

constexpr int kOutputUnitCount = 8;
constexpr int kInputUnitCount = 9;
// Input unit k is output unit k - 1, so one table serves both lists.
constexpr const char *kUnits[kInputUnitCount] = {"B",  "KB", "MB", "GB", "TB",
                                                 "PB", "EB", "ZB", "YB"};

// Writes the size text straight into a Latin-1 buffer: these texts fill table columns of a
// million rows, so the formatting avoids the general printf machinery. std::to_chars with a
// precision rounds exactly as printf("%.1f") does in the C locale.
QString sizeText(quint64 bytes, bool perSecond)
{
    double value = static_cast<double>(bytes) / 1000.0;
    int unit = 0;
    while (value >= 1000.0 && unit < kOutputUnitCount - 1) {
        value /= 1000.0;
        ++unit;
    }
    // The largest 64-bit count is 18.4 EB, so the figure never has more than four digits
    // before the point; the buffer still leaves room for any double.
    char buffer[400];
    char *end =
        std::to_chars(buffer, buffer + sizeof buffer - 8, value, std::chars_format::fixed, 1).ptr;
    *end++ = ' ';
    const char *name = kUnits[unit + 1];
    const size_t nameLength = std::strlen(name);
    std::memcpy(end, name, nameLength);
    end += nameLength;
    if (perSecond) {
        *end++ = '/';
        *end++ = 's';
    }
    return QString::fromLatin1(buffer, end - buffer);
}

bool isNumberCharacter(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'0' && u <= u'9') || u == u',' || u == u'.';
}

// The number at the start of the text, read the way C's strtod reads a plain decimal number,
// but independent of the process locale (which may use "," as its decimal point).
double leadingNumber(const QString &text)
{
    qsizetype length = 0;
    while (length < text.size() && isNumberCharacter(text.at(length)))
        ++length;
    if (length == 0)
        return 0.0;
    const std::string ascii = text.left(length).toStdString();
    const char *begin = ascii.data();
    double value = 0.0;
    const auto [ptr, error] = std::from_chars(begin, begin + ascii.size(), value);
    if (error == std::errc::invalid_argument)
        return 0.0;
    if (error == std::errc::result_out_of_range) {
        // Without an exponent a number is out of range either because its integer part is
        // huge or because it is a fraction too small to tell from zero.
        for (const char *p = begin; p < ptr && *p != '.'; ++p) {
            if (*p >= '1' && *p <= '9')
                return std::numeric_limits<double>::infinity();
        }
        return 0.0;
    }
    return value;
}

// The letters at the end of the text, whole code points, so that a letter outside the basic
// plane is not mistaken for the end of the run.
QString trailingLetters(QStringView text)
{
    qsizetype start = text.size();
    while (start > 0) {
        qsizetype previous = start - 1;
        char32_t codePoint = text.at(previous).unicode();
        if (text.at(previous).isLowSurrogate() && previous > 0 &&
            text.at(previous - 1).isHighSurrogate()) {
            --previous;
            codePoint = QChar::surrogateToUcs4(text.at(previous), text.at(previous + 1));
        }
        if (!QChar::isLetter(codePoint))
            break;
        start = previous;
    }
    return text.mid(start).toString();
}

} // namespace

const QStringList &VKFileSize::outputUnits()
{
    static const QStringList units = [] {
        QStringList list;
        for (int i = 1; i < kInputUnitCount; ++i)
            list << QString::fromLatin1(kUnits[i]);
        return list;
    }();
    return units;
}

const QStringList &VKFileSize::inputUnits()
{
    static const QStringList units = [] {
        QStringList list;
        for (const char *unit : kUnits)
            list << QString::fromLatin1(unit);
        return list;
    }();
    return units;
}

QString VKFileSize::humanReadableFileSizeStringFromByteCount(quint64 bytes)
{
    return sizeText(bytes, false);
}

QString VKFileSize::humanReadableCopySpeedStringFromBytesPerSecond(quint64 bytesPerSecond)
{
    return sizeText(bytesPerSecond, true);
}

quint64 VKFileSize::byteCountFromHumanReadableFileSizeString(const QString &text)
{
    const long double number =
        std::roundl(static_cast<long double>(leadingNumber(text)) * 1000.0L) / 1000.0L;

    const QString trimmed = text.trimmed();
    static const QString perSecond = QStringLiteral("/s");
    if (!trimmed.endsWith(perSecond))
        return 0;
    const QString unitName =
        trailingLetters(QStringView(trimmed).chopped(perSecond.size())).toUpper();
    const qsizetype unit = inputUnits().indexOf(unitName);
    if (unitName.isEmpty() || unit < 0)
        return 0;

    long double count = number;
    for (qsizetype i = 0; i < unit; ++i)
        count *= 1000.0L;
    // 2^64 is exact in extended precision; everything below it converts without a sign step.
    constexpr long double limit = 18446744073709551616.0L;
    if (count >= limit)
        return std::numeric_limits<quint64>::max();
    return static_cast<quint64>(count);
}

quint64 VKFileSize::byteCountValue(const QVariant &number)
{
    if (!VKNumber::isNumber(number))
        return 0;
    switch (number.metaType().id()) {
    case QMetaType::UChar:
    case QMetaType::UShort:
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return number.toULongLong();
    case QMetaType::Float:
    case QMetaType::Double: {
        const double value = number.toDouble();
        if (!(value > 0.0))
            return 0;
        if (value >= 18446744073709551616.0)
            return std::numeric_limits<quint64>::max();
        return static_cast<quint64>(value);
    }
    default: {
        const qlonglong value = number.toLongLong();
        return value < 0 ? 0 : static_cast<quint64>(value);
    }
    }
}
