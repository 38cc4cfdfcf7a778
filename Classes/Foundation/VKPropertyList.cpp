#include "Foundation/VKPropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStringList>
#include <QtEndian>

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

namespace {

// Deeper trees are refused rather than risking the stack on hostile input.
constexpr int kMaximumDepth = 512;

const QDateTime &referenceDate()
{
    static const QDateTime date(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
    return date;
}

struct PlistDeleter
{
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPointer = std::unique_ptr<void, PlistDeleter>;

VKError corruptError(const QString &why)
{
    return VKError::errorWithDescription(
        VQErrorDomainVessanUtilities, VKPropertyListReadCorruptError,
        QStringLiteral("The data couldn\u2019t be read because it isn\u2019t in the correct "
                       "format (%1).")
            .arg(why));
}

VKError invalidError(const QString &why)
{
    return VKError::errorWithDescription(
        VQErrorDomainVessanUtilities, VKPropertyListWriteInvalidError,
        QStringLiteral("Property list invalid for format: %1").arg(why));
}

// libplist 2.2 keeps integers as 64-bit patterns and tells a negative number from an unsigned
// one above the signed range only by the width it was read with (8 or 16 bytes). The width is
// not public, but comparing with a fresh 8-byte node reveals it.
bool isWideUnsigned(plist_t node, uint64_t value)
{
    if (value <= uint64_t(std::numeric_limits<qint64>::max()))
        return false;
    PlistPointer narrow(plist_new_uint(value));
    return !plist_compare_node_value(node, narrow.get());
}

// A 16-byte integer node: only the XML reader makes one for a value above the signed range.
plist_t newWideUnsigned(quint64 value)
{
    const QByteArray xml =
        "<plist version=\"1.0\"><integer>" + QByteArray::number(value) + "</integer></plist>";
    plist_t node = nullptr;
    plist_from_xml(xml.constData(), uint32_t(xml.size()), &node);
    return node;
}

// libplist 2.2 keeps a date as a double of seconds from the reference date but answers it only
// as 32-bit seconds and an unsigned fraction (-0.25 s reads as 0 and 250000). The binary form
// of a lone date node is "bplist00", the marker 0x33 and the double, big-endian.
constexpr char kBinaryHeader[] = "bplist00";
constexpr int kHeaderSize = 8;

double dateSeconds(plist_t node)
{
    PlistPointer copy(plist_copy(node));
    char *bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(copy.get(), &bytes, &length);
    double seconds = 0;
    if (bytes && length >= kHeaderSize + 9 && uint8_t(bytes[kHeaderSize]) == 0x33) {
        seconds = qFromBigEndian<double>(bytes + kHeaderSize + 1);
    } else {
        int32_t whole = 0;
        int32_t micro = 0;
        plist_get_date_val(node, &whole, &micro);
        seconds = double(whole) + double(micro) / 1e6;
    }
    plist_to_bin_free(bytes);
    return seconds;
}

// A date node holding exactly `seconds` (plist_new_date takes 32-bit seconds only): read from a
// one-object binary list made here.
plist_t newDate(double seconds)
{
    QByteArray data(kBinaryHeader, kHeaderSize);
    data.append(char(0x33));
    char value[8];
    qToBigEndian(seconds, value);
    data.append(value, 8);
    const char offsetTableStart = char(data.size());
    data.append(char(kHeaderSize)); // offset table: object 0 at 8
    QByteArray trailer(32, '\0');
    trailer[6] = 1;  // offset size
    trailer[7] = 1;  // reference size
    trailer[15] = 1; // one object; top object 0
    trailer[31] = offsetTableStart;
    data.append(trailer);
    plist_t node = nullptr;
    plist_from_bin(data.constData(), uint32_t(data.size()), &node);
    return node;
}

// libplist 2.2 asserts or crashes on strings holding a NUL character in some places (a binary
// dictionary key, an XML character reference "&#0;"), so such input is refused before it is
// parsed, as strings holding NUL are refused when writing.
quint64 bigEndianUnsigned(const uchar *bytes, int size)
{
    quint64 value = 0;
    for (int i = 0; i < size; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

bool binaryHoldsNulString(const QByteArray &data)
{
    constexpr qsizetype kTrailerSize = 32;
    if (data.size() < kHeaderSize + kTrailerSize)
        return false; // the parser refuses it
    const auto *bytes = reinterpret_cast<const uchar *>(data.constData());
    const qsizetype size = data.size();
    const uchar *trailer = bytes + size - kTrailerSize;
    const int offsetSize = trailer[6];
    const quint64 objectCount = bigEndianUnsigned(trailer + 8, 8);
    const quint64 tableStart = bigEndianUnsigned(trailer + 24, 8);
    if (offsetSize < 1 || offsetSize > 8 || tableStart >= quint64(size) ||
        objectCount > (quint64(size) - tableStart) / quint64(offsetSize))
        return false; // the parser refuses it
    for (quint64 i = 0; i < objectCount; ++i) {
        const quint64 offset =
            bigEndianUnsigned(bytes + tableStart + i * quint64(offsetSize), offsetSize);
        if (offset >= quint64(size))
            continue;
        const uchar marker = bytes[offset];
        const int kind = marker >> 4;
        if (kind != 0x5 && kind != 0x6) // ASCII and UTF-16 strings
            continue;
        quint64 count = marker & 0x0F;
        quint64 start = offset + 1;
        if (count == 0x0F) { // the length follows as an integer object
            if (start >= quint64(size) || (bytes[start] >> 4) != 0x1)
                continue;
            const int width = 1 << (bytes[start] & 0x0F);
            if (width > 8 || start + 1 + quint64(width) > quint64(size))
                continue;
            count = bigEndianUnsigned(bytes + start + 1, width);
            start += 1 + quint64(width);
        }
        const int unit = kind == 0x5 ? 1 : 2;
        if (count > (quint64(size) - start) / unit)
            continue;
        for (quint64 j = 0; j < count; ++j) {
            const uchar *at = bytes + start + j * unit;
            if (at[0] == 0 && (unit == 1 || at[1] == 0))
                return true;
        }
    }
    return false;
}

bool xmlHoldsNulReference(const QByteArray &data)
{
    static const QRegularExpression reference(QStringLiteral("&#(x0*|0+);"),
                                              QRegularExpression::CaseInsensitiveOption);
    return data.contains("&#") && reference.match(QString::fromLatin1(data)).hasMatch();
}

struct Reader
{
    QString failure;

    QVariant read(plist_t node, int depth)
    {
        if (depth > kMaximumDepth) {
            failure = QStringLiteral("nested deeper than %1 levels").arg(kMaximumDepth);
            return {};
        }
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return QVariant(value != 0);
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            if (isWideUnsigned(node, value))
                return QVariant(qulonglong(value));
            return QVariant(qlonglong(value));
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return QVariant(value);
        }
        case PLIST_STRING: {
            uint64_t length = 0;
            const char *text = plist_get_string_ptr(node, &length);
            return QVariant(QString::fromUtf8(text, qsizetype(length)));
        }
        case PLIST_DATA: {
            uint64_t length = 0;
            const char *data = plist_get_data_ptr(node, &length);
            return QVariant(QByteArray(data, qsizetype(length)));
        }
        case PLIST_DATE:
            return QVariant(referenceDate().addMSecs(std::llround(dateSeconds(node) * 1000.0)));
        case PLIST_ARRAY: {
            QVariantList list;
            const uint32_t count = plist_array_get_size(node);
            list.reserve(count);
            for (uint32_t i = 0; i < count && failure.isNull(); ++i)
                list.append(read(plist_array_get_item(node, i), depth + 1));
            return list;
        }
        case PLIST_DICT: {
            QVariantMap map;
            plist_dict_iter iterator = nullptr;
            plist_dict_new_iter(node, &iterator);
            while (failure.isNull()) {
                // The value first: libplist asserts on a key that is no string, which the
                // binary reader lets through.
                plist_t value = nullptr;
                plist_dict_next_item(node, iterator, nullptr, &value);
                if (!value)
                    break;
                const plist_t keyNode = plist_dict_item_get_key(value);
                if (!keyNode || plist_get_node_type(keyNode) != PLIST_KEY) {
                    failure = QStringLiteral("a dictionary key that is no string");
                    break;
                }
                char *key = nullptr;
                plist_get_key_val(keyNode, &key);
                map.insert(QString::fromUtf8(key), read(value, depth + 1));
                std::free(key);
            }
            std::free(iterator);
            return map;
        }
        case PLIST_UID: {
            uint64_t value = 0;
            plist_get_uid_val(node, &value);
            return QVariant::fromValue(VKPropertyListUID{value});
        }
        default:
            failure = QStringLiteral("a node of unknown type");
            return {};
        }
    }
};

struct Writer
{
    VKPropertyListFormat format;
    QString failure;

    void fail(const QString &what, const QStringList &path)
    {
        failure = QStringLiteral("%1 at %2")
                      .arg(what, path.isEmpty() ? QStringLiteral("the root")
                                                : QLatin1Char('/') + path.join(QLatin1Char('/')));
    }

    plist_t write(const QVariant &value, QStringList &path)
    {
        if (path.size() > kMaximumDepth) {
            fail(QStringLiteral("nesting deeper than %1 levels").arg(kMaximumDepth), path);
            return nullptr;
        }
        switch (value.typeId()) {
        case QMetaType::Bool:
            return plist_new_bool(value.toBool() ? 1 : 0);
        case QMetaType::Int:
        case QMetaType::LongLong:
        case QMetaType::Long:
        case QMetaType::Short:
        case QMetaType::SChar:
        case QMetaType::Char:
            return plist_new_uint(uint64_t(value.toLongLong()));
        case QMetaType::UInt:
        case QMetaType::ULongLong:
        case QMetaType::ULong:
        case QMetaType::UShort:
        case QMetaType::UChar: {
            const quint64 number = value.toULongLong();
            if (number > quint64(std::numeric_limits<qint64>::max()))
                return newWideUnsigned(number);
            return plist_new_uint(number);
        }
        case QMetaType::Double:
        case QMetaType::Float:
            return plist_new_real(value.toDouble());
        case QMetaType::QString: {
            const QByteArray text = value.toString().toUtf8();
            if (text.contains('\0')) {
                fail(QStringLiteral("a string holding a NUL character"), path);
                return nullptr;
            }
            return plist_new_string(text.constData());
        }
        case QMetaType::QByteArray: {
            const QByteArray data = value.toByteArray();
            return plist_new_data(data.constData(), uint64_t(data.size()));
        }
        case QMetaType::QDateTime:
            return writeDate(value.toDateTime(), path);
        case QMetaType::QStringList:
        case QMetaType::QVariantList: {
            PlistPointer array(plist_new_array());
            const QVariantList list = value.toList();
            for (qsizetype i = 0; i < list.size(); ++i) {
                path.append(QString::number(i));
                plist_t item = write(list.at(i), path);
                path.removeLast();
                if (!item)
                    return nullptr;
                plist_array_append_item(array.get(), item);
            }
            return array.release();
        }
        case QMetaType::QVariantMap:
            return writeDictionary(value.toMap(), path);
        case QMetaType::QVariantHash: {
            const QVariantHash hash = value.toHash();
            QVariantMap map;
            for (auto it = hash.begin(); it != hash.end(); ++it)
                map.insert(it.key(), it.value());
            return writeDictionary(map, path);
        }
        default:
            break;
        }
        if (value.metaType() == QMetaType::fromType<VKPropertyListUID>()) {
            if (format != VKPropertyListFormat::Binary) {
                fail(QStringLiteral("a UID in the XML format"), path);
                return nullptr;
            }
            return plist_new_uid(value.value<VKPropertyListUID>().value);
        }
        fail(value.isValid() ? QStringLiteral("a value of type %1")
                                   .arg(QString::fromLatin1(value.metaType().name()))
                             : QStringLiteral("a null value"),
             path);
        return nullptr;
    }

    plist_t writeDate(const QDateTime &date, const QStringList &path)
    {
        if (!date.isValid()) {
            fail(QStringLiteral("an invalid date"), path);
            return nullptr;
        }
        return newDate(double(referenceDate().msecsTo(date)) / 1000.0);
    }

    plist_t writeDictionary(const QVariantMap &map, QStringList &path)
    {
        PlistPointer dictionary(plist_new_dict());
        for (auto it = map.begin(); it != map.end(); ++it) {
            const QByteArray key = it.key().toUtf8();
            path.append(it.key());
            if (key.contains('\0')) {
                fail(QStringLiteral("a key holding a NUL character"), path);
                return nullptr;
            }
            plist_t item = write(it.value(), path);
            path.removeLast();
            if (!item)
                return nullptr;
            plist_dict_set_item(dictionary.get(), key.constData(), item);
        }
        return dictionary.release();
    }
};

PlistPointer plistFromVariant(const QVariant &value, VKPropertyListFormat format, QString *failure)
{
    Writer writer{format, QString()};
    QStringList path;
    PlistPointer node(writer.write(value, path));
    if (!node && writer.failure.isNull())
        writer.failure = QStringLiteral("the property-list library refused a value");
    if (failure)
        *failure = writer.failure;
    return node;
}

} // namespace

QVariant VKPropertyList::propertyListWithData(const QByteArray &data, VKPropertyListFormat *format,
                                              VKError *error)
{
    if (data.size() > qsizetype(std::numeric_limits<uint32_t>::max())) {
        VKError::fill(error, corruptError(QStringLiteral("larger than 4 GiB")));
        return {};
    }
    const auto length = uint32_t(data.size());
    const bool binary = plist_is_binary(data.constData(), length) != 0;
    if (binary ? binaryHoldsNulString(data) : xmlHoldsNulReference(data)) {
        VKError::fill(error, corruptError(QStringLiteral("a string holding a NUL character")));
        return {};
    }
    plist_t raw = nullptr;
    if (!data.isEmpty())
        plist_from_memory(data.constData(), length, &raw);
    PlistPointer root(raw);
    if (!root) {
        VKError::fill(error, corruptError(data.isEmpty() ? QStringLiteral("no data")
                                                         : QStringLiteral("no property list")));
        return {};
    }
    Reader reader;
    QVariant value = reader.read(root.get(), 0);
    if (!reader.failure.isNull()) {
        VKError::fill(error, corruptError(reader.failure));
        return {};
    }
    if (format)
        *format = binary ? VKPropertyListFormat::Binary : VKPropertyListFormat::XML;
    return value;
}

QVariant VKPropertyList::propertyListWithContentsOfFile(const QString &path,
                                                        VKPropertyListFormat *format,
                                                        VKError *error)
{
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        const bool missing = path.isEmpty() || !QFileInfo::exists(path);
        VKError::fill(error, VKError::errorWithDescription(
                                 VQErrorDomainVessanUtilities,
                                 missing ? VKFileReadNoSuchFileError : VKFileReadUnknownError,
                                 missing ? QStringLiteral("The file \u201c%1\u201d couldn\u2019t "
                                                          "be opened because there is no such "
                                                          "file.")
                                               .arg(path)
                                         : QStringLiteral("The file \u201c%1\u201d couldn\u2019t "
                                                          "be opened (%2).")
                                               .arg(path, file.errorString())));
        return {};
    }
    const QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        VKError::fill(error,
                      VKError::errorWithDescription(
                          VQErrorDomainVessanUtilities, VKFileReadUnknownError,
                          QStringLiteral("The file \u201c%1\u201d couldn\u2019t be read (%2).")
                              .arg(path, file.errorString())));
        return {};
    }
    return propertyListWithData(data, format, error);
}

std::optional<QVariantMap> VKPropertyList::dictionaryWithContentsOfFile(const QString &path,
                                                                        VKError *error)
{
    VKError failure;
    const QVariant value = propertyListWithContentsOfFile(path, nullptr, &failure);
    if (!failure.isNull()) {
        VKError::fill(error, failure);
        return std::nullopt;
    }
    if (value.typeId() != QMetaType::QVariantMap) {
        VKError::fill(error, corruptError(QStringLiteral("its root is not a dictionary")));
        return std::nullopt;
    }
    return value.toMap();
}

QByteArray VKPropertyList::dataWithPropertyList(const QVariant &value, VKPropertyListFormat format,
                                                VKError *error)
{
    QString failure;
    const PlistPointer root = plistFromVariant(value, format, &failure);
    if (!root) {
        VKError::fill(error, invalidError(failure));
        return {};
    }
    char *bytes = nullptr;
    uint32_t length = 0;
    QByteArray data;
    if (format == VKPropertyListFormat::Binary) {
        plist_to_bin(root.get(), &bytes, &length);
        data = QByteArray(bytes, qsizetype(length));
        plist_to_bin_free(bytes);
    } else {
        plist_to_xml(root.get(), &bytes, &length);
        data = QByteArray(bytes, qsizetype(length));
        plist_to_xml_free(bytes);
    }
    if (data.isEmpty())
        VKError::fill(error, invalidError(QStringLiteral("the property-list library wrote "
                                                         "nothing")));
    return data;
}

bool VKPropertyList::writePropertyList(const QVariant &value, const QString &path,
                                       VKPropertyListFormat format, VKError *error)
{
    const QByteArray data = dataWithPropertyList(value, format, error);
    if (data.isEmpty())
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
        VKError::fill(error, VKError::errorWithDescription(
                                 VQErrorDomainVessanUtilities, VKFileWriteUnknownError,
                                 QStringLiteral("The file \u201c%1\u201d couldn\u2019t be saved "
                                                "(%2).")
                                     .arg(path, file.errorString())));
        return false;
    }
    return true;
}

bool VKPropertyList::propertyListIsValidForFormat(const QVariant &value,
                                                  VKPropertyListFormat format)
{
    return plistFromVariant(value, format, nullptr) != nullptr;
}
