// The base class of the services that the extension registry tests look up by role; each
// component (program, framework, plug-in) registers its own subclass.
#pragma once

#include <QString>

class VKRegistryTestService
{
public:
    virtual ~VKRegistryTestService() = default;
    // Which component's code made the object.
    virtual QString origin() const = 0;
};
