// Reads the bytes of a memory read the way people keep and post them: the raw
// binary, `hexdump -C` output (with its `*` repeat lines and closing offset),
// `xxd` and `xxd -p` output, or plain hex bytes ("53 46 44 50", "0x53,0x46").
// In the text forms, blank lines and lines starting with '#' are skipped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace moxdev {

// Fills `bytes` from `input`. Input whose first four bytes are `binary_magic`
// is taken as binary; anything else must be one of the text forms. At most
// `limit` bytes are accepted. On failure returns false with a one-line
// `error`.
bool read_dump(const std::string& input, const std::string& binary_magic, std::size_t limit,
               std::vector<std::uint8_t>& bytes, std::string& error);

} // namespace moxdev
