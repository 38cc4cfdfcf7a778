// An error value: a domain, an integer code and user information that carries at least a
// localized description. Failing operations fill one through a `VKError *error` out-parameter
// that may be null.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QVariantMap>

// The library's own error domain; its value is its own name.
VK_EXPORT extern const QString VQErrorDomainVessanUtilities;
// The user-information key of the localized description ("NSLocalizedDescription").
VK_EXPORT extern const QString VKLocalizedDescriptionKey;
// The user-information key of an underlying error ("NSUnderlyingError").
VK_EXPORT extern const QString VKUnderlyingErrorKey;

class VK_EXPORT VKError
{
public:
    // A null error: no domain, code 0.
    VKError() = default;
    VKError(QString domain, qint64 code, QVariantMap userInfo = {});

    // An error whose localized description is `description`.
    static VKError errorWithDescription(const QString &domain, qint64 code,
                                        const QString &description);

    bool isNull() const { return m_domain.isNull(); }
    QString domain() const { return m_domain; }
    qint64 code() const { return m_code; }
    QVariantMap userInfo() const { return m_userInfo; }

    // The description in the user information, or "The operation couldn’t be completed.
    // (<domain> error <code>.)" when there is none.
    QString localizedDescription() const;
    // "Error Domain=<domain> Code=<code> \"<localizedDescription>\"".
    QString description() const;

    // Stores `error` into `out` when `out` is not null; the usual way to answer an error.
    static void fill(VKError *out, const VKError &error)
    {
        if (out)
            *out = error;
    }

    bool operator==(const VKError &other) const = default;

private:
    QString m_domain;
    qint64 m_code = 0;
    QVariantMap m_userInfo;
};
