// Writes the serial flash table (data/mox_flash.csv) from the per-maker
// sources in data/flash/ (format: data/flash/README.md).
//
//   gen_flash_table INDEX OUTPUT
//
// INDEX lists the maker files in table order, relative to its own folder. The
// output is written only when it changes. A mistake in a source is reported
// with its file and line, and nothing is written.
#include "tools/generators/generated_file.h"

#include "moxdev/moxdev_sfdp.h"
#include "moxdev/table.h"

#include <absl/strings/ascii.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// ---------------------------------------------------------------- columns

// The database generator's column types and names, in column order.
struct COLUMN_TYPE {
    const char* name;
    const char* type;
};
const COLUMN_TYPE COLUMNS[] = {
#define MOXDEV_FLASH_FIELD(name, stream_type, type) {#name, moxdev::table_type_name(MOXDEV_MANAGER_##stream_type)},
#include "moxdev/moxdev_flash_info_fields.def"
};
constexpr std::size_t COLUMN_COUNT = sizeof COLUMNS / sizeof COLUMNS[0];

// Lines 2 to 6 of the table describe each column: allowed values, unit,
// meaning and where its values come from. Line 7 states the rule behind the
// column's values; an empty rule is computed from the data.
struct COLUMN_TEXT {
    const char* values;
    const char* unit;
    const char* meaning;
    const char* source;
    const char* rule;
};
const COLUMN_TEXT COLUMN_TEXTS[COLUMN_COUNT] = {
    {"upper_case_text", "text", "maker_shown_to_the_user", "maker_ID_code", ""},
    {"upper_case_text", "text", "chip_name_(records_sharing_a_name_are_ID_variants)", "maker_part_name", ""},
    {"TRUE|FALSE", "flag", "matched_by_one_silicon-ID_byte", "ID_method", "TRUE_only_for_the_Velmar_VCS_devices"},
    {"0xNN", "hex_byte", "expected_ID_byte_(capacity_code_or_silicon_ID)", "reference_ID_table_(byte_2)",
     "silicon-ID_records_hold_their_silicon_ID_here"},
    {"0|1|2", "byte_position", "position_of_memory_id_in_the_ID_bytes", "Read-ID_order",
     "Read-ID_(9Fh)_byte_order:_0=maker_1=type_2=capacity;_silicon_ID_at_0"},
    {"0xNN", "hex_byte", "expected_memory-type_byte", "reference_ID_table_(byte_1)", "0x00_on_silicon-ID_records"},
    {"0|1|2|255", "byte_position", "position_of_memory_type_(255=not_compared)", "Read-ID_order",
     "255_on_silicon-ID_records_only"},
    {"0xNN", "hex_byte", "expected_manufacturer_ID", "reference_ID_table_(byte_0)", "0x00_on_silicon-ID_records"},
    {"0|1|2", "byte_position", "position_of_mfc_id", "Read-ID_order", "always_0"},
    {"1-254", "number", "our_code_number_for_the_chip's_family", "own_numbering",
     "one_number_per_family_(block_of_data/flash/)_in_table_order"},
    {"TRUE|FALSE", "flag", "default_record_of_its_name", "own_choice",
     "the_first_record_of_a_name_is_its_default;_later_ones_are_ID_variants"},
    {"NONE|switch_name", "switch", "enabling_switch_(MOX_ALLOW_+text)_or_NONE", "qualification_status", ""},
    {"TRUE|FALSE", "flag", "quad_(x4)_I/O_capable", "datasheet", "FALSE_for_single/dual-I/O_parts"},
    {"TRUE|FALSE", "flag", "Micron_flow", "datasheet", "N25Q_and_MT25Q_only"},
    {"TRUE|FALSE", "flag", "Spansion_flow", "datasheet", "Spansion/Infineon_records"},
    {"TRUE|FALSE", "flag", "block_protection_set_at_power-up", "datasheet", "AT25DF_(global_protect_at_power-up)"},
    {"TRUE|FALSE", "flag", "auto-address-increment_programming", "datasheet", "FALSE_throughout"},
    {"TRUE|FALSE", "flag", "flag_status_register_polled", "datasheet", "N25Q_and_MT25Q_only"},
    {"1|2|4", "dies", "stacked_dies", "reference_ID_table_(dies)_and_datasheet", "1_where_no_source_states_a_count"},
    {"power_of_two", "bits", "density", "reference_ID_table_(size)", "2_Gbit_at_most_(32-bit_field)"},
    {"power_of_two", "bytes", "uniform_erase_sector", "reference_ID_table_(sector)", "the_D8h/DCh_block_erase_size"},
    {"TRUE|FALSE", "flag", "half-size_flag", "fixed", "FALSE_throughout"},
    {"TRUE|FALSE", "flag", "needs_4-byte_addresses", "derived_from_density", "TRUE_exactly_above_128_Mbit"},
    {"decimal", "seconds", "whole-device_erase_maximum_(all_dies)", "datasheet_maximum",
     "rounded_up;_a_record_carries_the_longest_time_of_itself_and_every_later_record_with_its_ID"},
    {"decimal", "seconds", "sector_erase_maximum_rounded_up", "datasheet_maximum", "see_bulk_erase_time_note"},
    {"decimal", "microseconds", "page_program_maximum", "datasheet_maximum", "see_bulk_erase_time_note"},
    {"0xNN", "hex_mask", "block-protect_bits_of_status_register_1", "datasheet_status_register",
     "BP_bits_(and_TB/SEC_where_they_sit_in_status_register_1)"},
    {"0xNN", "hex_value", "value_that_protects_the_whole_chip", "datasheet_status_register", "BP_bits_all_set"},
    {"0xNN", "hex_value", "value_that_unprotects", "datasheet_status_register", "0x00_throughout"},
    {"255=none|3-32", "divisor", "protection_divisor", "not_used", "255_throughout"},
    {"255=none|0-7", "bit_number", "bit_of_the_top/bottom_protect_bit", "datasheet_status_register",
     "255_where_status_register_1_has_none"},
    {"TRUE|FALSE", "flag", "qualified_for_the_secure_device_manager_flow", "qualification_status",
     "MT25QU_and_MX25U/MX66U_of_128_Mbit_and_up"},
    {"3.3V|1.8V", "volts", "active-serial_configuration_voltage", "reference_voltage_or_family_letter",
     "from_the_reference_voltage_or_the_family_letter"},
};

// ---------------------------------------------------------------- sources

struct SOURCE_ERROR : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct PLACE {
    std::string file;
    int line = 0;
    std::string text() const { return file + ":" + std::to_string(line); }
};

[[noreturn]] void fail(const PLACE& place, const std::string& message)
{
    throw SOURCE_ERROR(place.text() + ": " + message);
}

// The properties a family or chip may set, with the place each was set.
const std::set<std::string> PROPERTIES = {"id",         "silicon_id",   "size",
                                          "sector",     "dies",         "quad",
                                          "flow",       "flag_status",  "startup_protected",
                                          "sdm",        "protect",      "voltage",
                                          "switch",     "page_program", "sector_erase",
                                          "chip_erase", "times_from",   "times",
                                          "datasheet",  "revision",     "at",
                                          "conditions", "note",         "alias",
                                          "aai",        "facts"};
// Properties that describe one chip only: a family may not set them.
const std::set<std::string> CHIP_ONLY = {"id", "silicon_id", "size",   "times_from", "datasheet", "revision",
                                         "at", "conditions", "switch", "alias",      "facts"};

struct VALUE {
    std::string text;
    PLACE place;
};
using PROPERTY_MAP = std::map<std::string, VALUE>;

struct CHIP {
    std::string maker;
    unsigned code = 0;
    std::string name;
    PLACE place;
    PROPERTY_MAP properties;
    std::vector<std::string> aliases; // the names other tools' tables give it
    bool is_default = true;
    unsigned family = 0; // number of its family block in table order, from 1
};

std::string trim(const std::string& text)
{
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

unsigned hex_byte(const VALUE& value, const std::string& text)
{
    std::size_t used = 0;
    unsigned long number = 0;
    try {
        number = std::stoul(text, &used, 16);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used != text.size() || text.empty() || number > 0xFF)
        fail(value.place, "not a hex byte: \"" + text + "\"");
    return unsigned(number);
}

class SOURCES {
public:
    void read_index(const std::filesystem::path& index)
    {
        std::ifstream in(index);
        if (!in)
            throw SOURCE_ERROR("cannot read " + index.string());
        PLACE place{index.string(), 0};
        for (std::string line; std::getline(in, line);) {
            ++place.line;
            const std::string file = trim(line.substr(0, line.find('#')));
            if (!file.empty())
                read_maker_file(index.parent_path() / file);
        }
        if (m_chips.empty())
            fail(place, "no chips");
    }

    std::vector<CHIP>& chips() { return m_chips; }

private:
    void read_maker_file(const std::filesystem::path& path)
    {
        std::ifstream in(path);
        PLACE place{path.filename().string(), 0};
        if (!in)
            fail(place, "cannot read " + path.string());
        m_maker.clear();
        m_family.clear();
        m_chip = nullptr;
        for (std::string line; std::getline(in, line);) {
            ++place.line;
            line = trim(line.substr(0, line.find('#')));
            if (line.empty())
                continue;
            const auto blank = line.find_first_of(" \t");
            const std::string key = line.substr(0, blank);
            const std::string value = blank == std::string::npos ? "" : trim(line.substr(blank));
            if (value.empty())
                fail(place, "\"" + key + "\" needs a value");
            take(key, value, place);
        }
    }

    void take(const std::string& key, const std::string& value, const PLACE& place)
    {
        if (key == "maker") {
            std::istringstream words(value);
            std::string name, code;
            words >> name >> code;
            if (code.rfind("0x", 0) != 0)
                fail(place, "maker needs a name and a 0x code");
            m_maker = name;
            m_code = hex_byte(VALUE{value, place}, code.substr(2));
            m_family.clear();
            m_chip = nullptr;
            ++m_family_number;
        } else if (m_maker.empty()) {
            fail(place, "\"" + key + "\" before the first maker line");
        } else if (key == "family") {
            m_family.clear();
            m_chip = nullptr;
            ++m_family_number;
        } else if (key == "chip") {
            open_chip(value, place);
        } else if (PROPERTIES.count(key) == 0) {
            fail(place, "unknown key \"" + key + "\"");
        } else if (m_chip == nullptr) {
            if (CHIP_ONLY.count(key))
                fail(place, "\"" + key + "\" belongs to a chip, not to a family");
            set(m_family, key, value, place);
        } else if (key == "alias") {
            if (value.find_first_of(" \t,") != std::string::npos)
                fail(place, "an alias is one word");
            m_chip->aliases.push_back(value);
        } else {
            set(m_chip->properties, key, value, place);
        }
    }

    static void set(PROPERTY_MAP& properties, const std::string& key, const std::string& value, const PLACE& place)
    {
        if (key == "note")
            return; // for the reader of the source only
        properties[key] = VALUE{value, place};
    }

    void open_chip(const std::string& name, const PLACE& place)
    {
        if (name.find_first_of(" \t,") != std::string::npos || name.size() > 255)
            fail(place, "a chip name is one word of at most 255 characters");
        CHIP chip;
        chip.maker = m_maker;
        chip.code = m_code;
        chip.name = name;
        chip.place = place;
        chip.properties = m_family;
        chip.family = m_family_number;
        // An ID variant takes what its name's first record has.
        for (const CHIP& earlier : m_chips) {
            if (earlier.name == name) {
                if (earlier.maker != m_maker)
                    fail(place, name + " is a chip of " + earlier.maker);
                chip.properties = earlier.properties;
                chip.family = earlier.family;
                chip.is_default = false;
                break;
            }
        }
        m_chips.push_back(std::move(chip));
        m_chip = &m_chips.back();
    }

    std::vector<CHIP> m_chips;
    std::string m_maker;
    unsigned m_code = 0;
    unsigned m_family_number = 0;
    PROPERTY_MAP m_family;
    CHIP* m_chip = nullptr;
};

// ---------------------------------------------------------------- values

const VALUE& required(const CHIP& chip, const std::string& key)
{
    const auto found = chip.properties.find(key);
    if (found == chip.properties.end())
        fail(chip.place, chip.name + " has no " + key);
    return found->second;
}

std::string optional(const CHIP& chip, const std::string& key, const std::string& fallback)
{
    const auto found = chip.properties.find(key);
    return found == chip.properties.end() ? fallback : found->second.text;
}

bool yes_no(const CHIP& chip, const std::string& key)
{
    const std::string text = optional(chip, key, "no");
    if (text != "yes" && text != "no")
        fail(chip.properties.at(key).place, key + " is yes or no");
    return text == "yes";
}

// "64K", "128M", "1G": a power of two times 1024^n.
std::uint64_t size_value(const VALUE& value)
{
    const std::string& text = value.text;
    std::size_t used = 0;
    std::uint64_t number = 0;
    try {
        number = std::stoull(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    const std::string suffix = used == 0 ? "?" : text.substr(used);
    const std::map<std::string, unsigned> shifts = {{"", 0}, {"K", 10}, {"M", 20}, {"G", 30}};
    if (used == 0 || shifts.count(suffix) == 0)
        fail(value.place, "not a size: \"" + text + "\" (write 64K, 128M, 1G)");
    number <<= shifts.at(suffix);
    if (number == 0 || (number & (number - 1)) != 0)
        fail(value.place, "not a power of two: \"" + text + "\"");
    return number;
}

// "1.8 ms", "700 us", "2 s": a time in nanoseconds, exactly.
std::uint64_t time_value(const VALUE& value)
{
    std::istringstream words(value.text);
    std::string number, unit, rest;
    words >> number >> unit >> rest;
    const std::map<std::string, std::uint64_t> units = {{"us", 1000}, {"ms", 1000000}, {"s", 1000000000}};
    const auto point = number.find('.');
    const std::string digits = point == std::string::npos ? number : number.substr(0, point) + number.substr(point + 1);
    const std::size_t decimals = point == std::string::npos ? 0 : number.size() - point - 1;
    const bool is_number =
        !digits.empty() && digits.size() <= 12 && digits.find_first_not_of("0123456789") == std::string::npos;
    if (!is_number || units.count(unit) == 0 || !rest.empty() || decimals > 6)
        fail(value.place, "not a time: \"" + value.text + "\" (write 3 ms, 700 us, 2 s)");
    std::uint64_t nanoseconds = std::stoull(digits) * units.at(unit);
    for (std::size_t i = 0; i < decimals; ++i)
        nanoseconds /= 10; // exact: the unit has at least six zeros
    if (nanoseconds == 0)
        fail(value.place, "a maximum time is not zero");
    return nanoseconds;
}

std::uint64_t round_up(std::uint64_t value, std::uint64_t step)
{
    return (value + step - 1) / step;
}

struct TIMES {
    std::uint64_t chip_erase = 0, sector_erase = 0, page_program = 0; // nanoseconds
};

struct RECORD {
    const CHIP* chip;
    // The cells by field name; the table writes them in field order.
    std::map<std::string, std::string> cells;
    std::string id_key; // what the Read-ID bytes compare against
    TIMES times;
    // The later records with its ID whose longer maxima it carries.
    std::vector<std::string> raised_by;
};

std::string hex(unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", value);
    return text;
}

std::string flag(bool value)
{
    return value ? "TRUE" : "FALSE";
}

TIMES own_times(const CHIP& chip)
{
    TIMES times;
    times.chip_erase = time_value(required(chip, "chip_erase"));
    times.sector_erase = time_value(required(chip, "sector_erase"));
    times.page_program = time_value(required(chip, "page_program"));
    return times;
}

// The conservative envelope a chip without a datasheet or a published SFDP
// read takes: the longest maxima of the table's cited chips per unit erased,
// the same the SFDP derivation assumes for a read without times (one place:
// MOXDEV_SFDP_ASSUMPTIONS). Larger sectors and chips scale up, never down.
TIMES envelope_times(const CHIP& chip)
{
    const MOXDEV_SFDP_ASSUMPTIONS envelope;
    const std::uint64_t bits = size_value(required(chip, "size"));
    const std::uint64_t sector = size_value(required(chip, "sector"));
    TIMES times;
    times.page_program = std::uint64_t(envelope.page_program_us) * 1000;
    times.sector_erase =
        std::uint64_t(envelope.sector_erase_ms_per_64k) * 1000000 * std::max<std::uint64_t>(1, sector >> 16);
    times.chip_erase =
        std::uint64_t(envelope.chip_erase_ms_per_mbit) * 1000000 * std::max<std::uint64_t>(1, bits >> 20);
    return times;
}

std::string envelope_text()
{
    const MOXDEV_SFDP_ASSUMPTIONS envelope;
    return "the longest cited maxima per unit erased: page program " + std::to_string(envelope.page_program_us) +
           " us, sector erase " + std::to_string(envelope.sector_erase_ms_per_64k) + " ms per 64K, chip erase " +
           std::to_string(envelope.chip_erase_ms_per_mbit) + " ms per Mbit";
}

bool takes_envelope(const CHIP& chip)
{
    const auto times = chip.properties.find("times");
    if (times == chip.properties.end())
        return false;
    // "own": the chip's own three times, where its family takes the envelope.
    if (times->second.text != "envelope" && times->second.text != "own")
        fail(times->second.place, "times is envelope or own (or leave it out)");
    return times->second.text == "envelope";
}

TIMES times_of(const CHIP& chip, const std::vector<CHIP>& chips)
{
    const auto from = chip.properties.find("times_from");
    if (takes_envelope(chip)) {
        for (const char* own : {"page_program", "sector_erase", "chip_erase", "times_from"}) {
            if (chip.properties.count(own))
                fail(chip.properties.at(own).place, chip.name + " takes the envelope and has " + own);
        }
        return envelope_times(chip);
    }
    if (from == chip.properties.end())
        return own_times(chip);
    for (const char* own : {"page_program", "sector_erase", "chip_erase"}) {
        if (chip.properties.count(own))
            fail(chip.properties.at(own).place, chip.name + " has its own " + own + " and times_from");
    }
    for (const CHIP& other : chips) {
        if (other.name == from->second.text && other.is_default) {
            if (other.properties.count("times_from"))
                fail(from->second.place, other.name + " takes its times from another chip itself");
            // Erase times grow with what is erased: a larger chip or sector
            // than the sibling's scales its maximum up, never down.
            TIMES times = own_times(other);
            const std::uint64_t bits = size_value(required(chip, "size"));
            const std::uint64_t other_bits = size_value(required(other, "size"));
            const std::uint64_t sector = size_value(required(chip, "sector"));
            const std::uint64_t other_sector = size_value(required(other, "sector"));
            if (bits > other_bits)
                times.chip_erase *= bits / other_bits;
            if (sector > other_sector)
                times.sector_erase *= sector / other_sector;
            return times;
        }
    }
    fail(from->second.place, "times_from names no chip: " + from->second.text);
}

// The chip's ID: its silicon-ID byte, its type and capacity bytes behind the
// maker code, or (`id` of one byte) the one model byte behind the maker code
// of a chip whose ID command answers two bytes (Read Product ID, 0x15, of the
// older Atmel parts); sets the record's key of the bytes it compares.
void read_id(const CHIP& chip, RECORD& record, bool& silicon, bool& two_bytes, unsigned& memory_id,
             unsigned& memory_type)
{
    silicon = chip.properties.count("silicon_id") > 0;
    two_bytes = false;
    memory_id = memory_type = 0;
    if (silicon) {
        const VALUE& value = chip.properties.at("silicon_id");
        memory_id = hex_byte(value, value.text.rfind("0x", 0) == 0 ? value.text.substr(2) : value.text);
        record.id_key = "silicon " + hex(memory_id);
        return;
    }
    const VALUE& value = required(chip, "id");
    std::istringstream words(value.text);
    std::string first, second, rest;
    words >> first >> second >> rest;
    if (first.empty() || !rest.empty())
        fail(value.place, "id is the type and capacity bytes, e.g. \"BA 18\", or the one model byte of a "
                          "two-byte product ID");
    char key[16];
    if (second.empty()) {
        two_bytes = true;
        memory_id = hex_byte(value, first);
        std::snprintf(key, sizeof key, "%02X-%02X", chip.code, memory_id);
    } else {
        memory_type = hex_byte(value, first);
        memory_id = hex_byte(value, second);
        std::snprintf(key, sizeof key, "%02X-%02X-%02X", chip.code, memory_type, memory_id);
    }
    record.id_key = key;
}

// The block-protect bits: mask, protecting value and bottom bit.
struct PROTECTION {
    unsigned mask = 0;
    unsigned value = 0;
    std::string bottom;
};

PROTECTION read_protection(const CHIP& chip)
{
    const VALUE& protect = required(chip, "protect");
    // No datasheet read: the block-protect bits the SFDP derivation assumes.
    if (protect.text == "assumed") {
        const MOXDEV_SFDP_ASSUMPTIONS assumed;
        return {assumed.protection_mask, assumed.protection_value, "none"};
    }
    std::istringstream words(protect.text);
    std::string mask, value, bottom, rest;
    words >> mask >> value >> bottom >> rest;
    if (bottom.empty() || !rest.empty() || mask.rfind("0x", 0) != 0 || value.rfind("0x", 0) != 0 ||
        (bottom != "none" && (bottom.size() != 1 || bottom[0] < '0' || bottom[0] > '7')))
        fail(protect.place, "protect is MASK VALUE BOTTOM, e.g. \"0x7C 0x5C 5\" or \"0x3C 0x3C none\", or assumed");
    return {hex_byte(protect, mask.substr(2)), hex_byte(protect, value.substr(2)), bottom};
}

// A property that takes one of `allowed`, else `fallback` when absent.
std::string one_of(const CHIP& chip, const char* key, const std::string& fallback,
                   const std::vector<std::string>& allowed, const char* rule)
{
    const std::string value = optional(chip, key, fallback);
    if (std::find(allowed.begin(), allowed.end(), value) == allowed.end())
        fail(chip.properties.at(key).place, rule);
    return value;
}

RECORD make_record(const CHIP& chip, const std::vector<CHIP>& chips, unsigned number)
{
    RECORD record{&chip, {}, {}, times_of(chip, chips), {}};
    bool silicon = false, two_bytes = false;
    unsigned memory_id = 0, memory_type = 0;
    read_id(chip, record, silicon, two_bytes, memory_id, memory_type);
    const VALUE& size = required(chip, "size");
    const std::uint64_t bits = size_value(size);
    if (bits > 0x80000000ull)
        fail(size.place, "at most 2G fit the density field");
    const std::uint64_t sector = size_value(required(chip, "sector"));
    if (sector * 8 > bits)
        fail(required(chip, "sector").place, "the sector is larger than the chip");
    const std::string dies = one_of(chip, "dies", "1", {"1", "2", "4"}, "dies is 1, 2 or 4");
    const std::string flow =
        one_of(chip, "flow", "none", {"none", "micron", "spansion"}, "flow is micron, spansion or none");
    const PROTECTION protection = read_protection(chip);
    const VALUE& voltage = required(chip, "voltage");
    if (voltage.text != "3.3V" && voltage.text != "1.8V")
        fail(voltage.place, "voltage is 3.3V or 1.8V");
    const VALUE& datasheet = required(chip, "datasheet");
    if (datasheet.text == "none" && !chip.properties.count("times_from") && !takes_envelope(chip))
        fail(datasheet.place, chip.name + " has no datasheet: name the chip whose maxima it takes (times_from)");

    // The three times are filled in once the shared IDs are known.
    record.cells = {
        {"manufacturer_name", chip.maker},
        {"device_name", absl::AsciiStrToUpper(chip.name)},
        {"silicon_id", flag(silicon)},
        {"memory_id", hex(memory_id)},
        {"memory_id_index", silicon     ? "0"
                            : two_bytes ? "1"
                                        : "2"},
        {"memory_type", hex(memory_type)},
        {"memory_type_index", silicon || two_bytes ? "255" : "1"},
        {"mfc_id", hex(silicon ? 0 : chip.code)},
        {"mfc_id_index", "0"},
        {"velmar_id", std::to_string(number)},
        {"default_dev", flag(chip.is_default)},
        {"ini", optional(chip, "switch", "NONE")},
        {"extended_mode", flag(yes_no(chip, "quad"))},
        {"micron_flow", flag(flow == "micron")},
        {"spansion_flow", flag(flow == "spansion")},
        {"startup_protected", flag(yes_no(chip, "startup_protected"))},
        {"aai_mode", flag(yes_no(chip, "aai"))},
        {"flag_status", flag(yes_no(chip, "flag_status"))},
        {"die_count", dies},
        {"device_bit_size", std::to_string(bits)},
        {"device_sector_byte", std::to_string(sector)},
        {"half_size", flag(false)},
        {"byte4_addressing", flag(bits > (std::uint64_t(128) << 20))},
        {"protection_mask", hex(protection.mask)},
        {"protection_value", hex(protection.value)},
        {"unprotect_value", hex(0)},
        {"protection_division", "255"},
        {"bottom_value", protection.bottom == "none" ? "255" : protection.bottom},
        {"sdm_support", flag(yes_no(chip, "sdm"))},
        {"asc_voltage", voltage.text},
    };
    return record;
}

// ---------------------------------------------------------------- table

std::string cell_text(std::string text)
{
    std::replace(text.begin(), text.end(), ' ', '_');
    std::replace(text.begin(), text.end(), ',', ';');
    return text;
}

// The records of `chips`, each carrying the longest times of itself and of
// every later record with the same ID bytes (the first match wins, so it
// must be safe for each chip it answers for).
std::vector<RECORD> make_records(const std::vector<CHIP>& chips)
{
    std::vector<RECORD> records;
    for (const CHIP& chip : chips) {
        if (chip.family > 254)
            fail(chip.place, "more than 254 families");
        records.push_back(make_record(chip, chips, chip.family));
    }
    for (std::size_t i = records.size(); i-- > 0;) {
        for (std::size_t j = i + 1; j < records.size(); ++j) {
            if (records[j].id_key == records[i].id_key) {
                TIMES& mine = records[i].times;
                const TIMES& later = records[j].times;
                if (later.chip_erase > mine.chip_erase || later.sector_erase > mine.sector_erase ||
                    later.page_program > mine.page_program) {
                    records[i].raised_by = records[j].raised_by;
                    records[i].raised_by.insert(records[i].raised_by.begin(), records[j].cells.at("device_name"));
                }
                mine.chip_erase = std::max(mine.chip_erase, later.chip_erase);
                mine.sector_erase = std::max(mine.sector_erase, later.sector_erase);
                mine.page_program = std::max(mine.page_program, later.page_program);
                break; // record j already carries the longest of those after it
            }
        }
        auto& cells = records[i].cells;
        cells["bulk_erase_time"] = std::to_string(round_up(records[i].times.chip_erase, 1000000000));
        cells["sec_erase_time"] = std::to_string(round_up(records[i].times.sector_erase, 1000000000));
        cells["program_utime"] = std::to_string(round_up(records[i].times.page_program, 1000));
    }
    return records;
}

// Line 7's computed notes on the first columns: the makers with their codes,
// the Read-IDs several records share, the switches.
struct NOTES {
    std::string makers = "Makers_in_table_order:";
    std::string shared = "Shared_Read-IDs_(first_match_wins;_later_records_stay_reachable_by_name):";
    std::string switches;
};

NOTES notes_of(const std::vector<RECORD>& records)
{
    NOTES notes;
    std::vector<std::string> shared_order;
    std::map<std::string, std::vector<std::string>> shared;
    for (const RECORD& record : records) {
        const CHIP& chip = *record.chip;
        const std::string& name = record.cells.at("device_name");
        const std::string& ini = record.cells.at("ini");
        if (notes.makers.find("_" + chip.maker + "=") == std::string::npos)
            notes.makers += "_" + chip.maker + "=" + hex(record.cells.at("mfc_id") == "0x00" ? 0 : chip.code);
        if (!shared.count(record.id_key))
            shared_order.push_back(record.id_key);
        shared[record.id_key].push_back(name + (ini != "NONE" ? "(" + ini + ")" : ""));
        if (ini != "NONE")
            notes.switches += (notes.switches.empty() ? "" : "_") + ini + ":" + name;
    }
    for (const std::string& key : shared_order) {
        const auto& names = shared[key];
        if (names.size() < 2)
            continue;
        notes.shared += "_" + key + "=";
        for (std::size_t i = 0; i < names.size(); ++i)
            notes.shared += (i ? ">" : "") + names[i];
        notes.shared += ";";
    }
    return notes;
}

std::string table_text(std::vector<CHIP>& chips)
{
    const std::vector<RECORD> records = make_records(chips);
    const NOTES notes = notes_of(records);
    std::ostringstream out;
    auto line = [&](auto cell_of) {
        for (std::size_t i = 0; i < COLUMN_COUNT; ++i)
            out << (i ? "," : "") << cell_text(cell_of(i));
        out << "\n";
    };
    line([](std::size_t i) { return std::string(COLUMNS[i].type); });
    line([](std::size_t i) { return std::string(COLUMNS[i].name); });
    line([](std::size_t i) {
        char number[8];
        std::snprintf(number, sizeof number, "#%02zu", i + 1);
        return i == 0 ? std::string(number) + ":Serial_configuration_flash_table_generated_from_data/flash/;"
                                              "_one_record_per_Read-ID_variant;_lines_2-7_describe_each_column"
                      : std::string(number);
    });
    line([](std::size_t i) { return std::string(COLUMN_TEXTS[i].values); });
    line([](std::size_t i) { return std::string(COLUMN_TEXTS[i].unit); });
    line([](std::size_t i) { return std::string(COLUMN_TEXTS[i].meaning); });
    line([](std::size_t i) { return std::string(COLUMN_TEXTS[i].source); });
    line([&](std::size_t i) {
        if (i == 0)
            return notes.makers;
        if (i == 1)
            return notes.shared;
        if (i == 11)
            return "Switches:_" + (notes.switches.empty() ? std::string("none") : notes.switches);
        return std::string(COLUMN_TEXTS[i].rule);
    });
    // The heading lines end where the database generator reads the first record.
    const std::string heading = out.str();
    if (std::size_t(std::count(heading.begin(), heading.end(), '\n')) != moxdev::FLASH_TABLE_FIRST_RECORD)
        throw std::logic_error("the heading lines do not end where the records begin");
    for (const RECORD& record : records)
        line([&](std::size_t i) { return record.cells.at(COLUMNS[i].name); });
    return out.str();
}

// ---------------------------------------------------------------- sources

// The chip a sibling's maxima come from, and how they were scaled.
std::string scaling_text(const CHIP& chip, const CHIP& sibling)
{
    const std::uint64_t bits = size_value(required(chip, "size"));
    const std::uint64_t sibling_bits = size_value(required(sibling, "size"));
    const std::uint64_t sector = size_value(required(chip, "sector"));
    const std::uint64_t sibling_sector = size_value(required(sibling, "sector"));
    std::string text = bits > sibling_bits
                           ? "chip erase x" + std::to_string(bits / sibling_bits) + " (" + required(chip, "size").text +
                                 " against " + required(sibling, "size").text + ")"
                           : "chip erase as the sibling's";
    text += sector > sibling_sector
                ? "; sector erase x" + std::to_string(sector / sibling_sector) + " (" + required(chip, "sector").text +
                      " sectors against " + required(sibling, "sector").text + ")"
                : "; sector erase as the sibling's";
    return text + "; page program as the sibling's";
}

const CHIP& sibling_of(const CHIP& chip, const std::vector<CHIP>& chips)
{
    const std::string& name = chip.properties.at("times_from").text;
    for (const CHIP& other : chips) {
        if (other.name == name && other.is_default)
            return other;
    }
    fail(chip.properties.at("times_from").place, "times_from names no chip: " + name);
}

// The ID as the command shows it: "EF 40 18", or "silicon 12".
std::string id_text(const RECORD& record)
{
    const auto byte = [&](const char* field) { return record.cells.at(field).substr(2); };
    if (record.cells.at("silicon_id") == "TRUE")
        return "silicon " + byte("memory_id");
    if (record.cells.at("memory_type_index") == "255")
        return byte("mfc_id") + " " + byte("memory_id");
    return byte("mfc_id") + " " + byte("memory_type") + " " + byte("memory_id");
}

// Where each record's maxima come from, one tab-separated line per record in
// table order (the format is the file's own heading).
std::string sources_text(std::vector<CHIP>& chips)
{
    const std::vector<RECORD> records = make_records(chips);
    std::ostringstream out;
    out << "# Where the maxima of each flash record come from, generated from data/flash/ by gen_flash_table.\n"
           "# One line per record of the flash table, tab-separated:\n"
           "# name, ID, kind (datasheet, sibling or envelope), datasheet title, revision, where a copy is,\n"
           "# conditions, sibling, scaling, the later records with its ID whose longer maxima it carries\n"
           "# (comma-separated), the names other tools' tables give the chip (comma-separated)\n";
    for (const RECORD& record : records) {
        const CHIP& chip = *record.chip;
        const bool envelope = takes_envelope(chip);
        const bool sibling = chip.properties.count("times_from") > 0;
        const CHIP& read = sibling ? sibling_of(chip, chips) : chip;
        const auto join = [](const std::vector<std::string>& names) {
            std::string text;
            for (const std::string& name : names)
                text += (text.empty() ? "" : ",") + name;
            return text;
        };
        const std::vector<std::string> cells = {
            record.cells.at("device_name"),
            id_text(record),
            envelope  ? "envelope"
            : sibling ? "sibling"
                      : "datasheet",
            envelope ? "" : optional(read, "datasheet", ""),
            envelope ? "" : optional(read, "revision", ""),
            envelope ? "" : optional(read, "at", ""),
            envelope ? "" : optional(read, "conditions", ""),
            sibling ? absl::AsciiStrToUpper(read.name) : "",
            envelope  ? envelope_text()
            : sibling ? scaling_text(chip, read)
                      : "",
            join(record.raised_by),
            join(chip.aliases),
        };
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (cells[i].find_first_of("\t\n") != std::string::npos)
                fail(chip.place, "a source text holds a tab or a line end");
            out << (i ? "\t" : "") << cells[i];
        }
        out << "\n";
    }
    return out.str();
}

} // namespace

int main(int argc, char** argv)
{
    // --sources writes where each record's maxima come from instead of the table.
    const bool sources_only = argc == 4 && std::string(argv[1]) == "--sources";
    if (argc != 3 && !sources_only) {
        std::cerr << "usage: gen_flash_table INDEX OUTPUT\n       gen_flash_table --sources INDEX OUTPUT\n";
        return 2;
    }
    if (sources_only)
        ++argv;
    try {
        SOURCES sources;
        sources.read_index(argv[1]);
        const std::string text = sources_only ? sources_text(sources.chips()) : table_text(sources.chips());
        if (moxdev_tools::store_if_changed(argv[2], text))
            std::cout << "wrote " << argv[2] << " (" << sources.chips().size() << " records)\n";
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "gen_flash_table: " << error.what() << "\n";
        return 1;
    }
}
