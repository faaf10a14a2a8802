// The project's own way to build a database file from its table: the
// managers' generators (generate_device_database, generate_flash_database)
// write their output in place; these write it through a temporary file of a
// unique name beside the output, flushed to the disk and renamed over it, so
// an earlier file survives a failure, a crash or a full disk.
#pragma once

#include <string>

namespace moxdev {

// Generates as MOXDEV_DEV_INFO_MANAGER::generate_device_database does (its
// internal errors are thrown as they are, and nothing is left behind); the
// number of records written in `records`. False, with `error`, when the
// output cannot be written.
bool generate_device_database(const std::string& csv, const std::string& out, unsigned& records, std::string& error);
// The same for MOXDEV_FLASH_MANAGER::generate_flash_database.
bool generate_flash_database(const std::string& csv, const std::string& out, std::string& error);

} // namespace moxdev
