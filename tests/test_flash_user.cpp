// The user flash: its printable encoding, the version-bound check value, the
// loader's acceptance rules and the interactive definition.
#include "flash_test_support.h"

#include <zlib.h>

#include <sstream>

using namespace moxdev_test;

namespace {

// Reference implementations, written from the format's description.
WORD crc16_xmodem(const std::string& bytes)
{
    WORD crc = 0;
    for (unsigned char c : bytes) {
        crc ^= WORD(c << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = WORD(crc & 0x8000 ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

std::string check_value(const std::string& text, const std::string& version_text)
{
    const WORD version_crc = crc16_xmodem(version_text);
    const std::size_t group_size = (text.size() + 7) / 8;
    std::string result;
    for (std::size_t group = 0; group < 8; ++group) {
        std::string buffer(group_size, '\0');
        for (std::size_t i = group, k = 0; i < text.size(); i += 8, ++k)
            buffer[k] = char(text[i] ^ (i % 2 ? version_crc >> 8 : version_crc & 0xFF));
        const WORD crc = crc16_xmodem(buffer);
        for (BYTE byte : {BYTE(crc), BYTE(crc >> 8)})
            result += char(byte >= 'A' && byte <= 'Z' ? byte : byte % 26 + 'A');
    }
    return result;
}

std::string this_version_text()
{
    const DWORD index = ver_get_current_version_index_number();
    std::string text = "Nimbrel Version: " + ver_get_version() + " ";
    if ((index & 0xFF) != 0)
        text += "SP" + std::to_string(index & 0xFF) + " ";
    return text + "Build " + std::to_string((index >> 8) & 0xFFFF);
}

std::string six_bit_text(const BYTES& bytes)
{
    const char* alphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz@-";
    std::string text;
    for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
        int value = 0;
        for (int i = 0; i < 6 && bit + i < bytes.size() * 8; ++i)
            value |= ((bytes[(bit + i) / 8] >> ((bit + i) % 8)) & 1) << i;
        text += alphabet[value];
    }
    return text;
}

BYTES deflated(const std::string& text, int level)
{
    uLongf length = ::compressBound(uLong(text.size()));
    BYTES bytes(length);
    ::compress2(bytes.data(), &length, reinterpret_cast<const BYTE*>(text.data()), uLong(text.size()), level);
    bytes.resize(length);
    return bytes;
}

const MOXDEV_FLASH_MANAGER CODEC(false, 1, true, false);

const std::string DEFINITION =
    "@ACME@CHIP1@0@25@2@186@1@32@0@32@1@NONE@0@1@0@0@0@1@1@268435456@65536@0@1@400@3@1800@92@92@0@4@5@1@3.3V@";

std::string value_of(const std::string& definition, const std::string& check)
{
    return CODEC.encode_ini(definition + "#" + check + ";");
}

// Loads a one-record table (a chip with the same ID as DEFINITION) with
// `value` as the user flash; returns the manager.
class USER_FLASH : public ::testing::Test {
protected:
    void SetUp() override
    {
        FLASH_TABLE table;
        table.add({{"device_name", "TABLECHIP"}, {"memory_id", "0x19"}});
        table.install(dir);
    }

    std::unique_ptr<MOXDEV_FLASH_MANAGER> load(const std::string& value, bool debug, std::string& output)
    {
        SCOPED_ENV user("MOX_SUPPORT_EXT_SPI_DEV", value.c_str());
        SCOPED_ENV debug_switch("MOX_SUPPORT_EXT_SPI_DEV_DEBUG", debug ? "1" : nullptr);
        testing::internal::CaptureStdout();
        auto manager = std::make_unique<MOXDEV_FLASH_MANAGER>(false, 1, false, false);
        output = testing::internal::GetCapturedStdout();
        return manager;
    }

    // The user record of `definition` with its right check value, or null
    // when the loader ignores it.
    std::unique_ptr<MOXDEV_SFL_FLASH_INFO> user_record(const std::string& definition)
    {
        std::string output;
        auto manager = load(value_of(definition, check_value(definition, this_version_text())), false, output);
        EXPECT_EQ(output, "") << "rejections are silent without the debug switch";
        if (manager->get_flash_count() != 2)
            return nullptr;
        return std::make_unique<MOXDEV_SFL_FLASH_INFO>(manager->get_flash_database()[0]);
    }

    TEMP_DIR dir;
    SCOPED_ENV db{"MOXDEV_DEVICE_DB_DIR", dir.path().c_str()};
};

std::string replace_field(std::string definition, int field, const std::string& text)
{
    std::size_t start = 0;
    for (int i = 0; i <= field; ++i)
        start = definition.find('@', start) + 1;
    const std::size_t end = definition.find('@', start);
    return definition.replace(start, end - start, text);
}

} // namespace

TEST(UserFlashEncoding, SixBitsPerCharacterLeastSignificantFirst)
{
    EXPECT_EQ(crc16_xmodem("123456789"), 0x31C3) << "the reference CRC itself";
    const std::string text = DEFINITION + "#ABCDEFGHIJKLMNOP;";
    EXPECT_EQ(CODEC.encode_ini(text), six_bit_text(deflated(text, Z_BEST_COMPRESSION)));
    // Decoding does not depend on how the stream was compressed.
    EXPECT_EQ(CODEC.decode_ini(six_bit_text(deflated(text, 1))), text);
    EXPECT_EQ(six_bit_text(BYTES{0xFF, 0xFF, 0xFF}), "----") << "3 bytes give 4 characters";
    EXPECT_EQ(six_bit_text(BYTES{0x3E}), "@0");

    testing::internal::CaptureStdout();
    EXPECT_EQ(CODEC.decode_ini("abc!def"), "");
    EXPECT_EQ(CODEC.decode_ini("0000"), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Invalid INI decoding\nFail to generate INI because of decompression failure\n");
}

TEST(UserFlashEncoding, CheckValueIsBoundToTheVersion)
{
    const std::string check = CODEC.gen_ini_password(DEFINITION);
    EXPECT_EQ(check, check_value(DEFINITION, this_version_text()));
    EXPECT_EQ(check.size(), 16u);
    EXPECT_EQ(check.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ"), std::string::npos);
    EXPECT_TRUE(CODEC.cmp_ini_password(check, DEFINITION));
    EXPECT_FALSE(CODEC.cmp_ini_password(check, replace_field(DEFINITION, 25, "1900")));
    EXPECT_NE(check_value(DEFINITION, "Nimbrel Version: 0.1 Build 2"), check);
    EXPECT_EQ(CODEC.gen_ini_password("x").size(), 16u);
    EXPECT_INTERNAL_ERROR(CODEC.gen_ini_password(""), "total_size > 0");
}

TEST_F(USER_FLASH, ValidDefinitionBecomesRecordZeroAndWins)
{
    std::unique_ptr<MOXDEV_SFL_FLASH_INFO> record = user_record(DEFINITION);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->device_name, "CHIP1");
    EXPECT_EQ(record->device_bit_size, 268435456u);
    EXPECT_TRUE(record->byte4_addressing);
    EXPECT_EQ(record->protection_mask, 0x5C);

    std::string output;
    auto manager = load(value_of(DEFINITION, check_value(DEFINITION, this_version_text())), false, output);
    BYTE id[3] = {0x20, 0xBA, 0x19};
    ASSERT_TRUE(manager->flash_id_database_mapping(false, 0, id));
    EXPECT_EQ(manager->get_flash_mapping_index(0, false), 0u);
    EXPECT_EQ(manager->sfl_get_device_name(0), "CHIP1") << "the user record wins over the table";
    EXPECT_EQ(manager->get_flash_database()[1].device_name, "TABLECHIP");
}

TEST_F(USER_FLASH, FieldRules)
{
    EXPECT_EQ(user_record(replace_field(DEFINITION, 1, "chip2"))->device_name, "CHIP2");
    EXPECT_EQ(user_record(replace_field(DEFINITION, 19, "-2147483648"))->device_bit_size, 0x80000000u);
    EXPECT_EQ(user_record(DEFINITION.substr(0, DEFINITION.size() - 1))->asc_voltage, "")
        << "a text without its closing @ loses the last value";
    EXPECT_EQ(user_record(replace_field(DEFINITION, 2, "Y")), nullptr);
    EXPECT_EQ(user_record(replace_field(DEFINITION, 2, "true")), nullptr);
    EXPECT_EQ(user_record(replace_field(DEFINITION, 3, "256")), nullptr);
    EXPECT_EQ(user_record(replace_field(DEFINITION, 6, "-1")), nullptr);
    EXPECT_NE(user_record(replace_field(DEFINITION, 3, "255")), nullptr);
}

TEST_F(USER_FLASH, DamagedOrForeignValuesAreIgnored)
{
    const std::string check = check_value(DEFINITION, this_version_text());
    const std::string foreign = check_value(DEFINITION, "Nimbrel Version: 0.1 SP2 Build 77");
    std::string output;
    for (const std::string& value :
         {CODEC.encode_ini(DEFINITION + check + ";"), CODEC.encode_ini(DEFINITION + ";" + check + "#"),
          value_of(DEFINITION, foreign), value_of(DEFINITION, ""), std::string("not*a*value"),
          value_of(replace_field(DEFINITION, 2, "Y"), check_value(replace_field(DEFINITION, 2, "Y"), this_version_text()))}) {
        auto manager = load(value, false, output);
        EXPECT_EQ(manager->get_flash_count(), 1u) << value;
        EXPECT_EQ(output, "");
    }
    load(value_of(DEFINITION, foreign), true, output);
    EXPECT_NE(output.find("Fail to compare INI password\n"), std::string::npos) << output;
    EXPECT_NE(output.find(DEFINITION), std::string::npos);
    load(value_of(replace_field(DEFINITION, 2, "Y"), check), true, output);
    EXPECT_NE(output.find("Fail to check the validity of the INI\n"), std::string::npos) << output;
    load("not*a*value", true, output);
    EXPECT_EQ(output, "Invalid INI decoding\n");
}

namespace {

const std::vector<std::string> ANSWERS = {
    "acme", "chip1", "19", "2", "BA", "1", "20", "0", "n", "y", "n", "n", "n", "y",
    "1", "256", "64", "400", "3", "1800", "5C", "5C", "0", "4", "5", "y", "3.3v"};

std::string dialogue(const std::string& count, std::vector<std::vector<std::string>> chips)
{
    std::string input = count + "\n";
    for (const auto& answers : chips)
        for (const std::string& answer : answers)
            input += answer + "\n";
    std::istringstream in(input);
    std::ostringstream out;
    MOXDEV_FLASH_MANAGER(false, 1, true, false).gen_flash_ini(in, out);
    return out.str();
}

std::vector<std::string> answers_with(std::size_t question, const std::string& answer)
{
    std::vector<std::string> answers = ANSWERS;
    answers[question] = answer;
    return answers;
}

} // namespace

TEST_F(USER_FLASH, DialogueProducesALoadableValue)
{
    const std::string output = dialogue("1", {ANSWERS});
    EXPECT_NE(output.find("Prompt outcome: " + DEFINITION + "\n"), std::string::npos) << output;
    const std::string raw = DEFINITION + "#" + check_value(DEFINITION, this_version_text()) + ";";
    EXPECT_NE(output.find("Raw: " + raw + "\n"), std::string::npos) << output;
    const std::size_t ini = output.find("INI : ");
    ASSERT_NE(ini, std::string::npos) << output;
    const std::string value = output.substr(ini + 6, output.find('\n', ini) - ini - 6);
    EXPECT_EQ(CODEC.decode_ini(value), raw);

    std::string load_output;
    auto manager = load(value, false, load_output);
    ASSERT_EQ(manager->get_flash_count(), 2u);
    EXPECT_EQ(manager->get_flash_database()[0].device_name, "CHIP1");

    // Two chips: two entries, of which the loader uses the first.
    const std::string two = dialogue("2", {ANSWERS, answers_with(1, "chip2")});
    EXPECT_NE(two.find("#" + check_value(replace_field(DEFINITION, 1, "CHIP2"), this_version_text()) + ";\n"),
              std::string::npos) << two;
}

// A refused answer is explained and asked again; the dialogue then goes on
// with the next answer and the value is made.
TEST(UserFlashDialogue, EveryAnswerIsChecked)
{
    EXPECT_NE(dialogue("4", {}).find("Invalid input or too many flash to define"), std::string::npos);
    EXPECT_NE(dialogue("zero", {}).find("Invalid input or too many"), std::string::npos);

    struct CASE {
        std::size_t question;
        const char* answer;
        const char* message; // null: accepted
    };
    const CASE cases[] = {
        {2, "0", "Invalid input"},    {2, "FE", nullptr},         {2, "FF", "Invalid input"},
        {3, "3", "Invalid input"},    {15, "3", "Invalid input"}, {15, "2048", nullptr},
        {15, "4096", "Invalid input"}, {16, "1024", nullptr},     {16, "2048", "Invalid input"},
        {8, "yes", "Invalid input"},  {8, "Y", nullptr},          {17, "901", "Invalid input"},
        {19, "999", "Invalid input"}, {23, "2", "Invalid input"}, {23, "20", nullptr},
        {24, "8", "Invalid input"},   {14, "3", "Invalid input"}, {0, "", "Empty name or name too long"},
        {1, "ABCDEFGHIJKLMNOPQRST", "Empty name or name too long"},
        {1, "A@B", "Invalid input"},
        {26, "", "Empty name or name too long"},
    };
    for (const CASE& c : cases) {
        SCOPED_TRACE(std::to_string(c.question) + " " + c.answer);
        std::vector<std::string> answers = ANSWERS;
        if (c.message == nullptr) {
            answers[c.question] = c.answer;
        } else {
            // The refused answer, then the good one it is asked again for.
            answers.insert(answers.begin() + long(c.question), c.answer);
        }
        const std::string output = dialogue("1", {answers});
        EXPECT_NE(output.find("INI : "), std::string::npos) << output;
        if (c.message != nullptr) {
            EXPECT_NE(output.find(std::string(c.message) + ":"), std::string::npos) << output;
        }
    }
    EXPECT_NE(dialogue("1", {answers_with(2, "fe")}).find("@254@"), std::string::npos);
    EXPECT_NE(dialogue("1", {answers_with(15, "2048")}).find("@-2147483648@"), std::string::npos);
    // Answers that end early end the dialogue without a value.
    EXPECT_EQ(dialogue("1", {{"MAKER"}}).find("INI : "), std::string::npos);
}
