// The --json output of the moxdev verbs: one JSON document on standard output.
//
// Conventions shared by every verb:
//   - field names are those of the records (device and flash record fields,
//     HPS parameter and word names);
//   - numbers are JSON numbers, flags JSON bools, a missing value is null;
//   - a catalogue or option value is the number under the field's own name,
//     with its identifier beside it under "<field>_name";
//   - a list of records is an array of objects, each with "index" (the
//     number the text form shows) and "record"; a reference to a record
//     elsewhere is "record_index";
//   - objects keep the order of the record or of the text form.
// While a verb runs with --json, whatever the library prints on standard
// output is sent to standard error, so standard output holds the document
// alone.
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <functional>
#include <iostream>
#include <string>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace moxdev_cli {

namespace fd {
#ifdef _WIN32
inline int of(std::FILE* file)
{
    return _fileno(file);
}
inline int duplicate(int from)
{
    return _dup(from);
}
inline void replace(int from, int to)
{
    _dup2(from, to);
}
inline void close(int descriptor)
{
    _close(descriptor);
}
#else
inline int of(std::FILE* file)
{
    return fileno(file);
}
inline int duplicate(int from)
{
    return dup(from);
}
inline void replace(int from, int to)
{
    dup2(from, to);
}
inline void close(int descriptor)
{
    ::close(descriptor);
}
#endif
} // namespace fd

using JSON = nlohmann::ordered_json;

// Set by the --json flag of the verb being run.
inline bool json_output = false;

// A text that may be empty as a JSON value: null when empty.
inline JSON text_or_null(const std::string& text)
{
    return text.empty() ? JSON() : JSON(text);
}

// Sends standard output to standard error for the life of the object; only
// print_json writes to the real standard output meanwhile.
class JSON_STDOUT {
public:
    JSON_STDOUT()
    {
        flush();
        saved() = fd::duplicate(fd::of(stdout));
        if (saved() >= 0)
            fd::replace(fd::of(stderr), fd::of(stdout));
    }
    ~JSON_STDOUT()
    {
        flush();
        if (saved() >= 0) {
            fd::replace(saved(), fd::of(stdout));
            fd::close(saved());
            saved() = -1;
        }
    }
    JSON_STDOUT(const JSON_STDOUT&) = delete;
    JSON_STDOUT& operator=(const JSON_STDOUT&) = delete;

    // Writes `text` to the real standard output.
    static void write(const std::string& text)
    {
        flush();
        if (saved() >= 0)
            fd::replace(saved(), fd::of(stdout));
        std::cout << text;
        flush();
        if (saved() >= 0)
            fd::replace(fd::of(stderr), fd::of(stdout));
    }

private:
    static int& saved()
    {
        static int descriptor = -1;
        return descriptor;
    }
    static void flush()
    {
        std::cout.flush();
        std::fflush(stdout);
    }
};

// Prints the verb's document. Names read from files need not be UTF-8; such
// bytes become U+FFFD rather than stopping the output.
inline void print_json(const JSON& document)
{
    JSON_STDOUT::write(document.dump(2, ' ', false, JSON::error_handler_t::replace) + "\n");
}

// Adds --json to `command` and makes `action` its callback. With --json the
// action runs with standard output sent to standard error and prints its
// document with print_json.
inline void add_json_verb(CLI::App* command, std::function<void()> action)
{
    command->add_flag("--json", json_output, "Print one JSON document instead of text");
    command->callback([action = std::move(action)] {
        if (!json_output) {
            action();
            return;
        }
        const JSON_STDOUT redirect;
        action();
    });
}

} // namespace moxdev_cli
