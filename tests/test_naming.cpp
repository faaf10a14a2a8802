// The naming queries, ordering part numbers, part resolution and the type
// checks; the indexed answers against the literal linear algorithms
// (naming_oracles.cpp) for every name the compiled-in image holds.
#include "naming_oracles.h"
#include "test_support.h"

#include <functional>
#include <set>

using namespace moxdev_test;
using GRAMMAR = MOXDEV_DDB_GRAMMAR_ENUM;
using GRAMMAR_MGR = MOXDEV_DEVICE_GRAMMAR_MGR;

TEST(NamingQueries, NormaliseInPlaceAndTranslate)
{
    std::string name = "  kxb100f484c6 ";
    EXPECT_EQ(GRAMMAR_MGR::get_package_name(name, true), "KXB100F484");
    EXPECT_EQ(name, "KXB100F484C6") << "the caller's string comes back trimmed and upper-cased";
    std::string unknown = " nosuch ";
    EXPECT_EQ(GRAMMAR_MGR::get_package_name(unknown, false), "NOSUCH");

    const std::pair<std::string, std::string> answers[] = {
        {GRAMMAR_MGR::get_package_name(unknown, true), ""},
        {GRAMMAR_MGR::get_mox_name(name, false, true), "KXB100"},
        {GRAMMAR_MGR::get_mox_name(name, true, true), ""},
        {GRAMMAR_MGR::get_mox_name(name, true, false), "KXB100F484C6"},
        {GRAMMAR_MGR::get_mox_name("KXB100F484", false, true), "KXB100"},
        {GRAMMAR_MGR::get_mox_part_pcf("KXB120"), "KXB100M"},
        {GRAMMAR_MGR::get_mox_family_pcf("KXB120"), "KX_FAMILY"},
        {GRAMMAR_MGR::get_pcf_device("kxb100m"), "KXB100_V1"},
        {GRAMMAR_MGR::get_pcf_device("KXB100"), ""},
        // A device that FAMILY does not list is found through its programmer part.
        {moxdev_oracle::reverse_lookup(GRAMMAR::FAMILY, "KXB120"), ""},
        {GRAMMAR_MGR::get_family("KXB120"), "KXFAMILY2"},
        {GRAMMAR_MGR::get_family("KXB120_V2"), "KXFAMILY2"},
    };
    for (std::size_t i = 0; i < std::size(answers); ++i)
        EXPECT_EQ(answers[i].first, answers[i].second) << "answer " << i;

    std::string part_pcf = "x", family_pcf = "x";
    GRAMMAR_MGR::get_mox_pcfs("kxb120f484c6", part_pcf, family_pcf);
    EXPECT_EQ(part_pcf + " " + family_pcf, "KXB100M KX_FAMILY");
    GRAMMAR_MGR::get_dev_pcfs("nosuch", part_pcf, family_pcf);
    EXPECT_EQ(part_pcf + family_pcf, "");
    EXPECT_TRUE(GRAMMAR_MGR::use_package_name(""));
    EXPECT_FALSE(GRAMMAR_MGR::use_full_name(""));
    EXPECT_FALSE(GRAMMAR_MGR::use_package_name("nosuch"));
    EXPECT_FALSE(GRAMMAR_MGR::use_full_name("KXB100F484C6"));

    SCOPED_ENV debug("MOXDEV_ENABLE_GRAMMAR_DEBUG", "on");
    testing::internal::CaptureStdout();
    GRAMMAR_MGR::get_mox_name("kxb100f484c6", false, false);
    GRAMMAR_MGR::get_package_name("KXB100F484C6", false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Map Flow   : Strip Package (skip package conversion: 0)\n"
              "    Input0 : KXB100F484C6\n    Input1 : KXB100F484\n    Output : KXB100\n"
              "Map Flow   : Strip Speedgrade\n    Input  : KXB100F484C6\n    Output : KXB100F484\n");
}

// Every name of every table, looked up through the index and through the
// linear scan: the same key, including the smallest-key rule.
TEST(NamingQueries, ReverseLookupOfEveryNameAgreesWithTheLinearScan)
{
    std::size_t names = 0;
    for (DWORD t = 0; t < 8; ++t) {
        const GRAMMAR type = GRAMMAR(t);
        std::set<std::string> listed;
        for (const auto& entry : moxdev_oracle::tables()[t])
            listed.insert(entry.second.begin(), entry.second.end());
        for (const std::string& name : listed) {
            std::string got;
            switch (type) {
            case GRAMMAR::SPEEDGRADE: got = GRAMMAR_MGR::get_package_name(name, true); break;
            case GRAMMAR::PACKAGE: got = GRAMMAR_MGR::get_mox_name(name, true, true); break;
            case GRAMMAR::MOX_PART: got = GRAMMAR_MGR::get_mox_part_pcf(name); break;
            case GRAMMAR::MOX_FAMILY: got = GRAMMAR_MGR::get_mox_family_pcf(name); break;
            case GRAMMAR::DEV_PART: got = GRAMMAR_MGR::get_dev_part_pcf(name); break;
            case GRAMMAR::DEV_FAMILY: got = GRAMMAR_MGR::get_dev_family_pcf(name); break;
            case GRAMMAR::PCF_FAMILY: got = GRAMMAR_MGR::get_pcf_family_pcf(name); break;
            default: got = GRAMMAR_MGR::get_family(name); break;
            }
            ASSERT_EQ(got, moxdev_oracle::reverse_lookup(type, name)) << "table " << t << " name " << name;
            ++names;
        }
    }
    EXPECT_GT(names, 40000u);
}

// Every ordering name: its enum and hash lead back to it, and it translates
// into every other name form.
TEST(OrderingPartNumbers, EveryPartRoundTripsAndHasEveryForm)
{
    EXPECT_EQ(MOXDEV_MGR::get_opn(0xFFFFFFFFu), "");
    EXPECT_EQ(MOXDEV_MGR::get_opn_enum("NOSUCH"), 0xFFFFFFFFu);
    EXPECT_EQ(MOXDEV_MGR::get_opn_enum("Generic"), 0xFFFFFFFFu);
    EXPECT_EQ(MOXDEV_MGR::get_opn_hash("NOSUCH"), 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(MOXDEV_MGR::get_opn_hash("kxb100f484c6"), MOXDEV_MGR::get_opn_hash("KXB100F484C6"));
    EXPECT_EQ(MOXDEV_MGR::get_opn_hash("KXB100F484C6") >> 48, 0u);
    EXPECT_EQ(MOXDEV_MGR::get_opn_from_hash(0x123456789ABCull), moxdev_oracle::opn_from_hash(0x123456789ABCull));

    DWORD parts = 0;
    for (int part = 1; part < DEV_PART_MAX; ++part) {
        if (part == DEV_PART_GENERIC)
            continue;
        ++parts;
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

        std::string mox_part, mox_family, dev_part, dev_family;
        GRAMMAR_MGR::get_mox_pcfs(name, mox_part, mox_family);
        const std::string configuration = GRAMMAR_MGR::get_pcf_device(mox_part);
        GRAMMAR_MGR::get_dev_pcfs(configuration, dev_part, dev_family);
        for (const std::string& form :
             {GRAMMAR_MGR::get_package_name(name, true), GRAMMAR_MGR::get_mox_name(name, false, true),
              GRAMMAR_MGR::get_family(name), mox_part, mox_family, configuration, dev_family})
            ASSERT_FALSE(form.empty()) << name;
        ASSERT_EQ(dev_part, mox_part) << name;
    }
    EXPECT_EQ(MOXDEV_MGR::get_opn(parts), "") << "one past the last enum";
}

TEST(PartResolution, PossibleFullNameAgreesWithThePerPartSearch)
{
    std::size_t checked = 0;
    for (DWORD t : {DWORD(GRAMMAR::SPEEDGRADE), DWORD(GRAMMAR::PACKAGE)}) {
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
}

TEST(PartResolution, PartNamesFromDevicesAndProgrammerParts)
{
    const DEV_PART_MANAGER catalogue;
    for (int d = 1; d < DEV_DEVICE_GENERIC; d += 13) {
        const std::string part = MOXDEV_MGR::get_part_name_from_dev(dstr_get_user_string(DEV_DEVICE_ENUM(d)));
        EXPECT_EQ(catalogue.get_device_of(dstr_get_dev_part_enum_by_string(part.c_str())), d) << part;
    }
    const std::string part = MOXDEV_MGR::get_part_name_from_pcf("KXB100M");
    EXPECT_EQ(GRAMMAR_MGR::get_mox_part_pcf(part), "KXB100M");
    EXPECT_EQ(MOXDEV_MGR::get_part_name_from_pcf("kxb100m"), part);
    EXPECT_EQ(MOXDEV_MGR::get_part_name_from_pcf("NOSUCHM"), "");
}

// Type values and names translate both ways; a name is found in any case,
// from index 0 on.
TEST(TypeSupport, ValuesAndNamesTranslateBothWays)
{
    std::string name = "untouched";
    EXPECT_FALSE(MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE_BLOCK, 0, &name));
    EXPECT_FALSE(MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE_BLOCK, 76, nullptr));
    EXPECT_FALSE(MOXDEV_MGR::mox_check_type_name_supported(MOX_ENUM_TYPE_OPTION_BIT, "NOSUCH", nullptr));
    EXPECT_EQ(name, "untouched");
    const std::tuple<MOX_ENUM_TYPE, DWORD, std::string> named[] = {
        {MOX_ENUM_TYPE_BLOCK, 75, "TR_S4_AR"},
        {MOX_ENUM_TYPE_FLASH_SECTOR, 8, "DONE_BITS"},
        {MOX_ENUM_TYPE_HPS_SETTING, 20, "HPS_DAP_SPLIT_MODE_USE_HPS_PINS"},
        {MOX_ENUM_TYPE_OPTION_BIT, 1, "RESERVED1"},
        {MOX_ENUM_TYPE_OPTION_BIT, 21, "AES_KEYS"},
        {MOX_ENUM_TYPE_OPTION_BIT, 0, "NONE"}};
    for (const auto& [type, value, text] : named) {
        DWORD found = 99;
        std::string lower = text;
        stl_tolower(lower);
        EXPECT_TRUE(value == 0 || (MOXDEV_MGR::mox_check_type_enum_supported(type, value, &name) && name == text));
        EXPECT_TRUE(MOXDEV_MGR::mox_check_type_name_supported(type, lower, &found)) << text;
        EXPECT_EQ(found, value) << text;
    }
}

// Names the library cannot resolve and types it does not have are the
// caller's broken precondition: internal errors with their condition.
TEST(NamingQueries, UnresolvableNamesAreInternalErrors)
{
    const std::pair<std::function<void()>, std::string> misuses[] = {
        // A four-character name that is no full name ends the search, whatever
        // the grammar knows about it.
        {[] { MOXDEV_MGR::get_possible_full_name("wrax"); },
         "Unable to retrieve full device name from database for WRAX"},
        {[] { MOXDEV_MGR::get_possible_full_name("NOSUCHNAME"); },
         "Unable to retrieve full device name from database for NOSUCHNAME"},
        {[] { MOXDEV_MGR::get_part_name_from_dev("NOSUCH"); }, "Device is not valid in DEV database"},
        {[] { MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE(4), 1, nullptr); },
         "mox_enum_type < MOX_ENUM_TYPE_MAX"},
        {[] { MOXDEV_MGR::mox_check_type_name_supported(MOX_ENUM_TYPE_MAX, "X", nullptr); },
         "mox_enum_type < MOX_ENUM_TYPE_MAX"},
    };
    for (const auto& [call, condition] : misuses)
        EXPECT_INTERNAL_ERROR(call(), condition);
}
