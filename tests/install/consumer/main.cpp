#include <VessanUtilities.h>

#include <cstdio>

int main()
{
    std::printf("VessanUtilities %s\n", qPrintable(VKLibraryVersion()));
    std::printf("%s\n", qPrintable(vkFormat("found: %@", VKPath::deletingLastPathComponent(
                                                             QStringLiteral("/tmp//x/")))));
    return 0;
}
