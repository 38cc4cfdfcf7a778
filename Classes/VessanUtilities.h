// Umbrella header: everything the library offers, for hosts that prefer one include.
#pragma once

#include "Foundation/VKDate.h"
#include "Foundation/VKError.h"
#include "Foundation/VKException.h"
#include "Foundation/VKExport.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKPath.h"
#include "Foundation/VKVersion.h"
