#include "Foundation/VKException.h"

const QString VKInvalidArgumentException = QStringLiteral("NSInvalidArgumentException");
const QString VKInternalInconsistencyException =
    QStringLiteral("NSInternalInconsistencyException");
const QString VKRangeException = QStringLiteral("NSRangeException");
const QString VKUndefinedKeyException = QStringLiteral("NSUnknownKeyException");
const QString VKGenericException = QStringLiteral("NSGenericException");
const QString VKUnsupportedParameter = QStringLiteral("VKUnsupportedParameter");

VKException::VKException(QString name, QString reason, QVariantMap userInfo)
    : m_name(std::move(name)), m_reason(std::move(reason)), m_userInfo(std::move(userInfo)),
      m_what((m_name + QStringLiteral(": ") + m_reason).toUtf8())
{}

VKException::~VKException() = default;

const char *VKException::what() const noexcept
{
    return m_what.constData();
}
