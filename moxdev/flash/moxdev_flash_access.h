// The one door through which the project's own flash functions (moxdev/flash.h,
// moxdev/user_flash.h) reach a flash manager's records and protected steps.
// Library sources only; clients use those headers.
#pragma once

#include "moxdev/moxdev_flash_manager.h"

namespace moxdev::detail {

struct FLASH_MANAGER_ACCESS {
    using KEEP = MOXDEV_FLASH_MANAGER::KEEP;

    // Loads `file` into an empty manager (made with skip_loading), keeping
    // the records `keep` says, and attaches a chain of `device_count`.
    static void load(MOXDEV_FLASH_MANAGER& manager, const std::string& file, KEEP keep, DWORD device_count)
    {
        manager.load(file, keep);
        manager.attach_chain(device_count);
    }
    static std::vector<MOXDEV_SFL_FLASH_INFO>* records(MOXDEV_FLASH_MANAGER& manager)
    {
        return manager.m_flash_database.get();
    }
    static DWORD& count(MOXDEV_FLASH_MANAGER& manager) { return manager.m_flash_count; }
    static const MOXDEV_SFL_FLASH_INFO& user_record(const MOXDEV_FLASH_MANAGER& manager)
    {
        return manager.m_ini_database;
    }
    static DWORD chain_length(const MOXDEV_FLASH_MANAGER& manager) { return manager.m_device_count; }
    static DWORD first_match(const MOXDEV_FLASH_MANAGER& manager, bool silicon_id_mode, const BYTE* id_bytes,
                             DWORD id_count)
    {
        return manager.first_match(silicon_id_mode, id_bytes, id_count);
    }
    static bool bind(MOXDEV_FLASH_MANAGER& manager, bool silicon_id_mode, DWORD device_index, const BYTE* id_bytes,
                     DWORD id_count)
    {
        return manager.bind(silicon_id_mode, device_index, id_bytes, id_count);
    }
    // The fields of a definition text as the loader reads them into
    // `record`; false when one is invalid (those before it are filled in).
    static bool read_definition(const std::string& definition, MOXDEV_SFL_FLASH_INFO& record)
    {
        MOXDEV_FLASH_MANAGER reader(false, 1, true, false); // loads nothing
        const bool valid = reader.read_definition(definition);
        record = reader.m_ini_database;
        return valid;
    }
};

} // namespace moxdev::detail
