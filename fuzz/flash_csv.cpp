// Flash database generation from a flash table.
//
// Input: the CSV table. A generated file is loaded again with every record
// enabled; the loader may still refuse it (default rules are checked only
// when loading), but only with an internal error.
#include "fuzz_support.h"

using namespace moxdev_fuzz;

namespace {

class FLASH : public MOXDEV_FLASH_MANAGER {
public:
    FLASH() : MOXDEV_FLASH_MANAGER(false, 0, true, false) {}
    void load(const std::string& path)
    {
        m_enable_all = true;
        initialize_flash_database(path);
    }
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    std::filesystem::create_directories(scratch_path("out"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string csv = scratch_path("table.csv");
    const std::string out = scratch_path("out/mox_flash.pcf");
    write_file(csv, data, size);
    std::remove(out.c_str());

    FLASH generator;
    if (refused_cleanly([&] { generator.generate_flash_database(csv, out); }))
        return 0;
    refused_cleanly([&] {
        FLASH reader;
        reader.load(out);
        require(reader.get_flash_count() > 0 && reader.get_flash_database() != nullptr,
                "a loaded table has records");
    });
    return 0;
}
