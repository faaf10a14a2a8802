// The moxdev command finding and explaining flash chips: show, list filters,
// identify's explanations, the definition dialogue's second chances, one
// vocabulary for text and JSON, and generate's refusals of bad input.
#include "test_support.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <functional>
#include <sstream>

using namespace moxdev_test;
using JSON = nlohmann::ordered_json;

namespace {

int flash(const std::string& arguments, std::string& output, const std::string& environment = "")
{
    return run_command(environment + " " + MOXDEV_CLI + " flash " + arguments, output, true);
}

JSON flash_json(const std::string& arguments)
{
    std::string output;
    EXPECT_EQ(run_command(std::string(MOXDEV_CLI) + " flash " + arguments + " --json", output), 0) << arguments;
    return JSON::parse(output);
}

// Status 1, the refusal first, holding `expected`.
void expect_refusal(const std::string& arguments, const std::string& expected, const std::string& environment = "")
{
    std::string output;
    EXPECT_EQ(flash(arguments, output, environment), 1) << arguments << "\n" << output;
    EXPECT_EQ(output.rfind("moxdev: ", 0), 0u) << arguments << "\n" << output;
    EXPECT_NE(output.find(expected), std::string::npos) << arguments << "\n" << output;
}

std::string upper(std::string text)
{
    for (char& c : text)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

TEST(CliFlashFind, ShowGivesEveryRecordOfANameInBothForms)
{
    // Every record of the name, counted independently from the full listing.
    const JSON all = flash_json("list --all");
    std::size_t variants = 0;
    for (const JSON& entry : all)
        variants += entry["record"]["device_name"] == "W25Q128JW" ? 1 : 0;
    ASSERT_GT(variants, 1u);

    std::string text;
    ASSERT_EQ(flash("show w25q128jw", text), 0) << text;
    const JSON shown = flash_json("show W25q128JW");
    ASSERT_EQ(shown.size(), variants);
    for (const JSON& entry : shown)
        EXPECT_NE(text.find(upper(entry["record"]["device_name"].get<std::string>())), std::string::npos);
    EXPECT_NE(text.find("EF 60 18"), std::string::npos) << text;
    EXPECT_NE(text.find("EF 80 18"), std::string::npos) << text;

    // A switched-off chip is shown, and said to be unusable.
    ASSERT_EQ(flash("show MT25QL02G", text), 0) << text;
    EXPECT_NE(text.find("not usable while MOX_ALLOW_QUAL_2GBIT is off"), std::string::npos) << text;
    EXPECT_TRUE(flash_json("show MT25QL02G")[0]["index"].is_null());

    expect_refusal("show mt25ql255", "did you mean MT25QL256");
    expect_refusal("show nosuchchip", "no flash named 'nosuchchip'");
}

TEST(CliFlashFind, ListFiltersCombineAndAgreeWithTheWholeTable)
{
    const JSON all = flash_json("list");
    struct CASE {
        const char* arguments;
        std::function<bool(const JSON&)> wanted;
    };
    const CASE cases[] = {
        {"'w25q*'", [](const JSON& r) { return upper(r["device_name"].get<std::string>()).rfind("W25Q", 0) == 0; }},
        {"'MT25Q?256'", [](const JSON& r) { return r["device_name"] == "MT25QL256" || r["device_name"] == "MT25QU256"; }},
        {"--size 512K", [](const JSON& r) { return r["device_bit_size"] == 512u << 10; }},
        {"--size 1G --voltage 3.3", [](const JSON& r) { return r["device_bit_size"] == 1u << 30 && r["asc_voltage"] == "3.3V"; }},
        {"'W25Q*' --size 128m --voltage 1.8V --maker winbond",
         [](const JSON& r) {
             return upper(r["device_name"].get<std::string>()).rfind("W25Q", 0) == 0 && r["device_bit_size"] == 128u << 20 &&
                    r["asc_voltage"] == "1.8V";
         }},
    };
    for (const CASE& c : cases) {
        SCOPED_TRACE(c.arguments);
        std::vector<unsigned> expected, got;
        for (const JSON& entry : all) {
            if (c.wanted(entry["record"]))
                expected.push_back(entry["index"].get<unsigned>());
        }
        for (const JSON& entry : flash_json(std::string("list ") + c.arguments))
            got.push_back(entry["index"].get<unsigned>());
        ASSERT_FALSE(expected.empty());
        EXPECT_EQ(got, expected);
        // The text form lists the same records and closes with their count.
        std::string text;
        ASSERT_EQ(flash(std::string("list ") + c.arguments, text), 0) << text;
        EXPECT_NE(text.find("\n" + std::to_string(expected.size()) + " records: "), std::string::npos) << text;
    }

    expect_refusal("list 'ZZ*'", "no flash record named ZZ*");
    expect_refusal("list 'W25Q*' --maker micron", "no flash record named W25Q*, of the maker 'micron'");
    expect_refusal("list --maker winbnd", "did you mean WINBOND");
    expect_refusal("list --size 3X", "not a density");
    expect_refusal("list --voltage 5", "not a flash voltage");
}

TEST(CliFlashFind, IdentifySaysWhyNothingMatched)
{
    const std::pair<const char*, const char*> cases[] = {
        {"20 BA 22", "MICRON MT25QL02G needs MOX_ALLOW_QUAL_2GBIT=1"},
        {"FF FF FF", "\nhint: all bytes FF: no chip answered; check the wiring, the chip select"},
        {"00 00 00", "\nhint: all bytes 00: no chip answered"},
        {"19 BA 20", "\nhint: in the other byte order, 20 BA 19, they are MICRON MT25QL256"},
        {"EF 40 99", "\nhint: this maker and type are known with the capacity bytes 12 "},
    };
    for (const auto& [bytes, expected] : cases)
        expect_refusal(std::string("identify ") + bytes, expected);
    // Nothing to say: the error line alone.
    std::string output;
    EXPECT_EQ(flash("identify 12 34 56", output), 1);
    EXPECT_EQ(output, "moxdev: no known flash matches 12 34 56 (device ID: manufacturer, type, capacity)\n");
}

TEST(CliFlashFind, DialogueAsksAgainAndStoresOnlyUsableValues)
{
    // Good answers, with "none"-style answers for the three optional fields.
    std::vector<std::string> answers = {"acme", "chip1", "19", "2", "BA", "-1", "20", "0", "n", "y", "n", "n",
                                        "n", "y", "1", "256", "64", "400", "3", "1800", "5C", "5C", "0",
                                        "ff", "none", "y", "3.3v"};
    // A refused answer before each of some good ones: the question comes again.
    const std::pair<std::size_t, const char*> refused[] = {
        {0, "ac@me"}, {1, "chip#1"}, {26, "3.3;V"}, {3, "3"}, {7, "2"}, {23, "2"}, {24, "8"}, {15, "3"}, {8, "yes"}};
    std::string input = "0\n1\n";
    for (std::size_t q = 0; q < answers.size(); ++q) {
        for (const auto& [question, answer] : refused)
            input += question == q ? std::string(answer) + "\n" : "";
        input += answers[q] + "\n";
    }
    std::istringstream in(input);
    std::ostringstream out;
    MOXDEV_FLASH_MANAGER(false, 1, true, false).gen_flash_ini(in, out);
    const std::string text = out.str();
    EXPECT_NE(text.find("answer 1, 2 or 3"), std::string::npos) << text;
    std::size_t again = 0;
    for (std::size_t at = text.find("; try again\n"); at != std::string::npos; at = text.find("; try again\n", at + 1))
        ++again;
    EXPECT_EQ(again, std::size(refused)) << text;
    EXPECT_NE(text.find("Prompt outcome: @ACME@CHIP1@0@25@2@186@255@32@0@"), std::string::npos) << text;
    EXPECT_NE(text.find("@255@255@1@3.3V@\n"), std::string::npos) << text;
    const std::size_t ini = text.find("INI : ");
    ASSERT_NE(ini, std::string::npos) << text;

    // The value is one the loader takes, and --input gives the same one.
    const std::string value = text.substr(ini + 6, text.find('\n', ini) - ini - 6);
    std::string output;
    ASSERT_EQ(flash("decode '" + value + "'", output), 0) << output;
    EXPECT_NE(output.find("fields: valid"), std::string::npos) << output;
    TEMP_DIR dir;
    write_text(dir.file("answers.txt"), input);
    ASSERT_EQ(flash("define --input " + dir.file("answers.txt"), output), 0) << output;
    EXPECT_NE(output.find("export MOX_SUPPORT_EXT_SPI_DEV='" + value + "'"), std::string::npos) << output;

    // Answers that end early stop the dialogue with no value; several chips
    // are warned about.
    write_text(dir.file("short.txt"), "2\nacme\n");
    EXPECT_EQ(flash("define --input " + dir.file("short.txt"), output), 1);
    EXPECT_NE(output.find("uses only the first definition"), std::string::npos) << output;
    EXPECT_NE(output.find("The answers ended"), std::string::npos) << output;
    expect_refusal("define --input " + dir.file("missing.txt"), "cannot read");
}

TEST(CliFlashFind, TextAndJsonShowTheSameValues)
{
    // A chip with an unused field, booleans of both values and hex IDs.
    std::string text;
    ASSERT_EQ(flash("show MT25QL256", text), 0) << text;
    const JSON record = flash_json("show MT25QL256")[0]["record"];
    ASSERT_TRUE(record["protection_division"].is_null());
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    std::size_t compared = 0;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string name, shown;
        words >> name >> shown;
        ASSERT_TRUE(record.contains(name)) << line;
        // Every value starts in the same column.
        EXPECT_EQ(line.find(shown, 2 + name.size()), 23u) << line;
        const JSON& value = record[name];
        if (value.is_null())
            EXPECT_EQ(shown, "none");
        else if (value.is_boolean())
            EXPECT_EQ(shown, value.get<bool>() ? "true" : "false");
        else if (value.is_string())
            EXPECT_EQ(shown, value.get<std::string>());
        else
            EXPECT_EQ(std::stoul(shown, nullptr, 0), value.get<unsigned long>()) << name;
        ++compared;
    }
    EXPECT_EQ(compared, record.size());
}

TEST(CliFlashFind, GenerateRefusesBadInputAsUserErrors)
{
    TEMP_DIR dir;
    const std::string csv = source_path("data/mox_flash.csv");
    std::vector<std::string> table;
    {
        std::ifstream in(csv);
        for (std::string line; std::getline(in, line);)
            table.push_back(line);
    }
    // The first record line (file line 9), one cell replaced or the line added twice.
    auto with = [&](std::size_t cell, const std::string& value) {
        std::vector<std::string> lines = table;
        std::vector<std::string> cells;
        std::stringstream split(lines[8]);
        for (std::string c; std::getline(split, c, ',');)
            cells.push_back(c);
        std::string joined;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (i == cell && value.empty())
                continue;
            joined += (joined.empty() ? "" : ",") + (i == cell ? value : cells[i]);
        }
        lines[8] = joined;
        if (cell == 10)
            lines.push_back(joined);
        std::string text;
        for (const std::string& l : lines)
            text += l + "\n";
        return text;
    };
    const std::pair<std::string, std::string> cases[] = {
        {with(3, "0x1FF"), "bad.csv:9: column 4 (memory_id): 0x1FF does not fit a BYTE (0 to 255)"},
        {with(19, "3000000"), "bad.csv:9: column 20 (device_bit_size): the density 3000000 is not a power of two"},
        {with(5, ""), "bad.csv:9: 32 cells; a flash record line has 33"},
        {with(12, "yes"), "bad.csv:9: column 13 (extended_mode): 'yes' is not TRUE or FALSE"},
        {with(10, "TRUE"), "column 11 (default_dev): a second default record for VCS4 (the first is on line 9)"},
    };
    for (const auto& [text, expected] : cases) {
        write_text(dir.file("bad.csv"), text);
        expect_refusal("generate " + dir.file("bad.csv") + " " + dir.file("out.pcf"), expected);
    }

    const std::pair<std::string, std::string> places[] = {
        {"generate " + dir.file("none.csv") + " " + dir.file("out.pcf"), "no such file"},
        {"generate " + csv + " ''", "the output file name is empty"},
        {"generate " + csv + " " + dir.path(), "it is a directory"},
        {"generate " + csv + " " + dir.file("no/out.pcf"), "does not exist"},
        // Refused even to a privileged user.
        {"generate " + csv + " /proc/out.pcf", "cannot write '/proc/out.pcf'"},
    };
    for (const auto& [arguments, expected] : places)
        expect_refusal(arguments, expected);
    expect_refusal("list", dir.path() + "/programmer/mox_flash.pcf does not exist; MOXDEV_DEVICE_DB_DIR",
                   "MOXDEV_DEVICE_DB_DIR=" + dir.path());
}
