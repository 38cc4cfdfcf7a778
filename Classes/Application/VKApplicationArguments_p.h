// Private part of VKApplicationArguments; internal to the library and to subclasses that extend
// it.
#pragma once

#include "Application/VKApplicationArguments.h"

class VKApplicationArgumentsPrivate
{
public:
    virtual ~VKApplicationArgumentsPrivate() = default;

    QStringList arguments;
    QVariantMap parameters;
    QStringList options;
};
