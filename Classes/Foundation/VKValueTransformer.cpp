#include "Foundation/VKValueTransformer.h"

#include "Foundation/VKException.h"

#include <QHash>

#include <mutex>

namespace {

struct Registry
{
    std::mutex mutex;
    QHash<QString, std::shared_ptr<VKValueTransformer>> transformers;
};

Registry &registry()
{
    static Registry *shared = new Registry;
    return *shared;
}

} // namespace

VKValueTransformer::~VKValueTransformer() = default;

QMetaType VKValueTransformer::transformedValueClass() const
{
    return QMetaType::fromType<QVariant>();
}

bool VKValueTransformer::allowsReverseTransformation() const
{
    return false;
}

QVariant VKValueTransformer::transformedValue(const QVariant &value) const
{
    return value;
}

QVariant VKValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    if (!allowsReverseTransformation())
        VKException::raise(VKInvalidArgumentException, "%@ does not support reverse transformation",
                           className());
    return transformedValue(value);
}

QString VKValueTransformer::className() const
{
    return QStringLiteral("VKValueTransformer");
}

void VKValueTransformer::setValueTransformer(std::shared_ptr<VKValueTransformer> transformer,
                                             const QString &name)
{
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    if (transformer)
        r.transformers.insert(name, std::move(transformer));
    else
        r.transformers.remove(name);
}

std::shared_ptr<VKValueTransformer> VKValueTransformer::valueTransformerForName(const QString &name)
{
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    return r.transformers.value(name);
}

QStringList VKValueTransformer::valueTransformerNames()
{
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    QStringList names = r.transformers.keys();
    names.sort();
    return names;
}
