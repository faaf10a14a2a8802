#include "moxdev/generate.h"

#include "moxdev/flash.h"
#include "moxdev/internal/moxdev_file_store.h"
#include "moxdev/moxdev_dev_info_manager.h"

namespace moxdev {

bool generate_device_database(const std::string& csv, const std::string& out, unsigned& records, std::string& error)
{
    MOXDEV_DEV_INFO_MANAGER manager(true, 0);
    const bool written = moxdev_replace_file_by(
        out, [&](const std::string& temporary) { manager.generate_device_database(csv, temporary); }, error);
    records = written ? manager.get_device_count() : 0;
    return written;
}

bool generate_flash_database(const std::string& csv, const std::string& out, std::string& error)
{
    MOXDEV_FLASH_MANAGER manager = empty_flash_manager();
    return moxdev_replace_file_by(
        out, [&](const std::string& temporary) { manager.generate_flash_database(csv, temporary); }, error);
}

} // namespace moxdev
