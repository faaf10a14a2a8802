// Pieces shared by the verbs of the moxdev command.
#pragma once

#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>
#include <string>

namespace moxdev_cli {

// A readable refusal of the user's input: printed as "moxdev: <message>",
// then exit status 1.
struct USER_ERROR {
    std::string message;
};

// Where a dialogue's answers come from: the file named by --input, or
// standard input when none is named.
class ANSWER_SOURCE {
public:
    explicit ANSWER_SOURCE(const std::string& path)
    {
        if (path.empty())
            return;
        m_file.open(path);
        if (!m_file)
            throw USER_ERROR{"cannot read '" + path + "'"};
    }
    std::istream& stream() { return m_file.is_open() ? static_cast<std::istream&>(m_file) : std::cin; }

private:
    std::ifstream m_file;
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
