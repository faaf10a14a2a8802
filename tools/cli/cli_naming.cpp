// moxdev name / opn / type: device names, ordering part numbers and the
// type-support checks.
#include "cli.h"
#include "cli_json.h"
#include "cli_names.h"
#include "moxdev/suggest.h"

#include "moxdev/moxdev.h"

#include <fmt/format.h>

#include <algorithm>

namespace moxdev_cli {

namespace {

// The grammar tables of the compiled-in image, decoded on first use.
const MOXDEV_GRAMMAR_TABLES& grammar_tables()
{
    static const MOXDEV_GRAMMAR_TABLES tables =
        moxdev_decode_grammar_image(MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH, MOXDDB_GRAMMAR_LENGTH);
    return tables;
}

const std::map<std::string, std::vector<std::string>>& table(MOXDEV_DDB_GRAMMAR_ENUM which)
{
    return grammar_tables()[std::size_t(which)];
}

const std::vector<std::string>* entry(MOXDEV_DDB_GRAMMAR_ENUM which, const std::string& key)
{
    const auto found = table(which).find(key);
    return found == table(which).end() ? nullptr : &found->second;
}

template <class VALUE>
void add_once(std::vector<VALUE>& values, VALUE value)
{
    if (std::find(values.begin(), values.end(), value) == values.end())
        values.push_back(value);
}

// The catalogue devices among the names a programmer part lists.
std::vector<DEV_DEVICE_ENUM> devices_of_programmer_part(const std::string& part)
{
    std::vector<DEV_DEVICE_ENUM> devices;
    if (const auto* names = entry(MOXDEV_DDB_GRAMMAR_ENUM::MOX_PART, part)) {
        for (const std::string& name : *names) {
            const DEV_DEVICE_ENUM device = dstr_get_dev_device_enum_by_string(name.c_str());
            if (device != DEV_DEVICE_INVALID)
                add_once(devices, device);
        }
    }
    return devices;
}

std::vector<DEV_FAMILY_ENUM> families_of(const std::vector<DEV_DEVICE_ENUM>& devices)
{
    const DEV_PART_MANAGER catalogue;
    std::vector<DEV_FAMILY_ENUM> families;
    for (const DEV_DEVICE_ENUM device : devices)
        add_once(families, catalogue.get_family_of(device));
    return families;
}

} // namespace

std::string normalised_name(std::string name)
{
    gen_remove_leading_and_trailing_white_spaces(name);
    stl_toupper(name);
    return name;
}

// The grammar forms that stand for catalogue devices or families rather than
// being one themselves: a name without speed grade, a catalogue configuration,
// a programmer part, a programmer or catalogue family key, a user-visible
// family name or a family configuration name.
NAME_TARGETS resolve_name_form(const std::string& typed)
{
    using G = MOXDEV_DDB_GRAMMAR_ENUM;
    const std::string name = normalised_name(typed);
    const DEV_PART_MANAGER catalogue;
    NAME_TARGETS targets;
    if (name.empty())
        return targets;
    if (const auto* parts = entry(G::SPEEDGRADE, name)) {
        targets.form = "name without speed grade";
        for (const std::string& part : *parts) {
            const int value = dstr_get_dev_part_enum_by_string(part.c_str());
            if (value != DEV_PART_INVALID)
                add_once(targets.devices, catalogue.get_device_of(value));
        }
        return targets;
    }
    if (entry(G::MOX_PART, name) != nullptr) {
        targets.form = "programmer part";
        targets.devices = devices_of_programmer_part(name);
        return targets;
    }
    const std::string programmer_part = MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_part_pcf(name);
    if (!programmer_part.empty()) {
        // A configuration is named <device>_V<n> after the device it configures.
        targets.form = "catalogue configuration";
        targets.devices = devices_of_programmer_part(programmer_part);
        const std::size_t version = name.rfind("_V");
        if (version != std::string::npos) {
            const DEV_DEVICE_ENUM device = dstr_get_dev_device_enum_by_string(name.substr(0, version).c_str());
            if (std::find(targets.devices.begin(), targets.devices.end(), device) != targets.devices.end())
                targets.devices = {device};
        }
        return targets;
    }
    if (const auto* devices = entry(G::MOX_FAMILY, name)) {
        targets.form = "programmer family";
        std::vector<DEV_DEVICE_ENUM> values;
        for (const std::string& device : *devices)
            add_once(values, dstr_get_dev_device_enum_by_string(device.c_str()));
        values.erase(std::remove(values.begin(), values.end(), DEV_DEVICE_INVALID), values.end());
        targets.families = families_of(values);
        return targets;
    }
    if (const auto* configurations = entry(G::DEV_FAMILY, name)) {
        targets.form = "catalogue family";
        for (const std::string& configuration : *configurations) {
            const std::string part = MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_part_pcf(configuration);
            for (const DEV_FAMILY_ENUM value : families_of(devices_of_programmer_part(part)))
                add_once(targets.families, value);
        }
        return targets;
    }
    const std::string family = MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_family_pcf(name).empty()
                                   ? name
                                   : MOXDEV_DEVICE_GRAMMAR_MGR::get_family(name);
    if (const auto* members = entry(G::FAMILY, family)) {
        targets.form = family == name ? "family name" : "family configuration";
        for (const std::string& member : *members)
            for (const DEV_FAMILY_ENUM value : families_of(devices_of_programmer_part(member)))
                add_once(targets.families, value);
    }
    return targets;
}

// Every name a device, part or family question may be answered for: the
// catalogue's names and the grammar's name forms.
const std::vector<std::string>& known_device_names()
{
    static const std::vector<std::string> names = [] {
        using G = MOXDEV_DDB_GRAMMAR_ENUM;
        std::vector<std::string> known;
        for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
            known.push_back(dstr_get_identifier(DEV_FAMILY_ENUM(f)));
            known.push_back(dstr_get_user_string(DEV_FAMILY_ENUM(f)));
        }
        for (int d = 1; d < DEV_DEVICE_MAX; ++d)
            known.push_back(dstr_get_user_string(DEV_DEVICE_ENUM(d)));
        // Shorter forms first: among equally close names the first known wins.
        for (const G which : {G::FAMILY, G::MOX_FAMILY, G::MOX_PART, G::SPEEDGRADE})
            for (const auto& key : table(which))
                known.push_back(key.first);
        for (const auto& configurations : table(G::DEV_PART))
            known.insert(known.end(), configurations.second.begin(), configurations.second.end());
        for (int p = 1; p < DEV_PART_MAX; ++p)
            known.push_back(dstr_get_user_string(p));
        known.erase(std::remove(known.begin(), known.end(), std::string()), known.end());
        return known;
    }();
    return names;
}

namespace {

std::string or_none(const std::string& text)
{
    return text.empty() ? "-" : text;
}

// Every name form of one name, "" where none is known.
struct FORMS {
    std::string full, package, device, family, programmer_part, programmer_family, configuration, catalogue_family;
    bool empty() const
    {
        return full.empty() && package.empty() && device.empty() && programmer_part.empty() && family.empty();
    }
};

FORMS forms_of(const std::string& name)
{
    FORMS forms;
    forms.full = MOXDEV_MGR::find_possible_full_name(name);
    // The forms below a full name are those of the full name it stands for.
    const std::string base = forms.full.empty() ? name : forms.full;
    forms.package = MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(base, true);
    forms.device = MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(base, false, true);
    std::string mox_part, dev_part;
    MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_pcfs(name, mox_part, forms.programmer_family);
    MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_pcfs(name, dev_part, forms.catalogue_family);
    // A device-level name reaches the catalogue configuration through its
    // programmer part; a configuration name reaches the programmer part.
    forms.programmer_part = mox_part.empty() ? dev_part : mox_part;
    forms.configuration = forms.programmer_part.empty()
                              ? std::string()
                              : MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_device(forms.programmer_part);
    if (forms.catalogue_family.empty() && !forms.configuration.empty())
        forms.catalogue_family = MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_family_pcf(forms.configuration);
    forms.family = MOXDEV_DEVICE_GRAMMAR_MGR::get_family(forms.programmer_part.empty() ? name : forms.programmer_part);
    return forms;
}

// The forms a name that stands for several devices or families shares with
// all of them, its own form in its own slot.
FORMS group_forms(const std::string& name, const NAME_TARGETS& targets)
{
    std::vector<std::string> members;
    for (const DEV_DEVICE_ENUM device : targets.devices)
        members.push_back(dstr_get_user_string(device));
    for (int d = 1; d < DEV_DEVICE_MAX; ++d) {
        const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(d);
        if (std::find(targets.families.begin(), targets.families.end(), DEV_PART_MANAGER().get_family_of(device)) !=
            targets.families.end())
            members.push_back(dstr_get_user_string(device));
    }
    FORMS shared;
    for (std::size_t i = 0; i < members.size(); ++i) {
        const FORMS forms = forms_of(members[i]);
        auto keep = [i](std::string& kept, const std::string& value) {
            if (i == 0)
                kept = value;
            else if (kept != value)
                kept.clear();
        };
        keep(shared.full, forms.full);
        keep(shared.package, forms.package);
        keep(shared.device, forms.device);
        keep(shared.family, forms.family);
        keep(shared.programmer_part, forms.programmer_part);
        keep(shared.programmer_family, forms.programmer_family);
        keep(shared.configuration, forms.configuration);
        keep(shared.catalogue_family, forms.catalogue_family);
    }
    // No one ordering part stands for a group.
    shared.full.clear();
    shared.package.clear();
    if (targets.form == "programmer part")
        shared.programmer_part = name;
    else if (targets.form == "catalogue configuration")
        shared.configuration = name;
    else if (targets.form == "programmer family")
        shared.programmer_family = name;
    else if (targets.form == "family name")
        shared.family = name;
    if (entry(MOXDEV_DDB_GRAMMAR_ENUM::DEV_FAMILY, name) != nullptr)
        shared.catalogue_family = name;
    return shared;
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
    // Every form is asked for the trimmed, upper-case name.
    const std::string name = normalised_name(typed);
    FORMS forms = forms_of(name);
    NAME_TARGETS targets;
    // A name that is no device or part of its own stands for the devices or
    // families its grammar form covers.
    if (forms.device.empty()) {
        targets = resolve_name_form(name);
        if (targets.form.empty() || targets.form == "name without speed grade" ||
            (targets.devices.empty() && targets.families.empty()))
            targets = NAME_TARGETS{};
        else
            forms = group_forms(name, targets);
    }
    if (forms.empty() && targets.form.empty())
        throw USER_ERROR{"no device name form is known for " + moxdev::quoted(typed) +
                         did_you_mean(name, known_device_names())};
    const std::string& full = forms.full;

    const bool use_full_name = MOXDEV_DEVICE_GRAMMAR_MGR::use_full_name(name);
    const bool use_package_name = MOXDEV_DEVICE_GRAMMAR_MGR::use_package_name(name);
    if (json_output) {
        JSON document = {{"name", name},
                         {"full_ordering_name", text_or_null(full)},
                         {"name_without_speed_grade", text_or_null(forms.package)},
                         {"device_name", text_or_null(forms.device)},
                         {"family", text_or_null(forms.family)},
                         {"programmer_part", text_or_null(forms.programmer_part)},
                         {"programmer_family", text_or_null(forms.programmer_family)},
                         {"catalogue_configuration", text_or_null(forms.configuration)},
                         {"catalogue_family", text_or_null(forms.catalogue_family)},
                         {"opn_enum", full.empty() ? JSON() : JSON(MOXDEV_MGR::get_opn_enum(full))},
                         {"opn_hash", full.empty() ? JSON() : JSON(MOXDEV_MGR::get_opn_hash(full))},
                         {"use_full_name", use_full_name},
                         {"use_package_name", use_package_name}};
        if (!targets.form.empty()) {
            JSON devices = JSON::array(), families = JSON::array();
            for (const DEV_DEVICE_ENUM device : targets.devices)
                devices.push_back(dstr_get_identifier(device));
            for (const DEV_FAMILY_ENUM family : targets.families)
                families.push_back(dstr_get_identifier(family));
            document["form"] = targets.form;
            document["stands_for"] = {{"devices", devices}, {"families", families}};
        }
        print_json(document);
        return;
    }
    fmt::print("{:<28} {}\n", "name", name);
    if (!targets.form.empty()) {
        fmt::print("{:<28} {}\n", "form", targets.form);
        fmt::print("{:<28} {}\n", "stands for", stands_for(targets));
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
            throw USER_ERROR{moxdev::quoted(text) + " is not a hexadecimal OPN hash"};
        hash = std::stoull(text.substr(2), nullptr, 16);
        name = MOXDEV_MGR::get_opn_from_hash(hash);
        if (name.empty())
            throw USER_ERROR{fmt::format("no OPN has the hash 0x{:012X}", hash & 0xFFFFFFFFFFFFull)};
    } else if (MOX_COMMON::convert_string_to_dword(text, value)) {
        name = MOXDEV_MGR::get_opn(value);
        if (name.empty())
            throw USER_ERROR{fmt::format("no OPN has the enum {}", value)};
    } else {
        name = normalised_name(text);
        if (MOXDEV_MGR::get_opn_hash(name) == 0xFFFFFFFFFFFFFFFFull) {
            std::vector<std::string> parts;
            for (int p = 1; p < DEV_PART_MAX; ++p)
                if (p != DEV_PART_GENERIC)
                    parts.push_back(dstr_get_user_string(p));
            throw USER_ERROR{moxdev::quoted(text) + " is not an orderable part of the catalogue" +
                             did_you_mean(name, parts)};
        }
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
