// A key of an inner filter that a filter graph (VKFilterChainWrapper) shows under its own,
// external name.
#pragma once

#include "Foundation/VKCoding.h"
#include "Foundation/VKExport.h"

#include <QSet>
#include <QString>

#include <memory>

class VKFilter;

class VK_EXPORT VKFilterKeyExportConnection : public VKCoding
{
    VK_CODING_CLASS(VKFilterKeyExportConnection)
public:
    // An empty export, for the unarchiver.
    VKFilterKeyExportConnection();
    VKFilterKeyExportConnection(std::shared_ptr<VKFilter> filter, const QString &internalKey,
                                const QString &externalKey);
    ~VKFilterKeyExportConnection() override;

    static std::shared_ptr<VKFilterKeyExportConnection>
    exportConnectionFromFilter(std::shared_ptr<VKFilter> filter, const QString &internalKey,
                               const QString &externalKey);

    std::shared_ptr<VKFilter> exportingFilter() const { return m_exportingFilter; }
    QString internalKey() const { return m_internalKey; }
    QString externalKey() const { return m_externalKey; }

    // Kept as documents depend on it: the same object, or an export of the very same filter
    // object with an equal external key and a DIFFERENT internal key. Two exports that repeat
    // filter and both keys are unequal, so a set keeps both; hash() mixes the filter's
    // identity with the internal key.
    bool isEqual(const VKFilterKeyExportConnection *other) const;
    size_t hash() const;

    // "0x… <VKFilterKeyExportConnection> - internalKey: … externalKey: …, filter: …"
    QString description() const;

    // Archive keys: "filterClassNames" (read first, see VKFilterConnection), "exportingFilter",
    // "internalKey", "externalKey".
    void encodeWithCoder(VKKeyedArchiver &coder) const override;
    bool initWithCoder(VKKeyedUnarchiver &coder) override;

    // Not for new callers: drops the reference to the filter.
    void clear();

private:
    std::shared_ptr<VKFilter> m_exportingFilter;
    QString m_internalKey;
    QString m_externalKey;
};

// A member of a set of exports: compared with isEqual() and hashed with hash(), so that a QSet
// of them keeps exactly the members the wrapper's set keeps. Never null.
struct VKFilterKeyExportConnectionMember
{
    std::shared_ptr<VKFilterKeyExportConnection> connection;

    friend bool operator==(const VKFilterKeyExportConnectionMember &a,
                           const VKFilterKeyExportConnectionMember &b)
    {
        return a.connection->isEqual(b.connection.get());
    }
};

inline size_t qHash(const VKFilterKeyExportConnectionMember &member, size_t seed = 0)
{
    return member.connection->hash() ^ seed;
}

using VKFilterKeyExportConnectionSet = QSet<VKFilterKeyExportConnectionMember>;
