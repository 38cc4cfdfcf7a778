// What a command-line tool implements to run on the frame: a delegate that starts the tool's
// work, and a "class" object that creates delegates and answers the tool's configuration.
#pragma once

#include "Application/VKApplicationArguments.h"
#include "Application/VKApplicationConfiguration.h"
#include "Foundation/VKExport.h"

#include <QString>

#include <concepts>
#include <functional>
#include <memory>
#include <typeinfo>

class VKApplication;

class VK_EXPORT VKApplicationDelegate
{
public:
    virtual ~VKApplicationDelegate();

    // Starts the tool's work with the parsed command line; it may return before the work is
    // done. The run ends once the delegate sets the application's exit code and then marks it
    // finished, on the thread that runs the application (timers and queued calls delivered
    // there count). The application outlives the call and the delegate.
    virtual void application(VKApplication &application,
                             const std::shared_ptr<VKApplicationArguments> &arguments) = 0;
};

// A delegate class as the frame sees it: C++ types written against the concept below use
// VKApplicationDelegateClass::of<T>(); a class looked up at run time can be wrapped by hand.
template <typename T>
concept VKApplicationDelegateType =
    std::derived_from<T, VKApplicationDelegate> && std::default_initializable<T> && requires
{
    {
        T::applicationConfiguration()
        } -> std::convertible_to<std::shared_ptr<VKApplicationConfiguration>>;
};

class VK_EXPORT VKApplicationDelegateClass
{
public:
    using Factory = std::function<std::shared_ptr<VKApplicationDelegate>()>;
    using ConfigurationProvider = std::function<std::shared_ptr<VKApplicationConfiguration>()>;

    VKApplicationDelegateClass(const QString &className, Factory factory,
                               ConfigurationProvider configurationProvider);

    // The class of a C++ delegate type: `new T()` and `T::applicationConfiguration()`.
    template <VKApplicationDelegateType T>
    static VKApplicationDelegateClass of()
    {
        return VKApplicationDelegateClass(
            demangledName(typeid(T).name()), [] { return std::make_shared<T>(); },
            [] {
                return std::shared_ptr<VKApplicationConfiguration>(T::applicationConfiguration());
            });
    }

    QString className() const { return m_className; }
    // A fresh delegate; null if the factory makes none.
    std::shared_ptr<VKApplicationDelegate> createDelegate() const;
    // The tool's configuration; null means no options at all.
    std::shared_ptr<VKApplicationConfiguration> applicationConfiguration() const;

    // Readable form of a type name from typeid ("MyTool::Delegate").
    static QString demangledName(const char *mangledName);

private:
    QString m_className;
    Factory m_factory;
    ConfigurationProvider m_configurationProvider;
};
