// The device database side of the naming queries: the record that serves
// a family, device or part, found by any of its names.
#include "moxdev/documents/naming_queries.h"

#include "moxdev/files.h"
#include "moxdev/moxdev_dev_info_manager_auto_export.h"
#include "moxdev/text.h"

#include "host/gen_path.h"

#include <filesystem>
#include <system_error>
#include <type_traits>

namespace moxdev {

namespace {

// The name the option table gives an option value, or null.
DOCUMENT option_name(DWORD value)
{
    for (std::size_t i = 0; i < MOXDEV_OPTION_ID_TABLE.count; ++i) {
        if (MOXDEV_OPTION_ID_TABLE.entries[i].value == value)
            return MOXDEV_OPTION_ID_TABLE.entries[i].name;
    }
    return nullptr;
}

} // namespace

std::string family_display_name(DEV_FAMILY_ENUM family)
{
    return family == DEV_FAMILY_GENERIC ? "Generic" : dstr_get_user_string(family);
}

std::string device_display_name(DEV_DEVICE_ENUM device)
{
    return device == DEV_DEVICE_GENERIC ? "Generic" : dstr_get_user_string(device);
}

DOCUMENT device_record_json(const MOXDEV_DEVICE_INFO& record)
{
    DOCUMENT fields = DOCUMENT::object();
    moxdev_for_each_device_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE type, const auto& value) {
        using T = std::decay_t<decltype(value)>;
        const std::string name_key = std::string(name) + "_name";
        if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, bool>) {
            fields[name] = value;
        } else if constexpr (std::is_same_v<T, DEV_FAMILY_ENUM> || std::is_same_v<T, DEV_DEVICE_ENUM>) {
            fields[name] = int(value);
            fields[name_key] = null_if_empty(dstr_get_identifier(value));
        } else if constexpr (std::is_same_v<T, int>) {
            fields[name] = value;
            fields[name_key] = null_if_empty(dstr_get_part_identifier(value));
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

void require_device_database()
{
    const std::string file = absolute_path(gen_get_device_db_fullpath() + "/programmer/mox_dev_info.pcf");
    const std::string reason = unreadable_reason(file);
    if (reason == "no such file")
        throw QUERY_ERROR(QUERY_FAILURE::UNAVAILABLE,
                          "no device database '" + file +
                              "' (MOXDEV_DEVICE_DB_DIR names the directory that holds programmer/mox_dev_info.pcf)");
    if (!reason.empty())
        throw QUERY_ERROR(QUERY_FAILURE::UNAVAILABLE, "cannot read the device database '" + file + "': " + reason);
}

// The device database, checked and loaded on first use.
MOXDEV_DEV_INFO_MANAGER& NAMING_QUERIES::devices()
{
    if (!m_devices) {
        require_device_database();
        m_devices.emplace(false, 0);
    }
    return *m_devices;
}

// What the answer's name stands for: a part, device or family of the
// catalogue, or another name form (KXB100F484, KXB100M, KXFAMILY2, ...) for
// the one device or family it stands for. False for a form that stands for
// several, which are then the answer's targets.
bool NAMING_QUERIES::resolve_shown_name(const std::string& typed, DEVICE_ANSWER& answer)
{
    const char* const name = answer.name.c_str();
    answer.part = dstr_get_dev_part_enum_by_string(name);
    if (answer.part == DEV_PART_INVALID)
        answer.device = dstr_get_dev_device_enum_by_string(name);
    if (answer.part == DEV_PART_INVALID && answer.device == DEV_DEVICE_INVALID)
        answer.family = dstr_get_dev_family_enum_by_string(name);
    if (answer.part == DEV_PART_INVALID && answer.device == DEV_DEVICE_INVALID && answer.family == DEV_FAMILY_INVALID) {
        NAME_TARGETS targets = resolve_name_form(answer.name);
        if (targets.devices.size() + targets.families.size() == 0)
            throw name_not_found("no family, device or part is named " + moxdev::quoted(typed), answer.name,
                                 known_device_names());
        if (targets.devices.size() + targets.families.size() > 1) {
            answer.targets = std::move(targets);
            return false;
        }
        answer.form = targets.form;
        if (targets.devices.empty())
            answer.family = targets.families.front();
        else
            answer.device = targets.devices.front();
    }
    const DEV_PART_MANAGER catalogue;
    if (answer.part != DEV_PART_INVALID)
        answer.device = catalogue.get_device_of(answer.part);
    if (answer.device != DEV_DEVICE_INVALID)
        answer.family = catalogue.get_family_of(answer.device);
    return true;
}

// Each family or device of a group form, with the record that serves it.
void NAMING_QUERIES::serve_targets(DEVICE_ANSWER& answer)
{
    MOXDEV_DEV_INFO_MANAGER& manager = devices();
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    auto add = [&](const char* kind, int value, const std::string& identifier, const std::string& display_name,
                   DWORD index) {
        const bool served = index < manager.get_device_count();
        answer.served.push_back(
            {kind, value, identifier, display_name, served, index, served ? records[index].pcf : std::string()});
    };
    for (const DEV_FAMILY_ENUM family : answer.targets.families)
        add("family", int(family), dstr_get_identifier(family), family_display_name(family),
            manager.get_family_index(family));
    for (const DEV_DEVICE_ENUM device : answer.targets.devices)
        add("device", int(device), dstr_get_identifier(device), device_display_name(device),
            manager.get_device_index(device));
}

DEVICE_ANSWER NAMING_QUERIES::device(const std::string& typed)
{
    MOXDEV_DEV_INFO_MANAGER& manager = devices();
    DEVICE_ANSWER answer;
    // Surrounding blanks are no part of a name.
    answer.name = normalised_name(typed);
    if (!resolve_shown_name(typed, answer)) {
        serve_targets(answer);
        return answer;
    }
    MOXDEV_DEVICE_INFO* record = nullptr;
    if (answer.part != DEV_PART_INVALID) {
        answer.index = manager.get_part_index(answer.part);
        record = manager.get_db_by_part(answer.part);
    } else if (answer.device != DEV_DEVICE_INVALID) {
        answer.index = manager.get_device_index(answer.device);
        record = manager.get_db_by_device(answer.device);
    } else {
        answer.index = manager.get_family_index(answer.family);
        record = manager.get_db_by_family(answer.family);
    }
    answer.record.reset(record);
    return answer;
}

} // namespace moxdev
