// The stand-alone device catalogue over the arrays that tools/generators/gen_catalogue
// generates from data/catalogue.txt.

#include "host/dev_catalogue.h"
#include "host/dev_catalogue_data.h"
#include "host/dev_catalogue_naming.h"

#include <absl/strings/ascii.h>
#include <absl/strings/match.h>

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

using namespace dev_catalogue_data;

namespace {

std::string to_upper(const char* text)
{
    return absl::AsciiStrToUpper(text);
}

bool equals_ignoring_case(const std::string& a, const char* b)
{
    return absl::EqualsIgnoreCase(a, b);
}

bool is_any(const std::string& filter)
{
    return equals_ignoring_case(filter, "ANY");
}

bool is_real_family(int family)
{
    return family > DEV_FAMILY_INVALID && family < DEV_FAMILY_GENERIC;
}
bool is_real_device(int device)
{
    return device > DEV_DEVICE_INVALID && device < DEV_DEVICE_GENERIC;
}
bool is_real_part(int part)
{
    return part > DEV_PART_INVALID && part < PART_COUNT && part != DEV_PART_GENERIC;
}

// Upper-cased name -> value. Built on first use; a function-local static is
// initialised once even when several threads ask at the same time.
using NAME_INDEX = std::unordered_map<std::string, int>;

const NAME_INDEX& part_index()
{
    static const NAME_INDEX index = [] {
        NAME_INDEX m;
        m.reserve(std::size_t(PART_COUNT));
        for (int p = 1; p < PART_COUNT; ++p)
            m.emplace(to_upper(PARTS[p].name), p);
        return m;
    }();
    return index;
}

const NAME_INDEX& device_index()
{
    static const NAME_INDEX index = [] {
        NAME_INDEX m;
        m.reserve(DEV_DEVICE_MAX);
        for (int d = 1; d < DEV_DEVICE_MAX; ++d)
            m.emplace(to_upper(DEVICES[d].name), d);
        return m;
    }();
    return index;
}

// Families answer to their identifier and to their display name.
const NAME_INDEX& family_index()
{
    static const NAME_INDEX index = [] {
        NAME_INDEX m;
        m.reserve(2 * DEV_FAMILY_MAX);
        for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
            m.emplace(to_upper(FAMILIES[f].identifier), f);
            m.emplace(to_upper(FAMILIES[f].display), f);
        }
        return m;
    }();
    return index;
}

int find(const NAME_INDEX& index, const char* name)
{
    if (name == nullptr)
        return 0;
    const auto it = index.find(to_upper(name));
    return it == index.end() ? 0 : it->second;
}

std::vector<std::string> names(const char* const* table, int first, int count)
{
    return std::vector<std::string>(table + first, table + first + count);
}

} // namespace

// ---------------------------------------------------------------- display names and lookups

std::string dstr_get_user_string(int part)
{
    return part >= 0 && part < PART_COUNT ? PARTS[part].name : "";
}

std::string dstr_get_user_string(DEV_DEVICE_ENUM device)
{
    return device >= 0 && device < DEV_DEVICE_MAX ? DEVICES[device].name : "";
}

std::string dstr_get_user_string(DEV_FAMILY_ENUM family)
{
    return family >= 0 && family < DEV_FAMILY_MAX ? FAMILIES[family].display : "";
}

int dstr_get_dev_part_enum_by_string(const char* name)
{
    return find(part_index(), name);
}

DEV_DEVICE_ENUM dstr_get_dev_device_enum_by_string(const char* name)
{
    return DEV_DEVICE_ENUM(find(device_index(), name));
}

DEV_FAMILY_ENUM dstr_get_dev_family_enum_by_string(const char* name)
{
    return DEV_FAMILY_ENUM(find(family_index(), name));
}

bool dstr_is_valid_dev_device_enum(DEV_DEVICE_ENUM device)
{
    return device > DEV_DEVICE_INVALID && device < DEV_DEVICE_MAX;
}

bool dstr_is_valid_dev_family_enum(DEV_FAMILY_ENUM family)
{
    return family > DEV_FAMILY_INVALID && family < DEV_FAMILY_MAX;
}

// Late parts, numbered above the Generic part, are real parts but not valid
// values in this sense.
bool dstr_is_valid_dev_part_enum(int part)
{
    return part > DEV_PART_INVALID && part < DEV_PART_MAX;
}

std::string dstr_get_identifier(DEV_FAMILY_ENUM family)
{
    return family >= 0 && family < DEV_FAMILY_MAX ? FAMILIES[family].identifier : "";
}

std::string dstr_get_identifier(DEV_DEVICE_ENUM device)
{
    return device >= 0 && device < DEV_DEVICE_MAX ? to_upper(DEVICES[device].name) : "";
}

std::string dstr_get_part_identifier(int part)
{
    return part >= 0 && part < PART_COUNT ? to_upper(PARTS[part].name) : "";
}

// ---------------------------------------------------------------- part manager

DEV_DEVICE_ENUM DEV_PART_MANAGER::get_device_of(int part) const
{
    return part > DEV_PART_INVALID && part < PART_COUNT ? DEV_DEVICE_ENUM(PARTS[part].device) : DEV_DEVICE_INVALID;
}

DEV_FAMILY_ENUM DEV_PART_MANAGER::get_family_of(DEV_DEVICE_ENUM device) const
{
    return device > DEV_DEVICE_INVALID && device < DEV_DEVICE_MAX ? DEV_FAMILY_ENUM(DEVICES[device].family)
                                                                  : DEV_FAMILY_INVALID;
}

bool DEV_PART_MANAGER::filter_part_list(std::vector<int>& parts, const std::string& family, const std::string& package,
                                        const std::string& pin_count, const std::string& speed_grade,
                                        const std::string& temperature, bool production_only, bool current_only,
                                        bool listed_only, const std::string& option) const
{
    parts.clear();
    int wanted_family = DEV_FAMILY_INVALID;
    if (!is_any(family)) {
        wanted_family = dstr_get_dev_family_enum_by_string(family.c_str());
        if (wanted_family == DEV_FAMILY_INVALID)
            return false;
    }
    const bool any_package = is_any(package);
    const bool any_pins = is_any(pin_count);
    const bool any_speed = is_any(speed_grade);
    const bool any_temperature = is_any(temperature);
    const bool any_option = is_any(option);

    const int end = listed_only ? DEV_PART_GENERIC : PART_COUNT;
    for (int p = 1; p < end; ++p) {
        if (p == DEV_PART_GENERIC)
            continue;
        const PART_RECORD& part = PARTS[p];
        const DEVICE_RECORD& device = DEVICES[part.device];
        const FAMILY_RECORD& fam = FAMILIES[device.family];
        if (wanted_family != DEV_FAMILY_INVALID && device.family != wanted_family)
            continue;
        if (production_only && part.option == OPTION_ENGINEERING_SAMPLE)
            continue;
        if (current_only && fam.status == STATUS_OBSOLETE)
            continue;
        const PACKAGE_RECORD& pkg = PACKAGES[part.package];
        if (!any_package && !equals_ignoring_case(package, pkg.code))
            continue;
        if (!any_pins && pin_count != std::to_string(pkg.pins))
            continue;
        if (!any_speed && speed_grade != std::to_string(part.speed))
            continue;
        if (!any_temperature) {
            const char t[2] = {part.temperature, '\0'};
            if (!equals_ignoring_case(temperature, t))
                continue;
        }
        if (!any_option && (part.option == 0 || !equals_ignoring_case(option, OPTIONS[part.option])))
            continue;
        parts.push_back(p);
    }
    return true;
}

// ---------------------------------------------------------------- name forms

std::string dcat_get_maker_name()
{
    return MAKER_NAME;
}

DEV_FAMILY_STATUS dcat_get_family_status(DEV_FAMILY_ENUM family)
{
    if (!is_real_family(family))
        return DEV_FAMILY_STATUS::PRODUCTION;
    switch (FAMILIES[family].status) {
    case STATUS_OBSOLETE: return DEV_FAMILY_STATUS::OBSOLETE;
    case STATUS_PREVIEW: return DEV_FAMILY_STATUS::PREVIEW;
    default: return DEV_FAMILY_STATUS::PRODUCTION;
    }
}

std::string dcat_get_programmer_family_key(DEV_FAMILY_ENUM family)
{
    return is_real_family(family) ? FAMILIES[family].programmer_key : "";
}

std::string dcat_get_user_family_name(DEV_FAMILY_ENUM family)
{
    return is_real_family(family) ? FAMILIES[family].user_name : "";
}

std::vector<std::string> dcat_get_family_config_names(DEV_FAMILY_ENUM family)
{
    if (!is_real_family(family))
        return {};
    return names(FAMILY_CONFIG_NAMES, FAMILIES[family].first_config, FAMILIES[family].config_count);
}

std::string dcat_get_family_pcf(DEV_FAMILY_ENUM family)
{
    return is_real_family(family) ? FAMILIES[family].pcf : "";
}

std::string dcat_get_programmer_part_name(DEV_DEVICE_ENUM device)
{
    return is_real_device(device) ? DEVICES[device].programmer_part : "";
}

std::vector<std::string> dcat_get_part_config_names(DEV_DEVICE_ENUM device)
{
    if (!is_real_device(device))
        return {};
    return names(PART_CONFIG_NAMES, DEVICES[device].first_config, DEVICES[device].config_count);
}

std::string dcat_get_device_pcf(DEV_DEVICE_ENUM device)
{
    return is_real_device(device) ? DEVICES[device].pcf : "";
}

bool dcat_get_part_attributes(int part, DEV_PART_ATTRIBUTES& attributes)
{
    if (!is_real_part(part))
        return false;
    const PART_RECORD& p = PARTS[part];
    const PACKAGE_RECORD& pkg = PACKAGES[p.package];
    attributes.package = pkg.code;
    attributes.pin_count = pkg.pins;
    attributes.speed_grade = p.speed;
    attributes.temperature = p.temperature;
    attributes.option = OPTIONS[p.option];
    attributes.engineering_sample = p.option == OPTION_ENGINEERING_SAMPLE;
    attributes.obsolete = FAMILIES[DEVICES[p.device].family].status == STATUS_OBSOLETE;
    return true;
}

std::string dcat_get_part_package_name(int part)
{
    if (!is_real_part(part))
        return "";
    const PART_RECORD& p = PARTS[part];
    return std::string(DEVICES[p.device].name) + PACKAGES[p.package].code;
}
