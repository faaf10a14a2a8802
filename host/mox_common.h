// Services of the programmer's common library.
#pragma once

#include "host/host_types.h"

#include <string>

class MOX_COMMON {
public:
    // Converts decimal ("1234") or hexadecimal ("0x4D2", "0X4d2") text to a
    // DWORD. Returns false, leaving `value` unchanged, for empty text, any
    // other character, or a number above 0xFFFFFFFF.
    static bool convert_string_to_dword(const std::string& text, DWORD& value);

    // Sends an automatic notification. The stand-alone host has no mail
    // service: it writes the notice to standard error and appends it to the
    // notices file (MOXDEV_NOTICES_FILE, or moxdev-notices.txt in the build
    // directory). Returns whether the notice reached the file.
    static bool send_auto_email_file(const std::string& recipients, const std::string& subject,
                                     const std::string& body);
};
