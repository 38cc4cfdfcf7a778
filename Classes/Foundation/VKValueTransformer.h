// Value transformers convert a model value into the form a control shows, and optionally back.
// Subclasses answer the kind of value they produce and whether they can reverse; a registry
// keeps shared transformers under names for hosts that look them up by name.
#pragma once

#include "Foundation/VKExport.h"

#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

class VK_EXPORT VKValueTransformer
{
public:
    virtual ~VKValueTransformer();

    // The kind of value transformedValue() produces (QMetaType::fromType<QString>() for text).
    virtual QMetaType transformedValueClass() const;
    // Whether reverseTransformedValue() may be used. The default is false.
    virtual bool allowsReverseTransformation() const;
    // The default answers the value unchanged.
    virtual QVariant transformedValue(const QVariant &value) const;
    // The default applies transformedValue() when reversing is allowed and otherwise throws
    // VKInvalidArgumentException with the reason "<name> does not support reverse
    // transformation", <name> being className().
    virtual QVariant reverseTransformedValue(const QVariant &value) const;
    // Used in messages; subclasses answer their own class name.
    virtual QString className() const;

    // Registry of shared transformers by name (thread-safe). Setting a null transformer
    // removes the name.
    static void setValueTransformer(std::shared_ptr<VKValueTransformer> transformer,
                                    const QString &name);
    static std::shared_ptr<VKValueTransformer> valueTransformerForName(const QString &name);
    static QStringList valueTransformerNames();
};
