// The field stream and the container: exact bytes, every rejection, no read
// past the end of a bounded stream, and the described primitives and parse
// steps working for a derived class on buffers of its own.
#include "test_support.h"

#include <memory>

using namespace moxdev_test;

namespace {

const char* const UNIT = "moxdev_dev_info_manager";

template <class WRITE>
BYTES written(WRITE write)
{
    MOXDEV_FIELD_WRITER out(UNIT);
    write(out);
    return out.bytes();
}

template <class READ>
void read(const BYTES& stream, READ body)
{
    MOXDEV_FIELD_READER in(stream.data(), DWORD(stream.size()), UNIT);
    body(in);
}

// A manager used the way a client that derives from it uses the codec: on
// buffers it owns, through the protected primitives.
class DEV_INFO : public MOXDEV_DEV_INFO_MANAGER {
public:
    DEV_INFO() : MOXDEV_DEV_INFO_MANAGER(true, 0) {}
    using MOXDEV_DEV_INFO_MANAGER::compress_data;
    using MOXDEV_DEV_INFO_MANAGER::confirm_data_type_end;
    using MOXDEV_DEV_INFO_MANAGER::confirm_database_end;
    using MOXDEV_DEV_INFO_MANAGER::decompress_data;
    using MOXDEV_DEV_INFO_MANAGER::dump_bool_to_database;
    using MOXDEV_DEV_INFO_MANAGER::dump_dword_database;
    using MOXDEV_DEV_INFO_MANAGER::dump_enum_to_database;
    using MOXDEV_DEV_INFO_MANAGER::dump_string_to_database;
    using MOXDEV_DEV_INFO_MANAGER::dump_to_database;
    using MOXDEV_DEV_INFO_MANAGER::dump_value_to_database;
    using MOXDEV_DEV_INFO_MANAGER::get_bool_data;
    using MOXDEV_DEV_INFO_MANAGER::get_byte_data;
    using MOXDEV_DEV_INFO_MANAGER::get_database;
    using MOXDEV_DEV_INFO_MANAGER::get_dword;
    using MOXDEV_DEV_INFO_MANAGER::get_dword_data;
    using MOXDEV_DEV_INFO_MANAGER::get_string_data;
    using MOXDEV_DEV_INFO_MANAGER::get_table;
    using MOXDEV_DEV_INFO_MANAGER::get_table_size;
    using MOXDEV_DEV_INFO_MANAGER::get_word_data;
    using MOXDEV_DEV_INFO_MANAGER::parse_database;
    void set_csv_memory_size(DWORD size) { m_csv_memory_size = size; }
};

class FLASH : public MOXDEV_FLASH_MANAGER {
public:
    FLASH() : MOXDEV_FLASH_MANAGER(false, 1, true, false) {}
    using MOXDEV_FLASH_MANAGER::confirm_data_type_end;
    using MOXDEV_FLASH_MANAGER::dump_to_database;
    using MOXDEV_FLASH_MANAGER::get_database;
    using MOXDEV_FLASH_MANAGER::parse_database;
};

// The cells of every record row of a generator's table.
std::vector<std::vector<std::string>> record_rows(const std::string& csv, DWORD skip)
{
    MOXDEV_TABLE_READER table(csv);
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> cells;
    for (DWORD line = 0; table.next(cells); ++line) {
        if (line >= skip)
            rows.push_back(cells);
    }
    return rows;
}

} // namespace

TEST(FieldStream, WriterProducesTaggedLittleEndianValues)
{
    EXPECT_EQ(written([](auto& w) { w.value_field("0x1234", 2); }), (BYTES{0x05, 0x34, 0x12}));
    EXPECT_EQ(written([](auto& w) { w.value_field("0x1FF", 1); }), (BYTES{0x04, 0xFF}));
    EXPECT_EQ(written([](auto& w) { w.value_field("305419896", 4); }), (BYTES{0x06, 0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(written([](auto& w) { w.put_dword(0xA1B2C3D4); }), (BYTES{0xD4, 0xC3, 0xB2, 0xA1}));
    EXPECT_EQ(written([](auto& w) {
                  w.bool_field("TRUE");
                  w.bool_field("FALSE");
                  w.bool_field("");
              }),
              (BYTES{0x03, 1, 0x03, 0, 0x03, 0}));
    EXPECT_EQ(written([](auto& w) {
                  w.string_field(false, "kx1", MOXDEV_MANAGER_DEVID_STR);
                  w.string_field(true, "", MOXDEV_MANAGER_STRING);
              }),
              (BYTES{0x01, 3, 'k', 'x', '1', 0x02, 0}));
}

TEST(FieldStream, WriterRejectsBadInput)
{
    EXPECT_INTERNAL_ERROR(written([](auto& w) { w.value_field("1", 3); }), "size == 1 || size == 2 || size == 4");
    EXPECT_INTERNAL_ERROR(written([](auto& w) { w.bool_field("true"); }),
                          "text == \"\" || text == \"FALSE\" || text == \"TRUE\"");
    EXPECT_INTERNAL_ERROR(written([](auto& w) { w.string_field(false, "", MOXDEV_MANAGER_STRING); }),
                          "string.size() > 0 || allow_empty");
    EXPECT_INTERNAL_ERROR(written([](auto& w) { w.string_field(true, "x", MOXDEV_MANAGER_BOOL); }),
                          "type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING");
    // A text whose length does not fit the length byte, and a number that is
    // no number.
    EXPECT_THROW(written([](auto& w) { w.string_field(true, std::string(256, 'a'), MOXDEV_MANAGER_STRING); }),
                 MSG_INTERNAL_ERROR);
    EXPECT_THROW(written([](auto& w) { w.value_field("12x", 4); }), MSG_INTERNAL_ERROR);
}

TEST(FieldStream, ReaderChecksTagsValuesAndMarkers)
{
    const BYTES stream{0x00, 1, 0, 0, 0,  0x06, 2, 0, 0, 0, 0x07, 3, 0, 0, 0, 0x05, 0x34, 0x12,
                       0x04, 0x7F, 0x03, 1, 0x02, 0, 0x01, 2, 'a', 'b', 'E', 'N', 'D', '1'};
    read(stream, [&](MOXDEV_FIELD_READER& in) {
        for (DWORD expected = 1; expected <= 3; ++expected)
            EXPECT_EQ(in.dword_field(), expected) << "tags 0, 6 and 7 all read as DWORD";
        EXPECT_EQ(in.word_field(), 0x1234);
        EXPECT_EQ(in.byte_field(), 0x7F);
        EXPECT_TRUE(in.bool_field());
        std::string text = "stale";
        in.string_field(true, text);
        EXPECT_EQ(text, "");
        in.string_field(false, text);
        EXPECT_EQ(text, "ab");
        in.record_end();
        EXPECT_EQ(in.position(), stream.size());
    });

    struct REJECTION {
        BYTES stream;
        void (*read)(MOXDEV_FIELD_READER&);
        const char* condition;
    };
    static std::string sink;
    const REJECTION rejections[] = {
        {{0x03, 2}, [](MOXDEV_FIELD_READER& in) { in.bool_field(); }, "value == 0 || value == 1"},
        {{0x04, 2}, [](MOXDEV_FIELD_READER& in) { in.bool_field(); }, "type == MOXDEV_MANAGER_BOOL"},
        {{0x05, 1, 2}, [](MOXDEV_FIELD_READER& in) { in.dword_field(); },
         "type == MOXDEV_MANAGER_DEVID_ENUM || type == MOXDEV_MANAGER_DWORD || type == MOXDEV_MANAGER_ENUM"},
        {{0x06, 1, 2}, [](MOXDEV_FIELD_READER& in) { in.word_field(); }, "type == MOXDEV_MANAGER_WORD"},
        {{0x03, 1}, [](MOXDEV_FIELD_READER& in) { in.byte_field(); }, "type == MOXDEV_MANAGER_BYTE"},
        {{0x02, 0}, [](MOXDEV_FIELD_READER& in) { in.string_field(false, sink); }, "allow_empty"},
        {{0x03, 0}, [](MOXDEV_FIELD_READER& in) { in.string_field(true, sink); },
         "type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING"},
        {{'E', 'N', 'X', '1'}, [](MOXDEV_FIELD_READER& in) { in.record_end(); }, "data[index++] == 'D'"},
        {{'E', 'N', 'D', '1'}, [](MOXDEV_FIELD_READER& in) { in.database_end(); }, "data[index++] == '2'"},
        {{'X', 'N', 'D', '2'}, [](MOXDEV_FIELD_READER& in) { in.database_end(); }, "data[index++] == 'E'"},
        // Cut short inside the value: the bounded reader stops at the end.
        {{0x06, 1, 2, 3}, [](MOXDEV_FIELD_READER& in) { in.dword_field(); },
         "access beyond the end of the database buffer"},
        {{0x05, 1}, [](MOXDEV_FIELD_READER& in) { in.word_field(); }, "access beyond the end of the database buffer"},
        {{0x04}, [](MOXDEV_FIELD_READER& in) { in.byte_field(); }, "access beyond the end of the database buffer"},
        {{0x02, 5, 'a', 'b'}, [](MOXDEV_FIELD_READER& in) { in.string_field(true, sink); },
         "access beyond the end of the database buffer"},
        {{'E', 'N', 'D'}, [](MOXDEV_FIELD_READER& in) { in.record_end(); },
         "access beyond the end of the database buffer"},
        {{}, [](MOXDEV_FIELD_READER& in) { in.get_dword(); }, "access beyond the end of the database buffer"},
    };
    for (const REJECTION& rejection : rejections) {
        SCOPED_TRACE(rejection.condition);
        // A copy of exactly the stream's length, so that a sanitizer would see
        // a read past it.
        std::unique_ptr<BYTE[]> exact(new BYTE[rejection.stream.size() + (rejection.stream.empty() ? 1 : 0)]);
        std::copy(rejection.stream.begin(), rejection.stream.end(), exact.get());
        MOXDEV_FIELD_READER in(exact.get(), DWORD(rejection.stream.size()), UNIT);
        EXPECT_INTERNAL_ERROR(rejection.read(in), rejection.condition);
    }
}

TEST(FieldStream, DerivedClassUsesThePrimitivesOnItsOwnBuffers)
{
    DEV_INFO manager;
    // A buffer of the client's own, with room to spare: every write lands at
    // its position and advances it by exactly its size.
    std::vector<BYTE> buffer(64, 0xEE);
    BYTE* data = buffer.data();
    DWORD index = 3;
    manager.dump_value_to_database(data, index, "0x1234", 2);
    EXPECT_EQ(index, 6u);
    manager.dump_dword_database(data, index, 0xA1B2C3D4);
    manager.dump_bool_to_database(data, index, "TRUE");
    manager.dump_string_to_database(data, index, false, "kx1", MOXDEV_MANAGER_STRING);
    manager.dump_enum_to_database(data, index, "family", "KESTREL_II");
    std::memcpy(data + index, "END1END2", 8);
    index += 8;
    EXPECT_EQ(index, 30u);
    EXPECT_EQ(BYTES(buffer.begin(), buffer.begin() + 3), BYTES(3, 0xEE)) << "nothing written before the position";
    EXPECT_EQ(buffer[30], 0xEE) << "nothing written past the value";

    index = 3;
    WORD word = 0;
    manager.get_word_data(data, index, &word);
    EXPECT_EQ(word, 0x1234);
    EXPECT_EQ(manager.get_dword(data, index), 0xA1B2C3D4u);
    bool flag = false;
    manager.get_bool_data(data, index, &flag);
    EXPECT_TRUE(flag);
    std::string text;
    manager.get_string_data(data, index, false, &text);
    EXPECT_EQ(text, "kx1");
    DWORD family = 0;
    manager.get_dword_data(data, index, &family);
    EXPECT_EQ(family, DWORD(dstr_get_dev_family_enum_by_string("KESTREL_II")));
    manager.confirm_data_type_end(data, index);
    manager.confirm_database_end(data, index);
    EXPECT_EQ(index, 30u);
    EXPECT_INTERNAL_ERROR(manager.dump_value_to_database(data, index, "1", 3), "size == 1 || size == 2 || size == 4");
    index = 0;
    EXPECT_INTERNAL_ERROR(manager.get_byte_data(data, index, &buffer[60]), "type == MOXDEV_MANAGER_BYTE");
}

TEST(FieldStream, DerivedClassParsesPayloadsItBuilt)
{
    // The device records written with the described writer into the client's
    // own buffer, then the shipped tables behind them.
    const BYTES shipped = payload_of(read_bytes(data_path("programmer/mox_dev_info.pcf")));
    DEV_INFO writer;
    std::vector<BYTE> own(shipped.size() + 4096);
    BYTE* data = own.data();
    DWORD index = 0;
    writer.dump_dword_database(data, index, 1);
    const auto rows = record_rows(source_path("data/mox_dev_info.csv"), 2);
    writer.dump_dword_database(data, index, DWORD(rows.size()));
    writer.dump_dword_database(data, index, TOTAL_DEVICE_DATABASE_MEMBER);
    for (const auto& cells : rows) {
        writer.dump_to_database(data, index, cells);
        std::memcpy(data + index, "END1", 4);
        index += 4;
    }
    std::memcpy(data + index, "END2", 4);
    index += 4;
    const DWORD csv_size = index;
    ASSERT_EQ(shipped.size(), csv_size + writer.get_table_size());
    EXPECT_TRUE(std::equal(own.begin(), own.begin() + csv_size, shipped.begin()))
        << "the described writers give the generator's bytes";
    std::copy(shipped.begin() + csv_size, shipped.end(), own.begin() + csv_size);

    MOXDEV_DEV_INFO_MANAGER loaded(false, 0);
    DEV_INFO parsed;
    parsed.set_csv_memory_size(csv_size);
    EXPECT_FALSE(parsed.parse_database(own.data(), false));
    ASSERT_EQ(parsed.get_device_count(), loaded.get_device_count());
    for (DWORD r = 0; r < loaded.get_device_count(); ++r)
        EXPECT_EQ(moxdev_device_info_to_text(parsed.get_device_database()[r]),
                  moxdev_device_info_to_text(loaded.get_device_database()[r]));
    for (int part : {1, 5358, DEV_PART_GENERIC})
        EXPECT_EQ(parsed.get_part_index(part), loaded.get_part_index(part));

    // The generating parse reads the records only.
    DEV_INFO generating;
    generating.parse_database(own.data(), true);
    EXPECT_EQ(generating.get_device_count(), loaded.get_device_count());

    // One record and the tables through the per-step forms, at a position.
    DEV_INFO stepwise;
    stepwise.set_csv_memory_size(csv_size);
    stepwise.parse_database(own.data(), false);
    index = 12;
    stepwise.get_database(own.data(), index, 0);
    stepwise.confirm_data_type_end(own.data(), index);
    index = csv_size;
    stepwise.get_table(own.data(), index);
    EXPECT_EQ(index, shipped.size());
}

TEST(FieldStream, DerivedFlashManagerParsesPayloadsItBuilt)
{
    const auto rows = record_rows(source_path("data/mox_flash.csv"), 8);
    FLASH writer;
    std::vector<BYTE> own(64 * 1024);
    BYTE* data = own.data();
    DWORD index = 0;
    for (DWORD value : {DWORD(1), DWORD(rows.size()), TOTAL_DATABASE_MEMBER})
        std::memcpy(data + index, &value, 4), index += 4; // the test runs little-endian
    for (const auto& cells : rows) {
        writer.dump_to_database(data, index, cells);
        std::memcpy(data + index, "END1", 4);
        index += 4;
    }
    std::memcpy(data + index, "END2", 4);

    FLASH parsed;
    EXPECT_FALSE(parsed.parse_database(own.data()));
    const MOXDEV_FLASH_MANAGER loaded(false, 1, false, false);
    ASSERT_EQ(parsed.get_flash_count(), loaded.get_flash_count());
    for (DWORD r = 0; r < loaded.get_flash_count(); ++r)
        EXPECT_EQ(moxdev_flash_info_to_text(parsed.get_flash_database()[r]),
                  moxdev_flash_info_to_text(loaded.get_flash_database()[r]));

    // One record at a position: the index moves past it and its end marker.
    FLASH single;
    single.parse_database(own.data());
    index = 12;
    EXPECT_TRUE(single.get_database(own.data(), index, 0));
    single.confirm_data_type_end(own.data(), index);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(own.data()) + index - 4, 4), "END1");
}

TEST(FieldStream, CompressionKeepsTheHeaderAndRoundTrips)
{
    DEV_INFO codec;
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
