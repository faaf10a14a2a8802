// moxdev device: the device information database.
#include "cli.h"
#include "cli_json.h"

#include "moxdev/moxdev.h"
#include "moxdev/moxdev_dev_info_manager_auto_export.h"

#include <fmt/format.h>

#include <memory>
#include <type_traits>

namespace moxdev_cli {

namespace {

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
    moxdev_for_each_device_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE type,
                                             const auto& value) {
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

void device_show(const std::string& name)
{
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    const DEV_PART_MANAGER catalogue;
    std::unique_ptr<MOXDEV_DEVICE_INFO> record;
    DWORD index = INVALID_DWORD;
    std::string heading;
    JSON document = {{"query", name}};

    if (const int part = dstr_get_dev_part_enum_by_string(name.c_str()); part != DEV_PART_INVALID) {
        const DEV_DEVICE_ENUM device = catalogue.get_device_of(part);
        const DEV_FAMILY_ENUM family = catalogue.get_family_of(device);
        heading = fmt::format("{}: part {} of device {} (family {})", dstr_get_user_string(part), part,
                              dstr_get_user_string(device), dstr_get_user_string(family));
        document["kind"] = "part";
        document["value"] = part;
        document["name"] = dstr_get_part_identifier(part);
        document["display_name"] = dstr_get_user_string(part);
        add_value(document, "device", device, dstr_get_identifier(device));
        add_value(document, "family", family, dstr_get_identifier(family));
        record.reset(manager.get_db_by_part(part));
        index = manager.get_part_index(part);
    } else if (const DEV_DEVICE_ENUM device = dstr_get_dev_device_enum_by_string(name.c_str());
               device != DEV_DEVICE_INVALID) {
        const DEV_FAMILY_ENUM family = catalogue.get_family_of(device);
        heading = fmt::format("{}: device {} (family {})", dstr_get_user_string(device), int(device),
                              dstr_get_user_string(family));
        document["kind"] = "device";
        document["value"] = int(device);
        document["name"] = dstr_get_identifier(device);
        document["display_name"] = dstr_get_user_string(device);
        add_value(document, "family", family, dstr_get_identifier(family));
        record.reset(manager.get_db_by_device(device));
        index = manager.get_device_index(device);
    } else if (const DEV_FAMILY_ENUM family = dstr_get_dev_family_enum_by_string(name.c_str());
               family != DEV_FAMILY_INVALID) {
        heading = fmt::format("{}: family {}", dstr_get_user_string(family), int(family));
        document["kind"] = "family";
        document["value"] = int(family);
        document["name"] = dstr_get_identifier(family);
        document["display_name"] = dstr_get_user_string(family);
        record.reset(manager.get_db_by_family(family));
        index = manager.get_family_index(family);
    } else {
        throw USER_ERROR{"no family, device or part is named '" + name + "'"};
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

// One entry per family, device or part value: the value, its names and the
// record that serves it.
JSON served_values_json(const MOXDEV_DEV_INFO_MANAGER& manager, LIST_BY by)
{
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    JSON entries = JSON::array();
    auto add = [&](int value, const std::string& identifier, const std::string& display_name,
                   DWORD index) {
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
            add(f, dstr_get_identifier(family),
                family == DEV_FAMILY_GENERIC ? "Generic" : dstr_get_user_string(family),
                manager.get_family_index(family));
        }
    } else if (by == LIST_BY::DEVICE) {
        for (int d = 1; d < DEV_DEVICE_MAX; ++d) {
            const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(d);
            add(d, dstr_get_identifier(device),
                device == DEV_DEVICE_GENERIC ? "Generic" : dstr_get_user_string(device),
                manager.get_device_index(device));
        }
    } else {
        for (int p = 0; p < DEV_PART_MAX; ++p) {
            if (p == DEV_PART_INVALID)
                continue;
            add(p, dstr_get_part_identifier(p), p == DEV_PART_GENERIC ? "Generic" : dstr_get_user_string(p),
                manager.get_part_index(p));
        }
    }
    return entries;
}

void device_list(bool full, const std::string& by_text)
{
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    const LIST_BY by = list_by(by_text);
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    if (json_output) {
        if (by != LIST_BY::RECORD) {
            print_json(served_values_json(manager, by));
            return;
        }
        JSON entries = JSON::array();
        for (DWORD r = 0; r < manager.get_device_count(); ++r)
            entries.push_back({{"index", r}, {"record", record_json(records[r])}});
        print_json(entries);
        return;
    }
    if (by != LIST_BY::RECORD || full) {
        manager.print_database(full ? 1 : by == LIST_BY::FAMILY ? 2 : by == LIST_BY::DEVICE ? 3 : 4);
        return;
    }
    fmt::print("{:>6}  {:<20} {:<20} {:<16} {}\n", "record", "family", "device", "part", "pcf");
    for (DWORD r = 0; r < manager.get_device_count(); ++r) {
        const MOXDEV_DEVICE_INFO& record = records[r];
        auto name_of = [](const std::string& identifier, long long value) {
            return identifier.empty() ? std::to_string(value) : identifier;
        };
        fmt::print("{:>6}  {:<20} {:<20} {:<16} {}\n", r,
                   name_of(dstr_get_identifier(record.family), record.family),
                   name_of(dstr_get_identifier(record.device), record.device),
                   name_of(dstr_get_part_identifier(record.part), record.part), record.pcf);
    }
    fmt::print("{} records\n", manager.get_device_count());
}

void device_generate(const std::string& csv, const std::string& out)
{
    if (!FIO_FILE_SYSTEM::exists(csv.c_str()))
        throw USER_ERROR{"cannot read '" + csv + "'"};
    MOXDEV_DEV_INFO_MANAGER manager(true, 0);
    manager.generate_device_database(csv, out);
    FIO_STAT info;
    FIO_FILE_SYSTEM::status(out.c_str(), &info);
    fmt::print("wrote {} ({} records, {} bytes)\n", out, manager.get_device_count(), info.size);
}

} // namespace

void add_device_commands(CLI::App& app)
{
    CLI::App* device = app.add_subcommand("device", "Query or build the device information database");
    device->require_subcommand(1);

    static std::string name;
    CLI::App* show = device->add_subcommand(
        "show", "Show the record that serves a family, device or part (letter case ignored)");
    show->add_option("NAME", name, "Family identifier or name, device name or part name")->required();
    add_json_verb(show, [] { device_show(name); });

    static bool full = false;
    static std::string by;
    CLI::App* list = device->add_subcommand(
        "list", "List the records of the device database, or the record per family, device or part");
    CLI::Option* full_flag = list->add_flag("--full", full, "Print every field of every record");
    list->add_option("--by", by, "One line per family, device or part value, with the record that serves it")
        ->check(CLI::IsMember({"family", "device", "part"}, CLI::ignore_case))
        ->excludes(full_flag);
    list->footer("With --json every record is given whole, so --full changes nothing.");
    add_json_verb(list, [] { device_list(full, by); });

    static std::string csv, out;
    CLI::App* generate = device->add_subcommand(
        "generate", "Build a device database file from the device table (CSV)");
    generate->add_option("CSV", csv, "Device table, e.g. data/mox_dev_info.csv")->required();
    generate->add_option("OUT", out, "Database file to write, e.g. mox_dev_info.pcf")->required();
    generate->callback([] { device_generate(csv, out); });
}

} // namespace moxdev_cli
