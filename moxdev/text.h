// The project's own rule for texts that are stored (names and answers in the
// user parameter file and the user flash value, cells of the generators'
// tables): printable, and no longer than the field holds.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace moxdev {

// Why `text` cannot be stored in a field of at most `most` characters: it
// holds a control character (a NUL among them: the packed texts end at one)
// or is too long; "" when it can.
std::string stored_text_problem(const std::string& text, std::size_t most);

// `text` in single quotes for a message about it: control characters shown
// as \xNN and anything past the 40th character cut, with the length said, so
// that a NUL or a megabyte-long cell cannot garble or flood the line that
// reports it.
std::string quoted(std::string_view text);

} // namespace moxdev
