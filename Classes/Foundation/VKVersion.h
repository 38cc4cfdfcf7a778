// The library's version, as compiled and as linked.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKVersionConfig.h"

#include <QString>

// Version of the library the caller is linked against, such as "0.1.0".
VK_EXPORT QString VKLibraryVersion();
