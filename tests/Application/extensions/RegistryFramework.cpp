// A shared library that declares itself as a framework with two roles, one of which the probe's
// main bundle overrides, and registers the service class it names.
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"

#include "RegistryTestService.h"

VK_DECLARE_FRAMEWORK("com.vessan.tests.RegistryFramework", "1.0", R"({"VKExtensions": {
    "SharedRole": {"VKClassName": "VKRegistryFrameworkService"},
    "FrameworkRole": {"VKClassName": "VKRegistryFrameworkService", "Note": "framework"}}})")

class VKRegistryFrameworkService : public VKRegistryTestService
{
public:
    QString origin() const override { return QStringLiteral("framework"); }
};

VK_REGISTER_ROOT_CLASS(VKRegistryTestService)
VK_REGISTER_CLASS(VKRegistryFrameworkService, VKRegistryTestService)

// Referenced by the probe so that the linker keeps the library.
int vkRegistryFrameworkMarker()
{
    return 18;
}
