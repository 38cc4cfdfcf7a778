// Classes by name: each class registers its name, its base class's name and a factory, usually
// from a static initializer (VK_REGISTER_CLASS); the registry then looks classes up, makes
// objects by name, answers "is a subclass of" and finds classes by prefix or suffix.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <typeindex>

struct VK_EXPORT VKClassInfo
{
    QString name;
    QString baseName; // empty for a root class
    bool canCreate = false;
};

class VK_EXPORT VKClassRegistry
{
public:
    using Factory = std::function<std::shared_ptr<void>()>;
    // Turns a pointer to an object of the class into a pointer to its base class part.
    using Upcast = std::function<std::shared_ptr<void>(const std::shared_ptr<void> &)>;

    // Registers C under `name` with its base B under `baseName`. A default-constructible,
    // non-abstract C gets a factory that makes it with new. Answers false (and logs) when the
    // name is taken by another class.
    template <typename C, typename B = void>
    static bool registerClass(const QString &name, const QString &baseName = {},
                              std::function<std::shared_ptr<C>()> factory = {})
    {
        static_assert(std::is_void_v<B> || std::is_base_of_v<B, C>, "B must be a base of C");
        if (!factory) {
            if constexpr (std::is_default_constructible_v<C> && !std::is_abstract_v<C>)
                factory = [] { return std::make_shared<C>(); };
        }
        Factory erased;
        if (factory)
            erased = [factory] { return std::static_pointer_cast<void>(factory()); };
        Upcast upcast;
        if constexpr (!std::is_void_v<B>) {
            upcast = [](const std::shared_ptr<void> &object) -> std::shared_ptr<void> {
                return std::static_pointer_cast<B>(std::static_pointer_cast<C>(object));
            };
        }
        return registerErased(name, baseName, std::type_index(typeid(C)),
                              std::type_index(typeid(B)), std::move(erased), std::move(upcast));
    }

    static bool unregisterClass(const QString &name);

    static std::optional<VKClassInfo> classNamed(const QString &name);
    // True when `name` is `baseName` or derives from it through registered bases.
    static bool isSubclassOfClass(const QString &name, const QString &baseName);
    // A new object of the named class, as a pointer to T, which must be the class itself or a
    // registered base of it. Null when the class is unknown, has no factory, is not a T or the
    // factory answers null.
    template <typename T>
    static std::shared_ptr<T> createInstance(const QString &name)
    {
        return std::static_pointer_cast<T>(createErased(name, std::type_index(typeid(T))));
    }

    // Names (sorted) of the classes that derive from `baseName` (any class when empty) and
    // begin with one of the prefixes / end with the suffix.
    static QStringList classNamesWithPrefixes(const QStringList &prefixes,
                                              const QString &baseName = {});
    static QStringList classNamesWithSuffix(const QString &suffix, const QString &baseName = {});
    static QStringList allClassNames();

private:
    static bool registerErased(const QString &name, const QString &baseName, std::type_index type,
                               std::type_index baseType, Factory factory, Upcast upcast);
    static std::shared_ptr<void> createErased(const QString &name, std::type_index type);
};

// Registers a class from a static initializer in any translation unit:
//   VK_REGISTER_CLASS(VKMyExporter, VKExporter)   VK_REGISTER_ROOT_CLASS(VKExporter)
#define VK_REGISTER_CLASS(ClassName, BaseName)                                                     \
    namespace {                                                                                    \
    [[maybe_unused]] const bool vkClassRegistered_##ClassName =                                    \
        VKClassRegistry::registerClass<ClassName, BaseName>(QStringLiteral(#ClassName),            \
                                                            QStringLiteral(#BaseName));            \
    }
#define VK_REGISTER_ROOT_CLASS(ClassName)                                                          \
    namespace {                                                                                    \
    [[maybe_unused]] const bool vkClassRegistered_##ClassName =                                    \
        VKClassRegistry::registerClass<ClassName>(QStringLiteral(#ClassName));                     \
    }
