#include "Application/VKEnumElement.h"

#include "Foundation/VKFormat.h"
#include "Foundation/VKLenientNumber.h"

#include <cmath>
#include <limits>

struct VKEnumElement::Private
{
    QString identifier;
    QString name;
    QVariant representedObject;
};

VKEnumElement::VKEnumElement(const QString &identifier, const QString &name,
                             const QVariant &representedObject)
    : d(std::make_unique<Private>(Private{identifier, name, representedObject}))
{}

VKEnumElement::~VKEnumElement() = default;

std::shared_ptr<VKEnumElement>
VKEnumElement::sourceWithIdentifier(const QString &identifier, const QString &name,
                                    const QVariant &representedObject)
{
    return std::make_shared<VKEnumElement>(identifier, name, representedObject);
}

QString VKEnumElement::identifier() const
{
    return d->identifier;
}

QString VKEnumElement::name() const
{
    return d->name;
}

QVariant VKEnumElement::representedObject() const
{
    return d->representedObject;
}

qint64 VKEnumElement::integerValue() const
{
    const QVariant &value = d->representedObject;
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toLongLong();
    case QMetaType::Float:
    case QMetaType::Double: {
        // Qt rounds; a number object's integer value truncates.
        const double number = value.toDouble();
        if (std::isnan(number))
            return 0;
        if (number >= 9223372036854775807.0)
            return std::numeric_limits<qint64>::max();
        if (number <= -9223372036854775808.0)
            return std::numeric_limits<qint64>::min();
        return static_cast<qint64>(std::trunc(number));
    }
    case QMetaType::QString:
        return VKLenientNumber::longLongValue(value.toString());
    default:
        return 0;
    }
}

bool VKEnumElement::isEqual(const VKEnumElement *other) const
{
    if (!other)
        return false;
    if (other == this)
        return true;
    return !d->identifier.isNull() && !other->d->identifier.isNull() &&
           d->identifier == other->d->identifier;
}

QString VKEnumElement::description() const
{
    return vkFormat("<%@: %p> \"%@\" %@", className(), static_cast<const void *>(this), d->name,
                    d->identifier);
}

QVariant VKEnumElement::valueForKey(const QString &key) const
{
    if (key == u"identifier")
        return d->identifier;
    if (key == u"name")
        return d->name;
    if (key == u"representedObject")
        return d->representedObject;
    if (key == u"integerValue")
        return integerValue();
    return VKObservable::valueForKey(key);
}
