#include "Application/VKApplicationArguments.h"

#include "Foundation/VKFormat.h"

#include <typeinfo>

VKApplicationArguments::VKApplicationArguments(const QStringList &arguments,
                                               const QVariantMap &parameters,
                                               const QStringList &options)
    : m_arguments(arguments), m_parameters(parameters), m_options(options)
{}

VKApplicationArguments::~VKApplicationArguments() = default;

QString VKApplicationArguments::description() const
{
    return vkFormat(QStringLiteral("Arguments: %@ \n\n Parameters: %@ \n\n Options: %@"),
                    QVariant(m_arguments), QVariant(m_parameters), QVariant(m_options));
}

bool VKApplicationArguments::isKindOfClassOf(const VKApplicationArguments &other) const
{
    // Every object here derives from the base class itself.
    if (typeid(*this) == typeid(VKApplicationArguments))
        return true;
    return typeid(*this) == typeid(other);
}

bool VKApplicationArguments::isEqual(const VKApplicationArguments *other) const
{
    if (other == this)
        return true;
    if (!other || !isKindOfClassOf(*other))
        return false;
    return m_parameters == other->m_parameters && m_options == other->m_options &&
           m_arguments == other->m_arguments;
}
