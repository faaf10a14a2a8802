// A small host program built against an installed moxdev: it loads both
// databases, binds a configuration flash by its Read-ID bytes, resolves a
// device name to its ordering part number and reads that part's record.
//
//   host_program [NAME [ID0 ID1 ID2]]     (defaults: kxb100, 20 BA 19)

#include "moxdev/moxdev.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

namespace {

bool parse_byte(const char* text, BYTE& out)
{
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 16);
    if (end == text || *end != '\0' || value > 0xFF)
        return false;
    out = static_cast<BYTE>(value);
    return true;
}

int run(const std::string& name, const BYTE (&id)[3])
{
    std::cout << "database directory: " << gen_get_device_db_fullpath() << "\n";

    MOXDEV_DEV_INFO_MANAGER db(false, 0);
    MOXDEV_FLASH_MANAGER flash(false, 1, false, false);
    std::cout << "loaded " << db.get_device_count() << " device records and " << flash.get_flash_count()
              << " flash records\n";

    // The flash behind device 0 of a one-device chain.
    char id_text[16];
    std::snprintf(id_text, sizeof id_text, "%02X %02X %02X", id[0], id[1], id[2]);
    // moxdev::bind_flash takes the number of bytes read; the manager's own
    // flash_id_database_mapping expects every byte a record may index.
    if (!moxdev::bind_flash(flash, false, 0, id, 3)) {
        std::cout << "flash " << id_text << ": unknown\n";
        return 1;
    }
    std::cout << "flash " << id_text << ": " << flash.sfl_get_manufacturer_name(0) << " "
              << flash.sfl_get_device_name(0) << ", " << flash.sfl_get_device_bit_size(0) << " bits, page program "
              << flash.sfl_get_program_utime(0) << " us\n";

    // The name as the user typed it, its ordering part number and the device.
    // Not const: the grammar queries normalise the string they are given.
    std::string full = MOXDEV_MGR::get_possible_full_name(name);
    if (full.empty()) {
        std::cout << "name " << name << ": unknown\n";
        return 1;
    }
    const std::string device = MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(full, false, false);
    char hash_text[24];
    std::snprintf(hash_text, sizeof hash_text, "0x%012llX",
                  static_cast<unsigned long long>(MOXDEV_MGR::get_opn_hash(full)));
    std::cout << "name " << name << ": ordering part " << full << ", device " << device << ", OPN hash " << hash_text
              << "\n";

    const int part = dstr_get_dev_part_enum_by_string(full.c_str());
    std::unique_ptr<MOXDEV_DEVICE_INFO> info(db.get_db_by_part(part));
    if (!info) {
        std::cout << "part " << full << ": no device record\n";
        return 1;
    }
    std::cout << "part " << full << ": record " << info->pcf << ", family " << dstr_get_user_string(info->family)
              << ", ASC " << (info->support_asc ? "supported" : "not supported") << "\n";
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::string name = "kxb100";
    BYTE id[3] = {0x20, 0xBA, 0x19};
    if (argc == 2 || argc == 5) {
        name = argv[1];
        for (int i = 0; argc == 5 && i < 3; ++i)
            if (!parse_byte(argv[2 + i], id[i])) {
                std::cerr << "host_program: not a hex byte: " << argv[2 + i] << "\n";
                return 1;
            }
    } else if (argc != 1) {
        std::cerr << "usage: host_program [NAME [ID0 ID1 ID2]]\n";
        return 1;
    }

    try {
        return run(name, id);
    } catch (const MSG_INTERNAL_ERROR& e) {
        std::cerr << "host_program: internal error: " << e.what() << "\n";
        return 2;
    }
}
