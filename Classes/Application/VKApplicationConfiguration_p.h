// Private parts of the command-line configuration classes; internal to the library and to
// subclasses that extend them.
#pragma once

#include "Application/VKApplicationConfiguration.h"

class VKApplicationOptionConfigurationPrivate
{
public:
    virtual ~VKApplicationOptionConfigurationPrivate() = default;

    QString longIdentifier;
    QString shortIdentifier;
    QString usageDescription;
};

class VKApplicationParameterConfigurationPrivate : public VKApplicationOptionConfigurationPrivate
{
public:
    VKApplicationParameterType parameterType = VKApplicationParameterTypeString;
    QString parameterName;
};

class VKApplicationConfigurationPrivate
{
public:
    QString usagePrefix;
    QString usageSuffix;
    VKApplicationOptionConfigurationList optionConfigurations;
};
