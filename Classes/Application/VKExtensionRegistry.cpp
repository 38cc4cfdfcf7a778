#include "Application/VKExtensionRegistry.h"

#include "Foundation/VKBundle.h"
#include "Foundation/VKException.h"

const QString VKExtensionsKey = QStringLiteral("VKExtensions");
const QString VKExtensionClassNameKey = QStringLiteral("VKClassName");

namespace {

bool isDictionary(const QVariant &value)
{
    const int type = value.typeId();
    return type == QMetaType::QVariantMap || type == QMetaType::QVariantHash;
}

QVariantMap toDictionary(const QVariant &value)
{
    if (value.typeId() == QMetaType::QVariantHash) {
        const QVariantHash hash = value.toHash();
        QVariantMap map;
        for (auto it = hash.cbegin(); it != hash.cend(); ++it)
            map.insert(it.key(), it.value());
        return map;
    }
    return value.toMap();
}

} // namespace

struct VKExtensionRegistry::Private
{
    std::optional<QVariantMap> mainExtensionInfo;
    QVariantMap minorExtensionInfo;
    QHash<QString, std::shared_ptr<void>> instancesForRoles;
    bool extensionInfosLoaded = false;
};

VKExtensionRegistry::VKExtensionRegistry() : d(std::make_unique<Private>())
{
    loadExtensions();
}

VKExtensionRegistry::~VKExtensionRegistry() = default;

VKExtensionRegistry &VKExtensionRegistry::sharedRegistry()
{
    // Lives for the process. When the constructor throws, the static stays unset and the next
    // call makes the registry afresh.
    static auto *registry = new VKExtensionRegistry;
    return *registry;
}

std::optional<QVariantMap>
VKExtensionRegistry::loadExtensionInfoFromBundle(const std::shared_ptr<VKBundle> &bundle)
{
    if (!bundle)
        VKException::raise(VKInvalidArgumentException, "bundle must not be nil");
    const QVariant extensions = bundle->objectForInfoDictionaryKey(VKExtensionsKey);
    if (!extensions.isValid())
        return std::nullopt;
    if (!isDictionary(extensions))
        VKException::raise(VKInternalInconsistencyException,
                           "extensions value in info plist must be of type dictionary");
    QVariantMap roles = toDictionary(extensions);
    for (auto it = roles.begin(); it != roles.end(); ++it) {
        if (!isDictionary(it.value()))
            VKException::raise(VKInternalInconsistencyException,
                               "extension value must be of type dictionary");
        *it = toDictionary(it.value());
    }
    return roles;
}

void VKExtensionRegistry::loadExtensions()
{
    if (d->extensionInfosLoaded)
        return;
    std::optional<QVariantMap> main = loadExtensionInfoFromBundle(VKBundle::mainBundle());
    QVariantMap others;
    // The main bundle is among the loaded bundles; its roles fall to the override rule.
    const QList<std::shared_ptr<VKBundle>> bundles =
        VKBundle::allBundles() + VKBundle::allFrameworks();
    for (const auto &bundle : bundles) {
        const std::optional<QVariantMap> roles = loadExtensionInfoFromBundle(bundle);
        if (!roles)
            continue;
        for (auto it = roles->cbegin(); it != roles->cend(); ++it) {
            if (main && main->contains(it.key()))
                continue;
            if (others.contains(it.key()))
                VKException::raise(
                    VKInternalInconsistencyException,
                    "Duplicate extension with for role %@ defined, while not overridden by main "
                    "bundle",
                    it.key());
            others.insert(it.key(), it.value());
        }
    }
    d->mainExtensionInfo = std::move(main);
    d->minorExtensionInfo = std::move(others);
    d->extensionInfosLoaded = true;
}

std::optional<QVariantMap> VKExtensionRegistry::mainExtensionInfo() const
{
    return d->mainExtensionInfo;
}

QVariantMap VKExtensionRegistry::minorExtensionInfo() const
{
    return d->minorExtensionInfo;
}

bool VKExtensionRegistry::extensionInfosLoaded() const
{
    return d->extensionInfosLoaded;
}

QHash<QString, std::shared_ptr<void>> VKExtensionRegistry::instancesForRoles() const
{
    return d->instancesForRoles;
}

std::optional<QVariantMap> VKExtensionRegistry::extensionInfoForRole(const QString &role) const
{
    if (d->mainExtensionInfo) {
        auto it = d->mainExtensionInfo->constFind(role);
        if (it != d->mainExtensionInfo->cend())
            return it->toMap();
    }
    auto it = d->minorExtensionInfo.constFind(role);
    if (it != d->minorExtensionInfo.cend())
        return it->toMap();
    return std::nullopt;
}

QString VKExtensionRegistry::classNameForRole(const QString &role)
{
    const std::optional<QVariantMap> info = sharedRegistry().extensionInfoForRole(role);
    if (!info)
        return {};
    const QVariant name = info->value(VKExtensionClassNameKey);
    return name.typeId() == QMetaType::QString ? name.toString() : QString();
}

std::optional<VKClassInfo> VKExtensionRegistry::classForRole(const QString &role)
{
    const QString name = classNameForRole(role);
    if (name.isNull())
        return std::nullopt;
    return VKClassRegistry::classNamed(name);
}

std::shared_ptr<void> VKExtensionRegistry::keptInstanceForRole(const QString &role) const
{
    if (role.isNull())
        VKException::raise(VKInvalidArgumentException, "role must not be nil");
    return d->instancesForRoles.value(role);
}
