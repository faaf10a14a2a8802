#include "host/gen_path.h"

#include <dlfcn.h>

#include <cstdlib>

// Path from the library's directory to its data directory, fixed at configure
// time from the install layout.
#ifndef MOXDEV_DATA_RELATIVE_DIR
#define MOXDEV_DATA_RELATIVE_DIR "../share/moxdev"
#endif

namespace {

std::string from_environment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? std::string(value) : std::string();
}

std::string find_library_directory()
{
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&gen_get_module_fullpath), &info) == 0 || info.dli_fname == nullptr)
        return ".";
    std::string path = info.dli_fname;
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

// The library does not move while it is loaded: asked once.
const std::string& library_directory()
{
    static const std::string directory = find_library_directory();
    return directory;
}

std::string data_directory()
{
    return library_directory() + "/" + MOXDEV_DATA_RELATIVE_DIR;
}

} // namespace

std::string gen_get_device_db_fullpath()
{
    const std::string configured = from_environment("MOXDEV_DEVICE_DB_DIR");
    return configured.empty() ? data_directory() : configured;
}

std::string gen_get_install_fullpath()
{
    const std::string configured = from_environment("MOXDEV_INSTALL_DIR");
    return configured.empty() ? data_directory() : configured;
}

std::string gen_get_module_fullpath()
{
    const std::string configured = from_environment("MOXDEV_MODULE_DIR");
    return configured.empty() ? library_directory() : configured;
}
