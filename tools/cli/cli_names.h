// Device names as people type them, shared by the device and naming verbs.
#pragma once

#include "host/dev_catalogue.h"

#include <string>
#include <vector>

namespace moxdev_cli {

// The devices or families a name form of the naming grammar stands for.
struct NAME_TARGETS {
    std::string form;                      // what kind of name it is, "" when none of these
    std::vector<DEV_FAMILY_ENUM> families; // a family-level form stands for these
    std::vector<DEV_DEVICE_ENUM> devices;  // a device-level form stands for these
};
NAME_TARGETS resolve_name_form(const std::string& name);
// Every name a device question may be answered with, shorter forms first.
const std::vector<std::string>& known_device_names();
// A typed name, trimmed and upper-cased.
std::string normalised_name(std::string name);

} // namespace moxdev_cli
