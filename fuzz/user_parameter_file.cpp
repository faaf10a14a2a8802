// The user parameter file "mox_flash.ini" beside the library: every data set
// read, the HPS NAND and SPI lists loaded from it, and one set rewritten.
//
// Input: the file.
#include "fuzz_support.h"

#include <memory>

using namespace moxdev_fuzz;

namespace {

BYTES read_set(MOXDEV_FLASH_INI_ENUM set, bool& present)
{
    DWORD size = 0;
    const std::unique_ptr<BYTE[]> data(MOXDEV_FLASH_INI::read_flash_ini_data(set, size));
    present = data != nullptr;
    return present ? BYTES(data.get(), data.get() + size) : BYTES();
}

template <class MANAGER>
void load_list(std::size_t built_in)
{
    MANAGER* manager = MANAGER::get_mgr();
    require(manager != nullptr, "a manager");
    require(manager->get_list().size() == manager->get_user_list().size() + built_in,
            "the user's records come before the built-in ones");
    for (std::size_t i = 0; i < manager->get_user_list().size(); ++i)
        require(manager->get_list()[i] == manager->get_user_list()[i], "user records first");
    MANAGER::delete_mgr();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    write_file(scratch_path("mox_flash.ini"), data, size);

    bool present[4];
    BYTES sets[4];
    for (DWORD set = 0; set < 4; ++set) {
        sets[set] = read_set(MOXDEV_FLASH_INI_ENUM(set), present[set]);
        require(sets[set].size() <= size, "a set lies within the file");
    }
    require(!present[3], "only three sets are written");

    refused_cleanly([] { load_list<MOXDEV_HPS_NAND_MGR>(10); });
    refused_cleanly([] { load_list<MOXDEV_HPS_SPI_MGR>(27); });

    // Rewriting set 0 keeps whatever the other sets held.
    BYTES replacement(data, data + (size < 24 ? size : 24));
    require(MOXDEV_FLASH_INI::write_flash_ini_data(
                MOXDEV_FLASH_INI_SET_0, replacement.empty() ? nullptr : replacement.data(), DWORD(replacement.size())),
            "the file can be written");
    bool now_present = false;
    require(read_set(MOXDEV_FLASH_INI_SET_0, now_present) == replacement && now_present == !replacement.empty(),
            "the new set 0 reads back");
    for (DWORD set = 1; set < 3; ++set) {
        const BYTES kept = read_set(MOXDEV_FLASH_INI_ENUM(set), now_present);
        require(now_present == present[set] && kept == sets[set], "the other sets are kept");
    }
    return 0;
}
