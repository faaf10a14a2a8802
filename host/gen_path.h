// Directories of the installation, each overridable from the environment.
//
// Every accessor reads the environment at every call. The defaults are found
// relative to the loaded moxdev library, so the build tree (which mirrors the
// install layout) and an installed copy both find their own data.
#pragma once

#include <string>

// Directory holding programmer/mox_dev_info.pcf and programmer/mox_flash.pcf.
// Override: MOXDEV_DEVICE_DB_DIR.
std::string gen_get_device_db_fullpath();

// Installation directory; the part list is h/mox_parts.txt below it.
// Override: MOXDEV_INSTALL_DIR.
std::string gen_get_install_fullpath();

// Directory of the loaded moxdev library file (user parameter file).
// Override: MOXDEV_MODULE_DIR.
std::string gen_get_module_fullpath();
