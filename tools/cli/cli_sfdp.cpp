// moxdev flash sfdp: decode a chip's SFDP read, derive its flash record, and
// compare it with the table's record for the same Read-ID.
#include "cli.h"
#include "cli_flash.h"

#include "moxdev/moxdev.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace moxdev_cli {

namespace {

template <class T>
std::string optional_text(const std::optional<T>& value, const char* unit)
{
    return value ? fmt::format("{} {}", *value, unit) : std::string("not given");
}

void print_sfdp_facts(const MOXDEV_SFDP& sfdp)
{
    std::string table_list;
    for (const MOXDEV_SFDP_PARAMETER_HEADER& t : sfdp.tables)
        table_list +=
            fmt::format("{}{:04X} ({} DWORDs at 0x{:06X})", table_list.empty() ? "" : ", ", t.id, t.length, t.pointer);
    fmt::print("SFDP {}.{}, {} parameter tables: {}\n", sfdp.major, sfdp.minor, sfdp.tables.size(), table_list);
    fmt::print("  {:<20} {}\n", "address bytes", moxdev::sfdp_address_text(sfdp.address));
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

void print_sfdp_text(const moxdev::SFDP_EXAMINATION& result)
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
        for (const moxdev::SFDP_DIFFERENCE& d : result.differences)
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
    // The input is checked in the order it is given: the name, the read,
    // then the ID bytes.
    moxdev::check_derived_record_name(name);
    MOXDEV_SFDP decoded = moxdev::decode_sfdp_read(moxdev::read_sfdp_file(file));
    const moxdev::SFDP_EXAMINATION result =
        moxdev::examine_sfdp(flash_tables(), std::move(decoded), moxdev::parse_id_bytes(id_words), name, define);
    // --define is the command's own: the document is FLASH_DOCUMENTS::sfdp's,
    // with the definition added.
    if (json_output)
        print_json(moxdev::sfdp_document(result));
    else
        print_sfdp_text(result);
}

} // namespace

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
