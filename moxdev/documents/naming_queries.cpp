// Device names as people type them: the grammar forms that stand for
// devices or families, every form of one name, and ordering part numbers.
#include "moxdev/documents/naming_queries.h"

#include "moxdev/moxdev_mgr.h"
#include "moxdev/suggest.h"
#include "moxdev/text.h"

#include "host/gen_string.h"
#include "host/mox_common.h"

#include <fmt/format.h>

#include <algorithm>

namespace moxdev {

namespace {

using GRAMMAR = MOXDEV_DDB_GRAMMAR_ENUM;

template <class VALUE>
void add_once(std::vector<VALUE>& values, VALUE value)
{
    if (std::find(values.begin(), values.end(), value) == values.end())
        values.push_back(value);
}

std::vector<DEV_FAMILY_ENUM> families_of(const std::vector<DEV_DEVICE_ENUM>& devices)
{
    const DEV_PART_MANAGER catalogue;
    std::vector<DEV_FAMILY_ENUM> families;
    for (const DEV_DEVICE_ENUM device : devices)
        add_once(families, catalogue.get_family_of(device));
    return families;
}

NAME_FORMS forms_of(const std::string& name)
{
    NAME_FORMS forms;
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

} // namespace

std::string normalised_name(std::string name)
{
    gen_remove_leading_and_trailing_white_spaces(name);
    stl_toupper(name);
    return name;
}

QUERY_ERROR name_not_found(const std::string& message, const std::string& typed, const std::vector<std::string>& known)
{
    return QUERY_ERROR(QUERY_FAILURE::NOT_FOUND, message + did_you_mean(typed, known), closest_names(typed, known));
}

// The grammar tables of the compiled-in image, decoded on first use.
const std::map<std::string, std::vector<std::string>>& NAMING_QUERIES::table(MOXDEV_DDB_GRAMMAR_ENUM which)
{
    if (!m_tables)
        m_tables = moxdev_decode_grammar_image(MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH, MOXDDB_GRAMMAR_LENGTH);
    return (*m_tables)[std::size_t(which)];
}

const std::vector<std::string>* NAMING_QUERIES::entry(MOXDEV_DDB_GRAMMAR_ENUM which, const std::string& key)
{
    const auto& names = table(which);
    const auto found = names.find(key);
    return found == names.end() ? nullptr : &found->second;
}

// The catalogue devices among the names a programmer part lists.
std::vector<DEV_DEVICE_ENUM> NAMING_QUERIES::devices_of_programmer_part(const std::string& part)
{
    std::vector<DEV_DEVICE_ENUM> devices;
    if (const auto* names = entry(GRAMMAR::MOX_PART, part)) {
        for (const std::string& name : *names) {
            const DEV_DEVICE_ENUM device = dstr_get_dev_device_enum_by_string(name.c_str());
            if (device != DEV_DEVICE_INVALID)
                add_once(devices, device);
        }
    }
    return devices;
}

NAME_TARGETS NAMING_QUERIES::resolve_name_form(const std::string& typed)
{
    const std::string name = normalised_name(typed);
    const DEV_PART_MANAGER catalogue;
    NAME_TARGETS targets;
    if (name.empty())
        return targets;
    if (const auto* parts = entry(GRAMMAR::SPEEDGRADE, name)) {
        targets.form = "name without speed grade";
        for (const std::string& part : *parts) {
            const int value = dstr_get_dev_part_enum_by_string(part.c_str());
            if (value != DEV_PART_INVALID)
                add_once(targets.devices, catalogue.get_device_of(value));
        }
        return targets;
    }
    if (entry(GRAMMAR::MOX_PART, name) != nullptr) {
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
    if (const auto* devices = entry(GRAMMAR::MOX_FAMILY, name)) {
        targets.form = "programmer family";
        std::vector<DEV_DEVICE_ENUM> values;
        for (const std::string& device : *devices)
            add_once(values, dstr_get_dev_device_enum_by_string(device.c_str()));
        values.erase(std::remove(values.begin(), values.end(), DEV_DEVICE_INVALID), values.end());
        targets.families = families_of(values);
        return targets;
    }
    if (const auto* configurations = entry(GRAMMAR::DEV_FAMILY, name)) {
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
    if (const auto* members = entry(GRAMMAR::FAMILY, family)) {
        targets.form = family == name ? "family name" : "family configuration";
        for (const std::string& member : *members)
            for (const DEV_FAMILY_ENUM value : families_of(devices_of_programmer_part(member)))
                add_once(targets.families, value);
    }
    return targets;
}

const std::vector<std::string>& NAMING_QUERIES::known_device_names()
{
    if (!m_known_names.empty())
        return m_known_names;
    std::vector<std::string>& known = m_known_names;
    for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
        known.push_back(dstr_get_identifier(DEV_FAMILY_ENUM(f)));
        known.push_back(dstr_get_user_string(DEV_FAMILY_ENUM(f)));
    }
    for (int d = 1; d < DEV_DEVICE_MAX; ++d)
        known.push_back(dstr_get_user_string(DEV_DEVICE_ENUM(d)));
    // Shorter forms first: among equally close names the first known wins.
    for (const GRAMMAR which : {GRAMMAR::FAMILY, GRAMMAR::MOX_FAMILY, GRAMMAR::MOX_PART, GRAMMAR::SPEEDGRADE})
        for (const auto& key : table(which))
            known.push_back(key.first);
    for (const auto& configurations : table(GRAMMAR::DEV_PART))
        known.insert(known.end(), configurations.second.begin(), configurations.second.end());
    for (int p = 1; p < DEV_PART_MAX; ++p)
        known.push_back(dstr_get_user_string(p));
    known.erase(std::remove(known.begin(), known.end(), std::string()), known.end());
    return known;
}

// The forms a name that stands for several devices or families shares with
// all of them, its own form in its own slot.
NAME_FORMS NAMING_QUERIES::group_forms(const std::string& name, const NAME_TARGETS& targets)
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
    NAME_FORMS shared;
    for (std::size_t i = 0; i < members.size(); ++i) {
        const NAME_FORMS forms = forms_of(members[i]);
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
    if (entry(GRAMMAR::DEV_FAMILY, name) != nullptr)
        shared.catalogue_family = name;
    return shared;
}

NAME_ANSWER NAMING_QUERIES::name(const std::string& typed)
{
    NAME_ANSWER answer;
    // Every form is asked for the trimmed, upper-case name.
    answer.name = normalised_name(typed);
    const std::string& name = answer.name;
    answer.forms = forms_of(name);
    // A name that is no device or part of its own stands for the devices or
    // families its grammar form covers.
    if (answer.forms.device.empty()) {
        NAME_TARGETS targets = resolve_name_form(name);
        if (!targets.form.empty() && targets.form != "name without speed grade" &&
            !(targets.devices.empty() && targets.families.empty())) {
            answer.forms = group_forms(name, targets);
            answer.targets = std::move(targets);
        }
    }
    if (answer.forms.empty() && answer.targets.form.empty())
        throw name_not_found("no device name form is known for " + moxdev::quoted(typed), name, known_device_names());
    answer.use_full_name = MOXDEV_DEVICE_GRAMMAR_MGR::use_full_name(name);
    answer.use_package_name = MOXDEV_DEVICE_GRAMMAR_MGR::use_package_name(name);
    return answer;
}

OPN_ANSWER resolve_opn(const std::string& text)
{
    std::string name;
    DWORD value = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        if (text.size() > 18 || text.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos)
            throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, moxdev::quoted(text) + " is not a hexadecimal OPN hash");
        const QWORD hash = std::stoull(text.substr(2), nullptr, 16);
        name = MOXDEV_MGR::get_opn_from_hash(hash);
        if (name.empty())
            throw QUERY_ERROR(QUERY_FAILURE::NOT_FOUND,
                              fmt::format("no OPN has the hash 0x{:012X}", hash & 0xFFFFFFFFFFFFull));
    } else if (MOX_COMMON::convert_string_to_dword(text, value)) {
        name = MOXDEV_MGR::get_opn(value);
        if (name.empty())
            throw QUERY_ERROR(QUERY_FAILURE::NOT_FOUND, fmt::format("no OPN has the enum {}", value));
    } else {
        name = normalised_name(text);
        if (MOXDEV_MGR::get_opn_hash(name) == 0xFFFFFFFFFFFFFFFFull) {
            std::vector<std::string> parts;
            for (int p = 1; p < DEV_PART_MAX; ++p)
                if (p != DEV_PART_GENERIC)
                    parts.push_back(dstr_get_user_string(p));
            throw name_not_found(moxdev::quoted(text) + " is not an orderable part of the catalogue", name, parts);
        }
    }
    return {name, MOXDEV_MGR::get_opn_enum(name), MOXDEV_MGR::get_opn_hash(name)};
}

} // namespace moxdev
