// Helpers shared by the tests: temporary directories, environment overrides,
// file bytes, database files built by hand, and internal-error expectations.
#pragma once

#include "moxdev/moxdev.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// Expects `statement` to report an internal error with the condition text
// `text`, of the module "MOXDEV", and (unless null) of the source unit
// `unit_name`, the class's.
#define EXPECT_INTERNAL_ERROR_IN(statement, text, unit_name)                                                           \
    do {                                                                                                               \
        try {                                                                                                          \
            statement;                                                                                                 \
            ADD_FAILURE() << "expected internal error: " << (text);                                                    \
        } catch (const MSG_INTERNAL_ERROR& error) {                                                                    \
            EXPECT_EQ(error.condition(), (text));                                                                      \
            EXPECT_EQ(error.module(), "MOXDEV");                                                                       \
            const char* const expected_unit = (unit_name);                                                             \
            if (expected_unit != nullptr) {                                                                            \
                EXPECT_EQ(error.unit(), expected_unit);                                                                \
            }                                                                                                          \
        }                                                                                                              \
    } while (0)

#define EXPECT_INTERNAL_ERROR(statement, text) EXPECT_INTERNAL_ERROR_IN(statement, text, nullptr)

namespace moxdev_test {

using BYTES = std::vector<BYTE>;

// A fresh directory below the system's temporary directory, removed with
// everything in it when the object goes.
class TEMP_DIR {
public:
    TEMP_DIR()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "moxdev-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("cannot create a temporary directory");
        m_path = pattern;
    }
    ~TEMP_DIR()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TEMP_DIR(const TEMP_DIR&) = delete;
    TEMP_DIR& operator=(const TEMP_DIR&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// Sets (or, with a null value, unsets) an environment variable for the life of
// the object, then restores what was there.
class SCOPED_ENV {
public:
    SCOPED_ENV(std::string name, const char* value) : m_name(std::move(name))
    {
        const char* old = std::getenv(m_name.c_str());
        m_old = old ? std::optional<std::string>(old) : std::nullopt;
        set(value);
    }
    ~SCOPED_ENV() { set(m_old ? m_old->c_str() : nullptr); }
    SCOPED_ENV(const SCOPED_ENV&) = delete;
    SCOPED_ENV& operator=(const SCOPED_ENV&) = delete;

private:
    void set(const char* value) const { value ? ::setenv(m_name.c_str(), value, 1) : ::unsetenv(m_name.c_str()); }

    std::string m_name;
    std::optional<std::string> m_old;
};

BYTES read_bytes(const std::string& path);
void write_bytes(const std::string& path, const BYTES& bytes);
std::string read_text(const std::string& path);
void write_text(const std::string& path, const std::string& text);

// A database file: magic, identifier, the announced payload size, the zlib
// stream of `payload` and a two-byte trailer.
BYTES make_database_file(const std::string& magic, const std::string& identifier, const BYTES& payload,
                         DWORD announced_size);
inline BYTES make_database_file(const std::string& magic, const std::string& identifier, const BYTES& payload)
{
    return make_database_file(magic, identifier, payload, DWORD(payload.size()));
}

// The inflated payload of a database file written by the library.
BYTES payload_of(const BYTES& file);

// Appends a little-endian DWORD to a byte vector.
void append_dword(BYTES& bytes, DWORD value);

// Source and build locations.
std::string source_path(const std::string& relative);
std::string data_path(const std::string& relative);

// Runs a shell command; returns its exit status and fills `output` with its
// standard output (and standard error when `merge_stderr`).
int run_command(const std::string& command, std::string& output, bool merge_stderr = false);

} // namespace moxdev_test
