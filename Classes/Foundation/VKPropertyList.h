// Property lists: trees of QVariant values to and from the XML and binary property-list formats
// (on libplist). Reading detects the format; writing files is atomic.
//
// Types, both ways:
//   dictionary  QVariantMap (QVariantHash is written too); keys are strings
//   array       QVariantList (QStringList is written too)
//   string      QString
//   integer     qlonglong; an unsigned value above the signed 64-bit range is kept and reads
//               back as qulonglong (written as the format's 128-bit integer)
//   real        double (float is written too)
//   boolean     bool
//   date        QDateTime in UTC, seconds from the platform's reference date 2001-01-01 00:00:00
//               UTC; the binary format keeps milliseconds, the XML format whole seconds
//   data        QByteArray, every byte
//   UID         VKPropertyListUID (the references of keyed archives; binary format)
// A null QVariant, a string holding a NUL character or any other type cannot be written and
// fails with an error rather than being dropped.
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <optional>

// The formats, with the platform's values.
enum class VKPropertyListFormat : int { XML = 100, Binary = 200 };

// Error codes in VQErrorDomainVessanUtilities, with the platform's values.
enum VKPropertyListErrorCode : qint64 {
    VKFileReadUnknownError = 256,
    VKFileReadNoSuchFileError = 260,
    VKFileWriteUnknownError = 512,
    VKPropertyListReadCorruptError = 3840,
    VKPropertyListWriteInvalidError = 3852,
};

// A reference to an object in a keyed archive's objects table.
struct VKPropertyListUID
{
    quint64 value = 0;
    friend bool operator==(const VKPropertyListUID &, const VKPropertyListUID &) = default;
};
Q_DECLARE_METATYPE(VKPropertyListUID)

class VK_EXPORT VKPropertyList
{
public:
    // The value of a property list in either format; `format` (may be null) receives the
    // format found. A null QVariant and VKPropertyListReadCorruptError when the data is no
    // property list.
    [[nodiscard]] static QVariant propertyListWithData(const QByteArray &data,
                                                       VKPropertyListFormat *format = nullptr,
                                                       VKError *error = nullptr);
    // The same from a file; VKFileReadNoSuchFileError for a missing file,
    // VKFileReadUnknownError when it cannot be read.
    [[nodiscard]] static QVariant
    propertyListWithContentsOfFile(const QString &path, VKPropertyListFormat *format = nullptr,
                                   VKError *error = nullptr);
    // The root dictionary of a property-list file; nothing when the file cannot be read, is no
    // property list or its root is not a dictionary.
    [[nodiscard]] static std::optional<QVariantMap>
    dictionaryWithContentsOfFile(const QString &path, VKError *error = nullptr);

    // `value` in `format`; empty data and VKPropertyListWriteInvalidError when the tree holds
    // something a property list cannot (the error names the type and where it is).
    [[nodiscard]] static QByteArray dataWithPropertyList(const QVariant &value,
                                                         VKPropertyListFormat format,
                                                         VKError *error = nullptr);
    // Writes `value` to `path` atomically (the file is the old or the new one, never a mix).
    static bool writePropertyList(const QVariant &value, const QString &path,
                                  VKPropertyListFormat format, VKError *error = nullptr);

    // Whether `value` can be written in `format` (UIDs only in the binary format).
    static bool propertyListIsValidForFormat(const QVariant &value, VKPropertyListFormat format);
};
