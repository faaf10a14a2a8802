// moxdev device: the device information database.
#include "cli.h"
#include "cli_json.h"
#include "cli_names.h"
#include "cli_paths.h"
#include "moxdev/suggest.h"

#include "moxdev/moxdev.h"
#include "moxdev/moxdev_dev_info_manager_auto_export.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <type_traits>

namespace moxdev_cli {

namespace {

// The device database file; a missing one is a setting to correct, so it is
// refused before the manager, which takes it for a damaged installation.
void require_device_database()
{
    const std::string file = full_path(gen_get_device_db_fullpath() + "/programmer/mox_dev_info.pcf");
    const std::string reason = moxdev::unreadable_reason(file);
    if (reason == "no such file")
        throw USER_ERROR{"no device database '" + file +
                         "' (MOXDEV_DEVICE_DB_DIR names the directory that holds programmer/mox_dev_info.pcf)"};
    if (!reason.empty())
        throw USER_ERROR{"cannot read the device database '" + file + "': " + reason};
}

std::string family_name(DEV_FAMILY_ENUM family)
{
    return family == DEV_FAMILY_GENERIC ? "Generic" : dstr_get_user_string(family);
}

std::string device_name(DEV_DEVICE_ENUM device)
{
    return device == DEV_DEVICE_GENERIC ? "Generic" : dstr_get_user_string(device);
}

void print_fields(const MOXDEV_DEVICE_INFO& record)
{
    for (const auto& field : moxdev_device_info_to_text(record))
        fmt::print("  {:<36} {}\n", field.first, field.second);
}

// The name the option table gives an option value, or null.
JSON option_name(DWORD value)
{
    for (std::size_t i = 0; i < MOXDEV_OPTION_ID_TABLE.count; ++i) {
        if (MOXDEV_OPTION_ID_TABLE.entries[i].value == value)
            return MOXDEV_OPTION_ID_TABLE.entries[i].name;
    }
    return nullptr;
}

JSON record_json(const MOXDEV_DEVICE_INFO& record)
{
    JSON fields = JSON::object();
    moxdev_for_each_device_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE type, const auto& value) {
        using T = std::decay_t<decltype(value)>;
        const std::string name_key = std::string(name) + "_name";
        if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, bool>) {
            fields[name] = value;
        } else if constexpr (std::is_same_v<T, DEV_FAMILY_ENUM> || std::is_same_v<T, DEV_DEVICE_ENUM>) {
            fields[name] = int(value);
            fields[name_key] = text_or_null(dstr_get_identifier(value));
        } else if constexpr (std::is_same_v<T, int>) {
            fields[name] = value;
            fields[name_key] = text_or_null(dstr_get_part_identifier(value));
        } else if constexpr (std::is_same_v<T, DWORD>) {
            fields[name] = value;
            if (type == MOXDEV_MANAGER_ENUM)
                fields[name_key] = option_name(value);
        } else {
            static_assert(std::is_same_v<T, BYTE> || std::is_same_v<T, WORD>, "a new field type");
            fields[name] = unsigned(value);
        }
    });
    return fields;
}

// A catalogue value as the JSON documents name it.
template <class VALUE>
void add_value(JSON& document, const std::string& key, VALUE value, const std::string& identifier)
{
    document[key] = int(value);
    document[key + "_name"] = text_or_null(identifier);
}

// The families or devices a grammar form stands for, each with the record
// that serves it.
void show_targets(MOXDEV_DEV_INFO_MANAGER& manager, const std::string& name, const NAME_TARGETS& targets)
{
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    const bool by_family = targets.devices.empty();
    const std::size_t count = by_family ? targets.families.size() : targets.devices.size();
    JSON entries = JSON::array();
    std::vector<std::string> lines;
    auto add = [&](const char* kind, int value, const std::string& identifier, const std::string& display_name,
                   DWORD index) {
        const bool served = index < manager.get_device_count();
        entries.push_back({{"kind", kind},
                           {"value", value},
                           {"name", identifier},
                           {"display_name", display_name},
                           {"record_index", served ? JSON(index) : JSON()},
                           {"record_pcf", served ? JSON(records[index].pcf) : JSON()}});
        lines.push_back(served ? fmt::format("  {:<20} {:<20} record {:>2}  {}", identifier, display_name, index,
                                             records[index].pcf)
                               : fmt::format("  {:<20} {:<20} no record", identifier, display_name));
    };
    for (const DEV_FAMILY_ENUM family : targets.families)
        add("family", int(family), dstr_get_identifier(family), family_name(family), manager.get_family_index(family));
    for (const DEV_DEVICE_ENUM device : targets.devices)
        add("device", int(device), dstr_get_identifier(device), device_name(device), manager.get_device_index(device));
    if (json_output) {
        print_json({{"query", name},
                    {"form", targets.form},
                    {"kind", by_family ? "families" : "devices"},
                    {"stands_for", entries}});
        return;
    }
    const char* noun = by_family ? (count == 1 ? "family" : "families") : (count == 1 ? "device" : "devices");
    fmt::print("{}: {} of {} {}\n", normalised_name(name), targets.form, count, noun);
    for (const std::string& line : lines)
        fmt::print("{}\n", line);
}

// What a name shown by `device show` stands for: exactly one of part,
// device or family (its device and family filled in), and the name form
// it was given in when that is not the catalogue's own name.
struct SHOWN_NAME {
    int part = DEV_PART_INVALID;
    DEV_DEVICE_ENUM device = DEV_DEVICE_INVALID;
    DEV_FAMILY_ENUM family = DEV_FAMILY_INVALID;
    std::string form;
};

// What `name` stands for; false when it is a form that stands for several
// devices or families, whose `targets` are then to be listed.
bool resolve_shown_name(const std::string& typed, const std::string& name, SHOWN_NAME& shown, NAME_TARGETS& targets)
{
    shown.part = dstr_get_dev_part_enum_by_string(name.c_str());
    if (shown.part == DEV_PART_INVALID)
        shown.device = dstr_get_dev_device_enum_by_string(name.c_str());
    if (shown.part == DEV_PART_INVALID && shown.device == DEV_DEVICE_INVALID)
        shown.family = dstr_get_dev_family_enum_by_string(name.c_str());
    // Another name form (KXB100F484, KXB100M, KXFAMILY2, ...) shows the one
    // device or family it stands for, or lists them when it stands for several.
    if (shown.part == DEV_PART_INVALID && shown.device == DEV_DEVICE_INVALID && shown.family == DEV_FAMILY_INVALID) {
        targets = resolve_name_form(name);
        if (targets.devices.size() + targets.families.size() == 0)
            throw USER_ERROR{"no family, device or part is named " + moxdev::quoted(typed) +
                             did_you_mean(name, known_device_names())};
        if (targets.devices.size() + targets.families.size() > 1)
            return false;
        shown.form = targets.form;
        if (targets.devices.empty())
            shown.family = targets.families.front();
        else
            shown.device = targets.devices.front();
    }
    const DEV_PART_MANAGER catalogue;
    if (shown.part != DEV_PART_INVALID)
        shown.device = catalogue.get_device_of(shown.part);
    if (shown.device != DEV_DEVICE_INVALID)
        shown.family = catalogue.get_family_of(shown.device);
    return true;
}

// The record that serves `shown` (null for none) and its index; its heading
// and its JSON document's description of what was asked.
std::unique_ptr<MOXDEV_DEVICE_INFO> serving_record(MOXDEV_DEV_INFO_MANAGER& manager, const SHOWN_NAME& shown,
                                                   DWORD& index, std::string& heading, JSON& document)
{
    const std::string family_name = dstr_get_user_string(shown.family);
    if (shown.part != DEV_PART_INVALID) {
        heading = fmt::format("{}: part {} of device {} (family {})", dstr_get_user_string(shown.part), shown.part,
                              dstr_get_user_string(shown.device), family_name);
        document.update({{"kind", "part"},
                         {"value", shown.part},
                         {"name", dstr_get_part_identifier(shown.part)},
                         {"display_name", dstr_get_user_string(shown.part)}});
        add_value(document, "device", shown.device, dstr_get_identifier(shown.device));
        add_value(document, "family", shown.family, dstr_get_identifier(shown.family));
        index = manager.get_part_index(shown.part);
        return std::unique_ptr<MOXDEV_DEVICE_INFO>(manager.get_db_by_part(shown.part));
    }
    if (shown.device != DEV_DEVICE_INVALID) {
        heading = fmt::format("{}: device {} (family {})", dstr_get_user_string(shown.device), int(shown.device),
                              family_name);
        document.update({{"kind", "device"},
                         {"value", int(shown.device)},
                         {"name", dstr_get_identifier(shown.device)},
                         {"display_name", dstr_get_user_string(shown.device)}});
        add_value(document, "family", shown.family, dstr_get_identifier(shown.family));
        index = manager.get_device_index(shown.device);
        return std::unique_ptr<MOXDEV_DEVICE_INFO>(manager.get_db_by_device(shown.device));
    }
    heading = fmt::format("{}: family {}", family_name, int(shown.family));
    document.update({{"kind", "family"},
                     {"value", int(shown.family)},
                     {"name", dstr_get_identifier(shown.family)},
                     {"display_name", family_name}});
    index = manager.get_family_index(shown.family);
    return std::unique_ptr<MOXDEV_DEVICE_INFO>(manager.get_db_by_family(shown.family));
}

void device_show(const std::string& typed)
{
    require_device_database();
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    // Surrounding blanks are no part of a name.
    const std::string name = normalised_name(typed);
    SHOWN_NAME shown;
    NAME_TARGETS targets;
    if (!resolve_shown_name(typed, name, shown, targets)) {
        show_targets(manager, typed, targets);
        return;
    }
    DWORD index = INVALID_DWORD;
    std::string heading;
    JSON document = {{"query", typed}};
    const std::unique_ptr<MOXDEV_DEVICE_INFO> record = serving_record(manager, shown, index, heading, document);
    if (!shown.form.empty()) {
        const bool device = shown.device != DEV_DEVICE_INVALID;
        document["form"] = shown.form;
        heading = fmt::format("{}: {} of {} {}\n", name, shown.form, device ? "device" : "family",
                              device ? dstr_get_user_string(shown.device) : dstr_get_user_string(shown.family)) +
                  heading;
    }
    if (json_output) {
        document["record_index"] = record ? JSON(index) : JSON();
        document["record"] = record ? record_json(*record) : JSON();
        print_json(document);
        return;
    }
    fmt::print("{}\n", heading);
    if (!record) {
        fmt::print("served by no record\n");
        return;
    }
    fmt::print("served by record {} ({})\n", index, record->pcf);
    print_fields(*record);
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
                known.push_back(family_name(DEV_FAMILY_ENUM(f)));
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
                                         family_name(family), family_name(filter.family))};
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
                add(f, dstr_get_identifier(family), family_name(family), manager.get_family_index(family));
        }
    } else if (by == LIST_BY::DEVICE) {
        for (int d = 1; d < DEV_DEVICE_MAX; ++d) {
            const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(d);
            if (filter.keeps_device(device))
                add(d, dstr_get_identifier(device), device_name(device), manager.get_device_index(device));
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
    require_device_database();
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
            entries.push_back({{"index", r}, {"record", record_json(records[r])}});
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
