#include "Foundation/VKClassRegistry.h"

#include "Foundation/VKLogger.h"

#include <QHash>
#include <QSet>

#include <mutex>

namespace {

struct Entry
{
    QString name;
    QString baseName;
    std::type_index type{typeid(void)};
    std::type_index baseType{typeid(void)};
    VKClassRegistry::Factory factory;
    VKClassRegistry::Upcast upcast;
};

struct Registry
{
    std::mutex mutex;
    QHash<QString, Entry> classes;

    // Walks from `name` towards its root; stops at unknown names and at cycles.
    template <typename Visit>
    void walkBases(const QString &name, Visit visit) const
    {
        QSet<QString> seen;
        QString current = name;
        while (!current.isEmpty() && !seen.contains(current)) {
            seen.insert(current);
            auto it = classes.constFind(current);
            if (it == classes.constEnd() || !visit(*it))
                return;
            current = it->baseName;
        }
    }

    bool isSubclass(const QString &name, const QString &baseName) const
    {
        if (!classes.contains(name))
            return false;
        if (baseName.isEmpty())
            return true;
        bool found = false;
        walkBases(name, [&](const Entry &entry) {
            found = entry.name == baseName;
            return !found;
        });
        return found;
    }
};

// Created on first use, so that static initializers of any translation unit can register.
Registry &registry()
{
    static Registry *shared = new Registry;
    return *shared;
}

} // namespace

bool VKClassRegistry::registerErased(const QString &name, const QString &baseName,
                                     std::type_index type, std::type_index baseType,
                                     Factory factory, Upcast upcast)
{
    bool taken = name.isEmpty();
    {
        Registry &r = registry();
        std::lock_guard lock(r.mutex);
        auto it = r.classes.constFind(name);
        taken = taken || (it != r.classes.constEnd() && it->type != type);
        if (!taken)
            r.classes.insert(
                name, Entry{name, baseName, type, baseType, std::move(factory), std::move(upcast)});
    }
    // Logged without the lock: a log sink may look classes up.
    if (taken)
        VKLogger::error({QStringLiteral("VKClassRegistry"),
                         QStringLiteral("+[VKClassRegistry registerClass:]"), nullptr},
                        "Cannot register class \"%@\": the name is empty or taken by another class",
                        name);
    return !taken;
}

bool VKClassRegistry::unregisterClass(const QString &name)
{
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    return r.classes.remove(name) > 0;
}

std::optional<VKClassInfo> VKClassRegistry::classNamed(const QString &name)
{
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    auto it = r.classes.constFind(name);
    if (it == r.classes.constEnd())
        return std::nullopt;
    return VKClassInfo{it->name, it->baseName, static_cast<bool>(it->factory)};
}

bool VKClassRegistry::isSubclassOfClass(const QString &name, const QString &baseName)
{
    if (baseName.isEmpty())
        return false;
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    return r.isSubclass(name, baseName);
}

std::shared_ptr<void> VKClassRegistry::createErased(const QString &name, std::type_index type)
{
    Factory factory;
    QList<Upcast> casts;
    {
        Registry &r = registry();
        std::lock_guard lock(r.mutex);
        auto it = r.classes.constFind(name);
        if (it == r.classes.constEnd() || !it->factory)
            return nullptr;
        factory = it->factory;
        // Collect the casts from the class up to the requested type.
        bool reached = false;
        r.walkBases(name, [&](const Entry &entry) {
            if (entry.type == type) {
                reached = true;
                return false;
            }
            if (!entry.upcast)
                return false;
            casts.append(entry.upcast);
            // The base may be a C++ type that is not registered by name.
            if (entry.baseType == type) {
                reached = true;
                return false;
            }
            return true;
        });
        if (!reached)
            return nullptr;
    }
    // The factory is the class's own code: call it without the lock.
    std::shared_ptr<void> object = factory();
    for (const Upcast &cast : casts) {
        if (!object)
            break;
        object = cast(object);
    }
    return object;
}

QStringList VKClassRegistry::classNamesWithPrefixes(const QStringList &prefixes,
                                                    const QString &baseName)
{
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    QStringList names;
    for (const Entry &entry : r.classes) {
        bool matches = false;
        for (const QString &prefix : prefixes)
            matches = matches || entry.name.startsWith(prefix);
        if (matches && r.isSubclass(entry.name, baseName))
            names.append(entry.name);
    }
    names.sort();
    return names;
}

QStringList VKClassRegistry::classNamesWithSuffix(const QString &suffix, const QString &baseName)
{
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    QStringList names;
    for (const Entry &entry : r.classes)
        if (entry.name.endsWith(suffix) && r.isSubclass(entry.name, baseName))
            names.append(entry.name);
    names.sort();
    return names;
}

QStringList VKClassRegistry::allClassNames()
{
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    QStringList names = r.classes.keys();
    names.sort();
    return names;
}
