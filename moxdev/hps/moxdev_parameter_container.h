// The container of user parameter sets, "mox_flash.ini" in the module
// directory: a 16-byte magic, an entry count, an (offset, size) entry per set
// and the sets back to back. The flash parameter class reads and rewrites it
// (moxdev_flash_ini.cpp); the project's locked update (moxdev/parameter_file.h)
// keeps every change under concurrent writers. Library sources only.
#pragma once

#include "moxdev/internal/moxdev_file_reader.h"

#include "host/host_types.h"

#include <string>
#include <utility>
#include <vector>

namespace moxdev::detail {

inline constexpr char PARAMETER_FILE_MAGIC[16] = {'M', 'O', 'X', 'D', 'E', 'V', '_', 'F',
                                                  'L', 'A', 'S', 'H', '_', 'I', 'N', 'I'};
inline constexpr DWORD PARAMETER_FILE_HEADER = 20; // magic and entry count
inline constexpr DWORD PARAMETER_SET_COUNT = 3;    // the entry count this library writes
inline constexpr DWORD PARAMETER_DATA_START = PARAMETER_FILE_HEADER + 8 * PARAMETER_SET_COUNT;

// "<module directory>/mox_flash.ini".
std::string parameter_file_path();

// The most a parameter file holds: three sets of user parts, each part a few
// hundred bytes.
inline constexpr std::size_t PARAMETER_FILE_CAP = 16 * 1024 * 1024;

// The whole file at `path`, or why it could not be had (see
// moxdev_file_reader.h): one descriptor, a regular file, at most
// PARAMETER_FILE_CAP bytes.
READ_RESULT read_parameter_file(const std::string& path, std::vector<BYTE>& bytes, std::string& error);

// The (offset, size) entry of every set of a container file; false when the
// file is not a valid container. A container must hold some data after its
// entry table unless `allow_no_data`: the file this library writes when
// every set is empty (44 bytes) is valid to the project's own update, while
// the class's reader finds nothing in it.
bool parse_parameter_container(const std::vector<BYTE>& file, std::vector<std::pair<DWORD, DWORD>>& entries,
                               bool allow_no_data);

// A container holding `sets` (empty ones absent), three entries.
std::vector<BYTE> parameter_container_bytes(const std::vector<std::vector<BYTE>>& sets);

} // namespace moxdev::detail
