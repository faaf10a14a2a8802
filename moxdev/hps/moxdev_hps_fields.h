// What the HPS record field lists (moxdev_hps_*_fields.def) need to be
// expanded into code. Library sources only.
#pragma once

#include "moxdev/moxdev_flash_ini.h"

#include <string>

namespace moxdev::detail {

// The parameter type of a field of this member type.
constexpr MOXDEV_PARAM_TYPE hps_param_type(const DWORD*)
{
    return MOXDEV_PARAM_DWORD;
}
constexpr MOXDEV_PARAM_TYPE hps_param_type(const QWORD*)
{
    return MOXDEV_PARAM_QWORD;
}
constexpr MOXDEV_PARAM_TYPE hps_param_type(const std::string*)
{
    return MOXDEV_PARAM_STRING;
}
constexpr MOXDEV_PARAM_TYPE hps_param_type(const bool*)
{
    return MOXDEV_PARAM_BOOL;
}

} // namespace moxdev::detail

// MOXDEV_HPS_PARAM_TYPE(type): the parameter type of a field list's type.
#define MOXDEV_HPS_PARAM_TYPE(type) ::moxdev::detail::hps_param_type(static_cast<type*>(nullptr))
// MOXDEV_HPS_BRACED (a, b, c): the list of a field list's ranges or hits as
// {a, b, c}.
#define MOXDEV_HPS_BRACED(...)                                                                                         \
    {                                                                                                                  \
        __VA_ARGS__                                                                                                    \
    }
