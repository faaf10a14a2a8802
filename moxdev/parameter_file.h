// The project's own way to change the user parameter file ("mox_flash.ini",
// the user's HPS NAND and SPI parts) so that nothing is lost: beside the
// flash parameter class's plain rewrite (MOXDEV_FLASH_INI::write_flash_ini_data),
// which rewrites the file in place and takes no lock.
#pragma once

#include "moxdev/moxdev_flash_ini.h"

#include "host/host_types.h"

#include <functional>
#include <string>
#include <vector>

namespace moxdev {

// How long a writer waits for another to finish, by default.
inline constexpr DWORD DEFAULT_LOCK_TIMEOUT_MS = 10000;

// Changes one data set so that concurrent writers lose nothing. Every caller
// holds an exclusive lock on "mox_flash.ini.lock" beside the file while it
// reads the sets and replaces the file; `change` gets the set's current bytes
// (empty when absent) and edits them (empty afterwards removes the set), or
// returns false with a reason to change nothing. The file is replaced through
// a uniquely named temporary file, flushed to disk and renamed, so readers and
// a crash see the old file or the new one. A file that exists but does not
// read as a container is first renamed to "mox_flash.ini.damaged-<time>"
// (returned in `moved_aside`); the library's own container with every set
// empty is not damaged. False with a readable `error` when the lock is not
// had within `lock_timeout_ms`, `change` refuses, or the file cannot be
// written; the earlier file is then as it was.
bool update_parameter_set(MOXDEV_FLASH_INI_ENUM set,
                          const std::function<bool(std::vector<BYTE>&, std::string&)>& change, std::string& error,
                          std::string* moved_aside = nullptr, DWORD lock_timeout_ms = DEFAULT_LOCK_TIMEOUT_MS);

// The parameter file's path.
std::string parameter_file_path();

// Whether the parameter file is missing, a valid container, or there but
// unreadable (damaged, or not a file): an unreadable one lists no user data.
enum class PARAMETER_FILE_STATE { MISSING, VALID, DAMAGED };
PARAMETER_FILE_STATE parameter_file_state();

} // namespace moxdev
