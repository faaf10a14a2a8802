// The project's own way to read what a person hands the library or the
// command: input files (SFDP reads, images, answer files, tables), standard
// input and answers line by line, each bounded, none able to hang a reader
// (see moxdev/internal/moxdev_file_reader.h for how).
#pragma once

#include "host/host_types.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace moxdev {

// `path` as the file system resolves it (absolute, without "." and ".."),
// so that a message says exactly where a file was looked for; `path` itself
// when the system cannot tell.
std::string absolute_path(const std::string& path);

// Why the file at `path` cannot be read as an input: "no such file", "it is
// a directory", "it is a FIFO", "it is a symbolic link loop", the system's
// reason; "" when it can.
std::string unreadable_reason(const std::string& path);

// Reads the whole regular file at `path` through one descriptor. False, with
// the reason in `error`, when it cannot be read or holds more than `cap`
// bytes.
bool read_input_file(const std::string& path, std::size_t cap, std::vector<BYTE>& bytes, std::string& error);

// Reads descriptor `fd` (standard input: 0) to its end. False, with the
// reason, when it gives more than `cap` bytes: reading stops there, so an
// endless input ends too.
bool read_input_stream(int fd, std::size_t cap, std::vector<BYTE>& bytes, std::string& error);

// One line of answers, without its line end ("\n", "\r\n"). LINE with the
// line; END at the end of the input; TOO_LONG when the line passes `cap`
// characters (what was read of it is dropped, and reading stops there).
enum class LINE_READ { LINE, END, TOO_LONG };
LINE_READ read_answer_line(std::istream& in, std::string& line, std::size_t cap = 4096);

} // namespace moxdev
