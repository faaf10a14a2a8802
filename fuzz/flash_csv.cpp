// Flash database generation from a flash table.
//
// Input: the CSV table. A generated file is loaded again with every record
// kept; the loader may still refuse it (default rules are checked only
// when loading), but only with an internal error.
#include "fuzz_support.h"

using namespace moxdev_fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    // The generated file is where the loader looks for the database.
    std::filesystem::create_directories(scratch_path("db/programmer"));
    ::setenv("MOXDEV_DEVICE_DB_DIR", scratch_path("db").c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string csv = scratch_path("table.csv");
    const std::string out = scratch_path("db/programmer/mox_flash.pcf");
    write_file(csv, data, size);
    std::remove(out.c_str());

    MOXDEV_FLASH_MANAGER generator = moxdev::empty_flash_manager();
    if (refused_cleanly([&] { generator.generate_flash_database(csv, out); }))
        return 0;
    refused_cleanly([&] {
        const MOXDEV_FLASH_MANAGER reader = moxdev::load_flash_database(moxdev::FLASH_RECORDS::EVERY);
        require(reader.get_flash_count() > 0 && reader.get_flash_database() != nullptr, "a loaded table has records");
    });
    return 0;
}
