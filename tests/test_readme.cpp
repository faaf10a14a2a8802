// The examples of README.md, run: every "$ " line of a ```console block is a
// command, the lines up to the next command its expected output ("..."
// stands for any number of lines). The commands of a block run in one shell,
// from a scratch directory that holds the repository's data/, with the built
// command first on the PATH and a scratch module directory.
#include "test_support.h"

#include <filesystem>
#include <sstream>

using namespace moxdev_test;

namespace {

struct EXAMPLE {
    std::string command;
    std::vector<std::string> expected;
};

struct BLOCK {
    int line = 0;
    std::vector<EXAMPLE> examples;
};

std::vector<BLOCK> console_blocks(const std::string& readme)
{
    std::vector<BLOCK> blocks;
    std::istringstream in(readme);
    std::string line;
    bool inside = false;
    for (int number = 1; std::getline(in, line); ++number) {
        if (!inside && line == "```console") {
            inside = true;
            blocks.push_back(BLOCK{number, {}});
        } else if (inside && line == "```") {
            inside = false;
        } else if (inside && line.compare(0, 2, "$ ") == 0) {
            blocks.back().examples.push_back(EXAMPLE{line.substr(2), {}});
        } else if (inside && !blocks.back().examples.empty()) {
            blocks.back().examples.back().expected.push_back(line);
        }
    }
    return blocks;
}

// Whether `actual` lines match `expected`, where "..." matches any run.
bool matches(const std::vector<std::string>& expected, std::size_t e, const std::vector<std::string>& actual,
             std::size_t a)
{
    if (e == expected.size())
        return a == actual.size();
    if (expected[e] == "...") {
        for (std::size_t skip = a; skip <= actual.size(); ++skip)
            if (matches(expected, e + 1, actual, skip))
                return true;
        return false;
    }
    return a < actual.size() && expected[e] == actual[a] && matches(expected, e + 1, actual, a + 1);
}

std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

} // namespace

TEST(Readme, EveryExampleRunsAsShown)
{
    const std::vector<BLOCK> blocks = console_blocks(read_text(source_path("README.md")));
    ASSERT_GE(blocks.size(), 5u);
    const std::string bin = std::filesystem::path(MOXDEV_CLI).parent_path().string();
    std::size_t examples = 0;
    for (const BLOCK& block : blocks) {
        TEMP_DIR dir;
        std::filesystem::create_directory_symlink(source_path("data"), dir.file("data"));
        std::filesystem::create_directories(dir.file("module"));
        // One shell per block, a marker line before each command's output.
        std::string script = "cd '" + dir.path() + "' && export PATH='" + bin + "':\"$PATH\" MOXDEV_MODULE_DIR='" +
                             dir.file("module") + "'\n";
        for (std::size_t i = 0; i < block.examples.size(); ++i)
            script += "echo '@@@ " + std::to_string(i) + "'\n" + block.examples[i].command + " 2>&1\n";
        write_text(dir.file("script.sh"), script);
        std::string output;
        run_command("sh '" + dir.file("script.sh") + "'", output, true);

        std::vector<std::vector<std::string>> results(block.examples.size());
        int current = -1;
        for (const std::string& line : lines_of(output)) {
            if (line.compare(0, 4, "@@@ ") == 0)
                current = std::stoi(line.substr(4));
            else if (current >= 0)
                results[std::size_t(current)].push_back(line);
        }
        for (std::size_t i = 0; i < block.examples.size(); ++i) {
            const EXAMPLE& example = block.examples[i];
            EXPECT_TRUE(matches(example.expected, 0, results[i], 0))
                << "README.md block at line " << block.line << ": $ " << example.command << "\n--- got:\n"
                << [&] {
                       std::string got;
                       for (const std::string& line : results[i])
                           got += line + "\n";
                       return got;
                   }();
            ++examples;
        }
    }
    EXPECT_GE(examples, 15u);
}
