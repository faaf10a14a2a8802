// Field name and type tables of the device record, expanded from the field
// list. The identifier tables are generated from the catalogue at build time
// (moxdev_dev_info_ids.cpp in the build tree).
#include "moxdev/moxdev_dev_info_manager_auto_export.h"
#include "moxdev/moxdev_dev_info_manager.h"

const char* const MOXDEV_DEVICE_FIELD_NAMES[TOTAL_DEVICE_DATABASE_MEMBER] = {
#define MOXDEV_DEVICE_FIELD(name, stream_type, type) #name,
#include "moxdev/moxdev_device_info_fields.def"
};

const MOXDEV_MANAGER_TYPE MOXDEV_DEVICE_FIELD_TYPES[TOTAL_DEVICE_DATABASE_MEMBER] = {
#define MOXDEV_DEVICE_FIELD(name, stream_type, type) MOXDEV_MANAGER_##stream_type,
#include "moxdev/moxdev_device_info_fields.def"
};

namespace {

constexpr DWORD listed_field_count()
{
    DWORD count = 0;
#define MOXDEV_DEVICE_FIELD(name, stream_type, type) ++count;
#include "moxdev/moxdev_device_info_fields.def"
    return count;
}

static_assert(listed_field_count() == TOTAL_DEVICE_DATABASE_MEMBER,
              "the field list must hold every field of the device record");

} // namespace
