#include "Application/XPCHelpers.h"

#include "Foundation/VKException.h"
#include "Foundation/VKFormat.h"

#include <QDBusMetaType>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>

namespace {

// D-Bus's own limits: an array holds at most 64 MiB, a message at most 128 MiB.
constexpr qsizetype kMaximumArrayLength = qsizetype(1) << 26;
constexpr qsizetype kMaximumMessageLength = qsizetype(1) << 27;

// The converters' assertions: always on, whatever the build, with the texts hosts and their
// crash reports know.
[[noreturn]] void failAssertion(int line, const char *function, const char *expression)
{
    std::fprintf(stderr, "Classes/XPCHelpers:%d: %s: Assertion `%s' failed.\n", line, function,
                 expression);
    std::fflush(stderr);
    std::abort();
}

// Text as a C string carries it: UTF-8 up to the first NUL.
QString cStringText(const QString &text)
{
    const qsizetype nul = text.indexOf(QChar(u'\0'));
    return nul < 0 ? text : text.left(nul);
}

QVariant dictionaryValueForKey(const QVariantMap &dictionary, const QString &key)
{
    // Key-value coding on a dictionary sends "@"-keys to the dictionary object itself.
    if (key.startsWith(u'@')) {
        const QString property = key.mid(1);
        if (property == QLatin1String("count"))
            return QVariant::fromValue(qulonglong(dictionary.size()));
        throw VKException(VKUndefinedKeyException,
                          vkFormat("[<NSDictionary %p> valueForUndefinedKey:]: this class is not "
                                   "key value coding-compliant for the key %@.",
                                   static_cast<const void *>(&dictionary), property),
                          {{QStringLiteral("NSUnknownUserInfoKey"), property}});
    }
    return dictionary.value(key);
}

// A date read from D-Bus: the registered struct when the value never left the process, a
// QDBusArgument with signature "(x)" when it came through the bus.
bool readDate(const QVariant &value, qint64 &seconds)
{
    if (value.metaType() == QMetaType::fromType<VKXPCDate>()) {
        seconds = value.value<VKXPCDate>().seconds;
        return true;
    }
    if (value.metaType() != QMetaType::fromType<QDBusArgument>())
        return false;
    const QDBusArgument argument = value.value<QDBusArgument>();
    if (argument.currentSignature() != QLatin1String("(x)"))
        return false;
    VKXPCDate date;
    argument >> date;
    seconds = date.seconds;
    return true;
}

} // namespace

void VKXPCDate::registerMetaType()
{
    static std::once_flag once;
    std::call_once(once, [] { qDBusRegisterMetaType<VKXPCDate>(); });
}

QDBusArgument &operator<<(QDBusArgument &argument, const VKXPCDate &date)
{
    argument.beginStructure();
    argument << date.seconds;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, VKXPCDate &date)
{
    argument.beginStructure();
    argument >> date.seconds;
    argument.endStructure();
    return argument;
}

const char *vkNumberTypeCode(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
        return "c";
    case QMetaType::UChar:
        return "C";
    case QMetaType::Short:
        return "s";
    case QMetaType::UShort:
        return "S";
    case QMetaType::Int:
        return "i";
    case QMetaType::UInt:
        return "I";
    case QMetaType::Long:
    case QMetaType::LongLong:
        return "q";
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return "Q";
    case QMetaType::Float:
        return "f";
    case QMetaType::Double:
        return "d";
    default:
        return nullptr;
    }
}

bool number_is_int64(const char *typeCode)
{
    return typeCode && (std::strcmp(typeCode, "i") == 0 || std::strcmp(typeCode, "q") == 0);
}

bool number_is_uint64(const char *typeCode)
{
    return typeCode && (std::strcmp(typeCode, "I") == 0 || std::strcmp(typeCode, "Q") == 0);
}

QDBusVariant nsobject_to_xpc_object(const QVariant &value)
{
    VKXPCDate::registerMetaType();
    QVariant value_xpc;
    bool refused = false;
    const int type = value.metaType().id();
    if (type == QMetaType::QString) {
        const QString text = cStringText(value.toString());
        refused =
            text.size() > kMaximumMessageLength / 3 && text.toUtf8().size() > kMaximumMessageLength;
        value_xpc = text.isNull() ? QStringLiteral("") : text;
    } else if (const char *typeCode = vkNumberTypeCode(value)) {
        if (std::strcmp(typeCode, "c") == 0)
            value_xpc = value.toBool();
        else if (number_is_int64(typeCode))
            value_xpc = value.toLongLong();
        else if (number_is_uint64(typeCode))
            value_xpc = value.toULongLong();
        else
            value_xpc = value.toDouble();
    } else if (type == QMetaType::QDateTime && value.toDateTime().isValid()) {
        // Integer division truncates toward zero, before 1970 as after.
        value_xpc = QVariant::fromValue(VKXPCDate{value.toDateTime().toMSecsSinceEpoch() / 1000});
    } else if (type == QMetaType::QByteArray) {
        const QByteArray data = value.toByteArray();
        refused = data.size() > kMaximumArrayLength;
        value_xpc = data;
    } else {
        failAssertion(70, "nsobject_to_xpc_object", "false");
    }
    if (refused)
        failAssertion(73, "nsobject_to_xpc_object", "value_xpc != NULL");
    return QDBusVariant(value_xpc);
}

void encode_dictionary_as_xpc_object(QVariantMap &message, const QVariantMap &dictionary)
{
    const QStringList keys = dictionary.keys();
    for (const QString &key : keys) {
        const QDBusVariant converted =
            nsobject_to_xpc_object(dictionaryValueForKey(dictionary, key));
        message.insert(cStringText(key), converted.variant());
    }
}

QVariant xpc_object_to_nsobject(const QDBusVariant &value)
{
    const QVariant &object = value.variant();
    QVariant result;
    qint64 seconds = 0;
    switch (object.metaType().id()) {
    case QMetaType::QString: {
        const QString text = object.toString();
        result = text.isEmpty() ? QStringLiteral("") : text;
        break;
    }
    case QMetaType::Bool:
        result = object.toBool();
        break;
    case QMetaType::ULongLong:
        result = object.toULongLong();
        break;
    case QMetaType::LongLong:
        result = object.toLongLong();
        break;
    case QMetaType::Double:
        result = object.toDouble();
        break;
    case QMetaType::QByteArray:
        result = object.toByteArray();
        break;
    default:
        if (!readDate(object, seconds))
            failAssertion(140, "xpc_object_to_nsobject", "false");
        // Seconds beyond what a QDateTime holds make no date at all.
        if (seconds <= std::numeric_limits<qint64>::max() / 1000 &&
            seconds >= std::numeric_limits<qint64>::min() / 1000) {
            const QDateTime date = QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
            if (date.isValid())
                result = date;
        }
        break;
    }
    if (!result.isValid())
        failAssertion(143, "xpc_object_to_nsobject", "value != nil");
    return result;
}

QVariantMap decode_dictionary_from_xpc_object(const QVariantMap &message)
{
    VKXPCDate::registerMetaType();
    QVariantMap dictionary;
    for (auto it = message.cbegin(); it != message.cend(); ++it)
        dictionary.insert(it.key(), xpc_object_to_nsobject(QDBusVariant(it.value())));
    return dictionary;
}
