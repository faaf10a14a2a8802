// Helpers shared by the fuzz targets: a scratch directory per process, files
// written from fuzz input, the build's own data, and the one clean way for a
// reader to refuse its input.
#pragma once

#include "moxdev/moxdev.h"

#include <zlib.h>

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace moxdev_fuzz {

using BYTES = std::vector<BYTE>;

// Where the build put the databases and the part list (share/moxdev).
inline std::string data_dir()
{
    return MOXDEV_FUZZ_DATA_DIR;
}

// A directory of this process, made on first use and removed at exit.
inline const std::string& scratch_dir()
{
    static const std::string dir = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "moxdev-fuzz-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::perror("mkdtemp");
            std::abort();
        }
        return pattern;
    }();
    static const bool cleanup_registered = [] {
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(scratch_dir(), ignored);
        });
        return true;
    }();
    (void)cleanup_registered;
    return dir;
}

// Takes the mode byte that opens a target's input; false when there is none.
inline bool take_mode(const uint8_t*& data, size_t& size, BYTE& mode)
{
    if (size < 1)
        return false;
    mode = data[0];
    ++data;
    --size;
    return true;
}

inline std::string scratch_path(const std::string& name)
{
    return scratch_dir() + "/" + name;
}

inline void write_file(const std::string& path, const void* data, std::size_t size)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(data), std::streamsize(size));
    out.close();
    if (!out) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        std::abort();
    }
}

inline void write_file(const std::string& path, const BYTES& bytes)
{
    write_file(path, bytes.data(), bytes.size());
}

// The environment every target starts from: no user flash, no switches that
// would print, notices thrown away.
inline void common_environment()
{
    ::unsetenv("MOX_SUPPORT_EXT_SPI_DEV");
    ::unsetenv("MOX_SUPPORT_EXT_SPI_DEV_DEBUG");
    ::unsetenv("MOXDEV_ENABLE_GRAMMAR_DEBUG");
    ::unsetenv("MOXDEV_DEBUG_LEVEL");
    ::setenv("MOXDEV_NOTICES_FILE", "/dev/null", 1);
    ::setenv("MOXDEV_DEVICE_DB_DIR", data_dir().c_str(), 1);
    ::setenv("MOXDEV_INSTALL_DIR", data_dir().c_str(), 1);
    ::setenv("MOXDEV_MODULE_DIR", scratch_dir().c_str(), 1);
}

// The zlib stream of `data` (fast level: the fuzzer runs this on every input).
inline BYTES deflate(const BYTE* data, std::size_t size)
{
    uLongf length = ::compressBound(uLong(size));
    BYTES out(length);
    if (::compress2(out.data(), &length, data, uLong(size), 1) != Z_OK)
        std::abort();
    out.resize(length);
    return out;
}

// A database file around `payload`: magic, identifier, the payload's size, its
// zlib stream and the two-byte trailer.
inline BYTES database_file(const char* magic, const std::string& identifier, const BYTE* payload, std::size_t size)
{
    BYTES file(magic, magic + 8);
    file.insert(file.end(), identifier.begin(), identifier.end());
    for (int shift = 0; shift < 32; shift += 8)
        file.push_back(BYTE(size >> shift));
    const BYTES compressed = deflate(payload, size);
    file.insert(file.end(), compressed.begin(), compressed.end());
    file.push_back(0);
    file.push_back(0);
    return file;
}

// A damaged build product ends in an internal error; anything else that
// escapes (another exception, a crash, a leak) is a finding.
template <class BODY>
bool refused_cleanly(BODY body)
{
    try {
        body();
        return false;
    } catch (const MSG_INTERNAL_ERROR&) {
        return true;
    }
}

// Aborts (a finding) with a message when an invariant does not hold.
inline void require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        std::abort();
    }
}

} // namespace moxdev_fuzz
