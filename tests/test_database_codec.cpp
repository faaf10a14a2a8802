// The field stream codec and the container: exact bytes, every rejection, and
// no access outside the registered buffer.
#include "test_support.h"

#include <memory>

using namespace moxdev_test;

namespace {

class CODEC : public MOXDEV_DATABASE_CODEC {
public:
    CODEC() : MOXDEV_DATABASE_CODEC("moxdev_dev_info_manager") {}
    using MOXDEV_DATABASE_CODEC::compress_data;
    using MOXDEV_DATABASE_CODEC::confirm_data_type_end;
    using MOXDEV_DATABASE_CODEC::confirm_database_end;
    using MOXDEV_DATABASE_CODEC::decompress_data;
    using MOXDEV_DATABASE_CODEC::dump_bool_to_database;
    using MOXDEV_DATABASE_CODEC::dump_dword_database;
    using MOXDEV_DATABASE_CODEC::dump_string_to_database;
    using MOXDEV_DATABASE_CODEC::dump_value_to_database;
    using MOXDEV_DATABASE_CODEC::get_bool_data;
    using MOXDEV_DATABASE_CODEC::get_byte_data;
    using MOXDEV_DATABASE_CODEC::get_dword;
    using MOXDEV_DATABASE_CODEC::get_dword_data;
    using MOXDEV_DATABASE_CODEC::get_string_data;
    using MOXDEV_DATABASE_CODEC::get_word_data;
    using MOXDEV_DATABASE_CODEC::set_buffer;
};

// Writes with a writer into a fresh buffer of `size` bytes and returns what
// was written.
template <class WRITE>
BYTES written(std::size_t size, WRITE write)
{
    CODEC codec;
    BYTES buffer(size);
    BYTE* data = buffer.data();
    DWORD index = 0;
    codec.set_buffer(data, DWORD(buffer.size()));
    write(codec, data, index);
    buffer.resize(index);
    return buffer;
}

} // namespace

TEST(DatabaseCodec, WritersProduceTaggedLittleEndianValues)
{
    EXPECT_EQ(written(8, [](CODEC& c, BYTE*& d, DWORD& i) { c.dump_value_to_database(d, i, "0x1234", 2); }),
              (BYTES{0x05, 0x34, 0x12}));
    EXPECT_EQ(written(8, [](CODEC& c, BYTE*& d, DWORD& i) { c.dump_value_to_database(d, i, "0x1FF", 1); }),
              (BYTES{0x04, 0xFF}));
    EXPECT_EQ(written(8, [](CODEC& c, BYTE*& d, DWORD& i) { c.dump_value_to_database(d, i, "305419896", 4); }),
              (BYTES{0x06, 0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(written(8, [](CODEC& c, BYTE*& d, DWORD& i) { c.dump_dword_database(d, i, 0xA1B2C3D4); }),
              (BYTES{0xD4, 0xC3, 0xB2, 0xA1}));
    EXPECT_EQ(written(8, [](CODEC& c, BYTE*& d, DWORD& i) {
                  c.dump_bool_to_database(d, i, "TRUE");
                  c.dump_bool_to_database(d, i, "FALSE");
                  c.dump_bool_to_database(d, i, "");
              }),
              (BYTES{0x03, 1, 0x03, 0, 0x03, 0}));
    EXPECT_EQ(written(8, [](CODEC& c, BYTE*& d, DWORD& i) {
                  c.dump_string_to_database(d, i, false, "kx1", MOXDEV_MANAGER_DEVID_STR);
                  c.dump_string_to_database(d, i, true, "", MOXDEV_MANAGER_STRING);
              }),
              (BYTES{0x01, 3, 'k', 'x', '1', 0x02, 0}));
}

TEST(DatabaseCodec, WritersRejectBadInput)
{
    auto write = [](auto body) { return written(300, body); };
    EXPECT_INTERNAL_ERROR(write([](CODEC& c, BYTE*& d, DWORD& i) { c.dump_value_to_database(d, i, "1", 3); }),
                          "size == 1 || size == 2 || size == 4");
    EXPECT_INTERNAL_ERROR(write([](CODEC& c, BYTE*& d, DWORD& i) { c.dump_bool_to_database(d, i, "true"); }),
                          "text == \"\" || text == \"FALSE\" || text == \"TRUE\"");
    EXPECT_INTERNAL_ERROR(write([](CODEC& c, BYTE*& d, DWORD& i) {
                              c.dump_string_to_database(d, i, false, "", MOXDEV_MANAGER_STRING);
                          }),
                          "string.size() > 0 || allow_empty");
    EXPECT_INTERNAL_ERROR(write([](CODEC& c, BYTE*& d, DWORD& i) {
                              c.dump_string_to_database(d, i, true, "x", MOXDEV_MANAGER_BOOL);
                          }),
                          "type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING");
    // A text whose length does not fit the length byte, a number that is no
    // number, and a write past the end of the buffer.
    EXPECT_THROW(write([](CODEC& c, BYTE*& d, DWORD& i) {
                     c.dump_string_to_database(d, i, true, std::string(256, 'a'), MOXDEV_MANAGER_STRING);
                 }),
                 MSG_INTERNAL_ERROR);
    EXPECT_THROW(write([](CODEC& c, BYTE*& d, DWORD& i) { c.dump_value_to_database(d, i, "12x", 4); }),
                 MSG_INTERNAL_ERROR);
    EXPECT_THROW(written(3, [](CODEC& c, BYTE*& d, DWORD& i) { c.dump_dword_database(d, i, 1); }),
                 MSG_INTERNAL_ERROR);
}

TEST(DatabaseCodec, ReadersCheckTagsAndValues)
{
    const BYTES stream{0x00, 1, 0, 0, 0,  0x06, 2, 0, 0, 0, 0x07, 3, 0, 0, 0, 0x05, 0x34, 0x12,
                       0x04, 0x7F, 0x03, 1, 0x02, 0, 0x01, 2, 'a', 'b', 'E', 'N', 'D', '1'};
    CODEC codec;
    codec.set_buffer(stream.data(), DWORD(stream.size()));
    DWORD index = 0;
    DWORD dword = 0;
    for (DWORD expected = 1; expected <= 3; ++expected) {
        codec.get_dword_data(stream.data(), index, &dword);
        EXPECT_EQ(dword, expected) << "tags 0, 6 and 7 all read as DWORD";
    }
    WORD word = 0;
    codec.get_word_data(stream.data(), index, &word);
    EXPECT_EQ(word, 0x1234);
    BYTE byte = 0;
    codec.get_byte_data(stream.data(), index, &byte);
    EXPECT_EQ(byte, 0x7F);
    bool flag = false;
    codec.get_bool_data(stream.data(), index, &flag);
    EXPECT_TRUE(flag);
    std::string text = "stale";
    codec.get_string_data(stream.data(), index, true, &text);
    EXPECT_EQ(text, "");
    codec.get_string_data(stream.data(), index, false, &text);
    EXPECT_EQ(text, "ab");
    codec.confirm_data_type_end(stream.data(), index);
    EXPECT_EQ(index, stream.size());
}

TEST(DatabaseCodec, ReadersReportTheFirstWrongByte)
{
    auto read = [](BYTES stream, auto body) {
        CODEC codec;
        codec.set_buffer(stream.data(), DWORD(stream.size()));
        DWORD index = 0;
        body(codec, stream.data(), index);
    };
    EXPECT_INTERNAL_ERROR(read(BYTES{0x03, 2}, [](CODEC& c, const BYTE* d, DWORD& i) { bool b; c.get_bool_data(d, i, &b); }),
                          "value == 0 || value == 1");
    EXPECT_INTERNAL_ERROR(read(BYTES{0x04, 2}, [](CODEC& c, const BYTE* d, DWORD& i) { bool b; c.get_bool_data(d, i, &b); }),
                          "type == MOXDEV_MANAGER_BOOL");
    EXPECT_INTERNAL_ERROR(read(BYTES{0x05, 1, 2}, [](CODEC& c, const BYTE* d, DWORD& i) { DWORD v; c.get_dword_data(d, i, &v); }),
                          "type == MOXDEV_MANAGER_DEVID_ENUM || type == MOXDEV_MANAGER_DWORD || type == MOXDEV_MANAGER_ENUM");
    EXPECT_INTERNAL_ERROR(read(BYTES{0x06, 1, 2}, [](CODEC& c, const BYTE* d, DWORD& i) { WORD v; c.get_word_data(d, i, &v); }),
                          "type == MOXDEV_MANAGER_WORD");
    EXPECT_INTERNAL_ERROR(read(BYTES{0x03, 1}, [](CODEC& c, const BYTE* d, DWORD& i) { BYTE v; c.get_byte_data(d, i, &v); }),
                          "type == MOXDEV_MANAGER_BYTE");
    EXPECT_INTERNAL_ERROR(read(BYTES{0x02, 0}, [](CODEC& c, const BYTE* d, DWORD& i) { std::string s; c.get_string_data(d, i, false, &s); }),
                          "allow_empty");
    EXPECT_INTERNAL_ERROR(read(BYTES{0x03, 0}, [](CODEC& c, const BYTE* d, DWORD& i) { std::string s; c.get_string_data(d, i, true, &s); }),
                          "type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING");
    EXPECT_INTERNAL_ERROR(read(BYTES{'E', 'N', 'X', '1'}, [](CODEC& c, const BYTE* d, DWORD& i) { c.confirm_data_type_end(d, i); }),
                          "data[index++] == 'D'");
    EXPECT_INTERNAL_ERROR(read(BYTES{'E', 'N', 'D', '1'}, [](CODEC& c, const BYTE* d, DWORD& i) { c.confirm_database_end(d, i); }),
                          "data[index++] == '2'");
    EXPECT_INTERNAL_ERROR(read(BYTES{'X', 'N', 'D', '2'}, [](CODEC& c, const BYTE* d, DWORD& i) { c.confirm_database_end(d, i); }),
                          "data[index++] == 'E'");
}

TEST(DatabaseCodec, ReadsNeverPassTheEndOfTheBuffer)
{
    // Each stream is cut short inside its value.
    const BYTES cases[] = {{0x06, 1, 2, 3}, {0x05, 1}, {0x04}, {0x03}, {0x02, 5, 'a', 'b'}, {'E', 'N', 'D'}, {}};
    int n = 0;
    for (const BYTES& stream : cases) {
        SCOPED_TRACE(n++);
        CODEC codec;
        codec.set_buffer(stream.data(), DWORD(stream.size()));
        DWORD index = 0;
        DWORD dword;
        WORD word;
        BYTE byte;
        bool flag;
        std::string text;
        const BYTE* data = stream.data();
        switch (stream.empty() ? 0 : stream[0]) {
        case 0x06: EXPECT_THROW(codec.get_dword_data(data, index, &dword), MSG_INTERNAL_ERROR); break;
        case 0x05: EXPECT_THROW(codec.get_word_data(data, index, &word), MSG_INTERNAL_ERROR); break;
        case 0x04: EXPECT_THROW(codec.get_byte_data(data, index, &byte), MSG_INTERNAL_ERROR); break;
        case 0x03: EXPECT_THROW(codec.get_bool_data(data, index, &flag), MSG_INTERNAL_ERROR); break;
        case 0x02: EXPECT_THROW(codec.get_string_data(data, index, true, &text), MSG_INTERNAL_ERROR); break;
        case 'E': EXPECT_THROW(codec.confirm_data_type_end(data, index), MSG_INTERNAL_ERROR); break;
        default: EXPECT_THROW(codec.get_dword(data, index), MSG_INTERNAL_ERROR); break;
        }
    }
}

TEST(DatabaseCodec, CompressionKeepsTheHeaderAndRoundTrips)
{
    CODEC codec;
    BYTES image(44, 'H');
    for (int i = 0; i < 5000; ++i)
        image.push_back(BYTE(i % 7));
    DWORD new_count = 0;
    std::unique_ptr<BYTE[]> compressed(codec.compress_data(image.data(), 44, DWORD(image.size()), new_count));
    ASSERT_GT(new_count, 44u);
    EXPECT_EQ(BYTES(compressed.get(), compressed.get() + 44), BYTES(44, 'H'));
    std::unique_ptr<BYTE[]> restored(codec.decompress_data(compressed.get() + 44, new_count - 44, 5000));
    EXPECT_EQ(BYTES(restored.get(), restored.get() + 5000), BYTES(image.begin() + 44, image.end()));

    EXPECT_INTERNAL_ERROR(codec.compress_data(image.data(), 44, 44, new_count), "offset < count");
    EXPECT_INTERNAL_ERROR(codec.decompress_data(compressed.get() + 44, 0, 5000),
                          "decompressed_count > 0 && original_count > 0");
    EXPECT_INTERNAL_ERROR(codec.decompress_data(compressed.get() + 44, new_count - 44, 4999),
                          "new_dcmp_size == original_count");
    EXPECT_INTERNAL_ERROR(codec.decompress_data(compressed.get() + 44, new_count - 44, 5001),
                          "new_dcmp_size == original_count");
    BYTES garbage(100, 0x42);
    EXPECT_INTERNAL_ERROR(codec.decompress_data(garbage.data(), 100, 100),
                          "zlib_uncompress(decompressed_data, &new_dcmp_size, data, decompressed_count) == ZLIB_OK");
    // A size no zlib stream of that length could inflate to is refused before
    // anything is allocated for it.
    EXPECT_THROW(codec.decompress_data(garbage.data(), 100, 0xFFFFFFF0u), MSG_INTERNAL_ERROR);
}
