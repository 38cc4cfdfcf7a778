// printf-style formatting with the object conversion "%@", so that messages can be written
// with the library's own format texts ("Could not get filePath for index %lu").
#pragma once

#include "Foundation/VKExport.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <type_traits>

// A type whose values can stand behind "%@" by answering a description.
template <typename T>
concept VKDescribable = requires(const T &value) {
    { value.description() } -> std::convertible_to<QString>;
};

// One argument of a format call. Integers, floating-point numbers, strings, C strings,
// pointers, QVariants and any type with a description() are accepted.
class VK_EXPORT VKFormatArgument
{
public:
    enum class Kind { Signed, Unsigned, Double, String, Pointer, Null };

    VKFormatArgument(bool v) : m_kind(Kind::Signed), m_signed(v ? 1 : 0) {}
    VKFormatArgument(char v) : m_kind(Kind::Signed), m_signed(v) {}
    VKFormatArgument(signed char v) : m_kind(Kind::Signed), m_signed(v) {}
    VKFormatArgument(unsigned char v) : m_kind(Kind::Unsigned), m_unsigned(v) {}
    VKFormatArgument(short v) : m_kind(Kind::Signed), m_signed(v) {}
    VKFormatArgument(unsigned short v) : m_kind(Kind::Unsigned), m_unsigned(v) {}
    VKFormatArgument(int v) : m_kind(Kind::Signed), m_signed(v) {}
    VKFormatArgument(unsigned int v) : m_kind(Kind::Unsigned), m_unsigned(v) {}
    VKFormatArgument(long v) : m_kind(Kind::Signed), m_signed(v) {}
    VKFormatArgument(unsigned long v) : m_kind(Kind::Unsigned), m_unsigned(v) {}
    VKFormatArgument(long long v) : m_kind(Kind::Signed), m_signed(v) {}
    VKFormatArgument(unsigned long long v) : m_kind(Kind::Unsigned), m_unsigned(v) {}
    VKFormatArgument(float v) : m_kind(Kind::Double), m_double(v), m_isFloat(true) {}
    VKFormatArgument(double v) : m_kind(Kind::Double), m_double(v) {}
    VKFormatArgument(long double v) : m_kind(Kind::Double), m_double(static_cast<double>(v)) {}
    VKFormatArgument(const QString &v);
    VKFormatArgument(const char *v);
    VKFormatArgument(const QByteArray &v);
    VKFormatArgument(const QStringList &v);
    VKFormatArgument(const QVariant &v);
    VKFormatArgument(const QDateTime &v);
    VKFormatArgument(std::nullptr_t) : m_kind(Kind::Null) {}
    VKFormatArgument(const void *v) : m_kind(Kind::Pointer), m_pointer(v) {}

    template <VKDescribable T>
    VKFormatArgument(const T &object) : VKFormatArgument(QString(object.description()))
    {}
    template <VKDescribable T>
    VKFormatArgument(const std::shared_ptr<T> &object)
        : VKFormatArgument(object ? QString(object->description()) : QString())
    {
        if (!object)
            m_kind = Kind::Null;
    }
    template <typename T>
    VKFormatArgument(const std::optional<T> &value)
        : VKFormatArgument(value ? VKFormatArgument(*value) : VKFormatArgument(nullptr))
    {}

    Kind kind() const { return m_kind; }
    qint64 toSigned() const;
    quint64 toUnsigned() const;
    double toDouble() const;
    // The text "%@" shows: a string as it is, a number in its shortest form, "(null)" for null.
    QString toDescription() const;
    const void *toPointer() const;

private:
    Kind m_kind;
    union {
        qint64 m_signed;
        quint64 m_unsigned;
        double m_double;
        const void *m_pointer;
    };
    bool m_isFloat = false;
    QString m_string;
};

class VK_EXPORT VKFormat
{
public:
    // Formats like printf, with these additions and rules:
    //  - "%@" shows the argument's description (strings, numbers, lists, dictionaries, data,
    //    dates, objects with a description(); "(null)" for a null argument);
    //  - integer conversions narrow to the length modifier as C does ("%d" takes the low 32
    //    bits, "%hd" 16, "%ld"/"%lld"/"%qd"/"%zd" 64); "%lu" of -1 prints 18446744073709551615;
    //  - "%s" takes a string argument (UTF-8 C strings or QString);
    //  - "%p" prints "0x" and lower-case hex digits ("0x0" for null);
    //  - positional arguments ("%2$@") and "*" widths are supported;
    //  - a conversion without an argument prints nothing, an unknown conversion is copied as is.
    static QString format(const QString &format, std::initializer_list<VKFormatArgument> arguments);
    static QString format(const QString &format, const QList<VKFormatArgument> &arguments);

    // The description "%@" gives a variant: strings as they are, numbers as the platform's
    // number objects describe themselves, lists as "(\n    a,\n    b\n)", dictionaries as
    // "{\n    key = value;\n}", data as "<0a0b0c0d 0e>", null as "(null)".
    static QString describe(const QVariant &value);
};

// Convenience: vkFormat("%@%2.2d:%2.2d", sign, h, m).
template <typename... Args>
QString vkFormat(const QString &format, const Args &...arguments)
{
    return VKFormat::format(format, {VKFormatArgument(arguments)...});
}
