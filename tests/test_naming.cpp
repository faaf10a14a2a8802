// The naming images' decoding checks, the grammar queries, ordering part
// numbers, part resolution and the type checks; the indexed answers against
// the linear algorithms for every name the compiled-in image holds.
#include "naming_oracles.h"
#include "test_support.h"

#include <zlib.h>

#include <set>

using namespace moxdev_test;
using namespace std::string_literals;
using GRAMMAR = MOXDEV_DDB_GRAMMAR_ENUM;

namespace {

// "MOXDEV_DDB", the body, and the CRC-32/BZIP2 of both, low byte first.
BYTES frame(const std::string& body)
{
    const std::string text = "MOXDEV_DDB" + body;
    BYTES image(text.begin(), text.end());
    const DWORD crc = ~MOX_COMMON::msb_calculate_crc32(image.data(), 0, DWORD(image.size() * 8),
                                                       0xFFFFFFFFu, 0x04C11DB7u, true);
    append_dword(image, crc);
    return image;
}

BYTES deflate(const BYTES& raw)
{
    uLongf length = ::compressBound(uLong(raw.size()));
    BYTES compressed(length);
    ::compress(compressed.data(), &length, raw.data(), uLong(raw.size()));
    compressed.resize(length);
    return compressed;
}

MOXDEV_GRAMMAR_TABLES decode_grammar(const BYTES& raw, DWORD length)
{
    const BYTES compressed = deflate(raw);
    return moxdev_decode_grammar_image(compressed.data(), DWORD(compressed.size()), length);
}

MOXDEV_GRAMMAR_TABLES decode_grammar(const BYTES& raw)
{
    return decode_grammar(raw, DWORD(raw.size()));
}

std::vector<DWORD> decode_opn(const BYTES& raw)
{
    const BYTES compressed = deflate(raw);
    return moxdev_decode_opn_image(compressed.data(), DWORD(compressed.size()), DWORD(raw.size()));
}

// Seven one-entry tables after `first`, so that a body is complete.
std::string with_tables(const std::string& first)
{
    std::string body = first;
    for (int t = 1; t < 8; ++t)
        body += std::string("K") + char('0' + t) + '\0' + "N" + '\0' + '\0' + '\0';
    return body;
}

} // namespace

TEST(NamingDecode, GrammarImageChecks)
{
    const std::string table0 = "KX100F484\0KX100F484C6\0KX100F484I7\0\0KX100F672\0KX100F672C6\0\0\0"s;
    const MOXDEV_GRAMMAR_TABLES tables = decode_grammar(frame(with_tables(table0)));
    EXPECT_EQ(tables[0].at("KX100F484"), (std::vector<std::string>{"KX100F484C6", "KX100F484I7"}));
    EXPECT_EQ(tables[0].at("KX100F672"), (std::vector<std::string>{"KX100F672C6"}));
    EXPECT_EQ(tables[7].size(), 1u);

    const BYTES good = frame(with_tables(table0));
    // The image is inflated into its declared length and 100 bytes more: an
    // image up to 100 bytes longer than declared fails the length check, a
    // longer one does not fit and fails inflation.
    const std::string too_long =
        "zlib_uncompress(data, &data_size, MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH) == ZLIB_OK";
    BYTES padded = frame(with_tables(table0 + std::string(200, 'P')));
    for (DWORD extra : {1u, 100u})
        EXPECT_INTERNAL_ERROR(decode_grammar(padded, DWORD(padded.size() - extra)), "data_size == MOXDDB_GRAMMAR_LENGTH");
    for (DWORD extra : {101u, 150u})
        EXPECT_INTERNAL_ERROR(decode_grammar(padded, DWORD(padded.size() - extra)), too_long);
    EXPECT_INTERNAL_ERROR(decode_grammar(good, DWORD(good.size() + 1)), "data_size == MOXDDB_GRAMMAR_LENGTH");
    BYTES bad_crc = good;
    bad_crc[bad_crc.size() - 2] ^= 1;
    EXPECT_INTERNAL_ERROR(decode_grammar(bad_crc), "BYTE(crc32 >> 16) == data[data_size-2]");
    BYTES bad_magic = good;
    bad_magic[0] = 'N';
    EXPECT_INTERNAL_ERROR(decode_grammar(bad_magic), "memcmp(data, \"MOXDEV_DDB\", 10) == 0");
    BYTES garbage(40, 7);
    EXPECT_INTERNAL_ERROR(moxdev_decode_grammar_image(garbage.data(), 40, 1000),
                          "zlib_uncompress(data, &data_size, MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH) == ZLIB_OK");

    EXPECT_INTERNAL_ERROR(decode_grammar(frame(with_tables("\0"s))), "data[index] != 0");
    EXPECT_INTERNAL_ERROR(decode_grammar(frame(with_tables("K\0A\0A\0\0\0"s))),
                          "std::find(contents.begin(), contents.end(), content) == contents.end()");
    EXPECT_INTERNAL_ERROR(decode_grammar(frame(with_tables("K\0\0\0"s))), "contents.size()");
    EXPECT_INTERNAL_ERROR(decode_grammar(frame(with_tables("K\0A\0\0K\0B\0\0\0"s))),
                          "map->find(key) == map->end()");
    EXPECT_INTERNAL_ERROR(decode_grammar(frame("K\0A\0\0\0"s)), "pointer_index == DWORD(MOXDEV_DDB_GRAMMAR_ENUM::MAX)");
    EXPECT_INTERNAL_ERROR(decode_grammar(frame("K")), "index < data_size && data[index] == 0");
    EXPECT_INTERNAL_ERROR(decode_grammar(frame(with_tables("K\0A\0\0\0"s) + "X\0Y\0\0\0"s)),
                          "pointer_index < DWORD(MOXDEV_DDB_GRAMMAR_ENUM::MAX)");
    EXPECT_INTERNAL_ERROR(decode_grammar(frame("")), "pointer_index == DWORD(MOXDEV_DDB_GRAMMAR_ENUM::MAX)");
    // The same name under two keys of one table is fine.
    EXPECT_NO_THROW(decode_grammar(frame(with_tables("K\0A\0\0L\0A\0\0\0"s))));
}

TEST(NamingDecode, OpnImageChecks)
{
    auto body = [](DWORD count, const BYTES& numbers) {
        BYTES bytes;
        append_dword(bytes, count);
        bytes.insert(bytes.end(), numbers.begin(), numbers.end());
        return std::string(bytes.begin(), bytes.end());
    };
    EXPECT_EQ(decode_opn(frame(body(3, {0x05, 0x80, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}))),
              (std::vector<DWORD>{5, 128, 0xFFFFFFFFu}));
    EXPECT_INTERNAL_ERROR(decode_opn(frame(body(0, {}))), "enum_count > 0");
    // The same 100-byte margin as the grammar image.
    const BYTES long_image = frame(body(1, BYTES(200, 0x05)));
    const BYTES compressed = deflate(long_image);
    auto opn_declared = [&](DWORD length) {
        return moxdev_decode_opn_image(compressed.data(), DWORD(compressed.size()), length);
    };
    EXPECT_INTERNAL_ERROR(opn_declared(DWORD(long_image.size() - 100)), "data_size == MOXDDB_OPN_LENGTH");
    EXPECT_INTERNAL_ERROR(opn_declared(DWORD(long_image.size() - 101)),
                          "zlib_uncompress(data, &data_size, MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH) == ZLIB_OK");
    EXPECT_INTERNAL_ERROR(decode_opn(frame(body(1, {0x80, 0x80, 0x80, 0x80, 0x80, 0x01}))), "shift <= 35");
    EXPECT_INTERNAL_ERROR(decode_opn(frame(body(1, {0xFF, 0xFF, 0xFF, 0xFF, 0x1F}))),
                          "dev_enum <= QWORD(0xFFFFFFFF)");
    EXPECT_INTERNAL_ERROR(decode_opn(frame(body(2, {0x05}))), "index < (data_size - 4)");
    EXPECT_INTERNAL_ERROR(decode_opn(frame(body(1, {0x05, 0x06}))), "index == (data_size - 4)");
    EXPECT_INTERNAL_ERROR(decode_opn(frame(body(1, {0x85}))), "index < (data_size - 4)");
}

TEST(NamingQueries, NormaliseInPlaceAndTranslate)
{
    std::string name = "  kxb100f484c6 ";
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(name, true), "KXB100F484");
    EXPECT_EQ(name, "KXB100F484C6") << "the caller's string comes back trimmed and upper-cased";
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(name, false, true), "KXB100");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(name, true, true), "");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(name, true, false), "KXB100F484C6");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name("KXB100F484", false, true), "KXB100");

    std::string unknown = " nosuch ";
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(unknown, false), "NOSUCH");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(unknown, true), "");

    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_part_pcf("KXB120"), "KXB100M");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_family_pcf("KXB120"), "KX_FAMILY");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_device("kxb100m"), "KXB100_V1");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_device("KXB100"), "");
    // A device that FAMILY does not list is found through its programmer part.
    ASSERT_EQ(moxdev_oracle::reverse_lookup(GRAMMAR::FAMILY, "KXB120"), "");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_family("KXB120"), "KXFAMILY2");
    EXPECT_EQ(MOXDEV_DEVICE_GRAMMAR_MGR::get_family("KXB120_V2"), "KXFAMILY2");

    std::string part_pcf = "x", family_pcf = "x";
    MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_pcfs("kxb120f484c6", part_pcf, family_pcf);
    EXPECT_EQ(part_pcf + " " + family_pcf, "KXB100M KX_FAMILY");
    MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_pcfs("nosuch", part_pcf, family_pcf);
    EXPECT_EQ(part_pcf + family_pcf, "");

    EXPECT_TRUE(MOXDEV_DEVICE_GRAMMAR_MGR::use_package_name(""));
    EXPECT_FALSE(MOXDEV_DEVICE_GRAMMAR_MGR::use_full_name(""));
    EXPECT_FALSE(MOXDEV_DEVICE_GRAMMAR_MGR::use_package_name("nosuch"));
    EXPECT_FALSE(MOXDEV_DEVICE_GRAMMAR_MGR::use_full_name("KXB100F484C6"));
}

TEST(NamingQueries, DebugOutputOfTheStrippingSteps)
{
    SCOPED_ENV debug("MOXDEV_ENABLE_GRAMMAR_DEBUG", "on");
    testing::internal::CaptureStdout();
    MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name("kxb100f484c6", false, false);
    MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name("KXB100F484C6", false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Map Flow   : Strip Package (skip package conversion: 0)\n"
              "    Input0 : KXB100F484C6\n    Input1 : KXB100F484\n    Output : KXB100\n"
              "Map Flow   : Strip Speedgrade\n    Input  : KXB100F484C6\n    Output : KXB100F484\n");
}

// Every name of every table, looked up through the index and through the
// linear scan: the same key, including the smallest-key rule.
TEST(NamingOracle, ReverseLookupOfEveryName)
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
            case GRAMMAR::SPEEDGRADE: got = MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(name, true); break;
            case GRAMMAR::PACKAGE: got = MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(name, true, true); break;
            case GRAMMAR::MOX_PART: got = MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_part_pcf(name); break;
            case GRAMMAR::MOX_FAMILY: got = MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_family_pcf(name); break;
            case GRAMMAR::DEV_PART: got = MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_part_pcf(name); break;
            case GRAMMAR::DEV_FAMILY: got = MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_family_pcf(name); break;
            case GRAMMAR::PCF_FAMILY: got = MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_family_pcf(name); break;
            default: got = MOXDEV_DEVICE_GRAMMAR_MGR::get_family(name); break;
            }
            ASSERT_EQ(got, moxdev_oracle::reverse_lookup(type, name)) << "table " << t << " name " << name;
            ++names;
        }
    }
    EXPECT_GT(names, 40000u);
}
