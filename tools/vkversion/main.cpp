// vkversion: prints the library's version and where it keeps per-user files.
#include "Foundation/VKFormat.h"
#include "Foundation/VKPath.h"
#include "Foundation/VKVersion.h"

#include <cstdio>

int main()
{
    const QString text = vkFormat("VessanUtilities %@\napplication support: %@\ncaches: %@\n",
                                  VKLibraryVersion(), VKPath::applicationSupportDirectory(),
                                  VKPath::cachesDirectory());
    std::fputs(text.toUtf8().constData(), stdout);
    return 0;
}
