// The device information database file, read through the manager's constructor.
//
// Input: a mode byte, then either the whole file (odd mode byte) or the
// inflated payload (even), which the target wraps in a correct header and
// zlib stream so that the fuzzer works on the record and table parser.
#include "fuzz_support.h"

#include <memory>

using namespace moxdev_fuzz;

namespace {

const std::string& database_path()
{
    static const std::string path = scratch_path("db/programmer/mox_dev_info.pcf");
    return path;
}

// Every lookup of a loaded database, on every family and device and on a
// spread of parts.
void query(MOXDEV_DEV_INFO_MANAGER& manager, bool listings)
{
    auto take = [](MOXDEV_DEVICE_INFO* record) { std::unique_ptr<MOXDEV_DEVICE_INFO> owned(record); };
    for (int family = 0; family < DEV_FAMILY_MAX; ++family) {
        refused_cleanly([&] { take(manager.get_db_by_family(DEV_FAMILY_ENUM(family))); });
        manager.get_family_index(DEV_FAMILY_ENUM(family));
    }
    for (int device = 0; device < DEV_DEVICE_MAX; ++device)
        refused_cleanly([&] { take(manager.get_db_by_device(DEV_DEVICE_ENUM(device))); });
    for (int part = 0; part < DEV_PART_MAX; part += 37)
        refused_cleanly([&] { take(manager.get_db_by_part(part)); });
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    require(records != nullptr || manager.get_device_count() == 0, "records of a loaded database");
    for (DWORD i = 0; records != nullptr && i < manager.get_device_count() && i < 8; ++i)
        moxdev_device_info_to_text(records[i]);
    if (listings) {
        manager.print_database(1);
        manager.print_database(2);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    ::setenv("MOXDEV_DEVICE_DB_DIR", scratch_path("db").c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    BYTE mode = 0;
    if (!take_mode(data, size, mode))
        return 0;
    if (mode & 1)
        write_file(database_path(), data, size);
    else
        write_file(database_path(), database_file("MOXIO_DM", MOXDEV_DEV_INFO_CSV_MD5, data, size));

    refused_cleanly([&] {
        MOXDEV_DEV_INFO_MANAGER manager(false, 0);
        query(manager, (mode & 2) != 0);
    });
    return 0;
}
