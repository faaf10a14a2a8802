#include "host/mox_common.h"

#include "host/gen_string.h"

#include <openssl/evp.h>

#include <array>

#include <cstdio>
#include <cstdlib>
#include <fstream>

bool MOX_COMMON::convert_string_to_dword(const std::string& text, DWORD& value)
{
    std::size_t pos = 0;
    unsigned base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        pos = 2;
    }
    if (pos >= text.size())
        return false;
    QWORD result = 0;
    for (; pos < text.size(); ++pos) {
        const char c = text[pos];
        unsigned digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<unsigned>(c - '0');
        else if (base == 16 && c >= 'a' && c <= 'f')
            digit = static_cast<unsigned>(c - 'a' + 10);
        else if (base == 16 && c >= 'A' && c <= 'F')
            digit = static_cast<unsigned>(c - 'A' + 10);
        else
            return false;
        result = result * base + digit;
        if (result > 0xFFFFFFFFull)
            return false;
    }
    value = static_cast<DWORD>(result);
    return true;
}

bool MOX_COMMON::send_auto_email_file(const std::string& recipients, const std::string& subject,
                                      const std::string& body)
{
    std::fprintf(stderr, "notice: %s\n%s", subject.c_str(), body.c_str());
    // Without a notices file the notice goes to standard error only.
    const char* path = std::getenv("MOXDEV_NOTICES_FILE");
    if (path == nullptr || *path == '\0')
        return true;
    std::ofstream out(path, std::ios::app);
    if (!out)
        return false;
    out << "To: " << recipients << "\nSubject: " << subject << "\n\n" << body << "\n";
    return static_cast<bool>(out.flush());
}

namespace {

// Byte-at-a-time table of the register update for one polynomial, most
// significant bit first.
std::array<DWORD, 256> crc32_msb_table(DWORD polynomial)
{
    std::array<DWORD, 256> table{};
    for (DWORD byte = 0; byte < 256; ++byte) {
        DWORD crc = byte << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 0x80000000u ? (crc << 1) ^ polynomial : crc << 1;
        table[byte] = crc;
    }
    return table;
}

// Tables for eight bytes at a step: slice[k][b] is the register update for
// byte b followed by k zero bytes.
struct CRC32_SLICES {
    std::array<std::array<DWORD, 256>, 8> slice;

    explicit CRC32_SLICES(DWORD polynomial)
    {
        slice[0] = crc32_msb_table(polynomial);
        for (std::size_t k = 1; k < 8; ++k) {
            for (DWORD byte = 0; byte < 256; ++byte) {
                const DWORD previous = slice[k - 1][byte];
                slice[k][byte] = (previous << 8) ^ slice[0][previous >> 24];
            }
        }
    }
};

} // namespace

DWORD MOX_COMMON::msb_calculate_crc32(const BYTE* data, DWORD start_bit, DWORD bit_count, DWORD initial,
                                      DWORD polynomial, bool msb_first)
{
    DWORD crc = initial;
    QWORD bit = start_bit;
    const QWORD end = QWORD(start_bit) + bit_count;
    // Whole bytes go through a table; odd bits at either end one at a time.
    if (msb_first && bit % 8 == 0 && end - bit >= 8) {
        static const DWORD cached_polynomial = 0x04C11DB7u;
        static const CRC32_SLICES cached(cached_polynomial);
        if (polynomial == cached_polynomial) {
            const auto& t = cached.slice;
            for (; end - bit >= 64; bit += 64) {
                const BYTE* b = &data[bit / 8];
                crc ^= DWORD(b[0]) << 24 | DWORD(b[1]) << 16 | DWORD(b[2]) << 8 | DWORD(b[3]);
                crc = t[7][crc >> 24] ^ t[6][(crc >> 16) & 0xFF] ^ t[5][(crc >> 8) & 0xFF] ^ t[4][crc & 0xFF] ^
                      t[3][b[4]] ^ t[2][b[5]] ^ t[1][b[6]] ^ t[0][b[7]];
            }
        }
        const std::array<DWORD, 256> table =
            polynomial == cached_polynomial ? cached.slice[0] : crc32_msb_table(polynomial);
        for (; end - bit >= 8; bit += 8)
            crc = (crc << 8) ^ table[((crc >> 24) ^ data[bit / 8]) & 0xFF];
    }
    for (; bit < end; ++bit) {
        const unsigned shift = msb_first ? 7 - unsigned(bit % 8) : unsigned(bit % 8);
        const DWORD in = (data[bit / 8] >> shift) & 1;
        const DWORD top = (crc >> 31) ^ in;
        crc = (crc << 1) ^ (top ? polynomial : 0);
    }
    return crc;
}

BYTE* MOX_COMMON::get_block_sha(const BYTE* data, DWORD length, DWORD digest_length)
{
    if (digest_length != 32)
        return nullptr;
    BYTE* digest = new BYTE[32];
    unsigned int written = 0;
    if (::EVP_Digest(data, length, digest, &written, ::EVP_sha256(), nullptr) != 1 || written != 32) {
        delete[] digest;
        return nullptr;
    }
    return digest;
}

bool MOX_COMMON::compare_string(const std::string& a, const std::string& b, bool case_sensitive)
{
    return case_sensitive ? a == b : gen_stricmp(a, b) == 0;
}
