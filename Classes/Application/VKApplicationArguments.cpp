#include "Application/VKApplicationArguments.h"

#include "Application/VKApplicationArguments_p.h"
#include "Foundation/VKClassRelation.h"
#include "Foundation/VKFormat.h"

VKApplicationArguments::VKApplicationArguments()
    : d_ptr(std::make_unique<VKApplicationArgumentsPrivate>())
{}

VKApplicationArguments::VKApplicationArguments(const QStringList &arguments,
                                               const QVariantMap &parameters,
                                               const QStringList &options)
    : VKApplicationArguments()
{
    d_ptr->arguments = arguments;
    d_ptr->parameters = parameters;
    d_ptr->options = options;
}

VKApplicationArguments::VKApplicationArguments(VKApplicationArgumentsPrivate &dd) : d_ptr(&dd) {}

VKApplicationArguments::~VKApplicationArguments() = default;

QStringList VKApplicationArguments::arguments() const
{
    return d_ptr->arguments;
}

void VKApplicationArguments::setArguments(const QStringList &value)
{
    d_ptr->arguments = value;
}

QVariantMap VKApplicationArguments::parameters() const
{
    return d_ptr->parameters;
}

void VKApplicationArguments::setParameters(const QVariantMap &value)
{
    d_ptr->parameters = value;
}

QStringList VKApplicationArguments::options() const
{
    return d_ptr->options;
}

void VKApplicationArguments::setOptions(const QStringList &value)
{
    d_ptr->options = value;
}

QString VKApplicationArguments::description() const
{
    return vkFormat(QStringLiteral("Arguments: %@ \n\n Parameters: %@ \n\n Options: %@"),
                    QVariant(d_ptr->arguments), QVariant(d_ptr->parameters),
                    QVariant(d_ptr->options));
}

bool VKApplicationArguments::isEqual(const VKApplicationArguments *other) const
{
    if (other == this)
        return true;
    if (!other || !VKClassRelation::isKindOfClassOf(*other, *this))
        return false;
    // Parameters first, then options, then arguments.
    return d_ptr->parameters == other->d_ptr->parameters &&
           d_ptr->options == other->d_ptr->options && d_ptr->arguments == other->d_ptr->arguments;
}
