// moxdev flash: the serial flash database, chip identification and the user
// flash definition.
#include "cli_flash.h"
#include "cli.h"
#include "cli_json.h"
#include "cli_paths.h"
#include "moxdev/suggest.h"

#include "moxdev/moxdev.h"

#include "host/mox_common.h"

#include <absl/strings/ascii.h>
#include <absl/strings/match.h>
#include <absl/strings/str_join.h>
#include <absl/strings/str_split.h>
#include <algorithm>
#include <fmt/format.h>

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <type_traits>

namespace moxdev_cli {

std::string bytes_size_text(QWORD bytes)
{
    for (const auto& [unit, shift] : {std::pair<const char*, int>{"GiB", 30}, {"MiB", 20}, {"KiB", 10}}) {
        if (bytes >= (QWORD(1) << shift) && bytes % (QWORD(1) << shift) == 0)
            return fmt::format("{} {}", bytes >> shift, unit);
    }
    return fmt::format("{} bytes", bytes);
}

namespace {

// A density: "16 MiB (128 Mbit)".
std::string density_text(DWORD bits)
{
    const std::string mbit =
        bits % (1u << 20) == 0 ? fmt::format("{} Mbit", bits >> 20) : fmt::format("{} Kbit", bits >> 10);
    return bytes_size_text(bits / 8) + " (" + mbit + ")";
}

// A time given in microseconds: "3 ms", "700 us", "2 s".
std::string microseconds_text(QWORD us)
{
    if (us >= 1000000 && us % 1000000 == 0)
        return fmt::format("{} s", us / 1000000);
    if (us >= 1000 && us % 1000 == 0)
        return fmt::format("{} ms", us / 1000);
    return fmt::format("{} us", us);
}

// The unit of each field whose name does not say it.
const std::map<std::string, std::string> FIELD_UNITS = {
    {"device_bit_size", "bits"}, {"device_sector_byte", "bytes"}, {"bulk_erase_time", "s"},
    {"sec_erase_time", "s"},     {"program_utime", "us"},
};

// A field's value with its unit, and the value as people read it.
std::string value_with_unit(const MOXDEV_SFL_FLASH_INFO& record, const std::string& field, const std::string& value)
{
    if (field == "device_bit_size")
        return value + " bits (" + bytes_size_text(record.device_bit_size / 8) + ")";
    if (field == "device_sector_byte")
        return value + " bytes (" + bytes_size_text(record.device_sector_byte) + ")";
    if (field == "program_utime")
        return value + " us" +
               (record.program_utime >= 1000 && record.program_utime % 1000 == 0
                    ? " (" + microseconds_text(record.program_utime) + ")"
                    : "");
    if (field == "bulk_erase_time" || field == "sec_erase_time")
        return value + " s";
    return value;
}

} // namespace

std::string record_summary(const MOXDEV_SFL_FLASH_INFO& record)
{
    return fmt::format("ID {}, {}, {} sectors, {}", moxdev::flash_id_text(record), density_text(record.device_bit_size),
                       bytes_size_text(record.device_sector_byte), record.asc_voltage);
}

void print_record(const MOXDEV_SFL_FLASH_INFO& record, const moxdev::MAXIMA_SOURCE* source)
{
    fmt::print("  maxima: chip erase {} s, sector erase {} s, page program {}\n", record.bulk_erase_time,
               record.sec_erase_time, microseconds_text(record.program_utime));
    fmt::print("  from:   {}\n", source_text(source));
    if (source != nullptr && !source->raised_by.empty())
        fmt::print("          raised to cover the later records with its ID: {}\n",
                   absl::StrJoin(source->raised_by, ", "));
    for (const auto& field : moxdev_flash_info_to_text(record))
        fmt::print("  {:<20} {}\n", field.first, value_with_unit(record, field.first, field.second));
}

std::string source_text(const moxdev::MAXIMA_SOURCE* source)
{
    if (source == nullptr)
        return "not recorded (no line for this record in " + moxdev::FLASH_SOURCES::default_path() + ")";
    const std::string sheet =
        "\"" + source->datasheet + "\"" + (source->revision.empty() ? "" : ", " + source->revision);
    if (source->kind == "datasheet")
        return "its datasheet " + sheet;
    if (source->kind == "sibling")
        return "the sibling " + source->sibling + " (" + source->scaling + "), datasheet " + sheet;
    return source->kind + ": " + source->note;
}

JSON source_json(const moxdev::MAXIMA_SOURCE* source)
{
    if (source == nullptr)
        return nullptr;
    JSON json = {{"kind", source->kind}};
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

JSON units_json()
{
    JSON units = JSON::object();
    for (const auto& [field, unit] : FIELD_UNITS)
        units[field] = unit;
    return units;
}

const moxdev::FLASH_SOURCES& table_sources()
{
    static const moxdev::FLASH_SOURCES sources = [] {
        moxdev::FLASH_SOURCES loaded;
        std::string error;
        if (!loaded.load(moxdev::FLASH_SOURCES::default_path(), error))
            warning(error + "; where the maxima come from is not shown");
        return loaded;
    }();
    return sources;
}

const moxdev::MAXIMA_SOURCE* record_source(const MOXDEV_FLASH_MANAGER& manager, DWORD index)
{
    static const moxdev::MAXIMA_SOURCE user = moxdev::user_maxima_source();
    if (index == 0 && moxdev::user_flash(manager) != nullptr)
        return &user;
    return table_sources().find(manager.get_flash_database()[index]);
}

JSON record_json(const MOXDEV_SFL_FLASH_INFO& record)
{
    // The text form decides which fields are "none" (an unused 255): those
    // are null here, so both forms say the same.
    std::set<std::string> none;
    for (const auto& field : moxdev_flash_info_to_text(record)) {
        if (field.second == "none")
            none.insert(field.first);
    }
    JSON fields = JSON::object();
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

// ID bytes as people write them: separate words or one quoted string, hex
// with or without "0x", separated by blanks, commas or colons, or run
// together ("EF4018"): a group of one or two digits is one byte, a longer
// group of an even count is read two digits a byte.
std::vector<BYTE> parse_id_bytes(const std::vector<std::string>& words)
{
    std::vector<BYTE> bytes;
    for (const std::string& word : words) {
        for (const absl::string_view group : absl::StrSplit(word, absl::ByAnyChar(" \t,:;"), absl::SkipEmpty())) {
            absl::string_view digits = group;
            if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X'))
                digits.remove_prefix(2);
            const bool hex = !digits.empty() && digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos;
            if (!hex || (digits.size() > 2 && digits.size() % 2 != 0))
                throw USER_ERROR{moxdev::quoted(std::string_view(group.data(), group.size())) +
                                 " is not a hex byte or a run of hex bytes (e.g. EF 40 18, EF4018 or 0xEF,0x40,0x18)"};
            const std::size_t step = digits.size() <= 2 ? digits.size() : 2;
            for (std::size_t i = 0; i < digits.size(); i += step)
                bytes.push_back(BYTE(std::stoul(std::string(digits.substr(i, step)), nullptr, 16)));
        }
    }
    if (bytes.empty() && !words.empty())
        throw USER_ERROR{"no ID bytes were given (e.g. EF 40 18)"};
    return bytes;
}

// The manager drops a user flash value it cannot use without a word (unless
// its debug switch is on): say so once, with the reason.
void warn_if_user_flash_ignored(const MOXDEV_FLASH_MANAGER& manager)
{
    static bool warned = false;
    const std::string value = cfg_get_value("MOX_SUPPORT_EXT_SPI_DEV");
    if (warned || value.empty() || moxdev::user_flash(manager) != nullptr)
        return;
    warned = true;
    moxdev::USER_FLASH_CONTENT content;
    std::string reason;
    if (moxdev::read_user_flash_value(value, content, reason) && !content.accepted())
        reason = !content.fields_valid                ? "a field of the definition is out of range"
                 : content.record.device_name.empty() ? "the definition has no device name"
                                                      : "its check value is not this version's";
    warning("the flash manager ignores MOX_SUPPORT_EXT_SPI_DEV: " + reason + "; 'moxdev flash decode' tells more");
}

MOXDEV_FLASH_MANAGER load_table(bool every_record)
{
    const std::string file = gen_get_device_db_fullpath() + "/programmer/mox_flash.pcf";
    const std::string reason = moxdev::unreadable_reason(file);
    if (reason == "no such file")
        throw USER_ERROR{"the flash database " + full_path(file) +
                         " does not exist; MOXDEV_DEVICE_DB_DIR names the directory that holds "
                         "programmer/mox_flash.pcf"};
    if (!reason.empty())
        throw USER_ERROR{"cannot read the flash database " + full_path(file) + ": " + reason};
    MOXDEV_FLASH_MANAGER manager =
        moxdev::load_flash_database(every_record ? moxdev::FLASH_RECORDS::EVERY : moxdev::FLASH_RECORDS::USABLE);
    warn_if_user_flash_ignored(manager);
    return manager;
}

namespace {

std::string upper_text(std::string text)
{
    stl_toupper(text);
    return text;
}

// The switch a record needs ("" for none), and whether it is usable now.
struct RECORD_STATE {
    bool user = false;
    std::string switch_name;
    bool usable = true;
};

RECORD_STATE record_state(const MOXDEV_FLASH_MANAGER& manager, DWORD index)
{
    const MOXDEV_SFL_FLASH_INFO& record = manager.get_flash_database()[index];
    RECORD_STATE state;
    state.user = index == 0 && moxdev::user_flash(manager) != nullptr;
    if (!state.user && gen_stricmp(record.ini, "NONE") != 0) {
        state.switch_name = "MOX_ALLOW_" + record.ini;
        state.usable = cfg_is_on(state.switch_name, false);
    }
    return state;
}

JSON entry_json(const MOXDEV_FLASH_MANAGER& manager, DWORD index, const JSON& shown_index)
{
    const RECORD_STATE state = record_state(manager, index);
    return {{"index", shown_index},
            {"user_defined", state.user},
            {"switch", text_or_null(state.switch_name)},
            {"usable", state.usable},
            {"record", record_json(manager.get_flash_database()[index])},
            {"units", units_json()},
            {"maxima_source", source_json(record_source(manager, index))}};
}

// A density as the list shows it: Mbit, with a fraction below 1 Mbit.
std::string mbit_text(QWORD bits)
{
    return fmt::format("{:g}", double(bits) / double(1u << 20));
}

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
        throw USER_ERROR{moxdev::quoted(text) +
                         " is not a size (e.g. 512K, 128M or 1G: Kbit, Mbit, Gbit; 16MB or 16MiB: bytes)"};
    return QWORD(count) << shift << (bytes ? 3 : 0);
}

// "3.3V", "3.3", "1.8v" as the table writes it ("3.3V").
std::string parse_voltage(const std::string& typed)
{
    const std::string text = moxdev::flash_voltage(typed);
    if (text.empty())
        throw USER_ERROR{moxdev::quoted(typed) + " is not a flash voltage (3.3V or 1.8V)"};
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

// The filters of `flash list`; empty ones pass everything.
struct LIST_FILTER {
    std::string maker;
    std::string size;
    std::string voltage;
    std::string pattern;
};

// Whether one of the names other tools give the record's chip matches.
bool alias_matches(const std::string& pattern, const MOXDEV_SFL_FLASH_INFO& record)
{
    for (const moxdev::FLASH_SOURCES::ENTRY& entry : table_sources().entries()) {
        if (entry.name != record.device_name)
            continue;
        for (const std::string& alias : entry.aliases) {
            if (wildcard_match(pattern, alias))
                return true;
        }
    }
    return false;
}

// The records `filter` keeps, by index.
std::vector<DWORD> listed_records(const MOXDEV_FLASH_MANAGER& manager, const LIST_FILTER& filter, QWORD bits,
                                  const std::string& voltage)
{
    const MOXDEV_SFL_FLASH_INFO* records = manager.get_flash_database();
    std::vector<DWORD> listed;
    for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = records[i];
        const bool wanted =
            (filter.maker.empty() || gen_stricmp(record.manufacturer_name, filter.maker) == 0) &&
            (bits == 0 || QWORD(record.device_bit_size) == bits) &&
            (voltage.empty() ||
             ("|" + upper_text(record.asc_voltage) + "|").find("|" + voltage + "|") != std::string::npos) &&
            (filter.pattern.empty() || wildcard_match(filter.pattern, record.device_name) ||
             alias_matches(filter.pattern, record));
        if (wanted)
            listed.push_back(i);
    }
    return listed;
}

// A maker no record has is a mistake, with the closest ones.
void check_maker(const MOXDEV_FLASH_MANAGER& manager, const LIST_FILTER& filter)
{
    const MOXDEV_SFL_FLASH_INFO* records = manager.get_flash_database();
    std::vector<std::string> makers;
    for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
        if (std::find(makers.begin(), makers.end(), records[i].manufacturer_name) == makers.end())
            makers.push_back(records[i].manufacturer_name);
    }
    const bool known_maker = filter.maker.empty() || std::any_of(makers.begin(), makers.end(), [&](const auto& name) {
                                 return gen_stricmp(name, filter.maker) == 0;
                             });
    if (!known_maker)
        throw USER_ERROR{"no flash record of the maker " + moxdev::quoted(filter.maker) +
                         did_you_mean(filter.maker, makers)};
}

// Which filters together keep nothing: a note for a person, not an error.
std::string nothing_listed(const LIST_FILTER& filter, QWORD bits, const std::string& voltage, bool every_record)
{
    std::string wanted;
    auto add = [&](const std::string& part) { wanted += (wanted.empty() ? "" : ", ") + part; };
    if (!filter.pattern.empty())
        add("named " + filter.pattern);
    if (!filter.maker.empty())
        add("of the maker '" + filter.maker + "'");
    if (bits != 0)
        add(mbit_text(bits) + " Mbit");
    if (!voltage.empty())
        add(voltage);
    return "no flash record " + wanted + (every_record ? "" : " (--all also lists the switched-off ones)");
}

// "VELMAR 4, MICRON 34, ...": the listed records per maker, each maker once,
// in table order.
std::string maker_counts(const MOXDEV_FLASH_MANAGER& manager, const std::vector<DWORD>& listed)
{
    std::vector<std::pair<std::string, DWORD>> counts;
    for (DWORD i : listed) {
        const std::string& maker = manager.get_flash_database()[i].manufacturer_name;
        auto same = std::find_if(counts.begin(), counts.end(), [&](const auto& c) { return c.first == maker; });
        if (same == counts.end())
            counts.emplace_back(maker, 1);
        else
            ++same->second;
    }
    std::string summary;
    for (const auto& [name, count] : counts)
        summary += fmt::format("{}{} {}", summary.empty() ? "" : ", ", name, count);
    return summary;
}

void print_list_line(const MOXDEV_FLASH_MANAGER& manager, DWORD i)
{
    const MOXDEV_SFL_FLASH_INFO& record = manager.get_flash_database()[i];
    const RECORD_STATE state = record_state(manager, i);
    std::string note;
    if (state.user)
        note = "user-defined (MOX_SUPPORT_EXT_SPI_DEV)";
    else if (!state.switch_name.empty())
        note = state.switch_name + (state.usable ? " (on)" : " (off: not usable)");
    fmt::print("{:>5}  {:<10} {:<16} {:<11} {:>6} {:>6}  {:<7} {}\n", i, record.manufacturer_name, record.device_name,
               moxdev::flash_id_text(record), mbit_text(record.device_bit_size), record.device_sector_byte >> 10,
               record.default_dev ? "yes" : "", note);
}

void flash_list(bool every_record, bool full, const LIST_FILTER& filter)
{
    const MOXDEV_FLASH_MANAGER manager = load_table(every_record);
    const QWORD bits = filter.size.empty() ? 0 : parse_density(filter.size);
    const std::string voltage = filter.voltage.empty() ? "" : parse_voltage(filter.voltage);
    check_maker(manager, filter);
    const std::vector<DWORD> listed = listed_records(manager, filter, bits, voltage);
    // Filters that keep nothing are an answer: an empty list, and a note on
    // standard error for a person.
    if (listed.empty()) {
        if (json_output)
            print_json(JSON::array());
        else
            note(nothing_listed(filter, bits, voltage, every_record));
        return;
    }
    if (json_output) {
        JSON entries = JSON::array();
        for (DWORD i : listed)
            entries.push_back(entry_json(manager, i, i));
        print_json(entries);
        return;
    }
    const bool filtered = !filter.maker.empty() || bits != 0 || !voltage.empty() || !filter.pattern.empty();
    if (full && !filtered) {
        manager.print_database();
        return;
    }
    fmt::print("{:>5}  {:<10} {:<16} {:<11} {:>6} {:>6}  {:<7} {}\n", "index", "maker", "device", "ID", "Mbit", "KiB",
               "default", "switch");
    for (DWORD i : listed) {
        if (!full) {
            print_list_line(manager, i);
            continue;
        }
        const MOXDEV_SFL_FLASH_INFO& record = manager.get_flash_database()[i];
        fmt::print("Flash record {}: {} {}, {}\n", i, record.manufacturer_name, record.device_name,
                   record_summary(record));
        print_record(record, record_source(manager, i));
    }
    fmt::print("{} records: {}\n", listed.size(), maker_counts(manager, listed));
}

// moxdev flash show: every record (ID variant) of one chip name, switched-off
// ones included. The index is the one `flash identify` reports, null (or
// "not usable") while the record's switch is off.
void flash_show(const std::string& typed)
{
    // Other tools' names for a chip (W25Q128.V, S25FL128S_UL, each part of
    // MX25L25635F/MX25L25645G) find its record; the record's own name is shown.
    const std::string own = table_sources().name_for(typed);
    const std::string name = own.empty() ? typed : own;
    if (!own.empty() && !absl::EqualsIgnoreCase(own, typed))
        note(typed + " is " + own + " here");
    const MOXDEV_FLASH_MANAGER manager = load_table(true);
    const MOXDEV_SFL_FLASH_INFO* records = manager.get_flash_database();
    std::vector<std::string> names;
    std::vector<DWORD> found;
    // The index among the usable records, INVALID_DWORD for an unusable one.
    std::vector<DWORD> usable_index(manager.get_flash_count(), INVALID_DWORD);
    DWORD usable = 0;
    for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
        if (record_state(manager, i).usable)
            usable_index[i] = usable++;
        if (gen_stricmp(records[i].device_name, name) == 0)
            found.push_back(i);
        if (std::find(names.begin(), names.end(), records[i].device_name) == names.end())
            names.push_back(records[i].device_name);
    }
    if (found.empty())
        throw USER_ERROR{"no flash named " + moxdev::quoted(name) + did_you_mean(name, names)};
    if (json_output) {
        JSON entries = JSON::array();
        for (DWORD i : found)
            entries.push_back(
                entry_json(manager, i, usable_index[i] == INVALID_DWORD ? JSON() : JSON(usable_index[i])));
        print_json(entries);
        return;
    }
    for (std::size_t n = 0; n < found.size(); ++n) {
        const DWORD i = found[n];
        const MOXDEV_SFL_FLASH_INFO& record = records[i];
        const RECORD_STATE state = record_state(manager, i);
        std::string where = usable_index[i] == INVALID_DWORD ? "not usable while " + state.switch_name + " is off"
                                                             : fmt::format("record {}", usable_index[i]);
        if (state.user)
            where += " (user-defined)";
        else if (!state.switch_name.empty() && state.usable)
            where += " (" + state.switch_name + " on)";
        fmt::print("{}{} {}: {}{}, {}\n", n == 0 ? "" : "\n", record.manufacturer_name, record.device_name, where,
                   record.default_dev ? ", default" : "", record_summary(record));
        print_record(record, record_source(manager, i));
    }
}

// moxdev flash sources: each cited datasheet once, in table order, with the
// records whose maxima come from it.
void flash_sources()
{
    const moxdev::FLASH_SOURCES& sources = table_sources();
    if (sources.entries().empty())
        throw USER_ERROR{"no sources are known: " + moxdev::FLASH_SOURCES::default_path() + " lists none"};
    struct SHEET {
        const moxdev::MAXIMA_SOURCE* source;
        std::vector<const moxdev::FLASH_SOURCES::ENTRY*> records;
    };
    std::vector<SHEET> sheets;
    for (const moxdev::FLASH_SOURCES::ENTRY& entry : sources.entries()) {
        const moxdev::MAXIMA_SOURCE& source = entry.source;
        auto same = std::find_if(sheets.begin(), sheets.end(), [&](const SHEET& sheet) {
            return sheet.source->datasheet == source.datasheet && sheet.source->revision == source.revision;
        });
        if (same == sheets.end())
            same = sheets.insert(sheets.end(), SHEET{&source, {}});
        same->records.push_back(&entry);
    }
    if (json_output) {
        JSON documents = JSON::array();
        for (const SHEET& sheet : sheets) {
            JSON records = JSON::array();
            for (const auto* entry : sheet.records) {
                JSON record = {{"name", entry->name}, {"id", entry->id}, {"kind", entry->source.kind}};
                if (entry->source.kind == "sibling") {
                    record["sibling"] = entry->source.sibling;
                    record["scaling"] = entry->source.scaling;
                }
                records.push_back(record);
            }
            documents.push_back({{"datasheet", sheet.source->datasheet},
                                 {"revision", sheet.source->revision},
                                 {"at", sheet.source->at},
                                 {"records", records}});
        }
        print_json(documents);
        return;
    }
    for (const SHEET& sheet : sheets) {
        std::string detail = sheet.source->revision;
        if (!sheet.source->at.empty())
            detail += (detail.empty() ? "" : "; ") + std::string("a copy: ") + sheet.source->at;
        fmt::print("{}\n{}", sheet.source->datasheet, detail.empty() ? "" : "  " + detail + "\n");
        for (const auto* entry : sheet.records) {
            fmt::print("    {:<18} {:<11} {}\n", entry->name, entry->id,
                       entry->source.kind == "sibling" ? "from " + entry->source.sibling + ": " + entry->source.scaling
                                                       : "its own");
        }
    }
    fmt::print("{} datasheets, {} records\n", sheets.size(), sources.entries().size());
}

std::string bytes_text(const std::vector<BYTE>& bytes)
{
    std::string text;
    for (BYTE byte : bytes)
        text += fmt::format("{}{:02X}", text.empty() ? "" : " ", byte);
    return text;
}

// Why no usable record matches `bytes`: the error line and, when something
// can be said, a hint line after it.
std::string no_match_message(const std::vector<BYTE>& bytes, bool silicon_id)
{
    std::string line = "no known flash matches " + bytes_text(bytes) +
                       (silicon_id ? " (silicon ID)" : " (device ID: manufacturer, type, capacity)");
    const MOXDEV_FLASH_MANAGER every = load_table(true);
    const DWORD count = DWORD(bytes.size());
    if (const MOXDEV_SFL_FLASH_INFO* record = moxdev::find_flash(every, silicon_id, bytes.data(), count))
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
    if (const MOXDEV_SFL_FLASH_INFO* record = moxdev::find_flash(every, false, reversed.data(), count))
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

void flash_identify(const std::vector<std::string>& words, bool silicon_id, const std::string& sfdp_file)
{
    const std::vector<BYTE> bytes = parse_id_bytes(words);
    MOXDEV_FLASH_MANAGER manager = load_table(false);
    const DWORD table_count = manager.get_flash_count();
    std::vector<std::string> sfdp_assumed;
    std::optional<MOXDEV_SFL_FLASH_INFO> sfdp_record; // the record the read itself gives
    if (!sfdp_file.empty()) {
        if (silicon_id)
            throw USER_ERROR{"--sfdp binds by the device ID, not by a silicon ID"};
        const std::vector<BYTE> sfdp = read_sfdp_file(sfdp_file);
        std::string error;
        // What the read leaves to assumptions says where a derived record's
        // maxima come from.
        MOXDEV_SFDP decoded;
        MOXDEV_SFDP_RECORD derivation;
        if (bytes.size() >= 3 && moxdev_decode_sfdp(sfdp.data(), sfdp.size(), decoded, error) &&
            moxdev_sfdp_record(decoded, bytes.data(), "", "", MOXDEV_SFDP_ASSUMPTIONS{}, derivation, error)) {
            sfdp_assumed = derivation.assumed;
            sfdp_record = derivation.record;
        }
        if (!moxdev::bind_flash_by_sfdp(manager, 0, bytes.data(), DWORD(bytes.size()), sfdp.data(), sfdp.size(),
                                        &error))
            throw USER_ERROR{error};
    } else if (!moxdev::bind_flash(manager, silicon_id, 0, bytes.data(), DWORD(bytes.size()))) {
        throw USER_ERROR{no_match_message(bytes, silicon_id)};
    }
    const DWORD index = manager.get_flash_mapping_index(0, false);
    const bool user = index == 0 && moxdev::user_flash(manager) != nullptr;
    const bool derived = index >= table_count;
    const MOXDEV_SFL_FLASH_INFO& record = manager.get_flash_database()[index];
    // A record of the table wins for an ID it knows; the read may still
    // describe another chip (a clone, a misprogrammed SFDP area).
    if (!derived && sfdp_record) {
        if (sfdp_record->device_bit_size != record.device_bit_size)
            warning(fmt::format("the SFDP read gives {} bits, the bound record {} {}", sfdp_record->device_bit_size,
                                record.device_name, record.device_bit_size));
        if (sfdp_record->device_sector_byte != record.device_sector_byte)
            warning(fmt::format("the SFDP read gives {}-byte sectors, the bound record {} {}",
                                sfdp_record->device_sector_byte, record.device_name, record.device_sector_byte));
    }
    const moxdev::MAXIMA_SOURCE derived_source = moxdev::sfdp_maxima_source(sfdp_assumed);
    const moxdev::MAXIMA_SOURCE* source = derived ? &derived_source : record_source(manager, index);
    if (json_output) {
        print_json({{"id_bytes", bytes},
                    {"silicon_id", silicon_id},
                    {"record_index", index},
                    {"user_defined", user},
                    {"from_sfdp", derived},
                    {"record", record_json(record)},
                    {"units", units_json()},
                    {"maxima_source", source_json(source)}});
        return;
    }
    fmt::print("{} {}: record {}{}, {}\n", manager.sfl_get_manufacturer_name(0), manager.sfl_get_device_name(0), index,
               user      ? " (user-defined)"
               : derived ? " (derived from its SFDP read)"
                         : "",
               record_summary(record));
    print_record(record, source);
}

void flash_define(const std::string& input_file)
{
    ANSWER_SOURCE source(input_file);
    moxdev::USER_FLASH_DEFINITION definition;
    std::string error;
    // A terminal shows the typed answer; answers from a file or a pipe are
    // written after their prompt instead, as hps add does.
    const bool echo = !input_file.empty() || !::isatty(0);
    const bool defined = moxdev::define_user_flash(source.stream(), std::cout, definition, error, echo);
    if (!echo)
        std::cout << std::endl;
    if (!defined)
        throw USER_ERROR{error};
    for (std::size_t n = 0; n < definition.chips.size(); ++n) {
        const MOXDEV_SFL_FLASH_INFO& chip = definition.chips[n];
        fmt::print("{}{} {}: {}\n", n == 0 ? "" : "\n", chip.manufacturer_name, chip.device_name,
                   n == 0 ? "defined" : "defined (carried, but the flash manager uses only the first chip)");
        const moxdev::MAXIMA_SOURCE user = moxdev::user_maxima_source();
        print_record(chip, &user);
    }
    // The check the flash manager makes when it loads the value.
    moxdev::USER_FLASH_CONTENT content;
    if (!moxdev::read_user_flash_value(definition.value, content, error) || !content.accepted())
        throw USER_ERROR{"the flash manager would ignore this value: " +
                         (error.empty() ? std::string("a field of the definition is out of range") : error)};
    std::cout << "\nValue: " << definition.value << "\n"
              << "\nTo use it, set the configuration value, e.g.\n  export "
              << "MOX_SUPPORT_EXT_SPI_DEV='" << definition.value << "'\n";
}

void flash_decode(const std::string& value)
{
    moxdev::USER_FLASH_CONTENT content;
    std::string error;
    const bool decoded = moxdev::read_user_flash_value(value, content, error);
    if (!decoded && content.decoded.empty())
        throw USER_ERROR{error};
    if (!json_output)
        fmt::print("decoded: {}\n", content.decoded);
    if (!decoded)
        throw USER_ERROR{error};
    if (json_output) {
        print_json({{"decoded", content.decoded},
                    {"record", record_json(content.record)},
                    {"fields_valid", content.fields_valid},
                    {"check_value", content.check_value},
                    {"check_value_matches", content.check_matches},
                    {"further_definitions_ignored", content.more_chips},
                    {"accepted", content.accepted()}});
    } else {
        const moxdev::MAXIMA_SOURCE user = moxdev::user_maxima_source();
        print_record(content.record, &user);
        const char* fields = !content.fields_valid                ? "INVALID (the loader ignores it)"
                             : content.record.device_name.empty() ? "INVALID (no device name: the loader ignores it)"
                                                                  : "valid";
        fmt::print("fields: {}\ncheck value {}: {}\n", fields, content.check_value,
                   content.check_matches ? "matches this version"
                                         : "does NOT match this version (the loader ignores it)");
        if (content.more_chips)
            fmt::print("note: only the first definition of the value is used\n");
    }
    if (!content.accepted())
        throw USER_ERROR{"the flash manager will not use this value"};
}

// The flash table checked as the generator and the loader read it: the first
// cell that either would refuse, as "file:line:column: field: reason".
// Line numbers count every line of the file, blank ones too.
void check_flash_table(const std::string& csv)
{
    moxdev::TABLE_PROBLEM problem;
    if (!moxdev::check_flash_table(csv, problem))
        throw USER_ERROR{moxdev::table_problem_text(csv, problem, MOXDEV_FLASH_FIELD_NAMES)};
}

void flash_generate(const std::string& csv, const std::string& out)
{
    if (const std::string reason = moxdev::unreadable_reason(csv); !reason.empty())
        throw USER_ERROR{"cannot read '" + csv + "': " + reason};
    if (out.empty())
        throw USER_ERROR{"the output file name is empty"};
    std::error_code error;
    if (std::filesystem::is_directory(out, error))
        throw USER_ERROR{"cannot write '" + out + "': it is a directory"};
    const std::filesystem::path parent = std::filesystem::path(out).parent_path();
    const std::string directory = parent.empty() ? "." : parent.string();
    if (!std::filesystem::is_directory(directory, error))
        throw USER_ERROR{"cannot write '" + out + "': the directory " + directory + " does not exist"};
    std::string reason;
    if (!can_create_file_in(directory, reason))
        throw USER_ERROR{"cannot write '" + out + "': " + reason};
    check_flash_table(csv);
    // Written beside `out` and renamed over it: an earlier file survives.
    if (!moxdev::generate_flash_database(csv, out, reason))
        throw USER_ERROR{"cannot write '" + out + "': " + reason};
    FIO_STAT info;
    FIO_FILE_SYSTEM::status(out.c_str(), &info);
    fmt::print("wrote {} ({} bytes)\n", out, info.size);
}

// Each distinct value `of` gives over the table's records, in table order;
// none when the table cannot be read (completion stays quiet).
template <class OF>
auto table_values(OF of)
{
    std::vector<std::decay_t<decltype(of(MOXDEV_SFL_FLASH_INFO{}))>> values;
    try {
        quiet_output = true;
        const MOXDEV_FLASH_MANAGER manager = load_table(true);
        for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
            auto value = of(manager.get_flash_database()[i]);
            if (std::find(values.begin(), values.end(), value) == values.end())
                values.push_back(std::move(value));
        }
    } catch (...) {}
    return values;
}

// The sizes of the table's chips, smallest first, written as --size reads them.
std::vector<std::string> size_values()
{
    std::vector<DWORD> densities = table_values([](const MOXDEV_SFL_FLASH_INFO& r) { return r.device_bit_size; });
    std::sort(densities.begin(), densities.end());
    std::vector<std::string> sizes;
    for (const DWORD bits : densities) {
        sizes.push_back(bits >= (1u << 30) && bits % (1u << 30) == 0 ? std::to_string(bits >> 30) + "G"
                        : bits % (1u << 20) == 0                     ? std::to_string(bits >> 20) + "M"
                                                                     : std::to_string(bits >> 10) + "K");
    }
    return sizes;
}

void add_flash_list(CLI::App* flash)
{
    static bool every_record = false, full = false;
    static LIST_FILTER filter;
    CLI::App* list = flash->add_subcommand("list", "List the usable flash records "
                                                   "(record 0 is the user flash when one is defined)");
    list->add_flag("--all", every_record, "Also list the records whose MOX_ALLOW_ switch is off");
    list->add_flag("--full", full, "Print every field of every record");
    list->add_option("PATTERN", filter.pattern,
                     "Only the chips whose name matches, '*' and '?' as wildcards, e.g. 'W25Q*' (letter case "
                     "ignored)");
    complete_from(
        list->add_option("--maker", filter.maker, "Only the records of this maker, e.g. winbond (letter case ignored)"),
        "flash-makers",
        [] { return table_values([](const MOXDEV_SFL_FLASH_INFO& r) { return r.manufacturer_name; }); });
    complete_from(list->add_option("--size", filter.size,
                                   "Only the chips of this size: 512K, 128M, 1G or 2Gbit are bits (K, M, G = 1024^n); "
                                   "16MB or 16MiB are bytes"),
                  "flash-sizes", size_values);
    complete_from(list->add_option("--voltage", filter.voltage, "Only the chips of this voltage: 3.3V or 1.8V"),
                  "flash-voltages", [] {
                      return std::vector<std::string>{"3.3V", "1.8V"};
                  });
    list->footer("The filters combine. The last line counts the records listed per maker. "
                 "With --json every record is given whole, so --full changes nothing; fields that are not "
                 "used (255) are null there and \"none\" in the text.");
    add_json_verb(list, [] { flash_list(every_record, full, filter); });
}

} // namespace

void add_flash_commands(CLI::App& app)
{
    CLI::App* flash =
        app.add_subcommand("flash", "Query the serial flash database, identify chips, define a user flash");
    flash->require_subcommand(1);
    add_flash_list(flash);

    static std::string show_name;
    CLI::App* show = flash->add_subcommand("show", "Every record (ID variant) of one flash chip, by its name");
    complete_from(show->add_option("NAME", show_name, "The chip's name, e.g. mt25ql256 (letter case ignored)"),
                  "flash-names",
                  [] { return table_values([](const MOXDEV_SFL_FLASH_INFO& r) { return r.device_name; }); })
        ->required();
    show->footer("Records whose MOX_ALLOW_ switch is off are shown too, marked not usable.");
    add_json_verb(show, [] { flash_show(show_name); });

    CLI::App* sources = flash->add_subcommand("sources", "Every datasheet the flash maxima were read in, with the "
                                                         "records that rest on it");
    sources->footer("A record rests on a datasheet when its maxima were read in it, or when they were taken from a "
                    "sibling read in it and scaled (the scaling is shown).");
    add_json_verb(sources, [] { flash_sources(); });

    add_sfdp_command(*flash);

    static std::vector<std::string> words;
    static bool silicon_id = false;
    CLI::App* identify =
        flash->add_subcommand("identify", "Find the flash that answers with these ID bytes, e.g. 20 BA 19");
    identify->add_option("BYTES", words, "ID bytes in hex, e.g. 20 BA 19 or 0x20BA19")->required();
    identify->add_flag("--silicon-id", silicon_id, "Match the one-byte silicon ID instead");
    static std::string sfdp_file;
    identify->add_option("--sfdp", sfdp_file,
                         "The chip's SFDP read (a file, - for standard input): a chip the table does not "
                         "know is bound to the record derived from it");
    identify->footer("The bytes are the Read-ID answer in read order: manufacturer, memory type, capacity.");
    add_json_verb(identify, [] { flash_identify(words, silicon_id, sfdp_file); });

    static std::string define_input;
    CLI::App* define = flash->add_subcommand(
        "define", "Define a flash chip interactively and print the value for MOX_SUPPORT_EXT_SPI_DEV");
    define->add_option("--input", define_input, "Read the answers from this file, one per line");
    define->footer("The answers may also come from standard input, one per line. A refused answer is "
                   "explained and asked again; an index, divisor or bottom value that is not used is answered "
                   "with none. The flash manager uses only the first chip of a value.");
    define->callback([] { flash_define(define_input); });

    static std::string value;
    CLI::App* decode = flash->add_subcommand(
        "decode", "Decode a MOX_SUPPORT_EXT_SPI_DEV value: its fields and whether this version accepts it");
    decode->add_option("VALUE", value, "The encoded value")->required();
    decode->footer("A value this version does not accept is shown, then refused with exit status 1.");
    add_json_verb(decode, [] { flash_decode(value); });

    static std::string csv, out;
    CLI::App* generate = flash->add_subcommand("generate", "Build a flash database file from the flash table (CSV)");
    generate->add_option("CSV", csv, "Flash table, e.g. data/mox_flash.csv")->required();
    generate->add_option("OUT", out, "Database file to write, e.g. mox_flash.pcf")->required();
    generate->callback([] { flash_generate(csv, out); });
}

} // namespace moxdev_cli
