// moxdev name / opn / type: device names, ordering part numbers and the
// type-support checks.
#include "cli.h"
#include "cli_json.h"

#include "moxdev/moxdev.h"

#include <fmt/format.h>

namespace moxdev_cli {

namespace {

std::string or_none(const std::string& text)
{
    return text.empty() ? "-" : text;
}

void show_name(std::string name)
{
    const std::string full = MOXDEV_MGR::find_possible_full_name(name);
    // The forms below a full name are those of the full name it stands for.
    const std::string& base = full.empty() ? name : full;
    const std::string package = MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(base, true);
    const std::string device = MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(base, false, true);
    std::string mox_part, mox_family;
    MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_pcfs(name, mox_part, mox_family);
    std::string dev_part, dev_family;
    MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_pcfs(name, dev_part, dev_family);
    // A device-level name reaches the catalogue configuration through its
    // programmer part; a configuration name reaches the programmer part.
    const std::string programmer_part = mox_part.empty() ? dev_part : mox_part;
    const std::string configuration =
        programmer_part.empty() ? std::string() : MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_device(programmer_part);
    if (dev_family.empty() && !configuration.empty())
        dev_family = MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_family_pcf(configuration);
    const std::string family = MOXDEV_DEVICE_GRAMMAR_MGR::get_family(programmer_part.empty() ? name : programmer_part);
    if (full.empty() && package.empty() && device.empty() && programmer_part.empty() && family.empty())
        throw USER_ERROR{"no device name form is known for '" + name + "'"};

    const bool use_full_name = MOXDEV_DEVICE_GRAMMAR_MGR::use_full_name(name);
    const bool use_package_name = MOXDEV_DEVICE_GRAMMAR_MGR::use_package_name(name);
    if (json_output) {
        print_json({{"name", name},
                    {"full_ordering_name", text_or_null(full)},
                    {"name_without_speed_grade", text_or_null(package)},
                    {"device_name", text_or_null(device)},
                    {"family", text_or_null(family)},
                    {"programmer_part", text_or_null(programmer_part)},
                    {"programmer_family", text_or_null(mox_family)},
                    {"catalogue_configuration", text_or_null(configuration)},
                    {"catalogue_family", text_or_null(dev_family)},
                    {"opn_enum", full.empty() ? JSON() : JSON(MOXDEV_MGR::get_opn_enum(full))},
                    {"opn_hash", full.empty() ? JSON() : JSON(MOXDEV_MGR::get_opn_hash(full))},
                    {"use_full_name", use_full_name},
                    {"use_package_name", use_package_name}});
        return;
    }
    fmt::print("{:<28} {}\n", "name", name);
    fmt::print("{:<28} {}\n", "full ordering name", or_none(full));
    fmt::print("{:<28} {}\n", "name without speed grade", or_none(package));
    fmt::print("{:<28} {}\n", "device name", or_none(device));
    fmt::print("{:<28} {}\n", "family", or_none(family));
    fmt::print("{:<28} {}\n", "programmer part", or_none(programmer_part));
    fmt::print("{:<28} {}\n", "programmer family", or_none(mox_family));
    fmt::print("{:<28} {}\n", "catalogue configuration", or_none(configuration));
    fmt::print("{:<28} {}\n", "catalogue family", or_none(dev_family));
    if (!full.empty()) {
        fmt::print("{:<28} {}\n", "OPN enum", MOXDEV_MGR::get_opn_enum(full));
        fmt::print("{:<28} 0x{:012X}\n", "OPN hash", MOXDEV_MGR::get_opn_hash(full));
    }
    fmt::print("{:<28} {}\n", "use full name", use_full_name ? "yes" : "no");
    fmt::print("{:<28} {}\n", "use package name", use_package_name ? "yes" : "no");
}

void show_opn(const std::string& text)
{
    std::string name;
    DWORD value = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        QWORD hash = 0;
        if (text.size() > 18 || text.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos)
            throw USER_ERROR{"'" + text + "' is not a hexadecimal OPN hash"};
        hash = std::stoull(text.substr(2), nullptr, 16);
        name = MOXDEV_MGR::get_opn_from_hash(hash);
        if (name.empty())
            throw USER_ERROR{fmt::format("no OPN has the hash 0x{:012X}", hash & 0xFFFFFFFFFFFFull)};
    } else if (MOX_COMMON::convert_string_to_dword(text, value)) {
        name = MOXDEV_MGR::get_opn(value);
        if (name.empty())
            throw USER_ERROR{fmt::format("no OPN has the enum {}", value)};
    } else {
        name = text;
        stl_toupper(name);
        if (MOXDEV_MGR::get_opn_hash(name) == 0xFFFFFFFFFFFFFFFFull)
            throw USER_ERROR{"'" + text + "' is not an orderable part of the catalogue"};
    }
    const DWORD opn_enum = MOXDEV_MGR::get_opn_enum(name);
    if (json_output) {
        print_json({{"opn", name},
                    {"enum", opn_enum == 0xFFFFFFFFu ? JSON() : JSON(opn_enum)},
                    {"hash", MOXDEV_MGR::get_opn_hash(name)}});
        return;
    }
    fmt::print("{:<10} {}\n", "OPN", name);
    fmt::print("{:<10} {}\n", "enum", opn_enum == 0xFFFFFFFFu ? std::string("-") : std::to_string(opn_enum));
    fmt::print("{:<10} 0x{:012X}\n", "hash", MOXDEV_MGR::get_opn_hash(name));
}

const char* const KIND_NAMES[MOX_ENUM_TYPE_MAX] = {"block", "flash-sector", "option-bit", "hps-setting"};

MOX_ENUM_TYPE kind_of(const std::string& text)
{
    for (int i = 0; i < MOX_ENUM_TYPE_MAX; ++i) {
        if (gen_stricmp(text, KIND_NAMES[i]) == 0 || text == std::to_string(i))
            return MOX_ENUM_TYPE(i);
    }
    throw USER_ERROR{"unknown kind '" + text + "' (block, flash-sector, option-bit, hps-setting or 0-3)"};
}

void check_type(const std::string& kind_text, const std::string& item)
{
    const MOX_ENUM_TYPE kind = kind_of(kind_text);
    DWORD value = 0;
    std::string name;
    const bool by_value = MOX_COMMON::convert_string_to_dword(item, value);
    if (by_value) {
        if (!MOXDEV_MGR::mox_check_type_enum_supported(kind, value, &name))
            throw USER_ERROR{fmt::format("value {} is not supported", value)};
    } else {
        if (!MOXDEV_MGR::mox_check_type_name_supported(kind, item, &value))
            throw USER_ERROR{"name '" + item + "' is not supported"};
        name = item;
        stl_toupper(name);
    }
    if (json_output)
        print_json({{"kind", KIND_NAMES[kind]}, {"kind_value", int(kind)}, {"value", value}, {"name", name}});
    else if (by_value)
        fmt::print("{} = {}\n", value, name);
    else
        fmt::print("{} = {}\n", name, value);
}

} // namespace

void add_naming_commands(CLI::App& app)
{
    static std::string name;
    CLI::App* name_command = app.add_subcommand("name", "Show every form of a device name");
    name_command->footer("The forms: full ordering name, name without speed grade, device, family, programmer "
                         "part and family, catalogue configuration and family, OPN enum and hash.");
    name_command->add_option("NAME", name, "Any name form, e.g. KXB100F484C6, KXB100F484, KXB100, KXB100M")
        ->required();
    add_json_verb(name_command, [] { show_name(name); });

    static std::string opn;
    CLI::App* opn_command = app.add_subcommand(
        "opn", "Convert between an ordering part number, its OPN enum and its OPN hash");
    opn_command->add_option("OPN", opn, "An OPN enum (decimal), an OPN hash (0x...) or an ordering name")
        ->required();
    add_json_verb(opn_command, [] { show_opn(opn); });

    static std::string kind, item;
    CLI::App* type_command = app.add_subcommand(
        "type", "Check whether a value or name of a programmer object kind is supported");
    type_command->add_option("KIND", kind, "block, flash-sector, option-bit or hps-setting (or 0-3)")->required();
    type_command->add_option("VALUE", item, "A value (number) or a value name")->required();
    add_json_verb(type_command, [] { check_type(kind, item); });
}

} // namespace moxdev_cli
