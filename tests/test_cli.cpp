// The moxdev command: answers, exit statuses and error lines.
#include "test_support.h"

#include <filesystem>

using namespace moxdev_test;

namespace {

int moxdev(const std::string& arguments, std::string& output)
{
    return run_command(std::string(MOXDEV_CLI) + " " + arguments, output, true);
}

} // namespace

TEST(Cli, DeviceShowAnswersForFamiliesDevicesAndParts)
{
    const DEV_PART_MANAGER catalogue;
    const int part = DEV_PART_GENERIC - 1;
    const DEV_DEVICE_ENUM device = catalogue.get_device_of(part);
    const DEV_FAMILY_ENUM family = catalogue.get_family_of(device);
    std::string lower_part = dstr_get_user_string(part);
    stl_tolower(lower_part);

    std::string output;
    for (const std::string& name :
         {lower_part, dstr_get_user_string(device), dstr_get_identifier(family), std::string("generic")}) {
        ASSERT_EQ(moxdev("device show '" + name + "'", output), 0) << name << "\n" << output;
        EXPECT_NE(output.find("served by record"), std::string::npos) << output;
        EXPECT_NE(output.find("support_vab"), std::string::npos) << output;
    }
    ASSERT_EQ(moxdev("device show " + dstr_get_user_string(part), output), 0);
    EXPECT_NE(output.find(dstr_get_user_string(device)), std::string::npos) << output;
}

TEST(Cli, ListAndGenerate)
{
    std::string output;
    ASSERT_EQ(moxdev("device list", output), 0) << output;
    EXPECT_NE(output.find("79 records"), std::string::npos) << output;

    TEMP_DIR dir;
    ASSERT_EQ(moxdev("device generate " + source_path("data/mox_dev_info.csv") + " " + dir.file("db.pcf"),
                     output),
              0)
        << output;
    EXPECT_EQ(read_bytes(dir.file("db.pcf")), read_bytes(data_path("programmer/mox_dev_info.pcf")));
}

TEST(Cli, ExitStatuses)
{
    std::string output;
    EXPECT_EQ(moxdev("--help", output), 0);
    EXPECT_NE(output.find("device"), std::string::npos);
    EXPECT_EQ(moxdev("device show --help", output), 0);
    EXPECT_EQ(moxdev("--version", output), 0);
    EXPECT_EQ(moxdev("", output), 1);
    EXPECT_EQ(moxdev("device show", output), 1);
    EXPECT_EQ(moxdev("device frobnicate", output), 1);
    EXPECT_EQ(moxdev("device show NO_SUCH_NAME", output), 1);
    EXPECT_NE(output.find("NO_SUCH_NAME"), std::string::npos);

    // A damaged database is an internal error: one line, status 2.
    TEMP_DIR dir;
    std::filesystem::create_directories(dir.file("programmer"));
    write_text(dir.file("programmer/mox_dev_info.pcf"), "too short");
    const int status = run_command("MOXDEV_DEVICE_DB_DIR=" + dir.path() + " " + MOXDEV_CLI + " device list",
                                   output, true);
    EXPECT_EQ(status, 2);
    const std::string expected =
        "moxdev: internal error: file_size > (8 + 32 + 4 + 2) (moxdev_dev_info_manager, line ";
    EXPECT_EQ(output.substr(0, expected.size()), expected);
    EXPECT_EQ(output.find('\n'), output.size() - 1) << "one line";
}
