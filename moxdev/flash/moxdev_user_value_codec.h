// The text form of a user flash value (the configuration value
// "MOX_SUPPORT_EXT_SPI_DEV"), used by the flash manager's own members and by
// the project's functions in moxdev/user_flash.h.
//
// A value is "definition#check;" one to three times over, deflated with zlib
// and written six bits per printable character. A definition is the record's
// 33 fields, each behind an '@', with a closing '@'; the check value is 16
// letters derived from the definition and the tool version, so a value
// written by another version, or damaged, is told apart.
//
// Nothing here prints: a failure comes back as the flash manager's own
// message text, which its members print and the project's functions wrap.
#pragma once

#include "host/host_types.h"

#include <string>

namespace moxdev::detail {

// The most a user value inflates to: a definition is a few hundred
// characters, so a value claiming more is as damaged as one that does not
// inflate.
constexpr DWORD MAX_USER_VALUE_TEXT = 64 * 1024;

// Deflates `text` and writes it six bits per character. False with the
// reason in `error` when zlib fails.
bool encode_user_value(const std::string& text, std::string& encoded, std::string& error);
// The inverse: false with the reason when a character is not of the
// alphabet or the bytes do not inflate (to at most MAX_USER_VALUE_TEXT).
// The loader accepts bytes after the end of the stream, as zlib's one-shot
// inflate does; `whole_stream` refuses them, since an encoder never writes any.
bool decode_user_value(const std::string& encoded, std::string& text, std::string& error, bool whole_stream = false);

// The 16-letter check value of a non-empty definition under this tool
// version.
std::string user_value_check(const std::string& definition);

// The first entry of a decoded value: the text before the first '#' and the
// text between it and the first ';'. False, with both empty, when there is no
// '#' or no ';' after it.
bool split_user_value(const std::string& decoded, std::string& definition, std::string& check);

} // namespace moxdev::detail
