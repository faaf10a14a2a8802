#include "host/cfg.h"

#include "host/gen_string.h"

#include <cstdlib>

std::string cfg_get_value(const std::string& key)
{
    const char* value = std::getenv(key.c_str());
    return value != nullptr ? std::string(value) : std::string();
}

VELMAR_BOOL cfg_is_on(const std::string& key, bool default_value)
{
    // Switches are asked on hot paths and mostly unset: no copy for those.
    const char* set = std::getenv(key.c_str());
    if (set == nullptr || *set == '\0')
        return default_value;
    std::string value = set;
    stl_tolower(value);
    if (value == "1" || value == "on" || value == "true" || value == "yes" || value == "y")
        return true;
    if (value == "0" || value == "off" || value == "false" || value == "no" || value == "n")
        return false;
    return default_value;
}
