// moxdev device: the device information database.
#include "cli.h"

#include "moxdev/moxdev.h"

#include <fmt/format.h>

#include <memory>

namespace moxdev_cli {

namespace {

void print_fields(const MOXDEV_DEVICE_INFO& record)
{
    for (const auto& field : moxdev_device_info_to_text(record))
        fmt::print("  {:<36} {}\n", field.first, field.second);
}

void device_show(const std::string& name)
{
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    const DEV_PART_MANAGER catalogue;
    std::unique_ptr<MOXDEV_DEVICE_INFO> record;
    DWORD index = INVALID_DWORD;

    if (const int part = dstr_get_dev_part_enum_by_string(name.c_str()); part != DEV_PART_INVALID) {
        const DEV_DEVICE_ENUM device = catalogue.get_device_of(part);
        fmt::print("{}: part {} of device {} (family {})\n", dstr_get_user_string(part), part,
                   dstr_get_user_string(device),
                   dstr_get_user_string(catalogue.get_family_of(device)));
        record.reset(manager.get_db_by_part(part));
        index = manager.get_part_index(part);
    } else if (const DEV_DEVICE_ENUM device = dstr_get_dev_device_enum_by_string(name.c_str());
               device != DEV_DEVICE_INVALID) {
        fmt::print("{}: device {} (family {})\n", dstr_get_user_string(device), int(device),
                   dstr_get_user_string(catalogue.get_family_of(device)));
        record.reset(manager.get_db_by_device(device));
        index = manager.get_device_index(device);
    } else if (const DEV_FAMILY_ENUM family = dstr_get_dev_family_enum_by_string(name.c_str());
               family != DEV_FAMILY_INVALID) {
        fmt::print("{}: family {}\n", dstr_get_user_string(family), int(family));
        record.reset(manager.get_db_by_family(family));
        index = manager.get_family_index(family);
    } else {
        throw USER_ERROR{"no family, device or part is named '" + name + "'"};
    }

    if (!record) {
        fmt::print("served by no record\n");
        return;
    }
    fmt::print("served by record {} ({})\n", index, record->pcf);
    print_fields(*record);
}

void device_list(bool full)
{
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    if (full) {
        manager.print_database(1);
        return;
    }
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
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
    show->callback([] { device_show(name); });

    static bool full = false;
    CLI::App* list = device->add_subcommand("list", "List the records of the device database");
    list->add_flag("--full", full, "Print every field of every record");
    list->callback([] { device_list(full); });

    static std::string csv, out;
    CLI::App* generate = device->add_subcommand(
        "generate", "Build a device database file from the device table (CSV)");
    generate->add_option("CSV", csv, "Device table, e.g. data/mox_dev_info.csv")->required();
    generate->add_option("OUT", out, "Database file to write, e.g. mox_dev_info.pcf")->required();
    generate->callback([] { device_generate(csv, out); });
}

} // namespace moxdev_cli
