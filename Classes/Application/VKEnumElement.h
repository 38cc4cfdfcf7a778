// One possible value of an enumeration (VKEnum): a stable identifier stored in the user defaults,
// a name shown to the user and the program value behind it.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <QString>
#include <QVariant>

#include <memory>

// Its keys for value-by-key access are "identifier", "name", "representedObject" and
// "integerValue". Subclasses that carry a "value" answer it from valueForKey(); the base element
// has none, so VKEnum::elementValues() throws for it.
class VK_EXPORT VKEnumElement : public VKObservable
{
public:
    VKEnumElement(const QString &identifier, const QString &name,
                  const QVariant &representedObject);
    ~VKEnumElement() override;

    // A new element (named "source" for historical reasons).
    static std::shared_ptr<VKEnumElement> sourceWithIdentifier(const QString &identifier,
                                                               const QString &name,
                                                               const QVariant &representedObject);

    QString identifier() const;
    QString name() const;
    QVariant representedObject() const;
    // The represented object as an integer: numbers truncated toward zero, booleans as 0 or 1,
    // text read leniently ("12abc" is 12); 0 for anything else.
    qint64 integerValue() const;

    // Same identifier, both non-null: two elements without identifiers are never equal.
    bool isEqual(const VKEnumElement *other) const;

    // "<Class: 0x...> \"name\" identifier", null texts as (null).
    virtual QString description() const;

    QVariant valueForKey(const QString &key) const override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

Q_DECLARE_METATYPE(std::shared_ptr<VKEnumElement>)
