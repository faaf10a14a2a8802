// Pieces of the flash verbs shared by their units.
#pragma once

#include "cli_json.h"

#include "moxdev/flash_sources.h"
#include "moxdev/moxdev_flash_manager.h"

#include <string>
#include <vector>

namespace moxdev_cli {

// A size in bytes as people read it: "16 MiB", "64 KiB", "512 bytes".
std::string bytes_size_text(QWORD bytes);
// "ID EF 40 18, 16 MiB (128 Mbit), 64 KiB sectors, 3.3V": the line a person
// reads first.
std::string record_summary(const MOXDEV_SFL_FLASH_INFO& record);
// The maxima with their units and where they come from (`source`, null when
// not recorded), then the record field by field with units, one line each.
void print_record(const MOXDEV_SFL_FLASH_INFO& record, const moxdev::MAXIMA_SOURCE* source);
// A record as a JSON object of its fields.
JSON record_json(const MOXDEV_SFL_FLASH_INFO& record);
// Where maxima come from, in words and as a JSON object (null when not
// recorded); the units of the fields whose names do not say them.
std::string source_text(const moxdev::MAXIMA_SOURCE* source);
JSON source_json(const moxdev::MAXIMA_SOURCE* source);
JSON units_json();
// The sources of the table's records, read once from beside the database (a
// warning when they cannot be read); the source of a manager's record.
const moxdev::FLASH_SOURCES& table_sources();
const moxdev::MAXIMA_SOURCE* record_source(const MOXDEV_FLASH_MANAGER& manager, DWORD index);

// The flash database of the database directory for a one-device chain; with
// `every_record` the records behind a switch that is off are kept too. A
// database file that is missing or no regular file is the user's error.
MOXDEV_FLASH_MANAGER load_table(bool every_record);

// Read-ID bytes from words like "20 BA 19" or "0x20BA19".
std::vector<BYTE> parse_id_bytes(const std::vector<std::string>& words);

// The bytes of an SFDP read kept in `file` (- for standard input), in any
// form moxdev::read_dump takes.
std::vector<BYTE> read_sfdp_file(const std::string& file);

// moxdev flash sfdp: below `flash`.
void add_sfdp_command(CLI::App& flash);

} // namespace moxdev_cli
