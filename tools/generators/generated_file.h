// Writing the outputs of the build-time generators.
#pragma once

#include "moxdev/internal/moxdev_file_store.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace moxdev_tools {

// Writes `content` to `path` unless the file already holds exactly that, so
// that an unchanged output keeps its time stamp and rebuilds stay
// incremental. The file is replaced the way the library replaces its own
// files (moxdev_file_store.h). Returns whether it was written; throws std::runtime_error when it
// cannot be.
inline bool store_if_changed(const std::filesystem::path& path, const std::string& content)
{
    {
        std::ifstream old(path, std::ios::binary);
        if (old && std::string(std::istreambuf_iterator<char>(old), std::istreambuf_iterator<char>()) == content)
            return false;
    }
    std::error_code error;
    if (path.has_parent_path()) {
        std::filesystem::create_directories(path.parent_path(), error);
        if (error)
            throw std::runtime_error("cannot create " + path.parent_path().string() + ": " + error.message());
    }
    std::string failure;
    if (!moxdev_replace_file(path.string(), std::vector<BYTE>(content.begin(), content.end()), failure))
        throw std::runtime_error(failure);
    return true;
}

} // namespace moxdev_tools
