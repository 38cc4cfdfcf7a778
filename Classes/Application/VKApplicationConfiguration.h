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

class VKApplicationOptionConfigurationPrivate;
class VKApplicationParameterConfigurationPrivate;
class VKApplicationConfigurationPrivate;

// The kinds of value a parameter converts its command-line value to. Any other number keeps
// the text, like VKApplicationParameterTypeString.
enum VKApplicationParameterType : qint32 {
    VKApplicationParameterTypeString = 0,
    VKApplicationParameterTypeInteger = 1,
    VKApplicationParameterTypeFloat = 2,
};

// One on/off option: "--longIdentifier" or "-shortIdentifier" (the short form may be longer
// than one character). A null identifier never matches a command-line token; an empty one
// matches a lone "-" or "--".
class VK_EXPORT VKApplicationOptionConfiguration
{
public:
    VKApplicationOptionConfiguration();
    VKApplicationOptionConfiguration(const QString &longIdentifier, const QString &shortIdentifier,
                                     const QString &usageDescription);
    virtual ~VKApplicationOptionConfiguration();
    VKApplicationOptionConfiguration(const VKApplicationOptionConfiguration &) = delete;
    VKApplicationOptionConfiguration &operator=(const VKApplicationOptionConfiguration &) = delete;

    static std::shared_ptr<VKApplicationOptionConfiguration>
    optionConfigurationWithLongIdentifier(const QString &longIdentifier,
                                          const QString &shortIdentifier,
                                          const QString &usageDescription);
    // Reads "longIdentifier", "shortIdentifier" and "usageDescription"; other keys are ignored,
    // and a value that is not a string counts as missing.
    static std::shared_ptr<VKApplicationOptionConfiguration>
    optionConfigurationFromDictionary(const QVariantMap &dictionary);

    QString longIdentifier() const;
    void setLongIdentifier(const QString &value);
    QString shortIdentifier() const;
    void setShortIdentifier(const QString &value);
    QString usageDescription() const;
    void setUsageDescription(const QString &value);

protected:
    // For subclasses that extend the private part.
    explicit VKApplicationOptionConfiguration(VKApplicationOptionConfigurationPrivate &dd);
    std::unique_ptr<VKApplicationOptionConfigurationPrivate> d_ptr;
};

// An option that takes the next command-line token as its value. The value is kept as a
// string (type 0, and any unknown type), or read leniently as a 32-bit integer (1) or a
// single-precision number (2).
class VK_EXPORT VKApplicationParameterConfiguration : public VKApplicationOptionConfiguration
{
public:
    VKApplicationParameterConfiguration();
    VKApplicationParameterConfiguration(const QString &longIdentifier,
                                        const QString &shortIdentifier,
                                        const QString &usageDescription,
                                        VKApplicationParameterType parameterType,
                                        const QString &parameterName);
    ~VKApplicationParameterConfiguration() override;

    static std::shared_ptr<VKApplicationParameterConfiguration>
    parameterConfigurationWithLongIdentifier(const QString &longIdentifier,
                                             const QString &shortIdentifier,
                                             const QString &usageDescription,
                                             VKApplicationParameterType parameterType,
                                             const QString &parameterName);
    // Reads the option keys plus "parameterType" (as an integer value: 0, 1 or 2; a numeric
    // string is read leniently, a boolean is 0 or 1, anything else counts as 0) and
    // "parameterName".
    static std::shared_ptr<VKApplicationParameterConfiguration>
    parameterConfigurationFromDictionary(const QVariantMap &dictionary);

    VKApplicationParameterType parameterType() const;
    void setParameterType(VKApplicationParameterType value);
    QString parameterName() const;
    void setParameterName(const QString &value);

protected:
    explicit VKApplicationParameterConfiguration(VKApplicationParameterConfigurationPrivate &dd);

private:
    VKApplicationParameterConfigurationPrivate &d();
    const VKApplicationParameterConfigurationPrivate &d() const;
};

using VKApplicationOptionConfigurationList =
    QList<std::shared_ptr<VKApplicationOptionConfiguration>>;

// Everything the frame needs to know about a tool. The order of `optionConfigurations` is the
// order of lookup (first match wins) and of the usage text.
class VK_EXPORT VKApplicationConfiguration
{
public:
    VKApplicationConfiguration();
    VKApplicationConfiguration(const QString &usagePrefix, const QString &usageSuffix,
                               const VKApplicationOptionConfigurationList &optionConfigurations);
    virtual ~VKApplicationConfiguration();
    VKApplicationConfiguration(const VKApplicationConfiguration &) = delete;
    VKApplicationConfiguration &operator=(const VKApplicationConfiguration &) = delete;

    QString usagePrefix() const;
    void setUsagePrefix(const QString &value);
    QString usageSuffix() const;
    void setUsageSuffix(const QString &value);
    VKApplicationOptionConfigurationList optionConfigurations() const;
    void setOptionConfigurations(const VKApplicationOptionConfigurationList &value);

private:
    std::unique_ptr<VKApplicationConfigurationPrivate> d;
};
