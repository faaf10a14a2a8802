// Pieces of the flash verbs shared by their units.
#pragma once

#include "cli_json.h"

#include "moxdev/moxdev_flash_manager.h"

#include <string>
#include <vector>

namespace moxdev_cli {

// A record field by field, one line each, as the text form shows it.
void print_record(const MOXDEV_SFL_FLASH_INFO& record);
// A record as a JSON object of its fields.
JSON record_json(const MOXDEV_SFL_FLASH_INFO& record);

// The flash database of the database directory for a one-device chain; with
// `every_record` the records behind a switch that is off are kept too. A
// database file that is missing or no regular file is the user's error.
MOXDEV_FLASH_MANAGER load_table(bool every_record);

// Read-ID bytes from words like "20 BA 19" or "0x20BA19".
std::vector<BYTE> parse_id_bytes(const std::vector<std::string>& words);

// The bytes of an SFDP read kept in `file` (- for standard input), in any
// form moxdev_tools::read_dump takes.
std::vector<BYTE> read_sfdp_file(const std::string& file);

// moxdev flash sfdp: below `flash`.
void add_sfdp_command(CLI::App& flash);

} // namespace moxdev_cli
