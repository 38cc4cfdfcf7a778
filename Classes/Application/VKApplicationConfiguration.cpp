#include "Application/VKApplicationConfiguration.h"

#include "Application/VKApplicationConfiguration_p.h"

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

// --- VKApplicationOptionConfiguration ----------------------------------------------------------

VKApplicationOptionConfiguration::VKApplicationOptionConfiguration()
    : d_ptr(std::make_unique<VKApplicationOptionConfigurationPrivate>())
{}

VKApplicationOptionConfiguration::VKApplicationOptionConfiguration(const QString &longIdentifier,
                                                                   const QString &shortIdentifier,
                                                                   const QString &usageDescription)
    : VKApplicationOptionConfiguration()
{
    d_ptr->longIdentifier = longIdentifier;
    d_ptr->shortIdentifier = shortIdentifier;
    d_ptr->usageDescription = usageDescription;
}

VKApplicationOptionConfiguration::VKApplicationOptionConfiguration(
    VKApplicationOptionConfigurationPrivate &dd)
    : d_ptr(&dd)
{}

VKApplicationOptionConfiguration::~VKApplicationOptionConfiguration() = default;

QString VKApplicationOptionConfiguration::longIdentifier() const
{
    return d_ptr->longIdentifier;
}

void VKApplicationOptionConfiguration::setLongIdentifier(const QString &value)
{
    d_ptr->longIdentifier = value;
}

QString VKApplicationOptionConfiguration::shortIdentifier() const
{
    return d_ptr->shortIdentifier;
}

void VKApplicationOptionConfiguration::setShortIdentifier(const QString &value)
{
    d_ptr->shortIdentifier = value;
}

QString VKApplicationOptionConfiguration::usageDescription() const
{
    return d_ptr->usageDescription;
}

void VKApplicationOptionConfiguration::setUsageDescription(const QString &value)
{
    d_ptr->usageDescription = value;
}

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

// --- VKApplicationParameterConfiguration -------------------------------------------------------

VKApplicationParameterConfiguration::VKApplicationParameterConfiguration()
    : VKApplicationOptionConfiguration(*new VKApplicationParameterConfigurationPrivate)
{}

VKApplicationParameterConfiguration::VKApplicationParameterConfiguration(
    const QString &longIdentifier, const QString &shortIdentifier, const QString &usageDescription,
    VKApplicationParameterType parameterType, const QString &parameterName)
    : VKApplicationParameterConfiguration()
{
    setLongIdentifier(longIdentifier);
    setShortIdentifier(shortIdentifier);
    setUsageDescription(usageDescription);
    d().parameterType = parameterType;
    d().parameterName = parameterName;
}

VKApplicationParameterConfiguration::VKApplicationParameterConfiguration(
    VKApplicationParameterConfigurationPrivate &dd)
    : VKApplicationOptionConfiguration(dd)
{}

VKApplicationParameterConfiguration::~VKApplicationParameterConfiguration() = default;

VKApplicationParameterConfigurationPrivate &VKApplicationParameterConfiguration::d()
{
    return static_cast<VKApplicationParameterConfigurationPrivate &>(*d_ptr);
}

const VKApplicationParameterConfigurationPrivate &VKApplicationParameterConfiguration::d() const
{
    return static_cast<const VKApplicationParameterConfigurationPrivate &>(*d_ptr);
}

VKApplicationParameterType VKApplicationParameterConfiguration::parameterType() const
{
    return d().parameterType;
}

void VKApplicationParameterConfiguration::setParameterType(VKApplicationParameterType value)
{
    d().parameterType = value;
}

QString VKApplicationParameterConfiguration::parameterName() const
{
    return d().parameterName;
}

void VKApplicationParameterConfiguration::setParameterName(const QString &value)
{
    d().parameterName = value;
}

std::shared_ptr<VKApplicationParameterConfiguration>
VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
    const QString &longIdentifier, const QString &shortIdentifier, const QString &usageDescription,
    VKApplicationParameterType parameterType, const QString &parameterName)
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
        VKApplicationParameterType(
            intValue(dictionary.value(VKApplicationParameterConfigurationParameterType))),
        stringValue(dictionary, VKApplicationParameterConfigurationParameterName));
}

// --- VKApplicationConfiguration ----------------------------------------------------------------

VKApplicationConfiguration::VKApplicationConfiguration()
    : d(std::make_unique<VKApplicationConfigurationPrivate>())
{}

VKApplicationConfiguration::VKApplicationConfiguration(
    const QString &usagePrefix, const QString &usageSuffix,
    const VKApplicationOptionConfigurationList &optionConfigurations)
    : VKApplicationConfiguration()
{
    d->usagePrefix = usagePrefix;
    d->usageSuffix = usageSuffix;
    d->optionConfigurations = optionConfigurations;
}

VKApplicationConfiguration::~VKApplicationConfiguration() = default;

QString VKApplicationConfiguration::usagePrefix() const
{
    return d->usagePrefix;
}

void VKApplicationConfiguration::setUsagePrefix(const QString &value)
{
    d->usagePrefix = value;
}

QString VKApplicationConfiguration::usageSuffix() const
{
    return d->usageSuffix;
}

void VKApplicationConfiguration::setUsageSuffix(const QString &value)
{
    d->usageSuffix = value;
}

VKApplicationOptionConfigurationList VKApplicationConfiguration::optionConfigurations() const
{
    return d->optionConfigurations;
}

void VKApplicationConfiguration::setOptionConfigurations(
    const VKApplicationOptionConfigurationList &value)
{
    d->optionConfigurations = value;
}
