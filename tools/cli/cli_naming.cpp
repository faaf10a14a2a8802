// moxdev name / opn / type: device names, ordering part numbers and the
// type-support checks.
#include "cli.h"
#include "cli_json.h"
#include "cli_names.h"
#include "moxdev/suggest.h"

#include "moxdev/moxdev.h"
#include "moxdev/naming_documents.h"

#include <fmt/format.h>

#include <algorithm>

namespace moxdev_cli {

namespace {

std::string or_none(const std::string& text)
{
    return text.empty() ? "-" : text;
}

// "devices KXB100, KXB120" or "family Kestrel II": what a group form stands for.
std::string stands_for(const NAME_TARGETS& targets)
{
    std::string text;
    for (const DEV_DEVICE_ENUM device : targets.devices)
        text += (text.empty() ? "" : ", ") + dstr_get_user_string(device);
    for (const DEV_FAMILY_ENUM family : targets.families)
        text += (text.empty() ? "" : ", ") + dstr_get_user_string(family);
    const std::size_t count = targets.devices.size() + targets.families.size();
    const char* kind =
        targets.devices.empty() ? (count == 1 ? "family " : "families ") : (count == 1 ? "device " : "devices ");
    return kind + text;
}

void show_name(const std::string& typed)
{
    if (json_output) {
        moxdev::NAMING_DOCUMENTS documents(note);
        print_json(documents.name(typed));
        return;
    }
    moxdev::NAMING_QUERIES queries;
    const moxdev::NAME_ANSWER answer = queries.name(typed);
    const moxdev::NAME_FORMS& forms = answer.forms;
    const std::string& full = forms.full;
    fmt::print("{:<28} {}\n", "name", answer.name);
    if (!answer.targets.form.empty()) {
        fmt::print("{:<28} {}\n", "form", answer.targets.form);
        fmt::print("{:<28} {}\n", "stands for", stands_for(answer.targets));
    }
    fmt::print("{:<28} {}\n", "full ordering name", or_none(full));
    fmt::print("{:<28} {}\n", "name without speed grade", or_none(forms.package));
    fmt::print("{:<28} {}\n", "device name", or_none(forms.device));
    fmt::print("{:<28} {}\n", "family", or_none(forms.family));
    fmt::print("{:<28} {}\n", "programmer part", or_none(forms.programmer_part));
    fmt::print("{:<28} {}\n", "programmer family", or_none(forms.programmer_family));
    fmt::print("{:<28} {}\n", "catalogue configuration", or_none(forms.configuration));
    fmt::print("{:<28} {}\n", "catalogue family", or_none(forms.catalogue_family));
    if (!full.empty()) {
        fmt::print("{:<28} {}\n", "OPN enum", MOXDEV_MGR::get_opn_enum(full));
        fmt::print("{:<28} 0x{:012X}\n", "OPN hash", MOXDEV_MGR::get_opn_hash(full));
    }
    fmt::print("{:<28} {}\n", "use full name", answer.use_full_name ? "yes" : "no");
    fmt::print("{:<28} {}\n", "use package name", answer.use_package_name ? "yes" : "no");
}

void show_opn(const std::string& text)
{
    if (json_output) {
        moxdev::NAMING_DOCUMENTS documents(note);
        print_json(documents.opn(text));
        return;
    }
    const moxdev::OPN_ANSWER answer = moxdev::resolve_opn(text);
    fmt::print("{:<10} {}\n", "OPN", answer.opn);
    fmt::print("{:<10} {}\n", "enum", answer.has_enum() ? std::to_string(answer.opn_enum) : std::string("-"));
    fmt::print("{:<10} 0x{:012X}\n", "hash", answer.hash);
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

// The supported values of a kind in ascending order, with their names.
std::vector<std::pair<DWORD, std::string>> supported_values(MOX_ENUM_TYPE kind)
{
    std::vector<std::pair<DWORD, std::string>> values;
    std::string name;
    for (DWORD value = 1; MOXDEV_MGR::mox_check_type_enum_supported(kind, value, &name); ++value)
        values.emplace_back(value, name);
    return values;
}

void list_type(MOX_ENUM_TYPE kind)
{
    const auto values = supported_values(kind);
    if (json_output) {
        JSON entries = JSON::array();
        for (const auto& value : values)
            entries.push_back({{"value", value.first}, {"name", value.second}});
        print_json({{"kind", KIND_NAMES[kind]}, {"kind_value", int(kind)}, {"values", entries}});
        return;
    }
    for (const auto& value : values)
        fmt::print("{:>4}  {}\n", value.first, value.second);
    fmt::print("{} supported {} values\n", values.size(), KIND_NAMES[kind]);
}

void check_type(const std::string& kind_text, const std::string& item, bool item_given)
{
    const MOX_ENUM_TYPE kind = kind_of(kind_text);
    if (!item_given) {
        list_type(kind);
        return;
    }
    DWORD value = 0;
    std::string name;
    const bool by_value = MOX_COMMON::convert_string_to_dword(item, value);
    if (by_value) {
        if (!MOXDEV_MGR::mox_check_type_enum_supported(kind, value, &name))
            throw USER_ERROR{fmt::format("value {} is not supported (supported {} values: 1 to {})", value,
                                         KIND_NAMES[kind], supported_values(kind).size())};
    } else {
        name = normalised_name(item);
        if (!MOXDEV_MGR::mox_check_type_name_supported(kind, name, &value)) {
            std::vector<std::string> names;
            for (const auto& known : supported_values(kind))
                names.push_back(known.second);
            throw USER_ERROR{"name '" + item + "' is not supported" + did_you_mean(name, names)};
        }
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
    complete_from(
        name_command->add_option("NAME", name, "Any name form, e.g. KXB100F484C6, KXB100F484, KXB100, KXB100M"),
        "device-names", [] { return known_device_names(); })
        ->required();
    add_json_verb(name_command, [] { show_name(name); });

    static std::string opn;
    CLI::App* opn_command =
        app.add_subcommand("opn", "Convert between an ordering part number, its OPN enum and its OPN hash");
    opn_command->add_option("OPN", opn, "An OPN enum (decimal), an OPN hash (0x...) or an ordering name")->required();
    add_json_verb(opn_command, [] { show_opn(opn); });

    static std::string kind, item;
    CLI::App* type_command =
        app.add_subcommand("type", "Check whether a value or name of a programmer object kind is supported");
    complete_from(type_command->add_option("KIND", kind, "block, flash-sector, option-bit or hps-setting (or 0-3)"),
                  "type-kinds",
                  [] {
                      return std::vector<std::string>{"block", "flash-sector", "option-bit", "hps-setting"};
                  })
        ->required();
    static CLI::Option* item_option =
        type_command->add_option("VALUE", item,
                                 "A value (number) or a value name; without it, every supported "
                                 "value and name of the kind is listed");
    add_json_verb(type_command, [] { check_type(kind, item, item_option->count() > 0); });
}

} // namespace moxdev_cli
