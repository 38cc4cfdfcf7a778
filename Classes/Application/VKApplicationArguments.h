// The parsed command line: plain arguments, parameter values by long identifier, and the
// options that were switched on, each in command-line order.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

class VK_EXPORT VKApplicationArguments
{
public:
    VKApplicationArguments() = default;
    VKApplicationArguments(const QStringList &arguments, const QVariantMap &parameters,
                           const QStringList &options);
    virtual ~VKApplicationArguments();

    // Every token that was neither an option, a parameter nor a parameter's value.
    QStringList arguments() const { return m_arguments; }
    void setArguments(const QStringList &value) { m_arguments = value; }
    // Long identifier -> value: a QString, or an int / float for numeric parameters.
    QVariantMap parameters() const { return m_parameters; }
    void setParameters(const QVariantMap &value) { m_parameters = value; }
    // Long identifiers of the options given, once per occurrence.
    QStringList options() const { return m_options; }
    void setOptions(const QStringList &value) { m_options = value; }

    // "Arguments: <arguments> \n\n Parameters: <parameters> \n\n Options: <options>", each part
    // as "%@" describes the collection.
    virtual QString description() const;

    // True for the same object; otherwise `other` must be of this object's class (or derived
    // from it, see isKindOfClassOf) with equal parameters, options and arguments.
    bool isEqual(const VKApplicationArguments *other) const;

protected:
    // Whether `other` is an instance of this object's class or of a class derived from it.
    // The base answers by exact class for subclasses it does not know; a subclass whose own
    // subclasses should compare equal to it overrides this with a dynamic_cast to itself.
    virtual bool isKindOfClassOf(const VKApplicationArguments &other) const;

private:
    QStringList m_arguments;
    QVariantMap m_parameters;
    QStringList m_options;
};
