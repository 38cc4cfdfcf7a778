#include "Timecode/VKTimecodeText.h"

#include "Foundation/VKFormat.h"

#include <QByteArray>

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale.h>

namespace {

// One code point of `text` at `i`; `width` is 2 for a surrogate pair.
char32_t codePointAt(const QString &text, qsizetype i, qsizetype *width)
{
    const QChar c = text[i];
    if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
        *width = 2;
        return QChar::surrogateToUcs4(c, text[i + 1]);
    }
    *width = 1;
    return c.unicode();
}

// The value of a decimal digit of any script, or -1.
int digitValue(char32_t ucs)
{
    if (ucs >= U'0' && ucs <= U'9')
        return int(ucs - U'0');
    if (ucs < 0x80 || !QChar::isDigit(ucs))
        return -1;
    return QChar::digitValue(ucs);
}

// strtod in the C locale: the host's locale must not change what a decimal point is.
double parseCDouble(const QByteArray &ascii)
{
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    return strtod_l(ascii.constData(), nullptr, cLocale);
}

struct ClockFields
{
    bool negative = false;
    std::array<qint64, 4> values{}; // frames, seconds, minutes, hours
};

int saturatedInt(qint64 value)
{
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return int(value);
}

ClockFields clockFields(const QString &text)
{
    ClockFields fields;
    QList<qint64> runs;
    bool frameSeparatorBeforeLast = false;
    bool separatorSeen = false;
    bool inRun = false;
    bool seenNonSpace = false;
    for (qsizetype i = 0; i < text.size();) {
        qsizetype width = 1;
        const char32_t ucs = codePointAt(text, i, &width);
        const int digit = digitValue(ucs);
        if (!seenNonSpace && !QChar::isSpace(ucs)) {
            seenNonSpace = true;
            fields.negative = ucs == U'-';
        }
        if (digit >= 0) {
            if (!inRun) {
                runs.append(0);
                frameSeparatorBeforeLast = separatorSeen;
                separatorSeen = false;
            }
            qint64 &v = runs.last();
            v = v > (std::numeric_limits<qint64>::max() - 9) / 10 ? std::numeric_limits<qint64>::max()
                                                                  : v * 10 + digit;
            inRun = true;
        } else {
            inRun = false;
            if (ucs == U'.' || ucs == U';' || ucs == U',')
                separatorSeen = true;
        }
        i += width;
    }
    qsizetype next = runs.size() - 1;
    if (runs.size() >= 4 || (runs.size() >= 2 && frameSeparatorBeforeLast))
        fields.values[0] = runs[next--];
    int slot = 1;
    while (next >= 0 && slot < 4)
        fields.values[slot++] = runs[next--];
    return fields;
}

// "%2.2d" of a whole number: at least two digits, a "-" before them for negative values.
void appendField(QString &out, double value)
{
    if (std::fabs(value) >= 9.2e18) {
        out += vkFormat("%.0f", value);
        return;
    }
    const long long whole = static_cast<long long>(value);
    if (whole < 0)
        out += u'-';
    const unsigned long long magnitude = whole < 0 ? 0ULL - static_cast<unsigned long long>(whole)
                                                   : static_cast<unsigned long long>(whole);
    if (magnitude < 10)
        out += u'0';
    out += QString::number(magnitude);
}

} // namespace

QString VKTimecodeText::clockString(bool negative, double v, double wholeRate)
{
    const double t = std::floor(v + 0.5) / wholeRate;
    if (std::isnan(t))
        return QStringLiteral("nan");
    if (std::isinf(t))
        return (t < 0) != negative ? QStringLiteral("-∞") : QStringLiteral("∞");
    const double h = std::fmod(t, 3600);
    const double hours = (t - h) / 3600;
    const double m = std::fmod(h, 60);
    const double minutes = (h - m) / 60;
    const double f = std::fmod(m, 1);
    const double seconds = m - f;
    const double frames = std::floor(f * wholeRate + 0.5);
    if (!std::isfinite(hours) || !std::isfinite(frames))
        return QStringLiteral("nan");
    QString text;
    text.reserve(16);
    if (negative)
        text += u'-';
    appendField(text, hours);
    text += u':';
    appendField(text, minutes);
    text += u':';
    appendField(text, seconds);
    text += u'.';
    appendField(text, frames);
    return text;
}

QList<double> VKTimecodeText::digitRuns(const QString &text)
{
    QList<double> numbers;
    QByteArray run;
    auto flush = [&] {
        if (!run.isEmpty()) {
            numbers.append(parseCDouble(run));
            run.clear();
        }
    };
    for (qsizetype i = 0; i < text.size();) {
        qsizetype width = 1;
        const int digit = digitValue(codePointAt(text, i, &width));
        if (digit >= 0)
            run.append(char('0' + digit));
        else
            flush();
        i += width;
    }
    flush();
    return numbers;
}

double VKTimecodeText::leadingNumberValue(const QString &text)
{
    qsizetype i = 0;
    qsizetype width = 1;
    while (i < text.size() && QChar::isSpace(codePointAt(text, i, &width)))
        i += width;
    QByteArray ascii;
    auto takeDigits = [&] {
        qsizetype count = 0;
        while (i < text.size()) {
            const int digit = digitValue(codePointAt(text, i, &width));
            if (digit < 0)
                break;
            ascii.append(char('0' + digit));
            i += width;
            ++count;
        }
        return count;
    };
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
        ascii.append(char(text[i++].unicode()));
    qsizetype mantissaDigits = takeDigits();
    if (i < text.size() && text[i] == u'.') {
        ascii.append('.');
        ++i;
        mantissaDigits += takeDigits();
    }
    if (mantissaDigits == 0)
        return 0.0;
    if (i < text.size() && (text[i] == u'e' || text[i] == u'E')) {
        const qsizetype mark = i;
        const qsizetype keep = ascii.size();
        ascii.append('e');
        ++i;
        if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
            ascii.append(char(text[i++].unicode()));
        if (takeDigits() == 0) {
            i = mark;
            ascii.truncate(keep);
        }
    }
    return parseCDouble(ascii);
}

qint64 VKTimecodeText::truncatedToInt64(double value)
{
    if (std::isnan(value))
        return 0;
    // 2^63 is the first double beyond the range.
    if (value >= 9223372036854775808.0)
        return std::numeric_limits<qint64>::max();
    if (value < -9223372036854775808.0)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}

int VKTimecodeText::hoursFromTimecodeString(const QString &text)
{
    return saturatedInt(clockFields(text).values[3]);
}

int VKTimecodeText::minutesFromTimecodeString(const QString &text)
{
    return saturatedInt(clockFields(text).values[2]);
}

int VKTimecodeText::secondsFromTimecodeString(const QString &text)
{
    return saturatedInt(clockFields(text).values[1]);
}

int VKTimecodeText::framesFromTimecodeString(const QString &text)
{
    return saturatedInt(clockFields(text).values[0]);
}

bool VKTimecodeText::timeStampNegative(const QString &text)
{
    return clockFields(text).negative;
}
