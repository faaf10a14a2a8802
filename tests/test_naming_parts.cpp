// Ordering part numbers, part name resolution and the type-support checks,
// the indexed answers against the per-part linear algorithms.
#include "naming_oracles.h"
#include "test_support.h"

using namespace moxdev_test;

TEST(OrderingPartNumbers, EnumsAndHashesRoundTrip)
{
    const std::vector<DWORD> table = moxdev_decode_opn_image(MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH, MOXDDB_OPN_LENGTH);
    EXPECT_EQ(MOXDEV_MGR::get_opn(DWORD(table.size())), "");
    EXPECT_EQ(MOXDEV_MGR::get_opn(0xFFFFFFFFu), "");
    EXPECT_EQ(MOXDEV_MGR::get_opn_enum("NOSUCH"), 0xFFFFFFFFu);
    EXPECT_EQ(MOXDEV_MGR::get_opn_enum("Generic"), 0xFFFFFFFFu);
    EXPECT_EQ(MOXDEV_MGR::get_opn_hash("NOSUCH"), 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(MOXDEV_MGR::get_opn_hash("kxb100f484c6"), MOXDEV_MGR::get_opn_hash("KXB100F484C6"));
    EXPECT_EQ(MOXDEV_MGR::get_opn_hash("KXB100F484C6") >> 48, 0u);

    for (int part = 1; part < DEV_PART_MAX; ++part) {
        if (part == DEV_PART_GENERIC)
            continue;
        const std::string name = dstr_get_user_string(part);
        const DWORD opn_enum = MOXDEV_MGR::get_opn_enum(name);
        ASSERT_EQ(MOXDEV_MGR::get_opn(opn_enum), name);
        const QWORD hash = MOXDEV_MGR::get_opn_hash(name);
        // Parts above Generic are never reached from a hash.
        ASSERT_EQ(MOXDEV_MGR::get_opn_from_hash(hash), part < DEV_PART_GENERIC ? name : "") << name;
        if (part % 997 == 0) {
            EXPECT_EQ(opn_enum, moxdev_oracle::opn_enum_of(part));
            EXPECT_EQ(moxdev_oracle::opn_from_hash(hash), MOXDEV_MGR::get_opn_from_hash(hash));
            EXPECT_EQ(MOXDEV_MGR::get_opn_from_hash(hash | 0xABCD000000000000ull), MOXDEV_MGR::get_opn_from_hash(hash))
                << "bits 48 to 63 are ignored";
        }
    }
    EXPECT_EQ(MOXDEV_MGR::get_opn_from_hash(0x123456789ABCull), moxdev_oracle::opn_from_hash(0x123456789ABCull));
}

TEST(PartResolution, PossibleFullNameAgreesWithThePerPartSearch)
{
    std::size_t checked = 0;
    for (DWORD t : {DWORD(MOXDEV_DDB_GRAMMAR_ENUM::SPEEDGRADE), DWORD(MOXDEV_DDB_GRAMMAR_ENUM::PACKAGE)}) {
        for (const auto& [key, contents] : moxdev_oracle::tables()[t]) {
            const std::string expected = moxdev_oracle::possible_full_name(key);
            std::string lower = key;
            stl_tolower(lower);
            if (expected.empty()) {
                // Names of the parts above Generic, which the search never visits.
                EXPECT_THROW(MOXDEV_MGR::get_possible_full_name(lower), MSG_INTERNAL_ERROR) << key;
                continue;
            }
            ASSERT_EQ(MOXDEV_MGR::get_possible_full_name(lower), expected) << key;
            ++checked;
        }
    }
    for (int part = 1; part < DEV_PART_GENERIC; ++part) {
        const std::string name = dstr_get_user_string(part);
        ASSERT_EQ(MOXDEV_MGR::get_possible_full_name(name), moxdev_oracle::possible_full_name(name));
    }
    EXPECT_GT(checked, 4000u);
    // A four-character name that is no full name ends the search, whatever the
    // grammar knows about it.
    EXPECT_INTERNAL_ERROR(MOXDEV_MGR::get_possible_full_name("wrax"),
                          "Unable to retrieve full device name from database for WRAX");
    EXPECT_INTERNAL_ERROR(MOXDEV_MGR::get_possible_full_name("NOSUCHNAME"),
                          "Unable to retrieve full device name from database for NOSUCHNAME");
}

TEST(PartResolution, PartNamesFromDevicesAndProgrammerParts)
{
    const DEV_PART_MANAGER catalogue;
    for (int d = 1; d < DEV_DEVICE_GENERIC; d += 13) {
        const std::string part = MOXDEV_MGR::get_part_name_from_dev(dstr_get_user_string(DEV_DEVICE_ENUM(d)));
        ASSERT_FALSE(part.empty()) << d;
        EXPECT_EQ(catalogue.get_device_of(dstr_get_dev_part_enum_by_string(part.c_str())), d);
    }
    EXPECT_INTERNAL_ERROR(MOXDEV_MGR::get_part_name_from_dev("NOSUCH"), "Device is not valid in DEV database");

    const std::string part = MOXDEV_MGR::get_part_name_from_pcf("KXB100M");
    ASSERT_FALSE(part.empty());
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_part_pcf(part), "KXB100M");
    EXPECT_EQ(MOXDEV_MGR::get_part_name_from_pcf("kxb100m"), part);
    EXPECT_EQ(MOXDEV_MGR::get_part_name_from_pcf("NOSUCHM"), "");
}

TEST(TypeSupport, ValuesAndNames)
{
    std::string name = "untouched";
    EXPECT_FALSE(MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE_BLOCK, 0, &name));
    EXPECT_EQ(name, "untouched");
    EXPECT_TRUE(MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE_BLOCK, 75, &name));
    EXPECT_EQ(name, "TR_S4_AR");
    EXPECT_FALSE(MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE_BLOCK, 76, nullptr));
    EXPECT_TRUE(MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE_FLASH_SECTOR, 8, &name));
    EXPECT_EQ(name, "DONE_BITS");
    EXPECT_TRUE(MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE_HPS_SETTING, 20, &name));
    EXPECT_EQ(name, "HPS_DAP_SPLIT_MODE_USE_HPS_PINS");

    DWORD value = 99;
    EXPECT_TRUE(MOXDEV_MGR::mox_check_type_name_supported(MOX_ENUM_TYPE_OPTION_BIT, "aes_keys", &value));
    EXPECT_EQ(value, 21u);
    std::string first;
    MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE_OPTION_BIT, 1, &first);
    EXPECT_EQ(first, "RESERVED1");
    std::string zero_name = "NONE";
    EXPECT_TRUE(MOXDEV_MGR::mox_check_type_name_supported(MOX_ENUM_TYPE_OPTION_BIT, zero_name, &value));
    EXPECT_EQ(value, 0u) << "the name search starts at index 0";
    EXPECT_FALSE(MOXDEV_MGR::mox_check_type_name_supported(MOX_ENUM_TYPE_OPTION_BIT, "NOSUCH", nullptr));
    EXPECT_INTERNAL_ERROR(MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE(4), 1, nullptr),
                          "mox_enum_type < MOX_ENUM_TYPE_MAX");
    EXPECT_INTERNAL_ERROR(MOXDEV_MGR::mox_check_type_name_supported(MOX_ENUM_TYPE_MAX, "X", nullptr),
                          "mox_enum_type < MOX_ENUM_TYPE_MAX");
}

// Every ordering name of the catalogue translates into every other form.
TEST(PartResolution, EveryOrderingNameHasEveryForm)
{
    for (int part = 1; part < DEV_PART_MAX; ++part) {
        if (part == DEV_PART_GENERIC)
            continue;
        const std::string name = dstr_get_user_string(part);
        std::string mox_part, mox_family, dev_part, dev_family;
        MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_pcfs(name, mox_part, mox_family);
        const std::string configuration = MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_device(mox_part);
        MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_pcfs(configuration, dev_part, dev_family);
        const std::string forms[] = {MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(name, true),
                                     MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(name, false, true),
                                     MOXDEV_DEVICE_GRAMMAR_MGR::get_family(name), mox_part, mox_family,
                                     configuration, dev_part, dev_family};
        for (const std::string& form : forms)
            ASSERT_FALSE(form.empty()) << name;
        ASSERT_EQ(dev_part, mox_part) << name;
        ASSERT_NE(MOXDEV_MGR::get_opn_enum(name), 0xFFFFFFFFu) << name;
    }
}
