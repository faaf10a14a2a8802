// The container and typed field stream shared by the device information
// database and the serial flash database.
//
// A database file is a 44-byte plain header (8-byte magic, 32-character source
// identifier, payload size), a zlib-compressed payload and a 2-byte trailer.
// The payload is a stream of tagged values: each value is preceded by a
// one-byte type tag, records end with "END1" and the record list with "END2".
// All integers are little-endian and assembled byte by byte.
//
// Both managers derive from this codec. Its readers and writers work on one
// registered buffer and check every access against its bounds, so a damaged
// payload ends in an internal error, never in a read past its end. Errors are
// reported under the unit of the manager that owns the codec.
#pragma once

#include "host/fio.h"
#include "host/host_types.h"

#include <memory>
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

// Byte counts of the container.
constexpr DWORD MOXDEV_DB_MAGIC_SIZE = 8;
constexpr DWORD MOXDEV_DB_ID_SIZE = 32;
constexpr DWORD MOXDEV_DB_HEADER_SIZE = 44;
constexpr DWORD MOXDEV_DB_TRAILER_SIZE = 2;
constexpr DWORD MOXDEV_DB_PAYLOAD_HEADER_SIZE = 12;
constexpr DWORD MOXDEV_DB_VERSION = 1;

// Reads a generator's CSV table: non-blank lines, trimmed, split into cells at
// blanks, tabs and commas (empty cells are dropped, so a cell may hold none of
// them).
class MOXDEV_TABLE_READER {
public:
    explicit MOXDEV_TABLE_READER(const std::string& path);
    ~MOXDEV_TABLE_READER();
    MOXDEV_TABLE_READER(const MOXDEV_TABLE_READER&) = delete;
    MOXDEV_TABLE_READER& operator=(const MOXDEV_TABLE_READER&) = delete;

    bool good() const;
    // The next line's cells; false at the end of the table.
    bool next(std::vector<std::string>& cells);

private:
    struct STATE;
    std::unique_ptr<STATE> m_state;
};

class MOXDEV_DATABASE_CODEC {
public:
    // Zlib inflates at most about 1032 bytes from one compressed byte; a header
    // announcing more than that cannot be honest and is refused before any
    // memory is set aside for it.
    static constexpr QWORD MAX_INFLATE_RATIO = 1032;

protected:
    // `unit` names the source unit under which internal errors are reported.
    explicit MOXDEV_DATABASE_CODEC(const char* unit) : m_unit(unit) {}

    // Registers the buffer that the following reads and writes work on.
    void set_buffer(const BYTE* data, DWORD size);

    // Readers: each consumes its tag (if any) and value and advances `index`.
    BYTE get_byte(const BYTE* data, DWORD& index) const;  // untagged
    DWORD get_dword(const BYTE* data, DWORD& index) const; // untagged
    void get_dword_data(const BYTE* data, DWORD& index, DWORD* out) const;
    void get_word_data(const BYTE* data, DWORD& index, WORD* out) const;
    void get_byte_data(const BYTE* data, DWORD& index, BYTE* out) const;
    void get_bool_data(const BYTE* data, DWORD& index, bool* out) const;
    void get_string_data(const BYTE* data, DWORD& index, bool allow_empty, std::string* out) const;
    void confirm_data_type_end(const BYTE* data, DWORD& index) const;
    void confirm_database_end(const BYTE* data, DWORD& index) const;

    // Writers: each writes its tag (if any) and value and advances `index`.
    void dump_byte(BYTE*& data, DWORD& index, BYTE value) const;           // untagged
    void dump_dword_database(BYTE*& data, DWORD& index, DWORD value) const; // untagged
    void dump_value_to_database(BYTE*& data, DWORD& index, std::string text, DWORD size) const;
    void dump_bool_to_database(BYTE*& data, DWORD& index, std::string text) const;
    void dump_string_to_database(BYTE*& data, DWORD& index, bool allow_empty, std::string text,
                                 MOXDEV_MANAGER_TYPE type) const;
    // Writes the four marker characters ("END1" or "END2") untagged.
    void dump_marker(BYTE*& data, DWORD& index, const char* marker) const;

    // Compresses data[offset, count) behind an unchanged copy of data[0, offset).
    // The result is allocated with new[]; the caller frees it with delete[].
    BYTE* compress_data(BYTE* data, DWORD offset, DWORD count, DWORD& new_count) const;
    // Inflates `decompressed_count` compressed bytes into exactly
    // `original_count` bytes, allocated with new[]; the caller frees them.
    BYTE* decompress_data(BYTE* data, DWORD decompressed_count, DWORD original_count) const;

    struct PAYLOAD {
        std::unique_ptr<BYTE[]> data;
        DWORD size = 0;
    };

    // Reads a whole database file, checks its magic and identifier and returns
    // the inflated payload. `file_variable` is the name under which the file
    // appears in the condition text of a missing file ("device_file").
    PAYLOAD read_database_file(const FIO_PATH& path, const char* file_variable,
                                         const char* magic, const std::string& identifier) const;

    // Compresses `image` (44-byte header plus payload) and writes it with its
    // trailer to `path`. The file is written beside its destination and renamed
    // into place, so an earlier file survives any failure.
    void write_database_file(std::vector<BYTE>& image, const FIO_PATH& path) const;

    // Writes the 44-byte plain header at the start of `data`.
    void dump_file_header(BYTE*& data, DWORD& index, const char* magic,
                          const std::string& identifier, DWORD memory_size) const;

    // Size of the registered buffer.
    DWORD buffer_size() const { return m_buffer_size; }

    [[noreturn]] void fail(const std::string& condition, int line) const;

private:
    // Reports an internal error unless `count` bytes from `index` lie within
    // the registered buffer.
    void check_range(const BYTE* data, DWORD index, DWORD count, int line) const;

    const char* m_unit;
    const BYTE* m_buffer = nullptr;
    DWORD m_buffer_size = 0;
};
