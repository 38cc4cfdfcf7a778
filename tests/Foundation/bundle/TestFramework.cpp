// A shared library that declares itself as a framework, linked into the bundle probe.
#include "Foundation/VKBundle.h"

VK_DECLARE_FRAMEWORK("com.vessan.tests.Framework", "1.2",
                     R"({"VKExtensions": {"FrameworkRole": {"VKClassName": "Nothing"}}})")

// Referenced by the probe so that the linker keeps the library.
int vkTestFrameworkMarker()
{
    return 12;
}
