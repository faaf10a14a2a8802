// Flash parameters: hex and decimal text, the plain and the validating parse
// with every message, packing, and the parameter container file.
#include "test_support.h"

#include <filesystem>

using namespace moxdev_test;

namespace {

bool parse(MOXDEV_PARAM_TYPE type, const std::string& text, QWORD& value, std::string& error, bool hex = false,
           bool power_of_2 = false, const std::vector<DWORD>& ranges = {}, const std::vector<DWORD>& hits = {},
           bool shift = false, DWORD multiple = 1)
{
    return MOXDEV_FLASH_INI::convert_string_to_qword(type, value, hex, text, power_of_2,
                                                     ranges.empty() ? nullptr : ranges.data(),
                                                     hits.empty() ? nullptr : hits.data(), shift, multiple, error);
}

std::string refusal(MOXDEV_PARAM_TYPE type, const std::string& text, bool hex = false, bool power_of_2 = false,
                    const std::vector<DWORD>& ranges = {}, const std::vector<DWORD>& hits = {}, bool shift = false)
{
    QWORD value = 0;
    std::string error;
    EXPECT_FALSE(parse(type, text, value, error, hex, power_of_2, ranges, hits, shift)) << text;
    return error;
}

// A directory for the container file, found through the module directory.
class CONTAINER : public ::testing::Test {
protected:
    std::string path() const { return dir.file("mox_flash.ini"); }
    BYTES read(MOXDEV_FLASH_INI_ENUM set)
    {
        DWORD size = 7;
        std::unique_ptr<BYTE[]> data(MOXDEV_FLASH_INI::read_flash_ini_data(set, size));
        if (!data) {
            EXPECT_EQ(size, 0u);
            return {};
        }
        return BYTES(data.get(), data.get() + size);
    }
    bool write(MOXDEV_FLASH_INI_ENUM set, BYTES data)
    {
        return MOXDEV_FLASH_INI::write_flash_ini_data(set, data.empty() ? nullptr : data.data(), DWORD(data.size()));
    }

    TEMP_DIR dir;
    SCOPED_ENV module{"MOXDEV_MODULE_DIR", dir.path().c_str()};
};

} // namespace

TEST(FlashIniText, HexAndDecimal)
{
    EXPECT_EQ(MOXDEV_FLASH_INI::convert_qword_to_hex_string(0x1A2B, 2, true), "0x2B");
    EXPECT_EQ(MOXDEV_FLASH_INI::convert_dword_to_hex_string(5, 8, true), "0x00000005");
    EXPECT_EQ(MOXDEV_FLASH_INI::convert_dword_to_hex_string(0x123456789ull & 0xFFFFFFFF, 8, false), "23456789");
    EXPECT_EQ(MOXDEV_FLASH_INI::convert_qword_to_hex_string(0x123456789ull, 8, true), "0x23456789");
    EXPECT_EQ(MOXDEV_FLASH_INI::convert_qword_to_hex_string(0xFEDCBA9876543210ull, 16, false), "FEDCBA9876543210");
    EXPECT_EQ(MOXDEV_FLASH_INI::convert_qword_to_string(18446744073709551615ull), "18446744073709551615");
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_INI::convert_qword_to_hex_string(1, 17, false), "count != 0 && count <= 16");
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_INI::convert_dword_to_hex_string(1, 9, false), "count != 0 && count <= 8");

    bool ok = false;
    EXPECT_EQ(MOXDEV_FLASH_INI::convert_string_to_qword("0x1f", false, &ok), 31u);
    EXPECT_TRUE(ok);
    EXPECT_EQ(MOXDEV_FLASH_INI::convert_string_to_qword("", false, &ok), 0u);
    EXPECT_TRUE(ok);
    for (const char* bad : {"1f", "0X10", "-1", " 1", "1x0x"}) {
        EXPECT_EQ(MOXDEV_FLASH_INI::convert_string_to_qword(bad, false, &ok), 0u) << bad;
        EXPECT_FALSE(ok) << bad;
    }
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_INI::convert_string_to_qword("zz", false, nullptr),
                          "Invalid string to integer conversion");
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_INI::convert_string_to_qword("", true, &ok), "!no_empty || !string.empty()");

    DWORD dword = 0xAB;
    QWORD qword = 0x1122334455667788ull;
    std::string text = "text";
    BYTE flag = 2;
    EXPECT_EQ(MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_DWORD, true, &dword), "0x000000AB");
    EXPECT_EQ(MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_DWORD, false, &dword), "171");
    EXPECT_EQ(MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_QWORD, true, &qword), "0x1122334455667788");
    EXPECT_EQ(MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_STRING, true, &text), "text");
    EXPECT_EQ(MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_BOOL, false, &flag), "True");
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_TYPE(7), false, &dword),
                          "Unsupport param type");
}

TEST(FlashIniText, ValidatingParse)
{
    QWORD value = 99;
    std::string error = "old";
    EXPECT_TRUE(parse(MOXDEV_PARAM_STRING, "anything", value, error));
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(error, "");
    EXPECT_TRUE(parse(MOXDEV_PARAM_BYTE, "1f", value, error, true));
    EXPECT_EQ(value, 31u);
    EXPECT_TRUE(parse(MOXDEV_PARAM_BYTE, "-1", value, error));
    EXPECT_EQ(value, 0xFFu);

    EXPECT_EQ(refusal(MOXDEV_PARAM_BYTE, "1f"), "Invalid QWORD conversion");
    EXPECT_EQ(refusal(MOXDEV_PARAM_BYTE, "256"), "Conversion overflow compare to type");
    EXPECT_EQ(refusal(MOXDEV_PARAM_DWORD, "0", false, true), "Input must be power of 2");
    EXPECT_EQ(refusal(MOXDEV_PARAM_DWORD, "6", false, true), "Input must be power of 2");
    EXPECT_TRUE(parse(MOXDEV_PARAM_BYTE, "0x80", value, error, false, true));

    const std::vector<DWORD> range = {1, 1, 2048};
    EXPECT_TRUE(parse(MOXDEV_PARAM_DWORD, "2048", value, error, false, false, range));
    EXPECT_EQ(refusal(MOXDEV_PARAM_DWORD, "0", false, false, range), "Input is out of range");
    EXPECT_EQ(refusal(MOXDEV_PARAM_DWORD, "2049", false, false, range), "Input is out of range");
    EXPECT_EQ(refusal(MOXDEV_PARAM_DWORD, "5", false, false, {0}), "Input is out of range");
    EXPECT_TRUE(parse(MOXDEV_PARAM_QWORD, "0x100000001", value, error, false, false, range))
        << "only the low 32 bits take part in the range test";

    const std::vector<DWORD> hits = {2, 0xFF, 0x00, 0xFF, 0xFF};
    EXPECT_EQ(refusal(MOXDEV_PARAM_BYTE, "00", true, false, {}, hits), "Input is invalid (hit)");
    EXPECT_EQ(refusal(MOXDEV_PARAM_BYTE, "FF", true, false, {}, hits), "Input is invalid (hit)");
    EXPECT_TRUE(parse(MOXDEV_PARAM_BYTE, "2C", value, error, true, false, {}, hits));

    EXPECT_TRUE(parse(MOXDEV_PARAM_DWORD, "3", value, error, false, false, {}, {}, true));
    EXPECT_EQ(value, 8u);
    EXPECT_FALSE(parse(MOXDEV_PARAM_WORD, "16", value, error, false, false, {}, {}, true));
    EXPECT_EQ(error, "Calculation overflow compare to type");
    EXPECT_EQ(value, 0x10000u);
    EXPECT_TRUE(parse(MOXDEV_PARAM_QWORD, "64", value, error, false, false, {}, {}, false, 1u << 20));
    EXPECT_EQ(value, 64ull << 20);
    EXPECT_INTERNAL_ERROR(parse(MOXDEV_PARAM_DWORD, "1", value, error, false, false, {}, {}, false, 0),
                          "multiple != 0");
}

TEST(FlashIniPacking, PackAndUnpackRecords)
{
    std::string name = "MICRON";
    DWORD dword = 0x11223344;
    QWORD qword = 0x8877665544332211ull;
    WORD word = 0xBEEF;
    BYTE byte = 0x5A;
    bool flag = true;
    void* values[] = {&name, &dword, &qword, &word, &byte, &flag};
    const MOXDEV_PARAM_TYPE types[] = {MOXDEV_PARAM_STRING, MOXDEV_PARAM_DWORD, MOXDEV_PARAM_QWORD,
                                       MOXDEV_PARAM_WORD,   MOXDEV_PARAM_BYTE,  MOXDEV_PARAM_BOOL};
    DWORD size = 0;
    for (int i = 0; i < 6; ++i)
        MOXDEV_FLASH_INI::calculate_flash_ini_data_size(size, types[i], values[i]);
    EXPECT_EQ(size, 7u + 4 + 8 + 2 + 1 + 1);
    BYTES data(size, 0);
    DWORD index = 0;
    for (int i = 0; i < 6; ++i)
        MOXDEV_FLASH_INI::fillup_flash_ini_data(data.data(), index, types[i], values[i]);
    EXPECT_EQ(index, size);
    EXPECT_EQ(BYTES(data.begin(), data.begin() + 11), (BYTES{'M', 'I', 'C', 'R', 'O', 'N', 0, 0x44, 0x33, 0x22, 0x11}));

    std::string name2;
    DWORD dword2 = 0;
    QWORD qword2 = 0;
    WORD word2 = 0;
    BYTE byte2 = 0;
    bool flag2 = false;
    void* targets[] = {&name2, &dword2, &qword2, &word2, &byte2, &flag2};
    index = 0;
    ASSERT_TRUE(MOXDEV_FLASH_INI::assign_flash_ini_data(data.data(), index, size, 6, types, targets));
    EXPECT_EQ(name2, name);
    EXPECT_EQ(qword2, qword);
    EXPECT_EQ(word2, word);
    EXPECT_TRUE(flag2);
    index = 0;
    EXPECT_TRUE(MOXDEV_FLASH_INI::assign_flash_ini_data(data.data(), index, size, 0, types, targets));

    // A string without its zero byte at the end of the data fails the record.
    const BYTES unterminated = {'A', 'B'};
    index = 0;
    EXPECT_FALSE(MOXDEV_FLASH_INI::assign_flash_ini_data(unterminated.data(), index, 2, 1, types, targets));
    // A qword needs only four bytes before the stated end, and then takes all
    // eight of the caller's buffer: the index moves by 8.
    const BYTES eight = {1, 2, 3, 4, 5, 6, 7, 8};
    const MOXDEV_PARAM_TYPE qword_type[] = {MOXDEV_PARAM_QWORD};
    void* qword_target[] = {&qword2};
    index = 0;
    EXPECT_TRUE(MOXDEV_FLASH_INI::assign_flash_ini_data(eight.data(), index, 4, 1, qword_type, qword_target));
    EXPECT_EQ(qword2, 0x0807060504030201u);
    EXPECT_EQ(index, 8u);
    index = 0;
    EXPECT_FALSE(MOXDEV_FLASH_INI::assign_flash_ini_data(eight.data(), index, 3, 1, qword_type, qword_target));
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_INI::calculate_flash_ini_data_size(size, MOXDEV_PARAM_TYPE(0), &byte),
                          "Unsupport param type");
}

TEST_F(CONTAINER, WriteReadAndRemoveSets)
{
    EXPECT_TRUE(read(MOXDEV_FLASH_INI_HPS_SPI).empty()) << "no file";
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_SPI, BYTES(10, 0xA5)));
    BYTES file = read_bytes(path());
    ASSERT_EQ(file.size(), 54u);
    EXPECT_EQ(std::string(file.begin(), file.begin() + 16), "MOXDEV_FLASH_INI");
    EXPECT_EQ(dword_at(file, 16), 3u);
    EXPECT_EQ(BYTES(file.begin() + 20, file.begin() + 44),
              (BYTES{0, 0, 0, 0, 0, 0, 0, 0, 44, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(read(MOXDEV_FLASH_INI_HPS_SPI), BYTES(10, 0xA5));

    ASSERT_TRUE(write(MOXDEV_FLASH_INI_SET_0, BYTES{1, 2, 3}));
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_NAND, BYTES{7}));
    EXPECT_EQ(read(MOXDEV_FLASH_INI_SET_0), (BYTES{1, 2, 3})) << "set 0 is kept by other writes";
    EXPECT_EQ(read(MOXDEV_FLASH_INI_HPS_NAND), (BYTES{7}));
    EXPECT_EQ(read_bytes(path()).size(), 44u + 3 + 10 + 1);

    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_SPI, {}));
    EXPECT_TRUE(read(MOXDEV_FLASH_INI_HPS_SPI).empty());
    EXPECT_EQ(read(MOXDEV_FLASH_INI_SET_0), (BYTES{1, 2, 3}));
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_SET_0, {}));
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_NAND, {}));
    EXPECT_EQ(read_bytes(path()).size(), 44u);

    EXPECT_FALSE(MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_ENUM(3), nullptr, 0));
    BYTE byte = 0;
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, nullptr, 4), "data != NULL");
    EXPECT_INTERNAL_ERROR(MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, &byte, 0), "data == NULL");
    SCOPED_ENV nowhere("MOXDEV_MODULE_DIR", "/nonexistent/directory");
    EXPECT_FALSE(write(MOXDEV_FLASH_INI_HPS_SPI, BYTES{1}));
}

TEST_F(CONTAINER, DamagedFilesReadAsMissing)
{
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_SPI, BYTES(10, 1)));
    const BYTES good = read_bytes(path());
    auto unreadable = [&](const BYTES& file) {
        write_bytes(path(), file);
        for (DWORD set = 0; set < 3; ++set)
            EXPECT_TRUE(read(MOXDEV_FLASH_INI_ENUM(set)).empty()) << set;
    };
    unreadable(BYTES(good.begin(), good.begin() + 16));
    unreadable(BYTES(good.begin(), good.begin() + 20));
    BYTES trailing = good;
    trailing.push_back(0);
    unreadable(trailing);
    BYTES zero_offset = good;
    zero_offset[24] = 4; // entry 0: offset 0, size 4
    unreadable(zero_offset);
    BYTES huge_count = good;
    huge_count[19] = 0x40;
    unreadable(huge_count);
    BYTES bad_magic = good;
    bad_magic[3] = 'x';
    unreadable(bad_magic);
    BYTES empty_sets(good.begin(), good.begin() + 44);
    std::fill(empty_sets.begin() + 20, empty_sets.end(), 0);
    unreadable(empty_sets);
    // A set past the entry count of the file.
    BYTES one_entry = {'M', 'O', 'X', 'D', 'E', 'V', '_', 'F', 'L', 'A', 'S', 'H', '_', 'I', 'N', 'I',
                       1, 0, 0, 0, 28, 0, 0, 0, 1, 0, 0, 0, 9};
    write_bytes(path(), one_entry);
    EXPECT_EQ(read(MOXDEV_FLASH_INI_SET_0), (BYTES{9}));
    EXPECT_TRUE(read(MOXDEV_FLASH_INI_HPS_SPI).empty());
}
