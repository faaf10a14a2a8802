// moxdev: device support for FPGA/CPLD programmers.
//
// Including this header declares every exported class of the library, the
// record types, the shared integer types and the host services the library
// relies on.
//
// Two surfaces: the upper-case classes (moxdev_*.h: MOXDEV_FLASH_MANAGER,
// MOXDEV_FLASH_INI, ...) keep the documented interface of the programmer's
// device-support library, result for result and message for message; what
// this project adds for people and scripts (forgiving dialogues, locked
// updates, lookups by a count of ID bytes, SFDP binding) lives in namespace
// moxdev, in headers of its own: moxdev/flash.h, moxdev/user_flash.h,
// moxdev/parameter_file.h, moxdev/generate.h, moxdev/hps.h and
// moxdev/table.h.
#pragma once

#include "host/host.h"

#include "moxdev/moxdev_database_codec.h"
#include "moxdev/moxdev_ddb_mgr.h"
#include "moxdev/moxdev_dev_info_manager.h"
#include "moxdev/moxdev_flash_ini.h"
#include "moxdev/moxdev_flash_manager.h"
#include "moxdev/moxdev_hps_mgr.h"
#include "moxdev/moxdev_mgr.h"
#include "moxdev/moxdev_sfdp.h"

#include "moxdev/files.h"
#include "moxdev/flash.h"
#include "moxdev/flash_sources.h"
#include "moxdev/generate.h"
#include "moxdev/hps.h"
#include "moxdev/parameter_file.h"
#include "moxdev/table.h"
#include "moxdev/text.h"
#include "moxdev/user_flash.h"
