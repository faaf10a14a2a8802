// The serial flash database file, read through the manager.
//
// Input: a mode byte, then either the whole file (bit 0 set) or the inflated
// payload, which the target wraps in a correct header and zlib stream. Bit 1
// keeps every record whatever its switch says; bit 2 adds a valid user flash
// definition, which becomes record 0.
#include "fuzz_support.h"

#include <algorithm>

using namespace moxdev_fuzz;

namespace {

// A user definition accepted by this build: one chip as `moxdev flash define`
// makes it, with its check value computed here.
std::string user_flash_value()
{
    static const std::string value = [] {
        const std::string definition =
            "@ACME@CHIP1@0@25@2@186@1@32@0@32@1@NONE@0@1@0@0@0@1@1@268435456@65536@0@1@400@3@1800@"
            "92@92@0@4@5@1@3.3V@";
        const MOXDEV_FLASH_MANAGER codec = moxdev::empty_flash_manager();
        return codec.encode_ini(definition + "#" + codec.gen_ini_password(definition) + ";");
    }();
    return value;
}

// Binds a device to each record by the record's own ID bytes and reads the
// bound record back.
void query(MOXDEV_FLASH_MANAGER& manager)
{
    const MOXDEV_SFL_FLASH_INFO* records = manager.get_flash_database();
    const DWORD count = std::min<DWORD>(manager.get_flash_count(), 64);
    for (DWORD i = 0; records != nullptr && i < count; ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = records[i];
        moxdev_flash_info_to_text(record);
        manager.get_default_flash(record.device_name);
        BYTE id[256] = {};
        id[record.mfc_id_index] = record.mfc_id;
        if (record.memory_type_index != 255)
            id[record.memory_type_index] = record.memory_type;
        id[record.memory_id_index] = record.memory_id;
        refused_cleanly([&] {
            if (manager.flash_id_database_mapping(record.silicon_id, 0, id)) {
                manager.sfl_get_device_bit_size(0);
                manager.sfl_get_device_name(0);
                manager.sfl_get_chain_longest_program_utime();
                const DWORD bound = manager.get_flash_mapping_index(0, false);
                require(bound < manager.get_flash_count(), "a binding names a record");
            }
            moxdev::bind_flash(manager, !record.silicon_id, 0, id, 3);
        });
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    ::setenv("MOXDEV_DEVICE_DB_DIR", scratch_path("db").c_str(), 1);
    user_flash_value();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    BYTE mode = 0;
    if (!take_mode(data, size, mode))
        return 0;
    const std::string path = scratch_path("db/programmer/mox_flash.pcf");
    if (mode & 1)
        write_file(path, data, size);
    else
        write_file(path, database_file("MOXIO_FM", MOXDEV_FLASH_INFO_CSV_MD5, data, size));
    if (mode & 4)
        ::setenv("MOX_SUPPORT_EXT_SPI_DEV", user_flash_value().c_str(), 1);
    else
        ::unsetenv("MOX_SUPPORT_EXT_SPI_DEV");

    refused_cleanly([&] {
        if (mode & 2) {
            MOXDEV_FLASH_MANAGER manager = moxdev::load_flash_database(moxdev::FLASH_RECORDS::EVERY, 2);
            query(manager);
        } else {
            MOXDEV_FLASH_MANAGER manager = moxdev::load_flash_database(moxdev::FLASH_RECORDS::USABLE, 2);
            query(manager);
        }
    });
    return 0;
}
