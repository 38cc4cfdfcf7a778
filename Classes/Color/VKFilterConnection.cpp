#include "Color/VKFilterConnection.h"

#include "Color/VKFilter.h"
#include "Color/VKFilterChainWrapper.h"
#include "Color/VKFilterConnection_p.h"
#include "Color/VKFilterFactory.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKError.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"

#include <QHash>

VK_REGISTER_CLASS(VKFilterConnection, VKCoding)

namespace VKFilterGraphCoding {

void encodeFilterClassNames(VKKeyedArchiver &coder, const QList<std::shared_ptr<VKFilter>> &filters)
{
    QStringList names;
    for (const auto &filter : filters) {
        const QString name = filter ? filter->classNameForCoder() : QString();
        if (!name.isNull() && !names.contains(name))
            names.append(name);
    }
    QVariantList members;
    for (const QString &name : names)
        members.append(name);
    coder.encodeSet(filterClassNamesKey, members);
}

bool loadFilterClasses(VKKeyedUnarchiver &coder)
{
    const QVariantList names = coder.decodeSet(filterClassNamesKey);
    if (coder.hasFailed())
        return false;
    for (const QVariant &member : names) {
        if (member.typeId() != QMetaType::QString) {
            coder.failWithError(VKError::errorWithDescription(
                VQErrorDomainVessanUtilities, VKCoderReadCorruptError,
                QStringLiteral("The value for key \"%1\" holds a member that is not a class name")
                    .arg(filterClassNamesKey)));
            return false;
        }
        const QString name = member.toString();
        // Asking the factory for a filter of the class's name loads the plug-in that provides
        // it; the filter itself is not needed.
        if (!name.isEmpty() && !VKClassRegistry::classNamed(name))
            (void)VKFilterFactory::filterWithName(name);
    }
    return true;
}

void failMissing(VKKeyedUnarchiver &coder, const QString &className, const QString &key)
{
    coder.failWithError(VKError::errorWithDescription(
        VQErrorDomainVessanUtilities, VKCoderValueNotFoundError,
        QStringLiteral("%1 has no value for key \"%2\"").arg(className, key)));
}

void failLoop(VKKeyedUnarchiver &coder, const QString &className)
{
    coder.failWithError(VKError::errorWithDescription(
        VQErrorDomainVessanUtilities, VKCoderReadCorruptError,
        QStringLiteral("%1 refers back to itself through its filters").arg(className)));
}

} // namespace VKFilterGraphCoding

VKFilterConnection::VKFilterConnection() = default;

VKFilterConnection::VKFilterConnection(std::shared_ptr<VKFilter> sourceFilter,
                                       const QString &sourceKey,
                                       std::shared_ptr<VKFilter> targetFilter,
                                       const QString &targetKey)
    : m_sourceFilter(std::move(sourceFilter)), m_sourceKey(sourceKey),
      m_targetFilter(std::move(targetFilter)), m_targetKey(targetKey)
{}

VKFilterConnection::~VKFilterConnection() = default;

std::shared_ptr<VKFilterConnection> VKFilterConnection::connectionFromFilter(
    std::shared_ptr<VKFilter> sourceFilter, const QString &sourceKey,
    std::shared_ptr<VKFilter> targetFilter, const QString &targetKey)
{
    return std::make_shared<VKFilterConnection>(std::move(sourceFilter), sourceKey,
                                                std::move(targetFilter), targetKey);
}

void VKFilterConnection::propagate() const
{
    if (m_sourceFilter && m_targetFilter)
        m_targetFilter->setValueForKey(m_sourceFilter->valueForKey(m_sourceKey), m_targetKey);
}

bool VKFilterConnection::isEqual(const VKFilterConnection *other) const
{
    if (other == this)
        return true;
    if (!other)
        return false;
    return other->m_sourceFilter == m_sourceFilter && other->m_targetFilter == m_targetFilter &&
           other->m_sourceKey == m_sourceKey && other->m_targetKey == m_targetKey;
}

size_t VKFilterConnection::hash() const
{
    return qHash(static_cast<const void *>(m_sourceFilter.get())) ^
           qHash(static_cast<const void *>(m_targetFilter.get()));
}

QString VKFilterConnection::description() const
{
    return vkFormat(
        QStringLiteral("%p <%@> - sourceKey: %@ sourceFilter: %@, targetKey: %@ targetFilter: %@"),
        static_cast<const void *>(this), classNameForCoder(), m_sourceKey,
        m_sourceFilter ? m_sourceFilter->className() : QString(), m_targetKey,
        m_targetFilter ? m_targetFilter->className() : QString());
}

void VKFilterConnection::encodeWithCoder(VKKeyedArchiver &coder) const
{
    VKFilterGraphCoding::encodeFilterClassNames(coder, {m_sourceFilter, m_targetFilter});
    coder.encodeObject(QStringLiteral("sourceFilter"), m_sourceFilter);
    coder.encodeString(QStringLiteral("sourceKey"), m_sourceKey);
    coder.encodeObject(QStringLiteral("targetFilter"), m_targetFilter);
    coder.encodeString(QStringLiteral("targetKey"), m_targetKey);
}

bool VKFilterConnection::initWithCoder(VKKeyedUnarchiver &coder)
{
    if (!VKFilterGraphCoding::loadFilterClasses(coder))
        return false;
    m_sourceFilter = coder.decodeObjectOfClass<VKFilter>(QStringLiteral("sourceFilter"));
    m_sourceKey = coder.decodeString(QStringLiteral("sourceKey"));
    m_targetFilter = coder.decodeObjectOfClass<VKFilter>(QStringLiteral("targetFilter"));
    m_targetKey = coder.decodeString(QStringLiteral("targetKey"));
    if (coder.hasFailed()) {
        clear();
        return false;
    }
    // A connection that carries nothing would only fail later, during evaluation.
    const std::pair<bool, const char *> required[] = {
        {!m_sourceFilter, "sourceFilter"},
        {m_sourceKey.isEmpty(), "sourceKey"},
        {!m_targetFilter, "targetFilter"},
        {m_targetKey.isEmpty(), "targetKey"},
    };
    for (const auto &[missing, key] : required) {
        if (missing) {
            VKFilterGraphCoding::failMissing(coder, classNameForCoder(), QLatin1String(key));
            clear();
            return false;
        }
    }
    if (VKFilterChainWrapper::graphReaches(m_sourceFilter, this) ||
        VKFilterChainWrapper::graphReaches(m_targetFilter, this)) {
        VKFilterGraphCoding::failLoop(coder, classNameForCoder());
        clear();
        return false;
    }
    return true;
}

void VKFilterConnection::clear()
{
    m_sourceFilter.reset();
    m_targetFilter.reset();
}
