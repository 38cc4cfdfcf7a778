// The process-wide table of extension roles: which class, declared by the main bundle, a loaded
// plug-in or a framework, serves a role, and new objects of it. Roles live in the bundles'
// information dictionaries:
//
//   "VKExtensions": { "Exporter": { "VKClassName": "VKProResExporter", "Order": 3 } }
//
// The main bundle overrides any role; two other bundles declaring the same role is an error.
#pragma once

#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKExport.h"

#include <QHash>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>

class VKBundle;

VK_EXPORT extern const QString VKExtensionsKey;         // "VKExtensions"
VK_EXPORT extern const QString VKExtensionClassNameKey; // "VKClassName"

// There is only ever the shared registry: it cannot be constructed, copied or moved. It reads the
// declarations once, when it is made; bundles loaded later are not seen. Not thread-safe apart
// from sharedRegistry(): use it from the main thread once start-up has loaded the plug-ins.
class VK_EXPORT VKExtensionRegistry
{
public:
    // Made on first call, after which the same object is answered for the process. A malformed
    // declaration or an unsanctioned duplicate throws VKInternalInconsistencyException from here;
    // the registry is then not made, and the next call tries again.
    static VKExtensionRegistry &sharedRegistry();

    VKExtensionRegistry(const VKExtensionRegistry &) = delete;
    VKExtensionRegistry &operator=(const VKExtensionRegistry &) = delete;

    // Gathers the declarations of the main bundle, the loaded plug-ins and the frameworks; does
    // nothing once done.
    void loadExtensions();
    // The bundle's "VKExtensions" dictionary as it stands, after checking that it and each of its
    // values is a dictionary (VKInternalInconsistencyException otherwise); nothing when the
    // bundle declares none. A null bundle throws VKInvalidArgumentException.
    std::optional<QVariantMap> loadExtensionInfoFromBundle(const std::shared_ptr<VKBundle> &bundle);

    // Role to description, from the main bundle; nothing when it declares no extensions.
    std::optional<QVariantMap> mainExtensionInfo() const;
    // Role to description, from every other bundle, without the roles the main bundle declares.
    QVariantMap minorExtensionInfo() const;
    bool extensionInfosLoaded() const;
    // Consulted by instanceForRole() before a new object is made. Nothing in the registry fills
    // it, so it stays empty.
    QHash<QString, std::shared_ptr<void>> instancesForRoles() const;

    // The main bundle's description of the role, else another bundle's; nothing for an unknown
    // role. Every key of the description is handed out unchanged.
    std::optional<QVariantMap> extensionInfoForRole(const QString &role) const;

    // The lookups by role. They work on the shared registry (making it on first use), so calling
    // them through it, sharedRegistry().classForRole(role), is the same call.
    //
    // The description's "VKClassName" when it is text; null otherwise.
    static QString classNameForRole(const QString &role);
    // The class of that name in VKClassRegistry; nothing when the name is null or no class of
    // that name is registered (its library is not loaded).
    static std::optional<VKClassInfo> classForRole(const QString &role);
    // A new object of the role's class, as a T (the class itself or a registered base of it),
    // on every call; null when the class is unknown, cannot be made or is no T. A null role
    // throws VKInvalidArgumentException ("role must not be nil").
    template <typename T>
    static std::shared_ptr<T> instanceForRole(const QString &role)
    {
        VKExtensionRegistry &registry = sharedRegistry();
        if (std::shared_ptr<void> kept = registry.keptInstanceForRole(role))
            return std::static_pointer_cast<T>(kept);
        const QString name = classNameForRole(role);
        if (name.isNull())
            return nullptr;
        return VKClassRegistry::createInstance<T>(name);
    }

private:
    VKExtensionRegistry();
    ~VKExtensionRegistry();
    // Checks the role and answers the entry of instancesForRoles(), if any.
    std::shared_ptr<void> keptInstanceForRole(const QString &role) const;

    struct Private;
    std::unique_ptr<Private> d;
};
