// The typed field stream of the database payloads: a reader bound to its
// bytes and a writer that appends to a growing byte vector.
//
// Every value of the stream is preceded by a one-byte type tag; records end
// with "END1" and the record list with "END2". Integers are little-endian and
// assembled byte by byte, so the format does not depend on the host's byte
// order or alignment.
//
// A MOXDEV_FIELD_READER is a small value: the bytes, their length, a position
// and the source unit under which it reports faults. Every read checks the
// length first, so a damaged payload ends in an internal error and never in a
// read past its end. A reader made with unbounded() is told no length: it
// serves the buffer-and-position primitives, which trust the caller's buffer
// the way the caller trusts it.
//
// A MOXDEV_FIELD_WRITER appends, so nothing has to be counted in advance.
#pragma once

#include "moxdev/internal/moxdev_bytes.h"

#include "host/host_types.h"

#include <cstring>
#include <string>
#include <vector>

// Type tags of the field stream.
enum MOXDEV_MANAGER_TYPE : BYTE {
    MOXDEV_MANAGER_DEVID_ENUM = 0,
    MOXDEV_MANAGER_DEVID_STR = 1,
    MOXDEV_MANAGER_STRING = 2,
    MOXDEV_MANAGER_BOOL = 3,
    MOXDEV_MANAGER_BYTE = 4,
    MOXDEV_MANAGER_WORD = 5,
    MOXDEV_MANAGER_DWORD = 6,
    MOXDEV_MANAGER_ENUM = 7,
    MOXDEV_MANAGER_FAMILY_TBL = 8,
    MOXDEV_MANAGER_DEVICE_TBL = 10,
    MOXDEV_MANAGER_PART_TBL = 11,
};

class MOXDEV_FIELD_READER {
public:
    // Reads `size` bytes at `data`, starting at `position`. Faults are
    // reported under the source unit `unit`.
    MOXDEV_FIELD_READER(const BYTE* data, DWORD size, const char* unit, DWORD position = 0)
        : m_data(data), m_size(size), m_position(position), m_unit(unit)
    {}

    // Reads bytes whose extent the caller vouches for.
    static MOXDEV_FIELD_READER unbounded(const BYTE* data, DWORD position, const char* unit)
    {
        return MOXDEV_FIELD_READER(data, 0xFFFFFFFFu, unit, position);
    }

    const BYTE* data() const { return m_data; }
    DWORD size() const { return m_size; }
    DWORD position() const { return m_position; }
    const char* unit() const { return m_unit; }
    // Whether `count` more bytes lie within the stream.
    bool has(DWORD count) const { return m_position <= m_size && count <= m_size - m_position; }

    // Untagged values.
    BYTE get_byte()
    {
        require(1, __LINE__);
        return m_data[m_position++];
    }
    DWORD get_dword()
    {
        require(4, __LINE__);
        const DWORD value = little_endian(m_data + m_position);
        m_position += 4;
        return value;
    }

    // Tagged values: the tag must be the value's own, then the value's bytes
    // must be there (checked in that order, so a wrong tag is named as such
    // even at the end of the stream).
    DWORD dword_field()
    {
        const BYTE type = tag(__LINE__);
        if (type != MOXDEV_MANAGER_DEVID_ENUM && type != MOXDEV_MANAGER_DWORD && type != MOXDEV_MANAGER_ENUM)
            fail("type == MOXDEV_MANAGER_DEVID_ENUM || type == MOXDEV_MANAGER_DWORD || "
                 "type == MOXDEV_MANAGER_ENUM",
                 __LINE__);
        return get_dword();
    }
    WORD word_field()
    {
        if (tag(__LINE__) != MOXDEV_MANAGER_WORD)
            fail("type == MOXDEV_MANAGER_WORD", __LINE__);
        require(2, __LINE__);
        const WORD value = moxdev::bytes::load_le16(m_data + m_position);
        m_position += 2;
        return value;
    }
    BYTE byte_field()
    {
        if (tag(__LINE__) != MOXDEV_MANAGER_BYTE)
            fail("type == MOXDEV_MANAGER_BYTE", __LINE__);
        return get_byte();
    }
    bool bool_field()
    {
        if (tag(__LINE__) != MOXDEV_MANAGER_BOOL)
            fail("type == MOXDEV_MANAGER_BOOL", __LINE__);
        const BYTE value = get_byte();
        if (value > 1)
            fail("value == 0 || value == 1", __LINE__);
        return value == 1;
    }
    // Clears `out`, then reads the text into it. An empty text is a fault
    // unless `allow_empty`.
    void string_field(bool allow_empty, std::string& out)
    {
        const BYTE type = tag(__LINE__);
        if (type != MOXDEV_MANAGER_DEVID_STR && type != MOXDEV_MANAGER_STRING)
            fail("type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING", __LINE__);
        const DWORD length = get_byte();
        out.clear();
        if (length == 0) {
            if (!allow_empty)
                fail("allow_empty", __LINE__);
            return;
        }
        require(length, __LINE__);
        out.assign(reinterpret_cast<const char*>(m_data + m_position), length);
        m_position += length;
    }

    // The record end "END1" and the database end "END2"; a mismatch names the
    // first wrong byte.
    void record_end() { marker('1'); }
    void database_end() { marker('2'); }

    // Fills `count` consecutive untagged DWORDs.
    void get_dwords(DWORD* out, DWORD count);

    [[noreturn]] void fail(const std::string& condition, int line) const;

    static DWORD little_endian(const BYTE* bytes) { return moxdev::bytes::load_le32(bytes); }

private:
    void require(DWORD count, int line) const
    {
        if (!has(count))
            beyond_end(line);
    }
    [[noreturn]] void beyond_end(int line) const;
    BYTE tag(int line)
    {
        require(1, line);
        return m_data[m_position++];
    }
    void marker(char last);

    const BYTE* m_data;
    DWORD m_size;
    DWORD m_position;
    const char* m_unit;
};

class MOXDEV_FIELD_WRITER {
public:
    // Faults (a value that cannot be written) are reported under `unit`.
    explicit MOXDEV_FIELD_WRITER(const char* unit) : m_unit(unit) {}

    const std::vector<BYTE>& bytes() const { return m_bytes; }
    std::vector<BYTE>& bytes() { return m_bytes; }
    DWORD size() const { return DWORD(m_bytes.size()); }

    // Untagged values.
    void put_byte(BYTE value) { m_bytes.push_back(value); }
    void put_dword(DWORD value) { moxdev::bytes::append_le(m_bytes, value, 4); }
    void put_bytes(const void* data, std::size_t count)
    {
        const BYTE* bytes = static_cast<const BYTE*>(data);
        m_bytes.insert(m_bytes.end(), bytes, bytes + count);
    }
    // Overwrites the DWORD at `offset`, which must have been written.
    void patch_dword(DWORD offset, DWORD value);

    // Tagged values. `text` is a number in decimal or 0x hexadecimal, written
    // in `size` (1, 2 or 4) bytes; a wider value is truncated and a text that
    // is no number writes 0, on purpose: the tables are trusted build inputs.
    void value_field(const std::string& text, DWORD size);
    // "TRUE" writes 1, "FALSE" and "" write 0.
    void bool_field(const std::string& text);
    // The tag, the low 8 bits of the length, the characters.
    void string_field(bool allow_empty, const std::string& text, MOXDEV_MANAGER_TYPE type);
    // A tag and a 4-byte value.
    void tagged_dword(MOXDEV_MANAGER_TYPE type, DWORD value)
    {
        put_byte(type);
        put_dword(value);
    }
    // The four marker characters ("END1" or "END2").
    void marker(const char* text) { put_bytes(text, 4); }

    [[noreturn]] void fail(const std::string& condition, int line) const;

private:
    std::vector<BYTE> m_bytes;
    const char* m_unit;
};

// How many records of `fields` fields to set aside room for when a payload
// announces `count` of them: never more than the bytes left in `in` can hold,
// plus one. Every field takes at least two bytes (a tag and a value or length
// byte) and every record four more for "END1", so a reader that runs out of
// room has already met the end of the stream, where a check of the field
// reader fails; a count that lies costs no memory beyond the payload's size.
inline DWORD moxdev_records_room(DWORD count, const MOXDEV_FIELD_READER& in, DWORD fields)
{
    const DWORD left = in.has(0) ? in.size() - in.position() : 0;
    const DWORD most = left / (2 * fields + 4) + 1;
    return count < most ? count : most;
}

// Reads the field that a record member of this type holds (texts may be
// empty): the one dispatch both managers' record readers share.
inline void moxdev_read_field(MOXDEV_FIELD_READER& in, std::string& value)
{
    in.string_field(true, value);
}
inline void moxdev_read_field(MOXDEV_FIELD_READER& in, bool& value)
{
    value = in.bool_field();
}
inline void moxdev_read_field(MOXDEV_FIELD_READER& in, BYTE& value)
{
    value = in.byte_field();
}
inline void moxdev_read_field(MOXDEV_FIELD_READER& in, WORD& value)
{
    value = in.word_field();
}
inline void moxdev_read_field(MOXDEV_FIELD_READER& in, DWORD& value)
{
    value = in.dword_field();
}
