// The flash manager's paths for a chip the table does not know: binding a
// device to the record derived from the chip's SFDP read, and writing a
// record as the user definition value.
#include "moxdev/moxdev_flash_manager.h"

#include "moxdev/moxdev_assert.h"
#include "moxdev/moxdev_sfdp.h"

#include "host/gen_string.h"
#include "host/msg.h"

#include <fmt/format.h>

#include <type_traits>

bool MOXDEV_FLASH_MANAGER::flash_sfdp_mapping(DWORD device_index, const BYTE* id_bytes, DWORD id_count,
                                              const BYTE* sfdp, std::size_t sfdp_size, std::string* error)
{
    std::string reason;
    auto refuse = [&](const std::string& text) {
        if (error != nullptr)
            *error = text;
        return false;
    };
    // The table (and the user record) first: their facts are the makers'.
    if (flash_id_database_mapping(false, device_index, id_bytes, id_count))
        return true;
    if (id_bytes == nullptr || id_count < 3)
        return refuse("three Read-ID bytes (maker, type, capacity) are needed");

    MOXDEV_SFDP facts;
    if (!moxdev_decode_sfdp(sfdp, sfdp_size, facts, reason))
        return refuse("SFDP: " + reason);
    MOXDEV_SFDP_RECORD derived;
    if (!moxdev_sfdp_record(facts, id_bytes, "", maker_name(id_bytes[0], id_bytes[1]), MOXDEV_SFDP_ASSUMPTIONS{}, derived, reason))
        return refuse("SFDP: " + reason);

    // Behind the usable records: slots of records dropped while loading are
    // reused before the array grows.
    std::vector<MOXDEV_SFL_FLASH_INFO>& records = *m_flash_database;
    if (m_flash_count < records.size())
        records[m_flash_count] = derived.record;
    else
        records.push_back(derived.record);
    ++m_flash_count;
    set_flash_mapping_index(device_index, m_flash_count - 1);
    msg_local_debug(2, MOXDEV_MODULE,
                    fmt::format("Device {} bound to its SFDP record {} at index {}", device_index + 1,
                                derived.record.device_name, m_flash_count - 1));
    return true;
}

std::string MOXDEV_FLASH_MANAGER::maker_name(BYTE mfc_id, BYTE memory_type) const
{
    for (DWORD i = 0; m_flash_database && i < m_flash_count; ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = (*m_flash_database)[i];
        if (!record.silicon_id && record.mfc_id == mfc_id && record.memory_type == memory_type)
            return record.manufacturer_name;
    }
    return "";
}

std::string MOXDEV_FLASH_MANAGER::definition_value(const MOXDEV_SFL_FLASH_INFO& record) const
{
    // Every field behind an '@', in record order, and a closing '@': the text
    // the definition dialogue builds.
    std::string definition;
    bool encodable = true;
    moxdev_for_each_flash_field(record, [&](const char*, MOXDEV_MANAGER_TYPE, const auto& value) {
        using T = std::decay_t<decltype(value)>;
        std::string text;
        if constexpr (std::is_same_v<T, std::string>) {
            text = value;
            stl_toupper(text);
            encodable = encodable && !text.empty() && text.find_first_of("@#;") == std::string::npos;
        } else if constexpr (std::is_same_v<T, bool>) {
            text = value ? "1" : "0";
        } else {
            text = std::to_string(unsigned(value));
        }
        definition += "@" + text;
    });
    if (!encodable)
        return "";
    definition += "@";
    const std::string text = definition + "#" + gen_ini_password(definition) + ";";
    const std::string encoded = encode_ini(text);
    return !encoded.empty() && decode_ini(encoded) == text ? encoded : "";
}
