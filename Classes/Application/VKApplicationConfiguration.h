// What a command-line tool accepts: on/off options, options that take a value (parameters), and
// the texts around the usage listing. The frame parses the command line and prints usage from it.
#pragma once

#include "Foundation/VKExport.h"

#include <QList>
#include <QString>
#include <QVariantMap>

#include <memory>

// Keys of the configuration dictionaries (property-list files and code alike).
// clang-format off
VK_EXPORT extern const QString VKApplicationOptionConfigurationLongIdentifier;      // "longIdentifier"
VK_EXPORT extern const QString VKApplicationOptionConfigurationShortIdentifier;     // "shortIdentifier"
VK_EXPORT extern const QString VKApplicationOptionConfigurationUsageDescription;    // "usageDescription"
VK_EXPORT extern const QString VKApplicationParameterConfigurationLongIdentifier;   // "longIdentifier"
VK_EXPORT extern const QString VKApplicationParameterConfigurationShortIdentifier;  // "shortIdentifier"
VK_EXPORT extern const QString VKApplicationParameterConfigurationUsageDescription; // "usageDescription"
VK_EXPORT extern const QString VKApplicationParameterConfigurationParameterType;    // "parameterType"
VK_EXPORT extern const QString VKApplicationParameterConfigurationParameterName;    // "parameterName"
VK_EXPORT extern const QString VKApplicationConfigurationParameters;                // "parameters"
VK_EXPORT extern const QString VKApplicationConfigurationOptions;                   // "options"
// clang-format on

// One on/off option: "--longIdentifier" or "-shortIdentifier" (the short form may be longer
// than one character). A null identifier never matches a command-line token; an empty one
// matches a lone "-" or "--".
class VK_EXPORT VKApplicationOptionConfiguration
{
public:
    VKApplicationOptionConfiguration() = default;
    VKApplicationOptionConfiguration(const QString &longIdentifier, const QString &shortIdentifier,
                                     const QString &usageDescription);
    virtual ~VKApplicationOptionConfiguration();

    static std::shared_ptr<VKApplicationOptionConfiguration>
    optionConfigurationWithLongIdentifier(const QString &longIdentifier,
                                          const QString &shortIdentifier,
                                          const QString &usageDescription);
    // Reads "longIdentifier", "shortIdentifier" and "usageDescription"; other keys are ignored,
    // and a value that is not a string counts as missing.
    static std::shared_ptr<VKApplicationOptionConfiguration>
    optionConfigurationFromDictionary(const QVariantMap &dictionary);

    QString longIdentifier() const { return m_longIdentifier; }
    void setLongIdentifier(const QString &value) { m_longIdentifier = value; }
    QString shortIdentifier() const { return m_shortIdentifier; }
    void setShortIdentifier(const QString &value) { m_shortIdentifier = value; }
    QString usageDescription() const { return m_usageDescription; }
    void setUsageDescription(const QString &value) { m_usageDescription = value; }

private:
    QString m_longIdentifier;
    QString m_shortIdentifier;
    QString m_usageDescription;
};

// The kinds of value a parameter converts its command-line value to.
enum : qint32 {
    VKApplicationParameterTypeString = 0,
    VKApplicationParameterTypeInteger = 1,
    VKApplicationParameterTypeFloat = 2,
};

// An option that takes the next command-line token as its value. The value is kept as a
// string (type 0, and any unknown type), or read leniently as a 32-bit integer (1) or a
// single-precision number (2).
class VK_EXPORT VKApplicationParameterConfiguration : public VKApplicationOptionConfiguration
{
public:
    VKApplicationParameterConfiguration() = default;
    VKApplicationParameterConfiguration(const QString &longIdentifier,
                                        const QString &shortIdentifier,
                                        const QString &usageDescription, qint32 parameterType,
                                        const QString &parameterName);
    ~VKApplicationParameterConfiguration() override;

    static std::shared_ptr<VKApplicationParameterConfiguration>
    parameterConfigurationWithLongIdentifier(const QString &longIdentifier,
                                             const QString &shortIdentifier,
                                             const QString &usageDescription, qint32 parameterType,
                                             const QString &parameterName);
    // Reads the option keys plus "parameterType" (as an integer value: 0, 1 or 2; a numeric
    // string is read leniently, anything else counts as 0) and "parameterName".
    static std::shared_ptr<VKApplicationParameterConfiguration>
    parameterConfigurationFromDictionary(const QVariantMap &dictionary);

    qint32 parameterType() const { return m_parameterType; }
    void setParameterType(qint32 value) { m_parameterType = value; }
    QString parameterName() const { return m_parameterName; }
    void setParameterName(const QString &value) { m_parameterName = value; }

private:
    qint32 m_parameterType = VKApplicationParameterTypeString;
    QString m_parameterName;
};

using VKApplicationOptionConfigurationList =
    QList<std::shared_ptr<VKApplicationOptionConfiguration>>;

// Everything the frame needs to know about a tool. The order of `optionConfigurations` is the
// order of lookup (first match wins) and of the usage text.
class VK_EXPORT VKApplicationConfiguration
{
public:
    VKApplicationConfiguration() = default;
    VKApplicationConfiguration(const QString &usagePrefix, const QString &usageSuffix,
                               const VKApplicationOptionConfigurationList &optionConfigurations);
    virtual ~VKApplicationConfiguration();

    QString usagePrefix() const { return m_usagePrefix; }
    void setUsagePrefix(const QString &value) { m_usagePrefix = value; }
    QString usageSuffix() const { return m_usageSuffix; }
    void setUsageSuffix(const QString &value) { m_usageSuffix = value; }
    VKApplicationOptionConfigurationList optionConfigurations() const
    {
        return m_optionConfigurations;
    }
    void setOptionConfigurations(const VKApplicationOptionConfigurationList &value)
    {
        m_optionConfigurations = value;
    }

private:
    QString m_usagePrefix;
    QString m_usageSuffix;
    VKApplicationOptionConfigurationList m_optionConfigurations;
};
