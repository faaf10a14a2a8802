#include "moxdev/moxdev_flash_ini.h"

#include "moxdev/moxdev_assert.h"

#include "host/fio.h"
#include "host/gen_path.h"
#include "host/gen_string.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

namespace {

constexpr char MAGIC[16] = {'M', 'O', 'X', 'D', 'E', 'V', '_', 'F', 'L', 'A', 'S', 'H', '_', 'I', 'N', 'I'};
constexpr DWORD HEADER_SIZE = 20; // magic and entry count
constexpr DWORD SET_COUNT = 3;    // the entry count this library writes
constexpr DWORD DATA_START = HEADER_SIZE + 8 * SET_COUNT;
// A QWORD is unpacked once four of its bytes are present: this many zero
// bytes behind a data set read from the file keep its other four in bounds.
constexpr DWORD QWORD_READ_MARGIN = 4;

std::string container_path()
{
    return gen_get_module_fullpath() + "/mox_flash.ini";
}

DWORD dword_at(const BYTE* data)
{
    return DWORD(data[0]) | DWORD(data[1]) << 8 | DWORD(data[2]) << 16 | DWORD(data[3]) << 24;
}

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

// Little-endian bytes of an unsigned value of `width` bytes.
void store(BYTE* data, DWORD& index, QWORD value, DWORD width)
{
    for (DWORD i = 0; i < width; ++i)
        data[index++] = BYTE(value >> (8 * i));
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

bool MOXDEV_FLASH_INI::convert_string_to_qword(MOXDEV_PARAM_TYPE type, QWORD& value, bool hex,
                                               std::string string, bool power_of_2,
                                               const DWORD* range_list, const DWORD* hit_list,
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
    size = 0;
    const std::string path = container_path();
    FIO_STAT status;
    if (!FIO_FILE_SYSTEM::exists(path.c_str()) || !FIO_FILE_SYSTEM::status(path.c_str(), &status))
        return nullptr;
    std::ifstream input(path, std::ios::binary);
    const QWORD file_size = status.size;
    if (file_size < 17 || !input.good() || file_size > 0xFFFFFFFFull)
        return nullptr;
    std::vector<BYTE> file(file_size);
    input.read(reinterpret_cast<char*>(file.data()), std::streamsize(file_size));
    if (std::size_t(input.gcount()) != file.size())
        return nullptr;

    if (std::memcmp(file.data(), MAGIC, sizeof MAGIC) != 0 || !(HEADER_SIZE < file_size))
        return nullptr;
    const QWORD entries = dword_at(&file[16]);
    const QWORD table_end = HEADER_SIZE + 8 * entries;
    if (!(DWORD(set) < entries) || !(table_end < file_size))
        return nullptr;

    // The present sets follow the table back to back, in entry order.
    QWORD end = table_end;
    QWORD total = 0;
    for (QWORD i = 0; i < entries; ++i) {
        const DWORD offset = dword_at(&file[HEADER_SIZE + 8 * i]);
        const DWORD length = dword_at(&file[HEADER_SIZE + 8 * i + 4]);
        if (offset == 0) {
            if (length != 0)
                return nullptr;
            continue;
        }
        if (length == 0 || offset != end)
            return nullptr;
        end += length;
        total += length;
        if (end > file_size)
            return nullptr;
    }
    if (end != file_size || table_end + total != file_size)
        return nullptr;

    const DWORD offset = dword_at(&file[HEADER_SIZE + 8 * QWORD(set)]);
    const DWORD length = dword_at(&file[HEADER_SIZE + 8 * QWORD(set) + 4]);
    if (offset == 0 || offset < table_end || QWORD(offset) + length > file_size)
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
    if (DWORD(set) >= SET_COUNT)
        return false;
    if (size != 0)
        MOXDEV_ASSERT(data != NULL);
    else
        MOXDEV_ASSERT(data == NULL);

    std::unique_ptr<BYTE[]> copies[SET_COUNT];
    DWORD sizes[SET_COUNT] = {};
    for (DWORD i = 0; i < SET_COUNT; ++i) {
        if (i == DWORD(set)) {
            sizes[i] = size;
        } else {
            copies[i].reset(read_flash_ini_data(MOXDEV_FLASH_INI_ENUM(i), sizes[i]));
            if (!copies[i])
                sizes[i] = 0;
        }
    }
    QWORD total = DATA_START;
    for (DWORD length : sizes)
        total += length;
    MOXDEV_ASSERT_MSG(total <= 0xFFFFFFFFull, "file_size <= 0xFFFFFFFF");
    const DWORD file_size = DWORD(total);

    std::vector<BYTE> buffer(file_size, 0);
    DWORD file_index = 0;
    auto put = [&](BYTE byte) {
        MOXDEV_ASSERT(file_index < file_size);
        buffer[file_index++] = byte;
    };
    auto put_dword = [&](DWORD value) {
        for (int shift = 0; shift < 32; shift += 8)
            put(BYTE(value >> shift));
    };
    for (char c : MAGIC)
        put(BYTE(c));
    put_dword(SET_COUNT);
    DWORD offset = DATA_START;
    for (DWORD i = 0; i < SET_COUNT; ++i) {
        put_dword(sizes[i] != 0 ? offset : 0);
        put_dword(sizes[i]);
        offset += sizes[i];
    }
    MOXDEV_ASSERT(file_index <= file_size);
    for (DWORD i = 0; i < SET_COUNT; ++i) {
        const BYTE* block = i == DWORD(set) ? data : copies[i].get();
        for (DWORD b = 0; b < sizes[i]; ++b)
            put(block[b]);
    }
    MOXDEV_ASSERT(file_index == file_size);

    // Written beside the file and renamed into place, so that a failure part
    // way leaves the earlier file whole. As before, the result only tells
    // whether the output could be opened.
    const std::string path = container_path();
    const std::string temporary = path + ".tmp";
    std::ofstream output(temporary, std::ios::binary | std::ios::trunc);
    if (!output.is_open())
        return false;
    output.write(reinterpret_cast<const char*>(buffer.data()), std::streamsize(buffer.size()));
    output.close();
    if (!output.good() || std::rename(temporary.c_str(), path.c_str()) != 0)
        std::remove(temporary.c_str());
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
        QWORD value = 0;
        for (DWORD i = 0; i < width; ++i)
            value |= QWORD(data[index + i]) << (8 * i);
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
                static_cast<std::string*>(target)->assign(reinterpret_cast<const char*>(&data[start]),
                                                          index - start);
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
