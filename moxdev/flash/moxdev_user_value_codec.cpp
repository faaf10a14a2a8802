#include "moxdev/flash/moxdev_user_value_codec.h"

#include "moxdev/internal/moxdev_assert.h"

#include "host/ver.h"
#include "host/zlib_wrapper.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <vector>

// The codec is the flash manager's: its internal errors are that class's.
static constexpr const char* MOXDEV_UNIT = "moxdev_flash_manager";

namespace moxdev::detail {

namespace {

// CRC-16 with polynomial 0x1021, initial value 0, most significant bit first,
// no final XOR (the XMODEM parameters).
constexpr std::array<WORD, 256> make_crc16_table()
{
    std::array<WORD, 256> table{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        WORD crc = WORD(byte << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = WORD(crc & 0x8000 ? (crc << 1) ^ 0x1021 : crc << 1);
        table[byte] = crc;
    }
    return table;
}

constexpr std::array<WORD, 256> CRC16_TABLE = make_crc16_table();

WORD crc16_xmodem(const BYTE* data, std::size_t length)
{
    WORD crc = 0;
    for (std::size_t i = 0; i < length; ++i)
        crc = WORD((crc << 8) ^ CRC16_TABLE[((crc >> 8) ^ data[i]) & 0xFF]);
    return crc;
}

// Value 0-9 -> '0'-'9', 10-35 -> 'A'-'Z', 36-61 -> 'a'-'z', 62 -> '@', 63 -> '-'.
constexpr char ALPHABET[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz@-";

int value_of(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'Z')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 36;
    if (c == '@')
        return 62;
    if (c == '-')
        return 63;
    return -1;
}

} // namespace

bool encode_user_value(const std::string& text, std::string& encoded, std::string& error)
{
    encoded.clear();
    const uLong capacity = ::compressBound(uLong(text.size()));
    std::vector<BYTE> compressed(capacity);
    DWORD compressed_size = DWORD(capacity);
    if (zlib_compress(compressed.data(), &compressed_size, reinterpret_cast<const BYTE*>(text.data()),
                      DWORD(text.size())) != ZLIB_OK) {
        error = "Fail to generate INI because of compression failure";
        return false;
    }
    // The compressed bytes as one bit stream, least significant bit of each
    // byte first, cut into groups of six; a short last group is zero-padded.
    const QWORD bit_count = QWORD(compressed_size) * 8;
    const DWORD encoded_size = DWORD((bit_count + 5) / 6);
    encoded.reserve(encoded_size);
    for (QWORD first_bit = 0; first_bit < bit_count; first_bit += 6) {
        unsigned value = 0;
        for (unsigned bit = 0; bit < 6 && first_bit + bit < bit_count; ++bit) {
            const QWORD position = first_bit + bit;
            value |= unsigned((compressed[position / 8] >> (position % 8)) & 1) << bit;
        }
        encoded += ALPHABET[value];
    }
    MOXDEV_ASSERT(encoded.size() == encoded_size);
    return true;
}

bool decode_user_value(const std::string& encoded, std::string& text, std::string& error, bool whole_stream)
{
    text.clear();
    const DWORD decoded_size = DWORD((QWORD(encoded.size()) * 6 + 7) / 8);
    std::vector<BYTE> decoded(decoded_size, 0);
    QWORD bit = 0;
    for (char c : encoded) {
        const int value = value_of(c);
        if (value < 0) {
            error = "Invalid INI decoding";
            return false;
        }
        for (int i = 0; i < 6; ++i, ++bit) {
            if (value & (1 << i))
                decoded[bit / 8] |= BYTE(1u << (bit % 8));
        }
    }
    const DWORD decoded_index = DWORD((bit + 7) / 8);
    MOXDEV_ASSERT(decoded_index == decoded_size);

    std::vector<BYTE> inflated(MAX_USER_VALUE_TEXT);
    DWORD inflated_size = MAX_USER_VALUE_TEXT;
    DWORD used = 0;
    if (decoded.empty() ||
        zlib_uncompress_used(inflated.data(), &inflated_size, decoded.data(), decoded_size, &used) != ZLIB_OK ||
        inflated_size > MAX_USER_VALUE_TEXT) {
        error = "Fail to generate INI because of decompression failure";
        return false;
    }
    // The encoder writes just the characters the stream needs, with zero
    // bits padding the last one.
    if (whole_stream && (QWORD(encoded.size()) != (QWORD(used) * 8 + 5) / 6 ||
                         std::any_of(decoded.begin() + used, decoded.end(), [](BYTE b) { return b != 0; }))) {
        error = "characters follow the end of the compressed text";
        return false;
    }
    text.assign(reinterpret_cast<const char*>(inflated.data()), inflated_size);
    return true;
}

std::string user_value_check(const std::string& text)
{
    const std::size_t total_size = text.size();
    MOXDEV_ASSERT(total_size > 0);

    const DWORD index = ver_get_current_version_index_number();
    const DWORD service_pack = index & 0xFF;
    const DWORD build = (index >> 8) & 0xFFFF;
    std::string version_text = "Nimbrel Version: " + ver_get_version() + " ";
    if (service_pack != 0)
        version_text += "SP" + std::to_string(service_pack) + " ";
    version_text += "Build " + std::to_string(build);
    const WORD version_crc = crc16_xmodem(reinterpret_cast<const BYTE*>(version_text.data()), version_text.size());
    const BYTE low = BYTE(version_crc);
    const BYTE high = BYTE(version_crc >> 8);

    // Eight interleaved groups of the text, each salted with the version's CRC
    // and reduced to two letters.
    const std::size_t sector_size = (total_size + 7) / 8;
    MOXDEV_ASSERT(sector_size > 0);
    auto letter = [](BYTE byte) { return char(byte >= 'A' && byte <= 'Z' ? byte : byte % 26 + 'A'); };
    std::string check;
    for (std::size_t group = 0; group < 8; ++group) {
        std::vector<BYTE> buffer(sector_size, 0);
        std::size_t k = 0;
        for (std::size_t i = group; i < total_size; i += 8)
            buffer[k++] = BYTE(text[i]) ^ (i % 2 ? high : low);
        const WORD crc = crc16_xmodem(buffer.data(), buffer.size());
        check += letter(BYTE(crc));
        check += letter(BYTE(crc >> 8));
    }
    return check;
}

bool split_user_value(const std::string& decoded, std::string& definition, std::string& check)
{
    definition.clear();
    check.clear();
    const std::size_t hash = decoded.find('#');
    const std::size_t semicolon = decoded.find(';');
    if (hash == std::string::npos || semicolon == std::string::npos || semicolon < hash)
        return false;
    definition = decoded.substr(0, hash);
    check = decoded.substr(hash + 1, semicolon - hash - 1);
    return true;
}

} // namespace moxdev::detail
