// Reading is lazy and recursive: a decode call looks its key up in the dictionary of the object
// being read (`current`), follows the UID into the object table and makes what it finds. Made
// objects and values are cached by UID, which keeps identity and also stops an archive that
// references one collection many times from expanding exponentially. An object is cached
// before its initWithCoder() runs, so cycles through objects resolve to it; a collection that
// is still being read when it is referenced again is a loop and fails. Nesting is bounded by
// maximumDepth. Every failure sets `error` once and turns every later read into a no-op.
#include "Foundation/VKKeyedUnarchiver.h"

#include "Foundation/VKBinaryPropertyListCheck_p.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKCoding.h"
#include "Foundation/VKDate.h"
#include "Foundation/VKKeyedArchive_p.h"
#include "Foundation/VKKeyedArchiver.h"

#include <QDateTime>
#include <QHash>
#include <QSet>

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

using namespace VKKeyedArchive;

namespace {

VKError corrupt(const QString &description)
{
    return VKError::errorWithDescription(VQErrorDomainVessanUtilities, VKCoderReadCorruptError,
                                         description);
}

bool isType(plist_t node, plist_type type)
{
    return node && plist_get_node_type(node) == type;
}

QString stringOf(plist_t node)
{
    uint64_t length = 0;
    const char *text = plist_get_string_ptr(node, &length);
    return text ? QString::fromUtf8(text, static_cast<qsizetype>(length)) : QString();
}

// The built-in value classes.
enum class BuiltIn { None, Array, Set, Dictionary, Date };

BuiltIn builtInClass(const QString &name)
{
    if (name == QLatin1String(arrayClass))
        return BuiltIn::Array;
    if (name == QLatin1String(setClass))
        return BuiltIn::Set;
    if (name == QLatin1String(dictionaryClass))
        return BuiltIn::Dictionary;
    if (name == QLatin1String(dateClass))
        return BuiltIn::Date;
    return BuiltIn::None;
}

struct ClassEntry
{
    QString name;
    QStringList classes;
};

} // namespace

// An archive's own tables nest four levels (root, "$objects", an entry, its members); anything
// much deeper is not an archive and could exhaust the stack of the property-list parser.
constexpr int maximumTableDepth = 16;

struct VKKeyedUnarchiver::Private
{
    plist_t archive = nullptr;  // owned
    std::vector<plist_t> table; // "$objects", borrowed from `archive`
    plist_t current = nullptr;  // the dictionary being read
    QHash<quint64, std::shared_ptr<VKCoding>> objects;
    QHash<quint64, QVariant> values;
    QSet<quint64> valuesInProgress;
    int depth = 0;
    DecodeHook hook;
    VKError error;

    ~Private()
    {
        if (archive)
            plist_free(archive);
    }

    bool fail(const VKError &failure)
    {
        if (error.isNull())
            error = failure;
        return false;
    }

    bool open(const QByteArray &data)
    {
        const auto size = static_cast<quint64>(data.size());
        if (size < 8 || size > std::numeric_limits<uint32_t>::max() ||
            !plist_is_binary(data.constData(), static_cast<uint32_t>(size)) ||
            !vkBinaryPropertyListIsShallow(data.constData(), static_cast<size_t>(data.size()),
                                           maximumTableDepth))
            return fail(corrupt(QStringLiteral("The data is not a keyed archive")));
        plist_from_bin(data.constData(), static_cast<uint32_t>(size), &archive);
        if (!isType(archive, PLIST_DICT))
            return fail(corrupt(QStringLiteral("The data is not a keyed archive")));
        plist_t version = plist_dict_get_item(archive, versionKey);
        plist_t archiver = plist_dict_get_item(archive, archiverKey);
        plist_t top = plist_dict_get_item(archive, topKey);
        plist_t objects = plist_dict_get_item(archive, objectsKey);
        if (!isType(archiver, PLIST_STRING) || stringOf(archiver) != VKKeyedArchiveArchiverName)
            return fail(corrupt(QStringLiteral("The data is not a keyed archive")));
        uint64_t versionValue = 0;
        if (isType(version, PLIST_UINT))
            plist_get_uint_val(version, &versionValue);
        if (versionValue != static_cast<uint64_t>(VKKeyedArchiveVersion))
            return fail(corrupt(QStringLiteral("The archive's version is not supported")));
        if (!isType(top, PLIST_DICT) || !isType(objects, PLIST_ARRAY))
            return fail(corrupt(QStringLiteral("The archive has no object table")));
        table.reserve(plist_array_get_size(objects));
        plist_array_iter iterator = nullptr;
        plist_array_new_iter(objects, &iterator);
        for (plist_t item = nullptr;;) {
            plist_array_next_item(objects, iterator, &item);
            if (!item)
                break;
            table.push_back(item);
        }
        free(iterator);
        if (table.empty() || !isType(table[0], PLIST_STRING) ||
            stringOf(table[0]) != QLatin1String(nullEntry))
            return fail(corrupt(QStringLiteral("The archive's object table does not begin with "
                                               "\"$null\"")));
        current = top;
        return true;
    }

    plist_t lookUp(const QString &key) const
    {
        if (!error.isNull() || !current)
            return nullptr;
        return plist_dict_get_item(current, storedKey(key).constData());
    }

    bool wrongType(const QString &key, const char *expected)
    {
        return fail(corrupt(QStringLiteral("The value for key \"%1\" is not %2")
                                .arg(key, QLatin1String(expected))));
    }

    // The table entry a reference names; null (after failing) when it is out of range.
    plist_t entry(quint64 uid)
    {
        if (uid >= table.size()) {
            fail(corrupt(QStringLiteral("A reference points outside the archive's object table")));
            return nullptr;
        }
        return table[uid];
    }

    bool referenceOf(plist_t node, const QString &key, quint64 *uid)
    {
        if (!isType(node, PLIST_UID))
            return wrongType(key, "a reference");
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        *uid = value;
        return entry(value) != nullptr;
    }

    // The class of an instance entry; false (after failing) when it has none or it is damaged.
    bool classOf(plist_t instance, ClassEntry *out)
    {
        quint64 uid = 0;
        if (!isType(instance, PLIST_DICT) || !referenceOf(plist_dict_get_item(instance, classKey),
                                                          QString::fromLatin1(classKey), &uid))
            return fail(corrupt(QStringLiteral("An entry of the object table has no class")));
        plist_t description = table[uid];
        plist_t name = isType(description, PLIST_DICT)
                           ? plist_dict_get_item(description, classNameKey)
                           : nullptr;
        if (!isType(name, PLIST_STRING))
            return fail(corrupt(QStringLiteral("A class entry of the archive has no name")));
        out->name = stringOf(name);
        plist_t classes = plist_dict_get_item(description, classesKey);
        if (isType(classes, PLIST_ARRAY)) {
            const uint32_t count = plist_array_get_size(classes);
            for (uint32_t i = 0; i < count; ++i) {
                plist_t item = plist_array_get_item(classes, i);
                if (isType(item, PLIST_STRING))
                    out->classes.append(stringOf(item));
            }
        }
        if (out->classes.isEmpty())
            out->classes.append(out->name);
        return true;
    }

    bool enter(const QString &key)
    {
        if (depth >= maximumDepth)
            return fail(corrupt(QStringLiteral("Objects are nested deeper than %1 levels (key "
                                               "\"%2\")")
                                    .arg(maximumDepth)
                                    .arg(key)));
        ++depth;
        return true;
    }

    std::shared_ptr<VKCoding> objectAt(quint64 uid, const QString &key, VKKeyedUnarchiver &coder)
    {
        if (uid == 0)
            return nullptr;
        auto cached = objects.constFind(uid);
        if (cached != objects.constEnd())
            return *cached;
        plist_t instance = table[uid];
        ClassEntry cls;
        if (!classOf(instance, &cls))
            return nullptr;
        if (builtInClass(cls.name) != BuiltIn::None) {
            wrongType(key, "an object");
            return nullptr;
        }
        if (!enter(key))
            return nullptr;
        std::shared_ptr<VKCoding> object;
        if (hook)
            object = hook(cls.name, cls.classes);
        if (!object && error.isNull())
            object = VKClassRegistry::createInstance<VKCoding>(cls.name);
        if (!object) {
            --depth;
            fail(corrupt(QStringLiteral("Cannot decode an object of class \"%1\" for key "
                                        "\"%2\": the class is unknown or not archivable")
                             .arg(cls.name, key)));
            return nullptr;
        }
        objects.insert(uid, object);
        plist_t outer = current;
        current = instance;
        const bool read = object->initWithCoder(coder);
        current = outer;
        --depth;
        if (!read)
            fail(corrupt(QStringLiteral("An object of class \"%1\" for key \"%2\" could not be "
                                        "decoded")
                             .arg(cls.name, key)));
        return error.isNull() ? object : nullptr;
    }

    QVariant inlineValue(plist_t node, const QString &key, VKKeyedUnarchiver &coder)
    {
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN:
            return bool(plist_bool_val_is_true(node));
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            return qlonglong(static_cast<qint64>(value));
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return value;
        }
        case PLIST_UID: {
            quint64 uid = 0;
            if (!referenceOf(node, key, &uid))
                return {};
            return valueAt(uid, key, coder);
        }
        default:
            wrongType(key, "a value");
            return {};
        }
    }

    QVariant valueAt(quint64 uid, const QString &key, VKKeyedUnarchiver &coder)
    {
        if (uid == 0)
            return {};
        auto cached = values.constFind(uid);
        if (cached != values.constEnd())
            return *cached;
        auto object = objects.constFind(uid);
        if (object != objects.constEnd())
            return VKCoding::variantWithObject(*object);
        plist_t node = table[uid];
        QVariant value;
        switch (plist_get_node_type(node)) {
        case PLIST_STRING:
            value = stringOf(node);
            break;
        case PLIST_DATA: {
            uint64_t length = 0;
            const char *bytes = plist_get_data_ptr(node, &length);
            value = QByteArray(bytes ? bytes : "", static_cast<qsizetype>(length));
            break;
        }
        case PLIST_BOOLEAN:
        case PLIST_UINT:
        case PLIST_REAL:
            value = inlineValue(node, key, coder);
            break;
        case PLIST_DICT:
            value = instanceValue(uid, key, coder);
            break;
        default:
            wrongType(key, "a value");
            break;
        }
        if (!error.isNull())
            return {};
        if (!VKCoding::objectFromVariant(value))
            values.insert(uid, value);
        return value;
    }

    // A dictionary entry: a built-in collection or date, or an object.
    QVariant instanceValue(quint64 uid, const QString &key, VKKeyedUnarchiver &coder)
    {
        plist_t instance = table[uid];
        ClassEntry cls;
        if (!classOf(instance, &cls))
            return {};
        const BuiltIn kind = builtInClass(cls.name);
        if (kind == BuiltIn::None)
            return VKCoding::variantWithObject(objectAt(uid, key, coder));
        if (kind == BuiltIn::Date) {
            plist_t time = plist_dict_get_item(instance, timeMember);
            double seconds = 0;
            if (isType(time, PLIST_REAL))
                plist_get_real_val(time, &seconds);
            if (!isType(time, PLIST_REAL) || !std::isfinite(seconds)) {
                wrongType(key, "a date");
                return {};
            }
            return VKDate::dateWithTimeIntervalSinceReferenceDate(seconds);
        }
        if (valuesInProgress.contains(uid)) {
            fail(corrupt(QStringLiteral("The value for key \"%1\" contains itself").arg(key)));
            return {};
        }
        if (!enter(key))
            return {};
        valuesInProgress.insert(uid);
        QVariant value = kind == BuiltIn::Dictionary ? mapOf(instance, key, coder)
                                                     : QVariant(listOf(instance, key, coder));
        valuesInProgress.remove(uid);
        --depth;
        return value;
    }

    // The UIDs of a member array of a collection.
    bool members(plist_t instance, const char *member, const QString &key,
                 std::vector<quint64> *uids)
    {
        plist_t array = plist_dict_get_item(instance, member);
        if (!isType(array, PLIST_ARRAY))
            return wrongType(key, "a collection");
        const uint32_t count = plist_array_get_size(array);
        uids->reserve(count);
        plist_array_iter iterator = nullptr;
        plist_array_new_iter(array, &iterator);
        bool ok = true;
        for (plist_t item = nullptr; ok;) {
            plist_array_next_item(array, iterator, &item);
            if (!item)
                break;
            quint64 uid = 0;
            ok = referenceOf(item, key, &uid);
            uids->push_back(uid);
        }
        free(iterator);
        return ok;
    }

    QVariantList listOf(plist_t instance, const QString &key, VKKeyedUnarchiver &coder)
    {
        std::vector<quint64> uids;
        if (!members(instance, objectsMember, key, &uids))
            return {};
        QVariantList list;
        list.reserve(static_cast<qsizetype>(uids.size()));
        for (quint64 uid : uids) {
            list.append(valueAt(uid, key, coder));
            if (!error.isNull())
                return {};
        }
        return list;
    }

    QVariant mapOf(plist_t instance, const QString &key, VKKeyedUnarchiver &coder)
    {
        std::vector<quint64> keys;
        std::vector<quint64> items;
        if (!members(instance, keysMember, key, &keys) ||
            !members(instance, objectsMember, key, &items))
            return {};
        if (keys.size() != items.size()) {
            wrongType(key, "a dictionary");
            return {};
        }
        QVariantMap map;
        for (size_t i = 0; i < keys.size(); ++i) {
            const QVariant name = valueAt(keys[i], key, coder);
            if (error.isNull() && name.typeId() != QMetaType::QString)
                wrongType(key, "a dictionary with string keys");
            if (!error.isNull())
                return {};
            map.insert(name.toString(), valueAt(items[i], key, coder));
            if (!error.isNull())
                return {};
        }
        return map;
    }
};

VKKeyedUnarchiver::VKKeyedUnarchiver(const QByteArray &data) : d(std::make_unique<Private>())
{
    d->open(data);
}

VKKeyedUnarchiver::~VKKeyedUnarchiver() = default;

std::shared_ptr<VKCoding> VKKeyedUnarchiver::unarchivedObjectWithData(const QByteArray &data,
                                                                      VKError *error,
                                                                      const DecodeHook &hook)
{
    return unarchivedObjectOfClass<VKCoding>(data, error, hook);
}

void VKKeyedUnarchiver::setDecodeHook(DecodeHook hook)
{
    d->hook = std::move(hook);
}

bool VKKeyedUnarchiver::containsValueForKey(const QString &key) const
{
    return d->lookUp(key) != nullptr;
}

bool VKKeyedUnarchiver::decodeBool(const QString &key)
{
    plist_t node = d->lookUp(key);
    if (!node)
        return false;
    if (!isType(node, PLIST_BOOLEAN))
        return d->wrongType(key, "a boolean");
    return plist_bool_val_is_true(node);
}

qint64 VKKeyedUnarchiver::decodeInteger(const QString &key)
{
    plist_t node = d->lookUp(key);
    if (!node)
        return 0;
    if (!isType(node, PLIST_UINT)) {
        d->wrongType(key, "an integer");
        return 0;
    }
    uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return static_cast<qint64>(value);
}

qint32 VKKeyedUnarchiver::decodeInt32(const QString &key)
{
    const qint64 value = decodeInteger(key);
    if (value < std::numeric_limits<qint32>::min() || value > std::numeric_limits<qint32>::max()) {
        d->fail(corrupt(QStringLiteral("The value for key \"%1\" does not fit 32 bits").arg(key)));
        return 0;
    }
    return static_cast<qint32>(value);
}

double VKKeyedUnarchiver::decodeDouble(const QString &key)
{
    plist_t node = d->lookUp(key);
    if (!node)
        return 0;
    if (isType(node, PLIST_UINT))
        return double(decodeInteger(key));
    if (!isType(node, PLIST_REAL)) {
        d->wrongType(key, "a number");
        return 0;
    }
    double value = 0;
    plist_get_real_val(node, &value);
    return value;
}

QString VKKeyedUnarchiver::decodeString(const QString &key)
{
    const QVariant value = decodeValue(key);
    if (value.isNull() || value.typeId() == QMetaType::QString)
        return value.toString();
    d->wrongType(key, "a string");
    return {};
}

QByteArray VKKeyedUnarchiver::decodeData(const QString &key)
{
    const QVariant value = decodeValue(key);
    if (value.isNull() || value.typeId() == QMetaType::QByteArray)
        return value.toByteArray();
    d->wrongType(key, "data");
    return {};
}

std::shared_ptr<VKCoding> VKKeyedUnarchiver::decodeObject(const QString &key)
{
    plist_t node = d->lookUp(key);
    if (!node)
        return nullptr;
    quint64 uid = 0;
    if (!d->referenceOf(node, key, &uid))
        return nullptr;
    if (uid != 0 && !isType(d->table[uid], PLIST_DICT)) {
        d->wrongType(key, "an object");
        return nullptr;
    }
    return d->objectAt(uid, key, *this);
}

QVariant VKKeyedUnarchiver::decodeValue(const QString &key)
{
    plist_t node = d->lookUp(key);
    if (!node)
        return {};
    return d->inlineValue(node, key, *this);
}

QVariantList VKKeyedUnarchiver::decodeSet(const QString &key)
{
    const QVariant value = decodeValue(key);
    if (value.isNull() || value.typeId() == QMetaType::QVariantList)
        return value.toList();
    d->wrongType(key, "a set");
    return {};
}

void VKKeyedUnarchiver::failWithError(const VKError &error)
{
    d->fail(error.isNull() ? corrupt(QStringLiteral("The archive could not be decoded")) : error);
}

bool VKKeyedUnarchiver::hasFailed() const
{
    return !d->error.isNull();
}

VKError VKKeyedUnarchiver::error() const
{
    return d->error;
}

bool VKKeyedUnarchiver::finishDecoding(VKError *error) const
{
    VKError::fill(error, d->error);
    return d->error.isNull();
}

QString VKKeyedUnarchiver::rootKey()
{
    return VKKeyedArchiveRootObjectKey;
}

VKError VKKeyedUnarchiver::missingRootError() const
{
    return VKError::errorWithDescription(VQErrorDomainVessanUtilities, VKCoderValueNotFoundError,
                                         QStringLiteral("The archive has no root object"));
}

void VKKeyedUnarchiver::failWithWrongClass(const QString &key,
                                           const std::shared_ptr<VKCoding> &object)
{
    d->fail(corrupt(QStringLiteral("The object for key \"%1\" is of the unexpected class \"%2\"")
                        .arg(key, object->classNameForCoder())));
}
