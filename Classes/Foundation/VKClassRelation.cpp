#include "Foundation/VKClassRelation.h"

#include <cxxabi.h>

bool VKClassRelation::isKindOf(const void *object, const std::type_info &objectClass,
                               const std::type_info &targetClass)
{
    if (objectClass == targetClass)
        return true;
#if defined(__GLIBCXX__)
    // The test a catch clause makes: whether an object of `objectClass` can be taken as a
    // `targetClass`, that is, whether the target is one of its public, unambiguous bases.
    const auto *target = dynamic_cast<const abi::__class_type_info *>(&targetClass);
    if (!target)
        return false;
    void *adjusted = const_cast<void *>(object);
    return objectClass.__do_upcast(target, &adjusted);
#else
    // Without the C++ runtime's class relation only the exact class is known.
    (void)object;
    return false;
#endif
}
