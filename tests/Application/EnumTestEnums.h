// Enumerations declared the way hosts declare them, shared by the enumeration tests and the
// probe program that keeps a selection across runs.
#pragma once

#include "Application/VKEnum.h"

// Three display modes; the first is the default.
class VKTestDisplayEnum : public VKEnum
{
    VK_ENUM(VKTestDisplayEnum)
public:
    static QList<std::shared_ptr<VKEnumElement>> elements()
    {
        static const QList<std::shared_ptr<VKEnumElement>> list{
            VKEnumElement::sourceWithIdentifier("timecode", "Timecode", 0),
            VKEnumElement::sourceWithIdentifier("frames", "Frames", 1),
            VKEnumElement::sourceWithIdentifier("feet", "Feet", 2)};
        return list;
    }
    static std::shared_ptr<VKEnumElement> defaultElement() { return elements().first(); }
};

// An element that carries a "value", as elementValues() needs.
class VKTestValueElement : public VKEnumElement
{
public:
    using VKEnumElement::VKEnumElement;
    QVariant valueForKey(const QString &key) const override
    {
        if (key == u"value")
            return representedObject().toDouble() * 1000;
        return VKEnumElement::valueForKey(key);
    }
};

// Two rates, with values; without a defaultElement() of its own it inherits the base class's
// (a new element with null fields each time).
class VKTestRateEnum : public VKEnum
{
    VK_ENUM(VKTestRateEnum)
public:
    static QList<std::shared_ptr<VKEnumElement>> elements()
    {
        static const QList<std::shared_ptr<VKEnumElement>> list{
            std::make_shared<VKTestValueElement>("24", "24 fps", 0.024),
            std::make_shared<VKTestValueElement>("25", "25 fps", 0.025)};
        return list;
    }
};
