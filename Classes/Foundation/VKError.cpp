#include "Foundation/VKError.h"

const QString VQErrorDomainVessanUtilities = QStringLiteral("VQErrorDomainVessanUtilities");
const QString VKLocalizedDescriptionKey = QStringLiteral("NSLocalizedDescription");
const QString VKUnderlyingErrorKey = QStringLiteral("NSUnderlyingError");

VKError::VKError(QString domain, qint64 code, QVariantMap userInfo)
    : m_domain(domain.isNull() ? QStringLiteral("") : std::move(domain)), m_code(code),
      m_userInfo(std::move(userInfo))
{}

VKError VKError::errorWithDescription(const QString &domain, qint64 code,
                                      const QString &description)
{
    return VKError(domain, code, {{VKLocalizedDescriptionKey, description}});
}

QString VKError::localizedDescription() const
{
    const QVariant text = m_userInfo.value(VKLocalizedDescriptionKey);
    if (text.isValid())
        return text.toString();
    return QStringLiteral("The operation couldn\u2019t be completed. (%1 error %2.)")
        .arg(m_domain)
        .arg(m_code);
}

QString VKError::description() const
{
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
        .arg(m_domain)
        .arg(m_code)
        .arg(localizedDescription());
}
