// The flash queries behind `moxdev flash identify`, `show`, `list` and
// `sfdp`: the tables they read, the records they find and why they find
// none. FLASH_DOCUMENTS turns the answers into documents; the command prints
// them as text. Not installed: the library's and the command's own.
#pragma once

#include "moxdev/documents.h"
#include "moxdev/flash_documents.h"
#include "moxdev/flash_sources.h"
#include "moxdev/moxdev_flash_manager.h"
#include "moxdev/moxdev_sfdp.h"

#include "host/host_types.h"

#include <optional>
#include <string>
#include <vector>

namespace moxdev {

// A size in bytes as people read it: "16 MiB", "64 KiB", "512 bytes".
std::string bytes_size_text(QWORD bytes);

// A record as an object of its fields. The BYTE fields the text form shows as
// "none" (an unused 255) are null, so both forms say the same.
DOCUMENT flash_record_json(const MOXDEV_SFL_FLASH_INFO& record);
// Where maxima come from; null when not recorded.
DOCUMENT maxima_source_json(const MAXIMA_SOURCE* source);
// The units of the fields whose names do not say them.
DOCUMENT flash_units_json();

// The flash database of the database directory, for a one-device chain, and
// the sources file beside it: each read when first asked for and kept, with
// the environment as it is then. What a person should be told on the way (a
// MOX_SUPPORT_EXT_SPI_DEV the manager ignores, a sources file that cannot be
// read) goes to `notes`, once. Not for use from several threads at once.
class FLASH_TABLES {
public:
    explicit FLASH_TABLES(NOTE_SINK notes = {});

    // The usable records (those whose MOX_ALLOW_ switch is on, or that need
    // none), or with `every_record` every record of the file. UNAVAILABLE
    // when the database file is missing or cannot be read. Binding a chip
    // changes only the manager's device mapping.
    MOXDEV_FLASH_MANAGER& table(bool every_record);
    // The usable records loaded anew, sharing nothing with table(false): a
    // record derived from an SFDP read is added to the manager that binds it.
    MOXDEV_FLASH_MANAGER fresh_table();

    // The sources of the table's records; none when the file cannot be read.
    const FLASH_SOURCES& sources();
    // The source of record `index` of `manager`, null when not recorded.
    const MAXIMA_SOURCE* record_source(const MOXDEV_FLASH_MANAGER& manager, DWORD index);

    void note(const std::string& text) const;
    void warning(const std::string& text) const;

private:
    void warn_if_user_flash_ignored(const MOXDEV_FLASH_MANAGER& manager);

    NOTE_SINK m_notes;
    std::optional<MOXDEV_FLASH_MANAGER> m_usable, m_every;
    std::optional<FLASH_SOURCES> m_sources;
    MAXIMA_SOURCE m_user_source;
    bool m_user_flash_warned = false;
};

// The tables a FLASH_DOCUMENTS keeps: the command's text forms read them too,
// so that a run reads each file once and says each warning once.
FLASH_TABLES& flash_tables(FLASH_DOCUMENTS& documents);

// Whether record `index` of `manager` is the user flash, the switch it needs
// ("" for none), and whether it is usable now.
struct FLASH_RECORD_STATE {
    bool user = false;
    std::string switch_name;
    bool usable = true;
};
FLASH_RECORD_STATE flash_record_state(const MOXDEV_FLASH_MANAGER& manager, DWORD index);

// `flash list`: the records of `table` the filter keeps, by index, with the
// filter's size (in bits, 0 for none) and voltage (as the table writes it,
// "" for none) as read. INVALID_INPUT for a size or voltage that is none,
// NOT_FOUND for a maker no record has.
struct FLASH_LISTING {
    const MOXDEV_FLASH_MANAGER* table = nullptr;
    QWORD bits = 0;
    std::string voltage;
    std::vector<DWORD> records;
};
FLASH_LISTING list_flash_records(FLASH_TABLES& tables, const FLASH_LIST_FILTER& filter);

// `flash show`: every record of one chip in the whole table, each with its
// index among the usable records (none while its switch is off). The name
// may be an alias or a slash name (a note says which record it stands for).
// NOT_FOUND, with the closest names, when no record has it.
struct FLASH_CHIP {
    struct RECORD {
        DWORD index;
        std::optional<DWORD> usable_index;
    };
    const MOXDEV_FLASH_MANAGER* table = nullptr;
    std::vector<RECORD> records;
};
FLASH_CHIP find_flash_chip(FLASH_TABLES& tables, const std::string& typed);

// What `flash identify` checks before it looks at an SFDP read: that the
// usable records can be read, and that a read comes with device ID bytes
// (INVALID_INPUT with a silicon ID). The command checks so before it reads
// the file; identify_flash() checks again.
void check_identify_request(FLASH_TABLES& tables, bool silicon_id, bool with_sfdp);

// `flash identify`: the record the chip that answers `id_bytes` binds, and
// where its maxima come from. With an SFDP read a chip the table does not
// know binds the record derived from it, in a manager of its own.
struct FLASH_IDENTIFICATION {
    DWORD index = 0;
    bool user = false;    // the user flash (MOX_SUPPORT_EXT_SPI_DEV)
    bool derived = false; // derived from the SFDP read
    MOXDEV_SFL_FLASH_INFO record;
    std::optional<MAXIMA_SOURCE> source; // none when not recorded

    const MAXIMA_SOURCE* source_or_null() const { return source ? &*source : nullptr; }
};
FLASH_IDENTIFICATION identify_flash(FLASH_TABLES& tables, const std::vector<BYTE>& id_bytes, bool silicon_id,
                                    const std::vector<BYTE>* sfdp);

// `flash sfdp`, in the order the command checks its input: the --name, the
// read, then the ID bytes. INVALID_INPUT for a name a definition value
// cannot hold, and for a read that does not decode.
void check_derived_record_name(const std::string& name);
MOXDEV_SFDP decode_sfdp_read(const std::vector<BYTE>& sfdp);

// A field SFDP decided (not assumed) where the table's record says otherwise.
struct SFDP_DIFFERENCE {
    const char* field;
    std::string table;
    std::string sfdp;
};

// The decoded read, the record derived from it, and its comparison with the
// table's record for the same Read-ID; with `define`, the value that defines
// the derived record as the user flash.
struct SFDP_EXAMINATION {
    MOXDEV_SFDP sfdp;
    MOXDEV_SFDP_RECORD derived;
    std::optional<MOXDEV_SFL_FLASH_INFO> known; // the table's record for the ID
    std::vector<SFDP_DIFFERENCE> differences;
    std::vector<std::string> warnings;
    std::optional<std::string> definition;
};
SFDP_EXAMINATION examine_sfdp(FLASH_TABLES& tables, MOXDEV_SFDP decoded, const std::vector<BYTE>& id_bytes,
                              const std::string& name, bool define);
// Its document: FLASH_DOCUMENTS::sfdp's, with "definition" when there is one.
DOCUMENT sfdp_document(const SFDP_EXAMINATION& examination);

// The address modes of a read as both forms write them: "3", "3or4", "4".
const char* sfdp_address_text(MOXDEV_SFDP_ADDRESS address);

} // namespace moxdev
