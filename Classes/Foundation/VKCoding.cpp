#include "Foundation/VKCoding.h"

#include "Foundation/VKClassRegistry.h"

// Registered by name so that archivable classes can name it as their base and the registry can
// answer whether a class is archivable at all.
VK_REGISTER_ROOT_CLASS(VKCoding)

VKCoding::~VKCoding() = default;

QVariant VKCoding::variantWithObject(const std::shared_ptr<VKCoding> &object)
{
    return QVariant::fromValue(object);
}

std::shared_ptr<VKCoding> VKCoding::objectFromVariant(const QVariant &value)
{
    if (value.metaType() != QMetaType::fromType<std::shared_ptr<VKCoding>>())
        return nullptr;
    return value.value<std::shared_ptr<VKCoding>>();
}
