// The operating system's release as a small integer (102 for "10.2" ... 109 for "10.9", 0 for
// anything else), read from the product version. On Linux the product version is VERSION_ID
// of /etc/os-release, so current distributions answer 0.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>

#include <optional>

class VK_EXPORT VKSystemInfo
{
public:
    // The one instance, made on first use and kept for the process.
    static VKSystemInfo &sharedInfo();

    // Cached once non-zero; 0 is computed again on the next call.
    int osVersion();

    // The rule on one product version: the first of the prefixes "10.2" ... "10.9" that
    // matches answers 102 ... 109, else 0 ("10.10.1" gives 0).
    static int osVersionForProductVersion(const QString &productVersion);
    // VERSION_ID of the os-release file (quotes removed); nothing when it cannot be read.
    static std::optional<QString> productVersion();
    // Reads another os-release file instead (empty: back to /etc/os-release). For tests.
    static void setOSReleasePathForTesting(const QString &path);

    VKSystemInfo(const VKSystemInfo &) = delete;
    VKSystemInfo &operator=(const VKSystemInfo &) = delete;

private:
    VKSystemInfo() = default;
    int m_osVersion = 0;
};
