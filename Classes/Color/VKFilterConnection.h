// An edge of a filter graph: the value of one filter's key is carried to another filter's key
// each time the graph is evaluated (VKFilterChainWrapper).
#pragma once

#include "Foundation/VKCoding.h"
#include "Foundation/VKExport.h"

#include <QString>

#include <memory>

class VKFilter;

class VK_EXPORT VKFilterConnection : public VKCoding
{
    VK_CODING_CLASS(VKFilterConnection)
public:
    // An empty connection, for the unarchiver.
    VKFilterConnection();
    VKFilterConnection(std::shared_ptr<VKFilter> sourceFilter, const QString &sourceKey,
                       std::shared_ptr<VKFilter> targetFilter, const QString &targetKey);
    ~VKFilterConnection() override;

    static std::shared_ptr<VKFilterConnection>
    connectionFromFilter(std::shared_ptr<VKFilter> sourceFilter, const QString &sourceKey,
                         std::shared_ptr<VKFilter> targetFilter, const QString &targetKey);

    std::shared_ptr<VKFilter> sourceFilter() const { return m_sourceFilter; }
    QString sourceKey() const { return m_sourceKey; }
    std::shared_ptr<VKFilter> targetFilter() const { return m_targetFilter; }
    QString targetKey() const { return m_targetKey; }

    // Carries the source's current value to the target.
    void propagate() const;

    // The same object, or a connection between the very same two filter objects with equal
    // keys. hash() mixes the two filters' identities only.
    bool isEqual(const VKFilterConnection *other) const;
    size_t hash() const;

    // "0x… <VKFilterConnection> - sourceKey: … sourceFilter: …, targetKey: … targetFilter: …"
    QString description() const;

    // Archive keys: "filterClassNames" (read first, so that the plug-ins providing the two
    // filters' classes are loaded before the filters are read), "sourceFilter", "sourceKey",
    // "targetFilter", "targetKey".
    void encodeWithCoder(VKKeyedArchiver &coder) const override;
    bool initWithCoder(VKKeyedUnarchiver &coder) override;

    // Not for new callers: drops the references (a graph that failed to load breaks its
    // cycles this way).
    void clear();

private:
    std::shared_ptr<VKFilter> m_sourceFilter;
    QString m_sourceKey;
    std::shared_ptr<VKFilter> m_targetFilter;
    QString m_targetKey;
};
