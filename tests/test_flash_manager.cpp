// The serial flash database: generation, loading with switches, binding chain
// devices by ID bytes, the accessors, every refusal; and the user flash: its
// printable encoding, the version-bound check value, the loader's acceptance
// rules and the interactive definition.
#include "flash_test_support.h"

#include <zlib.h>

#include <functional>
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

std::string check_value(const std::string& text)
{
    const DWORD index = ver_get_current_version_index_number();
    std::string version = "Nimbrel Version: " + ver_get_version() + " ";
    if ((index & 0xFF) != 0)
        version += "SP" + std::to_string(index & 0xFF) + " ";
    return check_value(text, version + "Build " + std::to_string((index >> 8) & 0xFFFF));
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

// The user flash value of `definition` with its right check value.
std::string value_of(const std::string& definition)
{
    return CODEC.encode_ini(definition + "#" + check_value(definition) + ";");
}

std::string replace_field(std::string definition, int field, const std::string& text)
{
    std::size_t start = 0;
    for (int i = 0; i <= field; ++i)
        start = definition.find('@', start) + 1;
    return definition.replace(start, definition.find('@', start) - start, text);
}

// A one-record table (a chip with the same ID as DEFINITION) to load the user
// flash against.
class UserFlash : public ::testing::Test {
protected:
    void SetUp() override
    {
        FLASH_TABLE table;
        table.add({{"device_name", "TABLECHIP"}, {"memory_id", "0x19"}});
        table.install(dir);
    }

    // Loads with `value` as the user flash; `output` is what loading printed.
    std::unique_ptr<MOXDEV_FLASH_MANAGER> load(const std::string& value, bool debug, std::string& output)
    {
        SCOPED_ENV user("MOX_SUPPORT_EXT_SPI_DEV", value.c_str());
        SCOPED_ENV debug_switch("MOX_SUPPORT_EXT_SPI_DEV_DEBUG", debug ? "1" : nullptr);
        testing::internal::CaptureStdout();
        auto manager = std::make_unique<MOXDEV_FLASH_MANAGER>(false, 1, false, false);
        output = testing::internal::GetCapturedStdout();
        return manager;
    }

    TEMP_DIR dir;
    SCOPED_ENV db{"MOXDEV_DEVICE_DB_DIR", dir.path().c_str()};
};

const std::vector<std::string> ANSWERS = {"acme", "chip1", "19", "2",  "BA", "1", "20",  "0",  "n",
                                          "y",    "n",     "n",  "n",  "y",  "1", "256", "64", "400",
                                          "3",    "1800",  "5C", "5C", "0",  "4", "5",   "y",  "3.3v"};

std::string dialogue(const std::string& count, const std::vector<std::vector<std::string>>& chips)
{
    std::string input = count + "\n";
    for (const auto& answers : chips)
        for (const std::string& answer : answers)
            input += answer + "\n";
    std::istringstream in(input);
    std::ostringstream out;
    moxdev::empty_flash_manager().gen_flash_ini(in, out);
    return out.str();
}

std::vector<std::string> answers_with(std::size_t question, const std::string& answer)
{
    std::vector<std::string> answers = ANSWERS;
    answers[question] = answer;
    return answers;
}

using FIELDS = std::map<std::string, std::string>;

FLASH_TABLE table_of(const std::vector<FIELDS>& records)
{
    FLASH_TABLE table;
    for (const FIELDS& record : records)
        table.add(record);
    return table;
}

} // namespace

TEST(FlashDatabase, GeneratesTheContainerAndLoadsItWithItsSwitches)
{
    TEMP_DIR dir;
    table_of({{{"device_name", "ALPHA"}, {"manufacturer_name", "acme"}, {"ini", "none"}},
              {{"device_name", "BETA"}, {"memory_id", "0x19"}, {"device_bit_size", "268435456"}, {"ini", "QUAL_TEST"}}})
        .install(dir);
    const BYTES file = read_bytes(dir.file("programmer/mox_flash.pcf"));
    EXPECT_EQ(std::string(file.begin(), file.begin() + 40), "MOXIO_FM" + MOXDEV_FLASH_INFO_CSV_MD5);
    const WORD crc = MOXDEV_FLASH_MANAGER::calculate_crc16(file.data(), DWORD(file.size() - 2));
    EXPECT_EQ(BYTES(file.end() - 2, file.end()), (BYTES{BYTE(crc), BYTE(crc >> 8)})) << "the trailer is the checksum";
    const BYTES payload = payload_of(file);
    // Version 1, two records of 33 fields, the first field as tag, length, text.
    EXPECT_EQ(BYTES(payload.begin(), payload.begin() + 18),
              (BYTES{1, 0, 0, 0, 2, 0, 0, 0, 33, 0, 0, 0, 0x02, 4, 'a', 'c', 'm', 'e'}));
    EXPECT_EQ(BYTES(payload.end() - 4, payload.end()), (BYTES{'E', 'N', 'D', '2'}));

    // A record behind a switch loads only while the switch is on.
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    for (const char* on : {static_cast<const char*>(nullptr), "yes"}) {
        SCOPED_ENV qual("MOX_ALLOW_QUAL_TEST", on);
        MOXDEV_FLASH_MANAGER manager(false, 2, false, false);
        EXPECT_EQ(manager.get_flash_count(), on ? 2u : 1u);
        const MOXDEV_SFL_FLASH_INFO* beta = manager.get_default_flash("beta");
        ASSERT_EQ(beta != nullptr, on != nullptr);
        EXPECT_TRUE(!beta || (beta->memory_id == 0x19 && beta->device_bit_size == 268435456u &&
                              beta == manager.get_flash_database() + 1));
    }

    // Names may be upper case and heading lines 2, 3 and 7 are free text.
    FLASH_TABLE loose = table_of({{}});
    for (std::string& name : loose.lines[1])
        stl_toupper(name);
    loose.lines[2] = {"free", "text"};
    loose.lines[7] = {"x"};
    TEMP_DIR other;
    EXPECT_NO_THROW(loose.install(other));
}

TEST(FlashBinding, FirstMatchWinsInBothIdModes)
{
    TEMP_DIR dir;
    table_of(
        {{{"device_name", "ANYTYPE"}, {"memory_id", "0x17"}, {"memory_type_index", "255"}, {"program_utime", "900"}},
         {{"device_name", "EXACT"}, {"memory_id", "0x18"}, {"program_utime", "700"}},
         {{"device_name", "SILICON1"}, {"silicon_id", "TRUE"}, {"memory_id", "0x14"}, {"memory_id_index", "0"}},
         {{"device_name", "SILICON2"}, {"silicon_id", "TRUE"}, {"memory_id", "0x14"}, {"memory_id_index", "0"}}})
        .install(dir);
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    MOXDEV_FLASH_MANAGER manager(false, 3, false, false);

    BYTE any_type[3] = {0x20, 0x55, 0x17}, exact[3] = {0x20, 0xBA, 0x18}, other[3] = {0x20, 0xBB, 0x18};
    BYTE silicon[1] = {0x14};
    ASSERT_TRUE(manager.flash_id_database_mapping(false, 0, any_type));
    ASSERT_TRUE(manager.flash_id_database_mapping(false, 1, exact));
    EXPECT_FALSE(manager.flash_id_database_mapping(false, 2, other));
    EXPECT_EQ(manager.get_flash_mapping_index(2, true), INVALID_DWORD);
    EXPECT_EQ(manager.sfl_get_chain_longest_program_utime(), 900u) << "over the bound devices";
    ASSERT_TRUE(manager.flash_id_database_mapping(true, 2, silicon));
    EXPECT_EQ(manager.sfl_get_device_name(0) + " " + manager.sfl_get_device_name(1) + " " +
                  manager.sfl_get_device_name(2),
              "ANYTYPE EXACT SILICON1");
    // A counted ID that is too short for a record's index does not match it.
    EXPECT_FALSE(moxdev::bind_flash(manager, false, 2, exact, 2));

    manager.set_flash_mapping_index(0, 3);
    EXPECT_EQ(manager.sfl_get_device_name(0), "SILICON2");
    // Copies share the binding.
    MOXDEV_FLASH_MANAGER copy(manager);
    EXPECT_EQ(copy.get_flash_database(), manager.get_flash_database());
    EXPECT_EQ(copy.sfl_get_device_name(1), "EXACT");
}

TEST(FlashBinding, AccessorsReturnEveryFieldOfTheBoundRecord)
{
    TEMP_DIR dir;
    table_of({{}}).install(dir);
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    MOXDEV_FLASH_MANAGER manager(false, 1, false, false);
    manager.set_flash_mapping_index(0, 0);
    MOXDEV_SFL_FLASH_INFO through_accessors;
#define MOXDEV_FLASH_FIELD(name, stream_type, type) through_accessors.name = manager.sfl_get_##name(0);
#include "moxdev/moxdev_flash_info_fields.def"
    EXPECT_EQ(moxdev_flash_info_to_text(through_accessors), moxdev_flash_info_to_text(manager.get_flash_database()[0]));
    EXPECT_EQ(through_accessors.device_bit_size, 134217728u);
    EXPECT_EQ(through_accessors.bottom_value, 5);
    EXPECT_EQ(through_accessors.asc_voltage, "3.3V");

    for (auto [value, power] : {std::pair{0u, false}, {1u, true}, {0x80000000u, true}, {6u, false}, {~0u, false}})
        EXPECT_EQ(MOXDEV_FLASH_MANAGER::is_power_of_two(value), power) << value;
    EXPECT_EQ(MOXDEV_FLASH_MANAGER::to_string(255, true) + MOXDEV_FLASH_MANAGER::to_string(INVALID_DWORD, false),
              "-1-1");
    EXPECT_EQ(MOXDEV_FLASH_MANAGER::to_string(255, false), "255");
    EXPECT_EQ(MOXDEV_FLASH_MANAGER::to_string(0x80000000u, false), "-2147483648");
}

// Every refusal of the database, its generation and its binding, with the
// condition it reports.
TEST(FlashDatabase, RefusalsReportTheirCondition)
{
    TEMP_DIR dir;
    const std::string pcf = dir.file("programmer/mox_flash.pcf");
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    const FLASH_TABLE typical = table_of({{}});
    typical.install(dir);
    MOXDEV_FLASH_MANAGER chain(false, 3, false, false); // nothing bound

    // Generates `table` over the typical table's file and loads it; a refused
    // generation keeps the earlier file.
    auto load = [&](const FLASH_TABLE& table, DWORD devices = 1) {
        typical.install(dir);
        const BYTES earlier = read_bytes(pcf);
        try {
            table.install(dir);
        } catch (const MSG_INTERNAL_ERROR&) {
            EXPECT_EQ(read_bytes(pcf), earlier) << "the earlier file is kept";
            throw;
        }
        return MOXDEV_FLASH_MANAGER(false, devices, false, false);
    };
    auto heading = [&](std::size_t line, std::size_t cell, const char* text) {
        FLASH_TABLE table = typical;
        table.lines[line][cell] = text;
        return table;
    };
    auto damaged = [&](std::function<void(BYTES&)> damage) {
        return [&, damage] {
            typical.install(dir);
            BYTES file = read_bytes(pcf);
            damage(file);
            write_bytes(pcf, file);
            MOXDEV_FLASH_MANAGER(false, 1, false, false);
        };
    };
    BYTE id[3] = {0x20, 0xBA, 0x18};
    const std::string all_bound = "m_device_to_flash_map != NULL && device < m_device_count && "
                                  "m_flash_database != NULL && m_flash_count > 0";

    const struct {
        const char* what;
        std::function<void()> run;
        std::string condition;
    } cases[] = {
        {"no records", [&] { load(table_of({})); }, "status && device_count > 0"},
        {"a lower-case bool",
         [&] {
             load(table_of({{{"micron_flow", "true"}}}));
         },
         "string == \"FALSE\" || string == \"TRUE\""},
        {"a blank in a cell",
         [&] {
             load(table_of({{{"device_name", "TWO WORDS"}}}));
         },
         "DWORD(svec.size()) == TOTAL_DATABASE_MEMBER"},
        {"a wrong type", [&] { load(heading(0, 2, "BYTE")); }, "svec.at(i) == \"bool\""},
        {"a wrong name", [&] { load(heading(1, 5, "memory_tipe")); }, "temp == m_name_list[i]"},
        {"a short unit line",
         [&] {
             FLASH_TABLE table = typical;
             table.lines[4].pop_back();
             load(table);
         },
         "DWORD(svec.size()) == TOTAL_DATABASE_MEMBER"},
        {"two defaults of a name",
         [&] {
             load(table_of({{{"device_name", "SAME"}}, {{"device_name", "same"}, {"memory_id", "0x19"}}}));
         },
         "!one_default"},
        {"no default of a name",
         [&] {
             load(table_of({{{"device_name", "SAME"}, {"default_dev", "FALSE"}}}));
         },
         "one_default"},
        {"the default switched off, another record on",
         [&] {
             load(table_of({{{"device_name", "SAME"}, {"ini", "QUAL_OFF"}},
                            {{"device_name", "SAME"}, {"default_dev", "FALSE"}}}));
         },
         "one_default"},
        {"a chain of no devices", [&] { load(typical, 0); }, "count > 0"},
        {"binding with every record off",
         [&] {
             load(table_of({{{"ini", "QUAL_OFF"}}})).flash_id_database_mapping(false, 0, id);
         },
         "m_flash_database != NULL && m_flash_count > 0"},
        {"a cut file", damaged([](BYTES& file) { file.resize(46); }), "file_size > (8 + 32 + 4 + 2)"},
        // Sizes and counts the file cannot hold are refused before memory is
        // set aside, with the condition that reading them would fail.
        {"4 GiB announced", damaged([](BYTES& file) { std::fill(file.begin() + 40, file.begin() + 44, 0xFF); }),
         "new_dcmp_size == original_count"},
        {"a huge record count", damaged([](BYTES& file) {
             BYTES payload = payload_of(file);
             std::fill(payload.begin() + 4, payload.begin() + 8, 0xFF);
             file = make_database_file("MOXIO_FM", MOXDEV_FLASH_INFO_CSV_MD5, payload);
         }),
         "type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING"},
        {"a table that is not there",
         [&] { moxdev::empty_flash_manager().generate_flash_database(dir.file("none.csv"), pcf); },
         "status && device_count > 0"},
        {"another identifier", damaged([](BYTES& file) { file[8] ^= 1; }), "Mismatch ID between flash file and reader"},
        {"another version", damaged([](BYTES& file) {
             BYTES payload = payload_of(file);
             payload[0] = 7;
             file = make_database_file("MOXIO_FM", MOXDEV_FLASH_INFO_CSV_MD5, payload);
         }),
         "Mismatch version between flash file and reader"},
        {"another magic", damaged([](BYTES& file) {
             file = make_database_file("MOXIO_DM", MOXDEV_FLASH_INFO_CSV_MD5, payload_of(file));
         }),
         "data[index++] == 'M' && data[index++] == 'O' && data[index++] == 'X' && data[index++] == 'I' && "
         "data[index++] == 'O' && data[index++] == '_' && data[index++] == 'F' && data[index++] == 'M'"},
        {"no file",
         [&] {
             std::filesystem::remove(pcf);
             MOXDEV_FLASH_MANAGER(false, 1, false, false);
         },
         "FIO_FILE_SYSTEM::exists(flash_file.fullpath().c_str()) && "
         "FIO_FILE_SYSTEM::status(flash_file.fullpath().c_str(), &stat_info)"},
        {"binding device 3 of 3", [&] { chain.flash_id_database_mapping(false, 3, id); },
         "device_index < m_device_count"},
        {"a field of device 3 of 3", [&] { chain.sfl_get_memory_id(3); }, all_bound},
        {"binding record 1 of 1", [&] { chain.set_flash_mapping_index(0, 1); },
         all_bound + " && index < m_flash_count"},
        {"the record of an unbound device", [&] { chain.get_flash_mapping_index(2, false); }, "index != INVALID_DWORD"},
        {"a field of an unbound device", [&] { chain.sfl_get_program_utime(2); }, "index != INVALID_DWORD"},
        {"the longest time of an unbound chain", [&] { chain.sfl_get_chain_longest_program_utime(); }, "found"},
        {"the check value of nothing", [&] { chain.gen_ini_password(""); }, "total_size > 0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_INTERNAL_ERROR_IN(c.run(), c.condition, "moxdev_flash_manager");
    }
}

TEST(UserFlashEncoding, SixBitsPerCharacterAndAVersionBoundCheckValue)
{
    EXPECT_EQ(crc16_xmodem("123456789"), 0x31C3) << "the reference CRC itself";
    const std::string text = DEFINITION + "#ABCDEFGHIJKLMNOP;";
    EXPECT_EQ(CODEC.encode_ini(text), six_bit_text(deflated(text, Z_BEST_COMPRESSION)));
    // Decoding does not depend on how the stream was compressed.
    EXPECT_EQ(CODEC.decode_ini(six_bit_text(deflated(text, 1))), text);
    EXPECT_EQ(six_bit_text(BYTES{0xFF, 0xFF, 0xFF}) + six_bit_text(BYTES{0x3E}), "----@0")
        << "least significant bit first, 3 bytes give 4 characters";
    testing::internal::CaptureStdout();
    EXPECT_EQ(CODEC.decode_ini("abc!def"), "");
    EXPECT_EQ(CODEC.decode_ini("0000"), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Invalid INI decoding\nFail to generate INI because of decompression failure\n");

    const std::string check = CODEC.gen_ini_password(DEFINITION);
    EXPECT_EQ(check, check_value(DEFINITION));
    EXPECT_TRUE(check.size() == 16 && check.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string::npos);
    EXPECT_TRUE(CODEC.cmp_ini_password(check, DEFINITION));
    EXPECT_FALSE(CODEC.cmp_ini_password(check, replace_field(DEFINITION, 25, "1900")));
    EXPECT_NE(check_value(DEFINITION, "Nimbrel Version: 0.1 Build 2"), check);
    EXPECT_EQ(CODEC.gen_ini_password("x").size(), 16u);
}

// A value is used only when it decodes, its check value is this version's and
// every field is valid; a refused one is dropped silently unless the debug
// switch asks for the reason.
TEST_F(UserFlash, ValuesAreCheckedBeforeUse)
{
    const std::string foreign = check_value(DEFINITION, "Nimbrel Version: 0.1 SP2 Build 77");
    const struct {
        std::string value;
        const char* field; // with its text, when the value is used
        std::string text_or_reason;
    } cases[] = {
        {value_of(replace_field(DEFINITION, 1, "chip2")), "device_name", "CHIP2"},
        {value_of(replace_field(DEFINITION, 19, "-2147483648")), "device_bit_size", "2147483648"},
        {value_of(replace_field(DEFINITION, 3, "255")), "memory_id", "0xFF"},
        // A text without its closing @ loses the last value.
        {value_of(DEFINITION.substr(0, DEFINITION.size() - 1)), "asc_voltage", ""},
        {value_of(replace_field(DEFINITION, 2, "Y")), nullptr, "Fail to check the validity of the INI\n"},
        {value_of(replace_field(DEFINITION, 2, "true")), nullptr, "Fail to check the validity of the INI\n"},
        {value_of(replace_field(DEFINITION, 3, "256")), nullptr, "Fail to check the validity of the INI\n"},
        {value_of(replace_field(DEFINITION, 6, "-1")), nullptr, "Fail to check the validity of the INI\n"},
        {CODEC.encode_ini(DEFINITION + "#" + foreign + ";"), nullptr, "Fail to compare INI password\n"},
        {CODEC.encode_ini(DEFINITION + "#;"), nullptr, "Password : \n"},
        {CODEC.encode_ini(DEFINITION + check_value(DEFINITION) + ";"), nullptr, "Definition : \n"},
        {CODEC.encode_ini(DEFINITION + ";" + check_value(DEFINITION) + "#"), nullptr, "Definition : \n"},
        {"not*a*value", nullptr, "Invalid INI decoding\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        std::string output;
        auto manager = load(c.value, false, output);
        EXPECT_EQ(output, "");
        ASSERT_EQ(manager->get_flash_count(), c.field ? 2u : 1u);
        for (const auto& [name, text] : moxdev_flash_info_to_text(manager->get_flash_database()[0]))
            EXPECT_TRUE(!c.field || name != c.field || text == c.text_or_reason) << name << " " << text;
        if (!c.field) {
            load(c.value, true, output);
            EXPECT_NE(output.find(c.text_or_reason), std::string::npos) << output;
        }
    }
}

// A definition whose device name is empty decodes, converts and checks, but
// the loader takes a nameless record for no user flash: the project's reader
// says the same (found by the fuzz target).
TEST_F(UserFlash, AValueWithoutADeviceNameDefinesNoUserFlash)
{
    const std::string value = value_of(replace_field(DEFINITION, 1, ""));
    std::string output, error;
    EXPECT_EQ(load(value, false, output)->get_flash_count(), 1u);
    moxdev::USER_FLASH_CONTENT content;
    ASSERT_TRUE(moxdev::read_user_flash_value(value, content, error)) << error;
    EXPECT_TRUE(content.fields_valid && content.check_matches);
    EXPECT_FALSE(content.accepted());
}

// The prompts of the definition dialogue, in order.
// clang-format off
const char* const PROMPTS[] = {
    "Manufacture Name : ", "Device Name : ", "Memory ID (hex) [1 - FE] : ", "Memory ID Index [0/1/2] : ",
    "Memory Type (hex) [0 - FF] : ", "Memory Type Index [-1/0/1/2] : ", "Manufacturer ID (hex) [1 - FE] : ",
    "Manufacturer ID Index [0/1/2] : ", "Support Extended Mode [Y/N] : ", "Micron flow [Y/N] : ",
    "Spansion flow [Y/N] : ", "Protected after power-up [Y/N] : ", "Is AAI mode [Y/N] : ",
    "Read flag status [Y/N] : ", "Die count [1/2] : ", "Memory Density [1 - 2048 Mbit] : ",
    "Sector Size [1 - 1024 Kbyte] : ", "Bulk Erase time [1 - 900 seconds] : ",
    "Sector Erase Time [1 - 60 seconds] : ", "Page Program Time [1000 - 1000000 microseconds] : ",
    "Protection Mask (hex) [0 - FF] : ", "Protection Value (hex) [0 - FF] : ", "Unprotect Value (hex) [0 - FF] : ",
    "Protection Divisor (hex) [-1/3 - 20] : ", "Bottom Value (bit location) [-1/0 - 7] : ", "SDM Support [Y/N] : ",
    "AS Configuration Voltage : "};
// clang-format on

// The first `count` prompts, as the dialogue prints them one after another.
std::string prompts(std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += PROMPTS[i];
    return text;
}

// The whole conversation, word for word: a refused answer ends the dialogue
// at once, and "-1" is written back as "-1", which the loader then refuses.
TEST_F(UserFlash, TheDialogueIsOneChancePerAnswer)
{
    const std::string count = "Number of 3rd party flash to define (max 3) : ";
    EXPECT_EQ(dialogue("4", {}), count + "Invalid input or too many flash to define\n");
    EXPECT_EQ(dialogue("", {}), count + "Invalid input or too many flash to define\n");
    EXPECT_EQ(dialogue("1", {answers_with(3, "3")}), count + prompts(4) + "Invalid input\n");
    EXPECT_EQ(dialogue("1", {answers_with(0, "")}), count + prompts(1) + "Empty name or name too long\n");
    // The three ID positions are compared only after the last answer.
    EXPECT_EQ(dialogue("1", {answers_with(5, "2")}),
              count + prompts(27) + "Memory ID, Memory Type and Manufacturer ID index cannot be at the same location");

    std::vector<std::string> answers = ANSWERS;
    answers[5] = answers[23] = answers[24] = "-1";
    const std::string definition =
        "@ACME@CHIP1@0@25@2@186@-1@32@0@32@1@NONE@0@1@0@0@0@1@1@268435456@65536@0@1@400@3@1800@92@92@0@-1@-1@1@3.3V@";
    const std::string text = definition + "#" + check_value(definition) + ";";
    const std::string value = CODEC.encode_ini(text);
    EXPECT_EQ(dialogue("1", {answers}),
              count + prompts(27) + "Prompt outcome: " + definition + "\nRaw: " + text + "\nINI : " + value + "\n");
    std::string output;
    EXPECT_EQ(load(value, false, output)->get_flash_count(), 1u) << "the loader refuses -1";
    load(value, true, output);
    EXPECT_NE(output.find("Fail to check the validity of the INI\n"), std::string::npos) << output;

    // A second chip that fails ends the dialogue: nothing is encoded.
    const std::string two = dialogue("2", {ANSWERS, {"acme", "chip2", "0"}});
    EXPECT_NE(two.find("Prompt outcome: @ACME@CHIP1@"), std::string::npos) << two;
    EXPECT_EQ(two.substr(two.size() - 14), "Invalid input\n");
    EXPECT_EQ(two.find("Raw: "), std::string::npos) << two;
}

// Each answer is judged as its prompt says, upper-cased first.
TEST(UserFlashDialogue, EveryAnswerIsJudgedByItsRange)
{
    const struct {
        std::size_t question;
        const char* answer;
        const char* field; // the definition field it becomes, or null: refused
    } cases[] = {
        {2, "0", nullptr},
        {2, "FE", "@254@"},
        {2, "fe", "@254@"},
        {2, "FF", nullptr},
        {3, "3", nullptr},
        {15, "3", nullptr},
        {15, "2048", "@-2147483648@"},
        {15, "4096", nullptr},
        {16, "1024", "@1048576@"},
        {16, "2048", nullptr},
        {8, "yes", nullptr},
        {8, "y", "@1@"},
        {17, "901", nullptr},
        {19, "999", nullptr},
        {23, "2", nullptr},
        {23, "20", "@32@"},
        {24, "8", nullptr},
        {14, "3", nullptr},
        {1, "ABCDEFGHIJKLMNOPQRST", nullptr},
        {26, "", nullptr},
        {1, "A@B", "@A@B@"},
        {1, " chip ", "@ CHIP @"},
        {5, "-1", "@-1@"},
        {4, "-1", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.question) + " " + c.answer);
        const std::string output = dialogue("1", {answers_with(c.question, c.answer)});
        if (c.field == nullptr) {
            EXPECT_EQ(output.find("Prompt outcome"), std::string::npos) << output;
            continue;
        }
        const std::size_t outcome = output.find("Prompt outcome: ");
        ASSERT_NE(outcome, std::string::npos) << output;
        EXPECT_NE(output.find(c.field, outcome), std::string::npos) << output;
        EXPECT_NE(output.find("INI : "), std::string::npos) << output;
    }
}

// The project's dialogue explains a refused answer and asks again, takes
// "none" for an unused field and makes a value the loader takes.
TEST_F(UserFlash, TheForgivingDialogueMakesAUsableValue)
{
    std::vector<std::string> answers = ANSWERS;
    answers[5] = "none";
    answers[23] = "FF";
    answers[24] = "-1";
    std::string input = "7\n 1 \n";
    for (std::size_t q = 0; q < answers.size(); ++q)
        input += (q == 3 ? "3\n" : q == 7 ? "2\n" : "") + answers[q] + "\n";
    std::istringstream in(input);
    std::ostringstream out;
    moxdev::USER_FLASH_DEFINITION definition;
    std::string error;
    ASSERT_TRUE(moxdev::define_user_flash(in, out, definition, error)) << error;
    EXPECT_NE(out.str().find("Invalid input: a number from 0 to 2 is needed; try again\n"), std::string::npos);
    EXPECT_NE(out.str().find("cannot be at the same location: another ID byte is read from there; try again\n"),
              std::string::npos);
    std::string output;
    const auto manager = load(definition.value, false, output);
    ASSERT_EQ(manager->get_flash_count(), 2u);
    EXPECT_EQ(moxdev_flash_info_to_text(manager->get_flash_database()[0]),
              moxdev_flash_info_to_text(definition.chips.at(0)));
    EXPECT_EQ(manager->get_flash_database()[0].memory_type_index, 255);

    std::istringstream cut("1\nacme\n");
    EXPECT_FALSE(moxdev::define_user_flash(cut, out, definition, error));
    EXPECT_EQ(error, "the answers ended before 'Device Name' was answered");
}
