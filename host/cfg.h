// Configuration service: values and switches by key.
//
// The stand-alone host reads the process environment at every call, from the
// variable named like the key, so a change of the environment takes effect at
// once.
#pragma once

#include "host/host_types.h"

#include <string>

// The value of `key`, or the empty string when it is not set.
std::string cfg_get_value(const std::string& key);

// Whether switch `key` is on: "1", "on", "true", "yes", "y" are on and "0",
// "off", "false", "no", "n" are off, in any letter case; anything else, or an
// unset key, gives `default_value`.
VELMAR_BOOL cfg_is_on(const std::string& key, bool default_value);
