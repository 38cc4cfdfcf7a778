#include "Color/VKAbstractCompoundFilterProvider.h"

#include "Color/VKFilter.h"
#include "Foundation/VKClassRegistry.h"

VK_REGISTER_ROOT_CLASS(VKAbstractCompoundFilterProvider)

VKAbstractCompoundFilterProvider::VKAbstractCompoundFilterProvider() = default;
VKAbstractCompoundFilterProvider::~VKAbstractCompoundFilterProvider() = default;

QStringList VKAbstractCompoundFilterProvider::filterNames() const
{
    return {};
}

std::shared_ptr<VKFilter> VKAbstractCompoundFilterProvider::filterWithName(const QString &,
                                                                           const QVariantMap &)
{
    return nullptr;
}
