#include "Application/VKApplicationDelegate.h"

#include <cxxabi.h>

#include <cstdlib>

VKApplicationDelegate::~VKApplicationDelegate() = default;

VKApplicationDelegateClass::VKApplicationDelegateClass(const QString &className, Factory factory,
                                                       ConfigurationProvider configurationProvider)
    : m_className(className), m_factory(std::move(factory)),
      m_configurationProvider(std::move(configurationProvider))
{}

std::shared_ptr<VKApplicationDelegate> VKApplicationDelegateClass::createDelegate() const
{
    return m_factory ? m_factory() : nullptr;
}

std::shared_ptr<VKApplicationConfiguration>
VKApplicationDelegateClass::applicationConfiguration() const
{
    return m_configurationProvider ? m_configurationProvider() : nullptr;
}

QString VKApplicationDelegateClass::demangledName(const char *mangledName)
{
    if (!mangledName)
        return QString();
    int status = 0;
    char *readable = abi::__cxa_demangle(mangledName, nullptr, nullptr, &status);
    const QString name = QString::fromUtf8(status == 0 && readable ? readable : mangledName);
    std::free(readable);
    return name;
}
