// Paths named on the command line: how they are shown, and whether a file
// can be written where one is asked for.
#pragma once

#include "moxdev/files.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <unistd.h>

namespace moxdev_cli {

// A path as the file system resolves it, for messages that must say exactly
// where a file was looked for.
inline std::string full_path(const std::string& path)
{
    return moxdev::absolute_path(path);
}

// Whether a file can be made in `directory`, with the reason when not. Only
// making one tells: a read-only file system refuses even a privileged user,
// to whom access(2) says yes. The outputs are written beside their name and
// renamed over it, so a probe file beside it answers for them.
inline bool can_create_file_in(const std::string& directory, std::string& reason)
{
    std::string probe = (directory.empty() ? std::string(".") : directory) + "/.moxdev-probe-XXXXXX";
    const int fd = ::mkstemp(probe.data());
    if (fd < 0) {
        reason = std::strerror(errno);
        return false;
    }
    ::close(fd);
    ::unlink(probe.c_str());
    return true;
}

} // namespace moxdev_cli
