// An ordered collection without duplicates: elements keep the order they were first added in,
// and adding an element equal to one already held changes nothing.
#pragma once

#include "Foundation/VKExport.h"

#include <QMetaType>
#include <QVariant>
#include <QVariantList>

class VK_EXPORT VKOrderedSet
{
public:
    VKOrderedSet() = default;
    // The array's elements in order, later duplicates dropped.
    static VKOrderedSet orderedSetWithArray(const QVariantList &array);

    qsizetype count() const { return m_objects.size(); }
    QVariant objectAtIndex(qsizetype index) const { return m_objects.at(index); }
    // Elements are equal as QVariant compares them (1 and 1.0 are the same element).
    bool containsObject(const QVariant &object) const { return m_objects.contains(object); }
    // Answers whether the element was added (false when an equal one is already held).
    bool addObject(const QVariant &object);
    QVariantList array() const { return m_objects; }

    bool operator==(const VKOrderedSet &other) const { return m_objects == other.m_objects; }

private:
    QVariantList m_objects;
};

Q_DECLARE_METATYPE(VKOrderedSet)
