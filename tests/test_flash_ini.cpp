// Flash parameters and the user parameter file: hex and decimal text, the
// plain and the validating parse, packing, the file's sets, and the file under
// concurrent writers, killed writers, a full disk and damage: nothing a user
// stored is lost.
#include "test_support.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <random>
#include <thread>

using namespace moxdev_test;

namespace {

// What the validating parse makes of `text`: the value, or why it refuses.
std::string outcome(MOXDEV_PARAM_TYPE type, const std::string& text, bool hex = false, bool power_of_2 = false,
                    const std::vector<DWORD>& ranges = {}, const std::vector<DWORD>& hits = {}, bool shift = false,
                    DWORD multiple = 1)
{
    QWORD value = 99;
    std::string error = " and a stale error";
    return MOXDEV_FLASH_INI::convert_string_to_qword(type, value, hex, text, power_of_2,
                                                     ranges.empty() ? nullptr : ranges.data(),
                                                     hits.empty() ? nullptr : hits.data(), shift, multiple, error)
               ? std::to_string(value) + error
               : error;
}

// The parameter file in a fresh module directory.
class ParamFile : public ::testing::Test {
protected:
    std::string path() const { return dir.file("mox_flash.ini"); }
    static BYTES read(MOXDEV_FLASH_INI_ENUM set = MOXDEV_FLASH_INI_SET_0)
    {
        DWORD size = 7;
        std::unique_ptr<BYTE[]> data(MOXDEV_FLASH_INI::read_flash_ini_data(set, size));
        EXPECT_EQ(size == 0, data == nullptr);
        return data ? BYTES(data.get(), data.get() + size) : BYTES();
    }
    static bool write(MOXDEV_FLASH_INI_ENUM set, BYTES data)
    {
        return MOXDEV_FLASH_INI::write_flash_ini_data(set, data.empty() ? nullptr : data.data(), DWORD(data.size()));
    }
    // The locked update of a set; what failed in `error`.
    static bool update(const BYTES& data, std::string& error, MOXDEV_FLASH_INI_ENUM set = MOXDEV_FLASH_INI_SET_0,
                       DWORD wait_ms = moxdev::DEFAULT_LOCK_TIMEOUT_MS, std::string* moved_aside = nullptr)
    {
        return moxdev::update_parameter_set(
            set, [&](std::vector<BYTE>& old, std::string&) { return old = data, true; }, error, moved_aside, wait_ms);
    }
    // What `write` answers while files cannot grow beyond 4 KiB, as on a disk
    // that fills up part way.
    template <class WRITE>
    static bool with_full_disk(WRITE write)
    {
        struct rlimit saved {};
        ::getrlimit(RLIMIT_FSIZE, &saved);
        const auto saved_handler = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limited = saved;
        limited.rlim_cur = 4096;
        ::setrlimit(RLIMIT_FSIZE, &limited);
        const bool answer = write();
        ::setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, saved_handler);
        return answer;
    }
    // The names in the module directory.
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    // Runs the command with this module directory.
    int moxdev(const std::string& arguments, std::string& output)
    {
        return run_command("MOXDEV_MODULE_DIR='" + dir.path() + "' " + MOXDEV_CLI + " " + arguments, output, true);
    }
    // The lines of `hps list` that show a user record ("    3  user     ...").
    static std::size_t user_records(const std::string& output)
    {
        std::size_t count = 0;
        for (std::size_t at = output.find("  user  "); at != std::string::npos; at = output.find("  user  ", at + 1))
            ++count;
        return count;
    }
    std::size_t temporary_files() const
    {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            count += entry.path().filename().string().find(".tmp-") != std::string::npos;
        return count;
    }

    TEMP_DIR dir;
    SCOPED_ENV module{"MOXDEV_MODULE_DIR", dir.path().c_str()};
};

} // namespace

TEST(FlashIniText, ConversionsPrintingAndTheValidatingParse)
{
    DWORD dword = 0xAB;
    QWORD qword = 0x1122334455667788ull;
    std::string text = "text";
    BYTE flag = 2;
    const std::vector<DWORD> range = {1, 1, 2048}, hits = {2, 0xFF, 0x00, 0xFF, 0xFF};
    const std::pair<std::string, std::string> cases[] = {
        {MOXDEV_FLASH_INI::convert_qword_to_hex_string(0x1A2B, 2, true), "0x2B"},
        {MOXDEV_FLASH_INI::convert_dword_to_hex_string(5, 8, true), "0x00000005"},
        {MOXDEV_FLASH_INI::convert_dword_to_hex_string(0x23456789, 8, false), "23456789"},
        {MOXDEV_FLASH_INI::convert_qword_to_hex_string(0x123456789ull, 8, true), "0x23456789"},
        {MOXDEV_FLASH_INI::convert_qword_to_hex_string(0xFEDCBA9876543210ull, 16, false), "FEDCBA9876543210"},
        {MOXDEV_FLASH_INI::convert_qword_to_string(18446744073709551615ull), "18446744073709551615"},
        {MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_DWORD, true, &dword), "0x000000AB"},
        {MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_DWORD, false, &dword), "171"},
        {MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_QWORD, true, &qword), "0x1122334455667788"},
        {MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_STRING, true, &text), "text"},
        {MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_BOOL, false, &flag), "True"},
        {outcome(MOXDEV_PARAM_STRING, "anything"), "0"},
        {outcome(MOXDEV_PARAM_BYTE, "1f", true), "31"},
        {outcome(MOXDEV_PARAM_BYTE, "-1"), "255"},
        {outcome(MOXDEV_PARAM_BYTE, "0x80", false, true), "128"},
        {outcome(MOXDEV_PARAM_DWORD, "2048", false, false, range), "2048"},
        // Only the low 32 bits take part in the range test.
        {outcome(MOXDEV_PARAM_QWORD, "0x100000001", false, false, range), "4294967297"},
        {outcome(MOXDEV_PARAM_BYTE, "2C", true, false, {}, hits), "44"},
        {outcome(MOXDEV_PARAM_DWORD, "3", false, false, {}, {}, true), "8"},
        {outcome(MOXDEV_PARAM_QWORD, "64", false, false, {}, {}, false, 1u << 20), "67108864"},
        {outcome(MOXDEV_PARAM_WORD, "16", false, false, {}, {}, true), "Calculation overflow compare to type"},
        {outcome(MOXDEV_PARAM_BYTE, "1f"), "Invalid QWORD conversion"},
        {outcome(MOXDEV_PARAM_BYTE, "256"), "Conversion overflow compare to type"},
        {outcome(MOXDEV_PARAM_DWORD, "0", false, true), "Input must be power of 2"},
        {outcome(MOXDEV_PARAM_DWORD, "6", false, true), "Input must be power of 2"},
        {outcome(MOXDEV_PARAM_DWORD, "0", false, false, range), "Input is out of range"},
        {outcome(MOXDEV_PARAM_DWORD, "2049", false, false, range), "Input is out of range"},
        {outcome(MOXDEV_PARAM_DWORD, "5", false, false, {0}), "Input is out of range"},
        {outcome(MOXDEV_PARAM_BYTE, "00", true, false, {}, hits), "Input is invalid (hit)"},
        {outcome(MOXDEV_PARAM_BYTE, "FF", true, false, {}, hits), "Input is invalid (hit)"},
    };
    for (const auto& [got, expected] : cases)
        EXPECT_EQ(got, expected);

    bool ok = false;
    for (const auto& [input, value, good] : {std::tuple{"0x1f", 31, true},
                                             {"", 0, true},
                                             {"1f", 0, false},
                                             {"0X10", 0, false},
                                             {"-1", 0, false},
                                             {" 1", 0, false},
                                             {"1x0x", 0, false}}) {
        EXPECT_EQ(MOXDEV_FLASH_INI::convert_string_to_qword(input, false, &ok), QWORD(value)) << input;
        EXPECT_EQ(ok, good) << input;
    }
}

TEST(FlashIniPacking, PackAndUnpackRecords)
{
    std::string name = "MICRON", name2;
    DWORD dword = 0x11223344, dword2 = 0, size = 0, index = 0;
    QWORD qword = 0x8877665544332211ull, qword2 = 0;
    WORD word = 0xBEEF, word2 = 0;
    BYTE byte = 0x5A, byte2 = 0;
    bool flag = true, flag2 = false;
    void* values[] = {&name, &dword, &qword, &word, &byte, &flag};
    void* targets[] = {&name2, &dword2, &qword2, &word2, &byte2, &flag2};
    const MOXDEV_PARAM_TYPE types[] = {MOXDEV_PARAM_STRING, MOXDEV_PARAM_DWORD, MOXDEV_PARAM_QWORD,
                                       MOXDEV_PARAM_WORD,   MOXDEV_PARAM_BYTE,  MOXDEV_PARAM_BOOL};
    for (int i = 0; i < 6; ++i)
        MOXDEV_FLASH_INI::calculate_flash_ini_data_size(size, types[i], values[i]);
    EXPECT_EQ(size, 7u + 4 + 8 + 2 + 1 + 1);
    BYTES data(size, 0);
    for (int i = 0; i < 6; ++i)
        MOXDEV_FLASH_INI::fillup_flash_ini_data(data.data(), index, types[i], values[i]);
    EXPECT_EQ(index, size);
    EXPECT_EQ(BYTES(data.begin(), data.begin() + 11), (BYTES{'M', 'I', 'C', 'R', 'O', 'N', 0, 0x44, 0x33, 0x22, 0x11}));
    auto assign = [&](const BYTES& bytes, DWORD end, DWORD count, int first = 0) {
        index = 0;
        return MOXDEV_FLASH_INI::assign_flash_ini_data(bytes.data(), index, end, count, types + first, targets + first);
    };
    ASSERT_TRUE(assign(data, size, 6));
    EXPECT_TRUE(name2 == name && dword2 == dword && qword2 == qword && word2 == word && byte2 == byte && flag2);
    EXPECT_TRUE(assign(data, size, 0));
    // A string without its zero byte at the end of the data fails the record.
    EXPECT_FALSE(assign({'A', 'B'}, 2, 1));
    // A qword needs only four bytes before the stated end, and then takes all
    // eight of the caller's buffer: the index moves by 8.
    const BYTES eight = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_TRUE(assign(eight, 4, 1, 2));
    EXPECT_EQ(qword2, 0x0807060504030201u);
    EXPECT_EQ(index, 8u);
    EXPECT_FALSE(assign(eight, 3, 1, 2));
}

TEST(FlashIni, RefusalsReportTheirCondition)
{
    BYTE byte = 0;
    bool ok = false;
    const struct {
        std::function<void()> run;
        const char* condition;
    } cases[] = {
        {[] { MOXDEV_FLASH_INI::convert_qword_to_hex_string(1, 17, false); }, "count != 0 && count <= 16"},
        {[] { MOXDEV_FLASH_INI::convert_dword_to_hex_string(1, 9, false); }, "count != 0 && count <= 8"},
        {[] { MOXDEV_FLASH_INI::convert_string_to_qword("zz", false, nullptr); },
         "Invalid string to integer conversion"},
        {[&] { MOXDEV_FLASH_INI::convert_string_to_qword("", true, &ok); }, "!no_empty || !string.empty()"},
        {[&] { MOXDEV_FLASH_INI::print_flash_ini_data(MOXDEV_PARAM_TYPE(7), false, &byte); }, "Unsupport param type"},
        {[&] {
             DWORD size = 0;
             MOXDEV_FLASH_INI::calculate_flash_ini_data_size(size, MOXDEV_PARAM_TYPE(0), &byte);
         },
         "Unsupport param type"},
        {[] { outcome(MOXDEV_PARAM_DWORD, "1", false, false, {}, {}, false, 0); }, "multiple != 0"},
        {[] { MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, nullptr, 4); }, "data != NULL"},
        {[&] { MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, &byte, 0); }, "data == NULL"},
    };
    for (const auto& c : cases)
        EXPECT_INTERNAL_ERROR(c.run(), c.condition);
}

TEST_F(ParamFile, WriteReadAndRemoveSets)
{
    EXPECT_TRUE(read(MOXDEV_FLASH_INI_HPS_SPI).empty()) << "no file";
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_SPI, BYTES(10, 0xA5)));
    BYTES file = read_bytes(path());
    ASSERT_EQ(file.size(), 54u);
    EXPECT_EQ(std::string(file.begin(), file.begin() + 16), "MOXDEV_FLASH_INI");
    // Three entries of offset and size, then the sets.
    EXPECT_EQ(BYTES(file.begin() + 16, file.begin() + 44),
              (BYTES{3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 44, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(read(MOXDEV_FLASH_INI_HPS_SPI), BYTES(10, 0xA5));

    ASSERT_TRUE(write(MOXDEV_FLASH_INI_SET_0, BYTES{1, 2, 3}));
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_NAND, BYTES{7}));
    EXPECT_EQ(read(MOXDEV_FLASH_INI_SET_0), (BYTES{1, 2, 3})) << "set 0 is kept by other writes";
    EXPECT_EQ(read(MOXDEV_FLASH_INI_HPS_NAND), (BYTES{7}));
    EXPECT_EQ(read_bytes(path()).size(), 44u + 3 + 10 + 1);
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_SPI, {}));
    EXPECT_TRUE(read(MOXDEV_FLASH_INI_HPS_SPI).empty());
    EXPECT_EQ(read(MOXDEV_FLASH_INI_SET_0), (BYTES{1, 2, 3}));
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_SET_0, {}) && write(MOXDEV_FLASH_INI_HPS_NAND, {}));
    EXPECT_EQ(read_bytes(path()).size(), 44u);

    EXPECT_FALSE(write(MOXDEV_FLASH_INI_ENUM(3), {}));
    SCOPED_ENV nowhere("MOXDEV_MODULE_DIR", "/nonexistent/directory");
    EXPECT_FALSE(write(MOXDEV_FLASH_INI_HPS_SPI, BYTES{1}));
}

TEST_F(ParamFile, DamagedFilesReadAsMissing)
{
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_SPI, BYTES(10, 1)));
    const BYTES good = read_bytes(path());
    const std::function<void(BYTES&)> damages[] = {
        [](BYTES& file) { file.resize(16); },
        [](BYTES& file) { file.resize(20); },
        [](BYTES& file) { file.push_back(0); }, // trailing byte
        [](BYTES& file) { file[24] = 4; },      // entry 0: offset 0, size 4
        [](BYTES& file) { file[19] = 0x40; },   // huge entry count
        [](BYTES& file) { file[3] = 'x'; },     // magic
        [](BYTES& file) {
            file.resize(44);
            std::fill(file.begin() + 20, file.end(), 0);
        }, // no sets
    };
    for (const auto& damage : damages) {
        BYTES file = good;
        damage(file);
        write_bytes(path(), file);
        for (DWORD set = 0; set < 3; ++set)
            EXPECT_TRUE(read(MOXDEV_FLASH_INI_ENUM(set)).empty()) << set;
    }
    // A set past the entry count of the file.
    write_bytes(path(), {'M', 'O', 'X', 'D', 'E', 'V', '_', 'F', 'L', 'A', 'S', 'H', '_', 'I', 'N',
                         'I', 1,   0,   0,   0,   28,  0,   0,   0,   1,   0,   0,   0,   9});
    EXPECT_EQ(read(MOXDEV_FLASH_INI_SET_0), (BYTES{9}));
    EXPECT_TRUE(read(MOXDEV_FLASH_INI_HPS_SPI).empty());
}

// 50 additions started at the same moment: every one is kept, and every
// command says it succeeded.
TEST_F(ParamFile, ConcurrentAdditionsAllSurvive)
{
    constexpr int WRITERS = 50;
    std::string script = "cd '" + dir.path() + "'\n";
    for (int i = 0; i < WRITERS; ++i) {
        char answers[32];
        std::snprintf(answers, sizeof answers, "98\n%02X\n64\n", 0x10 + i);
        const std::string n = std::to_string(i);
        write_text(dir.file("answers" + n), answers);
        script += "(MOXDEV_MODULE_DIR='" + dir.path() + "' '" + MOXDEV_CLI + "' hps add nand --input answers" + n +
                  " > out" + n + " 2>&1; echo $? > status" + n + ") &\n";
    }
    write_text(dir.file("run.sh"), script + "wait\n");
    std::string output;
    ASSERT_EQ(run_command("sh '" + dir.file("run.sh") + "'", output, true), 0) << output;
    for (const std::string n : {"0", "17", "49"}) // and all in between, through the list below
        EXPECT_EQ(read_text(dir.file("status" + n)), "0\n") << read_text(dir.file("out" + n));
    ASSERT_EQ(moxdev("hps list nand", output), 0) << output;
    EXPECT_EQ(user_records(output), std::size_t(WRITERS)) << output;
}

// A writer killed at any moment leaves the old file or the new one: 200
// writers, each killed after a random time, never leave a file that does not
// read, or a set that is neither the old one nor the new one.
TEST_F(ParamFile, KilledWritersLeaveTheOldOrTheNewFile)
{
    constexpr std::size_t SET_SIZE = 256 * 1024;
    std::string error;
    ASSERT_TRUE(update(BYTES(SET_SIZE, 0), error));
    std::mt19937 random(12345);
    for (int run = 1; run <= 200; ++run) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (BYTE value = BYTE(run);; ++value) // new versions until it is killed
                update(BYTES(SET_SIZE, value), error);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        ASSERT_EQ(moxdev::parameter_file_state(), moxdev::PARAMETER_FILE_STATE::VALID) << "run " << run;
        const BYTES set = read();
        ASSERT_EQ(set.size(), SET_SIZE) << "run " << run;
        EXPECT_EQ(std::count(set.begin(), set.end(), set[0]), long(SET_SIZE)) << "a mixture in run " << run;
        // The temporary file of a killed writer is cleared by the next writer.
        if (temporary_files() > 0) {
            ASSERT_TRUE(update(BYTES(SET_SIZE, 0), error));
            EXPECT_EQ(temporary_files(), 0u) << "run " << run;
        }
    }
}

// The plain write rewrites the one file in place: no lock is taken or
// waited for, nothing but mox_flash.ini is left beside it, and its answer
// only says whether the file could be opened.
TEST_F(ParamFile, ThePlainWriteTakesNoLockAndLeavesOneFile)
{
    const int lock = ::open((path() + ".lock").c_str(), O_RDWR | O_CREAT, 0644);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_SPI, BYTES{1, 2}));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "it waited for the lock";
    ::close(lock);
    std::filesystem::remove(path() + ".lock");
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_NAND, BYTES{3}));
    EXPECT_EQ(files(), std::vector<std::string>{"mox_flash.ini"});

    // A file the write can open in a directory it cannot create files in
    // (a difference only where the tests do not run as root).
    std::filesystem::permissions(dir.path(), std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::remove);
    const bool rewritten = write(MOXDEV_FLASH_INI_HPS_SPI, BYTES{9});
    std::filesystem::permissions(dir.path(), std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
    EXPECT_TRUE(rewritten);
    EXPECT_EQ(read(MOXDEV_FLASH_INI_HPS_SPI), BYTES{9});

    // An unreadable file is replaced, not kept aside: its sets count as absent.
    write_text(path(), "damaged");
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_NAND, BYTES{4}));
    EXPECT_EQ(files(), std::vector<std::string>{"mox_flash.ini"});
    EXPECT_TRUE(read(MOXDEV_FLASH_INI_HPS_SPI).empty());

    // The disk fills up part way (a file size limit): the write still answers
    // true, since its output could be opened.
    EXPECT_TRUE(with_full_disk([] { return write(MOXDEV_FLASH_INI_HPS_SPI, BYTES(64 * 1024, 0x3C)); }));

    // A module directory that does not exist: the output cannot be opened.
    const std::string missing = dir.file("no/such/dir");
    SCOPED_ENV module_dir("MOXDEV_MODULE_DIR", missing.c_str());
    EXPECT_FALSE(write(MOXDEV_FLASH_INI_HPS_SPI, BYTES(10)));
    EXPECT_FALSE(std::filesystem::exists(missing));
}

// The disk fills up part way (a file size limit): the locked update keeps the
// earlier file byte for byte and leaves no temporary file; it and the command
// say what failed, the command with status 1.
TEST_F(ParamFile, AFullDiskKeepsTheEarlierFile)
{
    std::string error;
    ASSERT_TRUE(update(BYTES(100, 7), error));
    const BYTES earlier = read_bytes(path()), big(64 * 1024, 0x3C);
    EXPECT_FALSE(with_full_disk([&] { return update(big, error, MOXDEV_FLASH_INI_HPS_SPI); }));
    EXPECT_NE(error.find("cannot write"), std::string::npos) << error;
    EXPECT_EQ(read_bytes(path()), earlier);
    EXPECT_EQ(temporary_files(), 0u);

    write_text(dir.file("answers"), "98\n10\n64\n");
    std::string output;
    EXPECT_EQ(run_command("trap '' XFSZ; ulimit -f 0; MOXDEV_MODULE_DIR='" + dir.path() + "' " + MOXDEV_CLI +
                              " hps add nand --input '" + dir.file("answers") + "'",
                          output, true),
              1)
        << output;
    EXPECT_NE(output.find("moxdev: cannot change " + path()), std::string::npos) << output;
    EXPECT_EQ(output.find("added:"), std::string::npos) << output;
    EXPECT_EQ(read_bytes(path()), earlier);
}

// A damaged file is moved aside, never silently replaced; a directory in its
// place or a writer that holds the lock too long are errors.
TEST_F(ParamFile, DamageDirectoriesAndLocksAreReported)
{
    std::string output, error;
    write_text(dir.file("answers"), "98\n10\n64\n");
    const std::string add = "hps add nand --input '" + dir.file("answers") + "'";
    ASSERT_EQ(moxdev(add, output), 0) << output;
    BYTES damaged = read_bytes(path());
    damaged[3] ^= 0x20;
    write_bytes(path(), damaged);
    ASSERT_EQ(moxdev("hps list nand", output), 0);
    EXPECT_NE(output.find("warning: " + path() + " cannot be read"), std::string::npos) << output;
    EXPECT_EQ(user_records(output), 0u);
    ASSERT_EQ(moxdev(add, output), 0) << output;
    const std::size_t at = output.find("it was kept as ");
    ASSERT_NE(at, std::string::npos) << output;
    const std::string kept = output.substr(at + 15, output.find('\n', at) - at - 15);
    EXPECT_EQ(kept.rfind(path() + ".damaged-", 0), 0u) << kept;
    EXPECT_EQ(read_bytes(kept), damaged);
    EXPECT_EQ(moxdev::parameter_file_state(), moxdev::PARAMETER_FILE_STATE::VALID);

    // The container the plain write leaves when every set is empty is the
    // library's own: the update takes it as it is.
    ASSERT_TRUE(write(MOXDEV_FLASH_INI_HPS_NAND, {}));
    ASSERT_EQ(read_bytes(path()).size(), 44u);
    EXPECT_EQ(moxdev::parameter_file_state(), moxdev::PARAMETER_FILE_STATE::VALID);
    std::string moved = "stale";
    ASSERT_TRUE(update(BYTES{5}, error, MOXDEV_FLASH_INI_HPS_NAND, moxdev::DEFAULT_LOCK_TIMEOUT_MS, &moved));
    EXPECT_EQ(moved, "");
    EXPECT_EQ(read(MOXDEV_FLASH_INI_HPS_NAND), BYTES{5});

    // Another writer holds the lock past the wait: nothing changes.
    const BYTES before = read_bytes(path());
    const int lock = ::open((path() + ".lock").c_str(), O_RDWR | O_CREAT, 0644);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    EXPECT_FALSE(update(BYTES{1}, error, MOXDEV_FLASH_INI_SET_0, 50));
    EXPECT_NE(error.find("another writer has held"), std::string::npos) << error;
    ::close(lock);
    EXPECT_EQ(read_bytes(path()), before);

    // A directory where the file should be.
    std::filesystem::remove(path());
    std::filesystem::create_directory(path());
    EXPECT_EQ(moxdev(add, output), 1);
    EXPECT_NE(output.find("is a directory"), std::string::npos) << output;
    EXPECT_EQ(moxdev("hps clear nand", output), 1);
}
