// The moxdev command as people use it: listing what a command accepts,
// refusals in plain words, dialogues through pipes, near misses, shell
// completion and the man page.
#include "test_support.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>

using namespace moxdev_test;

namespace {

const std::string CLI = MOXDEV_CLI;

// The build directory: the command is in its bin/.
std::filesystem::path build_dir()
{
    return std::filesystem::path(CLI).parent_path().parent_path();
}

std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

} // namespace

TEST(CliHabits, HpsSelectListsAndSuggestsTheKnownIdcodes)
{
    std::string output;
    ASSERT_EQ(run_command(CLI + " hps select", output, true), 0) << output;
    ASSERT_EQ(run_command(CLI + " hps select --json", output), 0) << output;
    const nlohmann::json listed = nlohmann::json::parse(output);
    ASSERT_EQ(listed.size(), 2u) << output;
    std::string text, refused;
    ASSERT_EQ(run_command(CLI + " hps select", text, true), 0);
    EXPECT_EQ(run_command(CLI + " hps select 12345678", refused, true), 1);
    for (std::size_t d = 0; d < 2; ++d) {
        const DWORD id = MOXDEV_HPS_DESCRIPTORS[d].word[0];
        EXPECT_EQ(listed[d]["idcode"], id);
        EXPECT_EQ(listed[d]["descriptor"], d);
        char line[64];
        std::snprintf(line, sizeof line, "0x%08X  %zu\n", unsigned(id), d);
        EXPECT_NE(text.find(line), std::string::npos) << text;
        std::snprintf(line, sizeof line, "0x%08X (descriptor %zu)", unsigned(id), d);
        EXPECT_NE(refused.find(line), std::string::npos) << refused;
    }
    EXPECT_EQ(refused.rfind("moxdev: no HPS descriptor has the IDCODE 0x12345678; known: ", 0), 0u) << refused;
}

TEST(CliHabits, HpsRemoveRefusesWhatIsNoIndex)
{
    TEMP_DIR dir;
    const std::string hps = "MOXDEV_MODULE_DIR=" + dir.path() + " " + CLI + " hps ";
    std::string output;
    EXPECT_EQ(run_command(hps + "remove spi -1", output, true), 1);
    EXPECT_EQ(output, "moxdev: there are no user spi records to remove (index -1)\n");
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(run_command("printf '2C\\nDC\\n512\\n' | " + hps + "add nand", output, true), 0) << output;
    for (const char* index : {"-1", "2", "abc", "18446744073709551615", "1e1", "+1"}) {
        EXPECT_EQ(run_command(hps + "remove nand " + index, output, true), 1) << index;
        EXPECT_EQ(output, std::string("moxdev: index ") + index +
                              " is not one of the 2 user nand records (0 to 1; see 'moxdev hps list nand')\n");
    }
    ASSERT_EQ(run_command(hps + "remove nand 1", output, true), 0) << output;
}

TEST(CliHabits, HpsAddExplainsRefusalsAndTakesSizesAsThePromptWritesThem)
{
    TEMP_DIR dir;
    const std::string hps = "MOXDEV_MODULE_DIR=" + dir.path() + " " + CLI + " hps ";
    // Each refused answer, then the reason given for it; the density is
    // finally answered with the prompt's own "64k" or "64K".
    const std::pair<const char*, const char*> refusals[] = {
        {"zz", "'zz' is not a hexadecimal number"},
        {"00", "Input is invalid (hit): an ID cannot be all 0's or all 1's"},
        {"2C", nullptr},
        {"DC", nullptr},
        {"0", "Input is out of range: answer 1 to 65536"},
        {"65537", "Input is out of range: answer 1 to 65536"},
        {"4294967297", "Input is out of range: answer 1 to 65536"},
        {"99999999999999999999999", "Input is out of range: answer 1 to 65536"},
        {"-5", "'-5' is not a number (digits, or digits and k for 1024)"},
        {"64m", "'64m' is not a number (digits, or digits and k for 1024)"},
    };
    for (const char* k : {"64k", "64K"}) {
        std::string answers, output;
        for (const auto& refusal : refusals)
            answers += std::string(refusal.first) + "\n";
        write_text(dir.file("answers.txt"), answers + k + "\n");
        ASSERT_EQ(run_command(hps + "add nand --input " + dir.file("answers.txt"), output, true), 0) << output;
        std::size_t at = 0;
        for (const auto& refusal : refusals) {
            if (refusal.second == nullptr)
                continue;
            at = output.find(std::string(" : ") + refusal.first + "\n" + refusal.second + "\n", at);
            EXPECT_NE(at, std::string::npos) << refusal.first << "\n" << output;
        }
        EXPECT_EQ(output.find("QWORD"), std::string::npos) << output;
        EXPECT_EQ(output.find("overflow"), std::string::npos) << output;
        EXPECT_NE(output.find("added: 0x0000002C 0x000000DC 68719476736\n"), std::string::npos) << output;
    }
}

TEST(CliHabits, HpsAddPromptsKeepTheirLinesUnlessOnATerminal)
{
    TEMP_DIR dir;
    const std::string hps = "MOXDEV_MODULE_DIR=" + dir.path() + " " + CLI + " hps ";
    write_text(dir.file("answers.txt"), "2C\nDC\n512\n");
    const std::vector<std::string> expected = {
        "Manufacturer ID (hex) [Cannot be all 0's or all 1's] : 2C", "Device ID (hex) [Cannot be all 0's or all 1's] : DC",
        "Memory Density [1 - 64k MByte] : 512", "added: 0x0000002C 0x000000DC 536870912"};
    std::string output;
    ASSERT_EQ(run_command(hps + "add nand < " + dir.file("answers.txt"), output), 0) << output;
    EXPECT_EQ(lines_of(output), expected);
    ASSERT_EQ(run_command(hps + "add nand --input " + dir.file("answers.txt"), output), 0) << output;
    EXPECT_EQ(lines_of(output), expected);

    // On a terminal the typed answer is on the prompt's line already: the
    // command writes nothing after the prompt (the terminal shows what was
    // typed, whenever it was typed).
    if (std::system("command -v script > /dev/null") != 0)
        GTEST_SKIP() << "no 'script' to run the command on a terminal";
    ASSERT_EQ(run_command("script -qec '" + hps + "add nand' /dev/null < " + dir.file("answers.txt"), output), 0)
        << output;
    EXPECT_NE(output.find("Memory Density [1 - 64k MByte] : added: "), std::string::npos) << output;
}

TEST(CliHabits, UnknownSubcommandsGetTheNearestName)
{
    const std::pair<const char*, const char*> cases[] = {
        {"devcie show x", "moxdev: unknown command 'devcie' (did you mean device?)\n"},
        {"flash identfy 20", "moxdev: unknown command 'identfy' (did you mean identify?)\n"},
        {"hps selct 4BA00477", "moxdev: unknown command 'selct' (did you mean select?)\n"},
        {"completion bsh", "moxdev: unknown command 'bsh' (did you mean bash or zsh?)\n"},
    };
    for (const auto& [arguments, message] : cases) {
        std::string output;
        EXPECT_EQ(run_command(CLI + " " + arguments, output, true), 1) << arguments;
        EXPECT_EQ(output, message);
    }
}

TEST(CliHabits, CompletionFollowsTheCommandTree)
{
    TEMP_DIR dir;
    std::string bash, zsh;
    ASSERT_EQ(run_command(CLI + " completion bash", bash), 0);
    ASSERT_EQ(run_command(CLI + " completion zsh", zsh), 0);
    write_text(dir.file("moxdev.bash"), bash);
    write_text(dir.file("_moxdev"), zsh);
    std::filesystem::create_directory(dir.file("empty")); // no file names to offer
    EXPECT_EQ(zsh.rfind("#compdef moxdev\n", 0), 0u);

    // The words typed so far (the last one being completed), and what is
    // offered; zsh filters by the typed prefix itself, so it is asked with
    // an empty last word only. "files" stands for file-name completion.
    struct CASE {
        const char* typed;
        const char* offered;
        bool zsh;
    };
    const CASE cases[] = {
        {"moxdev dev", "device", false},
        {"moxdev --v", "--version", false},
        {"moxdev device list --f", "--full --family", false},
        {"moxdev hps remove s", "spi", false},
        {"moxdev ''", "device flash name opn type image hps completion", true},
        {"moxdev hps ''", "list add remove clear select", true},
        {"moxdev hps list ''", "nand spi", true},
        {"moxdev --version hps add --input x ''", "nand spi", true},
        {"moxdev completion ''", "bash zsh", true},
        {"moxdev flash list --maker ''", "files", true},
    };
    const bool have_zsh = std::system("command -v zsh > /dev/null") == 0;
    for (const CASE& c : cases) {
        std::string output;
        write_text(dir.file("complete.bash"), "cd " + dir.file("empty") + "\nsource " +
                                                  dir.file("moxdev.bash") + "\nCOMP_WORDS=(" + c.typed +
                                                  ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_moxdev\n"
                                                  "echo \"${COMPREPLY[*]:-files}\"\n");
        ASSERT_EQ(run_command("bash " + dir.file("complete.bash"), output, true), 0) << output;
        EXPECT_EQ(output, std::string(c.offered) + "\n") << "bash: " << c.typed;
        if (!c.zsh || !have_zsh)
            continue;
        // The completion system's functions, stood in for by ones that print
        // what they are given.
        write_text(dir.file("complete.zsh"),
                   "_describe() { local -a a; a=(\"${(@P)4}\"); print -r -- \"${a[@]%%:*}\"; }\n"
                   "compadd() { local -a a; a=(\"${(@P)2}\"); print -r -- \"${a[@]}\"; }\n"
                   "_files() { print files; }\n"
                   "source " + dir.file("_moxdev") + " > /dev/null\n"
                   "words=(${(z)TYPED}); words=(\"${(@Q)words}\"); CURRENT=${#words}\n_moxdev\n");
        ASSERT_EQ(run_command("TYPED=\"" + std::string(c.typed) + "\" zsh " + dir.file("complete.zsh"), output, true),
                  0)
            << output;
        EXPECT_EQ(output, std::string(c.offered) + "\n") << "zsh: " << c.typed;
    }
}

TEST(CliHabits, InstallCarriesTheCompletionsAndTheManPage)
{
    // The build made them with the command itself; the install copies them.
    const bool man_page = std::system("command -v help2man > /dev/null") == 0;
    const std::string page = (build_dir() / "share/man/man1/moxdev.1").string();
    if (man_page) {
        ASSERT_TRUE(std::filesystem::exists(page));
        const std::string roff = read_text(page);
        EXPECT_NE(roff.find(".TH MOXDEV \"1\""), std::string::npos) << roff;
        for (const char* verb : {"device", "flash", "name", "opn", "type", "image", "hps", "completion"})
            EXPECT_NE(roff.find(std::string(".TP\n") + verb + "\n"), std::string::npos) << verb;
    }
    std::string bash;
    ASSERT_EQ(run_command(CLI + " completion bash", bash), 0);
    EXPECT_EQ(read_text((build_dir() / "share/bash-completion/completions/moxdev").string()), bash);

    TEMP_DIR prefix;
    std::string output;
    ASSERT_EQ(run_command("cmake --install " + build_dir().string() + " --prefix " + prefix.path() + " > /dev/null",
                          output, true),
              0)
        << output;
    EXPECT_EQ(read_text(prefix.file("share/bash-completion/completions/moxdev")), bash);
    EXPECT_TRUE(std::filesystem::exists(prefix.file("share/zsh/site-functions/_moxdev")));
    EXPECT_EQ(std::filesystem::exists(prefix.file("share/man/man1/moxdev.1")), man_page);
}
