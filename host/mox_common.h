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

    // CRC over `bit_count` bits of `data` starting at bit `start_bit`, most
    // significant bit of each byte first when `msb_first`, with the given
    // initial register and polynomial; the register is returned as it stands
    // (the caller applies any final complement). With initial 0xFFFFFFFF,
    // polynomial 0x04C11DB7 and the complement this is CRC-32/BZIP2.
    static DWORD msb_calculate_crc32(const BYTE* data, DWORD start_bit, DWORD bit_count, DWORD initial,
                                     DWORD polynomial, bool msb_first);

    // A newly allocated digest of `length` bytes (new[], the caller frees it
    // with delete[]): SHA-256 for a digest length of 32. Null for any other
    // length or when the digest cannot be made.
    static BYTE* get_block_sha(const BYTE* data, DWORD length, DWORD digest_length);

    // Equality of two texts, ignoring letter case unless `case_sensitive`.
    static bool compare_string(const std::string& a, const std::string& b, bool case_sensitive);

    // Sends an automatic notification. The stand-alone host has no mail
    // service: it writes the notice to standard error and, when
    // MOXDEV_NOTICES_FILE names one, appends it to that file. Returns false
    // when the file cannot be written.
    static bool send_auto_email_file(const std::string& recipients, const std::string& subject,
                                     const std::string& body);
};
