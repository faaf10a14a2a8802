// The moxdev command as people use it: answers, refusals and exit statuses of
// every verb, the --json documents, the dialogues, shell completion and the
// install. Most cases are command lines run by the shell, as a user types them.
#include "test_support.h"

#include "moxdev/dump_text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <sstream>

using namespace moxdev_test;
using JSON = nlohmann::ordered_json;

namespace {

const std::string CLI = MOXDEV_CLI;

// A command line, its exit status and its output: all of it when the text
// ends with a newline, otherwise a part of it.
struct CASE {
    std::string command;
    int status;
    std::string text;
};

// A scratch directory holding the repository's data/. Commands run in it with
// the built moxdev first on the PATH and the directory as the module directory.
class SCRATCH : public TEMP_DIR {
public:
    SCRATCH() { std::filesystem::create_directory_symlink(source_path("data"), file("data")); }

    // Standard error joins the output unless `stdout_only`.
    int run(const std::string& command, std::string& output, bool stdout_only = false) const
    {
        return run_command("{ cd '" + path() + "' && export PATH='" +
                               std::filesystem::path(CLI).parent_path().string() + "':\"$PATH\" MOXDEV_MODULE_DIR='" +
                               path() + "'; " + command + "; }",
                           output, !stdout_only);
    }

    // In order: a command may use what the ones before it left.
    void expect(const std::vector<CASE>& cases) const
    {
        for (const CASE& c : cases) {
            std::string output;
            EXPECT_EQ(run(c.command, output), c.status) << c.command << "\n" << output;
            if (!c.text.empty() && c.text.back() == '\n')
                EXPECT_EQ(output, c.text) << c.command;
            else
                EXPECT_NE(output.find(c.text), std::string::npos) << c.command << "\n" << output;
        }
    }

    JSON json(const std::string& command) const
    {
        std::string output;
        EXPECT_EQ(run(command, output, true), 0) << command;
        EXPECT_TRUE(JSON::accept(output)) << command << "\n" << output;
        return JSON::accept(output) ? JSON::parse(output) : JSON();
    }
};

std::size_t count(const std::string& text, const std::string& what)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++found;
    return found;
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::toupper(c)); });
    return text;
}

} // namespace

TEST(Cli, HelpUsageErrorsAndStatuses)
{
    const SCRATCH dir;
    dir.expect({
        {"moxdev --help", 0, "\nUsage: moxdev [OPTIONS] SUBCOMMAND\n\nOptions:"},
        {"moxdev --version", 0, "moxdev 0."},
        // Nothing at all, or a command without its subcommand: the help, on
        // standard error, status 1.
        {"moxdev 2>/dev/null || echo status $?", 0, "status 1\n"},
        {"moxdev", 1, "Usage: moxdev [OPTIONS] SUBCOMMAND"},
        {"moxdev hps", 1, "Usage: moxdev hps"},
        // Anything else is one "moxdev: " line naming the help to read.
        {"moxdev device show", 1, "moxdev: NAME is required; see 'moxdev device show --help'\n"},
        {"moxdev device frobnicate", 1,
         "moxdev: 'frobnicate' is not a subcommand of 'moxdev device' (show, list, generate); "
         "see 'moxdev device --help'\n"},
        {"moxdev flash --frob", 1, "moxdev: '--frob' is not an option of 'moxdev flash'; see 'moxdev flash --help'\n"},
        {"moxdev device list --by family --full", 1, "moxdev: --full excludes --by; see 'moxdev device list --help'\n"},
        {"moxdev device list --by shoe", 1,
         "moxdev: --by: shoe not in {family,device,part}; see 'moxdev device list --help'\n"},
        {"moxdev hps selct 4BA00477", 1, "moxdev: unknown command 'selct' (did you mean select?)\n"},
        {"moxdev completion bsh", 1, "moxdev: unknown command 'bsh' (did you mean bash or zsh?)\n"},
        // -V, help COMMAND, -q and -v.
        {"moxdev -V", 0, "moxdev 0."},
        {"moxdev flash list --help > a && moxdev help flash list | cmp - a && echo same", 0, "same\n"},
        {"moxdev --help > a && moxdev help | cmp - a && echo same", 0, "same\n"},
        {"moxdev help flash nosuch", 1,
         "moxdev: 'nosuch' is not a command of 'moxdev flash'; see 'moxdev flash --help'\n"},
        {"MOX_SUPPORT_EXT_SPI_DEV=garbage moxdev flash list 'ZZ*' -q", 0, ""},
        {"MOX_SUPPORT_EXT_SPI_DEV=garbage moxdev -v flash identify 20 BA 19 2>/dev/null | head -n 1", 0,
         "Fail to generate INI because of decompression failure\n"},
    });
    // Every command explains itself: a one-line description, then the usage.
    for (const char* command :
         {"device",         "device show",  "device list",  "device generate", "flash", "flash list",
          "flash identify", "flash define", "flash decode", "flash generate",  "name",  "opn",
          "type",           "image",        "image check",  "image build",     "hps",   "hps list",
          "hps add",        "hps remove",   "hps clear",    "hps select"}) {
        std::string output;
        ASSERT_EQ(dir.run("moxdev " + std::string(command) + " --help", output), 0) << command;
        const std::size_t usage = output.find("\nUsage: moxdev " + std::string(command) + " ");
        EXPECT_TRUE(usage != std::string::npos && usage > 0 && output.find('\n') == usage) << output;
    }
    // With --json a refusal leaves standard output empty; the library may
    // explain itself first, the error is the last line.
    for (const char* arguments :
         {"device show NO_SUCH_NAME", "flash identify 12 34 56", "flash decode rubbish", "name NOSUCHTHING", "opn 0x1",
          "type block 0", "hps select 12345678", "image check missing"}) {
        std::string output;
        EXPECT_EQ(dir.run("moxdev " + std::string(arguments) + " --json 2>err.txt", output, true), 1) << arguments;
        EXPECT_EQ(output, "") << arguments;
        ASSERT_EQ(dir.run("tail -n 1 err.txt", output), 0);
        EXPECT_EQ(output.rfind("moxdev: ", 0), 0u) << arguments << "\n" << output;
    }
    // An answer that cannot be written is not a success: status 1 and one
    // line saying why, whichever verb lost it.
    for (const char* arguments : {"--help", "--version", "device list --json", "device show kxb100f484c6", "flash list",
                                  "flash identify EF 40 18", "flash sfdp data/sfdp/example.hexdump",
                                  "name kxb120f484i7", "opn KXB120F484I7", "hps list nand", "type block"}) {
        std::string output;
        EXPECT_EQ(dir.run("moxdev " + std::string(arguments) + " > /dev/full", output), 1) << arguments;
        EXPECT_EQ(output, "moxdev: cannot write the output: No space left on device\n") << arguments;
    }
    // A damaged database is an internal error, status 2, with nothing on
    // standard output.
    dir.expect({{"mkdir -p bad/programmer && echo short > bad/programmer/mox_dev_info.pcf && "
                 "MOXDEV_DEVICE_DB_DIR=bad moxdev device list --json 2>/dev/null || echo status $?",
                 0, "status 2\n"}});
}

TEST(CliDevice, ShowListAndGenerateAnswerOrRefuseInPlainWords)
{
    const SCRATCH dir;
    dir.expect({
        {"moxdev device show KXB100", 0,
         "KXB100: device 284 (family Kestrel II)\nserved by record 21 (kestrel2_kxb100)\n  family "},
        {"moxdev device show 'kestrel ii'", 0, "Kestrel II: family 20\nserved by record 20 (kestrel2)\n  family"},
        {"moxdev device show generic", 0, "served by record 1 (generic)\n  family "},
        {"moxdev device show generic", 0, "\n  support_vab "},
        {"moxdev device show kxfamily2", 0, "KXFAMILY2: family name of family Kestrel II\nKestrel II: family 20"},
        {"moxdev device show kxb100_v1", 0, "KXB100_V1: catalogue configuration of device KXB100\nKXB100: device"},
        // Surrounding blanks are no part of a name.
        {"moxdev device show 'KXB100F484C6 '", 0, "KXB100F484C6: part 5358"},
        {"test \"$(moxdev name ' KXB100F484C6 ')\" = \"$(moxdev name KXB100F484C6)\" && echo same", 0, "same\n"},
        {"moxdev device show kxb100f484c9", 1,
         "moxdev: no family, device or part is named 'kxb100f484c9' (did you mean KXB10, KXB100, KXB100F484, "
         "KXB100F484C6 or KXB100F484C7?)\n"},
        {"moxdev device show kxfamily22", 1,
         "moxdev: no family, device or part is named 'kxfamily22' (did you mean KXFAMILY2, KXFAMILY1, KXFAMILY3, "
         "KXFAMILY4 or KXFAMILY5?)\n"},
        {"moxdev device list --device kxb100 --by part", 0,
         "\nKXB100F484C6                   5358  -> record 21  kestrel2_kxb100\n"
         "KXB100F484C7                   5359  -> record 21  kestrel2_kxb100"},
        {"moxdev device list --family KESTREL_II --full", 0, "Record 20 of 79\n  family  "},
        {"moxdev device list --family KESTREL_II --full", 0, "\n  support_vab "},
        {"moxdev device list --family kestrel_iii_x", 1,
         "moxdev: no family is named 'kestrel_iii_x' (did you mean KESTREL_I, KESTREL_II, KESTREL_III, Kestrel III "
         "or Kestrel II?)\n"},
        {"moxdev device list --device kxb10O", 1,
         "moxdev: no device is named 'kxb10O' (did you mean KXB10, KXB100, KXB10L, KXA10 or KXA100?)\n"},
        {"moxdev device list --family wren_i --device kxb100", 1,
         "moxdev: device KXB100 is of family Kestrel II, not Wren I\n"},
        {"moxdev device generate data/mox_dev_info.csv db.pcf && cmp db.pcf '" +
             data_path("programmer/mox_dev_info.pcf") + "' && echo same",
         0, "wrote db.pcf (79 records, 2463 bytes)\nsame\n"},
        // User mistakes are user errors, not internal ones.
        {"moxdev device generate data/mox_dev_info.csv ''", 1, "moxdev: no output file given (OUT is empty)\n"},
        {"mkdir sub && moxdev device generate data/mox_dev_info.csv sub", 1, "moxdev: 'sub' is a directory"},
        {"moxdev device generate data/mox_dev_info.csv none/db.pcf", 1,
         "moxdev: cannot write 'none/db.pcf': there is no directory 'none'\n"},
        {"moxdev image build ''", 1, "moxdev: no directory given (DIR is empty)\n"},
        {"moxdev image check sub", 1, "moxdev: 'sub' is a directory; name an image file, e.g. 'sub/grammar.img'\n"},
        // A setting that points nowhere names the file looked for and the variable.
        {"MOXDEV_DEVICE_DB_DIR=none moxdev device show KXB100", 1,
         "moxdev: no device database '" + dir.file("none/programmer/mox_dev_info.pcf") +
             "' (MOXDEV_DEVICE_DB_DIR names the directory that holds programmer/mox_dev_info.pcf)\n"},
        {"MOXDEV_DEVICE_DB_DIR=none moxdev device list", 1, "/none/programmer/mox_dev_info.pcf' (MOXDEV_DEVICE_DB_DIR"},
        {"MOXDEV_INSTALL_DIR=none moxdev device generate data/mox_dev_info.csv db.pcf", 1,
         "moxdev: no part list '" + dir.file("none/h/mox_parts.txt") + "' (MOXDEV_INSTALL_DIR names"},
        // A damaged device table names the file, line and column, and writes nothing.
        {"awk -F, -v OFS=, 'NR==3{$2=$2\",extra\"}1' data/mox_dev_info.csv > bad.csv; "
         "moxdev device generate bad.csv bad.pcf",
         1, "moxdev: bad.csv:3: 87 cells, a device table line has 86\n"},
        {"awk -F, -v OFS=, 'NR==3{$34=\"256\"}1' data/mox_dev_info.csv > bad.csv; "
         "moxdev device generate bad.csv bad.pcf",
         1,
         "moxdev: bad.csv:3:34: ps_cmp_dclk_ratio: '256' is not a number of 0 to 255 "
         "(a BYTE field)\n"},
        {"awk -F, -v OFS=, 'NR==3{$1=\"WREN_1\"}1' data/mox_dev_info.csv > bad.csv; "
         "moxdev device generate bad.csv bad.pcf",
         1, "moxdev: bad.csv:3:1: family: 'WREN_1' is no family the table may name (did you mean"},
        {"test -e bad.pcf || echo none", 0, "none\n"},
    });
    // One line per family, device or part value (the invalid one left out).
    const std::pair<std::string, std::size_t> listings[] = {{"--by family", DEV_FAMILY_MAX - 1},
                                                            {"--by device", DEV_DEVICE_MAX - 1},
                                                            {"--by part", DEV_PART_MAX - 1},
                                                            {"--family 'kestrel ii' --by device", 18},
                                                            {"--family kestrel_ii --device kxb100 --by part", 18}};
    for (const auto& [arguments, lines] : listings) {
        std::string output;
        ASSERT_EQ(dir.run("moxdev device list " + arguments, output), 0) << arguments << "\n" << output;
        EXPECT_EQ(count(output, "\n"), lines) << arguments;
    }
}

TEST(CliDevice, JsonHasEveryFieldInRecordOrderAndAgreesWithTheLists)
{
    const SCRATCH dir;
    JSON part = dir.json("moxdev device show kxb100f484c6 --json");
    EXPECT_EQ(part["kind"], "part");
    EXPECT_EQ(part["value"], 5358);
    EXPECT_EQ(part["device_name"], "KXB100");
    JSON& record = part["record"];
    EXPECT_TRUE(record["support_vab"].is_boolean());
    EXPECT_TRUE(record["aes_n_fuse_bits"].is_number_unsigned());
    EXPECT_EQ(record["family_name"], "KESTREL_II");
    EXPECT_EQ(record["family"], 20);
    EXPECT_TRUE(record["ekp_alg_family_name"].is_string());
    // Every field, in record order, each catalogue value with its name.
    std::vector<std::string> keys;
    for (const auto& item : record.items())
        if (item.key().size() < 5 || item.key().compare(item.key().size() - 5, 5, "_name") != 0)
            keys.push_back(item.key());
    EXPECT_EQ(keys, std::vector<std::string>(MOXDEV_DEVICE_FIELD_NAMES,
                                             MOXDEV_DEVICE_FIELD_NAMES + TOTAL_DEVICE_DATABASE_MEMBER));
    JSON records = dir.json("moxdev device list --json");
    ASSERT_EQ(records.size(), TOTAL_DATABASE_DEVICE);
    EXPECT_EQ(records[part["record_index"].get<std::size_t>()]["record"], record);

    JSON family = dir.json("moxdev device show 'kestrel ii' --json");
    EXPECT_EQ(family["kind"], "family");
    EXPECT_EQ(family["name"], "KESTREL_II");
    JSON families = dir.json("moxdev device list --by family --json");
    ASSERT_EQ(families.size(), std::size_t(DEV_FAMILY_MAX - 1));
    EXPECT_EQ(families.back()["display_name"], "Generic");
    JSON& kestrel = families[family["value"].get<std::size_t>() - 1];
    EXPECT_EQ(kestrel["record_index"], family["record_index"]);
    EXPECT_EQ(kestrel["record_pcf"], family["record"]["pcf"]);
    EXPECT_EQ(dir.json("moxdev device list --by device --json").size(), std::size_t(DEV_DEVICE_MAX - 1));
    EXPECT_EQ(dir.json("moxdev device list --by part --json").size(), std::size_t(DEV_PART_MAX - 1));
}

// Every form `name` prints for a part is a name `device show` and `name`
// take, and each leads back to the same device or family.
TEST(CliNaming, EveryPrintedFormIsAcceptedAndUnknownNamesOfferTheClosest)
{
    const SCRATCH dir;
    std::string forms;
    ASSERT_EQ(dir.run("moxdev name kxb120f484i7", forms), 0);
    std::istringstream in(forms);
    int checked = 0;
    for (std::string line; std::getline(in, line);) {
        const std::string label = line.substr(0, 28), value = line.substr(29);
        if (value == "-" || label.find("OPN") == 0 || label.find("use ") == 0)
            continue;
        std::string output;
        EXPECT_EQ(dir.run("moxdev device show " + value, output), 0) << label << " " << value << "\n" << output;
        // The family's record, or a list holding the family or the device.
        EXPECT_TRUE(output.find("KESTREL_II") != std::string::npos || output.find("KXB120 ") != std::string::npos)
            << value << "\n"
            << output;
        EXPECT_EQ(dir.run("moxdev name " + value, output), 0) << value << "\n" << output;
        EXPECT_NE(output.find("KX_FAMILY"), std::string::npos) << value << "\n" << output;
        ++checked;
    }
    EXPECT_EQ(checked, 9);

    dir.expect({
        {"moxdev name NOSUCHTHING", 1, "moxdev: no device name form is known for 'NOSUCHTHING'\n"},
        {"moxdev name kxb100f48", 1,
         "moxdev: no device name form is known for 'kxb100f48' (did you mean KXB10, KXB100, KXB100F484, "
         "KXB100F484C6 or KXB100F484C7?)\n"},
        {"moxdev opn kxb100f484c9", 1, "did you mean KXB100F484C6"},
        // A name far longer than any known one has no near miss: an answer at
        // once, quoted short.
        {"timeout 2 moxdev name \"$(head -c 100000 /dev/zero | tr '\\0' K)\"", 1,
         "moxdev: no device name form is known for 'KKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKKK...' (100000 "
         "characters)\n"},
        {"moxdev opn 0x1", 1, "moxdev: no OPN has the hash 0x000000000001\n"},
        {"moxdev opn NOSUCH", 1, "moxdev: 'NOSUCH' is not an orderable part of the catalogue\n"},
        {"moxdev type 1 8", 0, "8 = DONE_BITS\n"},
        {"moxdev type option-bit", 0, "\n  21  AES_KEYS\n  22  "},
        {"moxdev type nosuchkind 1", 1,
         "moxdev: unknown kind 'nosuchkind' (block, flash-sector, option-bit, hps-setting or 0-3)\n"},
    });
    // Without a value, every value of the kind; the JSON has one object each.
    for (const char* kind : {"block", "flash-sector", "option-bit", "hps-setting"}) {
        std::string text, json;
        ASSERT_EQ(dir.run(std::string("moxdev type ") + kind, text), 0) << text;
        ASSERT_EQ(dir.run(std::string("moxdev type ") + kind + " --json", json, true), 0);
        const std::size_t values = count(text, "\n") - 1;
        EXPECT_NE(text.find(std::to_string(values) + " supported " + kind + " values"), std::string::npos) << text;
        EXPECT_EQ(count(json, "{"), values + 1) << json;
    }

    JSON name = dir.json("moxdev name kxb100f484c6 --json");
    EXPECT_EQ(name["programmer_part"], "KXB100M");
    EXPECT_TRUE(name["use_full_name"].is_boolean());
    JSON by_name = dir.json("moxdev opn KXB100F484C6 --json");
    EXPECT_EQ(by_name["enum"], name["opn_enum"]);
    EXPECT_EQ(by_name["hash"], name["opn_hash"]);
    EXPECT_EQ(dir.json("moxdev opn " + std::to_string(by_name["enum"].get<DWORD>()) + " --json"), by_name);
    char hash[32];
    std::snprintf(hash, sizeof hash, "0x%llX", by_name["hash"].get<unsigned long long>());
    EXPECT_EQ(dir.json(std::string("moxdev opn ") + hash + " --json"), by_name);
    EXPECT_EQ(dir.json("moxdev type option-bit aes_keys --json"),
              JSON({{"kind", "option-bit"}, {"kind_value", 2}, {"value", 21}, {"name", "AES_KEYS"}}));
}

TEST(CliImage, CheckFindsDamageAndCountsEveryEntry)
{
    const SCRATCH dir;
    dir.expect({
        {"moxdev image build images", 0, "OPN image: "},
        {"moxdev image check images/grammar.img", 0, "SPEEDGRADE"},
        {"moxdev image check images/opn.img", 0, "\n  19085 OPN enums\nsame as the catalogue of this build: yes"},
        {"cp images/grammar.img bad.img && printf X | dd of=bad.img bs=1 seek=50000 conv=notrunc 2>/dev/null && "
         "moxdev image check bad.img",
         2, "crc32"},
        {"moxdev image check missing.img", 1, "moxdev: cannot read 'missing.img': no such file\n"},
    });
    JSON grammar = dir.json("moxdev image check images/grammar.img --json");
    EXPECT_EQ(grammar["kind"], "grammar");
    EXPECT_EQ(grammar["same_as_catalogue"], true);
    std::size_t entries = 0;
    for (JSON& table : grammar["tables"])
        entries += table["entries"].get<std::size_t>();
    EXPECT_EQ(grammar["entries"], entries);
    JSON opn = dir.json("moxdev image check images/opn.img --list --json");
    EXPECT_EQ(opn["list"].size(), opn["count"]);
    EXPECT_EQ(opn["list"][5357]["name"], "KXB100F484C6");
}

TEST(CliHps, UserPartsAreAddedListedAndRemovedWithReasonsForEveryRefusal)
{
    const SCRATCH dir;
    const std::string density = "Memory Density [1 - 64k MByte] : ";
    const std::string range = "Input is out of range: answer 1 to 65536\n";
    const std::string id_prompt = "Manufacturer ID (hex) [Cannot be all 0's or all 1's] (one byte, 01 to FE) : ";
    const std::string ids =
        id_prompt + "2C\nDevice ID (hex) [Cannot be all 0's or all 1's] (one byte, 01 to FE) : DC\n";
    const std::string prompts = ids + density + "512\n";
    dir.expect({
        {"moxdev hps list nand", 0, "10 records, 0 of them the user's"},
        {"moxdev hps remove spi -1", 1, "moxdev: there are no user spi records to remove (index -1)\n"},
        // Each refused answer with its reason, then the question again. An ID
        // is one byte; a size may carry the prompt's unit or its k.
        {"printf 'zz\\n100\\n1AB\\n2C\\nDC\\n0\\n65537\\n4294967297\\n99999999999999999999999\\n-5\\n64g\\n64K\\n' "
         "| moxdev hps add nand",
         0,
         id_prompt + "zz\n'zz' is not a hexadecimal number\n" + id_prompt +
             "100\nInput is out of range: answer 1 to FE\n" + id_prompt +
             "1AB\nInput is out of range: answer 1 to FE\n" + ids + density + "0\n" + range + density + "65537\n" +
             range + density + "4294967297\n" + range + density + "99999999999999999999999\n" + range + density +
             "-5\n'-5' is not a number (digits, or digits and k for 1024)\n" + density +
             "64g\n'64g' is not a number (digits, or digits and k for 1024)\n" + density +
             "64K\nadded: 0x0000002C 0x000000DC 68719476736\n"},
        // Prompts keep their lines through a pipe or a file...
        {"printf '2C\\nDC\\n512MB\\n' > answers.txt && moxdev hps add nand < answers.txt", 0,
         ids + density + "512MB\nadded: 0x0000002C 0x000000DC 536870912\n"},
        {"printf '2C\\nDC\\n512\\n' > answers.txt && moxdev hps add nand --input answers.txt", 1,
         prompts + "moxdev: cannot change " + dir.file("mox_flash.ini") +
             ": this part is already user nand record 0 (see 'moxdev hps list nand')\n"},
        // ...but on a terminal the typed answer is on the prompt's line already,
        // so nothing follows the prompt. script (util-linux; Debian's bsdutils)
        // gives the command a terminal.
        {"printf '2C\\nDC\\n128\\n' > answers2.txt && script -qec 'moxdev hps add nand' /dev/null < answers2.txt", 0,
         density + "added: "},
        // A directory the file cannot be written in is refused before any question.
        {"MOXDEV_MODULE_DIR=missing moxdev hps add nand < answers.txt", 1,
         "moxdev: cannot write mox_flash.ini in the module directory missing: it does not exist; set "
         "MOXDEV_MODULE_DIR to a directory you can write\n"},
        {"moxdev hps clear nand", 0, "removed every user nand record\n"},
        {"printf '98\\nD3\\n1024\\n' | moxdev hps add nand && moxdev hps add nand < answers.txt", 0, ""},
        {"moxdev hps list nand", 0,
         "    0  user     0x0000002C 0x000000DC 536870912\n    1  user     0x00000098 0x000000D3 1073741824\n"
         "    2  built-in"},
        {"moxdev hps list nand", 0, "12 records, 2 of them the user's"},
    });
    // An index is the number of a user record, nothing else.
    for (const char* index : {"-1", "2", "abc", "18446744073709551615", "1e1", "+1"})
        dir.expect({{std::string("moxdev hps remove nand ") + index, 1,
                     std::string("moxdev: index ") + index +
                         " is not one of the 2 user nand records (0 to 1; see 'moxdev hps list nand')\n"}});
    dir.expect({
        // The silicon ID as read (stored first byte lowest), the sector size with its unit.
        {"printf 'EF 40 18\\nFFFFFF\\n0\\n0\\nwinbond\\nqspi_128\\n128\\n64k\\n256\\n200\\n2\\n2\\n3000\\n1\\n1\\ny"
         "\\nDC\\n12\\n13\\n' > spi.txt && moxdev hps add spi --input spi.txt",
         0, ""},
        {"moxdev hps list spi", 0,
         "user     0x001840EF 0x00FFFFFF 0x00000000 0x00000000 WINBOND QSPI_128 134217728 65536"},
        {"moxdev hps remove nand 0", 0, "removed user nand record 0\n"},
        {"moxdev hps list nand", 0, "11 records, 1 of them the user's"},
        {"moxdev hps clear nand", 0, ""},
        {"moxdev hps list spi", 0, "28 records, 1 of them the user's"},
        // Input that ends early adds nothing; a damaged file lists no user parts.
        {"printf '2C\\n' | moxdev hps add nand", 1, "moxdev: the input ended before 'device_id' was answered"},
        {"echo 'MOXDEV_FLASH_INI and then rubbish' > mox_flash.ini && moxdev hps list spi", 0,
         "27 records, 0 of them the user's"},
        {"moxdev hps select 4BA00478", 0, "0xFF809000"},
    });
    JSON nand = dir.json("moxdev hps list nand --json");
    ASSERT_EQ(nand.size(), 10u);
    EXPECT_TRUE(nand[0]["record"]["manufacturer_id"].is_number_unsigned());
    EXPECT_EQ(nand[0]["user_defined"], false);
    EXPECT_TRUE(dir.json("moxdev hps list spi --json")[0]["record"]["speed_mode"].is_boolean());
    JSON listed = dir.json("moxdev hps select --json");
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[1], JSON({{"idcode", 0x4BA00478}, {"descriptor", 1}}));
    JSON hps = dir.json("moxdev hps select 4BA00478 --json");
    EXPECT_EQ(hps["idcode"], 0x4BA00478);
    ASSERT_EQ(hps["words"].size(), std::size_t(MOXDEV_HPS_WORDS));
    EXPECT_EQ(hps["words"][MOXDEV_HPS_WORD_NAMES[0]], 0x4BA00478);
}

TEST(CliFlash, IdentifyListShowAndGenerateAnswerOrRefuse)
{
    const SCRATCH dir;
    const auto bad_table = [](const std::string& edit) {
        return edit + " data/mox_flash.csv > bad.csv; moxdev flash generate bad.csv out.pcf";
    };
    dir.expect({
        // One summary line, the maxima with their units and where they come from, then the fields.
        {"moxdev flash identify 0x20ba19", 0,
         "MICRON MT25QL256: record 5, ID 20 BA 19, 32 MiB (256 Mbit), 64 KiB sectors, 3.3V\n"
         "  maxima: chip erase 480 s, sector erase 3 s, page program 5 ms\n"
         "  from:   the sibling N25Q256A1 (chip erase as the sibling's;"},
        {"moxdev flash identify 0x20ba19 | grep -E '_time|utime|bit_size'", 0,
         "  device_bit_size      268435456 bits (32 MiB)\n  bulk_erase_time      480 s\n  sec_erase_time       3 s\n"
         "  program_utime        5000 us (5 ms)\n"},
        {"moxdev flash identify 01 20 18 | sed -n 4p", 0,
         "          raised to cover the later records with its ID: S25FL127S, S25FS128S, S25FL127S-256K, "
         "S25FL128P, S25FL128P-256K\n"},
        {"moxdev flash sources | tail -n 1 | grep -c '^[0-9]* datasheets, [0-9]* records$'", 0, "1\n"},
        {"moxdev flash identify 2G", 1,
         "moxdev: '2G' is not a hex byte or a run of hex bytes (e.g. EF 40 18, EF4018 or 0xEF,0x40,0x18)\n"},
        // ID bytes as people write them: words, one string, 0x, commas, colons, run together.
        {"for id in 'EF 40 18' 0xEF,0x40,0x18 EF4018 ef:40:18 '0xEF 0x4018'; do moxdev flash identify \"$id\" | "
         "head -n 1 | cut -d: -f1; done",
         0, "WINBOND W25Q128JV\nWINBOND W25Q128JV\nWINBOND W25Q128JV\nWINBOND W25Q128JV\nWINBOND W25Q128JV\n"},
        {"moxdev flash identify '0xEF4'", 1, "moxdev: '0xEF4' is not a hex byte or a run of hex bytes"},
        {"moxdev flash identify ,", 1, "moxdev: no ID bytes were given (e.g. EF 40 18)\n"},
        {"moxdev flash identify EF 40 99 --sfdp data", 1, "moxdev: cannot read 'data': it is a directory\n"},
        {"moxdev flash identify 00 00 00", 1,
         "moxdev: no known flash matches 00 00 00 (device ID: manufacturer, type, capacity)\nhint: all bytes 00: no "
         "chip answered; check the wiring, the chip select and the power of the flash\n"},
        {"moxdev flash identify EF 40 99", 1,
         "\nhint: this maker and type are known with the capacity bytes 12 "
         "W25Q20CL, 13 W25Q40BV, 14 W25Q80BV,"},
        {"moxdev flash show nosuchchip", 1, "moxdev: no flash named 'nosuchchip'\n"},
        // Filters that keep nothing answer with nothing: status 0, a note on standard error.
        {"moxdev flash list 'ZZ*'", 0, "moxdev: no flash record named ZZ* (--all also lists the switched-off ones)\n"},
        {"moxdev flash list 'ZZ*' --json 2>/dev/null", 0, "[]\n"},
        {"moxdev flash list 'W25Q*' --maker micron", 0,
         "moxdev: no flash record named W25Q*, of the maker 'micron' (--all also lists the switched-off ones)\n"},
        {"moxdev flash list --maker winbnd", 1,
         "moxdev: no flash record of the maker 'winbnd' (did you mean WINBOND?)\n"},
        {"moxdev flash list --size 3X", 1,
         "moxdev: '3X' is not a size (e.g. 512K, 128M or 1G: Kbit, Mbit, Gbit; 16MB or 16MiB: bytes)\n"},
        // Sizes: a multiple alone or with b/bit is bits, with B/iB/byte bytes.
        {"for s in 128M 128Mbit 128Mb 16MB 16MiB 16Mbyte; do moxdev flash list --size $s | tail -n 1; done | sort -u | "
         "wc -l",
         0, "1\n"},
        {"moxdev flash list --size 2Gbit | tail -n 1", 0, "11 records: "},
        // Makers new from flashrom's list, and a chip under flashrom's name.
        {"for m in eon sst amic pmc zetta; do moxdev flash list --maker $m | tail -n 1 | cut -d' ' -f3; done", 0,
         "EON\nSST\nAMIC\nPMC\nZETTA\n"},
        {"moxdev flash show W25Q128.V 2>&1 | head -n 2", 0,
         "moxdev: W25Q128.V is W25Q128JV here\nWINBOND W25Q128JV: record "},
        {"moxdev flash list --size 4G --json 2>/dev/null", 0, "[]\n"},
        {"moxdev flash list --voltage 5", 1, "moxdev: '5' is not a flash voltage (3.3V or 1.8V)\n"},
        // A bad table line is named by file, line and column.
        {bad_table("awk -F, -v OFS=, 'NR==9{$4=\"0x1FF\"}1'"), 1,
         "moxdev: bad.csv:9:4: memory_id: 0x1FF does not fit a BYTE (0 to 255)"},
        {bad_table("awk -F, -v OFS=, 'NR==9{$20=\"3000000\"}1'"), 1,
         "moxdev: bad.csv:9:20: device_bit_size: the density 3000000 is not a power of two"},
        {bad_table("sed '9s/,[^,]*//5'"), 1, "moxdev: bad.csv:9: 32 cells; a flash table line has 33"},
        {bad_table("awk -F, -v OFS=, 'NR==9{$33=\"banana\"}1'"), 1,
         "moxdev: bad.csv:9:33: asc_voltage: 'banana' is not a flash voltage (3.3V or 1.8V)\n"},
        {bad_table("awk -F, -v OFS=, 'NR==9{$13=\"yes\"}1'"), 1,
         "moxdev: bad.csv:9:13: extended_mode: 'yes' is not TRUE or FALSE"},
        // A cell is quoted escaped and cut: a NUL or a megabyte cannot flood the line.
        {bad_table("awk -F, -v OFS=, 'NR==9{$2=\"W2\" sprintf(\"%c\", 1) \"5Q\"}1'"), 1,
         "moxdev: bad.csv:9:2: device_name: 'W2\\x015Q' cannot be stored: it holds a control character "
         "(byte 0x01)\n"},
        {bad_table("perl -pe 'if ($. == 9) { @f = split /,/, $_, -1; $f[1] = \"X\" x 500000; $_ = join \",\", @f }'"),
         1,
         "moxdev: bad.csv:9:2: device_name: 'XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX...' (500000 characters) "
         "cannot be stored: it is "
         "longer than 255 characters\n"},
        // Old Mac line ends read as line ends.
        {"tr '\\n' '\\r' < data/mox_flash.csv > cr.csv; moxdev flash generate cr.csv out.pcf", 0, "wrote out.pcf"},
        {bad_table("awk -F, -v OFS=, 'NR==9{$11=\"TRUE\"; d=$0} 1; END{print d}'"), 1,
         ":11: default_dev: a second default record for VCS4 (the first is on line 9)"},
        {"moxdev flash generate none.csv out.pcf", 1, "moxdev: cannot read 'none.csv': no such file\n"},
        {"moxdev flash generate data/mox_flash.csv ''", 1, "moxdev: the output file name is empty\n"},
        {"moxdev flash generate data/mox_flash.csv .", 1, "moxdev: cannot write '.': it is a directory\n"},
        {"moxdev flash generate data/mox_flash.csv no/out.pcf", 1,
         "moxdev: cannot write 'no/out.pcf': the directory no does not exist\n"},
        // Refused even to a privileged user.
        {"moxdev flash generate data/mox_flash.csv /proc/out.pcf", 1, "cannot write '/proc/out.pcf'"},
        {"MOXDEV_DEVICE_DB_DIR=$PWD moxdev flash list", 1,
         dir.path() + "/programmer/mox_flash.pcf does not exist; MOXDEV_DEVICE_DB_DIR"},
    });

    JSON found = dir.json("moxdev flash identify 20 BA 19 --json");
    EXPECT_EQ(found["id_bytes"], JSON({0x20, 0xBA, 0x19}));
    EXPECT_EQ(found["record"]["device_name"], "MT25QL256");
    EXPECT_TRUE(found["record"]["default_dev"].is_boolean());
    EXPECT_EQ(found["record"].size(), std::size_t(TOTAL_DATABASE_MEMBER));
    const JSON usable = dir.json("moxdev flash list --json"), all = dir.json("moxdev flash list --all --json");
    EXPECT_EQ(usable[found["record_index"].get<std::size_t>()]["record"], found["record"]);
    ASSERT_GT(all.size(), usable.size());
    for (const JSON& entry : all)
        EXPECT_TRUE(entry["usable"].get<bool>() || entry["switch"].get<std::string>().rfind("MOX_ALLOW_", 0) == 0)
            << entry.dump();
    // --full: every field of every usable record.
    std::string output;
    ASSERT_EQ(dir.run("moxdev flash list --full", output), 0);
    for (const char* field : MOXDEV_FLASH_FIELD_NAMES)
        EXPECT_EQ(count(output, std::string(" ") + field + " "), usable.size()) << field;

    // show: every record of the name, counted from the full listing.
    std::size_t variants = 0;
    for (const JSON& entry : all)
        variants += entry["record"]["device_name"] == "W25Q128JW" ? 1 : 0;
    ASSERT_GT(variants, 1u);
    ASSERT_EQ(dir.run("moxdev flash show w25q128jw", output), 0) << output;
    EXPECT_EQ(count(output, "WINBOND W25Q128JW: record "), variants) << output;
    EXPECT_EQ(dir.json("moxdev flash show W25q128JW --json").size(), variants);
    EXPECT_TRUE(dir.json("moxdev flash show MT25QL02G --json")[0]["index"].is_null());

    // The filters combine, and agree with the whole table.
    const std::pair<const char*, std::function<bool(const JSON&)>> filters[] = {
        {"'w25q*'", [](const JSON& r) { return upper(r["device_name"]).rfind("W25Q", 0) == 0; }},
        {"'MT25Q?256'",
         [](const JSON& r) { return r["device_name"] == "MT25QL256" || r["device_name"] == "MT25QU256"; }},
        {"--size 512K", [](const JSON& r) { return r["device_bit_size"] == 512u << 10; }},
        {"--size 1G --voltage 3.3",
         [](const JSON& r) { return r["device_bit_size"] == 1u << 30 && r["asc_voltage"] == "3.3V"; }},
        {"'W25Q*' --size 128m --voltage 1.8V --maker winbond",
         [](const JSON& r) {
             return upper(r["device_name"]).rfind("W25Q", 0) == 0 && r["device_bit_size"] == 128u << 20 &&
                    r["asc_voltage"] == "1.8V";
         }},
    };
    for (const auto& [arguments, wanted] : filters) {
        std::vector<unsigned> expected, got;
        for (const JSON& entry : usable)
            if (wanted(entry["record"]))
                expected.push_back(entry["index"].get<unsigned>());
        for (const JSON& entry : dir.json(std::string("moxdev flash list ") + arguments + " --json"))
            got.push_back(entry["index"].get<unsigned>());
        ASSERT_FALSE(expected.empty()) << arguments;
        EXPECT_EQ(got, expected) << arguments;
        // The text form closes with the same count.
        ASSERT_EQ(dir.run(std::string("moxdev flash list ") + arguments, output), 0) << output;
        EXPECT_NE(output.find("\n" + std::to_string(expected.size()) + " records: "), std::string::npos) << output;
    }
}

TEST(CliFlash, TextAndJsonShowTheSameValues)
{
    // A chip with an unused field, booleans of both values and hex IDs.
    const SCRATCH dir;
    std::string text;
    ASSERT_EQ(dir.run("moxdev flash show MT25QL256", text), 0) << text;
    const JSON record = dir.json("moxdev flash show MT25QL256 --json")[0]["record"];
    ASSERT_TRUE(record["protection_division"].is_null());
    std::istringstream lines(text);
    std::string line;
    // The summary, the maxima and where they come from precede the fields.
    for (int heading = 0; heading < 3; ++heading)
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

TEST(CliFlash, DialogueAsksAgainAndStoresOnlyUsableValues)
{
    // Good answers, with "none"-style answers for the three optional fields.
    std::vector<std::string> answers = {"acme", "chip1", "19", "2",  "BA", "-1", "20",   "0",  "n",
                                        "y",    "n",     "n",  "n",  "y",  "1",  "256",  "64", "400",
                                        "3",    "1800",  "5C", "5C", "0",  "ff", "none", "y",  "3.3v"};
    // A refused answer before each of some good ones: the question comes again.
    const std::pair<std::size_t, const char*> refused[] = {
        {0, "ac@me"}, {1, "chip#1"}, {26, "3.3;V"}, {26, "banana"}, {1, "a-name-of-20-letters"}, {3, "3"}, {7, "2"},
        {23, "2"},    {24, "8"},     {15, "3"},     {8, "yes"}};
    std::string input = "0\n1\n";
    for (std::size_t q = 0; q < answers.size(); ++q) {
        for (const auto& [question, answer] : refused)
            input += question == q ? std::string(answer) + "\n" : "";
        input += answers[q] + "\n";
    }
    std::istringstream in(input);
    std::ostringstream out;
    moxdev::USER_FLASH_DEFINITION definition;
    std::string error;
    ASSERT_TRUE(moxdev::define_user_flash(in, out, definition, error)) << error;
    const std::string text = out.str();
    EXPECT_NE(text.find("answer 1, 2 or 3"), std::string::npos) << text;
    EXPECT_EQ(count(text, "; try again\n"), std::size(refused)) << text;
    ASSERT_EQ(definition.chips.size(), 1u);
    const MOXDEV_SFL_FLASH_INFO& chip = definition.chips[0];
    EXPECT_EQ(chip.manufacturer_name + " " + chip.device_name + " " + chip.asc_voltage, "ACME CHIP1 3.3V");
    EXPECT_EQ(chip.memory_type_index, 255);
    EXPECT_EQ(chip.protection_division, 255);
    EXPECT_EQ(chip.bottom_value, 255);

    // The value is one the loader takes, and --input gives the same one.
    const std::string value = definition.value;
    moxdev::USER_FLASH_CONTENT content;
    ASSERT_TRUE(moxdev::read_user_flash_value(value, content, error)) << error;
    EXPECT_TRUE(content.accepted());
    EXPECT_EQ(moxdev_flash_info_to_text(content.record), moxdev_flash_info_to_text(chip));
    const SCRATCH dir;
    write_text(dir.file("answers.txt"), input);
    std::string damaged = value;
    damaged[damaged.size() / 2] = damaged[damaged.size() / 2] == 'A' ? 'B' : 'A';
    const std::string debug = "MOX_SUPPORT_EXT_SPI_DEV='" + damaged + "' MOX_SUPPORT_EXT_SPI_DEV_DEBUG=1 ";
    dir.expect({
        {"moxdev flash decode '" + value + "'", 0, "fields: valid"},
        {"moxdev flash define --input answers.txt", 0, "export MOX_SUPPORT_EXT_SPI_DEV='" + value + "'"},
        // Answers from a file are shown after their prompt, one prompt a line.
        {"moxdev flash define --input answers.txt | sed -n 1,2p", 0,
         "Number of 3rd party flash to define (max 3) : 0\n"
         "Invalid input or too many flash to define: answer 1, 2 or 3\n"},
        {"MOX_SUPPORT_EXT_SPI_DEV='" + value + "' moxdev flash list", 0, " CHIP1 "},
        // A damaged value is ignored, and the debug switch says why.
        {"moxdev flash decode '" + damaged + "'", 1, "moxdev: "},
        {"MOX_SUPPORT_EXT_SPI_DEV='" + damaged + "' moxdev flash identify 20 BA 19 2>&1 >/dev/null", 0,
         "moxdev: warning: the flash manager ignores MOX_SUPPORT_EXT_SPI_DEV: "},
        // Characters after the compressed definition are not vouched for.
        {"moxdev flash decode '" + value + value.substr(0, 8) + "'", 1, "goes on after its compressed definition"},
        {debug + "moxdev flash identify 20 BA 19", 0, "MICRON MT25QL256: record 5"},
        {debug + "moxdev flash identify 20 BA 19", 0, "Fail to"},
        // Answers that end early stop the dialogue with no value; several
        // chips are warned about.
        {"printf '2\\nacme\\n' | moxdev flash define", 1, "uses only the first definition"},
        {"printf '2\\nacme\\n' | moxdev flash define", 1,
         "moxdev: the answers ended before 'Device Name' was answered"},
        {"moxdev flash define --input missing.txt", 1, "moxdev: cannot read 'missing.txt': no such file\n"},
        // One chip, ID 20 BA 19, for the JSON below.
        {"printf "
         "'1\\nacme\\nmychip\\n19\\n2\\nBA\\n1\\n20\\n0\\nn\\ny\\nn\\nn\\nn\\ny\\n1\\n256\\n64\\n400\\n3\\n1800\\n5C"
         "\\n5C\\n0\\n4\\n5\\ny\\n3.3V\\n' | moxdev flash define | "
         "sed -n \"s/^  export MOX_SUPPORT_EXT_SPI_DEV='\\(.*\\)'$/\\1/p\" > value.txt",
         0, ""},
    });
    JSON decoded = dir.json("moxdev flash decode \"$(cat value.txt)\" --json");
    EXPECT_EQ(decoded["accepted"], true);
    EXPECT_EQ(decoded["record"]["device_name"], "MYCHIP");
    EXPECT_EQ(decoded["record"]["device_bit_size"], 268435456);
    JSON chosen = dir.json("MOX_SUPPORT_EXT_SPI_DEV=\"$(cat value.txt)\" moxdev flash identify 20 BA 19 --json");
    EXPECT_EQ(chosen["user_defined"], true);
    EXPECT_EQ(chosen["record_index"], 0);
}

TEST(CliFlash, SfdpReadsEveryFormAndRefusesWithOneLine)
{
    // The same read as hexdump -C text, as the datasheet's listing and as
    // binary: one JSON document.
    const SCRATCH dir;
    std::vector<std::uint8_t> bytes;
    std::string error;
    ASSERT_TRUE(moxdev::read_dump(read_text(source_path("data/sfdp/W25Q64FV.txt")), "SFDP", 65536, bytes, error))
        << error;
    write_bytes(dir.file("read.bin"), BYTES(bytes.begin(), bytes.end()));
    const JSON binary = dir.json("moxdev flash sfdp read.bin --id EF 40 17 --json");
    EXPECT_EQ(dir.json("moxdev flash sfdp data/sfdp/W25Q64FV.hexdump --id 0xEF4017 --json"), binary);
    EXPECT_EQ(dir.json("moxdev flash sfdp data/sfdp/W25Q64FV.hexdump --id 'EF 40 17' --json"), binary);
    EXPECT_EQ(dir.json("moxdev flash sfdp - --id EF 40 17 --json < data/sfdp/W25Q64FV.txt"), binary);
    EXPECT_EQ(binary["table_record"], "W25Q64JV");
    EXPECT_EQ(binary["address_bytes"], "3");
    dir.expect({
        {"moxdev flash sfdp '" + source_path("README.md") + "'", 1, "not a dump"},
        {"moxdev flash sfdp missing", 1, "moxdev: cannot read 'missing': no such file\n"},
        {"moxdev flash sfdp data/sfdp/example.hexdump --define", 1,
         "moxdev: --define needs --id: a definition binds by the chip's Read-ID bytes\n"},
        {"moxdev flash sfdp data/sfdp/example.hexdump --id EF 40", 1,
         "moxdev: --id takes the three Read-ID bytes (maker, type, capacity), e.g. 20 BA 19\n"},
        // A name for a definition follows the dialogue's rule.
        {"moxdev flash sfdp data/sfdp/example.hexdump --id EF 40 99 --name a-name-of-20-letters", 1,
         "moxdev: --name 'a-name-of-20-letters': a name has 1 to 19 characters\n"},
        {"moxdev flash sfdp data", 1, "moxdev: cannot read 'data': it is a directory\n"},
        // A table record wins for its ID, with a word when the read disagrees.
        {"moxdev flash identify EF 40 17 --sfdp data/sfdp/example.hexdump 2>&1 >/dev/null", 0,
         "moxdev: warning: the SFDP read gives 8388608 bits, the bound record W25Q64JV 67108864\n"},
        {"printf 'SFDP\\000\\001\\003\\377' > short.bin && moxdev flash sfdp short.bin", 1,
         "moxdev: SFDP: the 4 parameter headers reach beyond the 8 bytes given\n"},
    });
}

TEST(CliShell, CompletionFollowsTheCommandTree)
{
    const SCRATCH dir;
    std::filesystem::create_directory(dir.file("empty")); // no file names to offer
    dir.expect({{"moxdev completion zsh | head -n 1", 0, "#compdef moxdev\n"},
                {"moxdev completion bash > moxdev.bash", 0, ""}});
    write_text(dir.file("complete.bash"), "cd empty && source ../moxdev.bash && COMP_WORDS=(\"$@\") && "
                                          "COMP_CWORD=$(($# - 1)) && _moxdev; echo \"${COMPREPLY[*]:-files}\"\n");
    // The words typed so far (the last one being completed), and what is
    // offered; "files" stands for file-name completion.
    const std::pair<const char*, const char*> cases[] = {
        {"moxdev dev", "device"},
        {"moxdev --v", "--version --verbose"},
        {"moxdev device list --f", "--full --family"},
        {"moxdev hps remove s", "spi"},
        {"moxdev ''", "device flash name opn type image hps completion help"},
        {"moxdev hps ''", "list add remove clear select"},
        {"moxdev hps list ''", "nand spi"},
        {"moxdev --version hps add --input x ''", "nand spi"},
        {"moxdev completion ''", "bash zsh"},
        // Option values and names come from the command itself.
        {"moxdev flash list --maker WIN", "WINBOND"},
        {"moxdev flash list --size 1", "1M 16M 128M 1G"},
        {"moxdev flash list --voltage ''", "3.3V 1.8V"},
        {"moxdev flash show MT25QL0", "MT25QL01G MT25QL02G"},
        {"moxdev type ''", "block flash-sector option-bit hps-setting"},
        {"moxdev name KXB100F484C", "KXB100F484C6 KXB100F484C7 KXB100F484C8"},
        {"moxdev device list --by ''", "family device part"},
        {"moxdev flash sfdp x --id ''", "files"},
    };
    for (const auto& [typed, offered] : cases)
        dir.expect({{std::string("bash complete.bash ") + typed, 0, std::string(offered) + "\n"}});
}

TEST(CliShell, InstallCarriesTheCompletionsAndTheManPage)
{
    // The build made them with the command itself (the man page with
    // help2man, which scripts/deps.sh installs); the install copies them.
    const std::string build = std::filesystem::path(CLI).parent_path().parent_path().string();
    const std::string roff = read_text(build + "/share/man/man1/moxdev.1");
    EXPECT_NE(roff.find(".TH MOXDEV \"1\""), std::string::npos) << roff;
    for (const char* verb : {"device", "flash", "name", "opn", "type", "image", "hps", "completion"})
        EXPECT_NE(roff.find(std::string(".TP\n") + verb + "\n"), std::string::npos) << verb;
    // Every subcommand has its section with its whole help.
    for (const char* command : {"moxdev flash list", "moxdev flash sources", "moxdev hps add", "moxdev device show",
                                "moxdev image build", "moxdev help"})
        EXPECT_NE(roff.find(std::string(".SS \"") + command + "\"\n.nf\n"), std::string::npos) << command;
    const SCRATCH dir;
    dir.expect({
        {"moxdev completion bash | cmp - '" + build + "/share/bash-completion/completions/moxdev' && echo same", 0,
         "same\n"},
        {"cmake --install '" + build +
             "' --prefix prefix > /dev/null && cd prefix/share && "
             "moxdev completion bash | cmp - bash-completion/completions/moxdev && moxdev completion zsh | "
             "cmp - zsh/site-functions/_moxdev && cmp man/man1/moxdev.1 '" +
             build + "/share/man/man1/moxdev.1' && echo same",
         0, "same\n"},
    });
}
