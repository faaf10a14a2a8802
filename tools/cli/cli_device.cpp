// moxdev device: the device information database.
#include "cli.h"
#include "cli_json.h"
#include "cli_names.h"
#include "cli_paths.h"
#include "moxdev/suggest.h"

#include "moxdev/moxdev.h"
#include "moxdev/naming_documents.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace moxdev_cli {

namespace {

void print_fields(const MOXDEV_DEVICE_INFO& record)
{
    for (const auto& field : moxdev_device_info_to_text(record))
        fmt::print("  {:<36} {}\n", field.first, field.second);
}

// The families or devices a group form stands for, each with the record
// that serves it.
void print_targets(const moxdev::DEVICE_ANSWER& answer)
{
    const bool by_family = answer.targets.devices.empty();
    const std::size_t count = answer.served.size();
    const char* noun = by_family ? (count == 1 ? "family" : "families") : (count == 1 ? "device" : "devices");
    fmt::print("{}: {} of {} {}\n", answer.name, answer.targets.form, count, noun);
    for (const moxdev::SERVED_VALUE& value : answer.served) {
        if (value.served)
            fmt::print("  {:<20} {:<20} record {:>2}  {}\n", value.identifier, value.display_name, value.index,
                       value.pcf);
        else
            fmt::print("  {:<20} {:<20} no record\n", value.identifier, value.display_name);
    }
}

// "KXB100F484C6: part 5358 of device KXB100 (family Kestrel II)", after the
// name form it was given in when that is not the catalogue's own name.
std::string heading(const moxdev::DEVICE_ANSWER& answer)
{
    const std::string family_name = dstr_get_user_string(answer.family);
    std::string text;
    if (answer.part != DEV_PART_INVALID)
        text = fmt::format("{}: part {} of device {} (family {})", dstr_get_user_string(answer.part), answer.part,
                           dstr_get_user_string(answer.device), family_name);
    else if (answer.device != DEV_DEVICE_INVALID)
        text = fmt::format("{}: device {} (family {})", dstr_get_user_string(answer.device), int(answer.device),
                           family_name);
    else
        text = fmt::format("{}: family {}", family_name, int(answer.family));
    if (answer.form.empty())
        return text;
    const bool device = answer.device != DEV_DEVICE_INVALID;
    return fmt::format("{}: {} of {} {}\n", answer.name, answer.form, device ? "device" : "family",
                       device ? dstr_get_user_string(answer.device) : family_name) +
           text;
}

void device_show(const std::string& typed)
{
    if (json_output) {
        moxdev::NAMING_DOCUMENTS documents(note);
        print_json(documents.device_show(typed));
        return;
    }
    moxdev::NAMING_QUERIES queries;
    const moxdev::DEVICE_ANSWER answer = queries.device(typed);
    if (answer.several()) {
        print_targets(answer);
        return;
    }
    fmt::print("{}\n", heading(answer));
    if (!answer.record) {
        fmt::print("served by no record\n");
        return;
    }
    fmt::print("served by record {} ({})\n", answer.index, answer.record->pcf);
    print_fields(*answer.record);
}

// What `device list --by` lists.
enum class LIST_BY { RECORD, FAMILY, DEVICE, PART };

LIST_BY list_by(const std::string& text)
{
    if (text.empty())
        return LIST_BY::RECORD;
    if (gen_stricmp(text, "family") == 0)
        return LIST_BY::FAMILY;
    if (gen_stricmp(text, "device") == 0)
        return LIST_BY::DEVICE;
    return LIST_BY::PART;
}

// What --family and --device keep; the invalid value keeps everything.
struct LIST_FILTER {
    DEV_FAMILY_ENUM family = DEV_FAMILY_INVALID;
    DEV_DEVICE_ENUM device = DEV_DEVICE_INVALID;

    bool keeps_family(DEV_FAMILY_ENUM value) const
    {
        const DEV_PART_MANAGER catalogue;
        return (family == DEV_FAMILY_INVALID || value == family) &&
               (device == DEV_DEVICE_INVALID || value == catalogue.get_family_of(device));
    }
    bool keeps_device(DEV_DEVICE_ENUM value) const
    {
        const DEV_PART_MANAGER catalogue;
        return keeps_family(catalogue.get_family_of(value)) && (device == DEV_DEVICE_INVALID || value == device);
    }
    bool keeps_part(int part) const { return keeps_device(DEV_PART_MANAGER().get_device_of(part)); }
};

// A family or device named by a --family or --device option.
LIST_FILTER list_filter(const std::string& family_text, const std::string& device_text)
{
    LIST_FILTER filter;
    if (!family_text.empty()) {
        filter.family = dstr_get_dev_family_enum_by_string(normalised_name(family_text).c_str());
        if (filter.family == DEV_FAMILY_INVALID) {
            std::vector<std::string> known;
            for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
                known.push_back(dstr_get_identifier(DEV_FAMILY_ENUM(f)));
                known.push_back(moxdev::family_display_name(DEV_FAMILY_ENUM(f)));
            }
            throw USER_ERROR{"no family is named " + moxdev::quoted(family_text) + did_you_mean(family_text, known)};
        }
    }
    if (!device_text.empty()) {
        filter.device = dstr_get_dev_device_enum_by_string(normalised_name(device_text).c_str());
        if (filter.device == DEV_DEVICE_INVALID) {
            std::vector<std::string> known;
            for (int d = 1; d < DEV_DEVICE_MAX; ++d)
                known.push_back(dstr_get_user_string(DEV_DEVICE_ENUM(d)));
            throw USER_ERROR{"no device is named " + moxdev::quoted(device_text) + did_you_mean(device_text, known)};
        }
        const DEV_FAMILY_ENUM family = DEV_PART_MANAGER().get_family_of(filter.device);
        if (filter.family != DEV_FAMILY_INVALID && filter.family != family)
            throw USER_ERROR{fmt::format("device {} is of family {}, not {}", dstr_get_user_string(filter.device),
                                         moxdev::family_display_name(family),
                                         moxdev::family_display_name(filter.family))};
    }
    return filter;
}

// One entry per family, device or part value the filter keeps: the value,
// its names and the record that serves it.
JSON served_values_json(const MOXDEV_DEV_INFO_MANAGER& manager, LIST_BY by, const LIST_FILTER& filter)
{
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    JSON entries = JSON::array();
    auto add = [&](int value, const std::string& identifier, const std::string& display_name, DWORD index) {
        const bool served = index != INVALID_DWORD && index < manager.get_device_count();
        entries.push_back({{"value", value},
                           {"name", text_or_null(identifier)},
                           {"display_name", display_name},
                           {"record_index", served ? JSON(index) : JSON()},
                           {"record_pcf", served ? JSON(records[index].pcf) : JSON()}});
    };
    if (by == LIST_BY::FAMILY) {
        for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
            const DEV_FAMILY_ENUM family = DEV_FAMILY_ENUM(f);
            if (filter.keeps_family(family))
                add(f, dstr_get_identifier(family), moxdev::family_display_name(family),
                    manager.get_family_index(family));
        }
    } else if (by == LIST_BY::DEVICE) {
        for (int d = 1; d < DEV_DEVICE_MAX; ++d) {
            const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(d);
            if (filter.keeps_device(device))
                add(d, dstr_get_identifier(device), moxdev::device_display_name(device),
                    manager.get_device_index(device));
        }
    } else {
        for (int p = 0; p < DEV_PART_MAX; ++p) {
            if (p == DEV_PART_INVALID || !filter.keeps_part(p))
                continue;
            add(p, dstr_get_part_identifier(p), p == DEV_PART_GENERIC ? "Generic" : dstr_get_user_string(p),
                manager.get_part_index(p));
        }
    }
    return entries;
}

// The records that serve a value the filter keeps, in record order.
std::vector<DWORD> records_kept(const MOXDEV_DEV_INFO_MANAGER& manager, const LIST_FILTER& filter)
{
    std::vector<bool> kept(manager.get_device_count());
    auto keep = [&](DWORD index) {
        if (index < kept.size())
            kept[index] = true;
    };
    if (filter.device == DEV_DEVICE_INVALID)
        keep(manager.get_family_index(filter.family));
    for (int d = 1; d < DEV_DEVICE_MAX; ++d)
        if (filter.keeps_device(DEV_DEVICE_ENUM(d)))
            keep(manager.get_device_index(DEV_DEVICE_ENUM(d)));
    for (int p = 1; p < DEV_PART_MAX; ++p)
        if (filter.keeps_part(p))
            keep(manager.get_part_index(p));
    std::vector<DWORD> indexes;
    for (DWORD r = 0; r < kept.size(); ++r)
        if (kept[r])
            indexes.push_back(r);
    return indexes;
}

void device_list(bool full, const std::string& by_text, const std::string& family_text, const std::string& device_text)
{
    const LIST_FILTER filter = list_filter(family_text, device_text);
    const bool filtered = filter.family != DEV_FAMILY_INVALID || filter.device != DEV_DEVICE_INVALID;
    moxdev::require_device_database();
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    const LIST_BY by = list_by(by_text);
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    std::vector<DWORD> indexes;
    if (filtered) {
        indexes = records_kept(manager, filter);
    } else {
        for (DWORD r = 0; r < manager.get_device_count(); ++r)
            indexes.push_back(r);
    }
    if (json_output) {
        if (by != LIST_BY::RECORD) {
            print_json(served_values_json(manager, by, filter));
            return;
        }
        JSON entries = JSON::array();
        for (const DWORD r : indexes)
            entries.push_back({{"index", r}, {"record", moxdev::device_record_json(records[r])}});
        print_json(entries);
        return;
    }
    if (!filtered && (by != LIST_BY::RECORD || full)) {
        manager.print_database(full ? 1 : by == LIST_BY::FAMILY ? 2 : by == LIST_BY::DEVICE ? 3 : 4);
        return;
    }
    if (by != LIST_BY::RECORD) {
        // The lines of the unfiltered listing, for the values kept.
        for (const JSON& entry : served_values_json(manager, by, filter)) {
            const std::string name = entry["display_name"].get<std::string>();
            if (entry["record_index"].is_null())
                fmt::print("{:<28} {:>6}  -> none\n", name, entry["value"].get<int>());
            else
                fmt::print("{:<28} {:>6}  -> record {:>2}  {}\n", name, entry["value"].get<int>(),
                           entry["record_index"].get<DWORD>(), entry["record_pcf"].get<std::string>());
        }
        return;
    }
    if (full) {
        for (const DWORD r : indexes) {
            fmt::print("Record {} of {}\n", r, manager.get_device_count());
            print_fields(records[r]);
        }
        return;
    }
    fmt::print("{:>6}  {:<20} {:<20} {:<16} {}\n", "record", "family", "device", "part", "pcf");
    for (const DWORD r : indexes) {
        const MOXDEV_DEVICE_INFO& record = records[r];
        auto name_of = [](const std::string& identifier, long long value) {
            return identifier.empty() ? std::to_string(value) : identifier;
        };
        fmt::print("{:>6}  {:<20} {:<20} {:<16} {}\n", r, name_of(dstr_get_identifier(record.family), record.family),
                   name_of(dstr_get_identifier(record.device), record.device),
                   name_of(dstr_get_part_identifier(record.part), record.part), record.pcf);
    }
    if (filtered)
        fmt::print("{} of {} records\n", indexes.size(), manager.get_device_count());
    else
        fmt::print("{} records\n", manager.get_device_count());
}

// Reads the device table as the generator does and refuses the first line
// the generator would stop at, as "file:line:column: field: reason".
void check_device_table(const std::string& csv)
{
    moxdev::TABLE_PROBLEM problem;
    if (!moxdev::check_device_table(csv, problem))
        throw USER_ERROR{moxdev::table_problem_text(csv, problem, MOXDEV_DEVICE_FIELD_NAMES) +
                         (problem.known.empty() ? "" : did_you_mean(problem.cell, problem.known))};
}

// The file to write must be a file in an existing directory.
void check_output_file(const std::string& out)
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (out.empty())
        throw USER_ERROR{"no output file given (OUT is empty)"};
    if (fs::is_directory(out, error))
        throw USER_ERROR{"'" + out + "' is a directory; name the database file to write"};
    const fs::path parent = fs::path(out).parent_path();
    if (!parent.empty() && !fs::is_directory(parent, error))
        throw USER_ERROR{"cannot write '" + out + "': there is no directory '" + parent.string() + "'"};
    std::string reason;
    if (!can_create_file_in(parent.string(), reason))
        throw USER_ERROR{"cannot write '" + out + "': the directory is not writable (" + reason + ")"};
}

void device_generate(const std::string& csv, const std::string& out)
{
    if (const std::string reason = moxdev::unreadable_reason(csv); !reason.empty())
        throw USER_ERROR{"cannot read '" + csv + "': " + reason};
    check_output_file(out);
    check_device_table(csv);
    // Devices are served by their programming-file name from the part list.
    const std::string part_list = full_path(gen_get_install_fullpath() + "/h/mox_parts.txt");
    if (!moxdev::unreadable_reason(part_list).empty())
        throw USER_ERROR{"no part list '" + part_list +
                         "' (MOXDEV_INSTALL_DIR names the directory that holds "
                         "h/mox_parts.txt)"};
    // Written beside `out` and renamed over it: an earlier file survives.
    unsigned records = 0;
    std::string reason;
    if (!moxdev::generate_device_database(csv, out, records, reason))
        throw USER_ERROR{"cannot write '" + out + "': " + reason};
    FIO_STAT info;
    FIO_FILE_SYSTEM::status(out.c_str(), &info);
    fmt::print("wrote {} ({} records, {} bytes)\n", out, records, info.size);
}

} // namespace

void add_device_commands(CLI::App& app)
{
    CLI::App* device = app.add_subcommand("device", "Query or build the device information database");
    device->require_subcommand(1);

    static std::string name;
    CLI::App* show =
        device->add_subcommand("show", "Show the record that serves a family, device or part (letter case ignored)");
    complete_from(show->add_option("NAME", name, "Family identifier or name, device name or part name"), "device-names",
                  [] { return known_device_names(); })
        ->required();
    add_json_verb(show, [] { device_show(name); });

    static bool full = false;
    static std::string by;
    CLI::App* list = device->add_subcommand(
        "list", "List the records of the device database, or the record per family, device or part");
    CLI::Option* full_flag = list->add_flag("--full", full, "Print every field of every record");
    list->add_option("--by", by, "One line per family, device or part value, with the record that serves it")
        ->check(CLI::IsMember({"family", "device", "part"}, CLI::ignore_case))
        ->excludes(full_flag);
    static std::string family, device_filter;
    list->add_option("--family", family, "Only what serves this family (identifier or name, letter case ignored)");
    list->add_option("--device", device_filter, "Only what serves this device (letter case ignored)");
    list->footer("With --json every record is given whole, so --full changes nothing. --family and --device keep "
                 "the records that serve the family or device, or any of its devices and parts; with --by, the "
                 "values of that family or device.");
    add_json_verb(list, [] { device_list(full, by, family, device_filter); });

    static std::string csv, out;
    CLI::App* generate = device->add_subcommand("generate", "Build a device database file from the device table (CSV)");
    generate->add_option("CSV", csv, "Device table, e.g. data/mox_dev_info.csv")->required();
    generate->add_option("OUT", out, "Database file to write, e.g. mox_dev_info.pcf")->required();
    generate->callback([] { device_generate(csv, out); });
}

} // namespace moxdev_cli
