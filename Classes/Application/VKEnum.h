// An application setting that takes one of a fixed list of values: a subclass lists its elements
// once for the class, an instance holds the selected one and, given a user-defaults key, keeps it
// in the standard user defaults and follows changes made to them.
//
// Declaring an enumeration:
//
//   class VKFrameDisplayEnum : public VKEnum
//   {
//       VK_ENUM(VKFrameDisplayEnum)
//   public:
//       static QList<std::shared_ptr<VKEnumElement>> elements()
//       {
//           static const QList<std::shared_ptr<VKEnumElement>> list{
//               VKEnumElement::sourceWithIdentifier("timecode", "Timecode", 0),
//               VKEnumElement::sourceWithIdentifier("frames", "Frames", 1)};
//           return list;
//       }
//       static std::shared_ptr<VKEnumElement> defaultElement() { return elements().first(); }
//   };
//
//   auto display = VKFrameDisplayEnum::enumWithUserDefaultsKey("frameDisplay");
//   display->setSelectedIdentifier("frames"); // stored, observable, posted
//
// Without its own defaultElement() a subclass inherits the base's: a new element with null fields.
#pragma once

#include "Application/VKEnumElement.h"
#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <memory>
#include <type_traits>

class VKNotification;

// Posted with the enumeration (as a VKEnum pointer) as object and no user information, on the
// thread that changed the selection. Its value is its own name.
VK_EXPORT extern const QString VDEnumSelectedElementDidChangeNotification;

// Observable keys: "selectedElement" and "selectedIdentifier" (announced by the class itself),
// "selectedName" and "selectedIndex" (which follow "selectedElement", as "selectedIdentifier"
// also does) and "userDefaultsKey". Not thread-safe: use an instance from one thread at a time;
// a change of the defaults made on another thread reaches it on that thread.
//
// Instances are made in two steps by the class operations below (or VK_ENUM's forms of them):
// the constructor, then the initialisation, which needs the subclass's element list and so
// cannot run inside the base constructor.
class VK_EXPORT VKEnum : public VKObservable
{
public:
    ~VKEnum() override;

    // A new instance without a user-defaults key.
    static std::shared_ptr<VKEnum> enumm();
    static std::shared_ptr<VKEnum> enumWithSelectedIdentifier(const QString &identifier);
    static std::shared_ptr<VKEnum>
    enumWithSelectedElement(const std::shared_ptr<VKEnumElement> &element);
    // A new instance keeping its selection under `key` (none when null).
    static std::shared_ptr<VKEnum> enumWithUserDefaultsKey(const QString &key);

    // The element selected when nothing else is. The base class answers a new element with null
    // fields on every call; subclasses hide this with their own.
    static std::shared_ptr<VKEnumElement> defaultElement();

    // The class's elements in order (subclasses declare a static elements(); the base class has
    // none), their "name" and their "value" values. elementValues() throws
    // VKUndefinedKeyException for elements without a "value".
    QList<std::shared_ptr<VKEnumElement>> elements() const;
    QStringList elementNames() const;
    QVariantList elementValues() const;
    QStringList possibleKeys() const;
    QVariantList possibleValues() const;

    // Never null after initialisation: null selects the class's default element. Selecting the
    // element already selected (the same object) does nothing; an equal but other object counts
    // as a change.
    std::shared_ptr<VKEnumElement> selectedElement() const;
    void setSelectedElement(std::shared_ptr<VKEnumElement> element);
    // The first element with that identifier; null means the default element's identifier. An
    // unknown identifier leaves the selection, but "selectedIdentifier" is announced anyway.
    QString selectedIdentifier() const;
    void setSelectedIdentifier(QString identifier);
    // The first element with that name, else the default element.
    QString selectedName() const;
    void setSelectedName(const QString &name);
    // The selected element's position by equality, or VKNotFound. A position past the end
    // selects the default element.
    qint64 selectedIndex() const;
    void setSelectedIndex(quint64 index);

    QString userDefaultsKey() const;
    // Setting a key enters the default element's identifier there as a fallback value, loads the
    // stored selection, follows later changes and writes the selection back; null stops
    // following.
    void setUserDefaultsKey(const QString &key);

    // Re-reads the selection stored under userDefaultsKey().
    void userDefaultsDidChange(const VKNotification &notification);

    // "<Class: 0x...>{\n", then "\t<element description>" per element, with " (selected)" after
    // the selected one, each line ended by "\n", then "}\n".
    virtual QString description() const;

    bool automaticallyNotifiesObserversForKey(const QString &key) const override;
    QSet<QString> keyPathsForValuesAffectingValueForKey(const QString &key) const override;
    QVariant valueForKey(const QString &key) const override;
    void setValueForKey(const QVariant &value, const QString &key) override;

protected:
    // The first step; only the class operations and VK_ENUM call it.
    VKEnum();
    // The second step, once the object is complete: observe itself, select the default element,
    // then store the key (which loads the stored selection).
    void initWithUserDefaultsKey(const QString &key);

    // The class-level list and default element of the object's class; VK_ENUM provides them.
    virtual QList<std::shared_ptr<VKEnumElement>> classElements() const;
    virtual std::shared_ptr<VKEnumElement> classDefaultElement() const;

    template <typename E>
    static std::shared_ptr<E> makeEnum(E *object, const QString &key)
    {
        std::shared_ptr<E> made(object);
        made->initWithUserDefaultsKey(key);
        return made;
    }

private:
    void selectedElementDidChange();
    void userDefaultsKeyDidChange();

    struct Private;
    std::unique_ptr<Private> d;
};

// Inside the class body of a VKEnum subclass: the class operations typed for it, and its class
// elements and default element for the base class. The class declares a static elements().
#define VK_ENUM(ClassName)                                                                         \
public:                                                                                            \
    static std::shared_ptr<ClassName> enumm()                                                      \
    {                                                                                              \
        return makeEnum(new ClassName, QString());                                                 \
    }                                                                                              \
    static std::shared_ptr<ClassName> enumWithUserDefaultsKey(const QString &key)                  \
    {                                                                                              \
        return makeEnum(new ClassName, key);                                                       \
    }                                                                                              \
    static std::shared_ptr<ClassName> enumWithSelectedIdentifier(const QString &identifier)        \
    {                                                                                              \
        auto made = enumm();                                                                       \
        made->setSelectedIdentifier(identifier);                                                   \
        return made;                                                                               \
    }                                                                                              \
    static std::shared_ptr<ClassName> enumWithSelectedElement(                                     \
        const std::shared_ptr<VKEnumElement> &element)                                             \
    {                                                                                              \
        auto made = enumm();                                                                       \
        made->setSelectedElement(element);                                                         \
        return made;                                                                               \
    }                                                                                              \
                                                                                                   \
protected:                                                                                         \
    ClassName() = default;                                                                         \
    QList<std::shared_ptr<VKEnumElement>> classElements() const override                           \
    {                                                                                              \
        static_assert(std::is_same_v<decltype(&ClassName::elements),                               \
                                     QList<std::shared_ptr<VKEnumElement>> (*)()>,                 \
                      #ClassName " must declare static elements()");                               \
        return ClassName::elements();                                                              \
    }                                                                                              \
    std::shared_ptr<VKEnumElement> classDefaultElement() const override                            \
    {                                                                                              \
        return ClassName::defaultElement();                                                        \
    }                                                                                              \
                                                                                                   \
private:
