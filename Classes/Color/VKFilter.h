// An image filter: named input values set by key ("inputImage" and parameters), described by
// attributes, and an output image ("outputImage") made from them. Filters are made by name from
// the filters registered with the framework (classes of this library and of loaded plug-ins)
// and from every GEGL operation, which is a filter under its own name ("gegl:exposure").
#pragma once

#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKCoding.h"
#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <functional>
#include <memory>

class VKImage;

// Keys of the image input and output.
VK_EXPORT extern const QString VKFilterInputImageKey;  // "inputImage"
VK_EXPORT extern const QString VKFilterOutputImageKey; // "outputImage"

// Keys of attributes(): the filter's name and display name, then one dictionary per input key.
VK_EXPORT extern const QString VKAttributeFilterName;        // "VKAttributeFilterName"
VK_EXPORT extern const QString VKAttributeFilterDisplayName; // "VKAttributeFilterDisplayName"
// Keys of the dictionary of one input key.
VK_EXPORT extern const QString VKAttributeType;        // "VKAttributeType", one of the types below
VK_EXPORT extern const QString VKAttributeMin;         // "VKAttributeMin"
VK_EXPORT extern const QString VKAttributeMax;         // "VKAttributeMax"
VK_EXPORT extern const QString VKAttributeDefault;     // "VKAttributeDefault"
VK_EXPORT extern const QString VKAttributeDescription; // "VKAttributeDescription"
// Value types of VKAttributeType; enumerations list their names under VKAttributeEnumNames
// and take the name (or its index).
VK_EXPORT extern const QString VKAttributeTypeImage;   // "image" (a VKImage)
VK_EXPORT extern const QString VKAttributeTypeDouble;  // "double"
VK_EXPORT extern const QString VKAttributeTypeInteger; // "integer"
VK_EXPORT extern const QString VKAttributeTypeBoolean; // "boolean"
VK_EXPORT extern const QString VKAttributeTypeString;  // "string"
VK_EXPORT extern const QString VKAttributeTypeEnum;    // "enum"
VK_EXPORT extern const QString VKAttributeTypeColor;   // "color" (QColor or VKRGBTriple)
VK_EXPORT extern const QString VKAttributeTypeTriple;  // "triple" (a VKTriple of the named kind)
VK_EXPORT extern const QString VKAttributeEnumNames;   // "VKAttributeEnumNames"

// Filters live in std::shared_ptr. Values are kept as given; filters convert them when they
// build their output. Setting or reading a key the filter does not declare goes to the
// undefined-key handlers, which throw VKUndefinedKeyException unless a subclass answers them.
// A filter is used from one thread at a time; the images it answers may be rendered anywhere.
class VK_EXPORT VKFilter : public VKObservable, public VKCoding
{
public:
    using Factory = std::function<std::shared_ptr<VKFilter>()>;

    ~VKFilter() override;

    // A new filter of that name: a registered filter, else the GEGL operation of that name;
    // null when neither exists. Values are not set to their defaults (see setDefaults()).
    static std::shared_ptr<VKFilter> filterWithName(const QString &name);
    // Every name filterWithName() answers now: the registered filters (sorted), then the GEGL
    // operations (sorted).
    static QStringList filterNames();
    static bool isFilterNameKnown(const QString &name);

    // Makes `name` known to the framework; plug-ins call this (through VK_REGISTER_FILTER)
    // when their code loads. A later registration of the same name replaces the earlier one.
    static void registerFilter(const QString &name, Factory factory);
    static bool unregisterFilter(const QString &name);

    // The name it was made under.
    QString name() const;

    // Keys that take values, "inputImage" first when the filter reads an image.
    virtual QStringList inputKeys() const;
    // inputKeys() without the image inputs.
    QStringList inputParameterKeys() const;
    // Default: "outputImage".
    virtual QStringList outputKeys() const;
    // Per input key, its dictionary (type, minimum, maximum, default, description).
    virtual QVariantMap customAttributes() const;
    // customAttributes() plus the filter's name and display name.
    QVariantMap attributes() const;
    // Sets every input key that has a default to it (image inputs are left alone).
    virtual void setDefaults();

    // The result of the current values; the null image when a needed input is missing. Each
    // call makes a new recipe, so later value changes do not alter images already answered.
    virtual VKImage outputImage();

    // Declared input keys answer their value (null when never set) and "outputImage" the
    // output as a VKImage; other keys go to the undefined-key handlers.
    QVariant valueForKey(const QString &key) const override;
    void setValueForKey(const QVariant &value, const QString &key) override;

    QString className() const override;

    // The filter's own archive keys: "VKFilterName" and "VKFilterInputValues" (the parameter
    // values that are numbers, booleans, strings, colours or triples; images are not kept).
    QString classNameForCoder() const override;
    void encodeWithCoder(VKKeyedArchiver &coder) const override;
    bool initWithCoder(VKKeyedUnarchiver &coder) override;

protected:
    // Subclasses declare their input keys in their constructor.
    explicit VKFilter(const QString &name);
    // Adds an input key with its attribute dictionary (at least VKAttributeType).
    void declareInputKey(const QString &key, const QVariantMap &attributes);
    // For subclasses whose keys depend on the name they are decoded with (operation filters):
    // called by initWithCoder() before the values are read. Answer false to fail decoding.
    virtual bool setUpForName(const QString &name);
    void setName(const QString &name);
    // The stored value, without the undefined-key path.
    QVariant inputValue(const QString &key) const;
    // The input image under `key` (null when unset or not an image).
    VKImage inputImage(const QString &key = QStringLiteral("inputImage")) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

// Registers a VKFilter subclass as a filter and as an archivable class under one name, from a
// static initialiser (a plug-in's code registers its filters when it loads):
//   VK_REGISTER_FILTER(GradeFilter, "Grade")
#define VK_REGISTER_FILTER(ClassName, FilterName)                                                  \
    namespace {                                                                                    \
    [[maybe_unused]] const bool vkFilterRegistered_##ClassName = [] {                              \
        VKClassRegistry::registerClass<ClassName, VKFilter>(QStringLiteral(FilterName),            \
                                                            QStringLiteral("VKFilter"));           \
        VKFilter::registerFilter(QStringLiteral(FilterName),                                       \
                                 [] { return std::make_shared<ClassName>(); });                    \
        return true;                                                                               \
    }();                                                                                           \
    }
