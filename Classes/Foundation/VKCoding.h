// The coding protocol: objects that a VKKeyedArchiver can write and a VKKeyedUnarchiver can
// make again by class name (through VKClassRegistry) and fill from the archive.
#pragma once

#include "Foundation/VKExport.h"

#include <QMetaType>
#include <QString>
#include <QVariant>

#include <memory>

class VKKeyedArchiver;
class VKKeyedUnarchiver;

// Base of every archivable class. A subclass names itself with VK_CODING_CLASS, registers
// with VK_REGISTER_CLASS(Name, Base) (VKCoding or an archivable base) so that it can be made
// by name, and writes and reads its state under keys of its own choosing.
class VK_EXPORT VKCoding
{
public:
    virtual ~VKCoding();

    // The name written to archives; the name the class is registered under.
    virtual QString classNameForCoder() const = 0;
    // Writes the object's state through `coder`.
    virtual void encodeWithCoder(VKKeyedArchiver &coder) const = 0;
    // Reads the object's state into a newly made object. The unarchiver already knows the
    // object, so references back to it (cycles) resolve to this same object while it is still
    // being read. Answer false, or call coder.failWithError(), to fail the whole decoding.
    virtual bool initWithCoder(VKKeyedUnarchiver &coder) = 0;

    // An object inside a QVariant (collections of values may hold objects this way), and back:
    // null when the variant holds no object.
    static QVariant variantWithObject(const std::shared_ptr<VKCoding> &object);
    static std::shared_ptr<VKCoding> objectFromVariant(const QVariant &value);
};

Q_DECLARE_METATYPE(std::shared_ptr<VKCoding>)

// Inside a class body: names the class for archives.
//   class VKFilterConnection : public VKCoding { VK_CODING_CLASS(VKFilterConnection) ... };
#define VK_CODING_CLASS(ClassName)                                                                 \
public:                                                                                            \
    QString classNameForCoder() const override                                                     \
    {                                                                                              \
        return QStringLiteral(#ClassName);                                                         \
    }                                                                                              \
                                                                                                   \
private:
