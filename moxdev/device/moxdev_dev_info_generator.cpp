// Building the device information database file from the device table, and
// the index tables it carries.
#include "moxdev/moxdev_dev_info_manager.h"

#include "moxdev/internal/moxdev_assert.h"
#include "moxdev/moxdev_dev_info_manager_auto_export.h"

#include "moxdev/table.h"

#include "host/gen_string.h"
#include "host/mox_common.h"

#include <fmt/format.h>

// Internal errors of this file are the class's own.
static constexpr const char* MOXDEV_UNIT = "moxdev_dev_info_manager";

namespace {

// Who hears about a family that the device table does not cover yet.
const char* const MISSING_FAMILY_RECIPIENTS = "device-support@velmar.example";
const char* const MISSING_FAMILY_SUBJECT = "moxdev: family missing from the device information table";

// Encoded size of one cell of the given type (tag byte included).
DWORD encoded_cell_size(MOXDEV_MANAGER_TYPE type, const std::string& cell)
{
    switch (type) {
    case MOXDEV_MANAGER_DEVID_STR:
    case MOXDEV_MANAGER_STRING: return 2 + DWORD(cell.size());
    case MOXDEV_MANAGER_BOOL:
    case MOXDEV_MANAGER_BYTE: return 2;
    case MOXDEV_MANAGER_WORD: return 3;
    default: return 5;
    }
}

} // namespace

// The checking pass reads the table once, line by line, keeping nothing of
// a line after it (linear time, constant memory); the writing pass writes
// the 79 records and the index tables, whose entries each take one lookup in
// the records (linear in the catalogue's parts).
DWORD MOXDEV_DEV_INFO_MANAGER::check_device_file(FIO_PATH csv_file, DWORD& device_count)
{
    // A table that cannot be opened reads as one without rows, which the
    // row count below refuses.
    moxdev::TABLE_READER reader(csv_file.fullpath());

    device_count = 0;
    QWORD size = MOXDEV_DB_PAYLOAD_HEADER_SIZE;
    std::vector<std::string> svec;
    moxdev::TABLE_PROBLEM problem;
    for (DWORD row = 0; reader.next(svec); ++row) {
        if (!moxdev::check_device_table_layout(row, svec, problem))
            MOXDEV_FAIL(problem.condition);
        if (row < 2)
            continue;
        for (DWORD i = 0; i < TOTAL_DEVICE_DATABASE_MEMBER; ++i)
            size += encoded_cell_size(MOXDEV_DEVICE_FIELD_TYPES[i], svec[i]);
        size += 4; // "END1"
        ++device_count;
    }
    MOXDEV_ASSERT(device_count == TOTAL_DATABASE_DEVICE);
    size += 4; // "END2"
    MOXDEV_ASSERT_MSG(size + get_table_size() <= MOXDEV_MAX_PAYLOAD,
                      "device table exceeds the " + std::to_string(MOXDEV_MAX_PAYLOAD) + " bytes a payload holds");
    return DWORD(size);
}

void MOXDEV_DEV_INFO_MANAGER::dump_to_database(BYTE*& data, DWORD& index, std::vector<std::string> svec)
{
    write_in_place(data, index, [&](MOXDEV_FIELD_WRITER& out) { write_record(out, svec); });
}

void MOXDEV_DEV_INFO_MANAGER::write_record(MOXDEV_FIELD_WRITER& out, const std::vector<std::string>& svec)
{
    MOXDEV_ASSERT(DWORD(svec.size()) == TOTAL_DEVICE_DATABASE_MEMBER);
    for (DWORD i = 0; i < TOTAL_DEVICE_DATABASE_MEMBER; ++i) {
        const std::string& cell = svec[i];
        switch (MOXDEV_DEVICE_FIELD_TYPES[i]) {
        case MOXDEV_MANAGER_DEVID_ENUM: write_enum(out, MOXDEV_DEVICE_FIELD_NAMES[i], cell); break;
        case MOXDEV_MANAGER_DEVID_STR: out.string_field(true, cell, MOXDEV_MANAGER_DEVID_STR); break;
        case MOXDEV_MANAGER_STRING: out.string_field(true, cell, MOXDEV_MANAGER_STRING); break;
        case MOXDEV_MANAGER_BOOL: out.bool_field(cell); break;
        case MOXDEV_MANAGER_BYTE: out.value_field(cell, 1); break;
        case MOXDEV_MANAGER_WORD: out.value_field(cell, 2); break;
        case MOXDEV_MANAGER_DWORD: out.value_field(cell, 4); break;
        case MOXDEV_MANAGER_ENUM: write_enum(out, "", cell); break;
        default: MOXDEV_FAIL("Unsupported type");
        }
    }
}

namespace {

const MOXDEV_NAME_TABLE* name_table_of(const std::string& type_name)
{
    if (type_name == "family")
        return &MOXDEV_FAMILY_ID_TABLE;
    if (type_name == "device")
        return &MOXDEV_DEVICE_ID_TABLE;
    if (type_name == "part")
        return &MOXDEV_PART_ID_TABLE;
    if (type_name.empty())
        return &MOXDEV_OPTION_ID_TABLE;
    return nullptr;
}

} // namespace

void MOXDEV_DEV_INFO_MANAGER::dump_enum_to_database(BYTE*& data, DWORD& index, std::string type_name, std::string value)
{
    write_in_place(data, index, [&](MOXDEV_FIELD_WRITER& out) { write_enum(out, type_name, value); });
}

void MOXDEV_DEV_INFO_MANAGER::write_enum(MOXDEV_FIELD_WRITER& out, const std::string& type_name,
                                         const std::string& value)
{
    const MOXDEV_NAME_TABLE* table = name_table_of(type_name);
    if (table == nullptr)
        MOXDEV_FAIL("Unsupported type name");
    bool found = false;
    DWORD id = 0;
    for (std::size_t i = 0; i < table->count && !found; ++i) {
        if (value == table->entries[i].name) {
            found = true;
            id = table->entries[i].value;
        }
    }
    MOXDEV_ASSERT(found);
    out.tagged_dword(type_name.empty() ? MOXDEV_MANAGER_ENUM : MOXDEV_MANAGER_DEVID_ENUM, id);
}

std::string MOXDEV_DEV_INFO_MANAGER::convert_id_enum_to_string(std::string type_name, DWORD id) const
{
    if (type_name == "family")
        MOXDEV_ASSERT(id < DWORD(DEV_FAMILY_MAX));
    else if (type_name == "device")
        MOXDEV_ASSERT(id < DWORD(DEV_DEVICE_MAX));
    else if (type_name == "part")
        MOXDEV_ASSERT(id < DWORD(DEV_PART_MAX));
    else
        MOXDEV_FAIL("Unsupported type name");
    const MOXDEV_NAME_TABLE* table = name_table_of(type_name);
    bool found = false;
    std::string name;
    for (std::size_t i = 0; i < table->count && !found; ++i) {
        if (table->entries[i].value == id) {
            found = true;
            name = table->entries[i].name;
        }
    }
    MOXDEV_ASSERT(found);
    return name;
}

void MOXDEV_DEV_INFO_MANAGER::send_missing_family_notice(DEV_FAMILY_ENUM family) const
{
    std::string name = fmt::format("{} ({})", dstr_get_user_string(family), int(family));
    stl_toupper(name);
    const std::string text = "Missing family " + name + " from Dev Info CSV.\n\n" +
                             "Forcing this family to use Generic database.\n\n" +
                             "Please add the family support as soon as possible.\n";
    MOX_COMMON::send_auto_email_file(MISSING_FAMILY_RECIPIENTS, MISSING_FAMILY_SUBJECT, text);
}

void MOXDEV_DEV_INFO_MANAGER::print_table(MOXDEV_FIELD_WRITER& out)
{
    MOXDEV_ASSERT_MSG(m_device_database != nullptr, "m_device_database != NULL");
    const DEV_PART_MANAGER part_manager;

    // Families: a family without a record of its own is served by record 1,
    // where the table keeps its Generic record, after a notice to the
    // maintainers; record 0 when the table has no Generic record at all.
    out.put_byte(MOXDEV_MANAGER_FAMILY_TBL);
    out.put_dword(DWORD(DEV_FAMILY_MAX));
    const bool has_generic = search_family(DEV_FAMILY_GENERIC, true);
    for (DWORD i = 0; i < DWORD(DEV_FAMILY_MAX); ++i) {
        const DEV_FAMILY_ENUM family = DEV_FAMILY_ENUM(i);
        DWORD entry = INVALID_DWORD;
        if (search_family(family, true)) {
            entry = m_index;
        } else if (family != DEV_FAMILY_INVALID) {
            MOXDEV_ASSERT(DEV_FAMILY_ENUM(i) != DEV_FAMILY_GENERIC);
            send_missing_family_notice(family);
            entry = has_generic ? 1 : 0;
        }
        (*m_family_table)[i] = entry;
        out.put_dword(entry);
    }

    // Devices: own record, else the record the part list's name leads to,
    // else the family's.
    out.put_byte(MOXDEV_MANAGER_DEVICE_TBL);
    out.put_dword(DWORD(DEV_DEVICE_MAX));
    for (DWORD d = 0; d < DWORD(DEV_DEVICE_MAX); ++d) {
        const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(d);
        DWORD entry = INVALID_DWORD;
        if (search_device(device, true)) {
            entry = m_index;
        } else if (device != DEV_DEVICE_INVALID) {
            if (search_pcf_for_device(device)) {
                MOXDEV_ASSERT(m_index < TOTAL_DATABASE_DEVICE);
            } else {
                const DEV_FAMILY_ENUM family = part_manager.get_family_of(device);
                MOXDEV_ASSERT(family != DEV_FAMILY_INVALID && family < DEV_FAMILY_MAX);
                m_index = (*m_family_table)[family];
                MOXDEV_ASSERT(m_index != DWORD(-1) && m_index < TOTAL_DATABASE_DEVICE);
            }
            entry = m_index;
        }
        (*m_device_table)[d] = entry;
        out.put_dword(entry);
    }

    // Parts: own record, else the device's.
    out.put_byte(MOXDEV_MANAGER_PART_TBL);
    out.put_dword(DWORD(DEV_PART_MAX));
    for (int part = 0; part < DEV_PART_MAX; ++part) {
        DWORD entry = INVALID_DWORD;
        if (search_part(part, true)) {
            entry = m_index;
        } else if (part != DEV_PART_INVALID) {
            const DEV_DEVICE_ENUM device = part_manager.get_device_of(part);
            MOXDEV_ASSERT(device != DEV_DEVICE_INVALID && device < DEV_DEVICE_MAX);
            m_index = (*m_device_table)[device];
            MOXDEV_ASSERT(m_index != DWORD(-1) && m_index < TOTAL_DATABASE_DEVICE);
            entry = m_index;
        }
        (*m_part_table)[DWORD(part)] = entry;
        out.put_dword(entry);
    }
}

void MOXDEV_DEV_INFO_MANAGER::generate_device_database(FIO_PATH csv_file, FIO_PATH device_file)
{
    // The work is done on a manager of its own, which becomes this one only
    // when the file is written: a failed generation leaves this one as it was.
    MOXDEV_DEV_INFO_MANAGER work(true, m_print_mode);
    work.m_device_database = m_device_database; // a loaded database refuses a second parse
    work.build_database_file(csv_file, device_file);
    *this = work;
}

void MOXDEV_DEV_INFO_MANAGER::build_database_file(const FIO_PATH& csv_file, const FIO_PATH& device_file)
{
    DWORD device_count = 0;
    const DWORD pure_memory_size = check_device_file(csv_file, device_count);
    MOXDEV_ASSERT(pure_memory_size > 0);
    const DWORD memory_size = pure_memory_size + get_table_size();

    MOXDEV_ASSERT(MOXDEV_DEV_INFO_CSV_MD5.size() == 32);
    MOXDEV_FIELD_WRITER image = start_database_image(MOXDEV_DEVICE_DB_MAGIC, MOXDEV_DEV_INFO_CSV_MD5, device_count,
                                                     TOTAL_DEVICE_DATABASE_MEMBER, memory_size);
    moxdev::TABLE_READER table(csv_file.fullpath());
    std::vector<std::string> cells;
    for (DWORD row = 0; table.next(cells); ++row) {
        if (row < 2)
            continue;
        write_record(image, cells);
        image.marker("END1");
    }
    image.marker("END2");

    // Read the records back as a self-test of what was written.
    MOXDEV_FIELD_READER written =
        reader(image.bytes().data() + MOXDEV_DB_HEADER_SIZE, image.size() - MOXDEV_DB_HEADER_SIZE);
    parse_payload(written, true);
    MOXDEV_ASSERT_MSG(m_device_database != nullptr, "m_device_database != NULL");

    parse_mox_parts();
    print_table(image);
    MOXDEV_ASSERT_MSG(image.size() == memory_size + MOXDEV_DB_HEADER_SIZE, "index == memory_size");
    finish_database_image(image);
    write_database_file(image.bytes(), device_file);
}
