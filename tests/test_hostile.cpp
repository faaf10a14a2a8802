// What a hostile or unlucky user can hand the command: odd kinds of file at
// every path it reads, endless and oversized inputs, control characters in
// answers, writers and readers at once. Nothing may hang (every run has a
// time limit), nothing may be an internal error but a damaged build product,
// and nothing the user stored may be lost.
#include "test_support.h"

#include <unistd.h>

#include <filesystem>

using namespace moxdev_test;

namespace {

// A scratch directory with the command on the PATH, the shipped data under
// data/, the module directory here.
class HostileInputs : public ::testing::Test {
protected:
    HostileInputs() { std::filesystem::create_directory_symlink(source_path("data"), dir.file("data")); }

    // Runs `command` in the directory under a 20-second limit: a status of
    // 124 means it hung.
    int run(const std::string& command, std::string& output) const
    {
        return run_command(
            "cd '" + dir.path() + "' && export PATH='" + std::filesystem::path(MOXDEV_CLI).parent_path().string() +
                "':\"$PATH\" MOXDEV_MODULE_DIR='" + dir.path() + "' && timeout 20 sh -c '" + command + "'",
            output, true);
    }

    TEMP_DIR dir;
};

// How an odd file is made at a path (the shell's $P).
struct KIND {
    const char* name;
    const char* make;
};
const KIND KINDS[] = {
    {"a FIFO", "mkfifo \"$P\""},
    {"a symbolic-link loop", "ln -s \"$(basename \"$P\")\" \"$P\""},
    {"a dangling link", "ln -s nowhere/at/all \"$P\""},
    {"a directory", "mkdir \"$P\""},
    {"/dev/zero", "ln -s /dev/zero \"$P\""},
};

// A path the command reads, the command that reads it, and the statuses
// it may end with (a missing file is a different answer than a bad one).
struct READER {
    const char* path;
    const char* command;
};
const READER READERS[] = {
    {"db/programmer/mox_flash.pcf", "MOXDEV_DEVICE_DB_DIR=db moxdev flash list"},
    {"db/programmer/mox_dev_info.pcf", "MOXDEV_DEVICE_DB_DIR=db moxdev device list"},
    {"mox_flash.ini", "moxdev hps list nand"},
    {"mox_flash.ini", "printf \"2C\\nDA\\n256\\n\" | moxdev hps add nand"},
    {"mox_flash.ini.lock", "printf \"2C\\nDA\\n256\\n\" | moxdev hps add nand"},
    {"install/h/mox_parts.txt", "MOXDEV_INSTALL_DIR=install moxdev device generate data/mox_dev_info.csv out.pcf"},
    {"input", "moxdev flash sfdp input"},
    {"input", "moxdev flash define --input input"},
    {"input", "moxdev hps add spi --input input"},
    {"input", "moxdev flash generate input out.pcf"},
    {"input", "moxdev device generate input out.pcf"},
    {"input", "moxdev image check input"},
};

} // namespace

// Every odd kind of file at every path: an answer within the time limit,
// and never an internal error.
TEST_F(HostileInputs, OddFilesAtEveryPathAreRefusedInTime)
{
    for (const READER& reader : READERS) {
        for (const KIND& kind : KINDS) {
            SCOPED_TRACE(std::string(kind.name) + " at " + reader.path + ": " + reader.command);
            std::string output;
            ASSERT_EQ(run(std::string("rm -rf db install input mox_flash.ini* nowhere && mkdir -p db/programmer "
                                      "install/h && P=") +
                              reader.path + " && " + kind.make,
                          output),
                      0)
                << output;
            const int status = run(reader.command, output);
            EXPECT_NE(status, 124) << "it hung\n" << output;
            EXPECT_TRUE(status == 0 || status == 1) << status << "\n" << output;
            EXPECT_EQ(output.find("internal error"), std::string::npos) << output;
            // A link is never followed to make a file elsewhere.
            EXPECT_FALSE(std::filesystem::exists(dir.file("nowhere"))) << output;
        }
    }
}

// An unsearchable or too long module directory is the user's to correct.
TEST_F(HostileInputs, ModuleDirectoriesTheSystemRefusesAreTheUsersError)
{
    std::string output;
    const std::string long_name(5000, 'x');
    const std::pair<std::string, int> cases[] = {
        {"MOXDEV_MODULE_DIR=" + long_name + " moxdev hps list nand", 0},
        {"printf \"2C\\nDA\\n256\\n\" | MOXDEV_MODULE_DIR=" + long_name + " moxdev hps add nand", 1},
        {"printf \"2C\\nDA\\n256\\n\" | MOXDEV_MODULE_DIR=missing/dir moxdev hps add nand", 1},
    };
    for (const auto& [command, status] : cases) {
        EXPECT_EQ(run(command, output), status) << command << "\n" << output;
        EXPECT_EQ(output.find("internal error"), std::string::npos) << output;
    }
    // Permissions do not hold back the superuser, so only others can see an
    // unsearchable directory.
    if (::geteuid() != 0) {
        const std::string add = "printf \"2C\\nDA\\n256\\n\" | MOXDEV_MODULE_DIR=locked/sub moxdev hps add nand";
        EXPECT_EQ(
            run("mkdir -p locked/sub && chmod 000 locked && " + add + "; s=$?; chmod 755 locked; exit $s", output), 1)
            << output;
        EXPECT_NE(output.find("locked/sub"), std::string::npos) << output;
        EXPECT_EQ(output.find("internal error"), std::string::npos) << output;
    }
}

// Endless inputs end, and inputs larger than their reader's cap are refused
// without being read whole.
TEST_F(HostileInputs, EndlessAndOversizedInputsAreRefused)
{
    const struct {
        const char* command;
        int status;
        const char* text;
    } cases[] = {
        {"moxdev flash sfdp - < /dev/zero", 1, "more than the"},
        {"moxdev flash define < /dev/zero", 1, "longer than 4096 characters"},
        {"moxdev hps add nand < /dev/zero", 1, "longer than 4096 characters"},
        {"head -c 2000000 /dev/zero > big && moxdev flash sfdp big", 1, "more than the"},
        {"head -c 2000000 /dev/zero > big && moxdev flash define --input big", 1, "more than the"},
        {"truncate -s 1G mox_flash.ini && moxdev hps list nand", 0, "cannot be read"},
        {"truncate -s 1G big.img && moxdev image check big.img", 1, "more than the"},
        {"mkdir -p db/programmer && truncate -s 1G db/programmer/mox_flash.pcf && "
         "MOXDEV_DEVICE_DB_DIR=db moxdev flash list",
         2, "bytes a generator writes"},
    };
    for (const auto& c : cases) {
        std::string output;
        EXPECT_EQ(run(c.command, output), c.status) << c.command << "\n" << output;
        EXPECT_NE(output.find(c.text), std::string::npos) << c.command << "\n" << output;
    }
}

// A NUL inside an answer is refused and asked again; the part added after it
// and every part before it stay.
TEST_F(HostileInputs, AControlCharacterInAnAnswerLosesNoRecord)
{
    std::string output;
    ASSERT_EQ(run("printf \"2C\\nDA\\n256\\n\" | moxdev hps add nand", output), 0) << output;
    const std::string spi =
        "C22018\\nFFFFFF\\n0\\n0\\nMAK\\000ER\\nMAKER\\nQSPI_128\\n128\\n64\\n256\\n80\\n3\\n1\\n1500\\n1"
        "\\n1\\nY\\nDC\\n12\\n13\\n";
    ASSERT_EQ(run("printf \"" + spi + "\" | moxdev hps add spi", output), 0) << output;
    EXPECT_NE(output.find("cannot be stored: it holds a control character (byte 0x00)"), std::string::npos) << output;
    ASSERT_EQ(run("printf \"98\\nD3\\n64\\n\" | moxdev hps add nand", output), 0) << output;
    ASSERT_EQ(run("moxdev hps list spi && moxdev hps list nand", output), 0) << output;
    EXPECT_NE(output.find("MAKER QSPI_128"), std::string::npos) << output;
    EXPECT_NE(output.find("0x0000002C 0x000000DA"), std::string::npos) << output;
    EXPECT_NE(output.find("0x00000098 0x000000D3"), std::string::npos) << output;

    // The packing refuses such a text from any caller.
    MOXDEV_HPS_SPI_STRUCTURE part;
    part.manufacturer = std::string("MAK\0ER", 6);
    std::vector<BYTE> bytes;
    std::string error;
    EXPECT_FALSE(moxdev::pack_hps_user_set(std::vector<MOXDEV_HPS_SPI_STRUCTURE>{part}, bytes, error));
    EXPECT_NE(error.find("manufacturer"), std::string::npos) << error;
}

// Lists taken while two writers add and remove parts see the old file or the
// new one, every time.
TEST_F(HostileInputs, ListsWhileTwoWritersChangeTheFileAlwaysRead)
{
    std::string output;
    ASSERT_EQ(run("printf \"2C\\nDA\\n256\\n\" | moxdev hps add nand", output), 0) << output;
    const std::string writer = "for i in $(seq 25); do printf \"98\\nD3\\n64\\n\" | moxdev hps add nand > /dev/null; "
                               "moxdev hps remove nand 0 > /dev/null; done";
    const std::string reader = "for i in $(seq 150); do moxdev hps list nand > list.txt 2>&1 || exit 3; "
                               "grep -q \"cannot be read\" list.txt && exit 4; grep -q 0x000000DA list.txt || exit 5; "
                               "done; exit 0";
    EXPECT_EQ(run("(" + writer + ") & (" + writer + ") & (" + reader + "); status=$?; wait; exit $status", output), 0)
        << output;
}
