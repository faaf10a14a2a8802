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
    std::vector<std::string> expected, got;
    bool skipped = false; // needs the Python module, which this build lacks
};

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

// Runs the examples of one block, a marker line before each one's output.
void run_block(std::vector<EXAMPLE>& examples)
{
    TEMP_DIR dir;
    std::filesystem::create_directory_symlink(source_path("data"), dir.file("data"));
    std::filesystem::create_directories(dir.file("module"));
    // The Python module of this build, where it is built (not in the
    // sanitizer builds): the "From Python" examples import it.
    std::string script = "cd '" + dir.path() + "' && export PATH='" +
                         std::filesystem::path(MOXDEV_CLI).parent_path().string() + "':\"$PATH\" MOXDEV_MODULE_DIR='" +
                         dir.file("module") + "' PYTHONPATH='" + MOXDEV_PYTHON_DIR + "'\n";
    for (std::size_t i = 0; i < examples.size(); ++i)
        script += "echo '@@@ " + std::to_string(i) + "'\n" + examples[i].command + " 2>&1\n";
    write_text(dir.file("script.sh"), script);
    std::string output;
    run_command("sh '" + dir.file("script.sh") + "'", output, true);
    std::istringstream in(output);
    EXAMPLE* current = nullptr;
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, 4, "@@@ ") == 0)
            current = &examples.at(std::stoul(line.substr(4)));
        else if (current != nullptr)
            current->got.push_back(line);
    }
}

} // namespace

TEST(Readme, EveryExampleRunsAsShown)
{
    std::istringstream in(read_text(source_path("README.md")));
    std::vector<EXAMPLE> block;
    std::size_t blocks = 0, examples = 0;
    int start = 0;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (start == 0 && line == "```console") {
            start = number;
            block.clear();
        } else if (start != 0 && line == "```") {
            run_block(block);
            for (const EXAMPLE& example : block) {
                if (example.skipped)
                    continue;
                std::string got;
                for (const std::string& shown : example.got)
                    got += shown + "\n";
                EXPECT_TRUE(matches(example.expected, 0, example.got, 0))
                    << "README.md block at line " << start << ": $ " << example.command << "\n--- got:\n"
                    << got;
            }
            start = 0;
            ++blocks;
            examples += block.size();
        } else if (start != 0 && line.compare(0, 2, "$ ") == 0) {
            block.push_back(EXAMPLE{line.substr(2), {}, {}});
            if (std::string(MOXDEV_PYTHON_DIR).empty() && line.find("python3") != std::string::npos) {
                block.back().command = "true";
                block.back().skipped = true;
            }
        } else if (start != 0 && !block.empty()) {
            block.back().expected.push_back(line);
        }
    }
    EXPECT_GE(blocks, 5u);
    EXPECT_GE(examples, 15u);
}
