// moxdev: the command-line face of the library.
//
// Exit status: 0 success, 1 usage error or bad input (unknown name, missing
// argument), 2 internal error (a damaged database or table, a broken build).
// Every error is one line on standard error that starts with "moxdev: ".
#include "cli.h"
#include "moxdev/suggest.h"

#include "moxdev/moxdev.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>

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

// The deepest command the parser reached, and how many subcommands lead to it.
const CLI::App* reached_command(const CLI::App& app, int& depth)
{
    const CLI::App* command = &app;
    depth = 0;
    for (std::vector<CLI::App*> parsed = command->get_subcommands(); !parsed.empty();
         parsed = command->get_subcommands()) {
        command = parsed.front();
        ++depth;
    }
    return command;
}

// "moxdev device show" for the show command.
std::string command_path(const CLI::App* command)
{
    std::string path = command->get_name();
    for (command = command->get_parent(); command != nullptr; command = command->get_parent())
        path = command->get_name() + " " + path;
    return path;
}

// Reports a usage error. A command that needs a subcommand and got nothing
// at all prints its help instead.
void report_usage_error(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv)
{
    int depth = 0;
    const CLI::App* command = reached_command(app, depth);
    const std::string path = command_path(command);
    const bool needs_subcommand = command->get_require_subcommand_min() > 0 && command->get_subcommands().empty();
    if (needs_subcommand && argc == depth + 1) {
        std::cerr << app.help();
        return;
    }
    std::string message = error.what();
    if (needs_subcommand && argc > depth + 1) {
        const std::string word = argv[depth + 1];
        std::vector<std::string> known;
        std::string names;
        for (const CLI::App* sub : command->get_subcommands([](const CLI::App*) { return true; })) {
            known.push_back(sub->get_name());
            names += (names.empty() ? "" : ", ") + sub->get_name();
        }
        // A near miss names the command meant; anything else lists them all.
        const std::string guess = word[0] == '-' ? "" : moxdev_cli::did_you_mean(word, known);
        if (!guess.empty()) {
            std::fprintf(stderr, "moxdev: unknown command '%s'%s\n", word.c_str(), guess.c_str());
            return;
        }
        message = word[0] == '-' ? fmt::format("'{}' is not an option of '{}'", word, path)
                                 : fmt::format("'{}' is not a subcommand of '{}' ({})", word, path, names);
    }
    std::fprintf(stderr, "moxdev: %s; see '%s --help'\n", message.c_str(), path.c_str());
}

// Set once a lost write has been reported, so that it is reported once.
bool output_failure_reported = false;

void report_output_failure(const std::string& reason)
{
    if (!output_failure_reported)
        std::fprintf(stderr, "moxdev: cannot write the output: %s\n", reason.c_str());
    output_failure_reported = true;
}

// Whether everything printed reached standard output: a full disk, a closed
// pipe or /dev/full loses an answer, and a command whose answer is lost has
// not succeeded. The stream keeps only that a write failed, so errno names
// the reason when it is one a write gives.
bool output_written()
{
    std::cout.flush();
    const bool flushed = std::fflush(stdout) == 0;
    if (flushed && !std::ferror(stdout) && !std::cout.fail())
        return true;
    const int failure = errno;
    const bool write_reason = failure == ENOSPC || failure == EPIPE || failure == EIO || failure == EDQUOT ||
                              failure == EFBIG || failure == EBADF || failure == EAGAIN;
    report_output_failure(write_reason ? std::strerror(failure) : "the write failed");
    return false;
}

// What was printed before an error goes out first, so that a transcript
// shows the error where it happened.
void flush_answer()
{
    std::cout.flush();
    std::fflush(stdout);
}

// moxdev help [COMMAND...]: the help of the command named, as --help prints it.
void add_help_command(CLI::App& app)
{
    static std::vector<std::string> words;
    CLI::App* help = app.add_subcommand("help", "Show the help of moxdev or of a command, e.g. moxdev help flash list");
    help->add_option("COMMAND", words, "The command, and its subcommands");
    help->callback([&app] {
        const CLI::App* command = &app;
        for (const std::string& word : words) {
            const CLI::App* sub = nullptr;
            for (const CLI::App* candidate : command->get_subcommands([](const CLI::App*) { return true; })) {
                if (candidate->get_name() == word)
                    sub = candidate;
            }
            if (sub == nullptr)
                throw USER_ERROR{fmt::format("'{}' is not a command of '{}'; see '{} --help'", word,
                                             command_path(command), command_path(command))};
            command = sub;
        }
        // Formatted directly: App::help() of the root would show the help of
        // this very command, the one the parser selected. The usage line
        // reads "moxdev flash list", as --help writes it.
        std::cout << command->get_formatter()->make_help(command, command_path(command), CLI::AppFormatMode::Normal);
    });
}

int run(int argc, char** argv);

} // namespace

int main(int argc, char** argv)
{
    const int status = run(argc, argv);
    return output_written() || status != 0 ? status : EXIT_USAGE;
}

namespace {

// The options every command takes.
void add_global_options(CLI::App& app)
{
    app.set_version_flag("-V,--version", version_text(), "Print the version and build number");
    app.require_subcommand(1);
    // The global options may also follow the command: moxdev flash list -q.
    app.fallthrough();
    app.add_flag("-q,--quiet", moxdev_cli::quiet_output, "Print no warnings or notes, only errors");
    app.add_flag_function(
        "-v,--verbose",
        [](std::int64_t count) {
            // Each -v shows more of the library's own debug output: its
            // messages up to that level; from the first, why a user flash
            // value is ignored; from the third, each step of the name queries.
            ::setenv("MOXDEV_DEBUG_LEVEL", std::to_string(count).c_str(), 1);
            ::setenv("MOX_SUPPORT_EXT_SPI_DEV_DEBUG", "1", 1);
            if (count >= 3)
                ::setenv("MOXDEV_ENABLE_GRAMMAR_DEBUG", "1", 1);
        },
        "Show the library's debug output: -v its messages and why a user flash value is ignored, -vv more, "
        "-vvv also each step of the name queries");
}

int run(int argc, char** argv)
{
    CLI::App app{"moxdev: device and configuration-flash information for FPGA/CPLD programmers", "moxdev"};
    add_global_options(app);
    moxdev_cli::add_device_commands(app);
    moxdev_cli::add_flash_commands(app);
    moxdev_cli::add_naming_commands(app);
    moxdev_cli::add_image_commands(app);
    moxdev_cli::add_hps_commands(app);
    moxdev_cli::add_completion_commands(app);
    add_help_command(app);
    // Set last, so that the commands do not inherit it. Headings alone on
    // their line, the items indented below: help2man makes sections of them.
    app.footer("Every command has --help. Shell completion: moxdev completion bash|zsh.\n"
               "\n"
               "Environment:\n"
               "  MOXDEV_DEVICE_DB_DIR   where the databases are (default: the installed data)\n"
               "  MOXDEV_INSTALL_DIR     where the part list is (default: the installed data)\n"
               "  MOXDEV_MODULE_DIR      where mox_flash.ini, the user's HPS flash parts, is\n"
               "\n"
               "Exit status:\n"
               "  0   success\n"
               "  1   usage error or bad input\n"
               "  2   internal error (a damaged database or build product)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // --help and --version end the parse with a "success" exception.
        if (e.get_exit_code() == 0)
            return app.exit(e);
        report_usage_error(app, e, argc, argv);
        return EXIT_USAGE;
    } catch (const USER_ERROR& e) {
        flush_answer();
        std::fprintf(stderr, "moxdev: %s\n", e.message.c_str());
        return EXIT_USAGE;
    } catch (const moxdev::QUERY_ERROR& e) {
        // The library's refusal of a query: the same readable sentence.
        flush_answer();
        std::fprintf(stderr, "moxdev: %s\n", e.what());
        return EXIT_USAGE;
    } catch (const MSG_INTERNAL_ERROR& e) {
        flush_answer();
        std::fprintf(stderr, "moxdev: internal error: %s (%s, line %d)\n", e.condition().c_str(), e.unit().c_str(),
                     e.line());
        return EXIT_INTERNAL;
    } catch (const std::filesystem::filesystem_error& e) {
        flush_answer();
        // A path the system refuses (a link loop, a name too long, a folder
        // that cannot be searched) is the caller's setting to correct.
        std::fprintf(stderr, "moxdev: %s: %s\n", e.path1().c_str(), e.code().message().c_str());
        return EXIT_USAGE;
    } catch (const std::system_error& e) {
        // fmt::print reports a failed write so; the answer is lost, which
        // the caller must learn (status 1), not a defect of the library.
        if (e.code().category() == std::system_category() || e.code().category() == std::generic_category()) {
            report_output_failure(e.code().message());
            return EXIT_USAGE;
        }
        std::fprintf(stderr, "moxdev: internal error: %s\n", e.what());
        return EXIT_INTERNAL;
    } catch (const std::exception& e) {
        flush_answer();
        // Anything else the library or a verb throws is a defect too.
        std::fprintf(stderr, "moxdev: internal error: %s\n", e.what());
        return EXIT_INTERNAL;
    }
    return 0;
}

} // namespace
