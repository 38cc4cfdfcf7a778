// Base of the classes that build filters (often graphs of other filters) for names they declare.
// The filter factory finds every registered class whose name ends in "FilterProvider" and that
// derives from this one, and asks it for the names it declares.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

class VKFilter;

// Register subclasses with VK_REGISTER_CLASS(MyFilterProvider, VKAbstractCompoundFilterProvider).
class VK_EXPORT VKAbstractCompoundFilterProvider
{
public:
    VKAbstractCompoundFilterProvider();
    virtual ~VKAbstractCompoundFilterProvider();

    // The names this provider builds. The base answers none.
    virtual QStringList filterNames() const;
    // A new filter for one of filterNames(); the base answers null.
    virtual std::shared_ptr<VKFilter> filterWithName(const QString &name,
                                                     const QVariantMap &options);
};
