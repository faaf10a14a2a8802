// Name tables of the device information database.
//
// The field tables follow the record layout in moxdev_device_info_fields.def.
// The identifier tables are generated at build time from the device
// catalogue: they turn the names written in the device CSV into catalogue
// values (generation) and back (listings). Each table is searched linearly
// from its first entry; the first match wins.
#pragma once

#include "host/host_types.h"

#include <cstddef>

struct MOXDEV_NAME_VALUE {
    const char* name;
    DWORD value;
};

struct MOXDEV_NAME_TABLE {
    const MOXDEV_NAME_VALUE* entries;
    std::size_t count;
};

// "family": one identifier per family value below DEV_FAMILY_MAX.
extern const MOXDEV_NAME_TABLE MOXDEV_FAMILY_ID_TABLE;
// "device": the device identifiers that the device table names.
extern const MOXDEV_NAME_TABLE MOXDEV_DEVICE_ID_TABLE;
// "part": the part identifiers that the device table names.
extern const MOXDEV_NAME_TABLE MOXDEV_PART_ID_TABLE;
// "" (ENUM columns): "DEV_FAMILY_" identifiers of the families that option
// columns may name.
extern const MOXDEV_NAME_TABLE MOXDEV_OPTION_ID_TABLE;
