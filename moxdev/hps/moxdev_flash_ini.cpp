#include "moxdev/moxdev_flash_ini.h"

#include "moxdev/hps/moxdev_parameter_container.h"
#include "moxdev/internal/moxdev_assert.h"
#include "moxdev/internal/moxdev_bytes.h"

#include "host/gen_string.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

// Internal errors of this file are the class's own.
static constexpr const char* MOXDEV_UNIT = "moxdev_flash_ini";

namespace {

// A QWORD is unpacked once four of its bytes are present: this many zero
// bytes behind a data set read from the file keep its other four in bounds.
constexpr DWORD QWORD_READ_MARGIN = 4;

struct TYPE_LIMITS {
    QWORD max;
    DWORD bits;
};

bool numeric_limits_of(MOXDEV_PARAM_TYPE type, TYPE_LIMITS& limits)
{
    switch (type) {
    case MOXDEV_PARAM_BYTE: limits = {0xFFull, 8}; return true;
    case MOXDEV_PARAM_WORD: limits = {0xFFFFull, 16}; return true;
    case MOXDEV_PARAM_DWORD: limits = {0xFFFFFFFFull, 32}; return true;
    case MOXDEV_PARAM_QWORD: limits = {0xFFFFFFFFFFFFFFFFull, 64}; return true;
    default: return false;
    }
}

// Little-endian bytes of an unsigned value of `width` bytes, at data[index].
void store(BYTE* data, DWORD& index, QWORD value, DWORD width)
{
    moxdev::bytes::store_le(data + index, value, width);
    index += width;
}

} // namespace

// ---------------------------------------------------------------- text

std::string MOXDEV_FLASH_INI::convert_qword_to_hex_string(QWORD value, DWORD count, bool prefix)
{
    MOXDEV_ASSERT(count != 0 && count <= 16);
    std::string text;
    for (int nibble = 0; nibble < 16; ++nibble) {
        const unsigned digit = unsigned(value >> (4 * nibble)) & 0xF;
        text.insert(text.begin(), char(digit < 10 ? '0' + digit : 'A' + digit - 10));
    }
    text.erase(0, 16 - count);
    return prefix ? "0x" + text : text;
}

std::string MOXDEV_FLASH_INI::convert_dword_to_hex_string(DWORD value, DWORD count, bool prefix)
{
    MOXDEV_ASSERT(count != 0 && count <= 8);
    const std::string digits = convert_qword_to_hex_string(value, count, false);
    return prefix ? "0x" + digits : digits;
}

std::string MOXDEV_FLASH_INI::convert_qword_to_string(QWORD value)
{
    return std::to_string(static_cast<unsigned long long>(value));
}

QWORD MOXDEV_FLASH_INI::convert_string_to_qword(std::string string, bool no_empty, bool* ok)
{
    MOXDEV_ASSERT(!no_empty || !string.empty());
    // Only a lower-case "0x" at the very start makes the text hexadecimal.
    const bool hex = string.find("0x") == 0;
    if (hex) {
        string.erase(0, 2);
        stl_toupper(string);
    }
    for (char c : string) {
        const bool digit = c >= '0' && c <= '9';
        const bool hex_digit = hex && ((c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'));
        if (!digit && !hex_digit) {
            if (ok == nullptr)
                MOXDEV_FAIL("Invalid string to integer conversion");
            *ok = false;
            return 0;
        }
    }
    const QWORD value = string.empty() ? 0 : std::strtoull(string.c_str(), nullptr, hex ? 16 : 10);
    if (ok != nullptr)
        *ok = true;
    return value;
}

bool MOXDEV_FLASH_INI::convert_string_to_qword(MOXDEV_PARAM_TYPE type, QWORD& value, bool hex, std::string string,
                                               bool power_of_2, const DWORD* range_list, const DWORD* hit_list,
                                               bool shift, DWORD multiple, std::string& error)
{
    value = 0;
    error.clear();
    TYPE_LIMITS limits;
    // Strings and flags need no number.
    if (!numeric_limits_of(type, limits))
        return true;
    const QWORD max = limits.max;

    if (string == "-1") {
        value = max;
    } else {
        if (hex && string.find("0x") != 0)
            string = "0x" + string;
        bool ok = false;
        value = convert_string_to_qword(string, false, &ok);
        if (!ok) {
            error = "Invalid QWORD conversion";
            return false;
        }
        if (value > max) {
            error = "Conversion overflow compare to type";
            return false;
        }
    }

    if (power_of_2) {
        DWORD set_bits = 0;
        for (DWORD bit = 0; bit < limits.bits; ++bit)
            set_bits += (value >> bit) & 1;
        if (set_bits != 1) {
            error = "Input must be power of 2";
            return false;
        }
    }

    if (range_list != nullptr) {
        // Only the low 32 bits of the value take part, also for a qword.
        const DWORD low_bits = DWORD(value);
        bool inside = false;
        for (DWORD pair = 0; pair < range_list[0] && !inside; ++pair) {
            const QWORD low = range_list[1 + 2 * pair] & max;
            const QWORD high = range_list[2 + 2 * pair] & max;
            inside = low <= low_bits && low_bits <= high;
        }
        if (!inside) {
            error = "Input is out of range";
            return false;
        }
    }

    if (hit_list != nullptr) {
        for (DWORD pair = 0; pair < hit_list[0]; ++pair) {
            const QWORD mask = hit_list[1 + 2 * pair];
            const QWORD pattern = hit_list[2 + 2 * pair];
            if ((value & mask & max) == (pattern & max)) {
                error = "Input is invalid (hit)";
                return false;
            }
        }
    }

    if (shift && value != max) {
        value = QWORD(1) << (value % 64);
    } else {
        MOXDEV_ASSERT(multiple != 0);
        value = value * multiple;
    }
    if (value > max) {
        error = "Calculation overflow compare to type";
        return false;
    }
    return true;
}

std::string MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_TYPE type, bool hex, void* value)
{
    switch (type) {
    case MOXDEV_PARAM_STRING: return *static_cast<const std::string*>(value);
    case MOXDEV_PARAM_BOOL: return *static_cast<const BYTE*>(value) != 0 ? "True" : "False";
    case MOXDEV_PARAM_BYTE: {
        const BYTE v = *static_cast<const BYTE*>(value);
        return hex ? convert_qword_to_hex_string(v, 2, true) : convert_qword_to_string(v);
    }
    case MOXDEV_PARAM_WORD: {
        const WORD v = *static_cast<const WORD*>(value);
        return hex ? convert_qword_to_hex_string(v, 4, true) : convert_qword_to_string(v);
    }
    case MOXDEV_PARAM_DWORD: {
        const DWORD v = *static_cast<const DWORD*>(value);
        return hex ? convert_qword_to_hex_string(v, 8, true) : convert_qword_to_string(v);
    }
    case MOXDEV_PARAM_QWORD: {
        const QWORD v = *static_cast<const QWORD*>(value);
        return hex ? convert_qword_to_hex_string(v, 16, true) : convert_qword_to_string(v);
    }
    default: MOXDEV_FAIL("Unsupport param type");
    }
}

// ---------------------------------------------------------------- container

BYTE* MOXDEV_FLASH_INI::read_flash_ini_data(MOXDEV_FLASH_INI_ENUM set, DWORD& size)
{
    using namespace moxdev::detail;
    size = 0;
    std::vector<BYTE> file;
    std::vector<std::pair<DWORD, DWORD>> entries;
    std::string error;
    if (read_parameter_file(parameter_file_path(), file, error) != READ_RESULT::READ ||
        !parse_parameter_container(file, entries, false) || DWORD(set) >= entries.size())
        return nullptr;
    const auto [offset, length] = entries[DWORD(set)];
    if (offset == 0)
        return nullptr;
    // Zero bytes past the set keep the weak size test of a QWORD's unpacking
    // inside this buffer.
    BYTE* copy = new BYTE[std::size_t(length) + QWORD_READ_MARGIN]();
    std::memcpy(copy, &file[offset], length);
    size = length;
    return copy;
}

bool MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_ENUM set, BYTE* data, DWORD size)
{
    using namespace moxdev::detail;
    if (DWORD(set) >= PARAMETER_SET_COUNT)
        return false;
    if (size != 0)
        MOXDEV_ASSERT(data != NULL);
    else
        MOXDEV_ASSERT(data == NULL);

    // The three sets as they are (a missing or unreadable one is absent),
    // with the new bytes in place of the one written.
    std::vector<std::vector<BYTE>> sets(PARAMETER_SET_COUNT);
    for (DWORD i = 0; i < PARAMETER_SET_COUNT; ++i) {
        if (i == DWORD(set)) {
            sets[i].assign(data, data + size);
            continue;
        }
        DWORD length = 0;
        const std::unique_ptr<BYTE[]> copy(read_flash_ini_data(MOXDEV_FLASH_INI_ENUM(i), length));
        if (copy != nullptr)
            sets[i].assign(copy.get(), copy.get() + length);
    }
    const std::vector<BYTE> buffer = parameter_container_bytes(sets);

    // The file is rewritten in place. Only the open decides the result: a
    // write or close that fails afterwards still counts as written.
    std::FILE* file = std::fopen(parameter_file_path().c_str(), "wb");
    if (file == nullptr)
        return false;
    std::fwrite(buffer.data(), 1, buffer.size(), file);
    std::fclose(file);
    return true;
}

// ---------------------------------------------------------------- packing

void MOXDEV_FLASH_INI::calculate_flash_ini_data_size(DWORD& size, MOXDEV_PARAM_TYPE type, void* value)
{
    switch (type) {
    case MOXDEV_PARAM_STRING: size += DWORD(static_cast<const std::string*>(value)->size()) + 1; break;
    case MOXDEV_PARAM_BOOL:
    case MOXDEV_PARAM_BYTE: size += 1; break;
    case MOXDEV_PARAM_WORD: size += 2; break;
    case MOXDEV_PARAM_DWORD: size += 4; break;
    case MOXDEV_PARAM_QWORD: size += 8; break;
    default: MOXDEV_FAIL("Unsupport param type");
    }
}

void MOXDEV_FLASH_INI::fillup_flash_ini_data(BYTE* data, DWORD& index, MOXDEV_PARAM_TYPE type, void* value)
{
    switch (type) {
    case MOXDEV_PARAM_STRING: {
        // The terminating zero is not written, only stepped over: the caller
        // hands in a zero-filled buffer.
        const std::string& text = *static_cast<const std::string*>(value);
        std::memcpy(&data[index], text.data(), text.size());
        index += DWORD(text.size()) + 1;
        break;
    }
    case MOXDEV_PARAM_BOOL: data[index++] = *static_cast<const BYTE*>(value) != 0 ? 1 : 0; break;
    case MOXDEV_PARAM_BYTE: data[index++] = *static_cast<const BYTE*>(value); break;
    case MOXDEV_PARAM_WORD: store(data, index, *static_cast<const WORD*>(value), 2); break;
    case MOXDEV_PARAM_DWORD: store(data, index, *static_cast<const DWORD*>(value), 4); break;
    case MOXDEV_PARAM_QWORD: store(data, index, *static_cast<const QWORD*>(value), 8); break;
    default: MOXDEV_FAIL("Unsupport param type");
    }
}

bool MOXDEV_FLASH_INI::assign_flash_ini_data(const BYTE* data, DWORD& index, DWORD size, DWORD count,
                                             const MOXDEV_PARAM_TYPE* types, void** values)
{
    if (count == 0)
        return true;
    // The `width` bytes of a number, little-endian, from the caller's buffer.
    auto number = [&](DWORD width) {
        const QWORD value = moxdev::bytes::load_le(data + index, width);
        index += width;
        return value;
    };
    bool ok = true;
    DWORD taken = 0;
    while (index < size && ok) {
        void* target = values[taken];
        switch (types[taken]) {
        case MOXDEV_PARAM_STRING: {
            const DWORD start = index;
            while (index < size && data[index] != 0)
                ++index;
            ok = index < size;
            if (ok) {
                static_cast<std::string*>(target)->assign(reinterpret_cast<const char*>(&data[start]), index - start);
                ++index;
            }
            break;
        }
        case MOXDEV_PARAM_BOOL: *static_cast<bool*>(target) = data[index++] != 0; break;
        case MOXDEV_PARAM_BYTE: *static_cast<BYTE*>(target) = data[index++]; break;
        case MOXDEV_PARAM_WORD:
            ok = QWORD(index) + 2 <= size;
            if (ok)
                *static_cast<WORD*>(target) = WORD(number(2));
            break;
        case MOXDEV_PARAM_DWORD:
            ok = QWORD(index) + 4 <= size;
            if (ok)
                *static_cast<DWORD*>(target) = DWORD(number(4));
            break;
        case MOXDEV_PARAM_QWORD:
            // Only four bytes are required, as the format always did, and all
            // eight are read: the caller's buffer holds them (the library's
            // own data sets carry QWORD_READ_MARGIN zero bytes past their end).
            ok = QWORD(index) + 4 <= size;
            if (ok)
                *static_cast<QWORD*>(target) = number(8);
            break;
        default: ok = false; break;
        }
        if (ok && ++taken == count)
            break;
    }
    return ok && taken == count;
}
