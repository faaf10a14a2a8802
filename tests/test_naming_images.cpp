// The naming images written from the catalogue: byte format, agreement with the
// library's decoder, coverage of the catalogue, and the compiled-in copy.
#include "tools/naming_images.h"

#include "host/dev_catalogue_naming.h"
#include "moxdev/moxdev.h"
#include "moxdev/moxdev_ddb_mgr.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace moxdev_images;
using namespace std::string_literals;

namespace {

MOXDEV_GRAMMAR_TABLES as_maps(const GRAMMAR_TABLES& tables)
{
    MOXDEV_GRAMMAR_TABLES maps;
    for (std::size_t i = 0; i < tables.size(); ++i)
        maps[i].insert(tables[i].begin(), tables[i].end());
    return maps;
}

std::vector<BYTE> inflate(const BYTE* data, DWORD cmp_length, DWORD length)
{
    std::vector<BYTE> out(length + 1);
    DWORD size = DWORD(out.size());
    EXPECT_EQ(zlib_uncompress(out.data(), &size, data, cmp_length), ZLIB_OK);
    out.resize(size);
    return out;
}

bool lists(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

TEST(NamingImages, FrameAndTableBytes)
{
    // CRC-32/BZIP2 check value.
    EXPECT_EQ(frame_crc(reinterpret_cast<const BYTE*>("123456789"), 9), 0xFC891918u);

    GRAMMAR_TABLES tables;
    tables[0] = {{"KX100F484", {"KX100F484C6", "KX100F484I7"}}, {"KX100F672", {"KX100F672C6"}}};
    const std::vector<BYTE> image = write_grammar_image(tables);
    const std::string body = "KX100F484\0KX100F484C6\0KX100F484I7\0\0KX100F672\0KX100F672C6\0\0\0"
                             "\0\0\0\0\0\0\0"s; // seven empty tables follow
    ASSERT_EQ(image.size(), 10 + body.size() + 4);
    EXPECT_EQ(std::string(image.begin(), image.begin() + 10), "MOXDEV_DDB");
    EXPECT_EQ(std::string(image.begin() + 10, image.end() - 4), body);
    const DWORD crc = frame_crc(image.data(), image.size() - 4);
    EXPECT_EQ(std::vector<BYTE>(image.end() - 4, image.end()),
              (std::vector<BYTE>{BYTE(crc), BYTE(crc >> 8), BYTE(crc >> 16), BYTE(crc >> 24)}));
    EXPECT_EQ(check_grammar_tables(tables), "table PACKAGE is empty");
}

TEST(NamingImages, VariableLengthNumbersRoundTrip)
{
    std::vector<BYTE> bytes;
    append_number(bytes, 0x80);
    append_number(bytes, 0xFFFFFFFF);
    EXPECT_EQ(bytes, (std::vector<BYTE>{0x80, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));

    const std::vector<DWORD> numbers{0, 0x7F, 0x80, 0x3FFF, 0x4000, 0x1FFFFF, 0x200000, 0xFFFFFFFF};
    const std::vector<BYTE> image = write_opn_image(numbers);
    EXPECT_EQ(image.size(), 10 + 4 + (1 + 1 + 2 + 2 + 3 + 3 + 4 + 5) + 4);
    const std::vector<BYTE> packed = compress(image);
    EXPECT_EQ(moxdev_decode_opn_image(packed.data(), DWORD(packed.size()), DWORD(image.size())), numbers);
}

TEST(NamingImages, CatalogueImagesDecodeToWhatWasBuilt)
{
    const GRAMMAR_TABLES tables = build_grammar_tables();
    EXPECT_EQ(check_grammar_tables(tables), "");
    for (const GRAMMAR_TABLE& table : tables) {
        for (std::size_t i = 1; i < table.size(); ++i)
            EXPECT_LT(table[i - 1].first, table[i].first) << "entries are written in key order";
    }
    const std::vector<BYTE> grammar = write_grammar_image(tables);
    const std::vector<BYTE> packed = compress(grammar);
    EXPECT_EQ(moxdev_decode_grammar_image(packed.data(), DWORD(packed.size()), DWORD(grammar.size())),
              as_maps(tables));

    const std::vector<DWORD> parts = build_opn_table();
    const std::vector<BYTE> opn = write_opn_image(parts);
    const std::vector<BYTE> opn_packed = compress(opn);
    EXPECT_EQ(moxdev_decode_opn_image(opn_packed.data(), DWORD(opn_packed.size()), DWORD(opn.size())),
              parts);
}

TEST(NamingImages, EveryOrderablePartIsReachable)
{
    const MOXDEV_GRAMMAR_TABLES maps = as_maps(build_grammar_tables());
    const auto& speedgrade = maps[0];
    const auto& package = maps[1];
    const auto& mox_part = maps[2];
    const auto& family = maps[7];
    EXPECT_GT(speedgrade.size(), 3000u);
    EXPECT_LT(speedgrade.size(), 4000u);

    const std::vector<DWORD> opn = build_opn_table();
    std::size_t index = 0, late = 0;
    const DEV_PART_MANAGER manager;
    for (int part = DEV_PART_INVALID + 1; part < DEV_PART_MAX; ++part) {
        if (part == DEV_PART_GENERIC)
            continue;
        ASSERT_LT(index, opn.size());
        EXPECT_EQ(opn[index++], DWORD(part)) << "the OPN enum is the part's place in part order";
        late += part > DEV_PART_GENERIC;

        const std::string name = dstr_get_user_string(part);
        const std::string with_package = dcat_get_part_package_name(part);
        const DEV_DEVICE_ENUM device = manager.get_device_of(part);
        const std::string programmer_part = dcat_get_programmer_part_name(device);
        ASSERT_TRUE(speedgrade.count(with_package)) << name;
        EXPECT_TRUE(lists(speedgrade.at(with_package), name));
        EXPECT_TRUE(lists(package.at(dstr_get_user_string(device)), with_package)) << name;
        EXPECT_TRUE(lists(mox_part.at(programmer_part), name));
        EXPECT_TRUE(lists(mox_part.at(programmer_part), dstr_get_user_string(device)));

        // Devices are listed under their family by name only in preview families.
        const DEV_FAMILY_ENUM part_family = manager.get_family_of(device);
        const auto& names = family.at(dcat_get_user_family_name(part_family));
        EXPECT_TRUE(lists(names, programmer_part)) << name;
        EXPECT_EQ(lists(names, dstr_get_user_string(device)),
                  dcat_get_family_status(part_family) == DEV_FAMILY_STATUS::PREVIEW)
            << name;
    }
    EXPECT_EQ(index, opn.size());
    EXPECT_GT(late, 0u);
}

TEST(NamingImages, CompiledInImagesAreCurrent)
{
    EXPECT_EQ(inflate(MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH, MOXDDB_GRAMMAR_LENGTH),
              write_grammar_image(build_grammar_tables()));
    EXPECT_EQ(inflate(MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH, MOXDDB_OPN_LENGTH),
              write_opn_image(build_opn_table()));
}
