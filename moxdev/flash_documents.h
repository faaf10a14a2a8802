// The flash verbs' answers as documents (see moxdev/documents.h): what
// `moxdev flash identify|show|list|sfdp --json` print.
#pragma once

#include "moxdev/documents.h"

#include "host/host_types.h"

#include <memory>
#include <string>
#include <vector>

namespace moxdev {

// ID bytes as people write them: separate words or one string, hex with or
// without "0x", separated by blanks, commas or colons, or run together
// ("EF4018"). INVALID_INPUT when a word is not hex or nothing is given.
std::vector<BYTE> parse_id_bytes(const std::vector<std::string>& words);

// The filters of `flash list`; empty ones pass everything.
struct FLASH_LIST_FILTER {
    std::string pattern;       // '*' and '?' wildcards, matched against names and aliases
    std::string maker;         // letter case ignored; a maker no record has is NOT_FOUND
    std::string size;          // as --size reads it: 512K, 128M, 1G, 16MB
    std::string voltage;       // 3.3V or 1.8V
    bool every_record = false; // --all: also the records whose switch is off
};

class FLASH_TABLES;

// The flash verbs' documents over one flash database. The database (and the
// sources file beside it) is read on first use and kept, with the
// environment as it is then (MOXDEV_DEVICE_DB_DIR, the MOX_ALLOW_ switches,
// MOX_SUPPORT_EXT_SPI_DEV): the command makes one per run, the Python module
// one per process. Not for use from several threads at once.
class FLASH_DOCUMENTS {
public:
    explicit FLASH_DOCUMENTS(NOTE_SINK notes = {});
    ~FLASH_DOCUMENTS();
    FLASH_DOCUMENTS(const FLASH_DOCUMENTS&) = delete;
    FLASH_DOCUMENTS& operator=(const FLASH_DOCUMENTS&) = delete;

    // `flash identify BYTES [--silicon-id] [--sfdp FILE]`: the record the
    // chip that answers `id_bytes` binds, with its maxima's source. `sfdp`,
    // when not null, is the chip's SFDP read: a chip the table does not know
    // is bound to the record derived from it. NOT_FOUND when nothing matches
    // (the message says why, with hints).
    DOCUMENT identify(const std::vector<BYTE>& id_bytes, bool silicon_id = false,
                      const std::vector<BYTE>* sfdp = nullptr);

    // `flash show NAME`: every record (ID variant) of one chip, found by its
    // name, an alias or an optional part of a name (letter case ignored).
    DOCUMENT show(const std::string& name);

    // `flash list [PATTERN] [--maker] [--size] [--voltage] [--all]`.
    DOCUMENT list(const FLASH_LIST_FILTER& filter);

    // `flash sfdp FILE [--id BYTES] [--name NAME]`: `sfdp` is the read's
    // bytes, `id_bytes` the Read-ID (may be empty).
    DOCUMENT sfdp(const std::vector<BYTE>& sfdp, const std::vector<BYTE>& id_bytes = {}, const std::string& name = "");

private:
    // The command's text forms read the same tables (not installed:
    // moxdev/documents/flash_queries.h).
    friend FLASH_TABLES& flash_tables(FLASH_DOCUMENTS& documents);

    struct STATE;
    NOTE_SINK m_notes;
    std::unique_ptr<STATE> m_state; // the loaded databases, made on first use
};

// The SFDP read in `content` (a file's bytes: binary or a text dump, see
// moxdev/dump_text.h); INVALID_INPUT, naming `source`, when it is neither.
std::vector<BYTE> read_sfdp_dump(const std::string& content, const std::string& source);

// The SFDP read in the file at `path` ("-": standard input), read with a cap
// (a dump takes about five characters per byte, so a larger file cannot be a
// read); UNAVAILABLE when it cannot be read, INVALID_INPUT when it holds no
// read.
std::vector<BYTE> read_sfdp_file(const std::string& path);

} // namespace moxdev
