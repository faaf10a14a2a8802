// SFDP: decoding a read, deriving a record by the fixed rules, binding a chip
// the table does not know, and reading the dump forms people post.
#include "flash_test_support.h"

#include "moxdev/dump_text.h"

#include <memory>

using namespace moxdev_test;

namespace {

const DWORD MBIT_8 = 8u * 1024 * 1024 - 1;

// A BFPT of `count` DWORDs: 1-1-4 and 1-4-4 reads, the address mode in bits
// 18:17, the given density DWORD, erase types 4 KiB (20h), 32 KiB (52h) and
// 64 KiB (D8h), and the published example's DWORDs 10 and 11.
std::vector<DWORD> bfpt(DWORD count, DWORD density, DWORD address_mode = 0)
{
    std::vector<DWORD> dwords(std::max<DWORD>(count, 11), 0xFFFFFFFFu);
    dwords[0] = (0xFF8F20E5u & ~(DWORD(3) << 17)) | DWORD(3) << 21 | address_mode << 17;
    dwords[1] = density;
    dwords[7] = 0x520F200Cu;
    dwords[8] = 0x0000D810u;
    dwords[9] = 0x00F57223u;
    dwords[10] = 0xB704ED82u;
    dwords.resize(count);
    return dwords;
}

// An SFDP area: header, parameter headers, then each table in turn; the other
// tables are `length` DWORDs of FFh.
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
    for (const auto& other : others)
        image.resize(image.size() + 4 * other.second, 0xFF);
    return image;
}

// Decodes a copy of exactly the image's length, so that a sanitizer sees any
// read past it. Without `error` the read must decode.
MOXDEV_SFDP decode(const BYTES& image, std::string* error = nullptr)
{
    std::unique_ptr<BYTE[]> exact(new BYTE[image.size() + 1]);
    std::copy(image.begin(), image.end(), exact.get());
    MOXDEV_SFDP sfdp;
    std::string reason;
    const bool decoded = moxdev_decode_sfdp(exact.get(), image.size(), sfdp, reason);
    if (error)
        *error = decoded ? "" : reason;
    else
        EXPECT_TRUE(decoded) << reason;
    return sfdp;
}

MOXDEV_SFDP_RECORD derive(const MOXDEV_SFDP& sfdp, const std::string& name = "", std::string* error = nullptr)
{
    const BYTE id[3] = {0xEF, 0x40, 0x99};
    MOXDEV_SFDP_RECORD result;
    std::string reason;
    const bool derived = moxdev_sfdp_record(sfdp, id, name, "", MOXDEV_SFDP_ASSUMPTIONS{}, result, reason);
    if (error)
        *error = derived ? "" : reason;
    else
        EXPECT_TRUE(derived) << reason;
    return result;
}

std::size_t assumed(const MOXDEV_SFDP_RECORD& record, const char* field)
{
    return std::size_t(std::count(record.assumed.begin(), record.assumed.end(), field));
}

// The shipped flash table, without a user definition from the environment.
class ShippedTable : public ::testing::Test {
    SCOPED_ENV m_user{"MOX_SUPPORT_EXT_SPI_DEV", nullptr};
};

} // namespace

TEST(Sfdp, DecodesTheBasicTableAndDerivesARecord)
{
    const MOXDEV_SFDP sfdp = decode(sfdp_image(bfpt(16, MBIT_8), 0xFF, {{0xFF84, 2}, {0xC200, 4}}));
    EXPECT_EQ(sfdp.major * 10 + sfdp.minor, 16);
    ASSERT_EQ(sfdp.tables.size(), 3u);
    EXPECT_EQ(sfdp.tables[1].id + sfdp.tables[2].id, 0xFF84 + 0xC200);
    EXPECT_EQ(sfdp.bfpt_dwords, 16u);
    EXPECT_EQ(sfdp.density_bits, 8u * 1024 * 1024);
    EXPECT_TRUE(sfdp.read_1_1_4 && sfdp.read_1_4_4 && sfdp.warnings.empty());
    ASSERT_EQ(sfdp.erase_types.size(), 3u);
    EXPECT_EQ(sfdp.erase_types[0].size + sfdp.erase_types[0].opcode, 4096u + 0x20);
    EXPECT_EQ(sfdp.erase_types[2].size, 65536u);
    // The published example: multiplier 3 (x8) for erase, 2 (x6) for program.
    EXPECT_EQ((std::vector<DWORD>{*sfdp.erase_types[0].typical_ms, *sfdp.erase_types[0].max_ms,
                                  *sfdp.erase_types[2].typical_ms, *sfdp.erase_types[2].max_ms, *sfdp.page_size,
                                  *sfdp.page_program_typical_us, *sfdp.page_program_max_us, *sfdp.chip_erase_typical_ms,
                                  *sfdp.chip_erase_max_ms}),
              (std::vector<DWORD>{48, 384, 480, 3840, 256, 896, 5376, 6144, 36864}));

    // The record: a 64 KiB sector and every maximum rounded up.
    const MOXDEV_SFDP_RECORD record = derive(sfdp);
    const MOXDEV_SFL_FLASH_INFO& r = record.record;
    EXPECT_EQ((std::vector<DWORD>{r.device_sector_byte, r.sec_erase_time, r.bulk_erase_time, r.program_utime,
                                  r.extended_mode, r.byte4_addressing, r.memory_id_index, r.velmar_id}),
              (std::vector<DWORD>{65536, 4, 37, 5376, true, false, 2, 32}));
    EXPECT_EQ(r.manufacturer_name + " " + r.device_name, "WINBOND SFDP_EF4099");
    EXPECT_EQ(assumed(record, "program_utime") * 10 + assumed(record, "die_count"), 1u);

    // JESD216 1.0: nine DWORDs, an ID MSB of 00, no times: they are assumed.
    const MOXDEV_SFDP old = decode(sfdp_image(bfpt(9, MBIT_8), 0x00));
    EXPECT_FALSE(old.page_size.has_value() || old.erase_types[0].max_ms.has_value());
    const MOXDEV_SFDP_RECORD guessed = derive(old);
    for (const char* field : {"bulk_erase_time", "sec_erase_time", "program_utime"})
        EXPECT_EQ(assumed(guessed, field), 1u) << field;
    EXPECT_EQ(guessed.record.program_utime, MOXDEV_SFDP_ASSUMPTIONS{}.page_program_us);
    EXPECT_EQ(guessed.record.bulk_erase_time, 8u * 6) << "6 s per Mbit";

    // 2^N density, 4-byte-only addressing.
    const MOXDEV_SFDP big = decode(sfdp_image(bfpt(16, 0x80000000u | 30, 2)));
    EXPECT_EQ(big.density_bits, 1ull << 30);
    EXPECT_EQ(big.address, MOXDEV_SFDP_ADDRESS::FOUR);
    EXPECT_TRUE(derive(big).record.byte4_addressing);
}

TEST(Sfdp, SectorIs64KiBElseTheSmallestAboveElseTheLargest)
{
    for (const auto& [eight, nine, sector] : {std::tuple{0x0012200Cu, 0x0000D810u, 65536u},
                                              {0xDC12200Cu, 0x0000D814u, 262144u},
                                              {0x520F200Cu, 0u, 32768u}}) {
        std::vector<DWORD> dwords = bfpt(16, MBIT_8);
        dwords[7] = eight;
        dwords[8] = nine;
        EXPECT_EQ(derive(decode(sfdp_image(dwords))).record.device_sector_byte, sector);
    }
}

TEST(Sfdp, RefusesMalformedReadsWithAReason)
{
    const BYTES good = sfdp_image(bfpt(16, MBIT_8));
    std::vector<DWORD> no_erase = bfpt(16, MBIT_8);
    no_erase[7] = no_erase[8] = 0;
    const struct {
        BYTES image;
        const char* reason;
    } cases[] = {
        {BYTES{'X', 'F', 'D', 'P', 0x06, 0x01, 0, 0xFF}, "no \"SFDP\" signature at address 0"},
        {BYTES(good.begin(), good.begin() + 12), "the 1 parameter headers reach beyond the 12 bytes given"},
        {BYTES(good.begin(), good.end() - 1), "reaches beyond"},
        {sfdp_image(bfpt(8, MBIT_8)), "the BFPT has 8 DWORDs, fewer than the 9 of JESD216"},
        {sfdp_image(no_erase), "the BFPT lists no erase type"},
        {sfdp_image(bfpt(16, 0x80000000u | 33)), "does not fit"},
        {sfdp_image(bfpt(16, 0x80000000u | 32)), "does not fit"}, // decodes, but makes no record
        {BYTES(MOXDEV_SFDP_MAX_BYTES + 1, 0), "more than"},
        {sfdp_image(bfpt(16, MBIT_8), 0xC2), "not the basic flash parameter table"},
    };
    for (const auto& c : cases) {
        std::string error;
        const MOXDEV_SFDP sfdp = decode(c.image, &error);
        if (error.empty())
            derive(sfdp, "", &error);
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.reason << ": " << error;
    }
    // A later table that lies beyond the read is only a warning.
    BYTES cut = sfdp_image(bfpt(16, MBIT_8), 0xFF, {{0xFF84, 2}});
    cut.resize(cut.size() - 8);
    EXPECT_EQ(decode(cut).warnings.size(), 1u);
    // Every prefix of a good read decodes or is refused; none is read past.
    std::string error;
    for (std::size_t length = 0; length < good.size(); ++length)
        decode(BYTES(good.begin(), good.begin() + long(length)), &error);
}

TEST_F(ShippedTable, AnUnknownChipBindsToItsSfdpRecord)
{
    MOXDEV_FLASH_MANAGER manager = moxdev::load_flash_database(moxdev::FLASH_RECORDS::USABLE, 2);
    const DWORD before = manager.get_flash_count();
    const BYTES image = sfdp_image(bfpt(16, 0x80000000u | 28, 1));
    const BYTE unknown[3] = {0xEF, 0x40, 0x99};
    std::string error;
    ASSERT_TRUE(moxdev::bind_flash_by_sfdp(manager, 1, unknown, 3, image.data(), image.size(), &error)) << error;
    EXPECT_EQ(manager.get_flash_count(), before + 1);
    EXPECT_EQ(manager.sfl_get_manufacturer_name(1) + " " + manager.sfl_get_device_name(1), "WINBOND SFDP_EF4099");
    EXPECT_EQ(manager.sfl_get_device_bit_size(1), 1u << 28);
    EXPECT_TRUE(manager.sfl_get_byte4_addressing(1));
    EXPECT_EQ(manager.sfl_get_chain_longest_program_utime(), 5376u);
    // The derived record now answers the plain binding too.
    EXPECT_TRUE(moxdev::bind_flash(manager, false, 0, unknown, 3));
    EXPECT_EQ(manager.get_flash_mapping_index(0, false), before);

    // A chip the table knows binds to the table's record, whatever its SFDP.
    const BYTE known[3] = {0x20, 0xBA, 0x19};
    const BYTES garbage(4, 0);
    ASSERT_TRUE(moxdev::bind_flash_by_sfdp(manager, 0, known, 3, garbage.data(), garbage.size(), &error));
    EXPECT_EQ(manager.sfl_get_device_name(0), "MT25QL256");
    EXPECT_EQ(manager.get_flash_count(), before + 1);
    // An unknown chip with a bad read binds nothing and says why.
    const BYTE other[3] = {0xEF, 0x40, 0x98};
    EXPECT_FALSE(moxdev::bind_flash_by_sfdp(manager, 0, other, 3, garbage.data(), garbage.size(), &error));
    EXPECT_EQ(error, "SFDP: no \"SFDP\" signature at address 0");
    EXPECT_EQ(manager.get_flash_mapping_index(0, true), INVALID_DWORD);
}

TEST_F(ShippedTable, ADerivedRecordBecomesTheUserFlash)
{
    const MOXDEV_SFDP_RECORD derived = derive(decode(sfdp_image(bfpt(16, MBIT_8))), "MYCHIP");
    const std::string value = moxdev::user_flash_value(derived.record);
    ASSERT_FALSE(value.empty());
    SCOPED_ENV definition("MOX_SUPPORT_EXT_SPI_DEV", value.c_str());
    MOXDEV_FLASH_MANAGER manager = moxdev::load_flash_database();
    EXPECT_EQ(moxdev_flash_info_to_text(manager.get_flash_database()[0]), moxdev_flash_info_to_text(derived.record));
    // It keeps its place ahead of the table, and ahead of an SFDP record.
    const BYTE id[3] = {0xEF, 0x40, 0x99};
    const BYTES image = sfdp_image(bfpt(16, 0x80000000u | 28));
    ASSERT_TRUE(moxdev::bind_flash_by_sfdp(manager, 0, id, 3, image.data(), image.size()));
    EXPECT_EQ(manager.get_flash_mapping_index(0, false), 0u);

    MOXDEV_SFL_FLASH_INFO bad = derived.record;
    bad.device_name = "A@B";
    EXPECT_EQ(moxdev::user_flash_value(bad), "");
}

TEST(DumpText, EveryFormGivesTheSameBytes)
{
    const std::string binary = std::string("SFDP\x06\x01\x00\xff", 8) + std::string(24, '\xff') + "\x01\x02";
    const std::string ff = "ff ff ff ff ff ff ff ff";
    const std::vector<std::string> forms = {
        binary,
        "00000000  53 46 44 50 06 01 00 ff  " + ff + "  |SFDP............|\n00000010  " + ff + "  " + ff +
            "  |................|\n00000020  01 02                                             |..|\n00000022\n",
        "00000000: 5346 4450 0601 00ff ffff ffff ffff ffff  SFDP............\n"
        "00000010: ffff ffff ffff ffff ffff ffff ffff ffff  ................\n"
        "00000020: 0102                                     ..\n",
        "53464450060100ff" + std::string(48, 'f') + "\n0102\n",
        "# a comment\n0x53, 0x46, 0x44, 0x50 06 01 00 ff\nFF FF FF FF FF FF FF FF " + ff + " " + ff + "\n01 02\n"};
    std::vector<std::uint8_t> bytes;
    std::string error;
    for (const std::string& input : forms) {
        ASSERT_TRUE(moxdev::read_dump(input, "SFDP", 65536, bytes, error)) << error << "\n" << input;
        EXPECT_EQ(bytes, std::vector<std::uint8_t>(binary.begin(), binary.end())) << input;
    }
    // hexdump -C's "*": the line before it, repeated up to the next offset.
    const std::string starred = "00000000  " + ff + "  " + ff + "  |................|\n*\n00000030  01\n00000031\n";
    ASSERT_TRUE(moxdev::read_dump(starred, "SFDP", 65536, bytes, error)) << error;
    EXPECT_EQ(bytes.size(), 0x31u);
    EXPECT_EQ(bytes[0x2F], 0xFF);

    const struct {
        std::string input;
        const char* message;
    } refused[] = {
        {"00000000  53 46\n*\n", "not a dump: the dump ends with \"*\" and no closing offset"},
        {"00000000  53 46\n00000004  44 50\n", "not a dump: offset 00000004 does not follow the bytes before it"},
        {"53 46 zz\n", "not a dump: \"zz\" is not hex"},
        {std::string("\x7f"
                     "ELF\x02\x01",
                     6),
         "not a dump: binary data that does not start with \"SFDP\""},
        {"\n\n", "not a dump: no bytes"},
        {"SFDP" + std::string(65536, 'x'), "the read has 65540 bytes, more than 65536"},
    };
    for (const auto& c : refused) {
        EXPECT_FALSE(moxdev::read_dump(c.input, "SFDP", 65536, bytes, error));
        EXPECT_EQ(error, c.message);
    }
}

// SFDP areas printed in datasheets (data/sfdp/, each naming its source): the
// derived record agrees with the table's record of the chip on everything
// SFDP decides.
TEST_F(ShippedTable, DatasheetReadsAgreeWithTheTable)
{
    const MOXDEV_FLASH_MANAGER table = moxdev::load_flash_database();
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
        ASSERT_TRUE(moxdev::read_dump(read_text(source_path(std::string("data/sfdp/") + read.file)), "SFDP",
                                      MOXDEV_SFDP_MAX_BYTES, bytes, error))
            << error;
        const MOXDEV_SFDP sfdp = decode(BYTES(bytes.begin(), bytes.end()));
        EXPECT_EQ(sfdp.bfpt_dwords, 9u);
        const MOXDEV_SFL_FLASH_INFO* known = moxdev::find_flash(table, false, read.id, 3);
        ASSERT_NE(known, nullptr);
        MOXDEV_SFDP_RECORD derived;
        ASSERT_TRUE(moxdev_sfdp_record(sfdp, read.id, known->device_name, "", {}, derived, error)) << error;
        EXPECT_EQ(derived.record.device_bit_size, known->device_bit_size);
        EXPECT_EQ(derived.record.device_sector_byte, known->device_sector_byte);
        EXPECT_EQ(derived.record.byte4_addressing, known->byte4_addressing);
        EXPECT_EQ(derived.record.manufacturer_name, known->manufacturer_name);
    }
}
