// Reading the files the library and the command are given, so that no input
// can hang them, grow them without bound or be seen half-changed.
//
// A file is opened once, without blocking (a FIFO or a device answers at
// once instead of waiting for a writer) and, where asked, without following
// a symbolic link; what kind of file it is and how large it is come from that
// same descriptor, never from an earlier look by name, so a writer's rename in
// between is seen as the old file or the new one. Only regular files are read,
// and never more than a cap that fits what the file can hold.
#pragma once

#include "host/host_types.h"

#include <cstddef>
#include <string>
#include <vector>

namespace moxdev::detail {

enum class READ_RESULT {
    READ,       // the whole file is in the buffer
    MISSING,    // there is no file (or no directory on the way to it)
    NOT_A_FILE, // a directory, FIFO, device, socket or symbolic link (loop)
    TOO_LARGE,  // more bytes than the cap
    FAILED,     // the system refused to open or read it
};

struct READ_OPTIONS {
    std::size_t cap = 16 * 1024 * 1024;
    // Refuse a symbolic link as the last part of the path.
    bool no_follow = false;
};

// Reads the regular file at `path` whole into `bytes`. Anything but READ
// comes with a readable `error` that says why ("it is a FIFO", the system's
// reason); the caller names the file.
READ_RESULT read_file(const std::string& path, std::vector<BYTE>& bytes, std::string& error,
                      const READ_OPTIONS& options = {});

// Opens a regular file for reading as read_file() does: the descriptor, or
// -1 with the result and the error.
int open_regular_file(const std::string& path, READ_RESULT& result, std::string& error, bool no_follow = false);

// Reads the lines of a file or a stream through one descriptor, a bounded
// piece at a time: a line longer than `line_cap` bytes is an error, not a
// buffer that grows without end.
class LINE_READER {
public:
    // Opens `path` as read_file() does; good() tells whether it could.
    LINE_READER(const std::string& path, std::size_t line_cap);
    // Reads `fd` (not closed at the end), e.g. standard input.
    LINE_READER(int fd, std::size_t line_cap);
    ~LINE_READER();
    LINE_READER(const LINE_READER&) = delete;
    LINE_READER& operator=(const LINE_READER&) = delete;

    bool good() const { return m_fd >= 0 && m_error.empty(); }
    READ_RESULT result() const { return m_result; }
    const std::string& error() const { return m_error; }

    // The next line without its line end ("\n", "\r\n" or a lone "\r");
    // false at the end of the input or after an error (a line too long, a
    // read the system refused).
    bool next(std::string& line);
    // The number of the line next() returned last, from 1.
    std::size_t line_number() const { return m_line_number; }

private:
    bool fill();

    int m_fd = -1;
    bool m_owned = false;
    std::size_t m_line_cap;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0, m_end = 0;
    bool m_eof = false;
    bool m_after_cr = false; // the last line ended in '\r': a '\n' right after belongs to it
    std::size_t m_line_number = 0;
    READ_RESULT m_result = READ_RESULT::READ;
    std::string m_error;
};

} // namespace moxdev::detail
