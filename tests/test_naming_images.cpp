// The naming images: the bytes the writer produces, the decoder's refusal of
// every damaged image, the catalogue's images and the compiled-in copy.
#include "test_support.h"

#include "host/dev_catalogue_naming.h"
#include "tools/generators/naming_images.h"

#include <algorithm>
#include <functional>

using namespace moxdev_images;
using namespace moxdev_test;
using namespace std::string_literals;

namespace {

MOXDEV_GRAMMAR_TABLES as_maps(const GRAMMAR_TABLES& tables)
{
    MOXDEV_GRAMMAR_TABLES maps;
    for (std::size_t i = 0; i < tables.size(); ++i)
        maps[i].insert(tables[i].begin(), tables[i].end());
    return maps;
}

// "MOXDEV_DDB", `body` and the frame's CRC, as the writer frames an image.
BYTES framed(const std::string& body)
{
    const std::string text = "MOXDEV_DDB" + body;
    BYTES image(text.begin(), text.end());
    append_dword(image, frame_crc(image.data(), image.size()));
    return image;
}

// Decodes `image` compressed, declared `slack` bytes longer than it is.
MOXDEV_GRAMMAR_TABLES grammar(const BYTES& image, long slack = 0)
{
    const BYTES packed = compress(image);
    return moxdev_decode_grammar_image(packed.data(), DWORD(packed.size()), DWORD(long(image.size()) + slack));
}

std::vector<DWORD> opn(const BYTES& image, long slack = 0)
{
    const BYTES packed = compress(image);
    return moxdev_decode_opn_image(packed.data(), DWORD(packed.size()), DWORD(long(image.size()) + slack));
}

// Seven one-entry tables after `first`, so that a grammar body is complete.
std::string with_tables(const std::string& first)
{
    std::string body = first;
    for (int t = 1; t < 8; ++t)
        body += "K"s + char('0' + t) + '\0' + "N" + '\0' + '\0' + '\0';
    return body;
}

// An OPN body: the count, then the numbers' bytes.
std::string opn_body(DWORD count, const BYTES& numbers)
{
    BYTES bytes;
    append_dword(bytes, count);
    bytes.insert(bytes.end(), numbers.begin(), numbers.end());
    return std::string(bytes.begin(), bytes.end());
}

bool lists(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

TEST(NamingImages, WriterBytesAndTheirDecoding)
{
    EXPECT_EQ(frame_crc(reinterpret_cast<const BYTE*>("123456789"), 9), 0xFC891918u) << "CRC-32/BZIP2 check value";

    GRAMMAR_TABLES tables;
    tables[0] = {{"KX100F484", {"KX100F484C6", "KX100F484I7"}}, {"KX100F672", {"KX100F672C6"}}};
    EXPECT_EQ(check_grammar_tables(tables), "table PACKAGE is empty");
    const std::string table0 = "KX100F484\0KX100F484C6\0KX100F484I7\0\0KX100F672\0KX100F672C6\0\0\0"s;
    EXPECT_EQ(write_grammar_image(tables), framed(table0 + std::string(7, '\0'))) << "seven empty tables follow";
    const MOXDEV_GRAMMAR_TABLES decoded = grammar(framed(with_tables(table0)));
    EXPECT_EQ(decoded[0].at("KX100F484"), (std::vector<std::string>{"KX100F484C6", "KX100F484I7"}));
    EXPECT_EQ(decoded[7].size(), 1u);
    EXPECT_NO_THROW(grammar(framed(with_tables("K\0A\0\0L\0A\0\0\0"s)))) << "one name under two keys";

    // Variable-length numbers: 7 bits a byte, least significant first.
    BYTES numbers;
    append_number(numbers, 0x80);
    append_number(numbers, 0xFFFFFFFF);
    EXPECT_EQ(numbers, (BYTES{0x80, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
    const std::vector<DWORD> parts{0, 0x7F, 0x80, 0x3FFF, 0x4000, 0x1FFFFF, 0x200000, 0xFFFFFFFF};
    const BYTES image = write_opn_image(parts);
    EXPECT_EQ(image.size(), 10 + 4 + (1 + 1 + 2 + 2 + 3 + 3 + 4 + 5) + 4);
    EXPECT_EQ(opn(image), parts);
}

// Every damaged image is refused with the condition it breaks. Images are
// inflated into their declared length plus 100 bytes: up to 100 bytes more
// than declared fail the length check, more than that fail inflation.
TEST(NamingImages, DecoderRefusesEveryDamage)
{
    const std::string grammar_zlib =
        "zlib_uncompress(data, &data_size, MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH) == ZLIB_OK";
    const std::string opn_zlib = "zlib_uncompress(data, &data_size, MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH) == ZLIB_OK";
    const std::string too_long = "image length exceeds what its compressed data can hold";
    const std::string all_tables = "pointer_index == DWORD(MOXDEV_DDB_GRAMMAR_ENUM::MAX)";
    const BYTES good = framed(with_tables("K\0A\0\0\0"s));
    const BYTES padded = framed(with_tables("K\0A\0\0\0"s + std::string(200, 'P')));
    BYTES bad_crc = good, bad_magic = good;
    bad_crc[bad_crc.size() - 2] ^= 1;
    bad_magic[0] = 'N';
    const BYTES garbage(64, 0x5A);
    const BYTES long_opn = framed(opn_body(1, BYTES(200, 0x05)));

    const std::pair<std::function<void()>, std::string> damages[] = {
        {[&] { grammar(padded, -1); }, "data_size == MOXDDB_GRAMMAR_LENGTH"},
        {[&] { grammar(padded, -100); }, "data_size == MOXDDB_GRAMMAR_LENGTH"},
        {[&] { grammar(padded, -101); }, grammar_zlib},
        {[&] { grammar(good, +1); }, "data_size == MOXDDB_GRAMMAR_LENGTH"},
        {[&] { grammar(bad_crc); }, "BYTE(crc32 >> 16) == data[data_size-2]"},
        {[&] { grammar(bad_magic); }, "memcmp(data, \"MOXDEV_DDB\", 10) == 0"},
        {[&] { moxdev_decode_grammar_image(garbage.data(), 40, 1000); }, grammar_zlib},
        {[&] { grammar(framed(with_tables("\0"s))); }, "data[index] != 0"},
        {[&] { grammar(framed(with_tables("K\0A\0A\0\0\0"s))); },
         "std::find(contents.begin(), contents.end(), content) == contents.end()"},
        {[&] { grammar(framed(with_tables("K\0\0\0"s))); }, "contents.size()"},
        {[&] { grammar(framed(with_tables("K\0A\0\0K\0B\0\0\0"s))); }, "map->find(key) == map->end()"},
        {[&] { grammar(framed("K\0A\0\0\0"s)); }, all_tables},
        {[&] { grammar(framed("")); }, all_tables},
        {[&] { grammar(framed("K")); }, "index < data_size && data[index] == 0"},
        {[&] { grammar(framed(with_tables("K\0A\0\0\0"s) + "X\0Y\0\0\0"s)); },
         "pointer_index < DWORD(MOXDEV_DDB_GRAMMAR_ENUM::MAX)"},
        // Lengths no compressed data of that size can inflate to are refused
        // before anything is set aside for them.
        {[&] { moxdev_decode_grammar_image(garbage.data(), 64, 64 * 1032 + 1); }, too_long},
        {[&] { moxdev_decode_grammar_image(garbage.data(), 1, 0xFFFFFFFF - 50); }, too_long},
        {[&] { moxdev_decode_opn_image(garbage.data(), 64, 0xFFFFFFFF); }, too_long},

        {[&] { opn(framed(opn_body(0, {}))); }, "enum_count > 0"},
        {[&] { opn(long_opn, -100); }, "data_size == MOXDDB_OPN_LENGTH"},
        {[&] { opn(long_opn, -101); }, opn_zlib},
        {[&] {
             opn(framed(opn_body(1, {0x80, 0x80, 0x80, 0x80, 0x80, 0x01})));
         },
         "shift <= 35"},
        {[&] {
             opn(framed(opn_body(1, {0xFF, 0xFF, 0xFF, 0xFF, 0x1F})));
         },
         "dev_enum <= QWORD(0xFFFFFFFF)"},
        {[&] { opn(framed(opn_body(2, {0x05}))); }, "index < (data_size - 4)"},
        {[&] { opn(framed(opn_body(0xFFFFFF00, {0x05}))); }, "index < (data_size - 4)"},
        {[&] { opn(framed(opn_body(1, {0x85}))); }, "index < (data_size - 4)"},
        {[&] {
             opn(framed(opn_body(1, {0x05, 0x06})));
         },
         "index == (data_size - 4)"},
    };
    for (const auto& [decode, condition] : damages)
        EXPECT_INTERNAL_ERROR(decode(), condition);
}

TEST(NamingImages, CatalogueImagesHoldEveryOrderablePart)
{
    const GRAMMAR_TABLES tables = build_grammar_tables();
    EXPECT_EQ(check_grammar_tables(tables), "");
    for (const GRAMMAR_TABLE& table : tables) {
        for (std::size_t i = 1; i < table.size(); ++i)
            EXPECT_LT(table[i - 1].first, table[i].first) << "entries are written in key order";
    }
    const MOXDEV_GRAMMAR_TABLES maps = grammar(write_grammar_image(tables));
    EXPECT_EQ(maps, as_maps(tables));
    const std::vector<DWORD> parts = build_opn_table();
    EXPECT_EQ(opn(write_opn_image(parts)), parts);

    const auto& [speedgrade, package, mox_part] = std::tie(maps[0], maps[1], maps[2]);
    std::size_t index = 0;
    const DEV_PART_MANAGER manager;
    for (int part = DEV_PART_INVALID + 1; part < DEV_PART_MAX; ++part) {
        if (part == DEV_PART_GENERIC)
            continue;
        ASSERT_LT(index, parts.size());
        EXPECT_EQ(parts[index++], DWORD(part)) << "the OPN enum is the part's place in part order";

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
        const DEV_FAMILY_ENUM family = manager.get_family_of(device);
        const auto& names = maps[7].at(dcat_get_user_family_name(family));
        EXPECT_TRUE(lists(names, programmer_part)) << name;
        EXPECT_EQ(lists(names, dstr_get_user_string(device)),
                  dcat_get_family_status(family) == DEV_FAMILY_STATUS::PREVIEW)
            << name;
    }
    EXPECT_EQ(index, parts.size());
}

TEST(NamingImages, CompiledInImagesAreCurrent)
{
    auto inflated = [](const BYTE* data, DWORD cmp_length, DWORD length) {
        BYTES out(length + 1);
        DWORD size = DWORD(out.size());
        EXPECT_EQ(zlib_uncompress(out.data(), &size, data, cmp_length), ZLIB_OK);
        out.resize(size);
        return out;
    };
    EXPECT_EQ(inflated(MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH, MOXDDB_GRAMMAR_LENGTH),
              write_grammar_image(build_grammar_tables()));
    EXPECT_EQ(inflated(MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH, MOXDDB_OPN_LENGTH), write_opn_image(build_opn_table()));
}
