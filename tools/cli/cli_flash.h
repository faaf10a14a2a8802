// Pieces of the flash verbs shared by their units.
#pragma once

#include "cli_json.h"

#include "moxdev/documents/flash_queries.h"
#include "moxdev/flash_documents.h"
#include "moxdev/flash_sources.h"
#include "moxdev/moxdev_flash_manager.h"

#include <string>
#include <vector>

namespace moxdev_cli {

using moxdev::bytes_size_text;

// "ID EF 40 18, 16 MiB (128 Mbit), 64 KiB sectors, 3.3V": the line a person
// reads first.
std::string record_summary(const MOXDEV_SFL_FLASH_INFO& record);
// The maxima with their units and where they come from (`source`, null when
// not recorded), then the record field by field with units, one line each.
void print_record(const MOXDEV_SFL_FLASH_INFO& record, const moxdev::MAXIMA_SOURCE* source);
// Where maxima come from, in words.
std::string source_text(const moxdev::MAXIMA_SOURCE* source);

// The documents --json prints, and the tables they keep, which the text
// forms read: made once per run, on first use, their notes and warnings on
// standard error.
moxdev::FLASH_DOCUMENTS& flash_documents();
moxdev::FLASH_TABLES& flash_tables();

// moxdev flash sfdp: below `flash`.
void add_sfdp_command(CLI::App& flash);

} // namespace moxdev_cli
