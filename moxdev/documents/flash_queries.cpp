// The flash queries: the tables, the records a list, a name, ID bytes or an
// SFDP read find, and the messages that say why they find none.
#include "moxdev/documents/flash_queries.h"

#include "moxdev/files.h"
#include "moxdev/flash.h"
#include "moxdev/suggest.h"
#include "moxdev/text.h"
#include "moxdev/user_flash.h"

#include "host/host.h"

#include <absl/strings/ascii.h>
#include <absl/strings/match.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <type_traits>
#include <utility>

namespace moxdev {

namespace {

// The unit of each field whose name does not say it.
const std::map<std::string, std::string> FIELD_UNITS = {
    {"device_bit_size", "bits"}, {"device_sector_byte", "bytes"}, {"bulk_erase_time", "s"},
    {"sec_erase_time", "s"},     {"program_utime", "us"},
};

std::string upper_text(std::string text)
{
    stl_toupper(text);
    return text;
}

} // namespace

std::string bytes_size_text(QWORD bytes)
{
    for (const auto& [unit, shift] : {std::pair<const char*, int>{"GiB", 30}, {"MiB", 20}, {"KiB", 10}}) {
        if (bytes >= (QWORD(1) << shift) && bytes % (QWORD(1) << shift) == 0)
            return fmt::format("{} {}", bytes >> shift, unit);
    }
    return fmt::format("{} bytes", bytes);
}

DOCUMENT flash_record_json(const MOXDEV_SFL_FLASH_INFO& record)
{
    std::set<std::string> none;
    for (const auto& field : moxdev_flash_info_to_text(record)) {
        if (field.second == "none")
            none.insert(field.first);
    }
    DOCUMENT fields = DOCUMENT::object();
    moxdev_for_each_flash_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE, const auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, BYTE>) {
            if (none.count(name))
                fields[name] = nullptr;
            else
                fields[name] = unsigned(value);
        } else {
            fields[name] = value;
        }
    });
    return fields;
}

DOCUMENT maxima_source_json(const MAXIMA_SOURCE* source)
{
    if (source == nullptr)
        return nullptr;
    DOCUMENT json = {{"kind", source->kind}};
    if (source->kind == "datasheet" || source->kind == "sibling") {
        json["datasheet"] = source->datasheet;
        json["revision"] = source->revision;
        json["at"] = source->at;
        json["conditions"] = source->conditions;
    }
    if (source->kind == "sibling") {
        json["sibling"] = source->sibling;
        json["scaling"] = source->scaling;
    }
    if (!source->note.empty())
        json["note"] = source->note;
    json["raised_by"] = source->raised_by;
    return json;
}

DOCUMENT flash_units_json()
{
    DOCUMENT units = DOCUMENT::object();
    for (const auto& [field, unit] : FIELD_UNITS)
        units[field] = unit;
    return units;
}

// ---------------------------------------------------------------- the tables

FLASH_TABLES::FLASH_TABLES(NOTE_SINK notes) : m_notes(std::move(notes)), m_user_source(user_maxima_source()) {}

void FLASH_TABLES::note(const std::string& text) const
{
    if (m_notes)
        m_notes(text);
}

void FLASH_TABLES::warning(const std::string& text) const
{
    note("warning: " + text);
}

MOXDEV_FLASH_MANAGER& FLASH_TABLES::table(bool every_record)
{
    std::optional<MOXDEV_FLASH_MANAGER>& kept = every_record ? m_every : m_usable;
    if (kept)
        return *kept;
    // The manager takes a missing file for a damaged installation; here it
    // is a setting to correct.
    const std::string file = gen_get_device_db_fullpath() + "/programmer/mox_flash.pcf";
    const std::string reason = unreadable_reason(file);
    if (reason == "no such file")
        throw QUERY_ERROR(QUERY_FAILURE::UNAVAILABLE,
                          "the flash database " + absolute_path(file) +
                              " does not exist; MOXDEV_DEVICE_DB_DIR names the directory that holds "
                              "programmer/mox_flash.pcf");
    if (!reason.empty())
        throw QUERY_ERROR(QUERY_FAILURE::UNAVAILABLE,
                          "cannot read the flash database " + absolute_path(file) + ": " + reason);
    kept = load_flash_database(every_record ? FLASH_RECORDS::EVERY : FLASH_RECORDS::USABLE);
    warn_if_user_flash_ignored(*kept);
    return *kept;
}

MOXDEV_FLASH_MANAGER FLASH_TABLES::fresh_table()
{
    table(false); // the same checks and warnings, once
    return load_flash_database(FLASH_RECORDS::USABLE);
}

// The manager drops a user flash value it cannot use without a word (unless
// its debug switch is on): say so once, with the reason.
void FLASH_TABLES::warn_if_user_flash_ignored(const MOXDEV_FLASH_MANAGER& manager)
{
    const std::string value = cfg_get_value("MOX_SUPPORT_EXT_SPI_DEV");
    if (m_user_flash_warned || value.empty() || user_flash(manager) != nullptr)
        return;
    m_user_flash_warned = true;
    USER_FLASH_CONTENT content;
    std::string reason;
    if (read_user_flash_value(value, content, reason) && !content.accepted())
        reason = !content.fields_valid                ? "a field of the definition is out of range"
                 : content.record.device_name.empty() ? "the definition has no device name"
                                                      : "its check value is not this version's";
    warning("the flash manager ignores MOX_SUPPORT_EXT_SPI_DEV: " + reason + "; 'moxdev flash decode' tells more");
}

const FLASH_SOURCES& FLASH_TABLES::sources()
{
    if (!m_sources) {
        m_sources.emplace();
        std::string error;
        if (!m_sources->load(FLASH_SOURCES::default_path(), error))
            warning(error + "; where the maxima come from is not shown");
    }
    return *m_sources;
}

const MAXIMA_SOURCE* FLASH_TABLES::record_source(const MOXDEV_FLASH_MANAGER& manager, DWORD index)
{
    if (index == 0 && user_flash(manager) != nullptr)
        return &m_user_source;
    return sources().find(manager.get_flash_database()[index]);
}

FLASH_RECORD_STATE flash_record_state(const MOXDEV_FLASH_MANAGER& manager, DWORD index)
{
    const MOXDEV_SFL_FLASH_INFO& record = manager.get_flash_database()[index];
    FLASH_RECORD_STATE state;
    state.user = index == 0 && user_flash(manager) != nullptr;
    if (!state.user && gen_stricmp(record.ini, "NONE") != 0) {
        state.switch_name = "MOX_ALLOW_" + record.ini;
        state.usable = cfg_is_on(state.switch_name, false);
    }
    return state;
}

// ---------------------------------------------------------------- list

namespace {

// A size as people write it, as a number of bits. K, M and G are binary
// multiples (1024); a lower-case "b" or "bit" means bits, an upper-case "B",
// "iB" or "byte" bytes, and a multiple alone bits, as densities are given:
// "16M" = "16Mbit" = "16Mb" = 16 Mbit; "2MB" = "2MiB" = 16 Mbit; "1G" = 1 Gbit;
// a bare number is Mbit.
QWORD parse_density(const std::string& text)
{
    std::size_t digits = 0;
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits])))
        ++digits;
    std::string unit = text.substr(digits);
    const int shift = unit.empty() ? 20 : 10 * int(std::string("KMG").find(char(std::toupper(unit[0]))) + 1);
    if (!unit.empty())
        unit.erase(0, 1);
    const bool bytes =
        unit == "B" || unit == "iB" || absl::EqualsIgnoreCase(unit, "byte") || absl::EqualsIgnoreCase(unit, "bytes");
    const bool bits =
        unit.empty() || unit == "b" || absl::EqualsIgnoreCase(unit, "bit") || absl::EqualsIgnoreCase(unit, "bits");
    const unsigned long long count = digits == 0 || digits > 6 ? 0 : std::stoull(text.substr(0, digits));
    if (shift <= 0 || (!bytes && !bits) || count == 0)
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT,
                          moxdev::quoted(text) +
                              " is not a size (e.g. 512K, 128M or 1G: Kbit, Mbit, Gbit; 16MB or 16MiB: bytes)");
    return QWORD(count) << shift << (bytes ? 3 : 0);
}

// "3.3V", "3.3", "1.8v" as the table writes it ("3.3V").
std::string parse_voltage(const std::string& typed)
{
    const std::string text = flash_voltage(typed);
    if (text.empty())
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT,
                          moxdev::quoted(typed) + " is not a flash voltage (3.3V or 1.8V)");
    return text;
}

// `name` matches `pattern`: '*' any run of characters, '?' any one, letter
// case ignored.
bool wildcard_match(const std::string& pattern, const std::string& name)
{
    std::size_t p = 0, n = 0, star = std::string::npos, resume = 0;
    auto same = [](char a, char b) {
        return absl::ascii_toupper(static_cast<unsigned char>(a)) == absl::ascii_toupper(static_cast<unsigned char>(b));
    };
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || (pattern[p] != '*' && same(pattern[p], name[n])))) {
            ++p;
            ++n;
        } else if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = n;
        } else if (star != std::string::npos) {
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

// Whether one of the names other tools give the record's chip matches.
bool alias_matches(const FLASH_SOURCES& sources, const std::string& pattern, const MOXDEV_SFL_FLASH_INFO& record)
{
    for (const FLASH_SOURCES::ENTRY& entry : sources.entries()) {
        if (entry.name != record.device_name)
            continue;
        for (const std::string& alias : entry.aliases) {
            if (wildcard_match(pattern, alias))
                return true;
        }
    }
    return false;
}

// A maker no record has is a mistake, with the closest ones.
void check_maker(const MOXDEV_FLASH_MANAGER& manager, const std::string& maker)
{
    const MOXDEV_SFL_FLASH_INFO* records = manager.get_flash_database();
    std::vector<std::string> makers;
    for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
        if (std::find(makers.begin(), makers.end(), records[i].manufacturer_name) == makers.end())
            makers.push_back(records[i].manufacturer_name);
    }
    const bool known_maker = maker.empty() || std::any_of(makers.begin(), makers.end(), [&](const auto& name) {
                                 return gen_stricmp(name, maker) == 0;
                             });
    if (!known_maker)
        throw QUERY_ERROR(QUERY_FAILURE::NOT_FOUND,
                          "no flash record of the maker " + moxdev::quoted(maker) + did_you_mean(maker, makers),
                          closest_names(maker, makers));
}

} // namespace

FLASH_LISTING list_flash_records(FLASH_TABLES& tables, const FLASH_LIST_FILTER& filter)
{
    FLASH_LISTING listing;
    listing.table = &tables.table(filter.every_record);
    listing.bits = filter.size.empty() ? 0 : parse_density(filter.size);
    listing.voltage = filter.voltage.empty() ? "" : parse_voltage(filter.voltage);
    check_maker(*listing.table, filter.maker);
    const MOXDEV_SFL_FLASH_INFO* records = listing.table->get_flash_database();
    for (DWORD i = 0; i < listing.table->get_flash_count(); ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = records[i];
        const bool wanted =
            (filter.maker.empty() || gen_stricmp(record.manufacturer_name, filter.maker) == 0) &&
            (listing.bits == 0 || QWORD(record.device_bit_size) == listing.bits) &&
            (listing.voltage.empty() ||
             ("|" + upper_text(record.asc_voltage) + "|").find("|" + listing.voltage + "|") != std::string::npos) &&
            (filter.pattern.empty() || wildcard_match(filter.pattern, record.device_name) ||
             alias_matches(tables.sources(), filter.pattern, record));
        if (wanted)
            listing.records.push_back(i);
    }
    return listing;
}

// ---------------------------------------------------------------- show

FLASH_CHIP find_flash_chip(FLASH_TABLES& tables, const std::string& typed)
{
    // Other tools' names for a chip (W25Q128.V, S25FL128S_UL, each part of
    // MX25L25635F/MX25L25645G) find its record; the record's own name is shown.
    const std::string own = tables.sources().name_for(typed);
    const std::string name = own.empty() ? typed : own;
    if (!own.empty() && !absl::EqualsIgnoreCase(own, typed))
        tables.note(typed + " is " + own + " here");
    FLASH_CHIP chip;
    chip.table = &tables.table(true);
    const MOXDEV_SFL_FLASH_INFO* records = chip.table->get_flash_database();
    std::vector<std::string> names;
    DWORD usable = 0;
    for (DWORD i = 0; i < chip.table->get_flash_count(); ++i) {
        std::optional<DWORD> usable_index;
        if (flash_record_state(*chip.table, i).usable)
            usable_index = usable++;
        if (gen_stricmp(records[i].device_name, name) == 0)
            chip.records.push_back({i, usable_index});
        if (std::find(names.begin(), names.end(), records[i].device_name) == names.end())
            names.push_back(records[i].device_name);
    }
    if (chip.records.empty())
        throw QUERY_ERROR(QUERY_FAILURE::NOT_FOUND,
                          "no flash named " + moxdev::quoted(name) + did_you_mean(name, names),
                          closest_names(name, names));
    return chip;
}

// ---------------------------------------------------------------- identify

namespace {

std::string bytes_text(const std::vector<BYTE>& bytes)
{
    std::string text;
    for (BYTE byte : bytes)
        text += fmt::format("{}{:02X}", text.empty() ? "" : " ", byte);
    return text;
}

// Why no usable record matches `bytes`: the error line and, when something
// can be said, a hint line after it.
std::string no_match_message(FLASH_TABLES& tables, const std::vector<BYTE>& bytes, bool silicon_id)
{
    std::string line = "no known flash matches " + bytes_text(bytes) +
                       (silicon_id ? " (silicon ID)" : " (device ID: manufacturer, type, capacity)");
    const MOXDEV_FLASH_MANAGER& every = tables.table(true);
    const DWORD count = DWORD(bytes.size());
    if (const MOXDEV_SFL_FLASH_INFO* record = find_flash(every, silicon_id, bytes.data(), count))
        return "no usable flash matches " + bytes_text(bytes) + ": " + record->manufacturer_name + " " +
               record->device_name + " needs MOX_ALLOW_" + record->ini + "=1";

    const bool all_ff = std::all_of(bytes.begin(), bytes.end(), [](BYTE b) { return b == 0xFF; });
    const bool all_00 = std::all_of(bytes.begin(), bytes.end(), [](BYTE b) { return b == 0x00; });
    if (!bytes.empty() && (all_ff || all_00))
        return line + fmt::format("\nhint: all bytes {}: no chip answered; check the wiring, the chip select "
                                  "and the power of the flash",
                                  all_ff ? "FF" : "00");
    if (silicon_id || bytes.size() < 2)
        return line;

    const std::vector<BYTE> reversed(bytes.rbegin(), bytes.rend());
    if (const MOXDEV_SFL_FLASH_INFO* record = find_flash(every, false, reversed.data(), count))
        return line + "\nhint: in the other byte order, " + bytes_text(reversed) + ", they are " +
               record->manufacturer_name + " " + record->device_name +
               ": give the bytes in read order (manufacturer, type, capacity)";

    // Records of the same maker and type byte: a capacity byte misread, or a
    // chip of a size the table does not hold. Each ID once, with the name of
    // the record that wins it.
    auto byte_is = [&](BYTE position, BYTE expected) { return position < count && bytes[position] == expected; };
    std::vector<std::pair<BYTE, std::string>> near;
    const MOXDEV_SFL_FLASH_INFO* records = every.get_flash_database();
    for (DWORD i = 0; i < every.get_flash_count(); ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = records[i];
        if (record.silicon_id || record.memory_type_index == 255 || !byte_is(record.mfc_id_index, record.mfc_id) ||
            !byte_is(record.memory_type_index, record.memory_type))
            continue;
        const BYTE capacity = record.memory_id;
        if (std::none_of(near.begin(), near.end(), [&](const auto& n) { return n.first == capacity; }))
            near.emplace_back(capacity, record.device_name);
    }
    if (near.empty())
        return line;
    std::sort(near.begin(), near.end());
    std::string hint;
    for (const auto& entry : near)
        hint += fmt::format("{}{:02X} {}", hint.empty() ? "" : ", ", entry.first, entry.second);
    return line + "\nhint: this maker and type are known with the capacity bytes " + hint;
}

// The record of the table that wins for an ID it knows may describe another
// chip than the read does (a clone, a misprogrammed SFDP area): a warning
// where size or sector differ.
void compare_read_with_record(FLASH_TABLES& tables, const MOXDEV_SFL_FLASH_INFO& read,
                              const MOXDEV_SFL_FLASH_INFO& record)
{
    if (read.device_bit_size != record.device_bit_size)
        tables.warning(fmt::format("the SFDP read gives {} bits, the bound record {} {}", read.device_bit_size,
                                   record.device_name, record.device_bit_size));
    if (read.device_sector_byte != record.device_sector_byte)
        tables.warning(fmt::format("the SFDP read gives {}-byte sectors, the bound record {} {}",
                                   read.device_sector_byte, record.device_name, record.device_sector_byte));
}

} // namespace

void check_identify_request(FLASH_TABLES& tables, bool silicon_id, bool with_sfdp)
{
    tables.table(false);
    if (with_sfdp && silicon_id)
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, "--sfdp binds by the device ID, not by a silicon ID");
}

FLASH_IDENTIFICATION identify_flash(FLASH_TABLES& tables, const std::vector<BYTE>& id_bytes, bool silicon_id,
                                    const std::vector<BYTE>* sfdp)
{
    check_identify_request(tables, silicon_id, sfdp != nullptr);
    // A record derived from the read is added to the manager that binds it:
    // with a read that is a manager of this call's own, so later calls never
    // see it.
    std::optional<MOXDEV_FLASH_MANAGER> own;
    MOXDEV_FLASH_MANAGER& manager = sfdp != nullptr ? own.emplace(tables.fresh_table()) : tables.table(false);
    const DWORD table_count = manager.get_flash_count();
    std::vector<std::string> sfdp_assumed;
    std::optional<MOXDEV_SFL_FLASH_INFO> sfdp_record; // the record the read itself gives
    if (sfdp != nullptr) {
        std::string error;
        // What the read leaves to assumptions says where a derived record's
        // maxima come from.
        MOXDEV_SFDP decoded;
        MOXDEV_SFDP_RECORD derivation;
        if (id_bytes.size() >= 3 && moxdev_decode_sfdp(sfdp->data(), sfdp->size(), decoded, error) &&
            moxdev_sfdp_record(decoded, id_bytes.data(), "", "", MOXDEV_SFDP_ASSUMPTIONS{}, derivation, error)) {
            sfdp_assumed = derivation.assumed;
            sfdp_record = derivation.record;
        }
        if (!bind_flash_by_sfdp(manager, 0, id_bytes.data(), DWORD(id_bytes.size()), sfdp->data(), sfdp->size(),
                                &error))
            throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, error);
    } else if (!bind_flash(manager, silicon_id, 0, id_bytes.data(), DWORD(id_bytes.size()))) {
        throw QUERY_ERROR(QUERY_FAILURE::NOT_FOUND, no_match_message(tables, id_bytes, silicon_id));
    }
    FLASH_IDENTIFICATION found;
    found.index = manager.get_flash_mapping_index(0, false);
    found.user = found.index == 0 && user_flash(manager) != nullptr;
    found.derived = found.index >= table_count;
    found.record = manager.get_flash_database()[found.index];
    if (!found.derived && sfdp_record)
        compare_read_with_record(tables, *sfdp_record, found.record);
    if (found.derived)
        found.source = sfdp_maxima_source(sfdp_assumed);
    else if (const MAXIMA_SOURCE* source = tables.record_source(manager, found.index))
        found.source = *source;
    return found;
}

// ---------------------------------------------------------------- sfdp

void check_derived_record_name(const std::string& name)
{
    // The name goes into a definition value: the same rule as the dialogue's.
    if (name.empty())
        return;
    if (const std::string problem = user_flash_name_problem(upper_text(name)); !problem.empty())
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, "--name " + moxdev::quoted(name) + ": " + problem);
}

MOXDEV_SFDP decode_sfdp_read(const std::vector<BYTE>& sfdp)
{
    MOXDEV_SFDP decoded;
    std::string error;
    if (!moxdev_decode_sfdp(sfdp.data(), sfdp.size(), decoded, error))
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, "SFDP: " + error);
    return decoded;
}

namespace {

// The fields SFDP decided (not assumed) where the table's record says
// otherwise.
std::vector<SFDP_DIFFERENCE> differences(const MOXDEV_SFL_FLASH_INFO& table, const MOXDEV_SFDP_RECORD& derived)
{
    const MOXDEV_SFL_FLASH_INFO& sfdp = derived.record;
    std::vector<SFDP_DIFFERENCE> result;
    auto compare = [&](const char* field, auto a, auto b) {
        const bool assumed = std::find(derived.assumed.begin(), derived.assumed.end(), field) != derived.assumed.end();
        if (a != b && !assumed)
            result.push_back({field, fmt::format("{}", a), fmt::format("{}", b)});
    };
    compare("device_bit_size", table.device_bit_size, sfdp.device_bit_size);
    compare("device_sector_byte", table.device_sector_byte, sfdp.device_sector_byte);
    compare("byte4_addressing", table.byte4_addressing, sfdp.byte4_addressing);
    compare("extended_mode", table.extended_mode, sfdp.extended_mode);
    compare("bulk_erase_time", table.bulk_erase_time, sfdp.bulk_erase_time);
    compare("sec_erase_time", table.sec_erase_time, sfdp.sec_erase_time);
    compare("program_utime", table.program_utime, sfdp.program_utime);
    return result;
}

// Warns where SFDP and the table disagree on the size or the sector.
void compare_with_table(SFDP_EXAMINATION& result)
{
    const MOXDEV_SFL_FLASH_INFO& known = *result.known;
    const MOXDEV_SFL_FLASH_INFO& derived = result.derived.record;
    result.differences = differences(known, result.derived);
    if (known.device_bit_size != derived.device_bit_size)
        result.warnings.push_back(fmt::format("SFDP gives {} bits, the table {} for {}: a clone, or an SFDP that "
                                              "misstates the size",
                                              derived.device_bit_size, known.device_bit_size, known.device_name));
    if (known.device_sector_byte != derived.device_sector_byte)
        result.warnings.push_back(fmt::format("SFDP gives a {} sector, the table {} for {}",
                                              bytes_size_text(derived.device_sector_byte),
                                              bytes_size_text(known.device_sector_byte), known.device_name));
}

} // namespace

SFDP_EXAMINATION examine_sfdp(FLASH_TABLES& tables, MOXDEV_SFDP decoded, const std::vector<BYTE>& id_bytes,
                              const std::string& name, bool define)
{
    SFDP_EXAMINATION result;
    result.sfdp = std::move(decoded);
    if (!id_bytes.empty() && id_bytes.size() < 3)
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT,
                          "--id takes the three Read-ID bytes (maker, type, capacity), e.g. 20 BA 19");
    if (id_bytes.empty() && define)
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT,
                          "--define needs --id: a definition binds by the chip's Read-ID bytes");
    BYTE id[3] = {0, 0, 0};
    std::copy_n(id_bytes.begin(), std::min<std::size_t>(3, id_bytes.size()), id);
    const MOXDEV_FLASH_MANAGER& table = tables.table(false);
    // The table's record for the ID names the chip and is compared.
    if (const MOXDEV_SFL_FLASH_INFO* known = id_bytes.empty() ? nullptr : find_flash(table, false, id, 3))
        result.known = *known;

    std::string error;
    const std::string record_name = result.known ? result.known->device_name : name;
    if (!moxdev_sfdp_record(result.sfdp, id, record_name, maker_name(table, id[0], id[1]), MOXDEV_SFDP_ASSUMPTIONS{},
                            result.derived, error))
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, "SFDP: " + error);
    result.warnings = result.sfdp.warnings;
    result.warnings.insert(result.warnings.end(), result.derived.warnings.begin(), result.derived.warnings.end());
    if (id_bytes.empty())
        result.warnings.push_back("no --id: the record's ID bytes are 00 00 00");
    if (result.known)
        compare_with_table(result);
    if (define) {
        result.definition = user_flash_value(result.derived.record, &error);
        if (result.definition->empty())
            throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT,
                              "the derived record cannot be written as a definition value: " + error);
    }
    return result;
}

const char* sfdp_address_text(MOXDEV_SFDP_ADDRESS address)
{
    switch (address) {
    case MOXDEV_SFDP_ADDRESS::THREE: return "3";
    case MOXDEV_SFDP_ADDRESS::THREE_OR_FOUR: return "3or4";
    case MOXDEV_SFDP_ADDRESS::FOUR: return "4";
    default: return "reserved";
    }
}

} // namespace moxdev
