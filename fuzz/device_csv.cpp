// Device database generation from a device table.
//
// Input: the CSV table. A table the generator accepts must give a file that
// the reader loads and that serves every family and device: anything else is
// a finding.
#include "fuzz_support.h"

#include <memory>
#include <sstream>

using namespace moxdev_fuzz;

namespace {

class DEV_INFO : public MOXDEV_DEV_INFO_MANAGER {
public:
    DEV_INFO() : MOXDEV_DEV_INFO_MANAGER(true, 0) {}
    using MOXDEV_DEV_INFO_MANAGER::initialize_device_database;
};

// A short part list (its header, the first parts, then every 97th), so that a
// run spends its time on the table rather than on the catalogue.
void write_part_list()
{
    std::ifstream in(data_dir() + "/h/mox_parts.txt");
    std::ostringstream out;
    std::string line;
    for (int n = 0; std::getline(in, line); ++n) {
        if (n < 400 || n % 97 == 0)
            out << line << "\n";
    }
    const std::string text = out.str();
    write_file(scratch_path("install/h/mox_parts.txt"), text.data(), text.size());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    std::filesystem::create_directories(scratch_path("out"));
    write_part_list();
    ::setenv("MOXDEV_INSTALL_DIR", scratch_path("install").c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string csv = scratch_path("table.csv");
    const std::string out = scratch_path("out/mox_dev_info.pcf");
    write_file(csv, data, size);
    std::remove(out.c_str());

    DEV_INFO generator;
    if (refused_cleanly([&] { generator.generate_device_database(csv, out); }))
        return 0;

    // What the generator wrote, its own reader must take.
    try {
        DEV_INFO reader;
        reader.initialize_device_database(out);
        require(reader.get_device_count() == TOTAL_DATABASE_DEVICE, "every record read back");
        for (int family = 1; family < DEV_FAMILY_MAX; ++family)
            std::unique_ptr<MOXDEV_DEVICE_INFO>(reader.get_db_by_family(DEV_FAMILY_ENUM(family)));
        for (int device = 1; device < DEV_DEVICE_MAX; ++device)
            require(std::unique_ptr<MOXDEV_DEVICE_INFO>(reader.get_db_by_device(DEV_DEVICE_ENUM(device))) != nullptr,
                    "every device is served");
    } catch (const MSG_INTERNAL_ERROR& error) {
        std::fprintf(stderr, "generated database refused: %s\n", error.what());
        std::abort();
    }
    return 0;
}
