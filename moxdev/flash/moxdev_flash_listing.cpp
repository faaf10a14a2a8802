// The flash manager's listings: a record's fields as text, and the debug
// listings of every record and of the user record.
#include "moxdev/moxdev_flash_manager.h"

#include <fmt/format.h>

#include <set>
#include <type_traits>

// The fields of the record whose value 255 means "not used": shown as "none"
// (and as null in the command's JSON), never as a number that looks usable.
static bool moxdev_flash_field_is_optional(const std::string& name)
{
    return name == "memory_type_index" || name == "protection_division" || name == "bottom_value";
}

std::vector<std::pair<std::string, std::string>> moxdev_flash_info_to_text(const MOXDEV_SFL_FLASH_INFO& record)
{
    static const std::set<std::string> hex_fields = {"memory_id",       "memory_type",      "mfc_id",
                                                     "protection_mask", "protection_value", "unprotect_value"};
    std::vector<std::pair<std::string, std::string>> fields;
    fields.reserve(TOTAL_DATABASE_MEMBER);
    moxdev_for_each_flash_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE, const auto& value) {
        using T = std::decay_t<decltype(value)>;
        std::string text;
        if constexpr (std::is_same_v<T, std::string>)
            text = value;
        else if constexpr (std::is_same_v<T, bool>)
            text = value ? "true" : "false"; // as JSON shows them
        else if (hex_fields.count(name))
            text = fmt::format("0x{:02X}", value);
        else if (moxdev_flash_field_is_optional(name) && value == 255)
            text = "none";
        else
            text = std::to_string(value);
        fields.emplace_back(name, std::move(text));
    });
    return fields;
}

void MOXDEV_FLASH_MANAGER::print_database() const
{
    for (DWORD i = 0; m_flash_database && i < m_flash_count; ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = (*m_flash_database)[i];
        fmt::print("Flash record {} of {}: {} {}\n", i, m_flash_count, record.manufacturer_name, record.device_name);
        for (const auto& field : moxdev_flash_info_to_text(record))
            fmt::print("  {:<20} {}\n", field.first, field.second);
    }
}

void MOXDEV_FLASH_MANAGER::print_ini_database() const
{
    fmt::print("User flash: {} {}\n", m_ini_database.manufacturer_name, m_ini_database.device_name);
    for (const auto& field : moxdev_flash_info_to_text(m_ini_database))
        fmt::print("  {:<20} {}\n", field.first, field.second);
}
