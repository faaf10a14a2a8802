// The project's own functions on the serial flash database, beside the flash
// manager's documented members (moxdev/moxdev_flash_manager.h): what a tool
// needs that the manager does not offer, on the same records.
#pragma once

#include "moxdev/moxdev_flash_manager.h"

#include "host/host_types.h"

#include <cstddef>
#include <string>

namespace moxdev {

// Which records load_flash_database() keeps.
enum class FLASH_RECORDS {
    USABLE, // those whose MOX_ALLOW_ switch is on (or that need none), as the manager loads them
    EVERY,  // every record of the file, whatever its switch says (listings of the whole table)
};

// The flash database of the default database directory for a chain of
// `device_count` devices, as MOXDEV_FLASH_MANAGER(false, device_count, false,
// false) loads it, but keeping the records `which` says. Record 0 is the user
// flash when the configuration defines one. Internal errors as the manager's.
MOXDEV_FLASH_MANAGER load_flash_database(FLASH_RECORDS which = FLASH_RECORDS::USABLE, DWORD device_count = 1);

// A manager that loads nothing (MOXDEV_FLASH_MANAGER(false, 1, true,
// false)): for the generator, the dialogue and the user value's codec.
MOXDEV_FLASH_MANAGER empty_flash_manager();

// The number of devices of the chain the manager was loaded for.
DWORD chain_length(const MOXDEV_FLASH_MANAGER& manager);

// The user-defined flash (record 0) when the configuration value
// MOX_SUPPORT_EXT_SPI_DEV defines one that the manager accepted, else null.
const MOXDEV_SFL_FLASH_INFO* user_flash(const MOXDEV_FLASH_MANAGER& manager);

// The index of the record the manager would bind to `id_count` ID bytes read
// from a chip (a record that indexes a byte beyond them does not match),
// INVALID_DWORD when none does. Binds nothing.
DWORD find_flash_index(const MOXDEV_FLASH_MANAGER& manager, bool silicon_id_mode, const BYTE* id_bytes, DWORD id_count);
// That record, or null.
const MOXDEV_SFL_FLASH_INFO* find_flash(const MOXDEV_FLASH_MANAGER& manager, bool silicon_id_mode, const BYTE* id_bytes,
                                        DWORD id_count);

// Binds device `device_index` of the chain as flash_id_database_mapping()
// does, for `id_count` bytes: true when a record matched; otherwise the
// device is unbound.
bool bind_flash(MOXDEV_FLASH_MANAGER& manager, bool silicon_id_mode, DWORD device_index, const BYTE* id_bytes,
                DWORD id_count);

// Binds device `device_index` to the chip that answered `id_bytes` (at least
// maker, type and capacity) and, for a chip no record knows, to the record
// derived from its SFDP read (`sfdp`, `sfdp_size` bytes from address 0; see
// moxdev/moxdev_sfdp.h). A record of the table, or the user record, always
// wins for an ID it knows. A derived record is added behind the others, so
// pointers from get_flash_database() must be asked for again. False, with
// the reason in `error`, when neither binds.
bool bind_flash_by_sfdp(MOXDEV_FLASH_MANAGER& manager, DWORD device_index, const BYTE* id_bytes, DWORD id_count,
                        const BYTE* sfdp, std::size_t sfdp_size, std::string* error = nullptr);

// The maker name of the first record with this maker and type byte, "" if
// none (makers that share a code, like Micron and XMC, differ in type).
std::string maker_name(const MOXDEV_FLASH_MANAGER& manager, BYTE mfc_id, BYTE memory_type);

} // namespace moxdev
