// The stand-alone device catalogue, its name forms, and the agreement between
// the catalogue description, the part list and the device table.
#include "host/dev_catalogue_naming.h"
#include "test_support.h"

#include <map>
#include <set>
#include <sstream>

using namespace moxdev_test;

namespace {

std::string lower(std::string text)
{
    stl_tolower(text);
    return text;
}

std::vector<int> real_parts()
{
    std::vector<int> parts;
    for (int p = DEV_PART_INVALID + 1; p < DEV_PART_MAX; ++p)
        parts.insert(parts.end(), p != DEV_PART_GENERIC, p);
    return parts;
}

std::vector<int> filter(const std::string& family, const std::string& package = "ANY", bool production_only = false,
                        bool current_only = false, bool listed_only = false, const std::string& option = "ANY")
{
    std::vector<int> parts{-1};
    EXPECT_TRUE(DEV_PART_MANAGER().filter_part_list(parts, family, package, "ANY", "any", "Any", production_only,
                                                    current_only, listed_only, option))
        << family;
    return parts;
}

// Non-comment lines of a data file, split as the library's readers split them.
std::vector<std::vector<std::string>> rows_of(const std::string& path)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream in(read_text(path));
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.compare(0, 2, "//") != 0)
            rows.push_back(STRING_TOKENIZER(line, " \t\n,").tokens());
    }
    return rows;
}

} // namespace

TEST(Catalogue, EveryNameRoundTripsInAnyCase)
{
    std::set<std::string> names;
    for (int p : real_parts()) {
        const std::string name = dstr_get_user_string(p);
        ASSERT_TRUE(names.insert(name).second) << "duplicate part name " << name;
        EXPECT_EQ(dstr_get_part_identifier(p), name);
        EXPECT_EQ(dstr_get_dev_part_enum_by_string(lower(name).c_str()), p);
    }
    for (int d = 1; d < DEV_DEVICE_GENERIC; ++d) {
        const std::string name = dstr_get_user_string(DEV_DEVICE_ENUM(d));
        ASSERT_TRUE(names.insert(name).second) << "device name is also a part name: " << name;
        EXPECT_EQ(dstr_get_dev_device_enum_by_string(lower(name).c_str()), d);
    }
    for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
        const DEV_FAMILY_ENUM family = DEV_FAMILY_ENUM(f);
        EXPECT_EQ(dstr_get_dev_family_enum_by_string(lower(dstr_get_identifier(family)).c_str()), family);
        EXPECT_EQ(dstr_get_dev_family_enum_by_string(dstr_get_user_string(family).c_str()), family);
    }
    EXPECT_EQ(dstr_get_dev_family_enum_by_string("kestrel ii"), dstr_get_dev_family_enum_by_string("KESTREL_II"));
    EXPECT_EQ(dstr_get_dev_part_enum_by_string("generic"), DEV_PART_GENERIC);
    EXPECT_EQ(dstr_get_identifier(DEV_FAMILY_INVALID) + dstr_get_identifier(DEV_DEVICE_GENERIC), "INVALIDGENERIC");
    // Unknown names and values.
    EXPECT_EQ(dstr_get_dev_part_enum_by_string(nullptr) + dstr_get_dev_part_enum_by_string("KXB100"), DEV_PART_INVALID);
    EXPECT_EQ(dstr_get_dev_device_enum_by_string("NOSUCHDEVICE"), DEV_DEVICE_INVALID);
    EXPECT_EQ(dstr_get_dev_family_enum_by_string("ANY"), DEV_FAMILY_INVALID);
    EXPECT_EQ(dstr_get_user_string(DEV_PART_MAX) + dstr_get_user_string(DEV_DEVICE_ENUM(-1)), "");
    EXPECT_EQ(DEV_PART_MANAGER().get_device_of(DEV_PART_MAX), DEV_DEVICE_INVALID);
    EXPECT_EQ(DEV_PART_MANAGER().get_family_of(DEV_DEVICE_INVALID), DEV_FAMILY_INVALID);
    EXPECT_FALSE(dstr_is_valid_dev_family_enum(DEV_FAMILY_INVALID) || dstr_is_valid_dev_part_enum(DEV_PART_MAX));
}

TEST(Catalogue, FiltersSelectExactlyThePartsTheirAttributesName)
{
    const std::vector<int> all = real_parts();
    EXPECT_EQ(filter("ANY"), all);
    EXPECT_EQ(filter("any", "any"), all);

    // Families partition the catalogue; a family answers to both its names.
    std::size_t total = 0;
    for (int f = 1; f < DEV_FAMILY_GENERIC; ++f)
        total += filter(dstr_get_identifier(DEV_FAMILY_ENUM(f))).size();
    EXPECT_EQ(total, all.size());
    const std::vector<int> kestrel = filter("KESTREL_II");
    ASSERT_FALSE(kestrel.empty());
    EXPECT_EQ(filter("kestrel ii"), kestrel);

    // Attribute and flag filters select exactly the parts whose attributes say so.
    auto select = [&](bool (*wanted)(int, const DEV_PART_ATTRIBUTES&)) {
        std::vector<int> parts;
        for (int p : all) {
            DEV_PART_ATTRIBUTES a;
            if (dcat_get_part_attributes(p, a) && wanted(p, a))
                parts.push_back(p);
        }
        EXPECT_FALSE(parts.empty());
        return parts;
    };
    using A = const DEV_PART_ATTRIBUTES&;
    const std::vector<int> production = filter("ANY", "ANY", true), current = filter("ANY", "ANY", false, true);
    EXPECT_EQ(production, select([](int, A a) { return !a.engineering_sample; }));
    EXPECT_EQ(current, select([](int, A a) { return !a.obsolete; }));
    EXPECT_LT(production.size(), all.size());
    EXPECT_LT(current.size(), all.size());
    EXPECT_EQ(filter("ANY", "f484"), select([](int, A a) { return a.package == "F484"; }));
    EXPECT_EQ(filter("ANY", "ANY", false, false, true), select([](int p, A) { return p < DEV_PART_GENERIC; }));
    EXPECT_EQ(filter("ANY", "ANY", false, false, false, "n"), select([](int, A a) { return a.option == "N"; }));

    std::vector<int> parts{1};
    EXPECT_FALSE(DEV_PART_MANAGER().filter_part_list(parts, "NO_SUCH_FAMILY", "ANY", "ANY", "ANY", "ANY", false, false,
                                                     false, "ANY"));
    EXPECT_TRUE(parts.empty());
}

TEST(Catalogue, NameFormsAreBuiltFromThePartsAttributes)
{
    const DEV_PART_MANAGER manager;
    for (int p : real_parts()) {
        DEV_PART_ATTRIBUTES a;
        ASSERT_TRUE(dcat_get_part_attributes(p, a));
        const std::string package_name = dcat_get_part_package_name(p);
        EXPECT_EQ(package_name, dstr_get_user_string(manager.get_device_of(p)) + a.package);
        EXPECT_EQ(dstr_get_user_string(p), package_name + a.temperature + std::to_string(a.speed_grade) + a.option);
        EXPECT_EQ(a.package.substr(1), std::to_string(a.pin_count));
    }
    std::set<std::string> keys;
    for (int f = 1; f < DEV_FAMILY_GENERIC; ++f)
        keys.insert(dcat_get_programmer_family_key(DEV_FAMILY_ENUM(f)));
    EXPECT_EQ(keys.size(), 9u);

    const DEV_FAMILY_ENUM kestrel2 = dstr_get_dev_family_enum_by_string("KESTREL_II");
    EXPECT_EQ(dstr_get_user_string(kestrel2), "Kestrel II");
    EXPECT_EQ(dcat_get_programmer_family_key(kestrel2), "KX_FAMILY");
    EXPECT_EQ(dcat_get_user_family_name(kestrel2), "KXFAMILY2");
    EXPECT_EQ(dcat_get_family_pcf(kestrel2), "kestrel2");
    const DEV_DEVICE_ENUM kxb120 = dstr_get_dev_device_enum_by_string("KXB120");
    EXPECT_EQ(dcat_get_programmer_part_name(kxb120), "KXB100M") << "KXB120 shares the KXB100 die";
    EXPECT_EQ(dcat_get_part_config_names(kxb120), (std::vector<std::string>{"KXB120_V1", "KXB120_V2"}));

    DEV_PART_ATTRIBUTES untouched;
    EXPECT_FALSE(dcat_get_part_attributes(DEV_PART_GENERIC, untouched));
    EXPECT_EQ(dcat_get_programmer_part_name(DEV_DEVICE_GENERIC), "");
    EXPECT_EQ(dcat_get_family_pcf(DEV_FAMILY_MAX), "");
}

// Every family has a record of its own (so generation sends no notice), and
// every programming-file name of the part list is a record of the device's
// own family.
TEST(CatalogueFiles, PartListAndDeviceTableAgree)
{
    const auto table = rows_of(source_path("data/mox_dev_info.csv"));
    ASSERT_EQ(table.size(), 2u + TOTAL_DATABASE_DEVICE);
    std::map<std::string, std::string> family_of_pcf;
    std::set<std::string> families;
    for (std::size_t r = 2; r < table.size(); ++r) {
        family_of_pcf[lower(table[r][1])] = table[r][0];
        families.insert(table[r][0]);
    }
    EXPECT_EQ(families.size(), std::size_t(DEV_FAMILY_GENERIC));

    const DEV_PART_MANAGER manager;
    const auto parts = rows_of(source_path("data/h/mox_parts.txt"));
    ASSERT_EQ(parts.size(), real_parts().size());
    std::set<std::string> special;
    for (const auto& row : parts) {
        ASSERT_EQ(row.size(), 7u);
        const int part = dstr_get_dev_part_enum_by_string(row[0].c_str());
        const DEV_DEVICE_ENUM device = manager.get_device_of(part);
        ASSERT_EQ(row[1], dstr_get_user_string(device)) << row[0];
        const auto pcf = family_of_pcf.find(lower(row[6]));
        ASSERT_NE(pcf, family_of_pcf.end()) << row[0] << " names no record: " << row[6];
        EXPECT_EQ(pcf->second, dstr_get_identifier(manager.get_family_of(device))) << row[0];
        if (row[6] != dcat_get_family_pcf(manager.get_family_of(device)))
            special.insert(row[6]);
    }
    EXPECT_EQ(special.size(), 4u);
}

// The committed part list is what the generator makes of the committed
// catalogue description: a change to one without the other fails here.
TEST(CatalogueFiles, PartListIsInSyncWithTheDescription)
{
    TEMP_DIR dir;
    std::string output;
    const std::string catalogue = source_path("data/catalogue.txt");
    ASSERT_EQ(run_command(std::string(MOXDEV_GEN_CATALOGUE) + " " + catalogue + " " + dir.path() + " --part-list " +
                              dir.file("parts.txt"),
                          output, true),
              0)
        << output;
    EXPECT_TRUE(read_bytes(dir.file("parts.txt")) == read_bytes(source_path("data/h/mox_parts.txt")))
        << "run `cmake --build build --target update_part_list` after changing data/catalogue.txt";
}
