// The exception the library throws for programming errors (nil or empty arguments, abstract
// operations, undefined keys): a name, a reason and optional user information.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKFormat.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <exception>

// The standard exception names.
VK_EXPORT extern const QString VKInvalidArgumentException;       // "NSInvalidArgumentException"
VK_EXPORT extern const QString VKInternalInconsistencyException; // "NSInternalInconsistencyException"
VK_EXPORT extern const QString VKRangeException;                 // "NSRangeException"
VK_EXPORT extern const QString VKUndefinedKeyException;          // "NSUnknownKeyException"
VK_EXPORT extern const QString VKGenericException;               // "NSGenericException"
// Raised where the library meets a parameter it does not support yet.
VK_EXPORT extern const QString VKUnsupportedParameter;           // "VKUnsupportedParameter"

class VK_EXPORT VKException : public std::exception
{
public:
    VKException(QString name, QString reason, QVariantMap userInfo = {});
    ~VKException() override;

    QString name() const { return m_name; }
    QString reason() const { return m_reason; }
    QVariantMap userInfo() const { return m_userInfo; }

    // "<name>: <reason>" in UTF-8.
    const char *what() const noexcept override;

    // Throws an exception whose reason is `format` filled with the arguments.
    template <typename... Args>
    [[noreturn]] static void raise(const QString &name, const QString &format,
                                   const Args &...arguments)
    {
        throw VKException(name, VKFormat::format(format, {VKFormatArgument(arguments)...}));
    }

private:
    QString m_name;
    QString m_reason;
    QVariantMap m_userInfo;
    QByteArray m_what;
};
