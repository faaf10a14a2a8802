// Pieces of the naming unit that the part-number unit builds on; not part of
// the library's interface.
#pragma once

#include "host/host_types.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// The OPN table of the compiled-in image, decoded on first use.
const std::vector<DWORD>& moxdev_opn_table();

// The speed-grade and package stripping steps without their debug output,
// for code that runs them over the whole catalogue.
std::string moxdev_package_name(const std::string& name, bool no_fallback);
std::string moxdev_device_name(const std::string& name, bool skip_package_conversion, bool no_fallback);
