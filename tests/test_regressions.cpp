// Inputs the fuzz targets found (fuzz/), and the bounds that keep every
// reader's allocations proportional to its input.
#include "flash_test_support.h"

#include <zlib.h>

#include <filesystem>
#include <memory>

using namespace moxdev_test;

namespace {

class DEV_INFO : public MOXDEV_DEV_INFO_MANAGER {
public:
    DEV_INFO() : MOXDEV_DEV_INFO_MANAGER(true, 0) {}
    using MOXDEV_DEV_INFO_MANAGER::initialize_device_database;
    using MOXDEV_DEV_INFO_MANAGER::search_family;
};

BYTES shipped_device_payload()
{
    return payload_of(read_bytes(data_path("programmer/mox_dev_info.pcf")));
}

void put_dword(BYTES& bytes, std::size_t offset, DWORD value)
{
    for (int i = 0; i < 4; ++i)
        bytes.at(offset + i) = BYTE(value >> (8 * i));
}

// Where the first record's family and device values lie in a device payload:
// behind the three counts, the family (tag and value), then the pcf text.
std::size_t family_value_offset()
{
    return 12 + 1;
}
std::size_t device_value_offset(const BYTES& payload)
{
    return 12 + 5 + 2 + payload.at(18) + 1;
}

// The user flash of `text`, encoded as the configuration carries it.
std::string encoded(const std::string& text)
{
    return MOXDEV_FLASH_MANAGER(false, 0, true, false).encode_ini(text);
}

} // namespace

// ---------------------------------------------------------------- fuzz findings

// A record's family or device value is read into the catalogue's enumeration.
// One the enumeration cannot represent was stored anyway, and every later use
// of the record was undefined (found by fuzz_device_database).
TEST(FuzzFindings, DeviceRecordValueBeyondItsEnumerationIsRefused)
{
    const BYTES payload = shipped_device_payload();
    TEMP_DIR dir;
    auto load = [&](const BYTES& damaged) {
        write_bytes(dir.file("db.pcf"), make_database_file("MOXIO_DM", MOXDEV_DEV_INFO_CSV_MD5, damaged));
        auto manager = std::make_unique<DEV_INFO>();
        manager->initialize_device_database(dir.file("db.pcf"));
        return manager;
    };
    ASSERT_EQ(payload.at(device_value_offset(payload) - 1), MOXDEV_MANAGER_DEVID_ENUM);

    BYTES device = payload;
    put_dword(device, device_value_offset(payload), 6527488); // the input the fuzzer found
    EXPECT_INTERNAL_ERROR(load(device), "catalogue value does not fit its enumeration");
    BYTES family = payload;
    put_dword(family, family_value_offset(), 0xFFFFFFFF);
    EXPECT_INTERNAL_ERROR(load(family), "catalogue value does not fit its enumeration");

    // A value the enumeration holds but the catalogue does not know still
    // loads, and the searches report it when they reach the record.
    put_dword(family, family_value_offset(), DWORD(DEV_FAMILY_MAX) + 1);
    std::unique_ptr<DEV_INFO> manager;
    ASSERT_NO_THROW(manager = load(family));
    EXPECT_INTERNAL_ERROR(manager->search_family(DEV_FAMILY_GENERIC, false), "id < DEV_FAMILY_MAX");
    BYTES largest = payload;
    put_dword(largest, device_value_offset(payload), 2047);
    EXPECT_NO_THROW(load(largest));
}

// ---------------------------------------------------------------- bounds

// A header can announce more than its file can hold; each reader refuses it
// before setting memory aside.
TEST(BoundedResources, DatabaseHeaderAnnouncingMoreThanTheFileHolds)
{
    TEMP_DIR dir;
    std::filesystem::create_directories(dir.file("programmer"));
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    // 100 bytes that announce a payload of 4 GiB - 1.
    auto file = [](const char* magic, const std::string& identifier) {
        BYTES bytes = make_database_file(magic, identifier, BYTES(40, 0), 0xFFFFFFFF);
        bytes.resize(100, 0);
        return bytes;
    };
    write_bytes(dir.file("programmer/mox_dev_info.pcf"), file("MOXIO_DM", MOXDEV_DEV_INFO_CSV_MD5));
    EXPECT_INTERNAL_ERROR(MOXDEV_DEV_INFO_MANAGER(false, 0),
                          "announced payload size exceeds what the compressed data can hold");
    write_bytes(dir.file("programmer/mox_flash.pcf"), file("MOXIO_FM", MOXDEV_FLASH_INFO_CSV_MD5));
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_MANAGER(false, 1, false, false),
                          "announced payload size exceeds what the compressed data can hold");
}

TEST(BoundedResources, RecordCountsAreCheckedAgainstThePayload)
{
    TEMP_DIR dir;
    BYTES device = shipped_device_payload();
    put_dword(device, 4, 0x7FFFFFFF);
    write_bytes(dir.file("db.pcf"), make_database_file("MOXIO_DM", MOXDEV_DEV_INFO_CSV_MD5, device));
    EXPECT_INTERNAL_ERROR(DEV_INFO().initialize_device_database(dir.file("db.pcf")),
                          "record count exceeds what the payload can hold");

    FLASH_TABLE table;
    table.add({});
    table.install(dir);
    BYTES flash = payload_of(read_bytes(dir.file("programmer/mox_flash.pcf")));
    put_dword(flash, 4, 0xFFFFFFFF);
    write_bytes(dir.file("programmer/mox_flash.pcf"),
                make_database_file("MOXIO_FM", MOXDEV_FLASH_INFO_CSV_MD5, flash));
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_MANAGER(false, 1, false, false),
                          "record count exceeds what the payload can hold");
}

// The user flash value inflates into a 64 KiB buffer: a value that inflates
// to more is rejected like one that does not inflate at all.
TEST(BoundedResources, UserFlashValueInflatesIntoABoundedBuffer)
{
    const MOXDEV_FLASH_MANAGER codec(false, 0, true, false);
    const std::string at_bound(64 * 1024, 'A');
    EXPECT_EQ(codec.decode_ini(encoded(at_bound)), at_bound);
    testing::internal::CaptureStdout();
    EXPECT_EQ(codec.decode_ini(encoded(at_bound + "A")), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Fail to generate INI because of decompression failure\n");

    // A valid definition padded after its end to just past the bound is
    // dropped; up to the bound it is taken.
    const std::string definition =
        "@ACME@CHIP1@0@25@2@186@1@32@0@32@1@NONE@0@1@0@0@0@1@1@268435456@65536@0@1@400@3@1800@92@92@0@4@5@1@3.3V@";
    const std::string text = definition + "#" + codec.gen_ini_password(definition) + ";";
    auto flash_count = [](const char* value) {
        SCOPED_ENV user("MOX_SUPPORT_EXT_SPI_DEV", value);
        return MOXDEV_FLASH_MANAGER(false, 1, false, false).get_flash_count();
    };
    const DWORD without = flash_count(nullptr);
    const std::string padded = text + std::string(64 * 1024 - text.size(), ' ');
    EXPECT_EQ(flash_count(encoded(padded).c_str()), without + 1);
    EXPECT_EQ(flash_count(encoded(padded + " ").c_str()), without);
}

TEST(BoundedResources, NamingImageLengthsAndCountsAreChecked)
{
    const BYTES garbage(64, 0x5A);
    EXPECT_INTERNAL_ERROR(moxdev_decode_grammar_image(garbage.data(), 64, 64 * 1032 + 1),
                          "image length exceeds what its compressed data can hold");
    EXPECT_INTERNAL_ERROR(moxdev_decode_opn_image(garbage.data(), 64, 0xFFFFFFFF),
                          "image length exceeds what its compressed data can hold");
    EXPECT_INTERNAL_ERROR(moxdev_decode_grammar_image(garbage.data(), 1, 0xFFFFFFFF - 50),
                          "image length exceeds what its compressed data can hold");

    // An OPN image whose count promises more numbers than it has bytes.
    BYTES image(MOXDDB_OPN_DATA, MOXDDB_OPN_DATA + MOXDDB_OPN_CMP_LENGTH);
    uLongf length = MOXDDB_OPN_LENGTH;
    BYTES raw(length);
    ASSERT_EQ(::uncompress(raw.data(), &length, image.data(), uLong(image.size())), Z_OK);
    put_dword(raw, 10, 0xFFFFFF00);
    raw.resize(raw.size() - 4);
    const DWORD crc = ~MOX_COMMON::msb_calculate_crc32(raw.data(), 0, DWORD(raw.size() * 8), 0xFFFFFFFFu,
                                                       0x04C11DB7u, true);
    append_dword(raw, crc);
    uLongf compressed_length = ::compressBound(uLong(raw.size()));
    BYTES compressed(compressed_length);
    ASSERT_EQ(::compress(compressed.data(), &compressed_length, raw.data(), uLong(raw.size())), Z_OK);
    EXPECT_INTERNAL_ERROR(moxdev_decode_opn_image(compressed.data(), DWORD(compressed_length), DWORD(raw.size())),
                          "index < (data_size - 4)");
}

TEST(BoundedResources, UserParameterFileEntryCountIsCheckedAgainstTheFile)
{
    TEMP_DIR dir;
    SCOPED_ENV module("MOXDEV_MODULE_DIR", dir.path().c_str());
    BYTES file{'M', 'O', 'X', 'D', 'E', 'V', '_', 'F', 'L', 'A', 'S', 'H', '_', 'I', 'N', 'I'};
    append_dword(file, 0xFFFFFFFF);
    file.resize(100, 0);
    write_bytes(dir.file("mox_flash.ini"), file);
    DWORD size = 1;
    EXPECT_EQ(MOXDEV_FLASH_INI::read_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, size), nullptr);
    EXPECT_EQ(size, 0u);
}

