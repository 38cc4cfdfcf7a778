// A framework declaring two roles, one of which the probe's main bundle overrides, and registering
// the class it names (any registered class serves; each component's names itself).
#include "Application/VKResponder.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"

VK_DECLARE_FRAMEWORK("com.vessan.tests.RegistryFramework", "1.0", R"({"VKExtensions": {
    "SharedRole": {"VKClassName": "VKRegistryFrameworkService"},
    "FrameworkRole": {"VKClassName": "VKRegistryFrameworkService", "Note": "framework"}}})")

class VKRegistryFrameworkService : public VKResponder
{
public:
    VKRegistryFrameworkService() { setObjectName(QStringLiteral("framework")); }
};
VK_REGISTER_CLASS(VKRegistryFrameworkService, VKResponder)

// Referenced by the probe so that the linker keeps the library.
int vkRegistryFrameworkMarker()
{
    return 18;
}
