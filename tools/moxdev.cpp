// moxdev: the command-line face of the library.
//
// Exit status: 0 success, 1 usage error or bad input (unknown name, missing
// argument), 2 internal error (a damaged database or table, a broken build).
#include "cli.h"

#include "moxdev/moxdev.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <string>

using moxdev_cli::USER_ERROR;

namespace {

constexpr int EXIT_USAGE = 1;
constexpr int EXIT_INTERNAL = 2;

std::string version_text()
{
    const DWORD index = ver_get_current_version_index_number();
    std::string text = "moxdev " + ver_get_version();
    if ((index & 0xFF) != 0)
        text += fmt::format(" SP{}", index & 0xFF);
    return text + fmt::format(" build {}", (index >> 8) & 0xFFFF);
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"moxdev: device and configuration-flash information for FPGA/CPLD programmers.\n"
                 "Databases are found below $MOXDEV_DEVICE_DB_DIR (default: the installed data),\n"
                 "the part list below $MOXDEV_INSTALL_DIR.",
                 "moxdev"};
    app.set_version_flag("--version", version_text());
    app.require_subcommand(1);

    moxdev_cli::add_device_commands(app);
    moxdev_cli::add_flash_commands(app);
    moxdev_cli::add_naming_commands(app);
    moxdev_cli::add_image_commands(app);
    moxdev_cli::add_hps_commands(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return EXIT_USAGE;
    } catch (const USER_ERROR& e) {
        std::fprintf(stderr, "moxdev: %s\n", e.message.c_str());
        return EXIT_USAGE;
    } catch (const MSG_INTERNAL_ERROR& e) {
        std::fprintf(stderr, "moxdev: internal error: %s (%s, line %d)\n",
                     e.condition().c_str(), e.unit().c_str(), e.line());
        return EXIT_INTERNAL;
    }
    return 0;
}
