#include "Interface/VKOrderedSet.h"

VKOrderedSet VKOrderedSet::orderedSetWithArray(const QVariantList &array)
{
    VKOrderedSet set;
    for (const QVariant &object : array)
        set.addObject(object);
    return set;
}

bool VKOrderedSet::addObject(const QVariant &object)
{
    // A linear search: the sets bound to controls are short, and QVariant has no general hash.
    if (m_objects.contains(object))
        return false;
    m_objects.append(object);
    return true;
}
