// Writing the outputs of the build-time generators.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace moxdev_tools {

// Writes `content` to `path` unless the file already holds exactly that, so
// that an unchanged output keeps its time stamp and rebuilds stay
// incremental. The file is written beside its destination and renamed into
// place. Returns whether it was written; throws std::runtime_error when it
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
    std::filesystem::path temporary = path;
    temporary += ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << content;
        out.close();
        if (!out) {
            std::filesystem::remove(temporary, error);
            throw std::runtime_error("cannot write " + temporary.string());
        }
    }
    std::filesystem::rename(temporary, path, error);
    if (error) {
        std::filesystem::remove(temporary, error);
        throw std::runtime_error("cannot replace " + path.string() + ": " + error.message());
    }
    return true;
}

} // namespace moxdev_tools
