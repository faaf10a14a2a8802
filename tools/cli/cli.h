// Pieces shared by the verbs of the moxdev command.
#pragma once

#include "moxdev/documents.h"
#include "moxdev/files.h"
#include "moxdev/suggest.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace moxdev_cli {

using moxdev::closest_names;
using moxdev::did_you_mean;

// A readable refusal of the user's input: printed as "moxdev: <message>",
// then exit status 1.
struct USER_ERROR {
    std::string message;
};

// Options and arguments whose values shell completion offers from a list
// the command prints (moxdev completion values SOURCE): the flash names,
// makers, sizes and voltages, the device names, the kinds of `type`.
inline std::map<const CLI::Option*, std::string>& completion_sources()
{
    static std::map<const CLI::Option*, std::string> sources;
    return sources;
}
// The lists by source name.
using VALUE_LISTER = std::function<std::vector<std::string>()>;
inline std::map<std::string, VALUE_LISTER>& completion_listers()
{
    static std::map<std::string, VALUE_LISTER> listers;
    return listers;
}
inline CLI::Option* complete_from(CLI::Option* option, const std::string& source, VALUE_LISTER values)
{
    completion_sources()[option] = source;
    completion_listers()[source] = std::move(values);
    return option;
}

// -q/--quiet: warnings and notes are not printed (errors still are).
inline bool quiet_output = false;

// A note ("moxdev: <text>") that is no error, e.g. why a list is empty, on
// standard error unless quiet; what was printed on standard output before
// it goes out first.
inline void note(const std::string& text)
{
    if (quiet_output)
        return;
    std::cout.flush();
    std::fflush(stdout);
    std::fprintf(stderr, "moxdev: %s\n", text.c_str());
}

// "moxdev: warning: <text>", the same way.
inline void warning(const std::string& text)
{
    note("warning: " + text);
}

// Where a dialogue's answers come from: the file named by --input (read
// whole, a regular file of at most 1 MiB), or standard input when none is
// named (read a bounded line at a time by the dialogues).
class ANSWER_SOURCE {
public:
    explicit ANSWER_SOURCE(const std::string& path)
    {
        if (path.empty())
            return;
        std::vector<BYTE> bytes;
        std::string error;
        if (!moxdev::read_input_file(path, 1024 * 1024, bytes, error))
            throw USER_ERROR{"cannot read '" + path + "': " + error};
        m_file.str(std::string(bytes.begin(), bytes.end()));
        m_from_file = true;
    }
    std::istream& stream() { return m_from_file ? static_cast<std::istream&>(m_file) : std::cin; }

private:
    std::istringstream m_file;
    bool m_from_file = false;
};

// Each adds its verbs below `app`.
void add_device_commands(CLI::App& app);
void add_flash_commands(CLI::App& app);
void add_naming_commands(CLI::App& app);
void add_image_commands(CLI::App& app);
void add_hps_commands(CLI::App& app);
// `completion bash|zsh`: shell completion scripts, generated from the
// commands and options of `app` when they are printed, so they cover every
// verb wherever it was added.
void add_completion_commands(CLI::App& app);

} // namespace moxdev_cli
