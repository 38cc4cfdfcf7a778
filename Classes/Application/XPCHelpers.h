// Conversion between the library's plain values and D-Bus values, the messages the host
// applications exchange with their companion services, in both directions.
//
// The mapping (library value -> D-Bus type):
//   QString                                   -> "s" (UTF-8, cut at the first NUL as C strings are)
//   number with type code "c" (bool, char)    -> "b"
//   number with type code "i" or "q"          -> "x" (int, qlonglong, long)
//   number with type code "I" or "Q"          -> "t" (uint, qulonglong, ulong)
//   any other number (double, float, short..) -> "d"
//   QDateTime                                 -> "(x)", whole seconds since 1970, toward zero
//   QByteArray                                -> "ay"
// A message dictionary is "a{sv}", held by Qt as a QVariantMap whose values are the D-Bus values.
// Anything else (lists, maps, null) cannot be converted: the converters stop the process with an
// assertion, since only a programming error can bring such values here.
#pragma once

#include "Foundation/VKExport.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <QDateTime>
#include <QMetaType>
#include <QVariant>
#include <QVariantMap>

// The D-Bus form of a date: a struct holding one int64 of seconds since 1970-01-01 00:00 UTC, so
// that a date stays apart from a plain int64 on the way back.
struct VK_EXPORT VKXPCDate
{
    qint64 seconds = 0;

    // Registers the type with Qt DBus (signature "(x)"); the converters call it themselves.
    static void registerMetaType();
};
Q_DECLARE_METATYPE(VKXPCDate)

VK_EXPORT QDBusArgument &operator<<(QDBusArgument &argument, const VKXPCDate &date);
VK_EXPORT const QDBusArgument &operator>>(const QDBusArgument &argument, VKXPCDate &date);

// The platform type code of a number held in a variant: bool, char and signed char "c", int
// "i", qlonglong and long "q", uint "I", qulonglong and ulong "Q", double "d", float "f", short
// "s", ushort "S", uchar "C". Null for a variant that is not a number.
VK_EXPORT const char *vkNumberTypeCode(const QVariant &value);

// True for "i" and "q".
VK_EXPORT bool number_is_int64(const char *typeCode);
// True for "I" and "Q".
VK_EXPORT bool number_is_uint64(const char *typeCode);

// The D-Bus value of `value` (see the mapping above). Unconvertible kinds stop the process
// ("Classes/XPCHelpers:70: nsobject_to_xpc_object: Assertion `false' failed."), and so does a
// value D-Bus cannot carry (a string over the 128 MiB message limit, data over the 64 MiB array
// limit; line 73, "value_xpc != NULL").
VK_EXPORT QDBusVariant nsobject_to_xpc_object(const QVariant &value);

// Converts every entry of `dictionary` (in key order) and stores it in `message` under the
// key's UTF-8 text. A key starting with "@" is looked up on the dictionary itself, as key-value
// coding does: "@count" is the number of entries; any other such key throws
// VKUndefinedKeyException. Nested dictionaries and lists stop the process.
VK_EXPORT void encode_dictionary_as_xpc_object(QVariantMap &message, const QVariantMap &dictionary);

// The library value of a D-Bus value, tried in this order: string (an empty one answers an empty,
// non-null QString), bool, uint64 (qulonglong), int64 (qlonglong), double, date (QDateTime in
// UTC), data (QByteArray). Any other D-Bus type stops the process (line 140, "false"), and so
// does a date outside QDateTime's range (line 143, "value != nil").
VK_EXPORT QVariant xpc_object_to_nsobject(const QDBusVariant &value);

// A new dictionary with every entry of an "a{sv}" message converted by xpc_object_to_nsobject().
// `message` is what Qt DBus answers for "a{sv}": a QVariantMap of D-Bus values.
VK_EXPORT QVariantMap decode_dictionary_from_xpc_object(const QVariantMap &message);
