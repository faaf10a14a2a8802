// Every host service the library relies on, and the device catalogue: the
// paths, configuration, version, message, compression, string and file
// services of the stand-alone host (moxdev/moxdev.h includes this too).
#pragma once

#include "host/cfg.h"
#include "host/dev_catalogue.h"
#include "host/fio.h"
#include "host/gen_path.h"
#include "host/gen_string.h"
#include "host/host_types.h"
#include "host/mox_common.h"
#include "host/msg.h"
#include "host/ver.h"
#include "host/zlib_wrapper.h"
