// Pieces shared by the verbs of the moxdev command.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace moxdev_cli {

// A readable refusal of the user's input: printed as "moxdev: <message>",
// then exit status 1.
struct USER_ERROR {
    std::string message;
};

// Each adds its verbs below `app`.
void add_device_commands(CLI::App& app);
void add_flash_commands(CLI::App& app);
void add_naming_commands(CLI::App& app);
void add_image_commands(CLI::App& app);
void add_hps_commands(CLI::App& app);

} // namespace moxdev_cli
