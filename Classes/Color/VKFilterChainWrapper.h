// An image filter whose inside is a graph of other filters: connections carry values from one
// inner filter's key to another's, and exports show inner keys under the wrapper's own names, so
// that callers see one filter with named inputs and one "outputImage". The graph archives with
// its filters and, when restored, loads the plug-ins that provide them.
#pragma once

#include "Color/VKFilter.h"
#include "Color/VKFilterKeyExportConnection.h"

#include <QList>
#include <QSet>

#include <memory>

class VKFilterConnection;

VK_EXPORT extern const QString kVKFilterInputKey_inputImage;   // "inputImage"
VK_EXPORT extern const QString kVKFilterOutputKey_outputImage; // "outputImage"

// Used from one thread at a time, like every filter. A graph must not contain the wrapper
// itself (directly or through nested wrappers): evaluating such a graph throws, and restoring
// one fails.
class VK_EXPORT VKFilterChainWrapper : public VKFilter,
                                       public std::enable_shared_from_this<VKFilterChainWrapper>
{
public:
    VKFilterChainWrapper();
    // A wrapper that reports `name` (providers name the filters they build).
    explicit VKFilterChainWrapper(const QString &name);
    ~VKFilterChainWrapper() override;

    // Edges in insertion order, which is the evaluation order: add upstream edges first.
    QList<std::shared_ptr<VKFilterConnection>> filterConnections() const;
    // Exported keys other than "outputImage": a set by isEqual() and hash() (see
    // VKFilterKeyExportConnection), kept in the order of insertion so that archives and
    // lookups come out the same every time.
    QList<std::shared_ptr<VKFilterKeyExportConnection>> filterExportConnections() const;
    // The export of "outputImage"; null until one is made.
    std::shared_ptr<VKFilterKeyExportConnection> outputConnection() const;

    // Building. Null filters or null keys throw VKInvalidArgumentException "the parameters must
    // not be nil".
    // Appends an edge (duplicates too).
    void connectObject(const std::shared_ptr<VKFilter> &sourceFilter, const QString &sourceKey,
                       const std::shared_ptr<VKFilter> &targetFilter, const QString &targetKey);
    // For ordinary names the first export of a name wins and later ones are dropped; for
    // "outputImage" the last one wins.
    void exportKey(const QString &key, const std::shared_ptr<VKFilter> &filter,
                   const QString &name);
    // Each key under its own name.
    void exportKeys(const QStringList &keys, const std::shared_ptr<VKFilter> &filter);
    // Exports the parameters of every filter (not their "inputImage") and connects each
    // "outputImage" to the next filter's "inputImage". The chain's own image input and output
    // are left for exportInputImageKeyForFilter() / exportOutputImageKeyForFilter().
    void concatenateFiltersFromArray(const QList<std::shared_ptr<VKFilter>> &filters);
    // Only connects the existing filter's "outputImage" to the new filter's "inputImage"; the
    // existing filter's other edges are not rerouted.
    void insertFilter(const std::shared_ptr<VKFilter> &filter,
                      const std::shared_ptr<VKFilter> &afterFilter);
    void exportInputImageKeyForFilter(const std::shared_ptr<VKFilter> &filter);
    void exportOutputImageKeyForFilter(const std::shared_ptr<VKFilter> &filter);

    // The exports (never the output export) under `externalKey`; empty when there are none.
    QList<std::shared_ptr<VKFilterKeyExportConnection>>
    exportedConnectionForExternalKey(const QString &externalKey) const;

    // The external keys of the exports, without "outputImage", each once.
    QStringList inputKeys() const override;
    // inputKeys() without "inputImage" (hides the base's, which goes by attribute types).
    QStringList inputParameterKeys() const;
    QStringList outputKeys() const override;
    // Per export, the exporting filter's attributes of the internal key, under the external key.
    QVariantMap customAttributes() const override;
    // Resets every exporting filter (once per export); the output's filter is left alone.
    void setDefaults() override;
    // Runs the edges in order, then answers the output export's filter's "outputImage" (the
    // null image when nothing is exported as the output).
    VKImage outputImage() override;

    // Exported keys read and write the inner filters' keys. Setting an unknown key does nothing;
    // reading one throws the undefined-key exception.
    QVariant valueForUndefinedKey(const QString &key) const override;
    void setValueForUndefinedKey(const QVariant &value, const QString &key) override;

    // A copy is the same wrapper: copies share the graph.
    std::shared_ptr<VKFilterChainWrapper> copy();

    // "0x… <VKFilterChainWrapper> - connections: (…), exports: {(…)}"
    QString description() const;

    // The filter's own keys, then "filterConnections", "filterExportConnections",
    // "outputConnection".
    QString classNameForCoder() const override;
    void encodeWithCoder(VKKeyedArchiver &coder) const override;
    bool initWithCoder(VKKeyedUnarchiver &coder) override;

    // Not for new callers: whether `object` is `filter` or is reached from it through the
    // connections and exports of wrappers (restoring refuses graphs that loop this way).
    static bool graphReaches(const std::shared_ptr<VKFilter> &filter, const void *object);

protected:
    bool setUpForName(const QString &name) override;

private:
    void clearGraph();
    void insertExport(std::shared_ptr<VKFilterKeyExportConnection> connection);

    struct Private;
    std::unique_ptr<Private> d;
};
