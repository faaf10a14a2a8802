// Version of the tool.
#pragma once

#include "host/host_types.h"

#include <string>

// "MAJOR.MINOR" of the project version.
std::string ver_get_version();

// Service-pack number in bits 0-7 (the project's patch number), build number
// in bits 8-23 (MOXDEV_BUILD_NUMBER at configure time).
DWORD ver_get_current_version_index_number();
