#include "moxdev/moxdev_flash_manager.h"

#include "moxdev/moxdev_assert.h"

#include "host/cfg.h"
#include "host/gen_path.h"
#include "host/gen_string.h"
#include "host/mox_common.h"
#include "host/msg.h"
#include "host/ver.h"
#include "host/zlib_wrapper.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <set>
#include <type_traits>

const char* const MOXDEV_FLASH_FIELD_NAMES[TOTAL_DATABASE_MEMBER] = {
#define MOXDEV_FLASH_FIELD(name, stream_type, type) #name,
#include "moxdev/moxdev_flash_info_fields.def"
};

const MOXDEV_MANAGER_TYPE MOXDEV_FLASH_FIELD_TYPES[TOTAL_DATABASE_MEMBER] = {
#define MOXDEV_FLASH_FIELD(name, stream_type, type) MOXDEV_MANAGER_##stream_type,
#include "moxdev/moxdev_flash_info_fields.def"
};

namespace {

constexpr const char* FLASH_MAGIC = "MOXIO_FM";
constexpr const char* USER_FLASH_KEY = "MOX_SUPPORT_EXT_SPI_DEV";
constexpr const char* USER_FLASH_DEBUG_KEY = "MOX_SUPPORT_EXT_SPI_DEV_DEBUG";
// The flash CSV's record lines start after the type row, the name row and six
// description lines.
constexpr DWORD FIRST_RECORD_LINE = 8;
// A user definition is a few hundred characters; its compressed form cannot
// honestly inflate beyond this.
constexpr DWORD MAX_USER_DEFINITION = 64 * 1024;

constexpr DWORD listed_field_count()
{
    DWORD count = 0;
#define MOXDEV_FLASH_FIELD(name, stream_type, type) ++count;
#include "moxdev/moxdev_flash_info_fields.def"
    return count;
}
static_assert(listed_field_count() == TOTAL_DATABASE_MEMBER,
              "the field list must hold every field of the flash record");

// ---------------------------------------------------------------- CRC-16

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

// ---------------------------------------------------------------- 6-bit text

// Value 0-9 -> '0'-'9', 10-35 -> 'A'-'Z', 36-61 -> 'a'-'z', 62 -> '@', 63 -> '-'.
constexpr char INI_ALPHABET[] =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz@-";

int ini_value_of(char c)
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

std::string upper(std::string text)
{
    stl_toupper(text);
    return text;
}

// gen_stricmp(text, "NONE") == 0 without a call: ASCII letters only.
bool is_none(const std::string& text)
{
    if (text.size() != 4)
        return false;
    for (std::size_t i = 0; i < 4; ++i) {
        const unsigned char u = static_cast<unsigned char>(text[i]);
        if ((u >= 'a' && u <= 'z' ? u - ('a' - 'A') : u) != static_cast<unsigned char>("NONE"[i]))
            return false;
    }
    return true;
}

// A hash of a name, equal for names that gen_stricmp finds equal: setting
// bit 5 of every byte folds ASCII letter case (and merges a few other
// characters, which only costs a comparison). Eight bytes at a step.
std::uint64_t folded_hash(const std::string& name)
{
    std::uint64_t hash = name.size();
    auto mix = [&](std::uint64_t word) {
        hash = (hash ^ (word | 0x2020202020202020ull)) * 0x9E3779B97F4A7C15ull;
        hash ^= hash >> 32;
    };
    std::size_t at = 0;
    for (; name.size() - at >= 8; at += 8) {
        std::uint64_t word;
        std::memcpy(&word, name.data() + at, 8);
        mix(word);
    }
    if (at < name.size()) {
        std::uint64_t word = 0;
        for (std::size_t i = 0; at + i < name.size(); ++i)
            word |= std::uint64_t(static_cast<unsigned char>(name[at + i])) << (8 * i);
        mix(word);
    }
    // The table takes the low bits: let every input bit reach them.
    hash *= 0xC4CEB9FE1A85EC53ull;
    return hash ^ hash >> 29;
}

} // namespace

// ---------------------------------------------------------------- construction

MOXDEV_FLASH_MANAGER::MOXDEV_FLASH_MANAGER(bool, DWORD device_count, bool skip_loading, bool debug)
    : MOXDEV_DATABASE_CODEC("moxdev_flash_manager"), m_debug(debug ? 1 : 0)
{
    if (skip_loading)
        return;
    initialize_flash_database(gen_get_device_db_fullpath() + "/programmer/mox_flash.pcf");
    const DWORD count = device_count;
    MOXDEV_ASSERT(count > 0);
    m_device_count = count;
    m_device_to_flash_map = std::make_shared<std::vector<DWORD>>(count, INVALID_DWORD);
}

void MOXDEV_FLASH_MANAGER::initialize_flash_database(FIO_PATH flash_file)
{
    PAYLOAD payload =
        read_database_file(flash_file, "flash_file", FLASH_MAGIC, MOXDEV_FLASH_INFO_CSV_MD5);
    MOXDEV_FIELD_READER in = reader(payload.data.get(), payload.size);
    parse_payload(in);
}

bool MOXDEV_FLASH_MANAGER::parse_database(BYTE* data)
{
    MOXDEV_FIELD_READER in = trusting_reader(data, 0);
    parse_payload(in);
    // The result carries no meaning; callers ignore it.
    return false;
}

void MOXDEV_FLASH_MANAGER::parse_payload(MOXDEV_FIELD_READER& in)
{
    version = in.get_dword();
    MOXDEV_ASSERT_MSG(version == MOXDEV_DB_VERSION, "Mismatch version between flash file and reader");
    m_flash_count = in.get_dword();
    m_type_count = in.get_dword();
    MOXDEV_ASSERT(m_flash_count > 0 && m_type_count > 0);
    // Every field takes at least two bytes and every record its end marker, so
    // a count the payload cannot hold is refused before allocating for it.
    MOXDEV_ASSERT_MSG(QWORD(m_flash_count) * (2 * TOTAL_DATABASE_MEMBER + 4) <= in.size(),
                      "record count exceeds what the payload can hold");

    parse_ext_flash_info();
    m_ini_count = m_ini_database.device_name.empty() ? 0 : 1;

    m_flash_database = std::make_shared<std::vector<MOXDEV_SFL_FLASH_INFO>>(m_flash_count + m_ini_count);
    DWORD slot = m_ini_count;
    while (m_flash_count > slot - m_ini_count) {
        if (read_record(in, slot)) {
            ++slot;
        } else {
            // A record whose switch is off is dropped; the next one reuses its slot.
            null_info_database(&(*m_flash_database)[slot]);
            --m_flash_count;
        }
        in.record_end();
    }
    in.database_end();

    confirm_default_value(m_ini_count);
    if (m_ini_count > 0) {
        copy_ini_database();
        ++m_flash_count;
    }
    m_ini_count = 0;
    if (m_debug && m_flash_count > 0)
        print_database();
}

bool MOXDEV_FLASH_MANAGER::get_database(BYTE* data, DWORD& index, DWORD slot)
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    const bool enabled = read_record(in, slot);
    index = in.position();
    return enabled;
}

bool MOXDEV_FLASH_MANAGER::read_record(MOXDEV_FIELD_READER& in, DWORD slot)
{
    MOXDEV_ASSERT_MSG(m_flash_database != nullptr && slot < m_flash_database->size(),
                      "slot < m_flash_count + m_ini_count");
    MOXDEV_SFL_FLASH_INFO& record = (*m_flash_database)[slot];
    moxdev_for_each_flash_field(record, [&](const char*, MOXDEV_MANAGER_TYPE, auto& value) {
        moxdev_read_field(in, value);
    });
    // Most records have no switch: those pass every check of enable_device().
    return is_none(record.ini) || enable_device(slot);
}

bool MOXDEV_FLASH_MANAGER::enable_device(DWORD index)
{
    MOXDEV_ASSERT_MSG(m_flash_database != nullptr, "m_flash_database != NULL");
    MOXDEV_ASSERT(index < (m_flash_count + m_ini_count));
    MOXDEV_ASSERT_MSG(index < m_flash_database->size(), "index < (m_flash_count + m_ini_count)");
    const std::string& ini = (*m_flash_database)[index].ini;
    MOXDEV_ASSERT(!ini.empty());
    if (is_none(ini) || m_enable_all)
        return true;
    return cfg_is_on("MOX_ALLOW_" + ini, false);
}

void MOXDEV_FLASH_MANAGER::null_info_database(MOXDEV_SFL_FLASH_INFO* record)
{
    *record = MOXDEV_SFL_FLASH_INFO{};
}

void MOXDEV_FLASH_MANAGER::confirm_default_value(DWORD first)
{
    const std::vector<MOXDEV_SFL_FLASH_INFO>& records = *m_flash_database;
    const DWORD end = first + m_flash_count;
    // The records grouped by name, letter case ignored, in one pass over a
    // hash table; each group counts its default records. The groups are then
    // checked in the order of their first records.
    struct GROUP {
        DWORD first;
        DWORD defaults;
    };
    std::vector<GROUP> groups;
    groups.reserve(m_flash_count);
    std::size_t capacity = 16;
    while (capacity < 2 * std::size_t(m_flash_count))
        capacity *= 2;
    std::vector<DWORD> slots(capacity, INVALID_DWORD); // group indexes
    for (DWORD i = first; i < end; ++i) {
        const std::string& name = records[i].device_name;
        std::size_t s = folded_hash(name) & (capacity - 1);
        while (slots[s] != INVALID_DWORD && gen_stricmp(records[groups[slots[s]].first].device_name, name) != 0)
            s = (s + 1) & (capacity - 1);
        if (slots[s] == INVALID_DWORD) {
            slots[s] = DWORD(groups.size());
            groups.push_back(GROUP{i, 0});
        }
        groups[slots[s]].defaults += records[i].default_dev ? 1 : 0;
    }
    for (const GROUP& group : groups) {
        if (group.defaults > 1)
            MOXDEV_FAIL("!one_default");
        MOXDEV_ASSERT_MSG(group.defaults == 1, "one_default");
    }
}

void MOXDEV_FLASH_MANAGER::copy_ini_database()
{
    (*m_flash_database)[0] = m_ini_database;
}

// ---------------------------------------------------------------- records

const MOXDEV_SFL_FLASH_INFO* MOXDEV_FLASH_MANAGER::get_flash_database() const
{
    return m_flash_database ? m_flash_database->data() : nullptr;
}

const MOXDEV_SFL_FLASH_INFO* MOXDEV_FLASH_MANAGER::get_default_flash(std::string device_name) const
{
    for (DWORD i = 0; m_flash_database && i < m_flash_count; ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = (*m_flash_database)[i];
        if (record.default_dev && gen_stricmp(record.device_name, device_name) == 0)
            return &record;
    }
    return nullptr;
}

// ---------------------------------------------------------------- binding

bool MOXDEV_FLASH_MANAGER::flash_id_database_mapping(bool silicon_id_mode, DWORD device_index,
                                                     BYTE* id_bytes)
{
    // Without a length every byte a record can index must be readable.
    return flash_id_database_mapping(silicon_id_mode, device_index, id_bytes, 256);
}

bool MOXDEV_FLASH_MANAGER::flash_id_database_mapping(bool silicon_id_mode, DWORD device_index,
                                                     const BYTE* id_bytes, DWORD id_count)
{
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr, "m_device_to_flash_map != NULL");
    MOXDEV_ASSERT(device_index < m_device_count);
    MOXDEV_ASSERT_MSG(m_flash_database != nullptr && m_flash_count > 0,
                      "m_flash_database != NULL && m_flash_count > 0");
    std::vector<DWORD>& map = *m_device_to_flash_map;
    map[device_index] = first_match(silicon_id_mode, id_bytes, id_count);
    if (map[device_index] == INVALID_DWORD)
        return false;
    msg_local_debug(2, MOXDEV_MODULE,
                    fmt::format("Found Device {} {} id at index {}", device_index + 1,
                                silicon_id_mode ? "silicon" : "device", map[device_index]));
    return true;
}

DWORD MOXDEV_FLASH_MANAGER::first_match(bool silicon_id_mode, const BYTE* id_bytes, DWORD id_count) const
{
    auto byte_is = [&](BYTE position, BYTE expected) {
        return position < id_count && id_bytes[position] == expected;
    };
    for (DWORD i = 0; m_flash_database && i < m_flash_count; ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = (*m_flash_database)[i];
        if (silicon_id_mode) {
            if (record.silicon_id && byte_is(record.memory_id_index, record.memory_id))
                return i;
        } else if (!record.silicon_id && byte_is(record.memory_id_index, record.memory_id) &&
                   (record.memory_type_index == 255 || byte_is(record.memory_type_index, record.memory_type)) &&
                   byte_is(record.mfc_id_index, record.mfc_id)) {
            return i;
        }
    }
    return INVALID_DWORD;
}

const MOXDEV_SFL_FLASH_INFO* MOXDEV_FLASH_MANAGER::find_flash(bool silicon_id_mode, const BYTE* id_bytes,
                                                              DWORD id_count) const
{
    const DWORD index = first_match(silicon_id_mode, id_bytes, id_count);
    return index == INVALID_DWORD ? nullptr : &(*m_flash_database)[index];
}

DWORD MOXDEV_FLASH_MANAGER::get_flash_mapping_index(DWORD device, bool allow_invalid) const
{
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr && device < m_device_count,
                      "m_device_to_flash_map != NULL && device < m_device_count");
    const DWORD index = (*m_device_to_flash_map)[device];
    if (!allow_invalid)
        MOXDEV_ASSERT(index != INVALID_DWORD);
    return index;
}

void MOXDEV_FLASH_MANAGER::set_flash_mapping_index(DWORD device, DWORD index)
{
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr && device < m_device_count &&
                          m_flash_database != nullptr && m_flash_count > 0 && index < m_flash_count,
                      "m_device_to_flash_map != NULL && device < m_device_count && "
                      "m_flash_database != NULL && m_flash_count > 0 && index < m_flash_count");
    (*m_device_to_flash_map)[device] = index;
}

const MOXDEV_SFL_FLASH_INFO& MOXDEV_FLASH_MANAGER::bound_record(DWORD device) const
{
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr && device < m_device_count &&
                          m_flash_database != nullptr && m_flash_count > 0,
                      "m_device_to_flash_map != NULL && device < m_device_count && "
                      "m_flash_database != NULL && m_flash_count > 0");
    const DWORD index = (*m_device_to_flash_map)[device];
    MOXDEV_ASSERT(index != INVALID_DWORD);
    MOXDEV_ASSERT_MSG(index < m_flash_count, "index < m_flash_count");
    return (*m_flash_database)[index];
}

#define MOXDEV_FLASH_FIELD(name, stream_type, type)                                             \
    type MOXDEV_FLASH_MANAGER::sfl_get_##name(DWORD device) const                               \
    {                                                                                           \
        return bound_record(device).name;                                                       \
    }
#include "moxdev/moxdev_flash_info_fields.def"

DWORD MOXDEV_FLASH_MANAGER::sfl_get_chain_longest_program_utime() const
{
    MOXDEV_ASSERT(m_device_count > 0);
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr && m_flash_database != nullptr &&
                          m_flash_count > 0,
                      "m_device_to_flash_map != NULL && device < m_device_count && "
                      "m_flash_database != NULL && m_flash_count > 0");
    bool found = false;
    DWORD longest = 0;
    for (DWORD device = 0; device < m_device_count; ++device) {
        if ((*m_device_to_flash_map)[device] == INVALID_DWORD)
            continue;
        longest = std::max(longest, bound_record(device).program_utime);
        found = true;
    }
    MOXDEV_ASSERT(found);
    return longest;
}

WORD MOXDEV_FLASH_MANAGER::calculate_crc16(const BYTE*, DWORD)
{
    return 0;
}

bool MOXDEV_FLASH_MANAGER::is_power_of_two(DWORD value)
{
    int set_bits = 0;
    for (int bit = 0; bit < 32; ++bit) {
        if (value & (DWORD(1) << bit)) {
            if (++set_bits > 1)
                return false;
        }
    }
    return set_bits == 1;
}

std::string MOXDEV_FLASH_MANAGER::to_string(DWORD value, bool byte_value)
{
    if (value == INVALID_DWORD || (byte_value && value == 255))
        return "-1";
    // "%d": a value above 0x7FFFFFFF prints negative, and reads back through
    // atoi to the same bits.
    return std::to_string(static_cast<std::int32_t>(value));
}

// ---------------------------------------------------------------- user flash

void MOXDEV_FLASH_MANAGER::parse_ext_flash_info()
{
    null_info_database(&m_ini_database);
    const std::string value = cfg_get_value(USER_FLASH_KEY);
    if (value.empty())
        return;
    const bool debug = cfg_is_on(USER_FLASH_DEBUG_KEY, false);
    // Without the debug switch a rejected definition is dropped silently.
    const std::string decoded = decode_ini_text(value, debug ? &std::cout : nullptr);
    if (decoded.empty())
        return;
    if (debug)
        std::cout << "Decoded INI : " << decoded << "\n";

    const std::size_t hash = decoded.find('#');
    const std::size_t semicolon = decoded.find(';');
    std::string definition;
    std::string password;
    if (hash != std::string::npos && semicolon != std::string::npos && semicolon > hash) {
        definition = decoded.substr(0, hash);
        password = decoded.substr(hash + 1, semicolon - hash - 1);
    }
    if (debug)
        std::cout << "Definition : " << definition << "\nPassword : " << password << "\n";
    if (definition.empty() || password.empty())
        return;

    std::string fields[TOTAL_DATABASE_MEMBER];
    std::size_t position = 0;
    for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
        const bool status = get_string_from_ini(definition, &fields[i], position);
        if (debug)
            std::cout << "Status " << status << " : " << fields[i] << "\n";
        if (!status)
            break;
    }
    if (!assign_ini(fields)) {
        if (debug)
            std::cout << "Fail to check the validity of the INI\n";
        null_info_database(&m_ini_database);
        return;
    }
    if (!cmp_ini_password(password, definition)) {
        if (debug)
            std::cout << "Fail to compare INI password\n";
        null_info_database(&m_ini_database);
        return;
    }
    if (m_debug)
        print_ini_database();
}

bool MOXDEV_FLASH_MANAGER::get_string_from_ini(std::string text, std::string* field,
                                               size_t& position)
{
    field->clear();
    const std::size_t first = text.find('@', position);
    if (first == std::string::npos)
        return false;
    const std::size_t second = text.find('@', first + 1);
    if (second == std::string::npos)
        return false;
    *field = upper(text.substr(first + 1, second - first - 1));
    position = second;
    return true;
}

bool MOXDEV_FLASH_MANAGER::assign_ini(std::string* fields)
{
    bool valid = true;
    DWORD i = 0;
    moxdev_for_each_flash_field(m_ini_database, [&](const char*, MOXDEV_MANAGER_TYPE, auto& value) {
        using T = std::decay_t<decltype(value)>;
        if (!valid)
            return;
        const std::string& text = fields[i++];
        if constexpr (std::is_same_v<T, std::string>)
            value = text;
        else if constexpr (std::is_same_v<T, bool>)
            value = get_boolean_from_string(text, valid);
        else if constexpr (std::is_same_v<T, BYTE>)
            value = BYTE(get_number_from_string(text, 255, valid));
        else
            value = get_number_from_string(text, 0xFFFFFFFFu, valid);
    });
    return valid;
}

bool MOXDEV_FLASH_MANAGER::get_boolean_from_string(std::string text, bool& valid)
{
    valid = text == "1" || text == "0";
    return text == "1";
}

DWORD MOXDEV_FLASH_MANAGER::get_number_from_string(std::string text, DWORD maximum, bool& valid)
{
    // atoi: leading blanks, a sign and digits; the int result read as unsigned.
    const DWORD value = static_cast<DWORD>(static_cast<int>(std::strtol(text.c_str(), nullptr, 10)));
    valid = value <= maximum;
    return value;
}

DWORD MOXDEV_FLASH_MANAGER::get_dword_from_string(std::string text, bool* valid)
{
    DWORD value = 0;
    const bool converted = MOX_COMMON::convert_string_to_dword(text, value);
    if (valid != nullptr)
        *valid = converted;
    return converted ? value : 0;
}

std::string MOXDEV_FLASH_MANAGER::encode_ini(std::string text) const
{
    uLong capacity = ::compressBound(uLong(text.size()));
    std::vector<BYTE> compressed(capacity);
    DWORD compressed_size = DWORD(capacity);
    if (zlib_compress(compressed.data(), &compressed_size,
                      reinterpret_cast<const BYTE*>(text.data()), DWORD(text.size())) != ZLIB_OK) {
        std::cout << "Fail to generate INI because of compression failure\n";
        return "";
    }
    // The compressed bytes as one bit stream, least significant bit of each
    // byte first, cut into groups of six; a short last group is zero-padded.
    const QWORD bit_count = QWORD(compressed_size) * 8;
    const DWORD encoded_size = DWORD((bit_count + 5) / 6);
    std::string encoded_ini;
    encoded_ini.reserve(encoded_size);
    for (QWORD first_bit = 0; first_bit < bit_count; first_bit += 6) {
        unsigned value = 0;
        for (unsigned bit = 0; bit < 6 && first_bit + bit < bit_count; ++bit) {
            const QWORD position = first_bit + bit;
            value |= unsigned((compressed[position / 8] >> (position % 8)) & 1) << bit;
        }
        if (value > 63) {
            std::cout << "Invalid INI encoding\n";
            return "";
        }
        encoded_ini += INI_ALPHABET[value];
    }
    MOXDEV_ASSERT(encoded_ini.size() == encoded_size);
    return encoded_ini;
}

std::string MOXDEV_FLASH_MANAGER::decode_ini(std::string text) const
{
    return decode_ini_text(text, &std::cout);
}

std::string MOXDEV_FLASH_MANAGER::decode_ini_text(const std::string& text,
                                                  std::ostream* report) const
{
    const DWORD decoded_size = DWORD((QWORD(text.size()) * 6 + 7) / 8);
    std::vector<BYTE> decoded(decoded_size, 0);
    QWORD bit = 0;
    for (char c : text) {
        const int value = ini_value_of(c);
        if (value < 0) {
            if (report != nullptr)
                *report << "Invalid INI decoding\n";
            return "";
        }
        for (int i = 0; i < 6; ++i, ++bit) {
            if (value & (1 << i))
                decoded[bit / 8] |= BYTE(1u << (bit % 8));
        }
    }
    const DWORD decoded_index = DWORD((bit + 7) / 8);
    MOXDEV_ASSERT(decoded_index == decoded_size);

    // The definition inflates into a bounded buffer: a value that claims more
    // than any definition needs is as damaged as one that does not inflate.
    std::vector<BYTE> inflated(MAX_USER_DEFINITION);
    DWORD inflated_size = MAX_USER_DEFINITION;
    if (decoded.empty() ||
        zlib_uncompress(inflated.data(), &inflated_size, decoded.data(), decoded_size) != ZLIB_OK ||
        inflated_size > MAX_USER_DEFINITION) {
        if (report != nullptr)
            *report << "Fail to generate INI because of decompression failure\n";
        return "";
    }
    return std::string(reinterpret_cast<const char*>(inflated.data()), inflated_size);
}

std::string MOXDEV_FLASH_MANAGER::gen_ini_password(std::string text) const
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
    const WORD version_crc =
        crc16_xmodem(reinterpret_cast<const BYTE*>(version_text.data()), version_text.size());
    const BYTE low = BYTE(version_crc);
    const BYTE high = BYTE(version_crc >> 8);

    // Eight interleaved groups of the text, each salted with the version's CRC
    // and reduced to two letters.
    const std::size_t sector_size = (total_size + 7) / 8;
    MOXDEV_ASSERT(sector_size > 0);
    auto letter = [](BYTE byte) { return char(byte >= 'A' && byte <= 'Z' ? byte : byte % 26 + 'A'); };
    std::string password;
    for (std::size_t group = 0; group < 8; ++group) {
        std::vector<BYTE> buffer(sector_size, 0);
        std::size_t k = 0;
        for (std::size_t i = group; i < total_size; i += 8)
            buffer[k++] = BYTE(text[i]) ^ (i % 2 ? high : low);
        const WORD crc = crc16_xmodem(buffer.data(), buffer.size());
        password += letter(BYTE(crc));
        password += letter(BYTE(crc >> 8));
    }
    return password;
}

bool MOXDEV_FLASH_MANAGER::cmp_ini_password(std::string password, std::string text) const
{
    return gen_ini_password(text) == password;
}

// ---------------------------------------------------------------- dialogue

namespace {

enum class ANSWER { TEXT, HEX, DECIMAL, YES_NO, POWER_OF_TWO };

// One question of the definition dialogue. Numbers are accepted from
// `minimum` to `maximum`; `allow_minus_one` also accepts "-1" (unused).
struct QUESTION {
    const char* prompt;
    ANSWER kind;
    DWORD minimum;
    DWORD maximum;
    bool allow_minus_one;
};

constexpr QUESTION QUESTIONS[] = {
    {"Manufacture Name : ", ANSWER::TEXT, 1, 19, false},
    {"Device Name : ", ANSWER::TEXT, 1, 19, false},
    {"Memory ID (hex) [1 - FE] : ", ANSWER::HEX, 1, 0xFE, false},
    {"Memory ID Index [0/1/2] : ", ANSWER::DECIMAL, 0, 2, false},
    {"Memory Type (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Memory Type Index [-1/0/1/2] : ", ANSWER::DECIMAL, 0, 2, true},
    {"Manufacturer ID (hex) [1 - FE] : ", ANSWER::HEX, 1, 0xFE, false},
    {"Manufacturer ID Index [0/1/2] : ", ANSWER::DECIMAL, 0, 2, false},
    {"Support Extended Mode [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Micron flow [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Spansion flow [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Protected after power-up [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Is AAI mode [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Read flag status [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Die count [1/2] : ", ANSWER::DECIMAL, 1, 2, false},
    {"Memory Density [1 - 2048 Mbit] : ", ANSWER::POWER_OF_TWO, 1, 2048, false},
    {"Sector Size [1 - 1024 Kbyte] : ", ANSWER::POWER_OF_TWO, 1, 1024, false},
    {"Bulk Erase time [1 - 900 seconds] : ", ANSWER::DECIMAL, 1, 900, false},
    {"Sector Erase Time [1 - 60 seconds] : ", ANSWER::DECIMAL, 1, 60, false},
    {"Page Program Time [1000 - 1000000 microseconds] : ", ANSWER::DECIMAL, 1000, 1000000, false},
    {"Protection Mask (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Protection Value (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Unprotect Value (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Protection Divisor (hex) [-1/3 - 20] : ", ANSWER::HEX, 3, 0x20, true},
    {"Bottom Value (bit location) [-1/0 - 7] : ", ANSWER::DECIMAL, 0, 7, true},
    {"SDM Support [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"AS Configuration Voltage : ", ANSWER::TEXT, 1, 19, false},
};

// Answers in question order.
enum : std::size_t {
    Q_MANUFACTURER, Q_DEVICE, Q_MEMORY_ID, Q_MEMORY_ID_INDEX, Q_MEMORY_TYPE, Q_MEMORY_TYPE_INDEX,
    Q_MFC_ID, Q_MFC_ID_INDEX, Q_EXTENDED, Q_MICRON, Q_SPANSION, Q_PROTECTED, Q_AAI, Q_FLAG_STATUS,
    Q_DIE_COUNT, Q_DENSITY, Q_SECTOR, Q_BULK_ERASE, Q_SECTOR_ERASE, Q_PAGE_PROGRAM, Q_MASK,
    Q_VALUE, Q_UNPROTECT, Q_DIVISOR, Q_BOTTOM, Q_SDM, Q_VOLTAGE, QUESTION_COUNT
};
static_assert(sizeof QUESTIONS / sizeof QUESTIONS[0] == QUESTION_COUNT);

} // namespace

void MOXDEV_FLASH_MANAGER::gen_flash_ini()
{
    gen_flash_ini(std::cin, std::cout);
}

void MOXDEV_FLASH_MANAGER::gen_flash_ini(std::istream& in, std::ostream& out)
{
    m_dialogue_in = &in;
    m_dialogue_out = &out;
    out << "Number of 3rd party flash to define (max 3) : " << std::flush;
    std::string answer;
    std::getline(in, answer);
    gen_remove_leading_and_trailing_white_spaces(answer);
    bool valid = false;
    const DWORD count = get_dword_from_string(answer, &valid);
    if (!valid || count == 0 || count > 3) {
        out << "Invalid input or too many flash to define\n";
        return;
    }

    std::string text;
    for (DWORD chip = 0; chip < count; ++chip) {
        std::string definition;
        if (!prompt_flash_info(definition))
            break;
        text = fmt::format("{}{}#{};", text, definition, gen_ini_password(definition));
    }
    // A failed first chip has printed its reason; there is nothing to encode.
    if (text.empty())
        return;
    out << "Raw: " << text << "\n";
    const std::string encoded = encode_ini(text);
    if (!encoded.empty() && decode_ini_text(encoded, &out) == text)
        out << "INI : " << encoded << "\n";
    else
        out << "Fail to generate INI because fail to counter-check cmp-encode-decode-decmp\n";
}

bool MOXDEV_FLASH_MANAGER::prompt_flash_info(std::string& definition)
{
    std::istream& in = m_dialogue_in != nullptr ? *m_dialogue_in : std::cin;
    std::ostream& out = m_dialogue_out != nullptr ? *m_dialogue_out : std::cout;
    definition.clear();

    // Each answer as its definition text; numbers also as values.
    std::string texts[QUESTION_COUNT];
    DWORD values[QUESTION_COUNT] = {};
    for (std::size_t q = 0; q < QUESTION_COUNT; ++q) {
        const QUESTION& question = QUESTIONS[q];
        out << question.prompt << std::flush;
        std::string answer;
        std::getline(in, answer);
        gen_remove_leading_and_trailing_white_spaces(answer);
        stl_toupper(answer);

        bool valid = false;
        DWORD value = 0;
        switch (question.kind) {
        case ANSWER::TEXT:
            if (answer.empty() || answer.size() > question.maximum) {
                out << "Empty name or name too long\n";
                return false;
            }
            texts[q] = answer;
            continue;
        case ANSWER::YES_NO:
            valid = answer == "Y" || answer == "N";
            value = answer == "Y" ? 1 : 0;
            break;
        case ANSWER::HEX:
        case ANSWER::DECIMAL:
        case ANSWER::POWER_OF_TWO:
            if (question.allow_minus_one && answer == "-1") {
                value = get_dword_from_string("0xFFFFFFFF", &valid);
                break;
            }
            value = get_dword_from_string(question.kind == ANSWER::HEX ? "0x" + answer : answer, &valid);
            valid = valid && value >= question.minimum && value <= question.maximum &&
                    (question.kind != ANSWER::POWER_OF_TWO || is_power_of_two(value));
            break;
        }
        if (!valid) {
            out << "Invalid input\n";
            return false;
        }
        values[q] = value;
        texts[q] = to_string(value, false);
    }

    // The three ID bytes must be read from three different places.
    const DWORD type_index = values[Q_MEMORY_TYPE_INDEX];
    if (values[Q_MEMORY_ID_INDEX] == values[Q_MFC_ID_INDEX] ||
        (type_index != INVALID_DWORD &&
         (type_index == values[Q_MEMORY_ID_INDEX] || type_index == values[Q_MFC_ID_INDEX]))) {
        out << "Memory ID, Memory Type and Manufacturer ID index cannot be at the same location";
        return false;
    }

    const DWORD bits = values[Q_DENSITY] << 20;
    const std::string fields[TOTAL_DATABASE_MEMBER] = {
        texts[Q_MANUFACTURER], texts[Q_DEVICE], "0",
        texts[Q_MEMORY_ID], texts[Q_MEMORY_ID_INDEX], texts[Q_MEMORY_TYPE],
        texts[Q_MEMORY_TYPE_INDEX], texts[Q_MFC_ID], texts[Q_MFC_ID_INDEX],
        "32", "1", "NONE",
        texts[Q_EXTENDED], texts[Q_MICRON], texts[Q_SPANSION],
        texts[Q_PROTECTED], texts[Q_AAI], texts[Q_FLAG_STATUS],
        texts[Q_DIE_COUNT], to_string(bits, false), to_string(values[Q_SECTOR] << 10, false),
        "0", bits >= 0x8000001 ? "1" : "0",
        texts[Q_BULK_ERASE], texts[Q_SECTOR_ERASE], texts[Q_PAGE_PROGRAM],
        texts[Q_MASK], texts[Q_VALUE], texts[Q_UNPROTECT],
        texts[Q_DIVISOR], texts[Q_BOTTOM], texts[Q_SDM], texts[Q_VOLTAGE],
    };
    for (const std::string& field : fields)
        definition += "@" + field;
    definition += "@";
    out << "Prompt outcome: " << definition << "\n";
    return true;
}

// ---------------------------------------------------------------- generation

namespace {

// Lines 2, 3 and 7 are free text; every other line has one cell per field.
bool line_has_fixed_columns(DWORD line)
{
    return line != 2 && line != 3 && line != 7;
}

} // namespace

DWORD MOXDEV_FLASH_MANAGER::check_flash_file(FIO_PATH csv, DWORD& record_count)
{
    MOXDEV_TABLE_READER reader(csv.fullpath());
    MOXDEV_ASSERT_MSG(reader.good(), "Unable to open the flash table " + csv.fullpath());
    record_count = 0;
    QWORD size = MOXDEV_DB_PAYLOAD_HEADER_SIZE;
    DWORD type_counts[MOXDEV_MANAGER_ENUM + 1] = {};
    std::vector<std::string> svec;
    for (DWORD line = 0; reader.next(svec); ++line) {
        if (line_has_fixed_columns(line))
            MOXDEV_ASSERT(DWORD(svec.size()) == TOTAL_DATABASE_MEMBER);
        if (line == 0) {
            MOXDEV_ASSERT(svec.size() == TOTAL_DATABASE_MEMBER);
            for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
                switch (MOXDEV_FLASH_FIELD_TYPES[i]) {
                case MOXDEV_MANAGER_STRING: MOXDEV_ASSERT(svec.at(i) == "STL_STRING"); break;
                case MOXDEV_MANAGER_BOOL: MOXDEV_ASSERT(svec.at(i) == "bool"); break;
                case MOXDEV_MANAGER_BYTE: MOXDEV_ASSERT(svec.at(i) == "BYTE"); break;
                case MOXDEV_MANAGER_WORD: MOXDEV_ASSERT(svec.at(i) == "WORD"); break;
                case MOXDEV_MANAGER_DWORD: MOXDEV_ASSERT(svec.at(i) == "DWORD"); break;
                default: MOXDEV_FAIL("Unsupported type");
                }
                ++type_counts[MOXDEV_FLASH_FIELD_TYPES[i]];
            }
        } else if (line == 1) {
            MOXDEV_ASSERT(svec.size() == TOTAL_DATABASE_MEMBER);
            for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
                std::string temp = svec[i];
                stl_tolower(temp);
                MOXDEV_ASSERT_MSG(temp == MOXDEV_FLASH_FIELD_NAMES[i], "temp == m_name_list[i]");
            }
        } else if (line >= FIRST_RECORD_LINE) {
            size += TOTAL_DATABASE_MEMBER; // one tag per field
            for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
                switch (MOXDEV_FLASH_FIELD_TYPES[i]) {
                case MOXDEV_MANAGER_STRING: size += 1 + svec[i].size(); break;
                case MOXDEV_MANAGER_WORD: size += 2; break;
                case MOXDEV_MANAGER_DWORD: size += 4; break;
                default: size += 1; break;
                }
            }
            size += 4; // "END1"
            ++record_count;
        }
    }
    size += 4; // "END2"
    const bool status = size > 0 && size < 0x80000000ull;
    const DWORD device_count = record_count;
    MOXDEV_ASSERT(status && device_count > 0);
    return DWORD(size);
}

void MOXDEV_FLASH_MANAGER::dump_to_database(BYTE*& data, DWORD& index,
                                            std::vector<std::string> svec)
{
    write_in_place(data, index, [&](MOXDEV_FIELD_WRITER& out) { write_record(out, svec); });
}

void MOXDEV_FLASH_MANAGER::write_record(MOXDEV_FIELD_WRITER& out, const std::vector<std::string>& svec)
{
    MOXDEV_ASSERT(DWORD(svec.size()) == TOTAL_DATABASE_MEMBER);
    for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
        const std::string& string = svec[i];
        switch (MOXDEV_FLASH_FIELD_TYPES[i]) {
        case MOXDEV_MANAGER_STRING:
            MOXDEV_ASSERT(string.size() > 0);
            out.string_field(false, string, MOXDEV_MANAGER_STRING);
            break;
        case MOXDEV_MANAGER_BOOL:
            MOXDEV_ASSERT(string == "FALSE" || string == "TRUE");
            out.bool_field(string);
            break;
        case MOXDEV_MANAGER_BYTE: out.value_field(string, 1); break;
        case MOXDEV_MANAGER_WORD: out.value_field(string, 2); break;
        case MOXDEV_MANAGER_DWORD: out.value_field(string, 4); break;
        default: MOXDEV_FAIL("Unsupported type");
        }
    }
}

void MOXDEV_FLASH_MANAGER::generate_flash_database(FIO_PATH csv, FIO_PATH out)
{
    DWORD record_count = 0;
    const DWORD pure_memory_size = check_flash_file(csv, record_count);
    MOXDEV_ASSERT(pure_memory_size > 0);

    MOXDEV_ASSERT(MOXDEV_FLASH_INFO_CSV_MD5.size() == 32);
    MOXDEV_FIELD_WRITER image = start_database_image(FLASH_MAGIC, MOXDEV_FLASH_INFO_CSV_MD5, record_count,
                                                     TOTAL_DATABASE_MEMBER, pure_memory_size);

    MOXDEV_TABLE_READER table(csv.fullpath());
    std::vector<std::string> cells;
    for (DWORD line = 0; table.next(cells); ++line) {
        if (line < FIRST_RECORD_LINE)
            continue;
        write_record(image, cells);
        image.marker("END1");
    }
    image.marker("END2");
    MOXDEV_ASSERT_MSG(image.size() == pure_memory_size + MOXDEV_DB_HEADER_SIZE, "index == memory_size");
    finish_database_image(image);
    write_database_file(image.bytes(), out);
}

// ---------------------------------------------------------------- listings

std::vector<std::pair<std::string, std::string>>
moxdev_flash_info_to_text(const MOXDEV_SFL_FLASH_INFO& record)
{
    static const std::set<std::string> hex_fields = {
        "memory_id", "memory_type", "mfc_id", "protection_mask", "protection_value", "unprotect_value"};
    static const std::set<std::string> optional_fields = {"memory_type_index", "protection_division",
                                                          "bottom_value"};
    std::vector<std::pair<std::string, std::string>> fields;
    fields.reserve(TOTAL_DATABASE_MEMBER);
    moxdev_for_each_flash_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE,
                                            const auto& value) {
        using T = std::decay_t<decltype(value)>;
        std::string text;
        if constexpr (std::is_same_v<T, std::string>)
            text = value;
        else if constexpr (std::is_same_v<T, bool>)
            text = value ? "TRUE" : "FALSE";
        else if (hex_fields.count(name))
            text = fmt::format("0x{:02X}", value);
        else if (optional_fields.count(name))
            text = MOXDEV_FLASH_MANAGER::to_string(value, true);
        else
            text = std::to_string(value);
        fields.emplace_back(name, std::move(text));
    });
    return fields;
}

void MOXDEV_FLASH_MANAGER::print_database() const
{
    for (DWORD i = 0; m_flash_database && i < m_flash_count; ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = (*m_flash_database)[i];
        fmt::print("Flash record {} of {}: {} {}\n", i, m_flash_count, record.manufacturer_name,
                   record.device_name);
        for (const auto& field : moxdev_flash_info_to_text(record))
            fmt::print("  {:<20} {}\n", field.first, field.second);
    }
}

void MOXDEV_FLASH_MANAGER::print_ini_database() const
{
    fmt::print("User flash: {} {}\n", m_ini_database.manufacturer_name, m_ini_database.device_name);
    for (const auto& field : moxdev_flash_info_to_text(m_ini_database))
        fmt::print("  {:<20} {}\n", field.first, field.second);
}
