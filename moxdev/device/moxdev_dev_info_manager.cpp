#include "moxdev/moxdev_dev_info_manager.h"

#include "moxdev/internal/moxdev_assert.h"
#include "moxdev/internal/moxdev_file_reader.h"
#include "moxdev/moxdev_dev_info_manager_auto_export.h"

#include "host/gen_path.h"
#include "host/gen_string.h"
#include "host/mox_common.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <type_traits>

// Internal errors of this file are the class's own.
static constexpr const char* MOXDEV_UNIT = "moxdev_dev_info_manager";

namespace {

// Lines of the part list are read in pieces of at most this many bytes,
// terminator included.
constexpr int PART_LIST_LINE_LIMIT = 10240;
// The largest part list read.
constexpr std::size_t PART_LIST_CAP = 16 * 1024 * 1024;
constexpr const char* CSV_DELIMITERS = " \t\n,";

// The values an enumeration without a fixed underlying type can hold run
// from 0 to all bits of its largest enumerator set.
constexpr DWORD enumeration_mask(DWORD largest)
{
    DWORD mask = 0;
    while (mask < largest)
        mask = mask << 1 | 1;
    return mask;
}

} // namespace

// ---------------------------------------------------------------- construction

MOXDEV_DEV_INFO_MANAGER::MOXDEV_DEV_INFO_MANAGER(bool skip_load, DWORD print_mode)
    : MOXDEV_DATABASE_CODEC("moxdev_dev_info_manager"), m_print_mode(print_mode),
      m_family_table(std::make_shared<std::vector<DWORD>>(DEV_FAMILY_MAX, INVALID_DWORD)),
      m_device_table(std::make_shared<std::vector<DWORD>>(DEV_DEVICE_MAX, INVALID_DWORD)),
      m_part_table(std::make_shared<std::vector<DWORD>>(DEV_PART_MAX, INVALID_DWORD)),
      m_part_list(std::make_shared<std::vector<MOXDEV_PART_LIST_ENTRY>>())
{
    if (skip_load)
        return;
    initialize_device_database(gen_get_device_db_fullpath() + "/programmer/mox_dev_info.pcf");
}

void MOXDEV_DEV_INFO_MANAGER::initialize_device_database(FIO_PATH device_file)
{
    PAYLOAD payload = read_database_file(device_file, "device_file", MOXDEV_DEVICE_DB_MAGIC, MOXDEV_DEV_INFO_CSV_MD5);
    const DWORD memory_size = payload.size;
    MOXDEV_ASSERT(memory_size > get_table_size());
    m_csv_memory_size = memory_size - get_table_size();
    MOXDEV_FIELD_READER in = reader(payload.data.get(), memory_size);
    parse_payload(in, false);
}

DWORD MOXDEV_DEV_INFO_MANAGER::get_table_size() const
{
    // Three tags and counts, then one entry per family, device and part value.
    return 4 * DWORD(DEV_PART_MAX) + 15 + 4 * DWORD(DEV_FAMILY_MAX) + 4 * DWORD(DEV_DEVICE_MAX);
}

DWORD MOXDEV_DEV_INFO_MANAGER::scan_limit() const
{
    const DWORD loaded = m_device_database ? DWORD(m_device_database->size()) : 0;
    return loaded < TOTAL_DATABASE_DEVICE ? loaded : TOTAL_DATABASE_DEVICE;
}

// ---------------------------------------------------------------- parsing

bool MOXDEV_DEV_INFO_MANAGER::parse_database(BYTE* data, bool generating)
{
    MOXDEV_FIELD_READER in = trusting_reader(data, 0);
    parse_payload(in, generating);
    // The result carries no meaning; callers ignore it.
    return false;
}

void MOXDEV_DEV_INFO_MANAGER::parse_payload(MOXDEV_FIELD_READER& in, bool generating)
{
    version = in.get_dword();
    m_device_count = in.get_dword();
    m_type_count = in.get_dword();
    MOXDEV_ASSERT_MSG(version == MOXDEV_DB_VERSION, "Mismatch version between device file and reader");
    MOXDEV_ASSERT(m_device_count > 0 && m_type_count > 0);
    MOXDEV_ASSERT_MSG(m_device_database == nullptr, "m_device_database == NULL");
    m_device_database = std::make_shared<std::vector<MOXDEV_DEVICE_INFO>>(
        moxdev_records_room(m_device_count, in, TOTAL_DEVICE_DATABASE_MEMBER));
    for (DWORD record = 0; record < m_device_count; ++record) {
        read_record(in, record);
        in.record_end();
    }
    in.database_end();

    if (!generating) {
        const DWORD index = in.position();
        MOXDEV_ASSERT(index == m_csv_memory_size);
        read_tables(in);
        if (m_print_mode >= 1 && m_print_mode <= 4)
            print_database(m_print_mode);
    }
}

void MOXDEV_DEV_INFO_MANAGER::get_database(BYTE* data, DWORD& index, DWORD record)
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    read_record(in, record);
    index = in.position();
}

void MOXDEV_DEV_INFO_MANAGER::read_record(MOXDEV_FIELD_READER& in, DWORD record)
{
    MOXDEV_ASSERT_MSG(m_device_database != nullptr && record < m_device_database->size(), "record < m_device_count");
    moxdev_for_each_device_field((*m_device_database)[record], [&](const char*, MOXDEV_MANAGER_TYPE, auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_enum_v<T> || std::is_same_v<T, int>) {
            const DWORD raw = in.dword_field();
            if constexpr (std::is_enum_v<T>) {
                static_assert(std::is_same_v<T, DEV_FAMILY_ENUM> || std::is_same_v<T, DEV_DEVICE_ENUM>);
                // A value beyond the enumeration's bound is kept (the searches
                // report it), but one the enumeration cannot hold at all would
                // make the record itself invalid.
                const DWORD largest =
                    std::is_same_v<T, DEV_FAMILY_ENUM> ? DWORD(DEV_FAMILY_MAX) : DWORD(DEV_DEVICE_MAX);
                MOXDEV_ASSERT_MSG(raw <= enumeration_mask(largest), "catalogue value does not fit its enumeration");
            }
            value = static_cast<T>(raw);
        } else {
            moxdev_read_field(in, value);
        }
    });
}

void MOXDEV_DEV_INFO_MANAGER::get_table(BYTE* data, DWORD& index)
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    read_tables(in);
    index = in.position();
}

void MOXDEV_DEV_INFO_MANAGER::read_tables(MOXDEV_FIELD_READER& in)
{
    MOXDEV_ASSERT_MSG(m_device_database != nullptr && m_family_table != nullptr && m_device_table != nullptr &&
                          m_part_table != nullptr,
                      "m_device_database != NULL && m_family_table != NULL && "
                      "m_device_table != NULL && m_part_table != NULL");

    MOXDEV_ASSERT_MSG(in.get_byte() == MOXDEV_MANAGER_FAMILY_TBL, "data[index++] == MOXDEV_MANAGER_FAMILY_TBL");
    MOXDEV_ASSERT_MSG(in.get_dword() == DWORD(DEV_FAMILY_MAX), "get_dword(data, index) == DWORD(DEV_FAMILY_MAX)");
    in.get_dwords(m_family_table->data(), DWORD(m_family_table->size()));

    MOXDEV_ASSERT_MSG(in.get_byte() == MOXDEV_MANAGER_DEVICE_TBL, "data[index++] == MOXDEV_MANAGER_DEVICE_TBL");
    MOXDEV_ASSERT_MSG(in.get_dword() == DWORD(DEV_DEVICE_MAX), "get_dword(data, index) == DWORD(DEV_DEVICE_MAX)");
    in.get_dwords(m_device_table->data(), DWORD(m_device_table->size()));

    MOXDEV_ASSERT_MSG(in.get_byte() == MOXDEV_MANAGER_PART_TBL, "data[index++] == MOXDEV_MANAGER_PART_TBL");
    MOXDEV_ASSERT_MSG(in.get_dword() == DWORD(DEV_PART_MAX), "get_dword(data, index) == DWORD(DEV_PART_MAX)");
    in.get_dwords(m_part_table->data(), DWORD(m_part_table->size()));
}

// ---------------------------------------------------------------- lookups

MOXDEV_DEVICE_INFO* MOXDEV_DEV_INFO_MANAGER::copy_of_table_entry(const std::vector<DWORD>& table, DWORD value)
{
    m_index = table[value];
    if (m_index == INVALID_DWORD)
        return nullptr;
    MOXDEV_DEVICE_INFO* info = copy_database();
    MOXDEV_ASSERT_MSG(info != nullptr, "info != NULL");
    return info;
}

MOXDEV_DEVICE_INFO* MOXDEV_DEV_INFO_MANAGER::get_db_by_family(DEV_FAMILY_ENUM family)
{
    MOXDEV_ASSERT_MSG(DWORD(family) < DWORD(DEV_FAMILY_MAX), "family < DEV_FAMILY_MAX");
    return copy_of_table_entry(*m_family_table, DWORD(family));
}

MOXDEV_DEVICE_INFO* MOXDEV_DEV_INFO_MANAGER::get_db_by_device(DEV_DEVICE_ENUM device)
{
    MOXDEV_ASSERT_MSG(DWORD(device) < DWORD(DEV_DEVICE_MAX), "device < DEV_DEVICE_MAX");
    return copy_of_table_entry(*m_device_table, DWORD(device));
}

MOXDEV_DEVICE_INFO* MOXDEV_DEV_INFO_MANAGER::get_db_by_part(int part)
{
    MOXDEV_ASSERT_MSG(DWORD(part) < DWORD(DEV_PART_MAX), "part < DEV_PART_MAX");
    return copy_of_table_entry(*m_part_table, DWORD(part));
}

DWORD MOXDEV_DEV_INFO_MANAGER::get_family_index(DEV_FAMILY_ENUM family) const
{
    MOXDEV_ASSERT_MSG(DWORD(family) < DWORD(DEV_FAMILY_MAX), "family < DEV_FAMILY_MAX");
    return (*m_family_table)[family];
}

DWORD MOXDEV_DEV_INFO_MANAGER::get_device_index(DEV_DEVICE_ENUM device) const
{
    MOXDEV_ASSERT_MSG(DWORD(device) < DWORD(DEV_DEVICE_MAX), "device < DEV_DEVICE_MAX");
    return (*m_device_table)[device];
}

DWORD MOXDEV_DEV_INFO_MANAGER::get_part_index(int part) const
{
    MOXDEV_ASSERT_MSG(DWORD(part) < DWORD(DEV_PART_MAX), "part < DEV_PART_MAX");
    return (*m_part_table)[DWORD(part)];
}

const MOXDEV_DEVICE_INFO* MOXDEV_DEV_INFO_MANAGER::get_device_database() const
{
    return m_device_database ? m_device_database->data() : nullptr;
}

MOXDEV_DEVICE_INFO* MOXDEV_DEV_INFO_MANAGER::copy_database()
{
    MOXDEV_ASSERT(m_index < TOTAL_DATABASE_DEVICE);
    MOXDEV_ASSERT_MSG(m_device_database != nullptr, "m_device_database != NULL");
    // An index table entry may name a record that a damaged file lacks.
    MOXDEV_ASSERT_MSG(m_index < m_device_database->size(), "m_index < m_device_count");
    return new MOXDEV_DEVICE_INFO((*m_device_database)[m_index]);
}

template <class PREDICATE>
bool MOXDEV_DEV_INFO_MANAGER::find_record(PREDICATE matches)
{
    m_index = INVALID_DWORD;
    const DWORD limit = scan_limit();
    for (DWORD record = 0; record < limit; ++record) {
        if (matches((*m_device_database)[record])) {
            m_index = record;
            return true;
        }
    }
    return false;
}

bool MOXDEV_DEV_INFO_MANAGER::search_family(DEV_FAMILY_ENUM family, bool allow_invalid)
{
    m_index = INVALID_DWORD;
    MOXDEV_ASSERT_MSG(m_device_database != nullptr && DWORD(family) < DWORD(DEV_FAMILY_MAX) &&
                          (allow_invalid || family != DEV_FAMILY_INVALID),
                      "m_device_database != NULL && family < DEV_FAMILY_MAX && "
                      "(allow_invalid || family != DEV_FAMILY_INVALID)");
    return find_record([&](const MOXDEV_DEVICE_INFO& record) {
        const DWORD id = DWORD(record.family);
        MOXDEV_ASSERT_MSG(id < DWORD(DEV_FAMILY_MAX), "id < DEV_FAMILY_MAX");
        return id == DWORD(family);
    });
}

bool MOXDEV_DEV_INFO_MANAGER::search_device(DEV_DEVICE_ENUM device, bool allow_invalid)
{
    m_index = INVALID_DWORD;
    MOXDEV_ASSERT_MSG(m_device_database != nullptr && DWORD(device) < DWORD(DEV_DEVICE_MAX) &&
                          (allow_invalid || device != DEV_DEVICE_INVALID),
                      "m_device_database != NULL && device < DEV_DEVICE_MAX && "
                      "(allow_invalid || device != DEV_DEVICE_INVALID)");
    return find_record([&](const MOXDEV_DEVICE_INFO& record) {
        const DWORD id = DWORD(record.device);
        MOXDEV_ASSERT_MSG(id < DWORD(DEV_DEVICE_MAX), "id < DEV_DEVICE_MAX");
        return id == DWORD(device);
    });
}

bool MOXDEV_DEV_INFO_MANAGER::search_part(int part, bool allow_invalid)
{
    m_index = INVALID_DWORD;
    MOXDEV_ASSERT_MSG(m_device_database != nullptr && DWORD(part) < DWORD(DEV_PART_MAX) &&
                          (allow_invalid || part != DEV_PART_INVALID),
                      "m_device_database != NULL && part < DEV_PART_MAX && "
                      "(allow_invalid || part != DEV_PART_INVALID)");
    return find_record([&](const MOXDEV_DEVICE_INFO& record) {
        const DWORD id = DWORD(record.part);
        MOXDEV_ASSERT_MSG(id < DWORD(DEV_PART_MAX), "id < DEV_PART_MAX");
        return id == DWORD(part);
    });
}

// ---------------------------------------------------------------- part list

void MOXDEV_DEV_INFO_MANAGER::parse_mox_parts()
{
    // The whole list through one descriptor, bounded: a part list of the
    // catalogue's 19,000 parts is about 1 MiB.
    const std::string path = gen_get_install_fullpath() + "/h/mox_parts.txt";
    std::vector<BYTE> file;
    std::string error;
    MOXDEV_ASSERT_MSG(moxdev::detail::read_file(path, file, error, {PART_LIST_CAP, false}) ==
                          moxdev::detail::READ_RESULT::READ,
                      "Unable to read the part list " + path + ": " + error);

    std::vector<MOXDEV_PART_LIST_ENTRY> entries;
    DWORD line_number = 0;
    for (std::size_t at = 0; at < file.size();) {
        // A line is read in pieces of at most PART_LIST_LINE_LIMIT - 1 bytes,
        // each up to and with its '\n', and each piece ends at a NUL byte.
        std::size_t end = at;
        while (end < file.size() && end - at < std::size_t(PART_LIST_LINE_LIMIT - 1) && file[end++] != '\n') {}
        std::string line(reinterpret_cast<const char*>(&file[at]), end - at);
        line.resize(std::strlen(line.c_str()));
        at = end;
        ++line_number;
        gen_remove_leading_and_trailing_white_spaces(line);
        if (line.empty() || line.compare(0, 2, "//") == 0)
            continue;
        const STRING_TOKENIZER tokens(line, CSV_DELIMITERS, true);
        MOXDEV_ASSERT_MSG(tokens.size() >= 7, fmt::format("Part list line {} has {} tokens, fewer than seven: {}",
                                                          line_number, tokens.size(), line));
        MOXDEV_PART_LIST_ENTRY entry;
        entry.part = dstr_get_dev_part_enum_by_string(tokens.at(0).c_str());
        entry.device = dstr_get_dev_device_enum_by_string(tokens.at(1).c_str());
        entry.pcf = tokens.at(6);
        entries.push_back(std::move(entry));
    }
    *m_part_list = std::move(entries);
}

template <class PREDICATE>
bool MOXDEV_DEV_INFO_MANAGER::search_pcf_of_first_entry(PREDICATE matches)
{
    const auto& entries = *m_part_list;
    const auto entry = std::find_if(entries.begin(), entries.end(), matches);
    if (entry == entries.end() || entry->pcf.empty())
        return false;
    const std::string& pcf = entry->pcf;
    return find_record([&](const MOXDEV_DEVICE_INFO& record) { return gen_stricmp(pcf, record.pcf) == 0; });
}

bool MOXDEV_DEV_INFO_MANAGER::search_pcf_for_device(DEV_DEVICE_ENUM device)
{
    m_index = INVALID_DWORD;
    MOXDEV_ASSERT_MSG(m_device_database != nullptr && DWORD(device) < DWORD(DEV_DEVICE_MAX),
                      "m_device_database != NULL && device < DEV_DEVICE_MAX");
    if (device == DEV_DEVICE_INVALID)
        return false;
    return search_pcf_of_first_entry([&](const MOXDEV_PART_LIST_ENTRY& entry) { return entry.device == device; });
}

bool MOXDEV_DEV_INFO_MANAGER::search_pcf_for_part(int part)
{
    m_index = INVALID_DWORD;
    MOXDEV_ASSERT_MSG(m_device_database != nullptr && DWORD(part) < DWORD(DEV_PART_MAX),
                      "m_device_database != NULL && part < DEV_PART_MAX");
    if (part == DEV_PART_INVALID)
        return false;
    return search_pcf_of_first_entry([&](const MOXDEV_PART_LIST_ENTRY& entry) { return entry.part == part; });
}

// ---------------------------------------------------------------- listings

namespace {

std::string catalogue_value_text(const std::string& identifier, long long value)
{
    return fmt::format("{} ({})", identifier.empty() ? "?" : identifier, value);
}

std::string option_value_text(DWORD value)
{
    for (std::size_t i = 0; i < MOXDEV_OPTION_ID_TABLE.count; ++i) {
        if (MOXDEV_OPTION_ID_TABLE.entries[i].value == value)
            return catalogue_value_text(MOXDEV_OPTION_ID_TABLE.entries[i].name, value);
    }
    return std::to_string(value);
}

} // namespace

std::vector<std::pair<std::string, std::string>> moxdev_device_info_to_text(const MOXDEV_DEVICE_INFO& record)
{
    std::vector<std::pair<std::string, std::string>> fields;
    fields.reserve(TOTAL_DEVICE_DATABASE_MEMBER);
    moxdev_for_each_device_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE type, const auto& value) {
        using T = std::decay_t<decltype(value)>;
        std::string text;
        if constexpr (std::is_same_v<T, std::string>) {
            text = value;
        } else if constexpr (std::is_same_v<T, bool>) {
            text = value ? "true" : "false"; // as the flash records and JSON show them
        } else if constexpr (std::is_same_v<T, DEV_FAMILY_ENUM>) {
            text = catalogue_value_text(dstr_get_identifier(value), value);
        } else if constexpr (std::is_same_v<T, DEV_DEVICE_ENUM>) {
            text = catalogue_value_text(dstr_get_identifier(value), value);
        } else if constexpr (std::is_same_v<T, int>) {
            text = catalogue_value_text(dstr_get_part_identifier(value), value);
        } else if constexpr (std::is_same_v<T, DWORD>) {
            text = type == MOXDEV_MANAGER_ENUM ? option_value_text(value) : std::to_string(value);
        } else {
            text = std::to_string(unsigned(value));
        }
        fields.emplace_back(name, std::move(text));
    });
    return fields;
}

void MOXDEV_DEV_INFO_MANAGER::print_record(const MOXDEV_DEVICE_INFO& record) const
{
    for (const auto& field : moxdev_device_info_to_text(record))
        fmt::print("  {:<36} {}\n", field.first, field.second);
}

void MOXDEV_DEV_INFO_MANAGER::print_database(DWORD print_mode) const
{
    if (!m_device_database)
        return;
    const std::vector<MOXDEV_DEVICE_INFO>& records = *m_device_database;
    // One line per value: its display name, the record that serves it and
    // that record's programming-file name.
    auto print_entry = [&](const std::string& name, long long value, DWORD entry) {
        if (entry == INVALID_DWORD || entry >= records.size())
            fmt::print("{:<28} {:>6}  -> none\n", name, value);
        else
            fmt::print("{:<28} {:>6}  -> record {:>2}  {}\n", name, value, entry, records[entry].pcf);
    };
    switch (print_mode) {
    case 1:
        for (std::size_t r = 0; r < records.size(); ++r) {
            fmt::print("Record {} of {}\n", r, records.size());
            print_record(records[r]);
        }
        break;
    case 2:
        for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
            const DEV_FAMILY_ENUM family = DEV_FAMILY_ENUM(f);
            print_entry(family == DEV_FAMILY_GENERIC ? "Generic" : dstr_get_user_string(family), f,
                        (*m_family_table)[f]);
        }
        break;
    case 3:
        for (int d = 1; d < DEV_DEVICE_MAX; ++d) {
            const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(d);
            print_entry(device == DEV_DEVICE_GENERIC ? "Generic" : dstr_get_user_string(device), d,
                        (*m_device_table)[d]);
        }
        break;
    case 4:
        for (int p = 0; p < DEV_PART_MAX; ++p) {
            if (p == DEV_PART_INVALID)
                continue;
            print_entry(p == DEV_PART_GENERIC ? "Generic" : dstr_get_user_string(p), p, (*m_part_table)[DWORD(p)]);
        }
        break;
    default: break;
    }
}
