#include "moxdev/flash.h"

#include "moxdev/flash/moxdev_flash_access.h"
#include "moxdev/moxdev_sfdp.h"

#include "host/gen_path.h"
#include "host/msg.h"

#include <fmt/format.h>

namespace moxdev {

using detail::FLASH_MANAGER_ACCESS;

MOXDEV_FLASH_MANAGER load_flash_database(FLASH_RECORDS which, DWORD device_count)
{
    MOXDEV_FLASH_MANAGER manager = empty_flash_manager();
    FLASH_MANAGER_ACCESS::load(manager, gen_get_device_db_fullpath() + "/programmer/mox_flash.pcf",
                               which == FLASH_RECORDS::EVERY ? FLASH_MANAGER_ACCESS::KEEP::EVERY
                                                             : FLASH_MANAGER_ACCESS::KEEP::ENABLED,
                               device_count);
    return manager;
}

MOXDEV_FLASH_MANAGER empty_flash_manager()
{
    return MOXDEV_FLASH_MANAGER(false, 1, true, false);
}

DWORD chain_length(const MOXDEV_FLASH_MANAGER& manager)
{
    return FLASH_MANAGER_ACCESS::chain_length(manager);
}

const MOXDEV_SFL_FLASH_INFO* user_flash(const MOXDEV_FLASH_MANAGER& manager)
{
    // The user record is kept by itself as well as in slot 0; its name is
    // empty when there is none.
    const bool defined = !FLASH_MANAGER_ACCESS::user_record(manager).device_name.empty();
    return defined && manager.get_flash_count() > 0 ? manager.get_flash_database() : nullptr;
}

DWORD find_flash_index(const MOXDEV_FLASH_MANAGER& manager, bool silicon_id_mode, const BYTE* id_bytes, DWORD id_count)
{
    return FLASH_MANAGER_ACCESS::first_match(manager, silicon_id_mode, id_bytes, id_count);
}

const MOXDEV_SFL_FLASH_INFO* find_flash(const MOXDEV_FLASH_MANAGER& manager, bool silicon_id_mode, const BYTE* id_bytes,
                                        DWORD id_count)
{
    const DWORD index = find_flash_index(manager, silicon_id_mode, id_bytes, id_count);
    return index == INVALID_DWORD ? nullptr : manager.get_flash_database() + index;
}

bool bind_flash(MOXDEV_FLASH_MANAGER& manager, bool silicon_id_mode, DWORD device_index, const BYTE* id_bytes,
                DWORD id_count)
{
    return FLASH_MANAGER_ACCESS::bind(manager, silicon_id_mode, device_index, id_bytes, id_count);
}

bool bind_flash_by_sfdp(MOXDEV_FLASH_MANAGER& manager, DWORD device_index, const BYTE* id_bytes, DWORD id_count,
                        const BYTE* sfdp, std::size_t sfdp_size, std::string* error)
{
    std::string reason;
    auto refuse = [&](const std::string& text) {
        if (error != nullptr)
            *error = text;
        return false;
    };
    // The table (and the user record) first: their facts are the makers'.
    if (bind_flash(manager, false, device_index, id_bytes, id_count))
        return true;
    if (id_bytes == nullptr || id_count < 3)
        return refuse("three Read-ID bytes (maker, type, capacity) are needed");

    MOXDEV_SFDP facts;
    if (!moxdev_decode_sfdp(sfdp, sfdp_size, facts, reason))
        return refuse("SFDP: " + reason);
    MOXDEV_SFDP_RECORD derived;
    if (!moxdev_sfdp_record(facts, id_bytes, "", maker_name(manager, id_bytes[0], id_bytes[1]),
                            MOXDEV_SFDP_ASSUMPTIONS{}, derived, reason))
        return refuse("SFDP: " + reason);

    // Behind the usable records: slots of records dropped while loading are
    // reused before the array grows.
    std::vector<MOXDEV_SFL_FLASH_INFO>& records = *FLASH_MANAGER_ACCESS::records(manager);
    DWORD& count = FLASH_MANAGER_ACCESS::count(manager);
    if (count < records.size())
        records[count] = derived.record;
    else
        records.push_back(derived.record);
    ++count;
    manager.set_flash_mapping_index(device_index, count - 1);
    msg_local_debug(2, "MOXDEV",
                    fmt::format("Device {} bound to its SFDP record {} at index {}", device_index + 1,
                                derived.record.device_name, count - 1));
    return true;
}

std::string maker_name(const MOXDEV_FLASH_MANAGER& manager, BYTE mfc_id, BYTE memory_type)
{
    const MOXDEV_SFL_FLASH_INFO* records = manager.get_flash_database();
    for (DWORD i = 0; records != nullptr && i < manager.get_flash_count(); ++i) {
        if (!records[i].silicon_id && records[i].mfc_id == mfc_id && records[i].memory_type == memory_type)
            return records[i].manufacturer_name;
    }
    return "";
}

} // namespace moxdev
