#include "Color/VKFilterKeyExportConnection.h"

#include "Color/VKFilter.h"
#include "Color/VKFilterChainWrapper.h"
#include "Color/VKFilterConnection_p.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"

#include <QHash>

VK_REGISTER_CLASS(VKFilterKeyExportConnection, VKCoding)

VKFilterKeyExportConnection::VKFilterKeyExportConnection() = default;

VKFilterKeyExportConnection::VKFilterKeyExportConnection(std::shared_ptr<VKFilter> filter,
                                                         const QString &internalKey,
                                                         const QString &externalKey)
    : m_exportingFilter(std::move(filter)), m_internalKey(internalKey), m_externalKey(externalKey)
{}

VKFilterKeyExportConnection::~VKFilterKeyExportConnection() = default;

std::shared_ptr<VKFilterKeyExportConnection>
VKFilterKeyExportConnection::exportConnectionFromFilter(std::shared_ptr<VKFilter> filter,
                                                        const QString &internalKey,
                                                        const QString &externalKey)
{
    return std::make_shared<VKFilterKeyExportConnection>(std::move(filter), internalKey,
                                                         externalKey);
}

bool VKFilterKeyExportConnection::isEqual(const VKFilterKeyExportConnection *other) const
{
    if (other == this)
        return true;
    if (!other)
        return false;
    return other->m_exportingFilter == m_exportingFilter && other->m_internalKey != m_internalKey &&
           other->m_externalKey == m_externalKey;
}

size_t VKFilterKeyExportConnection::hash() const
{
    return qHash(static_cast<const void *>(m_exportingFilter.get())) ^ qHash(m_internalKey);
}

QString VKFilterKeyExportConnection::description() const
{
    return vkFormat(QStringLiteral("%p <%@> - internalKey: %@ externalKey: %@, filter: %@"),
                    static_cast<const void *>(this), classNameForCoder(), m_internalKey,
                    m_externalKey, m_exportingFilter ? m_exportingFilter->className() : QString());
}

void VKFilterKeyExportConnection::encodeWithCoder(VKKeyedArchiver &coder) const
{
    VKFilterGraphCoding::encodeFilterClassNames(coder, {m_exportingFilter});
    coder.encodeObject(QStringLiteral("exportingFilter"), m_exportingFilter);
    coder.encodeString(QStringLiteral("internalKey"), m_internalKey);
    coder.encodeString(QStringLiteral("externalKey"), m_externalKey);
}

bool VKFilterKeyExportConnection::initWithCoder(VKKeyedUnarchiver &coder)
{
    if (!VKFilterGraphCoding::loadFilterClasses(coder))
        return false;
    m_exportingFilter = coder.decodeObjectOfClass<VKFilter>(QStringLiteral("exportingFilter"));
    m_internalKey = coder.decodeString(QStringLiteral("internalKey"));
    m_externalKey = coder.decodeString(QStringLiteral("externalKey"));
    if (coder.hasFailed()) {
        clear();
        return false;
    }
    const std::pair<bool, const char *> required[] = {
        {!m_exportingFilter, "exportingFilter"},
        {m_internalKey.isEmpty(), "internalKey"},
        {m_externalKey.isEmpty(), "externalKey"},
    };
    for (const auto &[missing, key] : required) {
        if (missing) {
            VKFilterGraphCoding::failMissing(coder, classNameForCoder(), QLatin1String(key));
            clear();
            return false;
        }
    }
    if (VKFilterChainWrapper::graphReaches(m_exportingFilter, this)) {
        VKFilterGraphCoding::failLoop(coder, classNameForCoder());
        clear();
        return false;
    }
    return true;
}

void VKFilterKeyExportConnection::clear()
{
    m_exportingFilter.reset();
}
