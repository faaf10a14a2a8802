// Internal-error reporting and the local debug channel.
//
// An internal error is a defect of a build product or a broken precondition:
// the reporter never returns. The stand-alone host throws MSG_INTERNAL_ERROR
// so that a client (or a test) can catch it; nothing in the library relies on
// execution going on after the report.
#pragma once

#include <exception>
#include <string>

class MSG_INTERNAL_ERROR : public std::exception {
public:
    MSG_INTERNAL_ERROR(std::string condition, std::string module, std::string unit, int line);

    // Throws a MSG_INTERNAL_ERROR. `unit` may be a source file path: it is
    // reduced to the file name without directory and extension.
    [[noreturn]] static void report(const std::string& condition, const std::string& module, const std::string& unit,
                                    int line);

    const std::string& condition() const noexcept { return m_condition; }
    const std::string& module() const noexcept { return m_module; }
    const std::string& unit() const noexcept { return m_unit; }
    int line() const noexcept { return m_line; }
    const char* what() const noexcept override { return m_what.c_str(); }

private:
    std::string m_condition;
    std::string m_module;
    std::string m_unit;
    int m_line;
    std::string m_what;
};

// The host's local debug channel. A message of `level` is written to standard
// error, prefixed with its module, when the environment variable
// MOXDEV_DEBUG_LEVEL holds a number at or above `level`; otherwise it is
// dropped.
void msg_local_debug(int level, const std::string& module, const std::string& text);
// Whether a message of `level` would be written: callers test it before they
// spend time making the text.
bool msg_local_debug_on(int level);
