#include "Foundation/VKFormat.h"

#include <QMetaType>

#include <charconv>
#include <cstdio>
#include <vector>

namespace {

QString shortestDouble(double value, bool isFloat)
{
    char buffer[64];
    std::to_chars_result result = isFloat
                                      ? std::to_chars(buffer, buffer + sizeof buffer,
                                                      static_cast<float>(value))
                                      : std::to_chars(buffer, buffer + sizeof buffer, value);
    QString text = QString::fromLatin1(buffer, result.ptr - buffer);
    if (text == QLatin1String("inf"))
        return QStringLiteral("inf");
    if (text == QLatin1String("-inf"))
        return QStringLiteral("-inf");
    return text;
}

// Strings inside a described collection are quoted unless they are plain words.
QString quotedIfNeeded(const QString &text)
{
    bool plain = !text.isEmpty();
    for (QChar c : text) {
        if (!(c.isLetterOrNumber() || c == u'_' || c == u'.' || c == u'$' || c == u'/' ||
              c == u':') ||
            c.unicode() > 127) {
            plain = false;
            break;
        }
    }
    if (plain)
        return text;
    QString escaped = text;
    escaped.replace(u'\\', QStringLiteral("\\\\"));
    escaped.replace(u'"', QStringLiteral("\\\""));
    escaped.replace(u'\n', QStringLiteral("\\n"));
    return u'"' + escaped + u'"';
}

QString describeIndented(const QVariant &value, int level, bool nested);

QString describeCollectionElement(const QVariant &value, int level)
{
    if (value.metaType().id() == QMetaType::QString)
        return quotedIfNeeded(value.toString());
    return describeIndented(value, level, true);
}

QString describeIndented(const QVariant &value, int level, bool nested)
{
    if (!value.isValid() || value.isNull()) {
        if (value.metaType().id() == QMetaType::QString && !nested)
            return value.toString();
        if (!value.isValid() || value.metaType().id() == QMetaType::Nullptr)
            return QStringLiteral("(null)");
    }
    const QString indent(4 * level, u' ');
    const QString inner(4 * (level + 1), u' ');
    switch (value.metaType().id()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Char:
    case QMetaType::SChar:
        return QString::number(value.toLongLong());
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
        return QString::number(value.toULongLong());
    case QMetaType::Double:
        return shortestDouble(value.toDouble(), false);
    case QMetaType::Float:
        return shortestDouble(value.toFloat(), true);
    case QMetaType::QByteArray: {
        const QByteArray data = value.toByteArray();
        QString text = QStringLiteral("<");
        for (qsizetype i = 0; i < data.size(); ++i) {
            if (i > 0 && i % 4 == 0)
                text += u' ';
            text += QString::asprintf("%02x", static_cast<unsigned char>(data[i]));
        }
        return text + u'>';
    }
    case QMetaType::QDateTime:
        return value.toDateTime().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"));
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        QString text = QStringLiteral("(\n");
        for (qsizetype i = 0; i < list.size(); ++i) {
            text += inner + describeCollectionElement(list[i], level + 1);
            text += i + 1 < list.size() ? QStringLiteral(",\n") : QStringLiteral("\n");
        }
        return text + indent + u')';
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        const QVariantMap map = value.toMap();
        QString text = QStringLiteral("{\n");
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            text += inner + quotedIfNeeded(it.key()) + QStringLiteral(" = ") +
                    describeCollectionElement(it.value(), level + 1) + QStringLiteral(";\n");
        }
        return text + indent + u'}';
    }
    default:
        break;
    }
    if (value.canConvert<QString>())
        return value.toString();
    return QStringLiteral("<%1>").arg(QString::fromLatin1(value.metaType().name()));
}

struct Directive
{
    QByteArray flags;
    int width = -1;
    int precision = -1;
    QByteArray length;
    char conversion = 0;
};

QString padded(QString text, const Directive &directive)
{
    if (directive.precision >= 0 && text.size() > directive.precision)
        text.truncate(directive.precision);
    if (directive.width > text.size()) {
        const QString pad(directive.width - text.size(), u' ');
        text = directive.flags.contains('-') ? text + pad : pad + text;
    }
    return text;
}

QString formatWithC(const Directive &directive, const char *length, char conversion, auto value)
{
    QByteArray cformat = "%" + directive.flags;
    if (directive.width >= 0)
        cformat += QByteArray::number(directive.width);
    if (directive.precision >= 0)
        cformat += "." + QByteArray::number(directive.precision);
    cformat += length;
    cformat += conversion;
    char stackBuffer[128];
    int needed = std::snprintf(stackBuffer, sizeof stackBuffer, cformat.constData(), value);
    if (needed < 0)
        return QString();
    if (needed < static_cast<int>(sizeof stackBuffer))
        return QString::fromUtf8(stackBuffer, needed);
    std::vector<char> big(static_cast<size_t>(needed) + 1);
    std::snprintf(big.data(), big.size(), cformat.constData(), value);
    return QString::fromUtf8(big.data(), needed);
}

QString formatInteger(const Directive &directive, const VKFormatArgument &arg)
{
    const bool isSigned = directive.conversion == 'd' || directive.conversion == 'i';
    const QByteArray &len = directive.length;
    const bool wide = len == "l" || len == "ll" || len == "q" || len == "j" || len == "z" ||
                      len == "t" || len == "L";
    if (isSigned) {
        const qint64 v = arg.toSigned();
        if (wide)
            return formatWithC(directive, "ll", directive.conversion, static_cast<long long>(v));
        if (len == "hh")
            return formatWithC(directive, "", directive.conversion, static_cast<int>(static_cast<signed char>(v)));
        if (len == "h")
            return formatWithC(directive, "", directive.conversion, static_cast<int>(static_cast<short>(v)));
        return formatWithC(directive, "", directive.conversion, static_cast<int>(static_cast<qint32>(v)));
    }
    const quint64 v = arg.toUnsigned();
    if (wide)
        return formatWithC(directive, "ll", directive.conversion, static_cast<unsigned long long>(v));
    if (len == "hh")
        return formatWithC(directive, "", directive.conversion,
                           static_cast<unsigned>(static_cast<unsigned char>(v)));
    if (len == "h")
        return formatWithC(directive, "", directive.conversion,
                           static_cast<unsigned>(static_cast<unsigned short>(v)));
    return formatWithC(directive, "", directive.conversion, static_cast<unsigned>(static_cast<quint32>(v)));
}

QString formatPointer(const Directive &directive, const void *pointer)
{
    const QString text = QStringLiteral("0x") +
                         QString::number(reinterpret_cast<quintptr>(pointer), 16);
    Directive plain = directive;
    plain.precision = -1;
    return padded(text, plain);
}

} // namespace

VKFormatArgument::VKFormatArgument(const QString &v) : m_kind(Kind::String), m_signed(0), m_string(v)
{
    if (v.isNull())
        m_kind = Kind::Null;
}

VKFormatArgument::VKFormatArgument(const char *v) : m_kind(Kind::String), m_signed(0)
{
    if (v)
        m_string = QString::fromUtf8(v);
    else
        m_kind = Kind::Null;
}

VKFormatArgument::VKFormatArgument(const QByteArray &v)
    : VKFormatArgument(QVariant::fromValue(v))
{}

VKFormatArgument::VKFormatArgument(const QStringList &v)
    : VKFormatArgument(QVariant::fromValue(v))
{}

VKFormatArgument::VKFormatArgument(const QDateTime &v)
    : VKFormatArgument(QVariant::fromValue(v))
{}

VKFormatArgument::VKFormatArgument(const QVariant &v) : m_kind(Kind::String), m_signed(0)
{
    if (!v.isValid()) {
        m_kind = Kind::Null;
        return;
    }
    switch (v.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Char:
    case QMetaType::SChar:
        m_kind = Kind::Signed;
        m_signed = v.toLongLong();
        m_string = VKFormat::describe(v);
        return;
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
        m_kind = Kind::Unsigned;
        m_unsigned = v.toULongLong();
        m_string = VKFormat::describe(v);
        return;
    case QMetaType::Double:
    case QMetaType::Float:
        m_kind = Kind::Double;
        m_double = v.toDouble();
        m_isFloat = v.metaType().id() == QMetaType::Float;
        m_string = VKFormat::describe(v);
        return;
    default:
        m_string = VKFormat::describe(v);
        if (m_string.isNull())
            m_string = QStringLiteral("");
        if (v.isNull() && v.metaType().id() != QMetaType::QString)
            m_kind = Kind::Null;
    }
}

qint64 VKFormatArgument::toSigned() const
{
    switch (m_kind) {
    case Kind::Signed:
        return m_signed;
    case Kind::Unsigned:
        return static_cast<qint64>(m_unsigned);
    case Kind::Double:
        return static_cast<qint64>(m_double);
    case Kind::Pointer:
        return static_cast<qint64>(reinterpret_cast<quintptr>(m_pointer));
    case Kind::String:
        return m_string.toLongLong();
    case Kind::Null:
        break;
    }
    return 0;
}

quint64 VKFormatArgument::toUnsigned() const
{
    switch (m_kind) {
    case Kind::Unsigned:
        return m_unsigned;
    case Kind::Double:
        return static_cast<quint64>(static_cast<qint64>(m_double));
    default:
        return static_cast<quint64>(toSigned());
    }
}

double VKFormatArgument::toDouble() const
{
    switch (m_kind) {
    case Kind::Double:
        return m_double;
    case Kind::Signed:
        return static_cast<double>(m_signed);
    case Kind::Unsigned:
        return static_cast<double>(m_unsigned);
    case Kind::String:
        return m_string.toDouble();
    default:
        return 0.0;
    }
}

QString VKFormatArgument::toDescription() const
{
    switch (m_kind) {
    case Kind::Null:
        return QStringLiteral("(null)");
    case Kind::Signed:
        return m_string.isNull() ? QString::number(m_signed) : m_string;
    case Kind::Unsigned:
        return m_string.isNull() ? QString::number(m_unsigned) : m_string;
    case Kind::Double:
        return m_string.isNull() ? shortestDouble(m_double, m_isFloat) : m_string;
    case Kind::Pointer:
        return QStringLiteral("0x") + QString::number(reinterpret_cast<quintptr>(m_pointer), 16);
    case Kind::String:
        return m_string;
    }
    return QString();
}

const void *VKFormatArgument::toPointer() const
{
    switch (m_kind) {
    case Kind::Pointer:
        return m_pointer;
    case Kind::Signed:
    case Kind::Unsigned:
        return reinterpret_cast<const void *>(static_cast<quintptr>(m_unsigned));
    default:
        return nullptr;
    }
}

QString VKFormat::describe(const QVariant &value)
{
    return describeIndented(value, 0, false);
}

QString VKFormat::format(const QString &format, std::initializer_list<VKFormatArgument> arguments)
{
    return VKFormat::format(format, QList<VKFormatArgument>(arguments));
}

QString VKFormat::format(const QString &format, const QList<VKFormatArgument> &arguments)
{
    QString out;
    out.reserve(format.size() + 16 * arguments.size());
    qsizetype nextArgument = 0;
    const qsizetype n = format.size();

    auto argumentAt = [&](qsizetype index) -> const VKFormatArgument * {
        if (index < 0 || index >= arguments.size())
            return nullptr;
        return &arguments[index];
    };

    qsizetype i = 0;
    while (i < n) {
        const QChar c = format[i];
        if (c != u'%') {
            qsizetype j = format.indexOf(u'%', i);
            if (j < 0)
                j = n;
            out += QStringView(format).mid(i, j - i);
            i = j;
            continue;
        }
        const qsizetype start = i;
        ++i;
        if (i >= n) {
            out += u'%';
            break;
        }
        if (format[i] == u'%') {
            out += u'%';
            ++i;
            continue;
        }

        Directive directive;
        qsizetype explicitIndex = -1;
        // Positional argument "n$".
        {
            qsizetype j = i;
            int number = 0;
            while (j < n && format[j].isDigit() && format[j].unicode() < 128) {
                number = number * 10 + (format[j].unicode() - '0');
                ++j;
            }
            if (j > i && j < n && format[j] == u'$') {
                explicitIndex = number - 1;
                i = j + 1;
            }
        }
        while (i < n && QByteArrayView("-+ #0'").contains(static_cast<char>(format[i].unicode())) &&
               format[i].unicode() < 128) {
            if (format[i] != u'\'')
                directive.flags += static_cast<char>(format[i].unicode());
            ++i;
        }
        if (i < n && format[i] == u'*') {
            const VKFormatArgument *a = argumentAt(nextArgument++);
            directive.width = a ? static_cast<int>(a->toSigned()) : -1;
            if (directive.width < 0 && a) {
                directive.flags += '-';
                directive.width = -directive.width;
            }
            ++i;
        } else {
            int width = 0;
            bool any = false;
            while (i < n && format[i].unicode() >= '0' && format[i].unicode() <= '9') {
                width = width * 10 + (format[i].unicode() - '0');
                any = true;
                ++i;
            }
            if (any)
                directive.width = width;
        }
        if (i < n && format[i] == u'.') {
            ++i;
            if (i < n && format[i] == u'*') {
                const VKFormatArgument *a = argumentAt(nextArgument++);
                directive.precision = a ? static_cast<int>(a->toSigned()) : -1;
                ++i;
            } else {
                int precision = 0;
                while (i < n && format[i].unicode() >= '0' && format[i].unicode() <= '9') {
                    precision = precision * 10 + (format[i].unicode() - '0');
                    ++i;
                }
                directive.precision = precision;
            }
        }
        while (i < n && QByteArrayView("hlqLjzt").contains(static_cast<char>(format[i].unicode())) &&
               format[i].unicode() < 128) {
            directive.length += static_cast<char>(format[i].unicode());
            ++i;
        }
        if (i >= n) {
            out += QStringView(format).mid(start);
            break;
        }
        directive.conversion = format[i].unicode() < 128 ? static_cast<char>(format[i].unicode()) : 0;
        ++i;

        const char conv = directive.conversion;
        static const QByteArrayView known("diouxXfFeEgGaAcCsS@pn");
        if (conv == 0 || !known.contains(conv)) {
            out += QStringView(format).mid(start, i - start);
            continue;
        }
        if (conv == 'n')
            continue;
        const VKFormatArgument *arg =
            argumentAt(explicitIndex >= 0 ? explicitIndex : nextArgument++);
        if (!arg)
            continue;

        switch (conv) {
        case 'd':
        case 'i':
        case 'o':
        case 'u':
        case 'x':
        case 'X':
            out += formatInteger(directive, *arg);
            break;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            out += formatWithC(directive, "", conv, arg->toDouble());
            break;
        case 'c':
        case 'C': {
            const qint64 code = arg->toSigned();
            QString ch;
            if (conv == 'c')
                ch = QString(QChar(static_cast<uchar>(code)));
            else
            {
                const char32_t point = static_cast<char32_t>(code);
                ch = QString::fromUcs4(&point, 1);
            }
            Directive plain = directive;
            plain.precision = -1;
            out += padded(ch, plain);
            break;
        }
        case 's':
        case 'S':
        case '@':
            out += padded(arg->toDescription(), directive);
            break;
        case 'p':
            out += formatPointer(directive, arg->toPointer());
            break;
        default:
            break;
        }
    }
    return out;
}
