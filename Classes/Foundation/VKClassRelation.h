// The "is kind of class" test between two objects of one polymorphic hierarchy: whether an
// object is an instance of another object's class or of a class derived from it, found at run
// time without each class declaring its place in the hierarchy.
#pragma once

#include "Foundation/VKExport.h"

#include <type_traits>
#include <typeinfo>

class VK_EXPORT VKClassRelation
{
public:
    // True when the dynamic class of `object` is the dynamic class of `classOf` or derives from
    // it (publicly and unambiguously). `Base` is any polymorphic class both objects share.
    template <typename Base>
    static bool isKindOfClassOf(const Base &object, const Base &classOf)
    {
        static_assert(std::is_polymorphic_v<Base>, "the relation needs run-time type information");
        return isKindOf(dynamic_cast<const void *>(&object), typeid(object), typeid(classOf));
    }

private:
    // `object` points to the most derived object, whose class is `objectClass`.
    static bool isKindOf(const void *object, const std::type_info &objectClass,
                         const std::type_info &targetClass);
};
