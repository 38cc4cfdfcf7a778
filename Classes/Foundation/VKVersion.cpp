#include "Foundation/VKVersion.h"

QString VKLibraryVersion()
{
    return QStringLiteral(VK_VERSION_STRING);
}
