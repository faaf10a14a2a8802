// The flash verbs' answers as documents (see moxdev/documents.h): what
// `moxdev flash identify|show|list|sfdp --json` print.
#pragma once

#include "moxdev/documents.h"

#include "host/host_types.h"

#include <string>
#include <vector>

namespace moxdev {

// ID bytes as people write them: separate words or one string, hex with or
// without "0x", separated by blanks, commas or colons, or run together
// ("EF4018"). INVALID_INPUT when a word is not hex or nothing is given.
std::vector<BYTE> parse_id_bytes(const std::vector<std::string>& words);

// `flash identify BYTES [--silicon-id] [--sfdp FILE]`: the record the chip
// that answers `id_bytes` binds, with its maxima's source. `sfdp`, when not
// null, is the chip's SFDP read (bytes, see read_dump): a chip the table does
// not know is bound to the record derived from it. NOT_FOUND when nothing
// matches (the message says why, with hints).
DOCUMENT flash_identify_document(const std::vector<BYTE>& id_bytes, bool silicon_id = false,
                                 const std::vector<BYTE>* sfdp = nullptr, const NOTE_SINK& notes = {});

// `flash show NAME`: every record (ID variant) of one chip, found by its
// name, an alias or an optional part of a name (letter case ignored).
DOCUMENT flash_show_document(const std::string& name, const NOTE_SINK& notes = {});

// The filters of `flash list`; empty ones pass everything.
struct FLASH_LIST_FILTER {
    std::string pattern; // '*' and '?' wildcards, matched against names and aliases
    std::string maker;
    std::string size;    // as --size reads it: 512K, 128M, 1G, 16MB
    std::string voltage; // 3.3V or 1.8V
    bool every_record = false; // --all: also the records whose switch is off
};

// `flash list [PATTERN] [--maker] [--size] [--voltage] [--all]`.
DOCUMENT flash_list_document(const FLASH_LIST_FILTER& filter, const NOTE_SINK& notes = {});

// `flash sfdp FILE [--id BYTES] [--name NAME]`: `sfdp` is the read's bytes
// (read_dump of the file's content), `id_bytes` the Read-ID (may be empty).
DOCUMENT flash_sfdp_document(const std::vector<BYTE>& sfdp, const std::vector<BYTE>& id_bytes = {},
                             const std::string& name = "", const NOTE_SINK& notes = {});

// The SFDP read in `content` (a file's bytes: binary or a text dump, see
// moxdev/dump_text.h); INVALID_INPUT, naming `source`, when it is neither.
std::vector<BYTE> read_sfdp_dump(const std::string& content, const std::string& source);

} // namespace moxdev
