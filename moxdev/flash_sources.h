// The project's own record of where each flash record's maxima (chip erase,
// sector erase, page program) come from: the chip's own datasheet, a
// sibling's scaled up, the chip's SFDP read, or the conservative envelope.
// The table's records are described by a file generated from data/flash/
// and installed beside the flash database (programmer/mox_flash_sources.txt).
#pragma once

#include "moxdev/moxdev_flash_manager.h"

#include <string>
#include <vector>

namespace moxdev {

struct MAXIMA_SOURCE {
    // "datasheet": read in the chip's own datasheet; "sibling": taken from
    // another chip of the family and scaled; "sfdp": derived from the chip's
    // SFDP read; "envelope": the longest maxima of the table's cited chips
    // per unit erased (an SFDP read without times); "user": as the user
    // defined them (MOX_SUPPORT_EXT_SPI_DEV).
    std::string kind;
    // The datasheet the values were read in (the sibling's for "sibling").
    std::string datasheet, revision, at, conditions;
    std::string sibling; // the chip whose maxima were taken
    std::string scaling; // how they were scaled
    // Later records with the same Read-ID whose longer maxima this record
    // carries (the first match is bound, so it must be safe for them too).
    std::vector<std::string> raised_by;
    std::string note; // a sentence for the kinds without a datasheet
};

// The Read-ID bytes a record compares, as people read them: "EF 40 18",
// "EF -- 18" without a type byte, "silicon 12".
std::string flash_id_text(const MOXDEV_SFL_FLASH_INFO& record);

// The sources of the table's records.
class FLASH_SOURCES {
public:
    struct ENTRY {
        std::string name;
        std::string id; // as flash_id_text() writes it
        MAXIMA_SOURCE source;
        std::vector<std::string> aliases; // the names other tools' tables give the chip
    };

    // programmer/mox_flash_sources.txt in the database directory.
    static std::string default_path();

    // Reads the file at `path` (bounded, one descriptor). False, with the
    // reason, when it cannot be read or a line is not one of its lines.
    bool load(const std::string& path, std::string& error);

    // The source of `record`, or null when the file has no line for it (a
    // user or SFDP-derived record, or a table newer than the file).
    const MAXIMA_SOURCE* find(const MOXDEV_SFL_FLASH_INFO& record) const;

    // Every line, in table order.
    const std::vector<ENTRY>& entries() const { return m_entries; }

    // The record name `name` stands for: itself, or the name of the record
    // one of whose aliases it is (letter case ignored), or for a slash name
    // (A/B) that is neither, the first alternative that is; "" when none.
    std::string name_for(const std::string& name) const;

private:
    std::string name_or_alias(const std::string& name) const;

    std::vector<ENTRY> m_entries;
};

// The source of a user-defined record, and of one derived from an SFDP read
// (`assumed`: the fields the read did not give, as MOXDEV_SFDP_RECORD lists
// them).
MAXIMA_SOURCE user_maxima_source();
MAXIMA_SOURCE sfdp_maxima_source(const std::vector<std::string>& assumed);

} // namespace moxdev
