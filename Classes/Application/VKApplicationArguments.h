// The parsed command line: plain arguments, parameter values by long identifier, and the
// options that were switched on, each in command-line order.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

class VKApplicationArgumentsPrivate;

class VK_EXPORT VKApplicationArguments
{
public:
    VKApplicationArguments();
    VKApplicationArguments(const QStringList &arguments, const QVariantMap &parameters,
                           const QStringList &options);
    virtual ~VKApplicationArguments();
    VKApplicationArguments(const VKApplicationArguments &) = delete;
    VKApplicationArguments &operator=(const VKApplicationArguments &) = delete;

    // Every token that was neither an option, a parameter nor a parameter's value.
    QStringList arguments() const;
    void setArguments(const QStringList &value);
    // Long identifier -> value: a QString, or an int / float for numeric parameters.
    QVariantMap parameters() const;
    void setParameters(const QVariantMap &value);
    // Long identifiers of the options given, once per occurrence.
    QStringList options() const;
    void setOptions(const QStringList &value);

    // "Arguments: <arguments> \n\n Parameters: <parameters> \n\n Options: <options>", each part
    // as "%@" describes the collection.
    virtual QString description() const;

    // True for the same object; otherwise `other` must be an instance of this object's class or
    // of any class derived from it (VKClassRelation), with equal parameters, options and
    // arguments.
    bool isEqual(const VKApplicationArguments *other) const;

protected:
    // For subclasses that extend the private part.
    explicit VKApplicationArguments(VKApplicationArgumentsPrivate &dd);
    std::unique_ptr<VKApplicationArgumentsPrivate> d_ptr;
};
