// States: made once by sharedFactory(); plug-ins and providers load during creation (and again
// only when a caller asks). pluginLoadLock is held by the caller of a load for the whole load,
// while the main thread runs it; the fields it writes are read afterwards without a lock, as
// loading happens before the factory is handed out.
#include "Color/VKFilterFactory.h"

#include "Color/VKAbstractCompoundFilterProvider.h"
#include "Color/VKFilter.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKMainLoop.h"
#include "Foundation/VKPathString.h"

#include <QCoreApplication>
#include <QFile>
#include <QRecursiveMutex>

#include <mutex>

const QString VKVessanErrorDomain = QStringLiteral("Vessan Error Domain");
const QString VKLocalizedFailureReasonKey = QStringLiteral("NSLocalizedFailureReason");

namespace {

const QString kClassName = QStringLiteral("VKFilterFactory");
const QString kPluginExtension = QStringLiteral("plugin");

VKLogContext logContext(const char *operation, const void *object)
{
    return {kClassName, QString::fromLatin1(operation), object};
}

QString firstProcessArgument()
{
    if (QCoreApplication::instance()) {
        const QStringList arguments = QCoreApplication::arguments();
        if (!arguments.isEmpty())
            return arguments.first();
    }
    QFile cmdline(QStringLiteral("/proc/self/cmdline"));
    if (!cmdline.open(QIODevice::ReadOnly))
        return {};
    const QByteArray all = cmdline.readAll();
    return QString::fromLocal8Bit(all.left(all.indexOf('\0')));
}

// Runs `work` on the main thread and waits; without an application object there is no main
// loop, and the calling thread stands in for it.
void runOnMainThread(const std::function<void()> &work)
{
    if (!VKMainLoop::mainThread() || VKMainLoop::isMainThread()) {
        work();
        return;
    }
    VKMainLoop::performOnMainThread(work, true);
}

} // namespace

struct VKFilterFactory::Private
{
    mutable QRecursiveMutex pluginLoadLock;
    VKError pluginLoadError;
    QStringList singleFilterNames;
    QMap<QString, std::shared_ptr<VKAbstractCompoundFilterProvider>> providers;
    QMap<QString, QString> providerClassNames; // filter name to the provider's class name
    QStringList filterNames;
};

VKFilterFactory::VKFilterFactory() : d(std::make_unique<Private>()) {}

VKFilterFactory::~VKFilterFactory() = default;

VKFilterFactory *VKFilterFactory::sharedFactory()
{
    static VKFilterFactory *shared = [] {
        auto *factory = new VKFilterFactory();
        factory->initSingleton();
        return factory;
    }();
    return shared;
}

void VKFilterFactory::initSingleton()
{
    VKError error;
    loadImagePluginsError(&error);
    if (!error.isNull())
        VKLogger::error(logContext("-[VKFilterFactory initSingleton]", this),
                        QStringLiteral("VFFilterFactory init failed in loadImagePlugins with error:\n%@"),
                        error.description());
    error = VKError();
    loadCompoundPluginsError(&error);
    if (!error.isNull())
        VKLogger::error(
            logContext("-[VKFilterFactory initSingleton]", this),
            QStringLiteral("VFFilterFactory init failed in loadCompoundPlugins with error:\n%@"),
            error.description());
    d->filterNames = d->singleFilterNames + d->providers.keys();
}

std::shared_ptr<VKFilter> VKFilterFactory::filterWithName(const QString &name)
{
    return sharedFactory()->makeFilter(name, {});
}

std::shared_ptr<VKFilter> VKFilterFactory::filterWithName(const QString &name,
                                                          const QVariantMap &options)
{
    return sharedFactory()->makeFilter(name, options);
}

std::shared_ptr<VKFilter> VKFilterFactory::makeFilter(const QString &name,
                                                      const QVariantMap &options)
{
    const auto provider = d->providers.value(name);
    if (provider) {
        std::shared_ptr<VKFilter> filter = provider->filterWithName(name, options);
        if (!filter) {
            VKLogger::error(logContext("-[VKFilterFactory filterWithName:options:]", this),
                            QStringLiteral("filter provider %@ should provide filter %@ but can't"),
                            d->providerClassNames.value(name), name);
            return nullptr;
        }
        filter->setDefaults();
        return filter;
    }
    std::shared_ptr<VKFilter> filter = VKFilter::filterWithName(name);
    if (!filter) {
        VKLogger::error(logContext("-[VKFilterFactory filterWithName:options:]", this),
                        QStringLiteral("VFFilterFactory can't create filter %@, not loaded"), name);
        return nullptr;
    }
    filter->setDefaults();
    return filter;
}

bool VKFilterFactory::loadImagePluginsError(VKError *error)
{
    std::lock_guard lock(d->pluginLoadLock);
    runOnMainThread([this] { loadImagePluginsOnMainThread(); });
    if (error && !d->pluginLoadError.isNull())
        *error = d->pluginLoadError;
    return true;
}

bool VKFilterFactory::loadCompoundPluginsError(VKError *error)
{
    std::lock_guard lock(d->pluginLoadLock);
    runOnMainThread([this] { loadCompoundPluginsOnMainThread(); });
    if (error && !d->pluginLoadError.isNull())
        *error = d->pluginLoadError;
    return true;
}

QString VKFilterFactory::filtersFolderPath()
{
    return VKPathString::appendingPathComponent(
        VKPathString::deletingLastPathComponent(firstProcessArgument()), QStringLiteral("../Filters"));
}

void VKFilterFactory::loadImagePluginsOnMainThread()
{
    const QString folder = filtersFolderPath();
    VKError listingError;
    const std::optional<QStringList> entries =
        VKFileSystem::contentsOfDirectoryAtPath(folder, &listingError);
    // After a failed load, another load only replaces the error with the listing's outcome.
    if (!d->pluginLoadError.isNull()) {
        d->pluginLoadError = entries ? VKError() : listingError;
        return;
    }
    QStringList names;
    for (const QString &entry : entries.value_or(QStringList())) {
        if (VKPathString::pathExtension(entry) == kPluginExtension)
            names.append(VKPathString::deletingPathExtension(entry));
    }
    loadFilters(names, folder, VKFilter::filterNames());
    const QStringList known = VKFilter::filterNames();
    QStringList failures;
    for (const QString &name : names) {
        if (!known.contains(name))
            failures.append(vkFormat(QStringLiteral("Could not load Vessan filter %@ from %@"), name, folder));
    }
    d->singleFilterNames = names;
    if (!failures.isEmpty()) {
        const QString reason = vkFormat(QStringLiteral("Failed loading Filters: %@"), failures);
        d->pluginLoadError =
            VKError(VKVessanErrorDomain, 0,
                    {{VKLocalizedFailureReasonKey, reason}, {VKLocalizedDescriptionKey, reason}});
    }
}

void VKFilterFactory::loadFilters(const QStringList &names, const QString &pluginPath,
                                  const QStringList &filterList)
{
    for (const QString &name : names) {
        if (filterList.contains(name))
            continue;
        const QString path = VKPathString::appendingPathExtension(
            VKPathString::appendingPathComponent(pluginPath, name), kPluginExtension);
        if (!VKFileSystem::fileExistsAtPath(path)) {
            VKLogger::error(logContext("-[VKFilterFactory loadFilters:fromPluginPath:filterList:]", this),
                            QStringLiteral("in %@ missing filterName %@"), pluginPath, name);
            continue;
        }
        // A plug-in that does not load is reported with the names that stay unknown.
        VKError error;
        VKBundle::loadPlugInAtPath(path, &error);
    }
}

void VKFilterFactory::loadCompoundPluginsOnMainThread()
{
    d->providers.clear();
    d->providerClassNames.clear();
    const QStringList classes = VKClassRegistry::classNamesWithSuffix(
        QStringLiteral("FilterProvider"), QStringLiteral("VKAbstractCompoundFilterProvider"));
    for (const QString &className : classes) {
        const auto provider =
            VKClassRegistry::createInstance<VKAbstractCompoundFilterProvider>(className);
        if (!provider)
            continue;
        // A name declared by two providers goes to the one met later.
        for (const QString &name : provider->filterNames()) {
            d->providers.insert(name, provider);
            d->providerClassNames.insert(name, className);
        }
    }
}

QRecursiveMutex &VKFilterFactory::pluginLoadLock() const
{
    return d->pluginLoadLock;
}

VKError VKFilterFactory::pluginLoadError() const
{
    return d->pluginLoadError;
}

QStringList VKFilterFactory::singleFilterNames() const
{
    return d->singleFilterNames;
}

QMap<QString, std::shared_ptr<VKAbstractCompoundFilterProvider>>
VKFilterFactory::compoundFilterProviders() const
{
    return d->providers;
}

QStringList VKFilterFactory::filterNames() const
{
    return d->filterNames;
}
