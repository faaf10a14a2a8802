// moxdev flash: the serial flash database, chip identification and the user
// flash definition.
#include "cli_flash.h"
#include "cli.h"
#include "cli_json.h"
#include "cli_paths.h"

#include "moxdev/moxdev.h"

#include "host/mox_common.h"

#include <absl/strings/str_join.h>
#include <algorithm>
#include <fmt/format.h>

#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <optional>

namespace moxdev_cli {

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

moxdev::FLASH_DOCUMENTS& flash_documents()
{
    static moxdev::FLASH_DOCUMENTS documents(note);
    return documents;
}

moxdev::FLASH_TABLES& flash_tables()
{
    return moxdev::flash_tables(flash_documents());
}

namespace {

// A density as the list shows it: Mbit, with a fraction below 1 Mbit.
std::string mbit_text(QWORD bits)
{
    return fmt::format("{:g}", double(bits) / double(1u << 20));
}

// Which filters together keep nothing: a note for a person, not an error.
std::string nothing_listed(const moxdev::FLASH_LIST_FILTER& filter, const moxdev::FLASH_LISTING& listing)
{
    std::string wanted;
    auto add = [&](const std::string& part) { wanted += (wanted.empty() ? "" : ", ") + part; };
    if (!filter.pattern.empty())
        add("named " + filter.pattern);
    if (!filter.maker.empty())
        add("of the maker '" + filter.maker + "'");
    if (listing.bits != 0)
        add(mbit_text(listing.bits) + " Mbit");
    if (!listing.voltage.empty())
        add(listing.voltage);
    return "no flash record " + wanted + (filter.every_record ? "" : " (--all also lists the switched-off ones)");
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
    const moxdev::FLASH_RECORD_STATE state = moxdev::flash_record_state(manager, i);
    std::string note;
    if (state.user)
        note = "user-defined (MOX_SUPPORT_EXT_SPI_DEV)";
    else if (!state.switch_name.empty())
        note = state.switch_name + (state.usable ? " (on)" : " (off: not usable)");
    fmt::print("{:>5}  {:<10} {:<16} {:<11} {:>6} {:>6}  {:<7} {}\n", i, record.manufacturer_name, record.device_name,
               moxdev::flash_id_text(record), mbit_text(record.device_bit_size), record.device_sector_byte >> 10,
               record.default_dev ? "yes" : "", note);
}

void flash_list(bool full, const moxdev::FLASH_LIST_FILTER& filter)
{
    if (json_output) {
        // Filters that keep nothing are an answer: an empty list.
        print_json(flash_documents().list(filter));
        return;
    }
    const moxdev::FLASH_LISTING listing = moxdev::list_flash_records(flash_tables(), filter);
    const MOXDEV_FLASH_MANAGER& manager = *listing.table;
    // An empty list, with a note on standard error for a person.
    if (listing.records.empty()) {
        note(nothing_listed(filter, listing));
        return;
    }
    const bool filtered =
        !filter.maker.empty() || listing.bits != 0 || !listing.voltage.empty() || !filter.pattern.empty();
    if (full && !filtered) {
        manager.print_database();
        return;
    }
    fmt::print("{:>5}  {:<10} {:<16} {:<11} {:>6} {:>6}  {:<7} {}\n", "index", "maker", "device", "ID", "Mbit", "KiB",
               "default", "switch");
    for (DWORD i : listing.records) {
        if (!full) {
            print_list_line(manager, i);
            continue;
        }
        const MOXDEV_SFL_FLASH_INFO& record = manager.get_flash_database()[i];
        fmt::print("Flash record {}: {} {}, {}\n", i, record.manufacturer_name, record.device_name,
                   record_summary(record));
        print_record(record, flash_tables().record_source(manager, i));
    }
    fmt::print("{} records: {}\n", listing.records.size(), maker_counts(manager, listing.records));
}

// moxdev flash show: every record (ID variant) of one chip name, switched-off
// ones included. The index is the one `flash identify` reports, null (or
// "not usable") while the record's switch is off.
void flash_show(const std::string& typed)
{
    if (json_output) {
        print_json(flash_documents().show(typed));
        return;
    }
    const moxdev::FLASH_CHIP chip = moxdev::find_flash_chip(flash_tables(), typed);
    for (std::size_t n = 0; n < chip.records.size(); ++n) {
        const DWORD i = chip.records[n].index;
        const std::optional<DWORD> usable_index = chip.records[n].usable_index;
        const MOXDEV_SFL_FLASH_INFO& record = chip.table->get_flash_database()[i];
        const moxdev::FLASH_RECORD_STATE state = moxdev::flash_record_state(*chip.table, i);
        std::string where = usable_index ? fmt::format("record {}", *usable_index)
                                         : "not usable while " + state.switch_name + " is off";
        if (state.user)
            where += " (user-defined)";
        else if (!state.switch_name.empty() && state.usable)
            where += " (" + state.switch_name + " on)";
        fmt::print("{}{} {}: {}{}, {}\n", n == 0 ? "" : "\n", record.manufacturer_name, record.device_name, where,
                   record.default_dev ? ", default" : "", record_summary(record));
        print_record(record, flash_tables().record_source(*chip.table, i));
    }
}

// moxdev flash sources: each cited datasheet once, in table order, with the
// records whose maxima come from it.
void flash_sources()
{
    const moxdev::FLASH_SOURCES& sources = flash_tables().sources();
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

void flash_identify(const std::vector<std::string>& words, bool silicon_id, const std::string& sfdp_file)
{
    const std::vector<BYTE> bytes = moxdev::parse_id_bytes(words);
    // The database and the options first, then the read.
    moxdev::check_identify_request(flash_tables(), silicon_id, !sfdp_file.empty());
    std::optional<std::vector<BYTE>> sfdp;
    if (!sfdp_file.empty())
        sfdp = moxdev::read_sfdp_file(sfdp_file);
    const std::vector<BYTE>* read = sfdp ? &*sfdp : nullptr;
    if (json_output) {
        print_json(flash_documents().identify(bytes, silicon_id, read));
        return;
    }
    const moxdev::FLASH_IDENTIFICATION found = moxdev::identify_flash(flash_tables(), bytes, silicon_id, read);
    fmt::print("{} {}: record {}{}, {}\n", found.record.manufacturer_name, found.record.device_name, found.index,
               found.user      ? " (user-defined)"
               : found.derived ? " (derived from its SFDP read)"
                               : "",
               record_summary(found.record));
    print_record(found.record, found.source_or_null());
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
                    {"record", moxdev::flash_record_json(content.record)},
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
        const MOXDEV_FLASH_MANAGER& manager = flash_tables().table(true);
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
    static bool full = false;
    static moxdev::FLASH_LIST_FILTER filter;
    CLI::App* list = flash->add_subcommand("list", "List the usable flash records "
                                                   "(record 0 is the user flash when one is defined)");
    list->add_flag("--all", filter.every_record, "Also list the records whose MOX_ALLOW_ switch is off");
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
    add_json_verb(list, [] { flash_list(full, filter); });
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
