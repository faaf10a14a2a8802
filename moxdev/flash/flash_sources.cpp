#include "moxdev/flash_sources.h"

#include "moxdev/internal/moxdev_file_reader.h"

#include "host/gen_path.h"

#include <absl/strings/match.h>
#include <absl/strings/str_split.h>
#include <fmt/format.h>

#include <algorithm>

namespace moxdev {

std::string flash_id_text(const MOXDEV_SFL_FLASH_INFO& record)
{
    if (record.silicon_id)
        return fmt::format("silicon {:02X}", record.memory_id);
    // A two-byte product ID (maker, model) compares no type byte.
    if (record.memory_type_index == 255 && record.memory_id_index == 1)
        return fmt::format("{:02X} {:02X}", record.mfc_id, record.memory_id);
    if (record.memory_type_index == 255)
        return fmt::format("{:02X} -- {:02X}", record.mfc_id, record.memory_id);
    return fmt::format("{:02X} {:02X} {:02X}", record.mfc_id, record.memory_type, record.memory_id);
}

std::string FLASH_SOURCES::default_path()
{
    return gen_get_device_db_fullpath() + "/programmer/mox_flash_sources.txt";
}

bool FLASH_SOURCES::load(const std::string& path, std::string& error)
{
    // A line holds a few titles and notes; the file a few hundred lines.
    constexpr std::size_t LINE_CAP = 64 * 1024;
    constexpr std::size_t LINES_MOST = 100000;
    constexpr std::size_t CELLS = 11;
    m_entries.clear();
    detail::LINE_READER lines(path, LINE_CAP);
    std::string line;
    while (lines.next(line)) {
        if (line.empty() || line[0] == '#')
            continue;
        const std::vector<std::string> cells = absl::StrSplit(line, '\t');
        if (cells.size() != CELLS || cells[0].empty() || cells[1].empty() ||
            (cells[2] != "datasheet" && cells[2] != "sibling" && cells[2] != "envelope") ||
            m_entries.size() == LINES_MOST) {
            error = fmt::format("{}: line {} is not a line of a flash sources file", path, lines.line_number());
            m_entries.clear();
            return false;
        }
        ENTRY entry{cells[0], cells[1], {}, {}};
        MAXIMA_SOURCE& source = entry.source;
        source.kind = cells[2];
        source.datasheet = cells[3];
        source.revision = cells[4];
        source.at = cells[5];
        source.conditions = cells[6];
        source.sibling = cells[7];
        source.scaling = cells[8];
        if (!cells[9].empty())
            source.raised_by = absl::StrSplit(cells[9], ',');
        if (!cells[10].empty())
            entry.aliases = absl::StrSplit(cells[10], ',');
        if (source.kind == "envelope")
            source.note = source.scaling;
        m_entries.push_back(std::move(entry));
    }
    if (!lines.error().empty()) {
        error = path + ": " + lines.error();
        m_entries.clear();
        return false;
    }
    return true;
}

const MAXIMA_SOURCE* FLASH_SOURCES::find(const MOXDEV_SFL_FLASH_INFO& record) const
{
    // A few hundred lines, looked up a few times per command: a scan is
    // the simplest thing that is fast enough.
    const std::string id = flash_id_text(record);
    const auto found = std::find_if(m_entries.begin(), m_entries.end(), [&](const ENTRY& entry) {
        return entry.id == id && entry.name == record.device_name;
    });
    return found == m_entries.end() ? nullptr : &found->source;
}

std::string FLASH_SOURCES::name_for(const std::string& name) const
{
    // A name with alternatives (MX25L25635F/MX25L25645G) that is no alias
    // itself stands for the first of them the table knows.
    if (const std::string whole = name_or_alias(name); !whole.empty() || name.find('/') == std::string::npos)
        return whole;
    for (const absl::string_view part : absl::StrSplit(name, '/')) {
        if (std::string own = name_or_alias(std::string(part)); !own.empty())
            return own;
    }
    return "";
}

namespace {

// Whether `typed` names `stored`, letter case ignored. A stored name with an
// optional part in parentheses, as flashrom writes them (SST26VF016B(A),
// EN25Q32(A/B)), is also named without that part or by one of its
// alternatives: SST26VF016B, SST26VF016BA, EN25Q32A.
bool names(absl::string_view stored, absl::string_view typed)
{
    if (absl::EqualsIgnoreCase(stored, typed))
        return true;
    const std::size_t open = stored.find('('), close = stored.find(')', open);
    if (open == absl::string_view::npos || close == absl::string_view::npos)
        return false;
    const absl::string_view before = stored.substr(0, open), after = stored.substr(close + 1);
    if (typed.size() < before.size() + after.size() || !absl::StartsWithIgnoreCase(typed, before) ||
        !absl::EndsWithIgnoreCase(typed, after))
        return false;
    const absl::string_view middle = typed.substr(before.size(), typed.size() - before.size() - after.size());
    if (middle.empty())
        return true;
    for (const absl::string_view alternative : absl::StrSplit(stored.substr(open + 1, close - open - 1), '/')) {
        if (absl::EqualsIgnoreCase(alternative, middle))
            return true;
    }
    return false;
}

} // namespace

std::string FLASH_SOURCES::name_or_alias(const std::string& name) const
{
    for (const ENTRY& entry : m_entries) {
        if (names(entry.name, name))
            return entry.name;
        for (const std::string& alias : entry.aliases) {
            if (names(alias, name))
                return entry.name;
        }
    }
    return "";
}

MAXIMA_SOURCE user_maxima_source()
{
    MAXIMA_SOURCE source;
    source.kind = "user";
    source.note = "as defined in MOX_SUPPORT_EXT_SPI_DEV";
    return source;
}

MAXIMA_SOURCE sfdp_maxima_source(const std::vector<std::string>& assumed)
{
    const bool times_assumed = std::any_of(assumed.begin(), assumed.end(), [](const std::string& field) {
        return field == "bulk_erase_time" || field == "sec_erase_time" || field == "program_utime";
    });
    MAXIMA_SOURCE source;
    source.kind = times_assumed ? "envelope" : "sfdp";
    source.note = times_assumed ? "the read gives no times: the longest maxima of the table's cited chips per unit "
                                  "erased"
                                : "derived from the chip's SFDP read: its typical times times its maximum multiplier";
    return source;
}

} // namespace moxdev
