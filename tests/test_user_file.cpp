// The user parameter file under concurrent writers, killed writers, a full
// disk and damage: nothing a user stored is lost.
#include "test_support.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <sstream>
#include <thread>

using namespace moxdev_test;

namespace {

class USER_FILE : public testing::Test {
protected:
    std::string path() const { return m_dir.file("mox_flash.ini"); }
    std::string dir() const { return m_dir.path(); }

    // Runs the command with this module directory.
    int moxdev(const std::string& arguments, std::string& output)
    {
        return run_command("MOXDEV_MODULE_DIR='" + dir() + "' " + MOXDEV_CLI + " " + arguments, output, true);
    }

    static bool set_to(std::vector<BYTE> bytes)
    {
        std::string error;
        return MOXDEV_FLASH_INI::update_flash_ini_data(
                   MOXDEV_FLASH_INI_SET_0,
                   [&](std::vector<BYTE>& set, std::string&) {
                       set = bytes;
                       return true;
                   },
                   error) &&
               error.empty();
    }

    static BYTES set_0()
    {
        DWORD size = 0;
        std::unique_ptr<BYTE[]> data(MOXDEV_FLASH_INI::read_flash_ini_data(MOXDEV_FLASH_INI_SET_0, size));
        return data ? BYTES(data.get(), data.get() + size) : BYTES();
    }

private:
    TEMP_DIR m_dir;
    SCOPED_ENV m_module{"MOXDEV_MODULE_DIR", m_dir.path().c_str()};
};

// The lines of `hps list` that show a user record ("    3  user     ...").
std::size_t user_nand_records(const std::string& output)
{
    std::size_t count = 0;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string index, source;
        words >> index >> source;
        count += !index.empty() && std::isdigit(static_cast<unsigned char>(index[0])) && source == "user";
    }
    return count;
}

} // namespace

// 50 additions started at the same moment: every one is kept, and every
// command says it succeeded.
TEST_F(USER_FILE, ConcurrentAdditionsAllSurvive)
{
    constexpr int WRITERS = 50;
    std::string script = "cd '" + dir() + "'\n";
    for (int i = 0; i < WRITERS; ++i) {
        char answers[32];
        std::snprintf(answers, sizeof answers, "98\n%02X\n64\n", 0x10 + i);
        write_text(dir() + "/answers" + std::to_string(i), answers);
        script += "(MOXDEV_MODULE_DIR='" + dir() + "' '" + MOXDEV_CLI + "' hps add nand --input answers" +
                  std::to_string(i) + " > out" + std::to_string(i) + " 2>&1; echo $? > status" +
                  std::to_string(i) + ") &\n";
    }
    script += "wait\n";
    write_text(dir() + "/run.sh", script);
    std::string output;
    ASSERT_EQ(run_command("sh '" + dir() + "/run.sh'", output, true), 0) << output;
    for (int i = 0; i < WRITERS; ++i)
        EXPECT_EQ(read_text(dir() + "/status" + std::to_string(i)), "0\n") << read_text(dir() + "/out" + std::to_string(i));

    ASSERT_EQ(moxdev("hps list nand", output), 0) << output;
    EXPECT_EQ(user_nand_records(output), std::size_t(WRITERS)) << output;
}

// A writer killed at any moment leaves the old file or the new one: 200
// writers, each killed after a random time, never leave a file that does not
// read, or a set that is neither the old one nor the new one.
TEST_F(USER_FILE, KilledWritersLeaveTheOldOrTheNewFile)
{
    constexpr int RUNS = 200;
    constexpr std::size_t SET_SIZE = 256 * 1024;
    ASSERT_TRUE(set_to(BYTES(SET_SIZE, 0)));
    std::mt19937 random(12345);
    int valid = 0, changed = 0;
    for (int run = 1; run <= RUNS; ++run) {
        const BYTE previous = set_0().empty() ? 0 : set_0()[0];
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // Writes new versions until it is killed.
            for (BYTE value = BYTE(run);; ++value)
                set_to(BYTES(SET_SIZE, value));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);

        ASSERT_EQ(MOXDEV_FLASH_INI::container_state(), MOXDEV_FLASH_INI_STATE::VALID) << "run " << run;
        const BYTES set = set_0();
        ASSERT_EQ(set.size(), SET_SIZE) << "run " << run;
        EXPECT_EQ(std::count(set.begin(), set.end(), set[0]), long(SET_SIZE)) << "a mixture in run " << run;
        ++valid;
        changed += set[0] != previous;
    }
    EXPECT_EQ(valid, RUNS);
    // Temporary files of killed writers are cleared by the next writer.
    ASSERT_TRUE(set_to(BYTES(1, 1)));
    for (const auto& entry : std::filesystem::directory_iterator(dir()))
        EXPECT_EQ(entry.path().filename().string().find(".tmp-"), std::string::npos) << entry.path();
    std::cout << "[ killed writers ] " << RUNS << " runs, " << valid << " valid files, " << changed
              << " of them with a newer set\n";
}

// The disk fills up part way (a file size limit): the earlier file stays byte
// for byte and no temporary file is left. The described write still answers
// true (its output could be opened); the locked update and the command say
// what failed, the command with status 1.
TEST_F(USER_FILE, AFullDiskKeepsTheEarlierFile)
{
    ASSERT_TRUE(set_to(BYTES(100, 7)));
    const BYTES earlier = read_bytes(path());
    auto with_small_disk = [](auto body) {
        struct rlimit saved {};
        ::getrlimit(RLIMIT_FSIZE, &saved);
        const auto saved_handler = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limited = saved;
        limited.rlim_cur = 4096;
        ::setrlimit(RLIMIT_FSIZE, &limited);
        body();
        ::setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, saved_handler);
    };
    std::vector<BYTE> big(64 * 1024, 0x3C);
    bool opened = false, written = true;
    std::string error;
    with_small_disk([&] {
        opened = MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, big.data(), DWORD(big.size()));
        written = MOXDEV_FLASH_INI::update_flash_ini_data(
            MOXDEV_FLASH_INI_HPS_SPI,
            [&](std::vector<BYTE>& set, std::string&) {
                set = big;
                return true;
            },
            error);
    });
    EXPECT_TRUE(opened);
    EXPECT_FALSE(written);
    EXPECT_NE(error.find("cannot write"), std::string::npos) << error;
    EXPECT_EQ(read_bytes(path()), earlier);
    for (const auto& entry : std::filesystem::directory_iterator(dir()))
        EXPECT_EQ(entry.path().filename().string().find(".tmp-"), std::string::npos) << entry.path();

    write_text(dir() + "/answers", "98\n10\n64\n");
    std::string output;
    EXPECT_EQ(run_command("trap '' XFSZ; ulimit -f 0; MOXDEV_MODULE_DIR='" + dir() + "' " + MOXDEV_CLI +
                              " hps add nand --input '" + dir() + "/answers'",
                          output, true),
              1)
        << output;
    EXPECT_NE(output.find("moxdev: cannot change " + path()), std::string::npos) << output;
    EXPECT_EQ(output.find("added:"), std::string::npos) << output;
    EXPECT_EQ(read_bytes(path()), earlier);

    // A module directory that does not exist: the output cannot be opened.
    TEMP_DIR other;
    const std::string missing = other.file("no/such/dir");
    {
        SCOPED_ENV module("MOXDEV_MODULE_DIR", missing.c_str());
        EXPECT_FALSE(MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, big.data(), 10));
    }
    EXPECT_FALSE(std::filesystem::exists(missing));
}

// A damaged file is moved aside, never silently replaced; a directory in its
// place or a writer that holds the lock too long are errors.
TEST_F(USER_FILE, DamageDirectoriesAndLocksAreReported)
{
    std::string output;
    write_text(dir() + "/answers", "98\n10\n64\n");
    ASSERT_EQ(moxdev("hps add nand --input '" + dir() + "/answers'", output), 0) << output;
    BYTES damaged = read_bytes(path());
    damaged[3] ^= 0x20;
    write_bytes(path(), damaged);

    ASSERT_EQ(moxdev("hps list nand", output), 0);
    EXPECT_NE(output.find("warning: " + path() + " cannot be read"), std::string::npos) << output;
    EXPECT_EQ(user_nand_records(output), 0u);
    ASSERT_EQ(moxdev("hps add nand --input '" + dir() + "/answers'", output), 0) << output;
    const std::size_t at = output.find("it was kept as ");
    ASSERT_NE(at, std::string::npos) << output;
    const std::string kept = output.substr(at + 15, output.find('\n', at) - at - 15);
    EXPECT_EQ(kept.rfind(path() + ".damaged-", 0), 0u) << kept;
    EXPECT_EQ(read_bytes(kept), damaged);
    EXPECT_EQ(MOXDEV_FLASH_INI::container_state(), MOXDEV_FLASH_INI_STATE::VALID);

    // Another writer holds the lock past the wait: nothing changes.
    const BYTES before = read_bytes(path());
    const int lock = ::open((path() + ".lock").c_str(), O_RDWR | O_CREAT, 0644);
    ASSERT_GE(lock, 0);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    std::string error;
    EXPECT_FALSE(MOXDEV_FLASH_INI::update_flash_ini_data(
        MOXDEV_FLASH_INI_SET_0, [](std::vector<BYTE>& set, std::string&) { return set.push_back(1), true; }, error,
        nullptr, 50));
    EXPECT_NE(error.find("another writer has held"), std::string::npos) << error;
    ::close(lock);
    EXPECT_EQ(read_bytes(path()), before);

    // A directory where the file should be.
    std::filesystem::remove(path());
    std::filesystem::create_directory(path());
    EXPECT_EQ(moxdev("hps add nand --input '" + dir() + "/answers'", output), 1);
    EXPECT_NE(output.find("is a directory"), std::string::npos) << output;
    EXPECT_EQ(moxdev("hps clear nand", output), 1);
}
