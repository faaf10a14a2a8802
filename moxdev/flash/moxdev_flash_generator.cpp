// Building the flash database file from the flash table.
#include "moxdev/moxdev_flash_manager.h"

#include "moxdev/internal/moxdev_assert.h"

#include "moxdev/table.h"

#include "host/gen_string.h"

// Internal errors of this file are the class's own.
static constexpr const char* MOXDEV_UNIT = "moxdev_flash_manager";

// The checking pass reads the table once, line by line, keeping nothing of
// a line after it (linear time, constant memory); the writing pass reads it
// again and builds the image, at most MOXDEV_MAX_PAYLOAD bytes, in one
// buffer.
DWORD MOXDEV_FLASH_MANAGER::check_flash_file(FIO_PATH csv, DWORD& record_count)
{
    // A table that cannot be opened reads as one without records, which the
    // record count below refuses.
    moxdev::TABLE_READER reader(csv.fullpath());
    record_count = 0;
    QWORD size = MOXDEV_DB_PAYLOAD_HEADER_SIZE;
    std::vector<std::string> svec;
    moxdev::TABLE_PROBLEM problem;
    for (DWORD line = 0; reader.next(svec); ++line) {
        if (!moxdev::check_flash_table_layout(line, svec, problem))
            MOXDEV_FAIL(problem.condition);
        if (line < moxdev::FLASH_TABLE_FIRST_RECORD)
            continue;
        size += moxdev::flash_record_payload_size(svec);
        ++record_count;
    }
    size += 4; // "END2"
    // A table whose payload exceeds what the reader takes fails the check.
    const bool status = size > 0 && size <= MOXDEV_MAX_PAYLOAD;
    const DWORD device_count = record_count;
    MOXDEV_ASSERT(status && device_count > 0);
    return DWORD(size);
}

void MOXDEV_FLASH_MANAGER::dump_to_database(BYTE*& data, DWORD& index, std::vector<std::string> svec)
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
    MOXDEV_FIELD_WRITER image = start_database_image(MOXDEV_FLASH_DB_MAGIC, MOXDEV_FLASH_INFO_CSV_MD5, record_count,
                                                     TOTAL_DATABASE_MEMBER, pure_memory_size);

    moxdev::TABLE_READER table(csv.fullpath());
    std::vector<std::string> cells;
    for (DWORD line = 0; table.next(cells); ++line) {
        if (line < moxdev::FLASH_TABLE_FIRST_RECORD)
            continue;
        write_record(image, cells);
        image.marker("END1");
    }
    image.marker("END2");
    MOXDEV_ASSERT_MSG(image.size() == pure_memory_size + MOXDEV_DB_HEADER_SIZE, "index == memory_size");
    finish_database_image(image);
    write_database_file(image.bytes(), out);
}
