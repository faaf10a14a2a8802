#include "moxdev/moxdev_field_stream.h"

#include "moxdev/internal/moxdev_assert.h"

#include "host/mox_common.h"

// ---------------------------------------------------------------- reader

void MOXDEV_FIELD_READER::fail(const std::string& condition, int line) const
{
    MSG_INTERNAL_ERROR::report(condition, MOXDEV_MODULE, m_unit, line);
}

void MOXDEV_FIELD_READER::beyond_end(int line) const
{
    fail("access beyond the end of the database buffer", line);
}

void MOXDEV_FIELD_READER::marker(char last)
{
    require(4, __LINE__);
    // One byte at a time, so that the first wrong one is named.
    static const char* const conditions[] = {"data[index++] == 'E'", "data[index++] == 'N'", "data[index++] == 'D'"};
    const char expected[] = {'E', 'N', 'D'};
    for (int i = 0; i < 3; ++i) {
        if (m_data[m_position++] != BYTE(expected[i]))
            fail(conditions[i], __LINE__);
    }
    if (m_data[m_position++] != BYTE(last))
        fail(last == '1' ? "data[index++] == '1'" : "data[index++] == '2'", __LINE__);
}

void MOXDEV_FIELD_READER::get_dwords(DWORD* out, DWORD count)
{
    if (!has(0) || QWORD(m_size - m_position) < QWORD(count) * 4)
        beyond_end(__LINE__);
    for (DWORD i = 0; i < count; ++i, m_position += 4)
        out[i] = little_endian(m_data + m_position);
}

// ---------------------------------------------------------------- writer

void MOXDEV_FIELD_WRITER::fail(const std::string& condition, int line) const
{
    MSG_INTERNAL_ERROR::report(condition, MOXDEV_MODULE, m_unit, line);
}

void MOXDEV_FIELD_WRITER::patch_dword(DWORD offset, DWORD value)
{
    if (offset > m_bytes.size() || m_bytes.size() - offset < 4)
        fail("access beyond the end of the database buffer", __LINE__);
    for (int i = 0; i < 4; ++i)
        m_bytes[offset + i] = BYTE(value >> (8 * i));
}

void MOXDEV_FIELD_WRITER::value_field(const std::string& text, DWORD size)
{
    if (!(size == 1 || size == 2 || size == 4))
        fail("size == 1 || size == 2 || size == 4", __LINE__);
    // The tables are trusted build inputs: the conversion's verdict is not
    // consulted, and a text it refuses writes 0. Checking cells is the job of
    // whoever hands the table in (the command reports a bad cell by line and
    // column before it generates).
    DWORD value = 0;
    MOX_COMMON::convert_string_to_dword(text, value);
    put_byte(size == 1 ? MOXDEV_MANAGER_BYTE : size == 2 ? MOXDEV_MANAGER_WORD : MOXDEV_MANAGER_DWORD);
    for (DWORD i = 0; i < size; ++i)
        put_byte(BYTE(value >> (8 * i)));
}

void MOXDEV_FIELD_WRITER::bool_field(const std::string& text)
{
    if (!(text == "" || text == "FALSE" || text == "TRUE"))
        fail("text == \"\" || text == \"FALSE\" || text == \"TRUE\"", __LINE__);
    put_byte(MOXDEV_MANAGER_BOOL);
    put_byte(text == "TRUE" ? 1 : 0);
}

void MOXDEV_FIELD_WRITER::string_field(bool allow_empty, const std::string& string, MOXDEV_MANAGER_TYPE type)
{
    if (!(string.size() > 0 || allow_empty))
        fail("string.size() > 0 || allow_empty", __LINE__);
    if (!(type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING))
        fail("type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING", __LINE__);
    // The length byte holds the low 8 bits only: a text of 256 characters or
    // more yields a stream that cannot be read back. Tables keep their texts
    // shorter; the command checks that before it generates.
    put_byte(type);
    put_byte(BYTE(string.size()));
    put_bytes(string.data(), string.size());
}
