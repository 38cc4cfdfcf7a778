#include "Color/VKFilter.h"

#include "Color/VKImage.h"
#include "Color/VKOperationFilter.h"
#include "Color/VKTriple.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKError.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"

#include <QColor>
#include <QHash>

#include <mutex>

const QString VKFilterInputImageKey = QStringLiteral("inputImage");
const QString VKFilterOutputImageKey = QStringLiteral("outputImage");
const QString VKAttributeFilterName = QStringLiteral("VKAttributeFilterName");
const QString VKAttributeFilterDisplayName = QStringLiteral("VKAttributeFilterDisplayName");
const QString VKAttributeType = QStringLiteral("VKAttributeType");
const QString VKAttributeMin = QStringLiteral("VKAttributeMin");
const QString VKAttributeMax = QStringLiteral("VKAttributeMax");
const QString VKAttributeDefault = QStringLiteral("VKAttributeDefault");
const QString VKAttributeDescription = QStringLiteral("VKAttributeDescription");
const QString VKAttributeTypeImage = QStringLiteral("image");
const QString VKAttributeTypeDouble = QStringLiteral("double");
const QString VKAttributeTypeInteger = QStringLiteral("integer");
const QString VKAttributeTypeBoolean = QStringLiteral("boolean");
const QString VKAttributeTypeString = QStringLiteral("string");
const QString VKAttributeTypeEnum = QStringLiteral("enum");
const QString VKAttributeTypeColor = QStringLiteral("color");
const QString VKAttributeTypeTriple = QStringLiteral("triple");
const QString VKAttributeEnumNames = QStringLiteral("VKAttributeEnumNames");

namespace {

const QString kNameKey = QStringLiteral("VKFilterName");
const QString kInputValuesKey = QStringLiteral("VKFilterInputValues");
// An archived triple: its class name then its three components.
const QString kTripleMarker = QStringLiteral("VKTriple");

struct FilterRegistry
{
    std::mutex mutex;
    QHash<QString, VKFilter::Factory> factories;
};

FilterRegistry &filterRegistry()
{
    static FilterRegistry registry;
    return registry;
}

const bool kFilterClassRegistered = VKClassRegistry::registerClass<VKFilter, VKCoding>(
    QStringLiteral("VKFilter"), QStringLiteral("VKCoding"));

// Values an archive can hold as they are; colours and triples get a plain form.
QVariant archivableValue(const QVariant &value)
{
    if (!value.isValid() || value.isNull())
        return {};
    if (const std::optional<VKTriple> triple = VKTriple::fromVariant(value))
        return QVariantList{kTripleMarker, triple->className(), double(triple->x()),
                            double(triple->y()), double(triple->z())};
    if (value.metaType() == QMetaType::fromType<QColor>())
        return value.value<QColor>().name(QColor::HexArgb);
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Short:
    case QMetaType::QString:
        return value;
    default:
        return {};
    }
}

QVariant valueFromArchive(const QVariant &value, const QString &type)
{
    if (type == VKAttributeTypeColor && value.metaType().id() == QMetaType::QString) {
        const QColor color = QColor::fromString(value.toString());
        return color.isValid() ? QVariant::fromValue(color) : QVariant();
    }
    if (value.metaType().id() == QMetaType::QVariantList) {
        const QVariantList list = value.toList();
        if (list.size() != 5 || list.at(0).toString() != kTripleMarker)
            return {};
        const QString cls = list.at(1).toString();
        const float x = list.at(2).toFloat(), y = list.at(3).toFloat(), z = list.at(4).toFloat();
        if (cls == QLatin1String("VKRGBTriple"))
            return QVariant::fromValue(VKRGBTriple(x, y, z));
        if (cls == QLatin1String("VKHSVTriple"))
            return QVariant::fromValue(VKHSVTriple(x, y, z));
        if (cls == QLatin1String("VKARLTriple"))
            return QVariant::fromValue(VKARLTriple(x, y, z));
        if (cls == QLatin1String("VKTTLTriple"))
            return QVariant::fromValue(VKTTLTriple(x, y, z));
        return QVariant::fromValue(VKTriple(x, y, z));
    }
    return value;
}

} // namespace

struct VKFilter::Private
{
    QString name;
    QStringList keys;
    QHash<QString, QVariantMap> keyAttributes;
    QHash<QString, QVariant> values;
};

VKFilter::VKFilter(const QString &name) : d(std::make_unique<Private>())
{
    (void)kFilterClassRegistered;
    d->name = name;
}

VKFilter::~VKFilter() = default;

std::shared_ptr<VKFilter> VKFilter::filterWithName(const QString &name)
{
    Factory factory;
    {
        FilterRegistry &r = filterRegistry();
        std::lock_guard lock(r.mutex);
        factory = r.factories.value(name);
    }
    if (factory)
        return factory();
    return VKOperationFilter::filterWithOperation(name);
}

QStringList VKFilter::filterNames()
{
    QStringList names;
    {
        FilterRegistry &r = filterRegistry();
        std::lock_guard lock(r.mutex);
        names = r.factories.keys();
    }
    names.sort();
    return names + VKOperationFilter::operationNames();
}

bool VKFilter::isFilterNameKnown(const QString &name)
{
    {
        FilterRegistry &r = filterRegistry();
        std::lock_guard lock(r.mutex);
        if (r.factories.contains(name))
            return true;
    }
    return VKOperationFilter::hasOperation(name);
}

void VKFilter::registerFilter(const QString &name, Factory factory)
{
    FilterRegistry &r = filterRegistry();
    std::lock_guard lock(r.mutex);
    r.factories.insert(name, std::move(factory));
}

bool VKFilter::unregisterFilter(const QString &name)
{
    FilterRegistry &r = filterRegistry();
    std::lock_guard lock(r.mutex);
    return r.factories.remove(name) > 0;
}

QString VKFilter::name() const
{
    return d->name;
}

void VKFilter::setName(const QString &name)
{
    d->name = name;
}

QStringList VKFilter::inputKeys() const
{
    return d->keys;
}

QStringList VKFilter::inputParameterKeys() const
{
    QStringList keys;
    const QVariantMap attributes = customAttributes();
    for (const QString &key : inputKeys()) {
        if (attributes.value(key).toMap().value(VKAttributeType) != VKAttributeTypeImage)
            keys.append(key);
    }
    return keys;
}

QStringList VKFilter::outputKeys() const
{
    return {VKFilterOutputImageKey};
}

QVariantMap VKFilter::customAttributes() const
{
    QVariantMap attributes;
    for (const QString &key : d->keys)
        attributes.insert(key, d->keyAttributes.value(key));
    return attributes;
}

QVariantMap VKFilter::attributes() const
{
    QVariantMap attributes = customAttributes();
    attributes.insert(VKAttributeFilterName, name());
    attributes.insert(VKAttributeFilterDisplayName, name());
    return attributes;
}

void VKFilter::setDefaults()
{
    const QVariantMap attributes = customAttributes();
    for (const QString &key : inputKeys()) {
        const QVariantMap keyAttributes = attributes.value(key).toMap();
        if (keyAttributes.value(VKAttributeType) == VKAttributeTypeImage ||
            !keyAttributes.contains(VKAttributeDefault))
            continue;
        setValueForKey(keyAttributes.value(VKAttributeDefault), key);
    }
}

VKImage VKFilter::outputImage()
{
    return {};
}

void VKFilter::declareInputKey(const QString &key, const QVariantMap &attributes)
{
    if (!d->keys.contains(key)) {
        // The image input leads, as callers expect to find it first.
        if (key == VKFilterInputImageKey)
            d->keys.prepend(key);
        else
            d->keys.append(key);
    }
    d->keyAttributes.insert(key, attributes);
}

bool VKFilter::setUpForName(const QString &name)
{
    return name == d->name;
}

QVariant VKFilter::inputValue(const QString &key) const
{
    return d->values.value(key);
}

VKImage VKFilter::inputImage(const QString &key) const
{
    const QVariant value = d->values.value(key);
    if (value.metaType() != QMetaType::fromType<VKImage>())
        return {};
    return value.value<VKImage>();
}

QVariant VKFilter::valueForKey(const QString &key) const
{
    if (d->keys.contains(key))
        return d->values.value(key);
    if (key == VKFilterOutputImageKey && outputKeys().contains(key)) {
        const VKImage image = const_cast<VKFilter *>(this)->outputImage();
        return image.isNull() ? QVariant() : QVariant::fromValue(image);
    }
    return VKObservable::valueForKey(key);
}

void VKFilter::setValueForKey(const QVariant &value, const QString &key)
{
    if (!d->keys.contains(key)) {
        VKObservable::setValueForKey(value, key);
        return;
    }
    changeValueForKey(key, [&] {
        if (value.isNull() || !value.isValid())
            d->values.remove(key);
        else
            d->values.insert(key, value);
    });
}

QString VKFilter::className() const
{
    return classNameForCoder();
}

QString VKFilter::classNameForCoder() const
{
    return d->name;
}

void VKFilter::encodeWithCoder(VKKeyedArchiver &coder) const
{
    coder.encodeString(kNameKey, d->name);
    QVariantMap values;
    for (auto it = d->values.cbegin(); it != d->values.cend(); ++it) {
        const QVariant value = archivableValue(it.value());
        if (value.isValid())
            values.insert(it.key(), value);
    }
    coder.encodeValue(kInputValuesKey, values);
}

bool VKFilter::initWithCoder(VKKeyedUnarchiver &coder)
{
    const QString name = coder.decodeString(kNameKey);
    if (coder.hasFailed())
        return false;
    if (name.isEmpty() || !setUpForName(name)) {
        coder.failWithError(VKError::errorWithDescription(
            VQErrorDomainVessanUtilities, VKCoderReadCorruptError,
            QStringLiteral("The archive holds a filter \"%1\" that cannot be made.").arg(name)));
        return false;
    }
    const QVariant stored = coder.decodeValue(kInputValuesKey);
    if (coder.hasFailed())
        return false;
    if (stored.isValid() && stored.metaType().id() != QMetaType::QVariantMap) {
        coder.failWithError(VKError::errorWithDescription(
            VQErrorDomainVessanUtilities, VKCoderReadCorruptError,
            QStringLiteral("The filter's values in the archive are not a dictionary.")));
        return false;
    }
    const QVariantMap values = stored.toMap();
    const QVariantMap attributes = customAttributes();
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        // Values of keys the filter no longer has are dropped rather than failing the archive.
        if (!d->keys.contains(it.key()))
            continue;
        const QString type = attributes.value(it.key()).toMap().value(VKAttributeType).toString();
        if (type == VKAttributeTypeImage)
            continue;
        d->values.insert(it.key(), valueFromArchive(it.value(), type));
    }
    return true;
}
