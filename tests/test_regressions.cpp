// Inputs the fuzz targets found (fuzz/), and the bound on what the user flash
// value may inflate to.
#include "test_support.h"

#include <filesystem>

using namespace moxdev_test;

namespace {

// The searches are the interface a derived class builds its lookups on.
class DEV_INFO : public MOXDEV_DEV_INFO_MANAGER {
public:
    DEV_INFO() : MOXDEV_DEV_INFO_MANAGER(false, 0) {}
    using MOXDEV_DEV_INFO_MANAGER::search_family;
};

void put_dword(BYTES& bytes, std::size_t offset, DWORD value)
{
    for (int i = 0; i < 4; ++i)
        bytes.at(offset + i) = BYTE(value >> (8 * i));
}

// A database directory whose files a test damages.
class DamagedDatabase : public ::testing::Test {
protected:
    DamagedDatabase() { std::filesystem::create_directories(dir.file("programmer")); }

    // Installs `payload` as the device database of the directory.
    void device(const BYTES& payload)
    {
        write_bytes(dir.file("programmer/mox_dev_info.pcf"),
                    make_database_file("MOXIO_DM", MOXDEV_DEV_INFO_CSV_MD5, payload));
    }

    TEMP_DIR dir;
    SCOPED_ENV db{"MOXDEV_DEVICE_DB_DIR", dir.path().c_str()};
    const BYTES shipped = payload_of(read_bytes(data_path("programmer/mox_dev_info.pcf")));
    // The first record's family and device values: behind the three counts,
    // the family (tag and value), then the pcf text (tag, length, text).
    const std::size_t family_value = 12 + 1;
    const std::size_t device_value = 12 + 5 + 2 + shipped.at(18) + 1;
};

} // namespace

// A record's family or device value is read into the catalogue's enumeration.
// One the enumeration cannot represent was stored anyway, and every later use
// of the record was undefined (found by fuzz_device_database).
TEST_F(DamagedDatabase, DeviceRecordValueBeyondItsEnumerationIsRefused)
{
    ASSERT_EQ(shipped.at(device_value - 1), MOXDEV_MANAGER_DEVID_ENUM);
    const std::pair<std::size_t, DWORD> beyond[] = {{device_value, 6527488}, {family_value, 0xFFFFFFFF}};
    for (const auto& [offset, value] : beyond) {
        BYTES damaged = shipped;
        put_dword(damaged, offset, value);
        device(damaged);
        EXPECT_INTERNAL_ERROR(DEV_INFO(), "catalogue value does not fit its enumeration");
    }
    // A value the enumeration holds but the catalogue does not know still
    // loads, and the searches report it when they reach the record.
    BYTES unknown = shipped;
    put_dword(unknown, device_value, 2047);
    device(unknown);
    EXPECT_NO_THROW(DEV_INFO());
    put_dword(unknown, family_value, DWORD(DEV_FAMILY_MAX) + 1);
    device(unknown);
    DEV_INFO manager;
    EXPECT_INTERNAL_ERROR(manager.search_family(DEV_FAMILY_GENERIC, false), "id < DEV_FAMILY_MAX");
}

// The user flash value inflates into a 64 KiB buffer: a value that inflates
// to more is rejected like one that does not inflate at all.
TEST(UserFlashValue, InflatesIntoABoundedBuffer)
{
    const MOXDEV_FLASH_MANAGER codec = moxdev::empty_flash_manager();
    const std::string at_bound(64 * 1024, 'A');
    EXPECT_EQ(codec.decode_ini(codec.encode_ini(at_bound)), at_bound);
    testing::internal::CaptureStdout();
    EXPECT_EQ(codec.decode_ini(codec.encode_ini(at_bound + "A")), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Fail to generate INI because of decompression failure\n");

    // A valid definition padded after its end to just past the bound is
    // dropped; up to the bound it is taken.
    const std::string definition =
        "@ACME@CHIP1@0@25@2@186@1@32@0@32@1@NONE@0@1@0@0@0@1@1@268435456@65536@0@1@400@3@1800@92@92@0@4@5@1@3.3V@";
    const std::string padded = definition + "#" + codec.gen_ini_password(definition) + ";";
    auto flash_count = [&](const std::string& text) {
        SCOPED_ENV user("MOX_SUPPORT_EXT_SPI_DEV", text.empty() ? nullptr : codec.encode_ini(text).c_str());
        return MOXDEV_FLASH_MANAGER(false, 1, false, false).get_flash_count();
    };
    const DWORD without = flash_count("");
    const std::string at_limit = padded + std::string(64 * 1024 - padded.size(), ' ');
    EXPECT_EQ(flash_count(at_limit), without + 1);
    EXPECT_EQ(flash_count(at_limit + " "), without);
}
