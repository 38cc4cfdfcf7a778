#include "Color/VKFilterChainWrapper.h"

#include "Color/VKFilterConnection.h"
#include "Color/VKFilterConnection_p.h"
#include "Color/VKImage.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKError.h"
#include "Foundation/VKException.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"

const QString kVKFilterInputKey_inputImage = QStringLiteral("inputImage");
const QString kVKFilterOutputKey_outputImage = QStringLiteral("outputImage");

VK_REGISTER_CLASS(VKFilterChainWrapper, VKFilter)

namespace {

const QString kClassName = QStringLiteral("VKFilterChainWrapper");
const QString kConnectionsKey = QStringLiteral("filterConnections");
const QString kExportsKey = QStringLiteral("filterExportConnections");
const QString kOutputKey = QStringLiteral("outputConnection");

[[noreturn]] void raiseNilParameters()
{
    VKException::raise(VKInvalidArgumentException,
                       QStringLiteral("the parameters must not be nil"));
}

// Wrappers being evaluated on this thread: a graph that contains its own wrapper would
// otherwise recurse until the stack runs out.
thread_local QSet<const VKFilterChainWrapper *> t_evaluating;

// The platform's collection descriptions: "(\n    a,\n    b\n)" and "{(\n    a\n)}".
QString describeMembers(const QStringList &members, const QString &open, const QString &close)
{
    QString text = open + u'\n';
    for (qsizetype i = 0; i < members.size(); ++i)
        text += QStringLiteral("    ") + members[i] + (i + 1 < members.size() ? ",\n" : "\n");
    return text + close;
}

} // namespace

struct VKFilterChainWrapper::Private
{
    QList<std::shared_ptr<VKFilterConnection>> connections;
    QList<std::shared_ptr<VKFilterKeyExportConnection>> exports;
    std::shared_ptr<VKFilterKeyExportConnection> output;
};

VKFilterChainWrapper::VKFilterChainWrapper() : VKFilterChainWrapper(kClassName) {}

VKFilterChainWrapper::VKFilterChainWrapper(const QString &name)
    : VKFilter(name), d(std::make_unique<Private>())
{}

VKFilterChainWrapper::~VKFilterChainWrapper() = default;

QList<std::shared_ptr<VKFilterConnection>> VKFilterChainWrapper::filterConnections() const
{
    return d->connections;
}

QList<std::shared_ptr<VKFilterKeyExportConnection>>
VKFilterChainWrapper::filterExportConnections() const
{
    return d->exports;
}

std::shared_ptr<VKFilterKeyExportConnection> VKFilterChainWrapper::outputConnection() const
{
    return d->output;
}

void VKFilterChainWrapper::connectObject(const std::shared_ptr<VKFilter> &sourceFilter,
                                         const QString &sourceKey,
                                         const std::shared_ptr<VKFilter> &targetFilter,
                                         const QString &targetKey)
{
    if (!sourceFilter || sourceKey.isNull() || !targetFilter || targetKey.isNull())
        raiseNilParameters();
    d->connections.append(
        VKFilterConnection::connectionFromFilter(sourceFilter, sourceKey, targetFilter, targetKey));
}

void VKFilterChainWrapper::exportKey(const QString &key, const std::shared_ptr<VKFilter> &filter,
                                     const QString &name)
{
    if (key.isNull() || !filter || name.isNull())
        raiseNilParameters();
    auto connection = VKFilterKeyExportConnection::exportConnectionFromFilter(filter, key, name);
    if (!exportedConnectionForExternalKey(name).isEmpty())
        return;
    // The output export is never in the set, so the lookup above never finds it: the last
    // output export replaces the earlier one.
    if (name == kVKFilterOutputKey_outputImage)
        d->output = std::move(connection);
    else
        insertExport(std::move(connection));
}

void VKFilterChainWrapper::insertExport(std::shared_ptr<VKFilterKeyExportConnection> connection)
{
    const size_t hash = connection->hash();
    for (const auto &member : std::as_const(d->exports)) {
        if (member->hash() == hash && member->isEqual(connection.get()))
            return;
    }
    d->exports.append(std::move(connection));
}

void VKFilterChainWrapper::exportKeys(const QStringList &keys,
                                      const std::shared_ptr<VKFilter> &filter)
{
    if (!filter)
        raiseNilParameters();
    for (const QString &key : keys)
        exportKey(key, filter, key);
}

void VKFilterChainWrapper::concatenateFiltersFromArray(
    const QList<std::shared_ptr<VKFilter>> &filters)
{
    for (const auto &filter : filters) {
        if (!filter)
            raiseNilParameters();
        for (const QString &key : filter->inputKeys()) {
            if (key != kVKFilterInputKey_inputImage)
                exportKey(key, filter, key);
        }
    }
    for (qsizetype i = 0; i + 1 < filters.size(); ++i) {
        connectObject(filters[i], kVKFilterOutputKey_outputImage, filters[i + 1],
                      kVKFilterInputKey_inputImage);
    }
}

void VKFilterChainWrapper::insertFilter(const std::shared_ptr<VKFilter> &filter,
                                        const std::shared_ptr<VKFilter> &afterFilter)
{
    connectObject(afterFilter, kVKFilterOutputKey_outputImage, filter,
                  kVKFilterInputKey_inputImage);
}

void VKFilterChainWrapper::exportInputImageKeyForFilter(const std::shared_ptr<VKFilter> &filter)
{
    exportKey(kVKFilterInputKey_inputImage, filter, kVKFilterInputKey_inputImage);
}

void VKFilterChainWrapper::exportOutputImageKeyForFilter(const std::shared_ptr<VKFilter> &filter)
{
    exportKey(kVKFilterOutputKey_outputImage, filter, kVKFilterOutputKey_outputImage);
}

QList<std::shared_ptr<VKFilterKeyExportConnection>>
VKFilterChainWrapper::exportedConnectionForExternalKey(const QString &externalKey) const
{
    QList<std::shared_ptr<VKFilterKeyExportConnection>> found;
    for (const auto &connection : d->exports) {
        if (connection->externalKey() == externalKey)
            found.append(connection);
    }
    return found;
}

QStringList VKFilterChainWrapper::inputKeys() const
{
    QStringList keys;
    for (const auto &connection : d->exports) {
        const QString key = connection->externalKey();
        if (key != kVKFilterOutputKey_outputImage && !keys.contains(key))
            keys.append(key);
    }
    return keys;
}

QStringList VKFilterChainWrapper::inputParameterKeys() const
{
    QStringList keys = inputKeys();
    keys.removeAll(kVKFilterInputKey_inputImage);
    return keys;
}

QStringList VKFilterChainWrapper::outputKeys() const
{
    return {kVKFilterOutputKey_outputImage};
}

QVariantMap VKFilterChainWrapper::customAttributes() const
{
    QVariantMap attributes;
    for (const auto &exported : d->exports) {
        const VKFilterKeyExportConnection &connection = *exported;
        const QVariantMap inner = connection.exportingFilter()->customAttributes();
        const auto entry = inner.constFind(connection.internalKey());
        if (entry != inner.cend())
            attributes.insert(connection.externalKey(), *entry);
    }
    return attributes;
}

void VKFilterChainWrapper::setDefaults()
{
    for (const auto &connection : std::as_const(d->exports))
        connection->exportingFilter()->setDefaults();
}

VKImage VKFilterChainWrapper::outputImage()
{
    if (t_evaluating.contains(this)) {
        VKException::raise(VKInternalInconsistencyException,
                           QStringLiteral("%@ %p is part of its own filter graph"), className(),
                           static_cast<const void *>(this));
    }
    t_evaluating.insert(this);
    struct Done
    {
        const VKFilterChainWrapper *wrapper;
        ~Done() { t_evaluating.remove(wrapper); }
    } done{this};

    for (const auto &connection : std::as_const(d->connections))
        connection->propagate();
    if (!d->output)
        return {};
    // The output export's internal key is not consulted: the output is always "outputImage".
    return d->output->exportingFilter()
        ->valueForKey(kVKFilterOutputKey_outputImage)
        .value<VKImage>();
}

QVariant VKFilterChainWrapper::valueForUndefinedKey(const QString &key) const
{
    for (const auto &exported : d->exports) {
        const VKFilterKeyExportConnection &connection = *exported;
        if (connection.externalKey() == key)
            return connection.exportingFilter()->valueForKey(connection.internalKey());
    }
    return VKFilter::valueForUndefinedKey(key);
}

void VKFilterChainWrapper::setValueForUndefinedKey(const QVariant &value, const QString &key)
{
    // A key nobody exports is ignored: hosts set their whole parameter sets on any chain.
    for (const auto &exported : std::as_const(d->exports)) {
        const VKFilterKeyExportConnection &connection = *exported;
        if (connection.externalKey() == key)
            connection.exportingFilter()->setValueForKey(value, connection.internalKey());
    }
}

std::shared_ptr<VKFilterChainWrapper> VKFilterChainWrapper::copy()
{
    return shared_from_this();
}

QString VKFilterChainWrapper::description() const
{
    QStringList connections;
    for (const auto &connection : d->connections)
        connections.append(connection->description());
    QStringList exports;
    for (const auto &connection : d->exports)
        exports.append(connection->description());
    return vkFormat(QStringLiteral("%p <%@> - connections: %@, exports: %@"),
                    static_cast<const void *>(this), className(),
                    describeMembers(connections, QStringLiteral("("), QStringLiteral(")")),
                    describeMembers(exports, QStringLiteral("{("), QStringLiteral(")}")));
}

QString VKFilterChainWrapper::classNameForCoder() const
{
    return kClassName;
}

bool VKFilterChainWrapper::setUpForName(const QString &name)
{
    setName(name);
    return true;
}

void VKFilterChainWrapper::encodeWithCoder(VKKeyedArchiver &coder) const
{
    VKFilter::encodeWithCoder(coder);
    QVariantList connections;
    for (const auto &connection : d->connections)
        connections.append(VKCoding::variantWithObject(connection));
    coder.encodeValue(kConnectionsKey, connections);
    QVariantList exports;
    for (const auto &connection : d->exports)
        exports.append(VKCoding::variantWithObject(connection));
    coder.encodeSet(kExportsKey, exports);
    coder.encodeObject(kOutputKey, d->output);
}

bool VKFilterChainWrapper::initWithCoder(VKKeyedUnarchiver &coder)
{
    if (!VKFilter::initWithCoder(coder))
        return false;
    auto fail = [&](const QString &description) {
        coder.failWithError(VKError::errorWithDescription(VQErrorDomainVessanUtilities,
                                                          VKCoderReadCorruptError, description));
        clearGraph();
        return false;
    };

    const QVariant connections = coder.decodeValue(kConnectionsKey);
    if (coder.hasFailed())
        return fail({});
    if (connections.isValid() && connections.typeId() != QMetaType::QVariantList)
        return fail(
            QStringLiteral("The value for key \"%1\" is not an array").arg(kConnectionsKey));
    for (const QVariant &member : connections.toList()) {
        auto connection =
            std::dynamic_pointer_cast<VKFilterConnection>(VKCoding::objectFromVariant(member));
        if (!connection)
            return fail(QStringLiteral("The array for key \"%1\" holds something other than "
                                       "filter connections")
                            .arg(kConnectionsKey));
        d->connections.append(std::move(connection));
    }

    const QVariantList exports = coder.decodeSet(kExportsKey);
    if (coder.hasFailed())
        return fail({});
    for (const QVariant &member : exports) {
        auto connection = std::dynamic_pointer_cast<VKFilterKeyExportConnection>(
            VKCoding::objectFromVariant(member));
        if (!connection)
            return fail(QStringLiteral("The set for key \"%1\" holds something other than "
                                       "export connections")
                            .arg(kExportsKey));
        insertExport(std::move(connection));
    }

    d->output = coder.decodeObjectOfClass<VKFilterKeyExportConnection>(kOutputKey);
    if (coder.hasFailed())
        return fail({});

    // Every member of a loop finishes decoding after the others it refers to, so the last one
    // of any loop sees the whole loop from here.
    const void *self = static_cast<const VKFilter *>(this);
    bool loops = false;
    for (const auto &connection : std::as_const(d->connections)) {
        loops = loops || graphReaches(connection->sourceFilter(), self) ||
                graphReaches(connection->targetFilter(), self);
    }
    for (const auto &connection : std::as_const(d->exports))
        loops = loops || graphReaches(connection->exportingFilter(), self);
    if (d->output)
        loops = loops || graphReaches(d->output->exportingFilter(), self);
    if (loops) {
        VKFilterGraphCoding::failLoop(coder, classNameForCoder());
        clearGraph();
        return false;
    }
    return true;
}

void VKFilterChainWrapper::clearGraph()
{
    d->connections.clear();
    d->exports.clear();
    d->output.reset();
}

namespace {

bool reaches(const std::shared_ptr<VKFilter> &filter, const void *object,
             QSet<const void *> &visited)
{
    if (!filter)
        return false;
    if (static_cast<const void *>(filter.get()) == object)
        return true;
    if (visited.contains(filter.get()))
        return false;
    visited.insert(filter.get());
    const auto *wrapper = dynamic_cast<const VKFilterChainWrapper *>(filter.get());
    if (!wrapper)
        return false;
    for (const auto &connection : wrapper->filterConnections()) {
        if (static_cast<const void *>(connection.get()) == object ||
            reaches(connection->sourceFilter(), object, visited) ||
            reaches(connection->targetFilter(), object, visited))
            return true;
    }
    QList<std::shared_ptr<VKFilterKeyExportConnection>> exports =
        wrapper->filterExportConnections();
    if (auto output = wrapper->outputConnection())
        exports.append(output);
    for (const auto &connection : exports) {
        if (static_cast<const void *>(connection.get()) == object ||
            reaches(connection->exportingFilter(), object, visited))
            return true;
    }
    return false;
}

} // namespace

bool VKFilterChainWrapper::graphReaches(const std::shared_ptr<VKFilter> &filter, const void *object)
{
    QSet<const void *> visited;
    return reaches(filter, object, visited);
}
