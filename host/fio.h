// File paths and file-system queries of the host.
#pragma once

#include "host/host_types.h"

#include <string>

class FIO_PATH {
public:
    FIO_PATH() = default;
    FIO_PATH(std::string path) : m_path(std::move(path)) {}
    FIO_PATH(const char* path) : m_path(path != nullptr ? path : "") {}

    std::string fullpath() const { return m_path; }

private:
    std::string m_path;
};

struct FIO_STAT {
    QWORD size = 0;
    bool is_regular_file = false;
};

class FIO_FILE_SYSTEM {
public:
    static bool exists(const char* path);
    // Fills `info` and returns true when the path can be queried.
    static bool status(const char* path, FIO_STAT* info);
};
