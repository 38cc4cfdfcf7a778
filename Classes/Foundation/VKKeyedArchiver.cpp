#include "Foundation/VKKeyedArchiver.h"

#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKCoding.h"
#include "Foundation/VKDate.h"
#include "Foundation/VKKeyedArchive_p.h"

#include <QDateTime>
#include <QHash>
#include <QSet>
#include <QStringList>

#include <plist/plist.h>

#include <limits>
#include <vector>

const QString VKKeyedArchiveArchiverName = QStringLiteral("VKKeyedArchiver");
const QString VKKeyedArchiveRootObjectKey = QStringLiteral("root");

using namespace VKKeyedArchive;

namespace {

// Frees a plist tree that was not handed over to a parent.
struct PlistDeleter
{
    void operator()(void *node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistOwner = std::unique_ptr<void, PlistDeleter>;

VKError invalidValue(const QString &description)
{
    return VKError::errorWithDescription(VQErrorDomainVessanUtilities, VKCoderInvalidValueError,
                                         description);
}

} // namespace

struct VKKeyedArchiver::Private
{
    // Entries of "$objects" in order; an object's dictionary takes its slot before its keys are
    // written, so references to it from inside (cycles) find its UID. Owned until finished.
    std::vector<plist_t> entries;
    plist_t top = plist_new_dict();
    // The dictionary that encode calls write into.
    plist_t current = top;
    // Object identity: the address, with the object kept alive so the address is not reused.
    QHash<const VKCoding *, quint64> uidByObject;
    std::vector<std::shared_ptr<VKCoding>> keptAlive;
    QHash<QString, quint64> uidByString;
    QHash<QString, quint64> uidByClass;
    VKError error;
    bool finished = false;

    Private() { entries.push_back(plist_new_string(nullEntry)); }
    ~Private()
    {
        for (plist_t entry : entries)
            plist_free(entry);
        if (top)
            plist_free(top);
    }

    bool canWrite()
    {
        if (finished && error.isNull())
            error = invalidValue(QStringLiteral("The archive was already finished"));
        return error.isNull();
    }

    quint64 append(plist_t entry)
    {
        entries.push_back(entry);
        return entries.size() - 1;
    }

    quint64 uidOfString(const QString &value)
    {
        auto it = uidByString.constFind(value);
        if (it != uidByString.constEnd())
            return *it;
        const quint64 uid = append(plist_new_string(value.toUtf8().constData()));
        uidByString.insert(value, uid);
        return uid;
    }

    quint64 uidOfClass(const QString &name)
    {
        auto it = uidByClass.constFind(name);
        if (it != uidByClass.constEnd())
            return *it;
        // The class and its registered bases, so a reader can tell what the object is even
        // without the class.
        plist_t classes = plist_new_array();
        QSet<QString> seen;
        for (QString current = name; !current.isEmpty() && !seen.contains(current);) {
            seen.insert(current);
            plist_array_append_item(classes, plist_new_string(current.toUtf8().constData()));
            const std::optional<VKClassInfo> info = VKClassRegistry::classNamed(current);
            current = info ? info->baseName : QString();
        }
        plist_t entry = plist_new_dict();
        plist_dict_set_item(entry, classNameKey, plist_new_string(name.toUtf8().constData()));
        plist_dict_set_item(entry, classesKey, classes);
        const quint64 uid = append(entry);
        uidByClass.insert(name, uid);
        return uid;
    }

    // A dictionary entry of the given class, not yet filled.
    quint64 appendInstance(const QString &className, plist_t *dictionary)
    {
        *dictionary = plist_new_dict();
        const quint64 uid = append(*dictionary);
        plist_dict_set_item(*dictionary, classKey, plist_new_uid(uidOfClass(className)));
        return uid;
    }

    quint64 uidOfObject(const std::shared_ptr<VKCoding> &object, VKKeyedArchiver &coder)
    {
        if (!object)
            return 0;
        auto it = uidByObject.constFind(object.get());
        if (it != uidByObject.constEnd())
            return *it;
        const QString className = object->classNameForCoder();
        if (className.isEmpty() || className.startsWith(u'$')) {
            error = invalidValue(QStringLiteral("An object has no class name to archive"));
            return 0;
        }
        plist_t dictionary = nullptr;
        const quint64 uid = appendInstance(className, &dictionary);
        uidByObject.insert(object.get(), uid);
        keptAlive.push_back(object);
        plist_t outer = current;
        current = dictionary;
        object->encodeWithCoder(coder);
        current = outer;
        return uid;
    }

    // The UID of a value written as a table entry; 0 for nil. Sets the error on failure.
    quint64 uidOfValue(const QVariant &value, VKKeyedArchiver &coder, bool asSet = false)
    {
        if (!value.isValid() || value.isNull())
            return 0;
        if (std::shared_ptr<VKCoding> object = VKCoding::objectFromVariant(value))
            return uidOfObject(object, coder);
        switch (value.typeId()) {
        case QMetaType::Bool:
            return append(plist_new_bool(value.toBool()));
        case QMetaType::Int:
        case QMetaType::Long:
        case QMetaType::LongLong:
        case QMetaType::Short:
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::UInt:
        case QMetaType::ULong:
        case QMetaType::UShort:
        case QMetaType::UChar:
            return append(plist_new_uint(static_cast<quint64>(value.toLongLong())));
        case QMetaType::ULongLong:
            if (value.toULongLong() > quint64(std::numeric_limits<qint64>::max())) {
                error = invalidValue(QStringLiteral("An unsigned integer above the largest "
                                                    "signed 64-bit integer cannot be archived"));
                return 0;
            }
            return append(plist_new_uint(value.toULongLong()));
        case QMetaType::Double:
        case QMetaType::Float:
            return append(plist_new_real(value.toDouble()));
        case QMetaType::QString:
            return uidOfString(value.toString());
        case QMetaType::QByteArray: {
            const QByteArray bytes = value.toByteArray();
            return append(plist_new_data(bytes.constData(), static_cast<quint64>(bytes.size())));
        }
        case QMetaType::QDateTime: {
            plist_t dictionary = nullptr;
            const quint64 uid = appendInstance(QString::fromLatin1(dateClass), &dictionary);
            plist_dict_set_item(
                dictionary, timeMember,
                plist_new_real(VKDate::timeIntervalSinceReferenceDate(value.toDateTime())));
            return uid;
        }
        case QMetaType::QStringList:
        case QMetaType::QVariantList:
            return uidOfList(value.toList(), coder, asSet);
        case QMetaType::QVariantMap:
        case QMetaType::QVariantHash:
            return uidOfMap(value.toMap(), coder);
        default:
            error = invalidValue(QStringLiteral("A value of type %1 cannot be archived")
                                     .arg(QString::fromLatin1(value.typeName())));
            return 0;
        }
    }

    quint64 uidOfList(const QVariantList &list, VKKeyedArchiver &coder, bool asSet)
    {
        plist_t dictionary = nullptr;
        const quint64 uid =
            appendInstance(QString::fromLatin1(asSet ? setClass : arrayClass), &dictionary);
        plist_t members = plist_new_array();
        plist_dict_set_item(dictionary, objectsMember, members);
        for (const QVariant &member : list) {
            const quint64 memberUid = uidOfValue(member, coder);
            if (!error.isNull())
                return 0;
            plist_array_append_item(members, plist_new_uid(memberUid));
        }
        return uid;
    }

    quint64 uidOfMap(const QVariantMap &map, VKKeyedArchiver &coder)
    {
        plist_t dictionary = nullptr;
        const quint64 uid = appendInstance(QString::fromLatin1(dictionaryClass), &dictionary);
        plist_t keys = plist_new_array();
        plist_t values = plist_new_array();
        plist_dict_set_item(dictionary, keysMember, keys);
        plist_dict_set_item(dictionary, objectsMember, values);
        for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
            plist_array_append_item(keys, plist_new_uid(uidOfString(it.key())));
            const quint64 valueUid = uidOfValue(it.value(), coder);
            if (!error.isNull())
                return 0;
            plist_array_append_item(values, plist_new_uid(valueUid));
        }
        return uid;
    }

    void set(const QString &key, plist_t node)
    {
        plist_dict_set_item(current, storedKey(key).constData(), node);
    }
};

VKKeyedArchiver::VKKeyedArchiver() : d(std::make_unique<Private>()) {}

VKKeyedArchiver::~VKKeyedArchiver() = default;

QByteArray VKKeyedArchiver::archivedDataWithRootObject(const std::shared_ptr<VKCoding> &root,
                                                       VKError *error)
{
    VKKeyedArchiver archiver;
    archiver.encodeObject(VKKeyedArchiveRootObjectKey, root);
    return archiver.encodedData(error);
}

void VKKeyedArchiver::encodeBool(const QString &key, bool value)
{
    if (d->canWrite())
        d->set(key, plist_new_bool(value));
}

void VKKeyedArchiver::encodeInteger(const QString &key, qint64 value)
{
    // Stored as the 64-bit pattern; the binary form keeps all 64 bits.
    if (d->canWrite())
        d->set(key, plist_new_uint(static_cast<quint64>(value)));
}

void VKKeyedArchiver::encodeDouble(const QString &key, double value)
{
    if (d->canWrite())
        d->set(key, plist_new_real(value));
}

void VKKeyedArchiver::encodeString(const QString &key, const QString &value)
{
    if (d->canWrite())
        d->set(key, plist_new_uid(value.isNull() ? 0 : d->uidOfString(value)));
}

void VKKeyedArchiver::encodeData(const QString &key, const QByteArray &value)
{
    encodeValue(key, value.isNull() ? QVariant() : QVariant(value));
}

void VKKeyedArchiver::encodeObject(const QString &key, const std::shared_ptr<VKCoding> &object)
{
    if (!d->canWrite())
        return;
    plist_t target = d->current;
    const quint64 uid = d->uidOfObject(object, *this);
    if (d->error.isNull())
        plist_dict_set_item(target, storedKey(key).constData(), plist_new_uid(uid));
}

void VKKeyedArchiver::encodeValue(const QString &key, const QVariant &value)
{
    if (!d->canWrite())
        return;
    plist_t target = d->current;
    const quint64 uid = d->uidOfValue(value, *this);
    if (d->error.isNull())
        plist_dict_set_item(target, storedKey(key).constData(), plist_new_uid(uid));
}

void VKKeyedArchiver::encodeSet(const QString &key, const QVariantList &members)
{
    if (!d->canWrite())
        return;
    plist_t target = d->current;
    const quint64 uid = d->uidOfList(members, *this, true);
    if (d->error.isNull())
        plist_dict_set_item(target, storedKey(key).constData(), plist_new_uid(uid));
}

QByteArray VKKeyedArchiver::encodedData(VKError *error)
{
    if (!d->canWrite()) {
        VKError::fill(error, d->error);
        return {};
    }
    d->finished = true;
    PlistOwner root(plist_new_dict());
    plist_t objects = plist_new_array();
    for (plist_t entry : d->entries)
        plist_array_append_item(objects, entry);
    d->entries.clear();
    plist_t archive = static_cast<plist_t>(root.get());
    plist_dict_set_item(archive, archiverKey,
                        plist_new_string(VKKeyedArchiveArchiverName.toUtf8().constData()));
    plist_dict_set_item(archive, versionKey, plist_new_uint(VKKeyedArchiveVersion));
    plist_dict_set_item(archive, topKey, d->top);
    d->top = nullptr;
    plist_dict_set_item(archive, objectsKey, objects);
    char *bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(archive, &bytes, &length);
    if (!bytes) {
        d->error = invalidValue(QStringLiteral("The archive could not be written"));
        VKError::fill(error, d->error);
        return {};
    }
    QByteArray data(bytes, static_cast<qsizetype>(length));
    plist_to_bin_free(bytes);
    return data;
}

VKError VKKeyedArchiver::error() const
{
    return d->error;
}
