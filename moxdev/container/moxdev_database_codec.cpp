#include "moxdev/moxdev_database_codec.h"

#include "moxdev/internal/moxdev_bytes.h"
#include "moxdev/internal/moxdev_file_reader.h"

#include "moxdev/internal/moxdev_assert.h"

#include "host/gen_string.h"
#include "host/mox_common.h"
#include "host/zlib_wrapper.h"

#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

// Checks under the owning manager's unit; the text is the condition itself.
#define CODEC_CHECK(condition)                                                                                         \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            fail(#condition, __LINE__);                                                                                \
    } while (0)

#define CODEC_CHECK_MSG(condition, message)                                                                            \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            fail((message), __LINE__);                                                                                 \
    } while (0)

// ---------------------------------------------------------------- checks

void MOXDEV_DATABASE_CODEC::fail(const std::string& condition, int line) const
{
    MSG_INTERNAL_ERROR::report(condition, MOXDEV_MODULE, m_unit, line);
}

// ---------------------------------------------------------------- primitives

DWORD MOXDEV_DATABASE_CODEC::get_dword(const BYTE* data, DWORD& index) const
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    const DWORD value = in.get_dword();
    index = in.position();
    return value;
}

void MOXDEV_DATABASE_CODEC::get_dword_data(const BYTE* data, DWORD& index, DWORD* out) const
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    *out = in.dword_field();
    index = in.position();
}

void MOXDEV_DATABASE_CODEC::get_word_data(const BYTE* data, DWORD& index, WORD* out) const
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    *out = in.word_field();
    index = in.position();
}

void MOXDEV_DATABASE_CODEC::get_byte_data(const BYTE* data, DWORD& index, BYTE* out) const
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    *out = in.byte_field();
    index = in.position();
}

void MOXDEV_DATABASE_CODEC::get_bool_data(const BYTE* data, DWORD& index, bool* out) const
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    *out = in.bool_field();
    index = in.position();
}

void MOXDEV_DATABASE_CODEC::get_string_data(const BYTE* data, DWORD& index, bool allow_empty, std::string* out) const
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    in.string_field(allow_empty, *out);
    index = in.position();
}

void MOXDEV_DATABASE_CODEC::confirm_data_type_end(const BYTE* data, DWORD& index) const
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    in.record_end();
    index = in.position();
}

void MOXDEV_DATABASE_CODEC::confirm_database_end(const BYTE* data, DWORD& index) const
{
    MOXDEV_FIELD_READER in = trusting_reader(data, index);
    in.database_end();
    index = in.position();
}

void MOXDEV_DATABASE_CODEC::dump_dword_database(BYTE*& data, DWORD& index, DWORD value) const
{
    write_in_place(data, index, [&](MOXDEV_FIELD_WRITER& out) { out.put_dword(value); });
}

void MOXDEV_DATABASE_CODEC::dump_value_to_database(BYTE*& data, DWORD& index, std::string text, DWORD size) const
{
    write_in_place(data, index, [&](MOXDEV_FIELD_WRITER& out) { out.value_field(text, size); });
}

void MOXDEV_DATABASE_CODEC::dump_bool_to_database(BYTE*& data, DWORD& index, std::string text) const
{
    write_in_place(data, index, [&](MOXDEV_FIELD_WRITER& out) { out.bool_field(text); });
}

void MOXDEV_DATABASE_CODEC::dump_string_to_database(BYTE*& data, DWORD& index, bool allow_empty, std::string text,
                                                    MOXDEV_MANAGER_TYPE type) const
{
    write_in_place(data, index, [&](MOXDEV_FIELD_WRITER& out) { out.string_field(allow_empty, text, type); });
}

// ---------------------------------------------------------------- images

MOXDEV_FIELD_WRITER MOXDEV_DATABASE_CODEC::start_database_image(const char* magic, const std::string& identifier,
                                                                DWORD record_count, DWORD field_count,
                                                                std::size_t expected_size) const
{
    MOXDEV_FIELD_WRITER image(m_unit);
    image.bytes().reserve(MOXDEV_DB_HEADER_SIZE + expected_size);
    image.put_bytes(magic, MOXDEV_DB_MAGIC_SIZE);
    image.put_bytes(identifier.data(), MOXDEV_DB_ID_SIZE);
    image.put_dword(0);
    image.put_dword(MOXDEV_DB_VERSION);
    image.put_dword(record_count);
    image.put_dword(field_count);
    return image;
}

DWORD MOXDEV_DATABASE_CODEC::finish_database_image(MOXDEV_FIELD_WRITER& image) const
{
    const DWORD memory_size = image.size() - MOXDEV_DB_HEADER_SIZE;
    image.patch_dword(MOXDEV_DB_MAGIC_SIZE + MOXDEV_DB_ID_SIZE, memory_size);
    return memory_size;
}

// ---------------------------------------------------------------- compression

BYTE* MOXDEV_DATABASE_CODEC::compress_data(BYTE* data, DWORD offset, DWORD count, DWORD& new_count) const
{
    CODEC_CHECK(offset < count);
    const uLong bound = ::compressBound(count - offset);
    CODEC_CHECK_MSG(bound <= 0xFFFFFFFFul - offset, "compressed image exceeds 4 GiB");
    std::unique_ptr<BYTE[]> new_data(new BYTE[bound]());
    DWORD new_memory_count = DWORD(bound);
    CODEC_CHECK_MSG(zlib_compress(new_data.get(), &new_memory_count, &data[offset], count - offset) == ZLIB_OK,
                    "zlib_compress(new_data, &new_memory_count, &data[offset], count - offset) == ZLIB_OK");
    BYTE* result = new BYTE[offset + new_memory_count];
    std::memcpy(result, data, offset);
    std::memcpy(result + offset, new_data.get(), new_memory_count);
    new_count = new_memory_count + offset;
    return result;
}

BYTE* MOXDEV_DATABASE_CODEC::decompress_data(BYTE* data, DWORD decompressed_count, DWORD original_count) const
{
    CODEC_CHECK(decompressed_count > 0 && original_count > 0);
    // A size the compressed bytes cannot inflate to is refused before any
    // memory is set aside for it, with the condition the inflated size would
    // fail anyway.
    CODEC_CHECK_MSG(QWORD(original_count) <= QWORD(decompressed_count) * MOXDEV_MAX_INFLATE_RATIO,
                    "new_dcmp_size == original_count");
    std::unique_ptr<BYTE[]> decompressed_data(new BYTE[original_count]);
    DWORD new_dcmp_size = original_count;
    CODEC_CHECK_MSG(zlib_uncompress(decompressed_data.get(), &new_dcmp_size, data, decompressed_count) == ZLIB_OK,
                    "zlib_uncompress(decompressed_data, &new_dcmp_size, data, decompressed_count) "
                    "== ZLIB_OK");
    CODEC_CHECK(new_dcmp_size == original_count);
    return decompressed_data.release();
}

// ---------------------------------------------------------------- files

MOXDEV_DATABASE_CODEC::PAYLOAD MOXDEV_DATABASE_CODEC::read_database_file(const FIO_PATH& path,
                                                                         const char* file_variable, const char* magic,
                                                                         const std::string& identifier) const
{
    // One descriptor for the whole read: the file's kind and size come from
    // it, so a rename in between shows the old file or the new one, and a
    // FIFO or a device cannot hang the reader.
    const std::string name = path.fullpath();
    std::vector<BYTE> file;
    std::string error;
    const auto read = moxdev::detail::read_file(name, file, error, {MOXDEV_MAX_DATABASE_FILE, false});
    CODEC_CHECK_MSG(read != moxdev::detail::READ_RESULT::MISSING,
                    std::string("FIO_FILE_SYSTEM::exists(") + file_variable +
                        ".fullpath().c_str()) && FIO_FILE_SYSTEM::status(" + file_variable +
                        ".fullpath().c_str(), &stat_info)");
    CODEC_CHECK_MSG(read != moxdev::detail::READ_RESULT::TOO_LARGE, "database file exceeds the " +
                                                                        std::to_string(MOXDEV_MAX_DATABASE_FILE) +
                                                                        " bytes a generator writes");
    CODEC_CHECK_MSG(read == moxdev::detail::READ_RESULT::READ, "input.good()");
    const QWORD file_size = file.size();
    CODEC_CHECK(file_size > (8 + 32 + 4 + 2));

    // The magic is compared byte by byte; a mismatch quotes the whole chain.
    const bool magic_ok = std::memcmp(file.data(), magic, MOXDEV_DB_MAGIC_SIZE) == 0;
    std::string chain;
    for (DWORD i = 0; !magic_ok && i < MOXDEV_DB_MAGIC_SIZE; ++i)
        chain += std::string(i ? " && " : "") + "data[index++] == '" + magic[i] + "'";
    CODEC_CHECK_MSG(magic_ok, chain);

    // Both readers quote the device identifier's name in the length check.
    const std::string& MOXDEV_DEV_INFO_CSV_MD5 = identifier;
    CODEC_CHECK(MOXDEV_DEV_INFO_CSV_MD5.size() == 32);
    CODEC_CHECK_MSG(std::memcmp(&file[MOXDEV_DB_MAGIC_SIZE], identifier.data(), 32) == 0,
                    "Mismatch ID between flash file and reader");

    DWORD index = MOXDEV_DB_MAGIC_SIZE + MOXDEV_DB_ID_SIZE;
    const DWORD memory_size = moxdev::bytes::load_le32(&file[index]);
    // No generator writes more: a larger size is refused before anything is
    // inflated for it. One the compressed bytes cannot reach at all fails as
    // inflating it would.
    const QWORD compressed_size = file_size - MOXDEV_DB_HEADER_SIZE - MOXDEV_DB_TRAILER_SIZE;
    CODEC_CHECK_MSG(QWORD(memory_size) <= compressed_size * MOXDEV_MAX_INFLATE_RATIO,
                    "new_dcmp_size == original_count");
    CODEC_CHECK_MSG(memory_size <= MOXDEV_MAX_PAYLOAD, "announced payload size exceeds the " +
                                                           std::to_string(MOXDEV_MAX_PAYLOAD) +
                                                           " bytes a generator writes");
    PAYLOAD payload;
    payload.data.reset(decompress_data(&file[MOXDEV_DB_HEADER_SIZE],
                                       DWORD(file_size) - MOXDEV_DB_HEADER_SIZE - MOXDEV_DB_TRAILER_SIZE, memory_size));
    payload.size = memory_size;
    return payload;
}

void MOXDEV_DATABASE_CODEC::write_database_file(const std::vector<BYTE>& image, const FIO_PATH& path) const
{
    DWORD new_count = 0;
    std::unique_ptr<BYTE[]> compressed(
        compress_data(const_cast<BYTE*>(image.data()), MOXDEV_DB_HEADER_SIZE, DWORD(image.size()), new_count));

    // The file is opened for binary output and written in place: header and
    // compressed payload, then the checksum field, always 0.
    const BYTE trailer[MOXDEV_DB_TRAILER_SIZE] = {0, 0};
    std::ofstream output(path.fullpath(), std::ios::binary | std::ios::trunc);
    output.write(reinterpret_cast<const char*>(compressed.get()), std::streamsize(new_count));
    output.write(reinterpret_cast<const char*>(trailer), sizeof trailer);
    output.flush();
    const bool status = output.good();
    CODEC_CHECK(status);
}
