// Device names as people type them, shared by the device and naming verbs:
// the library's name queries under the command's names.
#pragma once

#include "moxdev/documents/naming_queries.h"

#include <string>
#include <vector>

namespace moxdev_cli {

using moxdev::NAME_TARGETS;
using moxdev::normalised_name;

// Every name a device question may be answered with, shorter forms first:
// the values shell completion offers for a device name.
inline std::vector<std::string> known_device_names()
{
    moxdev::NAMING_QUERIES queries;
    return queries.known_device_names();
}

} // namespace moxdev_cli
