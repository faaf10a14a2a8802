#include "host/ver.h"

#ifndef MOXDEV_VERSION_MAJOR
#define MOXDEV_VERSION_MAJOR 0
#define MOXDEV_VERSION_MINOR 0
#define MOXDEV_VERSION_PATCH 0
#endif
#ifndef MOXDEV_BUILD_NUMBER
#define MOXDEV_BUILD_NUMBER 0
#endif

std::string ver_get_version()
{
    return std::to_string(MOXDEV_VERSION_MAJOR) + "." + std::to_string(MOXDEV_VERSION_MINOR);
}

DWORD ver_get_current_version_index_number()
{
    const DWORD service_pack = DWORD(MOXDEV_VERSION_PATCH) & 0xFFu;
    const DWORD build = DWORD(MOXDEV_BUILD_NUMBER) & 0xFFFFu;
    return service_pack | (build << 8);
}
