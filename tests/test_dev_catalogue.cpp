// Tests of the stand-alone device catalogue, its name forms, the part list
// data/h/mox_parts.txt and the device information table data/mox_dev_info.csv.

#include "host/dev_catalogue.h"
#include "host/dev_catalogue_naming.h"
#include "moxdev/moxdev_dev_info_manager_auto_export.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#ifndef MOXDEV_SOURCE_DIR
#error "MOXDEV_SOURCE_DIR must name the source tree"
#endif

namespace {

const std::string SOURCE_DIR = MOXDEV_SOURCE_DIR;

std::string lower(std::string s) {
    for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string upper(std::string s) {
    for (char& c : s) c = char(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// Splits like the readers of both files: at blank, tab, newline and comma,
// dropping empty tokens.
std::vector<std::string> tokens(const std::string& line) {
    std::vector<std::string> out;
    std::string current;
    for (char c : line) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ',') {
            if (!current.empty()) out.push_back(current);
            current.clear();
        } else {
            current += c;
        }
    }
    if (!current.empty()) out.push_back(current);
    return out;
}

std::string trim(const std::string& s) {
    const char* blanks = " \t\r\n";
    const std::size_t first = s.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

// Lines of a file with their tokens, skipping empty lines and, when asked,
// "//" comment lines.
std::vector<std::vector<std::string>> read_rows(const std::string& path, bool skip_comments) {
    std::ifstream in(path);
    EXPECT_TRUE(in.good()) << "cannot open " << path;
    std::vector<std::vector<std::string>> rows;
    std::string line;
    while (std::getline(in, line)) {
        line = trim(line);
        if (line.empty() || (skip_comments && line.rfind("//", 0) == 0)) continue;
        rows.push_back(tokens(line));
    }
    return rows;
}

std::vector<int> filter(const std::string& family, const std::string& package = "ANY",
                        const std::string& pins = "ANY", const std::string& speed = "ANY",
                        const std::string& temperature = "ANY", bool production_only = false,
                        bool current_only = false, bool listed_only = false, const std::string& option = "ANY") {
    DEV_PART_MANAGER manager;
    std::vector<int> parts{-1};
    EXPECT_TRUE(manager.filter_part_list(parts, family, package, pins, speed, temperature, production_only,
                                         current_only, listed_only, option))
        << family;
    return parts;
}

std::vector<int> all_real_parts() {
    std::vector<int> parts;
    for (int p = DEV_PART_INVALID + 1; p < DEV_PART_MAX; ++p) {
        if (p != DEV_PART_GENERIC) parts.push_back(p);
    }
    return parts;
}

DEV_PART_ATTRIBUTES attributes_of(int part) {
    DEV_PART_ATTRIBUTES a;
    EXPECT_TRUE(dcat_get_part_attributes(part, a)) << part;
    return a;
}

DEV_FAMILY_ENUM family_of_part(int part) {
    const DEV_PART_MANAGER manager;
    return manager.get_family_of(manager.get_device_of(part));
}

// ---------------------------------------------------------------- bounds

TEST(CatalogueBounds, EnumerationsAndPartNumbers) {
    EXPECT_EQ(DEV_FAMILY_INVALID, 0);
    EXPECT_EQ(DEV_FAMILY_GENERIC, 73);
    EXPECT_EQ(DEV_FAMILY_MAX, 74);
    EXPECT_EQ(DEV_DEVICE_INVALID, 0);
    EXPECT_EQ(DEV_DEVICE_GENERIC, 1047);
    EXPECT_EQ(DEV_DEVICE_MAX, 1048);
    EXPECT_EQ(DEV_PART_INVALID, 0);
    EXPECT_GT(DEV_PART_GENERIC, 18000);
    EXPECT_LT(DEV_PART_GENERIC + 1, DEV_PART_MAX) << "no part is numbered above the Generic part";
    EXPECT_LT(DEV_PART_MAX, 20000);
}

TEST(CatalogueBounds, EveryFamilyHasDevicesAndEveryDeviceHasParts) {
    const DEV_PART_MANAGER manager;
    std::vector<int> devices_per_family(DEV_FAMILY_MAX, 0);
    for (int d = 1; d < DEV_DEVICE_GENERIC; ++d) ++devices_per_family[manager.get_family_of(DEV_DEVICE_ENUM(d))];
    for (int f = 1; f < DEV_FAMILY_GENERIC; ++f) EXPECT_GT(devices_per_family[f], 0) << dstr_get_identifier(DEV_FAMILY_ENUM(f));
    EXPECT_EQ(devices_per_family[DEV_FAMILY_INVALID], 0);

    std::vector<int> parts_per_device(DEV_DEVICE_MAX, 0);
    for (int p : all_real_parts()) ++parts_per_device[manager.get_device_of(p)];
    for (int d = 1; d < DEV_DEVICE_GENERIC; ++d) EXPECT_GT(parts_per_device[d], 0) << dstr_get_user_string(DEV_DEVICE_ENUM(d));
    EXPECT_EQ(parts_per_device[DEV_DEVICE_INVALID], 0);
    EXPECT_EQ(parts_per_device[DEV_DEVICE_GENERIC], 0);
}

TEST(CatalogueBounds, Validity) {
    EXPECT_FALSE(dstr_is_valid_dev_family_enum(DEV_FAMILY_INVALID));
    EXPECT_TRUE(dstr_is_valid_dev_family_enum(DEV_FAMILY_ENUM(1)));
    EXPECT_TRUE(dstr_is_valid_dev_family_enum(DEV_FAMILY_GENERIC));
    EXPECT_FALSE(dstr_is_valid_dev_family_enum(DEV_FAMILY_MAX));
    EXPECT_FALSE(dstr_is_valid_dev_family_enum(DEV_FAMILY_ENUM(-1)));
    EXPECT_FALSE(dstr_is_valid_dev_device_enum(DEV_DEVICE_INVALID));
    EXPECT_TRUE(dstr_is_valid_dev_device_enum(DEV_DEVICE_ENUM(1)));
    EXPECT_TRUE(dstr_is_valid_dev_device_enum(DEV_DEVICE_GENERIC));
    EXPECT_FALSE(dstr_is_valid_dev_device_enum(DEV_DEVICE_MAX));
    EXPECT_FALSE(dstr_is_valid_dev_part_enum(DEV_PART_INVALID));
    EXPECT_TRUE(dstr_is_valid_dev_part_enum(1));
    EXPECT_TRUE(dstr_is_valid_dev_part_enum(DEV_PART_GENERIC));
    EXPECT_TRUE(dstr_is_valid_dev_part_enum(DEV_PART_GENERIC + 1)); // late parts are parts too
    EXPECT_FALSE(dstr_is_valid_dev_part_enum(DEV_PART_MAX));
    EXPECT_FALSE(dstr_is_valid_dev_part_enum(-1));
}

// ---------------------------------------------------------------- names and lookups

TEST(CatalogueLookup, EveryPartRoundTripsInAnyCase) {
    std::set<std::string> seen;
    for (int p : all_real_parts()) {
        const std::string name = dstr_get_user_string(p);
        ASSERT_GE(name.size(), 8u) << p;
        EXPECT_TRUE(seen.insert(name).second) << "duplicate part name " << name;
        EXPECT_EQ(dstr_get_part_identifier(p), name);
        EXPECT_EQ(dstr_get_dev_part_enum_by_string(name.c_str()), p);
        EXPECT_EQ(dstr_get_dev_part_enum_by_string(lower(name).c_str()), p);
    }
    EXPECT_EQ(dstr_get_dev_part_enum_by_string("generic"), DEV_PART_GENERIC);
    EXPECT_EQ(dstr_get_part_identifier(DEV_PART_GENERIC), "GENERIC");
    EXPECT_EQ(dstr_get_part_identifier(DEV_PART_INVALID), "INVALID");
}

TEST(CatalogueLookup, EveryDeviceRoundTripsInAnyCase) {
    for (int d = 1; d < DEV_DEVICE_GENERIC; ++d) {
        const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(d);
        const std::string name = dstr_get_user_string(device);
        ASSERT_GE(name.size(), 5u) << d;
        EXPECT_EQ(name, upper(name));
        EXPECT_EQ(dstr_get_identifier(device), name);
        EXPECT_EQ(dstr_get_dev_device_enum_by_string(name.c_str()), device);
        EXPECT_EQ(dstr_get_dev_device_enum_by_string(lower(name).c_str()), device);
        EXPECT_EQ(dstr_get_dev_part_enum_by_string(name.c_str()), DEV_PART_INVALID) << "device name is a part name";
    }
    EXPECT_EQ(dstr_get_dev_device_enum_by_string("Generic"), DEV_DEVICE_GENERIC);
    EXPECT_EQ(dstr_get_identifier(DEV_DEVICE_GENERIC), "GENERIC");
    EXPECT_EQ(dstr_get_identifier(DEV_DEVICE_INVALID), "INVALID");
}

TEST(CatalogueLookup, FamiliesAnswerToIdentifierAndDisplayName) {
    for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
        const DEV_FAMILY_ENUM family = DEV_FAMILY_ENUM(f);
        const std::string identifier = dstr_get_identifier(family);
        const std::string display = dstr_get_user_string(family);
        EXPECT_EQ(identifier, upper(identifier));
        EXPECT_EQ(identifier.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_"), std::string::npos) << identifier;
        EXPECT_EQ(dstr_get_dev_family_enum_by_string(identifier.c_str()), family);
        EXPECT_EQ(dstr_get_dev_family_enum_by_string(lower(identifier).c_str()), family);
        EXPECT_EQ(dstr_get_dev_family_enum_by_string(display.c_str()), family);
        EXPECT_EQ(dstr_get_dev_family_enum_by_string(upper(display).c_str()), family);
    }
    EXPECT_EQ(dstr_get_identifier(DEV_FAMILY_GENERIC), "GENERIC");
    EXPECT_EQ(dstr_get_identifier(DEV_FAMILY_INVALID), "INVALID");
    EXPECT_EQ(dstr_get_dev_family_enum_by_string("Kestrel II"), dstr_get_dev_family_enum_by_string("kestrel_ii"));
    EXPECT_NE(dstr_get_dev_family_enum_by_string("KESTREL_II"), DEV_FAMILY_INVALID);
}

TEST(CatalogueLookup, UnknownNamesAndValuesOutOfRange) {
    EXPECT_EQ(dstr_get_dev_part_enum_by_string(nullptr), DEV_PART_INVALID);
    EXPECT_EQ(dstr_get_dev_part_enum_by_string(""), DEV_PART_INVALID);
    EXPECT_EQ(dstr_get_dev_part_enum_by_string("KXB100"), DEV_PART_INVALID);
    EXPECT_EQ(dstr_get_dev_device_enum_by_string(nullptr), DEV_DEVICE_INVALID);
    EXPECT_EQ(dstr_get_dev_device_enum_by_string("NOSUCHDEVICE"), DEV_DEVICE_INVALID);
    EXPECT_EQ(dstr_get_dev_family_enum_by_string(nullptr), DEV_FAMILY_INVALID);
    EXPECT_EQ(dstr_get_dev_family_enum_by_string("ANY"), DEV_FAMILY_INVALID);

    EXPECT_EQ(dstr_get_user_string(-1), "");
    EXPECT_EQ(dstr_get_user_string(DEV_PART_MAX), "");
    EXPECT_EQ(dstr_get_user_string(DEV_DEVICE_MAX), "");
    EXPECT_EQ(dstr_get_user_string(DEV_DEVICE_ENUM(-1)), "");
    EXPECT_EQ(dstr_get_user_string(DEV_FAMILY_MAX), "");
    EXPECT_EQ(dstr_get_part_identifier(DEV_PART_MAX), "");
    EXPECT_EQ(dstr_get_identifier(DEV_DEVICE_MAX), "");
    EXPECT_EQ(dstr_get_identifier(DEV_FAMILY_MAX), "");
    EXPECT_EQ(dstr_get_user_string(DEV_FAMILY_GENERIC), "Generic");
    EXPECT_EQ(dstr_get_user_string(DEV_DEVICE_GENERIC), "Generic");
    EXPECT_EQ(dstr_get_user_string(DEV_PART_GENERIC), "Generic");
}

// ---------------------------------------------------------------- part manager

TEST(PartManager, RelationsAreValidForEveryValue) {
    const DEV_PART_MANAGER manager;
    for (int p = 1; p < DEV_PART_MAX; ++p) {
        const DEV_DEVICE_ENUM device = manager.get_device_of(p);
        ASSERT_TRUE(dstr_is_valid_dev_device_enum(device)) << p;
        EXPECT_EQ(device == DEV_DEVICE_GENERIC, p == DEV_PART_GENERIC) << p;
        // A part's name starts with its device's name.
        EXPECT_EQ(dstr_get_user_string(p).rfind(dstr_get_user_string(device), 0), 0u) << p;
    }
    for (int d = 1; d < DEV_DEVICE_MAX; ++d) {
        const DEV_FAMILY_ENUM family = manager.get_family_of(DEV_DEVICE_ENUM(d));
        ASSERT_TRUE(dstr_is_valid_dev_family_enum(family)) << d;
        EXPECT_EQ(family == DEV_FAMILY_GENERIC, d == DEV_DEVICE_GENERIC) << d;
    }
    EXPECT_EQ(manager.get_device_of(DEV_PART_INVALID), DEV_DEVICE_INVALID);
    EXPECT_EQ(manager.get_device_of(-1), DEV_DEVICE_INVALID);
    EXPECT_EQ(manager.get_device_of(DEV_PART_MAX), DEV_DEVICE_INVALID);
    EXPECT_EQ(manager.get_family_of(DEV_DEVICE_INVALID), DEV_FAMILY_INVALID);
    EXPECT_EQ(manager.get_family_of(DEV_DEVICE_MAX), DEV_FAMILY_INVALID);
}

TEST(PartManager, MatchAllFiltersListEveryPartInOrder) {
    const std::vector<int> expected = all_real_parts();
    EXPECT_EQ(filter("ANY"), expected);
    EXPECT_EQ(filter("any", "any", "Any", "aNy", "any", false, false, false, "any"), expected);

    std::vector<int> listed = filter("ANY", "ANY", "ANY", "ANY", "ANY", false, false, true);
    ASSERT_FALSE(listed.empty());
    EXPECT_EQ(listed.back(), DEV_PART_GENERIC - 1);
    EXPECT_EQ(listed.size(), std::size_t(DEV_PART_GENERIC - 1));
}

TEST(PartManager, FamilyFilter) {
    const DEV_FAMILY_ENUM family = dstr_get_dev_family_enum_by_string("KESTREL_II");
    std::vector<int> expected;
    for (int p : all_real_parts()) {
        if (family_of_part(p) == family) expected.push_back(p);
    }
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(filter("KESTREL_II"), expected);
    EXPECT_EQ(filter("kestrel ii"), expected);
    EXPECT_EQ(filter(dstr_get_user_string(family)), expected);

    // Every family's parts, taken together, are the whole catalogue.
    std::size_t total = 0;
    for (int f = 1; f < DEV_FAMILY_GENERIC; ++f) {
        const std::vector<int> parts = filter(dstr_get_identifier(DEV_FAMILY_ENUM(f)));
        EXPECT_FALSE(parts.empty()) << f;
        EXPECT_TRUE(std::is_sorted(parts.begin(), parts.end()));
        total += parts.size();
    }
    EXPECT_EQ(total, all_real_parts().size());
    EXPECT_TRUE(filter("Generic").empty());

    DEV_PART_MANAGER manager;
    std::vector<int> parts{1, 2, 3};
    EXPECT_FALSE(manager.filter_part_list(parts, "NO_SUCH_FAMILY", "ANY", "ANY", "ANY", "ANY", false, false, false, "ANY"));
    EXPECT_TRUE(parts.empty());
    parts = {1};
    EXPECT_FALSE(manager.filter_part_list(parts, "", "ANY", "ANY", "ANY", "ANY", false, false, false, "ANY"));
    EXPECT_TRUE(parts.empty());
}

TEST(PartManager, AttributeFiltersAgreeWithPartAttributes) {
    const std::string family = "HERON_IV";
    const std::vector<int> all = filter(family);
    ASSERT_FALSE(all.empty());
    const DEV_PART_ATTRIBUTES sample = attributes_of(all[all.size() / 2]);
    const std::string speed = std::to_string(sample.speed_grade);
    const std::string pins = std::to_string(sample.pin_count);
    const std::string temperature(1, sample.temperature);

    auto expect_selection = [&](const std::vector<int>& got, auto predicate, const char* what) {
        std::vector<int> expected;
        for (int p : all) {
            if (predicate(attributes_of(p))) expected.push_back(p);
        }
        EXPECT_FALSE(expected.empty()) << what;
        EXPECT_LT(expected.size(), all.size()) << what;
        EXPECT_EQ(got, expected) << what;
    };
    expect_selection(filter(family, lower(sample.package)),
                     [&](const DEV_PART_ATTRIBUTES& a) { return a.package == sample.package; }, "package");
    expect_selection(filter(family, "ANY", pins),
                     [&](const DEV_PART_ATTRIBUTES& a) { return a.pin_count == sample.pin_count; }, "pins");
    expect_selection(filter(family, "ANY", "ANY", speed),
                     [&](const DEV_PART_ATTRIBUTES& a) { return a.speed_grade == sample.speed_grade; }, "speed");
    expect_selection(filter(family, "ANY", "ANY", "ANY", lower(temperature)),
                     [&](const DEV_PART_ATTRIBUTES& a) { return a.temperature == sample.temperature; }, "temperature");
    expect_selection(filter(family, "ANY", "ANY", "ANY", "ANY", false, false, false, "n"),
                     [&](const DEV_PART_ATTRIBUTES& a) { return a.option == "N"; }, "option");

    // Parts without an option match only the match-all option filter.
    for (int p : filter("ANY", "ANY", "ANY", "ANY", "ANY", false, false, false, "")) {
        ADD_FAILURE() << "empty option filter matched " << dstr_get_user_string(p);
    }
    EXPECT_TRUE(filter(family, "NOPACKAGE").empty());
    EXPECT_TRUE(filter(family, "ANY", "0484").empty());
}

TEST(PartManager, ProductionCurrentAndListedFlags) {
    const std::vector<int> all = all_real_parts();
    std::vector<int> production;
    std::vector<int> current;
    bool any_sample = false;
    bool any_obsolete = false;
    for (int p : all) {
        const DEV_PART_ATTRIBUTES a = attributes_of(p);
        EXPECT_EQ(a.engineering_sample, a.option == "ES") << p;
        EXPECT_EQ(a.engineering_sample, dcat_get_family_status(family_of_part(p)) == DEV_FAMILY_STATUS::PREVIEW) << p;
        EXPECT_EQ(a.obsolete, dcat_get_family_status(family_of_part(p)) == DEV_FAMILY_STATUS::OBSOLETE) << p;
        any_sample = any_sample || a.engineering_sample;
        any_obsolete = any_obsolete || a.obsolete;
        if (!a.engineering_sample) production.push_back(p);
        if (!a.obsolete) current.push_back(p);
    }
    ASSERT_TRUE(any_sample);
    ASSERT_TRUE(any_obsolete);
    EXPECT_EQ(filter("ANY", "ANY", "ANY", "ANY", "ANY", true), production);
    EXPECT_EQ(filter("ANY", "ANY", "ANY", "ANY", "ANY", false, true), current);
    EXPECT_EQ(filter("ANY", "ANY", "ANY", "ANY", "ANY", false, false, false, "ES").size(), all.size() - production.size());

    // The passes that the name resolution runs: each later pass may only add parts.
    const std::vector<int> pass0 = filter("ANY", "ANY", "ANY", "ANY", "ANY", true, true, false, "any");
    const std::vector<int> pass3 = filter("ANY", "ANY", "ANY", "ANY", "ANY", false, false, false, "any");
    EXPECT_LT(pass0.size(), production.size());
    EXPECT_TRUE(std::includes(pass3.begin(), pass3.end(), pass0.begin(), pass0.end()));
}

// ---------------------------------------------------------------- name forms

TEST(CatalogueNaming, FamilyNameForms) {
    std::set<std::string> keys;
    std::set<std::string> user_names;
    std::set<std::string> config_names;
    std::set<std::string> pcfs;
    for (int f = 1; f < DEV_FAMILY_GENERIC; ++f) {
        const DEV_FAMILY_ENUM family = DEV_FAMILY_ENUM(f);
        const std::string key = dcat_get_programmer_family_key(family);
        EXPECT_FALSE(key.empty()) << f;
        keys.insert(key);
        EXPECT_TRUE(user_names.insert(dcat_get_user_family_name(family)).second) << f;
        const std::vector<std::string> configs = dcat_get_family_config_names(family);
        EXPECT_FALSE(configs.empty()) << f;
        for (const std::string& c : configs) EXPECT_TRUE(config_names.insert(c).second) << c;
        const std::string pcf = dcat_get_family_pcf(family);
        EXPECT_EQ(pcf, lower(pcf));
        EXPECT_TRUE(pcfs.insert(pcf).second) << pcf;
    }
    EXPECT_EQ(keys.size(), 9u);
    EXPECT_EQ(keys.count("NONE"), 1u);

    const DEV_FAMILY_ENUM kestrel2 = dstr_get_dev_family_enum_by_string("KESTREL_II");
    EXPECT_EQ(dstr_get_user_string(kestrel2), "Kestrel II");
    EXPECT_EQ(dcat_get_programmer_family_key(kestrel2), "KX_FAMILY");
    EXPECT_EQ(dcat_get_user_family_name(kestrel2), "KXFAMILY2");
    EXPECT_EQ(dcat_get_family_pcf(kestrel2), "kestrel2");
    EXPECT_EQ(dcat_get_family_config_names(kestrel2), std::vector<std::string>{"KESTREL2"});

    for (DEV_FAMILY_ENUM none : {DEV_FAMILY_INVALID, DEV_FAMILY_GENERIC, DEV_FAMILY_MAX}) {
        EXPECT_EQ(dcat_get_programmer_family_key(none), "");
        EXPECT_EQ(dcat_get_user_family_name(none), "");
        EXPECT_TRUE(dcat_get_family_config_names(none).empty());
        EXPECT_EQ(dcat_get_family_pcf(none), "");
    }
    EXPECT_EQ(dcat_get_maker_name(), "Velmar");
}

TEST(CatalogueNaming, DeviceNameForms) {
    const DEV_PART_MANAGER manager;
    std::map<std::string, DEV_FAMILY_ENUM> family_of_programmer_part;
    std::set<std::string> config_names;
    std::size_t shared = 0;
    for (int d = 1; d < DEV_DEVICE_GENERIC; ++d) {
        const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(d);
        const std::string programmer = dcat_get_programmer_part_name(device);
        ASSERT_GE(programmer.size(), 2u);
        EXPECT_EQ(programmer.back(), 'M');
        EXPECT_EQ(dstr_get_dev_device_enum_by_string(programmer.c_str()), DEV_DEVICE_INVALID) << programmer;
        // Devices share a programmer part name only within their family.
        const auto inserted = family_of_programmer_part.emplace(programmer, manager.get_family_of(device));
        if (!inserted.second) {
            ++shared;
            EXPECT_EQ(inserted.first->second, manager.get_family_of(device)) << programmer;
        }
        for (const std::string& c : dcat_get_part_config_names(device)) {
            EXPECT_EQ(c.rfind(dstr_get_user_string(device) + "_V", 0), 0u) << c;
            EXPECT_TRUE(config_names.insert(c).second) << c;
        }
        EXPECT_FALSE(dcat_get_device_pcf(device).empty());
    }
    EXPECT_GT(shared, 100u);

    const DEV_DEVICE_ENUM kxb120 = dstr_get_dev_device_enum_by_string("KXB120");
    EXPECT_EQ(dcat_get_programmer_part_name(kxb120), "KXB100M");
    EXPECT_EQ(dcat_get_part_config_names(kxb120), (std::vector<std::string>{"KXB120_V1", "KXB120_V2"}));
    EXPECT_EQ(dcat_get_device_pcf(kxb120), "kestrel2");
    EXPECT_EQ(dcat_get_programmer_part_name(DEV_DEVICE_GENERIC), "");
    EXPECT_TRUE(dcat_get_part_config_names(DEV_DEVICE_INVALID).empty());
    EXPECT_EQ(dcat_get_device_pcf(DEV_DEVICE_MAX), "");
}

TEST(CatalogueNaming, PartNameIsDevicePackageGradeOption) {
    const DEV_PART_MANAGER manager;
    std::set<std::string> package_names;
    for (int p : all_real_parts()) {
        const DEV_PART_ATTRIBUTES a = attributes_of(p);
        const std::string device = dstr_get_user_string(manager.get_device_of(p));
        const std::string package_name = dcat_get_part_package_name(p);
        EXPECT_EQ(package_name, device + a.package);
        EXPECT_EQ(dstr_get_user_string(p), package_name + a.temperature + std::to_string(a.speed_grade) + a.option);
        EXPECT_EQ(a.package.substr(1), std::to_string(a.pin_count));
        EXPECT_NE(std::string("CIAM").find(a.temperature), std::string::npos);
        package_names.insert(package_name);
    }
    EXPECT_GT(package_names.size(), 3000u);

    DEV_PART_ATTRIBUTES untouched;
    untouched.pin_count = 7;
    for (int p : {DEV_PART_INVALID, DEV_PART_GENERIC, DEV_PART_MAX, -1}) {
        EXPECT_FALSE(dcat_get_part_attributes(p, untouched));
        EXPECT_EQ(dcat_get_part_package_name(p), "");
    }
    EXPECT_EQ(untouched.pin_count, 7);
}

// ---------------------------------------------------------------- identifier tables

std::vector<std::pair<std::string, DWORD>> entries(const MOXDEV_NAME_TABLE& table) {
    std::vector<std::pair<std::string, DWORD>> out;
    for (std::size_t i = 0; i < table.count; ++i) out.emplace_back(table.entries[i].name, table.entries[i].value);
    return out;
}

TEST(IdentifierTables, MatchTheCatalogue) {
    const auto families = entries(MOXDEV_FAMILY_ID_TABLE);
    ASSERT_EQ(families.size(), std::size_t(DEV_FAMILY_MAX));
    for (int f = 0; f < DEV_FAMILY_MAX; ++f) {
        EXPECT_EQ(families[f].first, dstr_get_identifier(DEV_FAMILY_ENUM(f)));
        EXPECT_EQ(families[f].second, DWORD(f));
    }

    const auto devices = entries(MOXDEV_DEVICE_ID_TABLE);
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0], (std::pair<std::string, DWORD>("INVALID", DEV_DEVICE_INVALID)));
    EXPECT_EQ(devices[1].second, DWORD(dstr_get_dev_device_enum_by_string(devices[1].first.c_str())));
    EXPECT_NE(devices[1].second, DWORD(DEV_DEVICE_INVALID));

    const auto parts = entries(MOXDEV_PART_ID_TABLE);
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[0], (std::pair<std::string, DWORD>("INVALID", DWORD(DEV_PART_INVALID))));
    EXPECT_EQ(parts[1].second, DWORD(dstr_get_dev_part_enum_by_string(parts[1].first.c_str())));
    EXPECT_NE(parts[1].second, DWORD(DEV_PART_INVALID));

    const auto options = entries(MOXDEV_OPTION_ID_TABLE);
    ASSERT_EQ(options.size(), 13u);
    EXPECT_EQ(options[0], (std::pair<std::string, DWORD>("DEV_FAMILY_INVALID", DEV_FAMILY_INVALID)));
    std::set<DWORD> values;
    for (std::size_t i = 1; i < options.size(); ++i) {
        const DWORD value = options[i].second;
        ASSERT_TRUE(value > 0 && value < DWORD(DEV_FAMILY_GENERIC)) << options[i].first;
        EXPECT_EQ(options[i].first, "DEV_FAMILY_" + dstr_get_identifier(DEV_FAMILY_ENUM(value)));
        EXPECT_TRUE(values.insert(value).second);
    }
}

// ---------------------------------------------------------------- data files

TEST(CatalogueFiles, PartListAgreesWithTheCatalogue) {
    const auto rows = read_rows(SOURCE_DIR + "/data/h/mox_parts.txt", true);
    const std::vector<int> parts = all_real_parts();
    ASSERT_EQ(rows.size(), parts.size());
    const DEV_PART_MANAGER manager;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::vector<std::string>& row = rows[i];
        ASSERT_EQ(row.size(), 7u) << "line " << i;
        const int part = parts[i];
        const DEV_DEVICE_ENUM device = manager.get_device_of(part);
        const DEV_PART_ATTRIBUTES a = attributes_of(part);
        EXPECT_EQ(row[0], dstr_get_user_string(part));
        EXPECT_EQ(row[1], dstr_get_user_string(device));
        EXPECT_EQ(row[2], a.package);
        EXPECT_EQ(row[3], std::to_string(a.pin_count));
        EXPECT_EQ(row[4], std::to_string(a.speed_grade));
        EXPECT_EQ(row[5], std::string(1, a.temperature));
        EXPECT_EQ(row[6], dcat_get_device_pcf(device));
    }
}

const char* const FIELDS[86][2] = {
    {"family", "DEVID_ENUM"}, {"pcf", "DEVID_STR"}, {"device", "DEVID_ENUM"}, {"part", "DEVID_ENUM"},
    {"skip_pof_bitstream_conversion", "bool"}, {"no_flash_option_for_unvm", "bool"}, {"ini_fbgen_flow", "bool"},
    {"support_legacy_f2p", "bool"}, {"support_cpf", "bool"}, {"support_ba_flow", "bool"}, {"support_ob", "bool"},
    {"support_download_mode", "bool"}, {"support_sld", "bool"}, {"support_asc", "bool"},
    {"support_asc_ini", "STL_STRING"}, {"support_remote_local_update", "bool"}, {"need_korvid_padding_mask", "bool"},
    {"support_aes_wo_ini", "bool"}, {"unsupported_by_zel2", "bool"}, {"unsupported_by_korvid", "bool"},
    {"allow_partial_frame", "bool"}, {"jtag_program_initialize_in_rti", "bool"}, {"issue_apf_disengage", "bool"},
    {"jtag_program_initialize_microsec", "DWORD"}, {"jtag_configuration_prepad_bits", "DWORD"},
    {"jtag_program_startup_tck", "DWORD"}, {"aes_n_fuse_bits", "DWORD"}, {"aes_fuse_bit_location", "DWORD"},
    {"aes_n_nv_key_bits", "DWORD"}, {"aes_n_v_key_bits", "DWORD"}, {"aes_n_verify_bits", "DWORD"},
    {"n_iv_bits", "DWORD"}, {"ekp_alg_family", "ENUM"}, {"ps_cmp_dclk_ratio", "BYTE"}, {"fpp_cmp_dclk_ratio", "BYTE"},
    {"fppx16_cmp_dclk_ratio", "BYTE"}, {"fppx32_cmp_dclk_ratio", "BYTE"}, {"cmp_fbgen_start_block", "ENUM"},
    {"cmp_fbgen_end_block", "ENUM"}, {"cmp_end_padding_alignement", "DWORD"}, {"cmp_end_pad_with_one", "bool"},
    {"support_prpof", "bool"}, {"need_factory_instr", "bool"}, {"need_config_io_instr", "bool"},
    {"n_tck_ticks_after_config_io", "DWORD"}, {"advanced_family", "bool"}, {"as_cb_hold_time_issue", "bool"},
    {"as_cb_4byte_addressing", "bool"}, {"as_read_in_two_steps", "bool"}, {"as_second_offset_addr", "DWORD"},
    {"asx1_second_offset_extra_bytes", "DWORD"}, {"asx4_second_offset_extra_bytes", "DWORD"},
    {"asc_dummy_cycle", "BYTE"}, {"spi_dummy_clk_x1_128mb", "BYTE"}, {"spi_dummy_clk_x1_256mb", "BYTE"},
    {"spi_dummy_clk_x4_128mb", "BYTE"}, {"spi_dummy_clk_x4_256mb", "BYTE"},
    {"supported_max_cascaded_asc_count", "DWORD"}, {"as_minimum_flash_density", "DWORD"}, {"skip_fbgen", "bool"},
    {"cfg_dev", "STL_STRING"}, {"cvp_post_iocsr_padding_cbws", "DWORD"}, {"hps_post_iocsr_padding_cbws", "DWORD"},
    {"cvp_pre_core_padding_cbws", "DWORD"}, {"cvp_pre_cmp_core_padding_cbws", "DWORD"},
    {"cvp_pre_enc_core_padding_cbws", "DWORD"}, {"fbgen_cvp_core_start_block", "ENUM"},
    {"fbgen_hps_core_start_block", "ENUM"}, {"support_ru_cvp", "bool"}, {"support_ru_hps", "bool"},
    {"support_fi", "bool"}, {"fi_program_twice", "bool"}, {"use_sdm", "bool"}, {"flash_width_bits", "DWORD"},
    {"default_prog_mode", "ENUM"}, {"cmf_flash_block_size", "DWORD"}, {"asc_voltage", "STL_STRING"},
    {"support_sdmmc", "bool"}, {"support_vab", "bool"}, {"support_sdos", "bool"}, {"use_subidcode", "bool"},
    {"dummy_string", "STL_STRING"}, {"dummy_byte", "BYTE"}, {"dummy_word", "WORD"}, {"dummy_dword", "DWORD"},
    {"dummy_bool", "bool"},
};

bool in_table(const MOXDEV_NAME_TABLE& table, const std::string& name) {
    for (std::size_t i = 0; i < table.count; ++i) {
        if (name == table.entries[i].name) return true;
    }
    return false;
}

// Decimal or 0x-hexadecimal text that fits `bytes` bytes.
bool is_number_of_width(const std::string& text, int bytes) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() || digits.size() > 10) return false;
    const char* allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.find_first_not_of(allowed) != std::string::npos) return false;
    const std::uint64_t value = std::stoull(digits, nullptr, hex ? 16 : 10);
    return value <= (bytes == 4 ? 0xFFFFFFFFull : bytes == 2 ? 0xFFFFull : 0xFFull);
}

TEST(CatalogueFiles, DeviceTableCellsAreWellFormed) {
    const auto rows = read_rows(SOURCE_DIR + "/data/mox_dev_info.csv", false);
    ASSERT_EQ(rows.size(), 2u + 79u);
    for (const auto& row : rows) ASSERT_EQ(row.size(), 86u);
    for (int i = 0; i < 86; ++i) {
        EXPECT_EQ(rows[0][i], FIELDS[i][1]) << "type of column " << i;
        EXPECT_EQ(rows[1][i], FIELDS[i][0]) << "name of column " << i;
    }
    std::set<std::string> pcfs;
    for (std::size_t r = 2; r < rows.size(); ++r) {
        const auto& row = rows[r];
        EXPECT_TRUE(pcfs.insert(lower(row[1])).second) << "pcf " << row[1] << " repeated";
        EXPECT_TRUE(in_table(MOXDEV_FAMILY_ID_TABLE, row[0])) << row[0];
        EXPECT_TRUE(in_table(MOXDEV_DEVICE_ID_TABLE, row[2])) << row[2];
        EXPECT_TRUE(in_table(MOXDEV_PART_ID_TABLE, row[3])) << row[3];
        for (int i = 4; i < 86; ++i) {
            const std::string type = FIELDS[i][1];
            const std::string& cell = row[i];
            if (type == "bool") {
                EXPECT_TRUE(cell == "TRUE" || cell == "FALSE") << "row " << r << " " << FIELDS[i][0];
            } else if (type == "ENUM") {
                EXPECT_TRUE(in_table(MOXDEV_OPTION_ID_TABLE, cell)) << "row " << r << " " << cell;
            } else if (type == "BYTE" || type == "WORD" || type == "DWORD") {
                const int bytes = type == "BYTE" ? 1 : type == "WORD" ? 2 : 4;
                EXPECT_TRUE(is_number_of_width(cell, bytes)) << "row " << r << " " << FIELDS[i][0] << " " << cell;
            }
        }
    }
}

TEST(CatalogueFiles, DeviceTableServesEveryFamily) {
    const auto rows = read_rows(SOURCE_DIR + "/data/mox_dev_info.csv", false);
    ASSERT_EQ(rows.size(), 81u);
    std::vector<std::vector<std::string>> records(rows.begin() + 2, rows.end());

    EXPECT_NE(records[0][0], "GENERIC");
    EXPECT_NE(records[0][0], "INVALID");
    EXPECT_EQ(records[1][0], "GENERIC");
    EXPECT_EQ(records[1][2], "INVALID");
    EXPECT_EQ(records[1][3], "INVALID");

    // Each real family's first record is its own family record; device,
    // part and special records of a family follow it.
    std::set<std::string> seen;
    int device_records = 0;
    int part_records = 0;
    for (const auto& record : records) {
        EXPECT_NE(record[0], "INVALID");
        const bool first = seen.insert(record[0]).second;
        if (first) {
            EXPECT_EQ(record[2], "INVALID") << record[1];
            EXPECT_EQ(record[3], "INVALID") << record[1];
        }
        device_records += record[2] != "INVALID";
        part_records += record[3] != "INVALID";
    }
    EXPECT_EQ(seen.size(), std::size_t(DEV_FAMILY_GENERIC)); // 72 families and Generic
    EXPECT_EQ(device_records, 1);
    EXPECT_EQ(part_records, 1);

    // The device and part records belong to the family of what they serve.
    const DEV_PART_MANAGER manager;
    for (const auto& record : records) {
        if (record[2] != "INVALID") {
            const DEV_DEVICE_ENUM device = dstr_get_dev_device_enum_by_string(record[2].c_str());
            EXPECT_EQ(record[0], dstr_get_identifier(manager.get_family_of(device)));
        }
        if (record[3] != "INVALID") {
            EXPECT_EQ(record[0], dstr_get_identifier(family_of_part(dstr_get_dev_part_enum_by_string(record[3].c_str()))));
        }
    }
}

TEST(CatalogueFiles, EveryPartListProgrammingFileIsARecordOfTheDevicesFamily) {
    const auto rows = read_rows(SOURCE_DIR + "/data/mox_dev_info.csv", false);
    ASSERT_GT(rows.size(), 2u);
    std::map<std::string, std::string> family_of_pcf;
    for (std::size_t r = 2; r < rows.size(); ++r) family_of_pcf[lower(rows[r][1])] = rows[r][0];

    const DEV_PART_MANAGER manager;
    std::map<std::string, std::set<std::string>> special_devices;
    for (const auto& row : read_rows(SOURCE_DIR + "/data/h/mox_parts.txt", true)) {
        ASSERT_GE(row.size(), 7u);
        const auto it = family_of_pcf.find(lower(row[6]));
        ASSERT_NE(it, family_of_pcf.end()) << row[0] << " names unknown pcf " << row[6];
        const DEV_DEVICE_ENUM device = dstr_get_dev_device_enum_by_string(row[1].c_str());
        const DEV_FAMILY_ENUM family = manager.get_family_of(device);
        EXPECT_EQ(it->second, dstr_get_identifier(family)) << row[0];
        if (row[6] != dcat_get_family_pcf(family)) special_devices[row[6]].insert(row[1]);
    }
    EXPECT_EQ(special_devices.size(), 4u);
}

} // namespace

// The committed part list is what the generator makes of the committed
// catalogue description: a change to one without the other fails here.
TEST(CatalogueFiles, PartListIsInSyncWithTheDescription)
{
    moxdev_test::TEMP_DIR dir;
    std::string output;
    ASSERT_EQ(moxdev_test::run_command(std::string(MOXDEV_GEN_CATALOGUE) + " " +
                                           moxdev_test::source_path("data/catalogue.txt") + " " +
                                           dir.path() + " --part-list " + dir.file("parts.txt"),
                                       output, true),
              0)
        << output;
    EXPECT_TRUE(moxdev_test::read_bytes(dir.file("parts.txt")) ==
                moxdev_test::read_bytes(moxdev_test::source_path("data/h/mox_parts.txt")))
        << "run `cmake --build build --target update_part_list` after changing data/catalogue.txt";
}
