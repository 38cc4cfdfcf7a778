// Writes a graph of VKCoding objects as a keyed archive: a binary property list whose
// "$objects" table holds every object once, referenced by UID, so that an object referenced
// from many places (cycles included) is read back as one object.
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <memory>

class VKCoding;

// Archive layout. The root dictionary holds "$archiver" (VKKeyedArchiveArchiverName),
// "$version" (VKKeyedArchiveVersion), "$top" (the top-level keys) and "$objects" (the table,
// "$null" at index 0, which UID 0 names). An object is a dictionary with "$class" (a UID of a
// class dictionary with "$classname" and "$classes", the class and its registered bases) and
// its own keys; a key that begins with "$" is stored with one more "$" in front. Integers,
// doubles and booleans are stored in the object's dictionary; strings, data, objects and
// collections are entries of the table, and equal strings share one entry.
// Collections are objects of the built-in classes "VKArray" and "VKSet" ("VK.objects") and
// "VKDictionary" ("VK.keys", "VK.objects"); dates are "VKDate" with "VK.time" (seconds since
// the reference date).
VK_EXPORT extern const QString VKKeyedArchiveArchiverName; // "VKKeyedArchiver"
inline constexpr qint64 VKKeyedArchiveVersion = 100000;
// The top-level key of the archivedDataWithRootObject() / unarchivedObjectWithData() forms.
VK_EXPORT extern const QString VKKeyedArchiveRootObjectKey; // "root"

// Error codes of archive failures (domain VQErrorDomainVessanUtilities).
enum VKCoderErrorCode : qint64 {
    VKCoderReadCorruptError = 4864,   // not an archive, wrong types, loops, unknown classes
    VKCoderValueNotFoundError = 4865, // a value the caller required is missing
    VKCoderInvalidValueError = 4866,  // a value that cannot be archived
};

class VK_EXPORT VKKeyedArchiver
{
public:
    VKKeyedArchiver();
    ~VKKeyedArchiver();
    VKKeyedArchiver(const VKKeyedArchiver &) = delete;
    VKKeyedArchiver &operator=(const VKKeyedArchiver &) = delete;

    // The archive of the graph under `root`, or empty data (and `error`) on failure.
    [[nodiscard]] static QByteArray
    archivedDataWithRootObject(const std::shared_ptr<VKCoding> &root, VKError *error = nullptr);

    // Each call writes one key of the object being encoded (at first the top level).
    void encodeBool(const QString &key, bool value);
    void encodeInteger(const QString &key, qint64 value);
    void encodeDouble(const QString &key, double value);
    // A null string is written as nil and reads back null; an empty one reads back empty.
    void encodeString(const QString &key, const QString &value);
    void encodeData(const QString &key, const QByteArray &value);
    // A reference: the object itself is written once, at its first reference. Null is nil.
    void encodeObject(const QString &key, const std::shared_ptr<VKCoding> &object);
    // Any value: null, bool, integers, doubles, strings, data, dates, string lists, lists and
    // string-keyed maps of values (QVariantList, QVariantMap, QVariantHash) and objects
    // (VKCoding::variantWithObject). Other types fail with VKCoderInvalidValueError.
    void encodeValue(const QString &key, const QVariant &value);
    // An unordered collection of values; read back with decodeSet().
    void encodeSet(const QString &key, const QVariantList &members);

    // Ends the archive and answers it; empty data (and `error`) after a failure. Later
    // encoding calls fail.
    [[nodiscard]] QByteArray encodedData(VKError *error = nullptr);

    // The first failure, or a null error.
    VKError error() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
