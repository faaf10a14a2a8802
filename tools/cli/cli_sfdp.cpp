// moxdev flash sfdp: decode a chip's SFDP read, derive its flash record, and
// compare it with the table's record for the same Read-ID.
#include "cli.h"
#include "cli_flash.h"

#include "moxdev/dump_text.h"

#include "moxdev/moxdev.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>

namespace moxdev_cli {

namespace {

// A text dump takes about five characters per byte; more than this cannot
// be an SFDP read.
constexpr std::size_t MAX_DUMP_TEXT = 16 * MOXDEV_SFDP_MAX_BYTES;

std::string read_input(const std::string& file)
{
    std::vector<BYTE> bytes;
    std::string error;
    const bool read = file == "-" ? moxdev::read_input_stream(0, MAX_DUMP_TEXT, bytes, error)
                                  : moxdev::read_input_file(file, MAX_DUMP_TEXT, bytes, error);
    if (!read)
        throw USER_ERROR{"cannot read " + (file == "-" ? std::string("standard input") : "'" + file + "'") + ": " +
                         error};
    return std::string(bytes.begin(), bytes.end());
}

const char* address_text(MOXDEV_SFDP_ADDRESS address)
{
    switch (address) {
    case MOXDEV_SFDP_ADDRESS::THREE: return "3";
    case MOXDEV_SFDP_ADDRESS::THREE_OR_FOUR: return "3or4";
    case MOXDEV_SFDP_ADDRESS::FOUR: return "4";
    default: return "reserved";
    }
}

template <class T>
JSON optional_json(const std::optional<T>& value)
{
    return value ? JSON(*value) : JSON();
}

template <class T>
std::string optional_text(const std::optional<T>& value, const char* unit)
{
    return value ? fmt::format("{} {}", *value, unit) : std::string("not given");
}

struct DIFFERENCE {
    const char* field;
    std::string table;
    std::string sfdp;
};

// The fields SFDP decided (not assumed), where the table's record says
// otherwise.
std::vector<DIFFERENCE> differences(const MOXDEV_SFL_FLASH_INFO& table, const MOXDEV_SFDP_RECORD& derived)
{
    const MOXDEV_SFL_FLASH_INFO& sfdp = derived.record;
    std::vector<DIFFERENCE> result;
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

// What `flash sfdp` finds: the decoded read, the derived record, and its
// comparison with the table's record for the same ID.
struct SFDP_RESULT {
    MOXDEV_SFDP sfdp;
    MOXDEV_SFDP_RECORD derived;
    std::optional<MOXDEV_SFL_FLASH_INFO> known; // the table's record for the ID
    std::vector<DIFFERENCE> differences;
    std::vector<std::string> warnings;
    std::optional<std::string> definition; // with --define
};

// The table's record for `id`, which names the chip and is compared.
std::optional<MOXDEV_SFL_FLASH_INFO> table_record(const MOXDEV_FLASH_MANAGER& table, const BYTE* id, bool given)
{
    const MOXDEV_SFL_FLASH_INFO* known = given ? moxdev::find_flash(table, false, id, 3) : nullptr;
    return known != nullptr ? std::optional(*known) : std::nullopt;
}

// Warns where SFDP and the table disagree on the size or the sector.
void compare_with_table(SFDP_RESULT& result)
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

SFDP_RESULT examine_sfdp(const std::string& file, const std::vector<std::string>& id_words, const std::string& name,
                         bool define)
{
    SFDP_RESULT result;
    // The name goes into a definition value: the same rule as the dialogue's.
    if (!name.empty()) {
        std::string upper = name;
        stl_toupper(upper);
        if (const std::string problem = moxdev::user_flash_name_problem(upper); !problem.empty())
            throw USER_ERROR{"--name " + moxdev::quoted(name) + ": " + problem};
    }
    const std::vector<BYTE> bytes = read_sfdp_file(file);
    std::string error;
    if (!moxdev_decode_sfdp(bytes.data(), bytes.size(), result.sfdp, error))
        throw USER_ERROR{"SFDP: " + error};

    BYTE id[3] = {0, 0, 0};
    const std::vector<BYTE> id_bytes = parse_id_bytes(id_words);
    if (!id_words.empty() && id_bytes.size() < 3)
        throw USER_ERROR{"--id takes the three Read-ID bytes (maker, type, capacity), e.g. 20 BA 19"};
    if (id_words.empty() && define)
        throw USER_ERROR{"--define needs --id: a definition binds by the chip's Read-ID bytes"};
    std::copy_n(id_bytes.begin(), std::min<std::size_t>(3, id_bytes.size()), id);
    const MOXDEV_FLASH_MANAGER table = load_table(false);
    result.known = table_record(table, id, !id_words.empty());

    const std::string record_name = result.known ? result.known->device_name : name;
    if (!moxdev_sfdp_record(result.sfdp, id, record_name, moxdev::maker_name(table, id[0], id[1]),
                            MOXDEV_SFDP_ASSUMPTIONS{}, result.derived, error))
        throw USER_ERROR{"SFDP: " + error};
    result.warnings = result.sfdp.warnings;
    result.warnings.insert(result.warnings.end(), result.derived.warnings.begin(), result.derived.warnings.end());
    if (id_words.empty())
        result.warnings.push_back("no --id: the record's ID bytes are 00 00 00");
    if (result.known)
        compare_with_table(result);
    if (define) {
        result.definition = moxdev::user_flash_value(result.derived.record, &error);
        if (result.definition->empty())
            throw USER_ERROR{"the derived record cannot be written as a definition value: " + error};
    }
    return result;
}

JSON sfdp_json(const MOXDEV_SFDP& sfdp)
{
    JSON tables = JSON::array();
    for (const MOXDEV_SFDP_PARAMETER_HEADER& t : sfdp.tables)
        tables.push_back(fmt::format("{:04X}", t.id));
    JSON erase = JSON::array();
    for (const MOXDEV_SFDP_ERASE_TYPE& e : sfdp.erase_types)
        erase.push_back({{"type", e.type},
                         {"size", e.size},
                         {"opcode", e.opcode},
                         {"typical_ms", optional_json(e.typical_ms)},
                         {"max_ms", optional_json(e.max_ms)}});
    return {{"sfdp_revision", fmt::format("{}.{}", sfdp.major, sfdp.minor)},
            {"parameter_tables", tables},
            {"bfpt_dwords", sfdp.bfpt_dwords},
            {"address_bytes", address_text(sfdp.address)},
            {"density_bits", sfdp.density_bits},
            {"page_size", optional_json(sfdp.page_size)},
            {"erase_types", erase},
            {"page_program_typical_us", optional_json(sfdp.page_program_typical_us)},
            {"page_program_max_us", optional_json(sfdp.page_program_max_us)},
            {"chip_erase_typical_ms", optional_json(sfdp.chip_erase_typical_ms)},
            {"chip_erase_max_ms", optional_json(sfdp.chip_erase_max_ms)},
            {"quad_enable", optional_json(sfdp.quad_enable)},
            {"read_1_1_4", sfdp.read_1_1_4},
            {"read_1_4_4", sfdp.read_1_4_4}};
}

void print_sfdp_json(const SFDP_RESULT& result)
{
    JSON document = sfdp_json(result.sfdp);
    document["record"] = record_json(result.derived.record);
    document["units"] = units_json();
    const moxdev::MAXIMA_SOURCE source = moxdev::sfdp_maxima_source(result.derived.assumed);
    document["maxima_source"] = source_json(&source);
    document["assumed"] = result.derived.assumed;
    document["warnings"] = result.warnings;
    if (result.known) {
        document["table_record"] = result.known->device_name;
        JSON list = JSON::array();
        for (const DIFFERENCE& d : result.differences)
            list.push_back({{"field", d.field}, {"table", d.table}, {"sfdp", d.sfdp}});
        document["differences"] = list;
    }
    if (result.definition)
        document["definition"] = *result.definition;
    print_json(document);
}

void print_sfdp_facts(const MOXDEV_SFDP& sfdp)
{
    std::string table_list;
    for (const MOXDEV_SFDP_PARAMETER_HEADER& t : sfdp.tables)
        table_list +=
            fmt::format("{}{:04X} ({} DWORDs at 0x{:06X})", table_list.empty() ? "" : ", ", t.id, t.length, t.pointer);
    fmt::print("SFDP {}.{}, {} parameter tables: {}\n", sfdp.major, sfdp.minor, sfdp.tables.size(), table_list);
    fmt::print("  {:<20} {}\n", "address bytes", address_text(sfdp.address));
    fmt::print("  {:<20} {} bits ({} Mbit)\n", "density", sfdp.density_bits, sfdp.density_bits >> 20);
    fmt::print("  {:<20} 1-1-4 {}, 1-4-4 {}\n", "quad reads", sfdp.read_1_1_4 ? "yes" : "no",
               sfdp.read_1_4_4 ? "yes" : "no");
    for (const MOXDEV_SFDP_ERASE_TYPE& e : sfdp.erase_types)
        fmt::print("  {:<20} {}, opcode {:02X}h, typical {}, max {}\n", fmt::format("erase type {}", e.type),
                   bytes_size_text(e.size), e.opcode, optional_text(e.typical_ms, "ms"), optional_text(e.max_ms, "ms"));
    fmt::print("  {:<20} {}\n", "page size", optional_text(sfdp.page_size, "bytes"));
    fmt::print("  {:<20} typical {}, max {}\n", "page program", optional_text(sfdp.page_program_typical_us, "us"),
               optional_text(sfdp.page_program_max_us, "us"));
    fmt::print("  {:<20} typical {}, max {}\n", "chip erase", optional_text(sfdp.chip_erase_typical_ms, "ms"),
               optional_text(sfdp.chip_erase_max_ms, "ms"));
    fmt::print("  {:<20} {}\n", "quad enable", sfdp.quad_enable ? std::to_string(*sfdp.quad_enable) : "not given");
}

void print_sfdp_text(const SFDP_RESULT& result)
{
    print_sfdp_facts(result.sfdp);
    const MOXDEV_SFL_FLASH_INFO& record = result.derived.record;
    fmt::print("Derived record {} {}, {}:\n", record.manufacturer_name, record.device_name, record_summary(record));
    const moxdev::MAXIMA_SOURCE source = moxdev::sfdp_maxima_source(result.derived.assumed);
    print_record(record, &source);
    std::string assumed;
    for (const std::string& field : result.derived.assumed)
        assumed += (assumed.empty() ? "" : " ") + field;
    fmt::print("Assumed (SFDP does not tell): {}\n", assumed);
    if (result.known) {
        fmt::print("Table record {}: {}\n", result.known->device_name,
                   result.differences.empty() ? "agrees" : "differs");
        for (const DIFFERENCE& d : result.differences)
            fmt::print("  {:<20} table {}, SFDP {}\n", d.field, d.table, d.sfdp);
    }
    for (const std::string& warning : result.warnings)
        fmt::print("warning: {}\n", warning);
    if (result.definition)
        fmt::print("\nTo use it, set the configuration value, e.g.\n  export MOX_SUPPORT_EXT_SPI_DEV='{}'\n",
                   *result.definition);
}

void flash_sfdp(const std::string& file, const std::vector<std::string>& id_words, const std::string& name, bool define)
{
    const SFDP_RESULT result = examine_sfdp(file, id_words, name, define);
    if (json_output)
        print_sfdp_json(result);
    else
        print_sfdp_text(result);
}

} // namespace

std::vector<BYTE> read_sfdp_file(const std::string& file)
{
    std::vector<BYTE> bytes;
    std::string error;
    if (!moxdev::read_dump(read_input(file), "SFDP", MOXDEV_SFDP_MAX_BYTES, bytes, error))
        throw USER_ERROR{file + ": " + error};
    return bytes;
}

void add_sfdp_command(CLI::App& flash)
{
    static std::string file;
    static std::vector<std::string> id_words;
    static std::string name;
    static bool define = false;
    CLI::App* sfdp = flash.add_subcommand(
        "sfdp", "Decode a chip's SFDP read (command 5Ah from address 0) and derive its flash record");
    sfdp->add_option("FILE", file,
                     "The read: raw binary, or hexdump -C, xxd, xxd -p or plain hex text; - for standard input")
        ->required();
    sfdp->add_option("--id", id_words,
                     "The chip's Read-ID bytes (9Fh), e.g. 20 BA 19; bytes after the third "
                     "are ignored")
        ->expected(1, 6);
    sfdp->add_option("--name", name,
                     "The derived record's device name when the table does not know the ID "
                     "(default SFDP_ and the ID; 1 to 19 characters without '@', '#' or ';')");
    sfdp->add_flag("--define", define,
                   "Also print the MOX_SUPPORT_EXT_SPI_DEV value that defines the derived record as the user flash");
    sfdp->footer("Fields SFDP does not give (flows, protection bits, die count, voltage, and the times of a "
                 "nine-DWORD table) take conservative defaults and are listed as assumed.");
    add_json_verb(sfdp, [] { flash_sfdp(file, id_words, name, define); });
}

} // namespace moxdev_cli
