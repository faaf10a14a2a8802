#include "moxdev/moxdev_flash_manager.h"

#include "moxdev/flash/moxdev_default_rule.h"
#include "moxdev/flash/moxdev_user_value_codec.h"
#include "moxdev/internal/moxdev_assert.h"

#include "host/cfg.h"
#include "host/gen_path.h"
#include "host/gen_string.h"
#include "host/mox_common.h"
#include "host/msg.h"

#include <absl/strings/match.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <type_traits>

// Internal errors of this file are the class's own.
static constexpr const char* MOXDEV_UNIT = "moxdev_flash_manager";

const char* const MOXDEV_FLASH_FIELD_NAMES[TOTAL_DATABASE_MEMBER] = {
#define MOXDEV_FLASH_FIELD(name, stream_type, type) #name,
#include "moxdev/moxdev_flash_info_fields.def"
};

const MOXDEV_MANAGER_TYPE MOXDEV_FLASH_FIELD_TYPES[TOTAL_DATABASE_MEMBER] = {
#define MOXDEV_FLASH_FIELD(name, stream_type, type) MOXDEV_MANAGER_##stream_type,
#include "moxdev/moxdev_flash_info_fields.def"
};

namespace {

constexpr const char* USER_FLASH_KEY = "MOX_SUPPORT_EXT_SPI_DEV";
constexpr const char* USER_FLASH_DEBUG_KEY = "MOX_SUPPORT_EXT_SPI_DEV_DEBUG";

constexpr DWORD listed_field_count()
{
    DWORD count = 0;
#define MOXDEV_FLASH_FIELD(name, stream_type, type) ++count;
#include "moxdev/moxdev_flash_info_fields.def"
    return count;
}
static_assert(listed_field_count() == TOTAL_DATABASE_MEMBER,
              "the field list must hold every field of the flash record");

std::string upper(std::string text)
{
    stl_toupper(text);
    return text;
}

// gen_stricmp(text, "NONE") == 0, without copies.
bool is_none(const std::string& text)
{
    return text.size() == 4 && absl::EqualsIgnoreCase(text, "NONE");
}

} // namespace

// ---------------------------------------------------------------- construction

MOXDEV_FLASH_MANAGER::MOXDEV_FLASH_MANAGER(bool, DWORD device_count, bool skip_loading, bool debug)
    : MOXDEV_DATABASE_CODEC("moxdev_flash_manager"), m_debug(debug ? 1 : 0)
{
    if (skip_loading)
        return;
    load(gen_get_device_db_fullpath() + "/programmer/mox_flash.pcf", KEEP::ENABLED);
    attach_chain(device_count);
}

void MOXDEV_FLASH_MANAGER::attach_chain(DWORD device_count)
{
    // Checked only once the database has loaded.
    const DWORD count = device_count;
    MOXDEV_ASSERT(count > 0);
    m_device_count = count;
    m_device_to_flash_map = std::make_shared<std::vector<DWORD>>(count, INVALID_DWORD);
}

void MOXDEV_FLASH_MANAGER::initialize_flash_database(FIO_PATH flash_file)
{
    load(flash_file, KEEP::ENABLED);
}

void MOXDEV_FLASH_MANAGER::load(const FIO_PATH& flash_file, KEEP keep)
{
    PAYLOAD payload = read_database_file(flash_file, "flash_file", MOXDEV_FLASH_DB_MAGIC, MOXDEV_FLASH_INFO_CSV_MD5);
    MOXDEV_FIELD_READER in = reader(payload.data.get(), payload.size);
    parse_payload(in, keep);
}

bool MOXDEV_FLASH_MANAGER::parse_database(BYTE* data)
{
    MOXDEV_FIELD_READER in = trusting_reader(data, 0);
    parse_payload(in, KEEP::ENABLED);
    // The result carries no meaning; callers ignore it.
    return false;
}

void MOXDEV_FLASH_MANAGER::parse_payload(MOXDEV_FIELD_READER& in, KEEP keep)
{
    version = in.get_dword();
    MOXDEV_ASSERT_MSG(version == MOXDEV_DB_VERSION, "Mismatch version between flash file and reader");
    m_flash_count = in.get_dword();
    m_type_count = in.get_dword();
    MOXDEV_ASSERT(m_flash_count > 0 && m_type_count > 0);

    parse_ext_flash_info();
    m_ini_count = m_ini_database.device_name.empty() ? 0 : 1;

    m_flash_database = std::make_shared<std::vector<MOXDEV_SFL_FLASH_INFO>>(
        moxdev_records_room(m_flash_count, in, TOTAL_DATABASE_MEMBER) + m_ini_count);
    DWORD slot = m_ini_count;
    while (m_flash_count > slot - m_ini_count) {
        if (read_record(in, slot, keep)) {
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
    const bool enabled = read_record(in, slot, KEEP::ENABLED);
    index = in.position();
    return enabled;
}

bool MOXDEV_FLASH_MANAGER::read_record(MOXDEV_FIELD_READER& in, DWORD slot, KEEP keep)
{
    MOXDEV_ASSERT_MSG(m_flash_database != nullptr && slot < m_flash_database->size(),
                      "slot < m_flash_count + m_ini_count");
    MOXDEV_SFL_FLASH_INFO& record = (*m_flash_database)[slot];
    moxdev_for_each_flash_field(record,
                                [&](const char*, MOXDEV_MANAGER_TYPE, auto& value) { moxdev_read_field(in, value); });
    // Most records have no switch: those pass every check of enable_device().
    if (is_none(record.ini))
        return true;
    const bool enabled = enable_device(slot);
    return enabled || keep == KEEP::EVERY;
}

bool MOXDEV_FLASH_MANAGER::enable_device(DWORD index)
{
    MOXDEV_ASSERT_MSG(m_flash_database != nullptr, "m_flash_database != NULL");
    MOXDEV_ASSERT(index < (m_flash_count + m_ini_count));
    MOXDEV_ASSERT_MSG(index < m_flash_database->size(), "index < (m_flash_count + m_ini_count)");
    const std::string& ini = (*m_flash_database)[index].ini;
    MOXDEV_ASSERT(!ini.empty());
    if (is_none(ini))
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
    moxdev::detail::DEFAULTS_PER_NAME defaults(m_flash_count);
    for (DWORD i = first; i < first + m_flash_count; ++i)
        defaults.add(records[i].device_name, records[i].default_dev, i);
    // The names in the order of their first records: the first that breaks
    // the rule names the failure.
    const auto violation = defaults.first_violation();
    if (violation.kind == violation.SECOND_DEFAULT)
        MOXDEV_FAIL("!one_default");
    MOXDEV_ASSERT_MSG(violation.kind != violation.NO_DEFAULT, "one_default");
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

bool MOXDEV_FLASH_MANAGER::flash_id_database_mapping(bool silicon_id_mode, DWORD device_index, BYTE* id_bytes)
{
    // Without a count every byte a record can index must be readable: 256.
    return bind(silicon_id_mode, device_index, id_bytes, 256);
}

bool MOXDEV_FLASH_MANAGER::bind(bool silicon_id_mode, DWORD device_index, const BYTE* id_bytes, DWORD id_count)
{
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr, "m_device_to_flash_map != NULL");
    MOXDEV_ASSERT(device_index < m_device_count);
    MOXDEV_ASSERT_MSG(m_flash_database != nullptr && m_flash_count > 0,
                      "m_flash_database != NULL && m_flash_count > 0");
    std::vector<DWORD>& map = *m_device_to_flash_map;
    map[device_index] = first_match(silicon_id_mode, id_bytes, id_count);
    if (map[device_index] == INVALID_DWORD)
        return false;
    if (msg_local_debug_on(2))
        msg_local_debug(2, MOXDEV_MODULE,
                        fmt::format("Found Device {} {} id at index {}", device_index + 1,
                                    silicon_id_mode ? "silicon" : "device", map[device_index]));
    return true;
}

DWORD MOXDEV_FLASH_MANAGER::first_match(bool silicon_id_mode, const BYTE* id_bytes, DWORD id_count) const
{
    auto byte_is = [&](BYTE position, BYTE expected) { return position < id_count && id_bytes[position] == expected; };
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
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr && device < m_device_count && m_flash_database != nullptr &&
                          m_flash_count > 0 && index < m_flash_count,
                      "m_device_to_flash_map != NULL && device < m_device_count && "
                      "m_flash_database != NULL && m_flash_count > 0 && index < m_flash_count");
    (*m_device_to_flash_map)[device] = index;
}

const MOXDEV_SFL_FLASH_INFO& MOXDEV_FLASH_MANAGER::bound_record(DWORD device) const
{
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr && device < m_device_count && m_flash_database != nullptr &&
                          m_flash_count > 0,
                      "m_device_to_flash_map != NULL && device < m_device_count && "
                      "m_flash_database != NULL && m_flash_count > 0");
    const DWORD index = (*m_device_to_flash_map)[device];
    MOXDEV_ASSERT(index != INVALID_DWORD);
    MOXDEV_ASSERT_MSG(index < m_flash_count, "index < m_flash_count");
    return (*m_flash_database)[index];
}

#define MOXDEV_FLASH_FIELD(name, stream_type, type)                                                                    \
    type MOXDEV_FLASH_MANAGER::sfl_get_##name(DWORD device) const                                                      \
    {                                                                                                                  \
        return bound_record(device).name;                                                                              \
    }
#include "moxdev/moxdev_flash_info_fields.def"

DWORD MOXDEV_FLASH_MANAGER::sfl_get_chain_longest_program_utime() const
{
    MOXDEV_ASSERT(m_device_count > 0);
    MOXDEV_ASSERT_MSG(m_device_to_flash_map != nullptr && m_flash_database != nullptr && m_flash_count > 0,
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
    std::string decoded, error;
    if (!moxdev::detail::decode_user_value(value, decoded, error)) {
        if (debug)
            std::cout << error << "\n";
        return;
    }
    if (debug)
        std::cout << "Decoded INI : " << decoded << "\n";

    std::string definition, password;
    moxdev::detail::split_user_value(decoded, definition, password);
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

bool MOXDEV_FLASH_MANAGER::read_definition(const std::string& definition)
{
    std::string fields[TOTAL_DATABASE_MEMBER];
    std::size_t position = 0;
    for (std::string& field : fields) {
        if (!get_string_from_ini(definition, &field, position))
            break;
    }
    return assign_ini(fields);
}

bool MOXDEV_FLASH_MANAGER::get_string_from_ini(std::string text, std::string* field, size_t& position)
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
    std::string encoded, error;
    if (!moxdev::detail::encode_user_value(text, encoded, error))
        std::cout << error << "\n";
    return encoded;
}

std::string MOXDEV_FLASH_MANAGER::decode_ini(std::string text) const
{
    std::string decoded, error;
    if (!moxdev::detail::decode_user_value(text, decoded, error))
        std::cout << error << "\n";
    return decoded;
}

std::string MOXDEV_FLASH_MANAGER::gen_ini_password(std::string text) const
{
    return moxdev::detail::user_value_check(text);
}

bool MOXDEV_FLASH_MANAGER::cmp_ini_password(std::string password, std::string text) const
{
    return gen_ini_password(text) == password;
}
