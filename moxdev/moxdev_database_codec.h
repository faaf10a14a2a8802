// The container shared by the device information database and the serial
// flash database, and the codec primitives of both managers.
//
// A database file is a 44-byte plain header (8-byte magic, 32-character source
// identifier, payload size), a zlib-compressed payload and a 2-byte trailer.
// The payload is the typed field stream of moxdev_field_stream.h.
//
// MOXDEV_DATABASE_CODEC holds no state but the name of the source unit under
// which its faults are reported. The managers' own loading and generation use
// MOXDEV_FIELD_READER and MOXDEV_FIELD_WRITER values directly; the primitives
// below, which take a buffer and a position, are thin forms over them for a
// class that derives from a manager, and trust the caller's buffer: they work
// on any buffer and check nothing against its end, exactly as a caller of a
// buffer-and-position primitive expects.
#pragma once

#include "moxdev/moxdev_field_stream.h"

#include "host/fio.h"
#include "host/host_types.h"

#include <memory>
#include <string>
#include <vector>

// Byte counts of the container.
constexpr DWORD MOXDEV_DB_MAGIC_SIZE = 8;
constexpr DWORD MOXDEV_DB_ID_SIZE = 32;
constexpr DWORD MOXDEV_DB_HEADER_SIZE = 44;
constexpr DWORD MOXDEV_DB_TRAILER_SIZE = 2;
constexpr DWORD MOXDEV_DB_PAYLOAD_HEADER_SIZE = 12;
constexpr DWORD MOXDEV_DB_VERSION = 1;
// The magic of each database file.
constexpr const char* MOXDEV_DEVICE_DB_MAGIC = "MOXIO_DM";
constexpr const char* MOXDEV_FLASH_DB_MAGIC = "MOXIO_FM";

// The largest payload a generator writes, and so the largest a reader
// inflates; the largest database file that can hold it.
constexpr DWORD MOXDEV_MAX_PAYLOAD = 16 * 1024 * 1024;
constexpr DWORD MOXDEV_MAX_DATABASE_FILE = MOXDEV_MAX_PAYLOAD + MOXDEV_MAX_PAYLOAD / 512 + 1024;

// Zlib inflates at most about 1032 bytes from one compressed byte: an
// announced size beyond that cannot be honest and is refused before any memory
// is set aside for it.
constexpr QWORD MOXDEV_MAX_INFLATE_RATIO = 1032;

class MOXDEV_DATABASE_CODEC {
protected:
    // `unit` names the source unit under which internal errors are reported.
    explicit MOXDEV_DATABASE_CODEC(const char* unit) : m_unit(unit) {}

    const char* unit() const { return m_unit; }

    // Readers: each consumes its tag (if any) and value and advances `index`.
    DWORD get_dword(const BYTE* data, DWORD& index) const; // untagged
    void get_dword_data(const BYTE* data, DWORD& index, DWORD* out) const;
    void get_word_data(const BYTE* data, DWORD& index, WORD* out) const;
    void get_byte_data(const BYTE* data, DWORD& index, BYTE* out) const;
    void get_bool_data(const BYTE* data, DWORD& index, bool* out) const;
    void get_string_data(const BYTE* data, DWORD& index, bool allow_empty, std::string* out) const;
    void confirm_data_type_end(const BYTE* data, DWORD& index) const;
    void confirm_database_end(const BYTE* data, DWORD& index) const;

    // Writers: each writes its tag (if any) and value at data[index] and
    // advances `index`; the caller's buffer must have room.
    void dump_dword_database(BYTE*& data, DWORD& index, DWORD value) const; // untagged
    void dump_value_to_database(BYTE*& data, DWORD& index, std::string text, DWORD size) const;
    void dump_bool_to_database(BYTE*& data, DWORD& index, std::string text) const;
    void dump_string_to_database(BYTE*& data, DWORD& index, bool allow_empty, std::string text,
                                 MOXDEV_MANAGER_TYPE type) const;

    // Compresses data[offset, count) behind an unchanged copy of data[0, offset).
    // The result is allocated with new[]; the caller frees it with delete[].
    BYTE* compress_data(BYTE* data, DWORD offset, DWORD count, DWORD& new_count) const;
    // Inflates `decompressed_count` compressed bytes into exactly
    // `original_count` bytes, allocated with new[]; the caller frees them.
    BYTE* decompress_data(BYTE* data, DWORD decompressed_count, DWORD original_count) const;

    // A reader over `size` bytes, reporting under this unit.
    MOXDEV_FIELD_READER reader(const BYTE* data, DWORD size) const { return {data, size, m_unit}; }
    // A reader at data[index] that trusts the caller's buffer.
    MOXDEV_FIELD_READER trusting_reader(const BYTE* data, DWORD index) const
    {
        return MOXDEV_FIELD_READER::unbounded(data, index, m_unit);
    }
    // Runs write(writer) on an empty writer and copies what it wrote to
    // data[index], advancing `index`: a buffer-and-position writer built on
    // an appending one.
    template <class WRITE>
    void write_in_place(BYTE* data, DWORD& index, WRITE write) const
    {
        MOXDEV_FIELD_WRITER writer(m_unit);
        write(writer);
        if (writer.size() > 0)
            std::memcpy(data + index, writer.bytes().data(), writer.size());
        index += writer.size();
    }

    struct PAYLOAD {
        std::unique_ptr<BYTE[]> data;
        DWORD size = 0;
    };

    // Reads a whole database file, checks its magic and identifier and returns
    // the inflated payload. `file_variable` is the name under which the file
    // appears in the condition text of a missing file ("device_file").
    PAYLOAD read_database_file(const FIO_PATH& path, const char* file_variable, const char* magic,
                               const std::string& identifier) const;

    // Starts a database image: the 44-byte plain header with a payload size
    // of 0, which finish_database_image() fills in, then the payload header
    // (version, record count, fields per record). Room is set aside for
    // `expected_size` payload bytes.
    MOXDEV_FIELD_WRITER start_database_image(const char* magic, const std::string& identifier, DWORD record_count,
                                             DWORD field_count, std::size_t expected_size) const;
    // Sets the header's payload size from what was written; returns it.
    DWORD finish_database_image(MOXDEV_FIELD_WRITER& image) const;

    // Compresses `image` (44-byte header plus payload) and writes it with its
    // trailer to `path`, in place.
    void write_database_file(const std::vector<BYTE>& image, const FIO_PATH& path) const;

    [[noreturn]] void fail(const std::string& condition, int line) const;

private:
    const char* m_unit;
};
