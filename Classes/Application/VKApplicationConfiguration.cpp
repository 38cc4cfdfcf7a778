#include "Application/VKApplicationConfiguration.h"

#include "Foundation/VKNumber.h"
#include "Foundation/VKStringRanges.h"

#include <QMetaType>

#include <cmath>
#include <limits>

const QString VKApplicationOptionConfigurationLongIdentifier = QStringLiteral("longIdentifier");
const QString VKApplicationOptionConfigurationShortIdentifier = QStringLiteral("shortIdentifier");
const QString VKApplicationOptionConfigurationUsageDescription = QStringLiteral("usageDescription");
const QString VKApplicationParameterConfigurationLongIdentifier = QStringLiteral("longIdentifier");
const QString VKApplicationParameterConfigurationShortIdentifier =
    QStringLiteral("shortIdentifier");
const QString VKApplicationParameterConfigurationUsageDescription =
    QStringLiteral("usageDescription");
const QString VKApplicationParameterConfigurationParameterType = QStringLiteral("parameterType");
const QString VKApplicationParameterConfigurationParameterName = QStringLiteral("parameterName");
const QString VKApplicationConfigurationParameters = QStringLiteral("parameters");
const QString VKApplicationConfigurationOptions = QStringLiteral("options");

namespace {

// A dictionary value that should be a string: anything else counts as missing (null).
QString stringValue(const QVariantMap &dictionary, const QString &key)
{
    const QVariant value = dictionary.value(key);
    if (value.metaType().id() != QMetaType::QString)
        return QString();
    return value.toString();
}

// The integer value of a number or of a numeric string, as a 32-bit integer.
qint32 intValue(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::QString:
        return VKStringRanges::intValue(value.toString());
    case QMetaType::Bool:
        return value.toBool() ? 1 : 0;
    case QMetaType::Double:
    case QMetaType::Float: {
        const double d = value.toDouble();
        if (std::isnan(d))
            return 0;
        if (d >= static_cast<double>(std::numeric_limits<qint32>::max()))
            return std::numeric_limits<qint32>::max();
        if (d <= static_cast<double>(std::numeric_limits<qint32>::min()))
            return std::numeric_limits<qint32>::min();
        return static_cast<qint32>(d);
    }
    default:
        // Other numbers are integers: narrowing keeps the low 32 bits, as a C cast does.
        if (VKNumber::isNumber(value))
            return static_cast<qint32>(static_cast<quint32>(value.toULongLong()));
        return 0;
    }
}

} // namespace

VKApplicationOptionConfiguration::VKApplicationOptionConfiguration(const QString &longIdentifier,
                                                                   const QString &shortIdentifier,
                                                                   const QString &usageDescription)
    : m_longIdentifier(longIdentifier), m_shortIdentifier(shortIdentifier),
      m_usageDescription(usageDescription)
{}

VKApplicationOptionConfiguration::~VKApplicationOptionConfiguration() = default;

std::shared_ptr<VKApplicationOptionConfiguration>
VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
    const QString &longIdentifier, const QString &shortIdentifier, const QString &usageDescription)
{
    return std::make_shared<VKApplicationOptionConfiguration>(longIdentifier, shortIdentifier,
                                                              usageDescription);
}

std::shared_ptr<VKApplicationOptionConfiguration>
VKApplicationOptionConfiguration::optionConfigurationFromDictionary(const QVariantMap &dictionary)
{
    return optionConfigurationWithLongIdentifier(
        stringValue(dictionary, VKApplicationOptionConfigurationLongIdentifier),
        stringValue(dictionary, VKApplicationOptionConfigurationShortIdentifier),
        stringValue(dictionary, VKApplicationOptionConfigurationUsageDescription));
}

VKApplicationParameterConfiguration::VKApplicationParameterConfiguration(
    const QString &longIdentifier, const QString &shortIdentifier, const QString &usageDescription,
    qint32 parameterType, const QString &parameterName)
    : VKApplicationOptionConfiguration(longIdentifier, shortIdentifier, usageDescription),
      m_parameterType(parameterType), m_parameterName(parameterName)
{}

VKApplicationParameterConfiguration::~VKApplicationParameterConfiguration() = default;

std::shared_ptr<VKApplicationParameterConfiguration>
VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
    const QString &longIdentifier, const QString &shortIdentifier, const QString &usageDescription,
    qint32 parameterType, const QString &parameterName)
{
    return std::make_shared<VKApplicationParameterConfiguration>(
        longIdentifier, shortIdentifier, usageDescription, parameterType, parameterName);
}

std::shared_ptr<VKApplicationParameterConfiguration>
VKApplicationParameterConfiguration::parameterConfigurationFromDictionary(
    const QVariantMap &dictionary)
{
    return parameterConfigurationWithLongIdentifier(
        stringValue(dictionary, VKApplicationParameterConfigurationLongIdentifier),
        stringValue(dictionary, VKApplicationParameterConfigurationShortIdentifier),
        stringValue(dictionary, VKApplicationParameterConfigurationUsageDescription),
        intValue(dictionary.value(VKApplicationParameterConfigurationParameterType)),
        stringValue(dictionary, VKApplicationParameterConfigurationParameterName));
}

VKApplicationConfiguration::VKApplicationConfiguration(
    const QString &usagePrefix, const QString &usageSuffix,
    const VKApplicationOptionConfigurationList &optionConfigurations)
    : m_usagePrefix(usagePrefix), m_usageSuffix(usageSuffix),
      m_optionConfigurations(optionConfigurations)
{}

VKApplicationConfiguration::~VKApplicationConfiguration() = default;
