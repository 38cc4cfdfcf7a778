// One process-wide table under one mutex: the main bundle (cached once the application object
// exists), the frameworks in declaration order and the plug-in bundles by canonical file path,
// with the loaded ones in load order. Plug-in code is loaded without the lock held, since its
// static initialisers may declare frameworks or register classes. Bundle objects are immutable
// after creation except a plug-in's loaded state, which the table's mutex guards.
#include "Foundation/VKBundle.h"

#include "Foundation/VKLogger.h"
#include "Foundation/VKPropertyList.h"
#include "Foundation/VKVersion.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPluginLoader>

#include <dlfcn.h>

#include <algorithm>
#include <mutex>

const QString VKBundleIdentifierKey = QStringLiteral("CFBundleIdentifier");
const QString VKBundleNameKey = QStringLiteral("CFBundleName");
const QString VKBundleVersionKey = QStringLiteral("CFBundleVersion");
const QString VKBundleShortVersionKey = QStringLiteral("CFBundleShortVersionString");
const QString VKBundleExecutableKey = QStringLiteral("CFBundleExecutable");

// The library itself.
VK_DECLARE_FRAMEWORK("VessanUtilities", VK_VERSION_STRING)

namespace {

VKLogContext logContext(const char *operation, const void *pointer = nullptr)
{
    return {QStringLiteral("VKBundle"), QString::fromLatin1(operation), pointer};
}

VKError bundleError(qint64 code, const QString &description)
{
    return VKError::errorWithDescription(VQErrorDomainVessanUtilities, code, description);
}

struct BundleData
{
    VKBundle::Kind kind = VKBundle::Kind::Main;
    QString identifier;
    QString path;
    QString executable;
    QString resourceFolder;
    QVariantMap info;
    // Plug-ins only; kept for the process so the library is never unloaded.
    std::unique_ptr<QPluginLoader> loader;
    bool loaded = false;
};

} // namespace

struct VKBundle::Private : BundleData
{
};

namespace {

struct Table
{
    std::mutex mutex;
    std::shared_ptr<VKBundle> main;
    QList<std::shared_ptr<VKBundle>> frameworks;
    QHash<QString, std::shared_ptr<VKBundle>> plugInsByPath;
    QList<std::shared_ptr<VKBundle>> loaded;
};

// Made on first use so that static initialisers of any library can declare frameworks.
Table &table()
{
    static Table *shared = new Table;
    return *shared;
}

QString executableFilePath()
{
    if (QCoreApplication::instance())
        return QCoreApplication::applicationFilePath();
    return QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
}

// "vessan.com" -> "com.vessan".
QString reversedDomain(const QString &domain)
{
    QStringList parts = domain.split(u'.', Qt::SkipEmptyParts);
    std::reverse(parts.begin(), parts.end());
    return parts.join(u'.');
}

QVariantMap embeddedInfoDictionary()
{
    QFile file(QStringLiteral(":/Info.plist"));
    if (!file.exists())
        return {};
    VKError error;
    QVariant value;
    if (file.open(QIODevice::ReadOnly))
        value = VKPropertyList::propertyListWithData(file.readAll(), nullptr, &error);
    if (value.typeId() == QMetaType::QVariantMap)
        return value.toMap();
    // A log sink may ask for the main bundle while this is logged: say it only once per thread.
    static thread_local bool reporting = false;
    if (!reporting) {
        reporting = true;
        VKLogger::error(logContext("+[VKBundle mainBundle]"),
                        "The embedded \":/Info.plist\" is not a property list dictionary: %@",
                        error.isNull() ? file.errorString() : error.localizedDescription());
        reporting = false;
    }
    return {};
}

void insertMissing(QVariantMap &info, const QString &key, const QString &value)
{
    if (!info.contains(key) && !value.isEmpty())
        info.insert(key, value);
}

BundleData mainBundleData()
{
    BundleData data;
    BundleData *d = &data;
    d->kind = VKBundle::Kind::Main;
    d->executable = executableFilePath();
    const QFileInfo executable(d->executable);
    d->path = executable.absolutePath();
    QVariantMap info = embeddedInfoDictionary();
    QString name = QCoreApplication::applicationName();
    if (name.isEmpty())
        name = executable.fileName();
    const QString domain = reversedDomain(QCoreApplication::organizationDomain());
    insertMissing(info, VKBundleNameKey, name);
    insertMissing(info, VKBundleShortVersionKey, QCoreApplication::applicationVersion());
    insertMissing(info, VKBundleVersionKey, QCoreApplication::applicationVersion());
    insertMissing(info, VKBundleIdentifierKey, domain.isEmpty() ? name : domain + u'.' + name);
    insertMissing(info, VKBundleExecutableKey, executable.fileName());
    d->identifier = info.value(VKBundleIdentifierKey).toString();
    d->resourceFolder =
        QDir::cleanPath(d->path + QStringLiteral("/../share/") + executable.fileName());
    d->info = std::move(info);
    return data;
}

QString resourceName(const QString &name, const QString &extension)
{
    if (extension.isEmpty())
        return name;
    return name + (extension.startsWith(u'.') ? QString() : QStringLiteral(".")) + extension;
}

} // namespace

VKBundle::VKBundle(std::unique_ptr<Private> d) : d(std::move(d)) {}

VKBundle::~VKBundle() = default;

std::shared_ptr<VKBundle> VKBundle::mainBundle()
{
    Table &t = table();
    {
        std::lock_guard lock(t.mutex);
        if (t.main)
            return t.main;
    }
    // Built without the lock: reading the resource may log, and logging may ask for the
    // main bundle's identifier.
    auto d = std::make_unique<Private>();
    static_cast<BundleData &>(*d) = mainBundleData();
    std::shared_ptr<VKBundle> bundle(new VKBundle(std::move(d)));
    if (!QCoreApplication::instance())
        return bundle;
    std::lock_guard lock(t.mutex);
    if (!t.main)
        t.main = bundle;
    return t.main;
}

QList<std::shared_ptr<VKBundle>> VKBundle::allBundles()
{
    QList<std::shared_ptr<VKBundle>> bundles{mainBundle()};
    Table &t = table();
    std::lock_guard lock(t.mutex);
    bundles += t.loaded;
    return bundles;
}

QList<std::shared_ptr<VKBundle>> VKBundle::allFrameworks()
{
    Table &t = table();
    std::lock_guard lock(t.mutex);
    return t.frameworks;
}

std::shared_ptr<VKBundle> VKBundle::bundleWithIdentifier(const QString &identifier)
{
    if (identifier.isEmpty())
        return nullptr;
    std::shared_ptr<VKBundle> main = mainBundle();
    if (main->bundleIdentifier() == identifier)
        return main;
    Table &t = table();
    std::lock_guard lock(t.mutex);
    for (const auto &bundle : std::as_const(t.frameworks))
        if (bundle->d->identifier == identifier)
            return bundle;
    for (const auto &bundle : std::as_const(t.loaded))
        if (bundle->d->identifier == identifier)
            return bundle;
    for (const auto &bundle : std::as_const(t.plugInsByPath))
        if (bundle->d->identifier == identifier)
            return bundle;
    return nullptr;
}

std::shared_ptr<VKBundle> VKBundle::bundleWithPath(const QString &path, VKError *error)
{
    const QFileInfo file(path);
    const QString canonical = file.canonicalFilePath();
    if (canonical.isEmpty() || !file.isFile()) {
        VKError::fill(error, bundleError(VKFileReadNoSuchFileError,
                                         QStringLiteral("No plug-in at \"%1\"").arg(path)));
        return nullptr;
    }
    Table &t = table();
    {
        std::lock_guard lock(t.mutex);
        if (auto known = t.plugInsByPath.value(canonical))
            return known;
    }
    // Reads the metadata section of the file; the code is not loaded.
    auto loader = std::make_unique<QPluginLoader>(canonical);
    loader->setLoadHints(QLibrary::PreventUnloadHint);
    const QJsonObject metaData = loader->metaData();
    if (metaData.isEmpty()) {
        VKError::fill(error, bundleError(VKExecutableNotLoadableError,
                                         QStringLiteral("\"%1\" is not a plug-in").arg(path)));
        return nullptr;
    }
    auto d = std::make_unique<Private>();
    d->kind = Kind::PlugIn;
    d->path = canonical;
    d->executable = canonical;
    d->info = metaData.value(QLatin1String("MetaData")).toObject().toVariantMap();
    d->identifier = d->info.value(VKBundleIdentifierKey).toString();
    if (d->identifier.isEmpty())
        d->identifier = QFileInfo(canonical).completeBaseName();
    insertMissing(d->info, VKBundleIdentifierKey, d->identifier);
    insertMissing(d->info, VKBundleExecutableKey, QFileInfo(canonical).fileName());
    d->resourceFolder = QFileInfo(canonical).path() + u'/' +
                        QFileInfo(canonical).completeBaseName() + QStringLiteral(".resources");
    d->loader = std::move(loader);
    auto bundle = std::shared_ptr<VKBundle>(new VKBundle(std::move(d)));
    std::lock_guard lock(t.mutex);
    // Another thread may have read the same file meanwhile: the first one stays.
    if (auto known = t.plugInsByPath.value(canonical))
        return known;
    t.plugInsByPath.insert(canonical, bundle);
    return bundle;
}

std::shared_ptr<VKBundle> VKBundle::loadPlugInAtPath(const QString &path, VKError *error)
{
    std::shared_ptr<VKBundle> bundle = bundleWithPath(path, error);
    if (!bundle || !bundle->load(error))
        return nullptr;
    return bundle;
}

bool VKBundle::load(VKError *error)
{
    if (d->kind != Kind::PlugIn)
        return true;
    Table &t = table();
    {
        std::lock_guard lock(t.mutex);
        if (d->loaded)
            return true;
    }
    // QPluginLoader serialises loading itself; two threads loading at once both see success.
    if (!d->loader->load()) {
        const VKError failure = bundleError(
            VKExecutableLoadError, QStringLiteral("The plug-in \"%1\" could not be loaded: %2")
                                       .arg(d->path, d->loader->errorString()));
        VKLogger::error(logContext("-[VKBundle load]", this), "%@", failure.localizedDescription());
        VKError::fill(error, failure);
        return false;
    }
    std::lock_guard lock(t.mutex);
    if (!d->loaded) {
        d->loaded = true;
        for (const auto &bundle : std::as_const(t.plugInsByPath)) {
            if (bundle.get() == this) {
                t.loaded.append(bundle);
                break;
            }
        }
    }
    return true;
}

bool VKBundle::isLoaded() const
{
    if (d->kind != Kind::PlugIn)
        return true;
    std::lock_guard lock(table().mutex);
    return d->loaded;
}

QObject *VKBundle::principalObject() const
{
    if (!isLoaded() || !d->loader)
        return nullptr;
    return d->loader->instance();
}

VKBundle::Kind VKBundle::kind() const
{
    return d->kind;
}

QString VKBundle::bundleIdentifier() const
{
    return d->identifier;
}

QString VKBundle::bundlePath() const
{
    return d->path;
}

QString VKBundle::executablePath() const
{
    return d->executable;
}

QVariantMap VKBundle::infoDictionary() const
{
    return d->info;
}

QVariant VKBundle::objectForInfoDictionaryKey(const QString &key) const
{
    return d->info.value(key);
}

QString VKBundle::resourcePrefix() const
{
    return d->kind == Kind::Main ? QStringLiteral(":/")
                                 : QStringLiteral(":/%1/").arg(d->identifier);
}

QString VKBundle::resourcePath() const
{
    return d->resourceFolder;
}

QString VKBundle::pathForResource(const QString &name, const QString &extension,
                                  const QString &subdirectory) const
{
    if (name.isEmpty())
        return {};
    const QString relative =
        (subdirectory.isEmpty() ? QString() : subdirectory + u'/') + resourceName(name, extension);
    for (const QString &folder : {resourcePrefix(), d->resourceFolder + u'/'}) {
        const QString candidate = folder + relative;
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return {};
}

QStringList VKBundle::pathsForResourcesOfType(const QString &extension,
                                              const QString &subdirectory) const
{
    const QStringList filters{
        extension.isEmpty()
            ? QStringLiteral("*")
            : QStringLiteral("*.") + (extension.startsWith(u'.') ? extension.mid(1) : extension)};
    QStringList paths;
    for (const QString &folder : {resourcePrefix(), d->resourceFolder + u'/'}) {
        const QDir dir(folder + subdirectory);
        for (const QString &entry : dir.entryList(filters, QDir::Files, QDir::Name))
            paths.append(dir.filePath(entry));
    }
    return paths;
}

QString VKBundle::description() const
{
    return QStringLiteral("%1 (%2)").arg(d->path, d->identifier);
}

bool VKBundle::registerFramework(const char *identifier, const char *version, const void *address,
                                 const char *infoJson)
{
    auto d = std::make_unique<Private>();
    d->kind = Kind::Framework;
    const QByteArray json(infoJson ? infoJson : "");
    if (!json.isEmpty())
        d->info = QJsonDocument::fromJson(json).object().toVariantMap();
    d->identifier = QString::fromUtf8(identifier);
    d->info.insert(VKBundleIdentifierKey, d->identifier);
    d->info.insert(VKBundleVersionKey, QString::fromUtf8(version));
    d->info.insert(VKBundleShortVersionKey, QString::fromUtf8(version));
    insertMissing(d->info, VKBundleNameKey, d->identifier.section(u'.', -1));
    Dl_info library{};
    if (dladdr(address, &library) && library.dli_fname) {
        const QFileInfo file(QString::fromLocal8Bit(library.dli_fname));
        d->executable = file.absoluteFilePath();
        d->path = file.absolutePath();
        insertMissing(d->info, VKBundleExecutableKey, file.fileName());
    }
    const QString declaredResources = d->info.value(QStringLiteral("VKResourcePath")).toString();
    d->resourceFolder =
        declaredResources.isEmpty()
            ? QDir::cleanPath(d->path + QStringLiteral("/../share/") + d->identifier)
            : declaredResources;
    Table &t = table();
    std::lock_guard lock(t.mutex);
    for (const auto &known : std::as_const(t.frameworks))
        if (known->d->identifier == d->identifier)
            return false;
    t.frameworks.append(std::shared_ptr<VKBundle>(new VKBundle(std::move(d))));
    return true;
}
