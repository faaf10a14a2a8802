// The field stream and the container: exact bytes, every rejection, no read
// past the end of a bounded stream, and the buffer-and-position primitives
// and parse steps working for a derived class on buffers of its own.
#include "test_support.h"

#include <functional>
#include <memory>
#include <tuple>

using namespace moxdev_test;

namespace {

const char* const UNIT = "moxdev_dev_info_manager";

// Fixtures that are clients deriving from a manager: their tests use the
// protected primitives on buffers of their own.
class DevInfoClient : public ::testing::Test, public MOXDEV_DEV_INFO_MANAGER {
protected:
    DevInfoClient() : MOXDEV_DEV_INFO_MANAGER(true, 0) {}
};

class FlashClient : public ::testing::Test, public MOXDEV_FLASH_MANAGER {
protected:
    FlashClient() : MOXDEV_FLASH_MANAGER(false, 1, true, false) {}
};

// Writes the payload header and every record row of a generator's table
// (skipping `skip` lines) with `dump`, each behind its end marker.
template <class DUMP>
DWORD write_records(BYTE* data, const std::string& csv, DWORD skip, DUMP dump)
{
    moxdev::TABLE_READER table(csv);
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> cells;
    for (DWORD line = 0; table.next(cells); ++line) {
        if (line >= skip)
            rows.push_back(cells);
    }
    DWORD index = 0;
    for (DWORD value : {DWORD(1), DWORD(rows.size()), DWORD(rows.front().size())})
        std::memcpy(data + index, &value, 4), index += 4; // the test runs little-endian
    for (const auto& row : rows) {
        dump(data, index, row);
        std::memcpy(data + index, "END1", 4), index += 4;
    }
    std::memcpy(data + index, "END2", 4);
    return index + 4;
}

} // namespace

// The writer's bytes are spelled out; the reader reads them back.
TEST(FieldStream, WritesAndReadsTaggedLittleEndianValues)
{
    MOXDEV_FIELD_WRITER out(UNIT);
    out.tagged_dword(MOXDEV_MANAGER_DEVID_ENUM, 1);
    out.value_field("305419896", 4);
    out.tagged_dword(MOXDEV_MANAGER_ENUM, 3);
    out.value_field("0x1234", 2);
    out.value_field("0x17F", 1);
    out.bool_field("TRUE"), out.bool_field("FALSE"), out.bool_field("");
    out.string_field(true, "", MOXDEV_MANAGER_STRING);
    out.string_field(false, "ab", MOXDEV_MANAGER_DEVID_STR);
    out.put_dword(0xA1B2C3D4);
    out.marker("END1");
    const BYTES stream{0x00, 1,    0,    0,    0,    0x06, 0x78, 0x56, 0x34, 0x12, 0x07, 3,  0,    0,
                       0,    0x05, 0x34, 0x12, 0x04, 0x7F, 0x03, 1,    0x03, 0,    0x03, 0,  0x02, 0,
                       0x01, 2,    'a',  'b',  0xD4, 0xC3, 0xB2, 0xA1, 'E',  'N',  'D',  '1'};
    ASSERT_EQ(out.bytes(), stream);

    MOXDEV_FIELD_READER in(stream.data(), DWORD(stream.size()), UNIT);
    for (DWORD expected : {1u, 305419896u, 3u})
        EXPECT_EQ(in.dword_field(), expected) << "tags 0, 6 and 7 all read as DWORD";
    EXPECT_EQ(in.word_field(), 0x1234);
    EXPECT_EQ(in.byte_field(), 0x7F);
    EXPECT_TRUE(in.bool_field());
    EXPECT_FALSE(in.bool_field() || in.bool_field());
    std::string text = "stale";
    in.string_field(true, text);
    EXPECT_EQ(text, "");
    in.string_field(false, text);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(in.get_dword(), 0xA1B2C3D4u);
    in.record_end();
    EXPECT_EQ(in.position(), stream.size());
}

// The tables are trusted: a text that is no number writes 0, and a text of
// 256 characters writes the low 8 bits of its length, 0, and then all of it.
TEST(FieldStream, WritersCheckOnlyTheirPreconditions)
{
    MOXDEV_FIELD_WRITER out(UNIT);
    out.value_field("12z", 4);
    out.value_field("0x1FF", 1);
    out.string_field(true, std::string(256, 'a'), MOXDEV_MANAGER_STRING);
    BYTES expected{0x06, 0, 0, 0, 0, 0x04, 0xFF, 0x02, 0x00};
    expected.insert(expected.end(), 256, 'a');
    EXPECT_EQ(out.bytes(), expected);
}

// Writer rows have no stream; reader rows read exactly their stream.
TEST(FieldStream, BadInputIsRefusedWithItsCondition)
{
    using R = MOXDEV_FIELD_READER;
    using W = MOXDEV_FIELD_WRITER;
    static std::string sink;
    const char* const beyond = "access beyond the end of the database buffer";
    // Rows: stream, use, condition (null: some internal error).
    const std::tuple<BYTES, void (*)(R&, W&), const char*> cases[] = {
        {{}, [](R&, W& w) { w.value_field("1", 3); }, "size == 1 || size == 2 || size == 4"},
        {{}, [](R&, W& w) { w.string_field(false, "", MOXDEV_MANAGER_STRING); }, "string.size() > 0 || allow_empty"},
        {{},
         [](R&, W& w) { w.string_field(true, "x", MOXDEV_MANAGER_BOOL); },
         "type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING"},
        {{0x03, 2}, [](R& in, W&) { in.bool_field(); }, "value == 0 || value == 1"},
        {{0x04, 2}, [](R& in, W&) { in.bool_field(); }, "type == MOXDEV_MANAGER_BOOL"},
        {{0x05, 1, 2},
         [](R& in, W&) { in.dword_field(); },
         "type == MOXDEV_MANAGER_DEVID_ENUM || type == MOXDEV_MANAGER_DWORD || type == MOXDEV_MANAGER_ENUM"},
        {{0x06, 1, 2}, [](R& in, W&) { in.word_field(); }, "type == MOXDEV_MANAGER_WORD"},
        {{0x03, 1}, [](R& in, W&) { in.byte_field(); }, "type == MOXDEV_MANAGER_BYTE"},
        {{0x02, 0}, [](R& in, W&) { in.string_field(false, sink); }, "allow_empty"},
        {{0x03, 0},
         [](R& in, W&) { in.string_field(true, sink); },
         "type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING"},
        {{'E', 'N', 'X', '1'}, [](R& in, W&) { in.record_end(); }, "data[index++] == 'D'"},
        {{'E', 'N', 'D', '1'}, [](R& in, W&) { in.database_end(); }, "data[index++] == '2'"},
        {{'X', 'N', 'D', '2'}, [](R& in, W&) { in.database_end(); }, "data[index++] == 'E'"},
        // Cut short inside the value: the bounded reader stops at the end.
        {{0x06, 1, 2, 3}, [](R& in, W&) { in.dword_field(); }, beyond},
        {{0x05, 1}, [](R& in, W&) { in.word_field(); }, beyond},
        {{0x04}, [](R& in, W&) { in.byte_field(); }, beyond},
        {{0x02, 5, 'a', 'b'}, [](R& in, W&) { in.string_field(true, sink); }, beyond},
        {{'E', 'N', 'D'}, [](R& in, W&) { in.record_end(); }, beyond},
        {{}, [](R& in, W&) { in.get_dword(); }, beyond},
    };
    for (const auto& [stream, use, condition] : cases) {
        SCOPED_TRACE(condition ? condition : "any");
        // A copy of exactly the stream's length, so that a sanitizer would see
        // a read past it.
        std::unique_ptr<BYTE[]> exact(new BYTE[stream.size() + 1]);
        std::copy(stream.begin(), stream.end(), exact.get());
        R in(exact.get(), DWORD(stream.size()), UNIT);
        W out(UNIT);
        if (condition)
            EXPECT_INTERNAL_ERROR(use(in, out), condition);
        else
            EXPECT_THROW(use(in, out), MSG_INTERNAL_ERROR);
    }
}

TEST_F(DevInfoClient, PrimitivesWorkOnTheClientsOwnBuffers)
{
    // Every write lands at its position and advances it by exactly its size.
    std::vector<BYTE> buffer(64, 0xEE);
    BYTE* data = buffer.data();
    DWORD index = 3;
    dump_value_to_database(data, index, "0x1234", 2);
    dump_dword_database(data, index, 0xA1B2C3D4);
    dump_bool_to_database(data, index, "TRUE");
    dump_string_to_database(data, index, false, "kx1", MOXDEV_MANAGER_STRING);
    dump_enum_to_database(data, index, "family", "KESTREL_II");
    std::memcpy(data + index, "END1END2", 8);
    EXPECT_EQ(index + 8, 30u);
    EXPECT_EQ(BYTES(buffer.begin(), buffer.begin() + 3), BYTES(3, 0xEE)) << "nothing written before the position";
    EXPECT_EQ(buffer[30], 0xEE) << "nothing written past the value";
    index = 3;
    WORD word = 0;
    bool flag = false;
    std::string text;
    DWORD family = 0;
    get_word_data(data, index, &word);
    EXPECT_EQ(get_dword(data, index), 0xA1B2C3D4u);
    get_bool_data(data, index, &flag);
    get_string_data(data, index, false, &text);
    get_dword_data(data, index, &family);
    confirm_data_type_end(data, index);
    confirm_database_end(data, index);
    EXPECT_EQ(index, 30u);
    EXPECT_EQ(word, 0x1234);
    EXPECT_TRUE(flag);
    EXPECT_EQ(text, "kx1");
    EXPECT_EQ(family, DWORD(dstr_get_dev_family_enum_by_string("KESTREL_II")));
    index = 0;
    EXPECT_INTERNAL_ERROR(get_byte_data(data, index, &buffer[60]), "type == MOXDEV_MANAGER_BYTE");

    // Compression keeps the plain header and inflates back to the image.
    BYTES image(44, 'H');
    for (int i = 0; i < 5000; ++i)
        image.push_back(BYTE(i % 7));
    DWORD new_count = 0;
    std::unique_ptr<BYTE[]> compressed(compress_data(image.data(), 44, DWORD(image.size()), new_count));
    ASSERT_GT(new_count, 44u);
    EXPECT_EQ(BYTES(compressed.get(), compressed.get() + 44), BYTES(44, 'H'));
    BYTE* const stream = compressed.get() + 44;
    const DWORD stream_size = new_count - 44;
    std::unique_ptr<BYTE[]> restored(decompress_data(stream, stream_size, 5000));
    EXPECT_EQ(BYTES(restored.get(), restored.get() + 5000), BYTES(image.begin() + 44, image.end()));
    BYTES garbage(100, 0x42);
    const std::pair<std::function<void()>, const char*> refused[] = {
        {[&] { compress_data(image.data(), 44, 44, new_count); }, "offset < count"},
        {[&] { decompress_data(stream, 0, 5000); }, "decompressed_count > 0 && original_count > 0"},
        {[&] { decompress_data(stream, stream_size, 4999); }, "new_dcmp_size == original_count"},
        {[&] { decompress_data(stream, stream_size, 5001); }, "new_dcmp_size == original_count"},
        {[&] { decompress_data(garbage.data(), 100, 100); },
         "zlib_uncompress(decompressed_data, &new_dcmp_size, data, decompressed_count) == ZLIB_OK"},
        // No zlib stream of that length could inflate to that size: refused
        // before anything is allocated for it, as a size that does not inflate.
        {[&] { decompress_data(garbage.data(), 100, 0xFFFFFFF0u); }, "new_dcmp_size == original_count"},
    };
    for (const auto& [call, condition] : refused)
        EXPECT_INTERNAL_ERROR(call(), condition);
}

// The device records written into the client's own buffer give the
// generator's bytes; with the shipped tables behind them they parse as the
// shipped database, whole and step by step.
TEST_F(DevInfoClient, ParsesThePayloadItBuilt)
{
    const BYTES shipped = payload_of(read_bytes(data_path("programmer/mox_dev_info.pcf")));
    std::vector<BYTE> own(shipped.size());
    const DWORD csv_size = write_records(own.data(), source_path("data/mox_dev_info.csv"), 2,
                                         [&](BYTE*& at, DWORD& i, const auto& row) { dump_to_database(at, i, row); });
    ASSERT_EQ(shipped.size(), csv_size + 4 * DWORD(DEV_PART_MAX) + 4503);
    EXPECT_TRUE(std::equal(own.begin(), own.begin() + csv_size, shipped.begin()));
    std::copy(shipped.begin() + csv_size, shipped.end(), own.begin() + csv_size);
    m_csv_memory_size = csv_size;
    EXPECT_FALSE(parse_database(own.data(), false));
    EXPECT_EQ(get_device_count(), TOTAL_DATABASE_DEVICE);
    EXPECT_EQ(get_device_database()[37].pcf, "heron4_hnd320f896i2");
    EXPECT_EQ(get_part_index(dstr_get_dev_part_enum_by_string("HND320F896I2")), 37u);
    DWORD index = 12;
    get_database(own.data(), index, 0);
    confirm_data_type_end(own.data(), index);
    index = csv_size;
    get_table(own.data(), index);
    EXPECT_EQ(index, shipped.size());
}

// The same for the flash database, whose payload holds the records only.
TEST_F(FlashClient, ParsesThePayloadItBuilt)
{
    std::vector<BYTE> own(64 * 1024);
    write_records(own.data(), source_path("data/mox_flash.csv"), 8,
                  [&](BYTE*& at, DWORD& i, const auto& row) { dump_to_database(at, i, row); });
    EXPECT_FALSE(parse_database(own.data()));
    const MOXDEV_FLASH_MANAGER loaded = moxdev::load_flash_database();
    ASSERT_EQ(get_flash_count(), loaded.get_flash_count());
    EXPECT_EQ(moxdev_flash_info_to_text(get_flash_database()[get_flash_count() - 1]),
              moxdev_flash_info_to_text(loaded.get_flash_database()[get_flash_count() - 1]));
    DWORD index = 12;
    EXPECT_TRUE(get_database(own.data(), index, 0));
    confirm_data_type_end(own.data(), index);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(own.data()) + index - 4, 4), "END1");
}
