#include <VessanUtilities.h>

#include <cstdio>

int main()
{
    std::printf("VessanUtilities %s\n", qPrintable(VKLibraryVersion()));
    std::printf("%s\n", qPrintable(vkFormat("found: %@", VKPathString::deletingLastPathComponent(
                                                             QStringLiteral("/tmp//x/")))));
    VKCalc calc;
    calc.setFps(VDCalc25fps);
    std::printf("%s\n", qPrintable(calc.evalPT(QStringLiteral("01:30:00.00+0100"), VDCalcTime)));
    return 0;
}
