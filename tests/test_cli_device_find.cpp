// The moxdev command finding devices: list filters, every name form, "did you
// mean", value listings, and the user mistakes that must not look like
// internal errors.
#include "test_support.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

using namespace moxdev_test;

namespace {

int moxdev(const std::string& arguments, std::string& output, const std::string& environment = "")
{
    return run_command(environment + " " + MOXDEV_CLI + " " + arguments, output, true);
}

std::size_t lines(const std::string& text)
{
    return std::size_t(std::count(text.begin(), text.end(), '\n'));
}

// A refusal: status 1 and one line "moxdev: ..." holding `expected`.
void expect_user_error(const std::string& arguments, const std::string& expected,
                       const std::string& environment = "")
{
    std::string output;
    EXPECT_EQ(moxdev(arguments, output, environment), 1) << arguments << "\n" << output;
    EXPECT_EQ(output.rfind("moxdev: ", 0), 0u) << arguments << "\n" << output;
    EXPECT_EQ(lines(output), 1u) << arguments << "\n" << output;
    EXPECT_NE(output.find(expected), std::string::npos) << arguments << "\n" << output;
}

} // namespace

TEST(CliDeviceFind, ListFiltersByFamilyAndDevice)
{
    const DEV_PART_MANAGER catalogue;
    const DEV_DEVICE_ENUM kxb100 = dstr_get_dev_device_enum_by_string("KXB100");
    const DEV_FAMILY_ENUM kestrel = catalogue.get_family_of(kxb100);
    std::size_t family_devices = 0, device_parts = 0;
    for (int d = 1; d < DEV_DEVICE_MAX; ++d)
        family_devices += catalogue.get_family_of(DEV_DEVICE_ENUM(d)) == kestrel;
    for (int p = 1; p < DEV_PART_MAX; ++p)
        device_parts += catalogue.get_device_of(p) == kxb100;

    const std::pair<std::string, std::size_t> listings[] = {
        {"--family 'kestrel ii' --by device", family_devices},
        {"--family kestrel_ii --device kxb100 --by part", device_parts},
        {"--device KXB100 --by family", 1},
    };
    std::string output;
    for (const auto& listing : listings) {
        ASSERT_EQ(moxdev("device list " + listing.first, output), 0) << listing.first << "\n" << output;
        EXPECT_EQ(lines(output), listing.second) << listing.first;
    }
    // The part with a record of its own is listed with it.
    ASSERT_EQ(moxdev("device list --device kxb100 --by part", output), 0);
    EXPECT_NE(output.find("KXB100F484C6"), std::string::npos);
    EXPECT_NE(output.find("kestrel2_kxb100"), std::string::npos) << output;

    // Records: the family's own and the one a part of it has; nobody else's.
    ASSERT_EQ(moxdev("device list --family KESTREL_II", output), 0) << output;
    EXPECT_NE(output.find(" kestrel2\n"), std::string::npos) << output;
    EXPECT_NE(output.find(" kestrel2_kxb100\n"), std::string::npos) << output;
    EXPECT_EQ(output.find("wren1"), std::string::npos) << output;
    EXPECT_NE(output.find(" of 79 records"), std::string::npos) << output;
    ASSERT_EQ(moxdev("device list --family KESTREL_II --full", output), 0);
    EXPECT_NE(output.find("support_vab"), std::string::npos);

    expect_user_error("device list --family kestrel_iii_x", "no family is named 'kestrel_iii_x'");
    expect_user_error("device list --family kestrl_ii", "did you mean KESTREL_II");
    expect_user_error("device list --device kxb10O", ", KXB100,");
    expect_user_error("device list --family wren_i --device kxb100", "is of family Kestrel II, not Wren I");
}

// Every form `name` prints for a part is a name `device show` and `name`
// take, and each leads back to the same device or family.
TEST(CliDeviceFind, EveryPrintedFormIsAccepted)
{
    std::string forms;
    ASSERT_EQ(moxdev("name kxb120f484i7", forms), 0);
    std::istringstream in(forms);
    std::string line;
    int checked = 0;
    while (std::getline(in, line)) {
        const std::string label = line.substr(0, 28), value = line.substr(29);
        if (value == "-" || label.find("OPN") == 0 || label.find("use ") == 0)
            continue;
        std::string output;
        EXPECT_EQ(moxdev("device show " + value, output), 0) << label << " " << value << "\n" << output;
        EXPECT_NE(output.find("record"), std::string::npos) << value << "\n" << output;
        // The family's record, or a list holding the family or the device.
        EXPECT_TRUE(output.find("KESTREL_II") != std::string::npos || output.find("KXB120 ") != std::string::npos)
            << value << "\n" << output;
        EXPECT_EQ(moxdev("name " + value, output), 0) << value << "\n" << output;
        EXPECT_NE(output.find("KX_FAMILY"), std::string::npos) << value << "\n" << output;
        ++checked;
    }
    EXPECT_EQ(checked, 9);

    // One device or family: its record whole; several: each with its record.
    const std::pair<const char*, const char*> shows[] = {
        {"kxb120f484", "KXB120F484: name without speed grade of device KXB120\nKXB120: device"},
        {"kxfamily2", "KXFAMILY2: family name of family Kestrel II\nKestrel II: family"},
        {"kxb100_v1", "KXB100_V1: catalogue configuration of device KXB100\n"},
        {"kxb100m", "KXB100M: programmer part of 4 devices\n  KXB100 "},
    };
    for (const auto& show : shows) {
        std::string output;
        ASSERT_EQ(moxdev(std::string("device show ") + show.first, output), 0) << output;
        EXPECT_EQ(output.rfind(show.second, 0), 0u) << output;
    }
}

TEST(CliDeviceFind, UnknownNamesOfferTheClosest)
{
    const std::pair<const char*, const char*> cases[] = {
        {"device show kxb100f484c9", "KXB100F484C6"},
        {"device show kxfamily22", "KXFAMILY2"},
        {"name kxb100f48", "KXB100F484"},
        {"opn kxb100f484c9", "KXB100F484C6"},
        {"type option-bit aes_key", "did you mean AES_KEYS"},
    };
    for (const auto& c : cases)
        expect_user_error(c.first, c.second);
    std::string output;
    ASSERT_EQ(moxdev("device show kxb100f484c9", output), 1);
    const std::size_t names = output.find("did you mean");
    EXPECT_EQ(std::count(output.begin() + names, output.end(), ','), 3) << output; // five names
}

TEST(CliDeviceFind, SurroundingBlanksAreNoPartOfAName)
{
    std::string trimmed, padded;
    ASSERT_EQ(moxdev("name KXB100F484C6", trimmed), 0);
    ASSERT_EQ(moxdev("name ' KXB100F484C6 '", padded), 0);
    EXPECT_EQ(padded, trimmed);
    EXPECT_NE(padded.find("OPN enum"), std::string::npos);
    ASSERT_EQ(moxdev("device show 'KXB100F484C6 '", padded), 0) << padded;
}

TEST(CliDeviceFind, TypeWithoutValueListsTheKind)
{
    for (const char* kind : {"block", "flash-sector", "option-bit", "hps-setting"}) {
        std::string text, json;
        ASSERT_EQ(moxdev(std::string("type ") + kind, text), 0) << text;
        ASSERT_EQ(moxdev(std::string("type ") + kind + " --json", json), 0);
        const std::size_t values = lines(text) - 1;
        EXPECT_NE(text.find(std::to_string(values) + " supported " + kind + " values"), std::string::npos) << text;
        EXPECT_EQ(std::size_t(std::count(json.begin(), json.end(), '{')), values + 1) << json;
    }
    std::string output;
    ASSERT_EQ(moxdev("type option-bit", output), 0);
    EXPECT_NE(output.find("  21  AES_KEYS\n"), std::string::npos) << output;
}

TEST(CliDeviceFind, UserMistakesAreUserErrors)
{
    TEMP_DIR dir;
    const std::string csv = source_path("data/mox_dev_info.csv");
    std::filesystem::create_directories(dir.file("sub"));
    const std::pair<std::string, std::string> cases[] = {
        {"device generate " + csv + " ''", "OUT is empty"},
        {"device generate " + csv + " " + dir.file("sub"), "'" + dir.file("sub") + "' is a directory"},
        {"device generate " + csv + " " + dir.file("none/db.pcf"), "no directory '" + dir.file("none") + "'"},
        {"image build ''", "DIR is empty"},
        {"image check " + dir.file("sub"), "'" + dir.file("sub") + "' is a directory"},
    };
    for (const auto& c : cases)
        expect_user_error(c.first, c.second);
    // A setting that points nowhere names the file looked for and the variable.
    for (const char* command : {"device show KXB100", "device list"})
        expect_user_error(command, dir.file("none") + "/programmer/mox_dev_info.pcf' (MOXDEV_DEVICE_DB_DIR",
                          "MOXDEV_DEVICE_DB_DIR=" + dir.file("none"));
    expect_user_error("device generate " + csv + " " + dir.file("db.pcf"),
                      dir.file("none") + "/h/mox_parts.txt' (MOXDEV_INSTALL_DIR", "MOXDEV_INSTALL_DIR=" + dir.file("none"));

    // A damaged device table names the file, line and column.
    const std::string table = read_text(csv);
    const std::size_t third = table.find('\n', table.find('\n') + 1) + 1; // first record, line 3
    auto damaged = [&](std::size_t column, const std::string& cell) {
        std::string text = table;
        std::size_t begin = third;
        for (std::size_t c = 0; c < column; ++c)
            begin = text.find(',', begin) + 1;
        const std::size_t end = text.find_first_of(",\n", begin);
        return text.replace(begin, end - begin, cell);
    };
    std::size_t byte_column = 0;
    while (MOXDEV_DEVICE_FIELD_TYPES[byte_column] != MOXDEV_MANAGER_BYTE)
        ++byte_column;
    const std::pair<std::string, std::string> tables[] = {
        {damaged(1, "wren1,extra"), ", line 3: 87 cells, a device table line has 86"},
        {damaged(byte_column, "256"), ", line 3, column " + std::to_string(byte_column + 1) + " (" +
                                          MOXDEV_DEVICE_FIELD_NAMES[byte_column] + "): '256' is not a number of 0 to 255"},
        {damaged(0, "WREN_1"), ", line 3, column 1 (family): 'WREN_1' is no family the table may name (did you mean"},
    };
    for (const auto& t : tables) {
        write_text(dir.file("bad.csv"), t.first);
        expect_user_error("device generate " + dir.file("bad.csv") + " " + dir.file("bad.pcf"),
                          dir.file("bad.csv") + t.second);
        EXPECT_FALSE(std::filesystem::exists(dir.file("bad.pcf")));
    }
}
