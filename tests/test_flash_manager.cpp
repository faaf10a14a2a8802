// The serial flash database: generation, loading with switches and defaults,
// binding chain devices by ID bytes, and the accessors.
#include "flash_test_support.h"

#include <filesystem>
#include <memory>

using namespace moxdev_test;

TEST(FlashGeneration, WritesTheContainerAndReadsBack)
{
    FLASH_TABLE table;
    table.add({{"device_name", "ALPHA"}, {"manufacturer_name", "acme"}});
    table.add({{"device_name", "BETA"}, {"memory_id", "0x19"}, {"device_bit_size", "268435456"}});
    TEMP_DIR dir;
    table.install(dir);

    const BYTES file = read_bytes(dir.file("programmer/mox_flash.pcf"));
    EXPECT_EQ(std::string(file.begin(), file.begin() + 8), "MOXIO_FM");
    EXPECT_EQ(std::string(file.begin() + 8, file.begin() + 40), MOXDEV_FLASH_INFO_CSV_MD5);
    EXPECT_EQ(file[file.size() - 1], 0);
    EXPECT_EQ(file[file.size() - 2], 0);
    const BYTES payload = payload_of(file);
    EXPECT_EQ(dword_at(payload, 0), 1u);
    EXPECT_EQ(dword_at(payload, 4), 2u);
    EXPECT_EQ(dword_at(payload, 8), TOTAL_DATABASE_MEMBER);
    EXPECT_EQ(BYTES(payload.begin() + 12, payload.begin() + 18), (BYTES{0x02, 4, 'a', 'c', 'm', 'e'}));
    EXPECT_EQ(BYTES(payload.end() - 4, payload.end()), (BYTES{'E', 'N', 'D', '2'}));

    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    MOXDEV_FLASH_MANAGER manager(false, 2, false, false);
    ASSERT_EQ(manager.get_flash_count(), 2u);
    const MOXDEV_SFL_FLASH_INFO& beta = manager.get_flash_database()[1];
    EXPECT_EQ(beta.device_name, "BETA");
    EXPECT_EQ(beta.memory_id, 0x19);
    EXPECT_EQ(beta.device_bit_size, 268435456u);
    EXPECT_EQ(beta.memory_type_index, 1);
    EXPECT_EQ(beta.asc_voltage, "3.3V");
}

TEST(FlashGeneration, RejectsMalformedTables)
{
    auto rejected = [](FLASH_TABLE table, const std::string& condition) {
        TEMP_DIR dir;
        EXPECT_INTERNAL_ERROR(table.install(dir), condition);
        EXPECT_FALSE(std::filesystem::exists(dir.file("programmer/mox_flash.pcf")));
    };
    rejected(FLASH_TABLE(), "status && device_count > 0");

    FLASH_TABLE lower_bool;
    lower_bool.add({{"micron_flow", "true"}});
    rejected(lower_bool, "string == \"FALSE\" || string == \"TRUE\"");
    FLASH_TABLE blank;
    blank.add({{"device_name", "TWO WORDS"}});
    rejected(blank, "DWORD(svec.size()) == TOTAL_DATABASE_MEMBER");
    FLASH_TABLE wrong_type;
    wrong_type.add({});
    wrong_type.types[2] = "BYTE";
    rejected(wrong_type, "svec.at(i) == \"bool\"");
    FLASH_TABLE wrong_name;
    wrong_name.add({});
    wrong_name.names[5] = "memory_tipe";
    rejected(wrong_name, "temp == m_name_list[i]");
    FLASH_TABLE short_units;
    short_units.add({});
    short_units.description[2].pop_back(); // line 4
    rejected(short_units, "DWORD(svec.size()) == TOTAL_DATABASE_MEMBER");

    // Names may be upper case and lines 2, 3 and 7 are free text.
    FLASH_TABLE loose;
    loose.add({});
    for (std::string& name : loose.names)
        stl_toupper(name);
    loose.description[0] = {"free", "text"};
    loose.description[5] = {"x"};
    TEMP_DIR dir;
    EXPECT_NO_THROW(loose.install(dir));
}

TEST(FlashLoad, SwitchesAndDefaults)
{
    FLASH_TABLE table;
    table.add({{"device_name", "ALPHA"}, {"ini", "none"}});
    table.add({{"device_name", "GATED"}, {"ini", "QUAL_TEST"}, {"memory_id", "0x19"}});
    TEMP_DIR dir;
    table.install(dir);
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    {
        SCOPED_ENV off("MOX_ALLOW_QUAL_TEST", nullptr);
        MOXDEV_FLASH_MANAGER manager(false, 1, false, false);
        EXPECT_EQ(manager.get_flash_count(), 1u);
        EXPECT_EQ(manager.get_default_flash("gated"), nullptr);
    }
    SCOPED_ENV on("MOX_ALLOW_QUAL_TEST", "yes");
    MOXDEV_FLASH_MANAGER manager(false, 1, false, false);
    EXPECT_EQ(manager.get_flash_count(), 2u);
    ASSERT_NE(manager.get_default_flash("gated"), nullptr);
    EXPECT_EQ(manager.get_default_flash("gated")->memory_id, 0x19);

    auto load_fails = [&](FLASH_TABLE bad, const std::string& condition) {
        TEMP_DIR other;
        bad.install(other);
        SCOPED_ENV db_dir("MOXDEV_DEVICE_DB_DIR", other.path().c_str());
        EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_MANAGER(false, 1, false, false), condition);
    };
    FLASH_TABLE two_defaults;
    two_defaults.add({{"device_name", "SAME"}});
    two_defaults.add({{"device_name", "same"}, {"memory_id", "0x19"}});
    load_fails(two_defaults, "!one_default");
    FLASH_TABLE no_default;
    no_default.add({{"device_name", "SAME"}, {"default_dev", "FALSE"}});
    load_fails(no_default, "one_default");
    // Switching off the default of a name whose other record stays enabled.
    FLASH_TABLE gated_default;
    gated_default.add({{"device_name", "SAME"}, {"ini", "QUAL_OFF"}});
    gated_default.add({{"device_name", "SAME"}, {"default_dev", "FALSE"}});
    load_fails(gated_default, "one_default");

    FLASH_TABLE all_off;
    all_off.add({{"ini", "QUAL_OFF"}});
    TEMP_DIR empty_dir;
    all_off.install(empty_dir);
    SCOPED_ENV db_empty("MOXDEV_DEVICE_DB_DIR", empty_dir.path().c_str());
    MOXDEV_FLASH_MANAGER empty(false, 1, false, false);
    EXPECT_EQ(empty.get_flash_count(), 0u);
    BYTE id[3] = {0x20, 0xBA, 0x18};
    EXPECT_INTERNAL_ERROR(empty.flash_id_database_mapping(false, 0, id),
                          "m_flash_database != NULL && m_flash_count > 0");
}

TEST(FlashLoad, FileChecks)
{
    FLASH_TABLE table;
    table.add({});
    TEMP_DIR dir;
    table.install(dir);
    const std::string path = dir.file("programmer/mox_flash.pcf");
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_MANAGER(false, 0, false, false), "count > 0");

    const BYTES good = read_bytes(path);
    auto load_fails = [&](const BYTES& file, const std::string& condition) {
        write_bytes(path, file);
        EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_MANAGER(false, 1, false, false), condition);
    };
    load_fails(BYTES(good.begin(), good.begin() + 46), "file_size > (8 + 32 + 4 + 2)");
    BYTES id = good;
    id[8] ^= 1;
    load_fails(id, "Mismatch ID between flash file and reader");
    BYTES payload = payload_of(good);
    payload[0] = 7;
    load_fails(make_database_file("MOXIO_FM", MOXDEV_FLASH_INFO_CSV_MD5, payload),
               "Mismatch version between flash file and reader");
    load_fails(make_database_file("MOXIO_DM", MOXDEV_FLASH_INFO_CSV_MD5, payload_of(good)),
               "data[index++] == 'M' && data[index++] == 'O' && data[index++] == 'X' && "
               "data[index++] == 'I' && data[index++] == 'O' && data[index++] == '_' && "
               "data[index++] == 'F' && data[index++] == 'M'");
    std::filesystem::remove(path);
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_MANAGER(false, 1, false, false),
                          "FIO_FILE_SYSTEM::exists(flash_file.fullpath().c_str()) && "
                          "FIO_FILE_SYSTEM::status(flash_file.fullpath().c_str(), &stat_info)");
}

TEST(FlashBinding, FirstMatchWinsInBothIdModes)
{
    FLASH_TABLE table;
    table.add({{"device_name", "ANYTYPE"}, {"memory_id", "0x17"}, {"memory_type_index", "255"},
               {"program_utime", "900"}});
    table.add({{"device_name", "EXACT"}, {"memory_id", "0x18"}, {"program_utime", "700"}});
    table.add({{"device_name", "SILICON1"}, {"silicon_id", "TRUE"}, {"memory_id", "0x14"},
               {"memory_id_index", "0"}});
    table.add({{"device_name", "SILICON2"}, {"silicon_id", "TRUE"}, {"memory_id", "0x14"},
               {"memory_id_index", "0"}});
    TEMP_DIR dir;
    table.install(dir);
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    MOXDEV_FLASH_MANAGER manager(false, 3, false, false);

    BYTE any_type[3] = {0x20, 0x55, 0x17};
    ASSERT_TRUE(manager.flash_id_database_mapping(false, 0, any_type));
    EXPECT_EQ(manager.sfl_get_device_name(0), "ANYTYPE");
    BYTE exact[3] = {0x20, 0xBA, 0x18};
    ASSERT_TRUE(manager.flash_id_database_mapping(false, 1, exact));
    EXPECT_EQ(manager.sfl_get_device_name(1), "EXACT");
    exact[1] = 0xBB;
    EXPECT_FALSE(manager.flash_id_database_mapping(false, 2, exact));
    EXPECT_EQ(manager.get_flash_mapping_index(2, true), 4294967295u);
    EXPECT_INTERNAL_ERROR(manager.get_flash_mapping_index(2, false), "index != INVALID_DWORD");
    EXPECT_INTERNAL_ERROR(manager.sfl_get_program_utime(2), "index != INVALID_DWORD");
    EXPECT_EQ(manager.sfl_get_chain_longest_program_utime(), 900u);

    BYTE silicon[1] = {0x14};
    ASSERT_TRUE(manager.flash_id_database_mapping(true, 2, silicon));
    EXPECT_EQ(manager.sfl_get_device_name(2), "SILICON1");
    // A counted ID that is too short for a record's index does not match it.
    EXPECT_FALSE(manager.flash_id_database_mapping(false, 2, exact, 2));

    EXPECT_INTERNAL_ERROR(manager.flash_id_database_mapping(false, 3, exact), "device_index < m_device_count");
    EXPECT_INTERNAL_ERROR(manager.sfl_get_memory_id(3),
                          "m_device_to_flash_map != NULL && device < m_device_count && "
                          "m_flash_database != NULL && m_flash_count > 0");
    EXPECT_INTERNAL_ERROR(manager.set_flash_mapping_index(0, 4),
                          "m_device_to_flash_map != NULL && device < m_device_count && "
                          "m_flash_database != NULL && m_flash_count > 0 && index < m_flash_count");
    manager.set_flash_mapping_index(0, 3);
    EXPECT_EQ(manager.sfl_get_device_name(0), "SILICON2");

    // Copies share the binding.
    MOXDEV_FLASH_MANAGER copy(manager);
    EXPECT_EQ(copy.get_flash_database(), manager.get_flash_database());
    EXPECT_EQ(copy.sfl_get_device_name(1), "EXACT");

    MOXDEV_FLASH_MANAGER unbound(false, 2, false, false);
    EXPECT_INTERNAL_ERROR(unbound.sfl_get_chain_longest_program_utime(), "found");
}

TEST(FlashBinding, AccessorsReturnEveryFieldOfTheBoundRecord)
{
    FLASH_TABLE table;
    table.add({});
    TEMP_DIR dir;
    table.install(dir);
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    MOXDEV_FLASH_MANAGER manager(false, 1, false, false);
    manager.set_flash_mapping_index(0, 0);
    MOXDEV_SFL_FLASH_INFO through_accessors;
#define MOXDEV_FLASH_FIELD(name, stream_type, type) through_accessors.name = manager.sfl_get_##name(0);
#include "moxdev/moxdev_flash_info_fields.def"
    EXPECT_EQ(moxdev_flash_info_to_text(through_accessors),
              moxdev_flash_info_to_text(manager.get_flash_database()[0]));
    EXPECT_EQ(through_accessors.device_bit_size, 134217728u);
    EXPECT_EQ(through_accessors.bottom_value, 5);
    EXPECT_EQ(through_accessors.asc_voltage, "3.3V");
}

TEST(FlashHelpers, PowerOfTwoAndToString)
{
    EXPECT_FALSE(MOXDEV_FLASH_MANAGER::is_power_of_two(0));
    EXPECT_TRUE(MOXDEV_FLASH_MANAGER::is_power_of_two(1));
    EXPECT_TRUE(MOXDEV_FLASH_MANAGER::is_power_of_two(0x80000000u));
    EXPECT_FALSE(MOXDEV_FLASH_MANAGER::is_power_of_two(6));
    EXPECT_FALSE(MOXDEV_FLASH_MANAGER::is_power_of_two(0xFFFFFFFFu));
    EXPECT_EQ(MOXDEV_FLASH_MANAGER::to_string(255, true), "-1");
    EXPECT_EQ(MOXDEV_FLASH_MANAGER::to_string(255, false), "255");
    EXPECT_EQ(MOXDEV_FLASH_MANAGER::to_string(INVALID_DWORD, false), "-1");
    EXPECT_EQ(MOXDEV_FLASH_MANAGER::to_string(0x80000000u, false), "-2147483648");
    EXPECT_EQ(MOXDEV_FLASH_MANAGER::calculate_crc16(reinterpret_cast<const BYTE*>("abc"), 3), 0);
}
