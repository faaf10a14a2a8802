// SFDP: decoding a read, deriving a record by the fixed rules, binding a chip
// the table does not know, and reading the dump forms people post.
#include "flash_test_support.h"

#include "tools/dump_text.h"

#include <memory>

using namespace moxdev_test;

namespace {

constexpr DWORD NONE = 0xFFFFFFFFu;

// DWORD 1: address mode in bits 18:17, 1-4-4 in bit 21, 1-1-4 in bit 22.
DWORD first_dword(DWORD address_mode, bool quad)
{
    return (0xFF8F20E5u & ~(DWORD(3) << 17) & ~(DWORD(3) << 21)) | address_mode << 17 | (quad ? 3u << 21 : 0);
}

// A BFPT of `count` DWORDs: the given density DWORD, erase types 4 KiB (20h)
// and 64 KiB (D8h), and the published example's DWORDs 10 and 11.
std::vector<DWORD> bfpt(DWORD count, DWORD density, DWORD address_mode = 0)
{
    std::vector<DWORD> dwords(std::max<DWORD>(count, 8), NONE);
    dwords[0] = first_dword(address_mode, true);
    dwords[1] = density;
    dwords[7] = 0x520F200Cu; // type 1: 2^12 opcode 20h; type 2: 2^15 opcode 52h
    if (count > 8)
        dwords[8] = 0x0000D810u; // type 3: 2^16 opcode D8h
    if (count >= 11) {
        dwords[9] = 0x00F57223u;
        dwords[10] = 0xB704ED82u;
    }
    dwords.resize(count);
    return dwords;
}

// An SFDP area: header, parameter headers, then each table in turn.
BYTES sfdp_image(const std::vector<DWORD>& basic, BYTE bfpt_msb = 0xFF,
                 const std::vector<std::pair<WORD, DWORD>>& others = {})
{
    BYTES image{'S', 'F', 'D', 'P', 0x06, 0x01, BYTE(others.size()), 0xFF};
    DWORD pointer = DWORD(8 + 8 * (others.size() + 1));
    auto header = [&](WORD id, DWORD length) {
        image.insert(image.end(), {BYTE(id), 0x06, 0x01, BYTE(length), BYTE(pointer), BYTE(pointer >> 8),
                                   BYTE(pointer >> 16), BYTE(id >> 8)});
        pointer += 4 * length;
    };
    header(WORD(bfpt_msb << 8), DWORD(basic.size()));
    for (const auto& [id, length] : others)
        header(id, length);
    for (DWORD dword : basic)
        append_dword(image, dword);
    for (const auto& [id, length] : others)
        for (DWORD i = 0; i < length; ++i)
            append_dword(image, 0xFFFFFFFFu);
    return image;
}

// Decodes a copy of exactly the image's length, so that a sanitizer sees any
// read past it.
bool decode(const BYTES& image, MOXDEV_SFDP& sfdp, std::string& error)
{
    std::unique_ptr<BYTE[]> exact(new BYTE[image.size() + 1]);
    std::copy(image.begin(), image.end(), exact.get());
    return moxdev_decode_sfdp(exact.get(), image.size(), sfdp, error);
}

MOXDEV_SFDP decoded(const BYTES& image)
{
    MOXDEV_SFDP sfdp;
    std::string error;
    EXPECT_TRUE(decode(image, sfdp, error)) << error;
    return sfdp;
}

std::string refusal(const BYTES& image)
{
    MOXDEV_SFDP sfdp;
    std::string error;
    EXPECT_FALSE(decode(image, sfdp, error));
    return error;
}

MOXDEV_SFDP_RECORD derive(const MOXDEV_SFDP& sfdp, const std::string& name = "")
{
    const BYTE id[3] = {0xEF, 0x40, 0x99};
    MOXDEV_SFDP_RECORD result;
    std::string error;
    EXPECT_TRUE(moxdev_sfdp_record(sfdp, id, name, "", MOXDEV_SFDP_ASSUMPTIONS{}, result, error)) << error;
    return result;
}

const DWORD MBIT_8 = 8u * 1024 * 1024 - 1;

// The shipped flash table, without a user definition from the environment.
class SHIPPED_TABLE : public ::testing::Test {
    SCOPED_ENV m_user{"MOX_SUPPORT_EXT_SPI_DEV", nullptr};
};

} // namespace

TEST(Sfdp, DecodesTheBasicTableAndItsTimes)
{
    const MOXDEV_SFDP sfdp = decoded(sfdp_image(bfpt(16, MBIT_8), 0xFF, {{0xFF84, 2}, {0xC200, 4}}));
    EXPECT_EQ(sfdp.major, 1);
    EXPECT_EQ(sfdp.minor, 6);
    ASSERT_EQ(sfdp.tables.size(), 3u);
    EXPECT_EQ(sfdp.tables[1].id, 0xFF84);
    EXPECT_EQ(sfdp.tables[2].id, 0xC200);
    EXPECT_EQ(sfdp.bfpt_dwords, 16u);
    EXPECT_EQ(sfdp.density_bits, 8u * 1024 * 1024);
    EXPECT_TRUE(sfdp.read_1_1_4 && sfdp.read_1_4_4);
    ASSERT_EQ(sfdp.erase_types.size(), 3u);
    EXPECT_TRUE(sfdp.warnings.empty());
    // The published example: multiplier 3 (x8) for erase, 2 (x6) for program.
    EXPECT_EQ(sfdp.erase_types[0].size, 4096u);
    EXPECT_EQ(sfdp.erase_types[0].opcode, 0x20);
    EXPECT_EQ(*sfdp.erase_types[0].typical_ms, 48u);
    EXPECT_EQ(*sfdp.erase_types[0].max_ms, 384u);
    EXPECT_EQ(sfdp.erase_types[2].size, 65536u);
    EXPECT_EQ(*sfdp.erase_types[2].typical_ms, 480u);
    EXPECT_EQ(*sfdp.erase_types[2].max_ms, 3840u);
    EXPECT_EQ(*sfdp.page_size, 256u);
    EXPECT_EQ(*sfdp.page_program_typical_us, 896u);
    EXPECT_EQ(*sfdp.page_program_max_us, 5376u);
    EXPECT_EQ(*sfdp.chip_erase_typical_ms, 6144u);
    EXPECT_EQ(*sfdp.chip_erase_max_ms, 36864u);

    // The record: a 64 KiB sector and every maximum rounded up.
    const MOXDEV_SFDP_RECORD record = derive(sfdp);
    EXPECT_EQ(record.record.device_sector_byte, 65536u);
    EXPECT_EQ(record.record.sec_erase_time, 4u);
    EXPECT_EQ(record.record.bulk_erase_time, 37u);
    EXPECT_EQ(record.record.program_utime, 5376u);
    EXPECT_TRUE(record.record.extended_mode);
    EXPECT_FALSE(record.record.byte4_addressing);
    EXPECT_EQ(record.record.manufacturer_name, "WINBOND");
    EXPECT_EQ(record.record.device_name, "SFDP_EF4099");
    EXPECT_EQ(record.record.memory_id_index, 2);
    EXPECT_EQ(record.record.velmar_id, 32);
    EXPECT_EQ(std::count(record.assumed.begin(), record.assumed.end(), "program_utime"), 0);
    EXPECT_EQ(std::count(record.assumed.begin(), record.assumed.end(), "die_count"), 1);
}

TEST(Sfdp, OlderAndLargerTables)
{
    // JESD216 1.0: nine DWORDs, an ID MSB of 00, no times: they are assumed.
    const MOXDEV_SFDP old = decoded(sfdp_image(bfpt(9, MBIT_8), 0x00));
    EXPECT_EQ(old.bfpt_dwords, 9u);
    EXPECT_FALSE(old.page_size.has_value());
    EXPECT_FALSE(old.erase_types[0].max_ms.has_value());
    const MOXDEV_SFDP_RECORD record = derive(old);
    for (const char* field : {"bulk_erase_time", "sec_erase_time", "program_utime"})
        EXPECT_EQ(std::count(record.assumed.begin(), record.assumed.end(), field), 1) << field;
    EXPECT_EQ(record.record.program_utime, MOXDEV_SFDP_ASSUMPTIONS{}.page_program_us);
    EXPECT_EQ(record.record.bulk_erase_time, 8u * 6) << "6 s per Mbit";

    // 2^N density, 4-byte-only addressing.
    const MOXDEV_SFDP big = decoded(sfdp_image(bfpt(16, 0x80000000u | 30, 2)));
    EXPECT_EQ(big.density_bits, 1ull << 30);
    EXPECT_EQ(big.address, MOXDEV_SFDP_ADDRESS::FOUR);
    EXPECT_TRUE(derive(big).record.byte4_addressing);
    const MOXDEV_SFDP largest = decoded(sfdp_image(bfpt(16, 0x80000000u | 32)));
    EXPECT_EQ(largest.density_bits, 1ull << 32);
    MOXDEV_SFDP_RECORD result;
    std::string error;
    const BYTE id[3] = {1, 2, 3};
    EXPECT_FALSE(moxdev_sfdp_record(largest, id, "", "", {}, result, error));
    EXPECT_NE(error.find("does not fit"), std::string::npos) << error;
}

TEST(Sfdp, SectorRule)
{
    auto sector_of = [](DWORD eight, DWORD nine) {
        std::vector<DWORD> dwords = bfpt(16, MBIT_8);
        dwords[7] = eight;
        dwords[8] = nine;
        return derive(decoded(sfdp_image(dwords))).record.device_sector_byte;
    };
    EXPECT_EQ(sector_of(0x0012200C, 0x0000D810), 65536u) << "64 KiB wins";
    EXPECT_EQ(sector_of(0xDC12200C, 0x0000D814), 262144u) << "else the smallest above 64 KiB";
    EXPECT_EQ(sector_of(0x520F200C, 0x00000000), 32768u) << "else the largest";
}

TEST(Sfdp, RefusesMalformedReadsWithAReason)
{
    const BYTES good = sfdp_image(bfpt(16, MBIT_8));
    BYTES no_signature = good;
    no_signature[0] = 'X';
    EXPECT_EQ(refusal(no_signature), "no \"SFDP\" signature at address 0");
    EXPECT_EQ(refusal(BYTES(good.begin(), good.begin() + 12)), "the 1 parameter headers reach beyond the 12 bytes given");
    EXPECT_NE(refusal(BYTES(good.begin(), good.end() - 1)).find("reaches beyond"), std::string::npos);
    EXPECT_EQ(refusal(sfdp_image(bfpt(8, MBIT_8))), "the BFPT has 8 DWORDs, fewer than the 9 of JESD216");
    std::vector<DWORD> no_erase = bfpt(16, MBIT_8);
    no_erase[7] = no_erase[8] = 0;
    EXPECT_EQ(refusal(sfdp_image(no_erase)), "the BFPT lists no erase type");
    EXPECT_NE(refusal(sfdp_image(bfpt(16, 0x80000000u | 33))).find("does not fit"), std::string::npos);
    EXPECT_NE(refusal(BYTES(MOXDEV_SFDP_MAX_BYTES + 1, 0)).find("more than"), std::string::npos);
    EXPECT_NE(refusal(sfdp_image(bfpt(16, MBIT_8), 0xC2)).find("not the basic flash parameter table"),
              std::string::npos);
    // A later table that lies beyond the read is only a warning.
    BYTES cut = sfdp_image(bfpt(16, MBIT_8), 0xFF, {{0xFF84, 2}});
    cut.resize(cut.size() - 8);
    EXPECT_EQ(decoded(cut).warnings.size(), 1u);
    // Every prefix of a good read decodes or is refused; none is read past.
    for (std::size_t length = 0; length < good.size(); ++length) {
        MOXDEV_SFDP sfdp;
        std::string error;
        decode(BYTES(good.begin(), good.begin() + long(length)), sfdp, error);
    }
}

TEST_F(SHIPPED_TABLE, AnUnknownChipBindsToItsSfdpRecord)
{
    MOXDEV_FLASH_MANAGER manager(false, 2, false, false);
    const DWORD before = manager.get_flash_count();
    const BYTES image = sfdp_image(bfpt(16, 0x80000000u | 28, 1));
    const BYTE unknown[3] = {0xEF, 0x40, 0x99};
    std::string error;
    ASSERT_TRUE(manager.flash_sfdp_mapping(1, unknown, 3, image.data(), image.size(), &error)) << error;
    EXPECT_EQ(manager.get_flash_count(), before + 1);
    EXPECT_EQ(manager.sfl_get_device_name(1), "SFDP_EF4099");
    EXPECT_EQ(manager.sfl_get_manufacturer_name(1), "WINBOND");
    EXPECT_EQ(manager.sfl_get_device_bit_size(1), 1u << 28);
    EXPECT_TRUE(manager.sfl_get_byte4_addressing(1));
    EXPECT_EQ(manager.sfl_get_chain_longest_program_utime(), 5376u);
    // The derived record now answers the plain binding too.
    EXPECT_TRUE(manager.flash_id_database_mapping(false, 0, unknown, 3));
    EXPECT_EQ(manager.get_flash_mapping_index(0, false), before);

    // A chip the table knows binds to the table's record, whatever its SFDP.
    const BYTE known[3] = {0x20, 0xBA, 0x19};
    const BYTES garbage(4, 0);
    ASSERT_TRUE(manager.flash_sfdp_mapping(0, known, 3, garbage.data(), garbage.size(), &error));
    EXPECT_EQ(manager.sfl_get_device_name(0), "MT25QL256");
    EXPECT_EQ(manager.get_flash_count(), before + 1);

    // An unknown chip with a bad read binds nothing and says why.
    const BYTE other[3] = {0xEF, 0x40, 0x98};
    EXPECT_FALSE(manager.flash_sfdp_mapping(0, other, 3, garbage.data(), garbage.size(), &error));
    EXPECT_EQ(error, "SFDP: no \"SFDP\" signature at address 0");
    EXPECT_EQ(manager.get_flash_mapping_index(0, true), INVALID_DWORD);
}

TEST_F(SHIPPED_TABLE, ADerivedRecordBecomesTheUserFlash)
{
    const MOXDEV_SFDP_RECORD derived = derive(decoded(sfdp_image(bfpt(16, MBIT_8))), "MYCHIP");
    const std::string value = MOXDEV_FLASH_MANAGER(false, 1, true, false).definition_value(derived.record);
    ASSERT_FALSE(value.empty());
    SCOPED_ENV definition("MOX_SUPPORT_EXT_SPI_DEV", value.c_str());
    MOXDEV_FLASH_MANAGER manager(false, 1, false, false);
    EXPECT_EQ(moxdev_flash_info_to_text(manager.get_flash_database()[0]), moxdev_flash_info_to_text(derived.record));
    // It keeps its place ahead of the table, and ahead of an SFDP record.
    const BYTE id[3] = {0xEF, 0x40, 0x99};
    const BYTES image = sfdp_image(bfpt(16, 0x80000000u | 28));
    ASSERT_TRUE(manager.flash_sfdp_mapping(0, id, 3, image.data(), image.size()));
    EXPECT_EQ(manager.get_flash_mapping_index(0, false), 0u);

    MOXDEV_SFL_FLASH_INFO bad = derived.record;
    bad.device_name = "A@B";
    EXPECT_EQ(MOXDEV_FLASH_MANAGER(false, 1, true, false).definition_value(bad), "");
}

TEST(DumpText, EveryFormGivesTheSameBytes)
{
    const std::string binary = std::string("SFDP\x06\x01\x00\xff", 8) + std::string(24, '\xff') + "\x01\x02";
    std::vector<std::uint8_t> expected(binary.begin(), binary.end());
    const std::string hexdump = "00000000  53 46 44 50 06 01 00 ff  ff ff ff ff ff ff ff ff  |SFDP............|\n"
                                "00000010  ff ff ff ff ff ff ff ff  ff ff ff ff ff ff ff ff  |................|\n"
                                "00000020  01 02                                             |..|\n"
                                "00000022\n";
    const std::string xxd = "00000000: 5346 4450 0601 00ff ffff ffff ffff ffff  SFDP............\n"
                            "00000010: ffff ffff ffff ffff ffff ffff ffff ffff  ................\n"
                            "00000020: 0102                                     ..\n";
    const std::string plain_xxd = "53464450060100ff" + std::string(48, 'f') + "\n0102\n";
    const std::string plain = "# a comment\n0x53, 0x46, 0x44, 0x50 06 01 00 ff\n" + [] {
        std::string ff;
        for (int i = 0; i < 24; ++i)
            ff += "FF ";
        return ff;
    }() + "01 02\n";
    for (const std::string& input : {binary, hexdump, xxd, plain_xxd, plain}) {
        std::vector<std::uint8_t> bytes;
        std::string error;
        ASSERT_TRUE(moxdev_tools::read_dump(input, "SFDP", 65536, bytes, error)) << error << "\n" << input;
        EXPECT_EQ(bytes, expected) << input;
    }
    // hexdump -C's "*": the line before it, repeated up to the next offset.
    const std::string starred = "00000000  ff ff ff ff ff ff ff ff  ff ff ff ff ff ff ff ff  |................|\n*\n"
                                "00000030  01                                                |.|\n00000031\n";
    std::vector<std::uint8_t> bytes;
    std::string error;
    ASSERT_TRUE(moxdev_tools::read_dump(starred, "SFDP", 65536, bytes, error)) << error;
    EXPECT_EQ(bytes.size(), 0x31u);
    EXPECT_EQ(bytes[0x2F], 0xFF);

    const struct {
        std::string input;
        const char* message;
    } refused[] = {
        {"00000000  53 46\n*\n", "not a dump: the dump ends with \"*\" and no closing offset"},
        {"00000000  53 46\n00000004  44 50\n", "not a dump: offset 00000004 does not follow the bytes before it"},
        {"53 46 zz\n", "not a dump: \"zz\" is not hex"},
        {std::string("\x7f" "ELF\x02\x01", 6), "not a dump: binary data that does not start with \"SFDP\""},
        {"\n\n", "not a dump: no bytes"},
        {"SFDP" + std::string(65536, 'x'), "the read has 65540 bytes, more than 65536"},
    };
    for (const auto& c : refused) {
        EXPECT_FALSE(moxdev_tools::read_dump(c.input, "SFDP", 65536, bytes, error));
        EXPECT_EQ(error, c.message);
    }
}

// SFDP areas printed in datasheets (data/sfdp/, each naming its
// source): the derived record agrees with the table's record of the chip on
// everything SFDP decides.
TEST_F(SHIPPED_TABLE, DatasheetReadsAgreeWithTheTable)
{
    const MOXDEV_FLASH_MANAGER table(false, 1, false, false);
    const struct {
        const char* file;
        BYTE id[3];
    } reads[] = {{"N25Q128A.txt", {0x20, 0xBA, 0x18}},
                 {"MX25L12835F.txt", {0xC2, 0x20, 0x18}},
                 {"W25Q64FV.txt", {0xEF, 0x40, 0x17}}};
    for (const auto& read : reads) {
        SCOPED_TRACE(read.file);
        std::vector<std::uint8_t> bytes;
        std::string error;
        ASSERT_TRUE(moxdev_tools::read_dump(read_text(source_path(std::string("data/sfdp/") + read.file)),
                                            "SFDP", MOXDEV_SFDP_MAX_BYTES, bytes, error))
            << error;
        const MOXDEV_SFDP sfdp = decoded(BYTES(bytes.begin(), bytes.end()));
        EXPECT_EQ(sfdp.bfpt_dwords, 9u);
        const MOXDEV_SFL_FLASH_INFO* known = table.find_flash(false, read.id, 3);
        ASSERT_NE(known, nullptr);
        MOXDEV_SFDP_RECORD derived;
        ASSERT_TRUE(moxdev_sfdp_record(sfdp, read.id, known->device_name, "", {}, derived, error)) << error;
        EXPECT_EQ(derived.record.device_bit_size, known->device_bit_size);
        EXPECT_EQ(derived.record.device_sector_byte, known->device_sector_byte);
        EXPECT_EQ(derived.record.byte4_addressing, known->byte4_addressing);
        EXPECT_EQ(derived.record.manufacturer_name, known->manufacturer_name);
    }
}
