// The project's own rule for texts that are stored (names and answers in the
// user parameter file and the user flash value, cells of the generators'
// tables): printable, and no longer than the field holds.
#pragma once

#include <cstddef>
#include <string>

namespace moxdev {

// Why `text` cannot be stored in a field of at most `most` characters: it
// holds a control character (a NUL among them: the packed texts end at one)
// or is too long; "" when it can.
std::string stored_text_problem(const std::string& text, std::size_t most);

} // namespace moxdev
