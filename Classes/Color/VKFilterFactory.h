// The one place where applications make image filters by name. At creation it loads the filter
// plug-ins of the application's "Filters" folder ("../Filters" from the executable's folder) and
// finds the compound filter providers; afterwards it only looks names up.
//
// Threads: plug-ins load on the main thread under the recursive plug-in lock (callers on other
// threads wait for it); the first sharedFactory() call should come from the main thread early
// on. Filter creation takes no lock.
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

class QRecursiveMutex;
class VKAbstractCompoundFilterProvider;
class VKFilter;

// Domain of the plug-in loading error.
VK_EXPORT extern const QString VKVessanErrorDomain; // "Vessan Error Domain"
// User-information key of that error's reason ("NSLocalizedFailureReason").
VK_EXPORT extern const QString VKLocalizedFailureReasonKey;

class VK_EXPORT VKFilterFactory
{
public:
    // The shared instance, made on first use; it lives for the process.
    static VKFilterFactory *sharedFactory();

    // Forward to the shared instance's makeFilter().
    static std::shared_ptr<VKFilter> filterWithName(const QString &name);
    static std::shared_ptr<VKFilter> filterWithName(const QString &name,
                                                    const QVariantMap &options);
    // A provider's filter for a name a provider declares, else the framework's filter of that
    // name; either gets setDefaults(). Null (and logged) when neither can make it. The options
    // go to providers only.
    std::shared_ptr<VKFilter> makeFilter(const QString &name, const QVariantMap &options = {});

    // Load the plug-ins / find the providers on the main thread under the plug-in lock.
    // Always true; `error` receives the kept loading error when there is one.
    bool loadImagePluginsError(VKError *error);
    bool loadCompoundPluginsError(VKError *error);
    // Loads each named plug-in of `pluginPath` whose name is not in `filterList`.
    void loadFilters(const QStringList &names, const QString &pluginPath,
                     const QStringList &filterList);

    QRecursiveMutex &pluginLoadLock() const;
    // The last plug-in loading error, or a null error.
    VKError pluginLoadError() const;
    // The plug-in names found in the filters folder.
    QStringList singleFilterNames() const;
    // Which provider builds which name.
    QMap<QString, std::shared_ptr<VKAbstractCompoundFilterProvider>> compoundFilterProviders() const;
    // singleFilterNames() then the provider names, as they were at creation.
    QStringList filterNames() const;

    // The folder plug-ins are loaded from: the first process argument's folder joined with
    // "../Filters".
    static QString filtersFolderPath();

    VKFilterFactory(const VKFilterFactory &) = delete;
    VKFilterFactory &operator=(const VKFilterFactory &) = delete;

private:
    VKFilterFactory();
    ~VKFilterFactory();
    void initSingleton();
    void loadImagePluginsOnMainThread();
    void loadCompoundPluginsOnMainThread();
    struct Private;
    std::unique_ptr<Private> d;
};
