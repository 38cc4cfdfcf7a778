// Runs pieces of the diagnostics code in a process of its own, for the tests that need one:
//   readonly PATH   prints 1 when PATH lies on a read-only file system, else 0
#include "Diagnostics/VKHost.h"

#include <QString>

#include <cstdio>
#include <cstring>

int main(int argc, char **argv)
{
    if (argc == 3 && std::strcmp(argv[1], "readonly") == 0) {
        std::printf("%d\n", VKHost::isPathOnReadOnlyVolume(QString::fromLocal8Bit(argv[2])));
        return 0;
    }
    std::fprintf(stderr, "usage: vkdiagnostics_probe readonly PATH\n");
    return 2;
}
