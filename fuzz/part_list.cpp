// The part list of the installation (h/mox_parts.txt), read by the device
// manager, and the programming-file searches over what it read.
//
// Input: the part list text.
#include "fuzz_support.h"

#include <algorithm>

using namespace moxdev_fuzz;

namespace {

class DEV_INFO : public MOXDEV_DEV_INFO_MANAGER {
public:
    DEV_INFO() : MOXDEV_DEV_INFO_MANAGER(false, 0) {}
    using MOXDEV_DEV_INFO_MANAGER::parse_mox_parts;
    using MOXDEV_DEV_INFO_MANAGER::search_pcf_for_device;
    using MOXDEV_DEV_INFO_MANAGER::search_pcf_for_part;
    const std::vector<MOXDEV_PART_LIST_ENTRY>& entries() const { return *m_part_list; }
    DWORD index() const { return m_index; }
};

// The shipped database, loaded once.
DEV_INFO& manager()
{
    static DEV_INFO loaded;
    return loaded;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    manager();
    ::setenv("MOXDEV_INSTALL_DIR", scratch_path("install").c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    write_file(scratch_path("install/h/mox_parts.txt"), data, size);
    DEV_INFO& dev_info = manager();
    if (refused_cleanly([&] { dev_info.parse_mox_parts(); }))
        return 0;

    const std::vector<MOXDEV_PART_LIST_ENTRY> entries = dev_info.entries();
    const std::size_t count = std::min<std::size_t>(entries.size(), 64);
    for (std::size_t i = 0; i < count; ++i) {
        if (dev_info.search_pcf_for_device(entries[i].device))
            require(dev_info.index() < dev_info.get_device_count(), "a found record exists");
        if (dev_info.search_pcf_for_part(entries[i].part))
            require(dev_info.index() < dev_info.get_device_count(), "a found record exists");
    }
    dev_info.search_pcf_for_device(DEV_DEVICE_GENERIC);
    dev_info.search_pcf_for_part(DEV_PART_GENERIC);
    return 0;
}
