// The moxdev command: answers, exit statuses and error lines.
#include "test_support.h"

#include "tools/dump_text.h"

#include <algorithm>
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
    // One line per family, device or part value (the invalid one left out).
    const std::pair<const char*, int> listings[] = {
        {"family", DEV_FAMILY_MAX - 1}, {"device", DEV_DEVICE_MAX - 1}, {"part", DEV_PART_MAX - 1}};
    for (const auto& [by, count] : listings) {
        ASSERT_EQ(moxdev(std::string("device list --by ") + by, output), 0) << output;
        EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), count) << by;
        EXPECT_NE(output.find("Generic "), std::string::npos) << by;
    }

    TEMP_DIR dir;
    ASSERT_EQ(moxdev("device generate " + source_path("data/mox_dev_info.csv") + " " + dir.file("db.pcf"),
                     output),
              0)
        << output;
    EXPECT_EQ(read_bytes(dir.file("db.pcf")), read_bytes(data_path("programmer/mox_dev_info.pcf")));
}

TEST(Cli, HelpAndUsageErrors)
{
    std::string output;
    EXPECT_EQ(moxdev("--help", output), 0);
    EXPECT_NE(output.find("device"), std::string::npos);
    EXPECT_EQ(moxdev("--version", output), 0);
    EXPECT_EQ(output.rfind("moxdev ", 0), 0u) << output;
    // Every command explains itself: a one-line description, then the usage.
    for (const char* command :
         {"device", "device show", "device list", "device generate", "flash", "flash list", "flash identify",
          "flash define", "flash decode", "flash generate", "name", "opn", "type", "image", "image check",
          "image build", "hps", "hps list", "hps add", "hps remove", "hps clear", "hps select"}) {
        ASSERT_EQ(moxdev(std::string(command) + " --help", output), 0) << command;
        const std::size_t usage = output.find("\nUsage: moxdev " + std::string(command) + " ");
        EXPECT_TRUE(usage != std::string::npos && usage > 0 && output.find('\n') == usage) << output;
    }

    // Nothing at all, or a command without its subcommand: the help, on
    // standard error, status 1.
    EXPECT_EQ(run_command(std::string(MOXDEV_CLI) + " 2>/dev/null", output), 1);
    EXPECT_EQ(output, "");
    EXPECT_EQ(moxdev("", output), 1);
    EXPECT_NE(output.find("Usage: moxdev [OPTIONS] SUBCOMMAND"), std::string::npos) << output;
    EXPECT_EQ(moxdev("hps", output), 1);
    EXPECT_NE(output.find("Usage: moxdev hps"), std::string::npos) << output;

    // Anything else is one "moxdev: " line naming the help to read.
    for (const auto& [arguments, message] : std::vector<std::pair<std::string, std::string>>{
             {"device show", "moxdev: NAME is required; see 'moxdev device show --help'\n"},
             {"device frobnicate",
              "moxdev: 'frobnicate' is not a subcommand of 'moxdev device' (show, list, generate); "
              "see 'moxdev device --help'\n"},
             {"flash --frob", "moxdev: '--frob' is not an option of 'moxdev flash'; see 'moxdev flash --help'\n"},
             {"device list --by family --full",
              "moxdev: --full excludes --by; see 'moxdev device list --help'\n"}}) {
        EXPECT_EQ(moxdev(arguments, output), 1) << arguments;
        EXPECT_EQ(output, message);
    }
    EXPECT_EQ(moxdev("device list --by shoe", output), 1);
}

TEST(Cli, ExitStatuses)
{
    std::string output;
    EXPECT_EQ(moxdev("device show NO_SUCH_NAME", output), 1);
    EXPECT_EQ(output, "moxdev: no family, device or part is named 'NO_SUCH_NAME'\n");

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

TEST(Cli, FlashIdentifyListAndTheUserFlash)
{
    std::string output;
    ASSERT_EQ(moxdev("flash identify 20 BA 19", output), 0) << output;
    EXPECT_NE(output.find("MICRON MT25QL256: record"), std::string::npos) << output;
    EXPECT_EQ(moxdev("flash identify 0x20ba19", output), 0) << output;
    EXPECT_EQ(moxdev("flash identify --silicon-id 14", output), 0) << output;
    EXPECT_NE(output.find("VCS16"), std::string::npos) << output;
    EXPECT_EQ(moxdev("flash identify 12 34 56", output), 1);
    EXPECT_NE(output.find("no known flash matches 12 34 56"), std::string::npos) << output;
    EXPECT_EQ(moxdev("flash identify 2G", output), 1);

    ASSERT_EQ(moxdev("flash list", output), 0) << output;
    const std::size_t usable = output.size();
    const std::size_t count_line = output.rfind('\n', output.size() - 2) + 1;
    const int records = std::stoi(output.substr(count_line));
    ASSERT_EQ(moxdev("flash list --all", output), 0) << output;
    EXPECT_GT(output.size(), usable);
    EXPECT_NE(output.find("MOX_ALLOW_QUAL_2GBIT (off: not usable)"), std::string::npos) << output;
    // --full: every field of every usable record.
    ASSERT_EQ(moxdev("flash list --full", output), 0) << output;
    for (const char* field : MOXDEV_FLASH_FIELD_NAMES) {
        int found = 0;
        for (std::size_t at = output.find(std::string(" ") + field + " "); at != std::string::npos;
             at = output.find(std::string(" ") + field + " ", at + 1))
            ++found;
        EXPECT_EQ(found, records) << field;
    }

    // A chip defined with the dialogue becomes record 0 and wins over the
    // table for its ID.
    TEMP_DIR dir;
    write_text(dir.file("answers.txt"),
               "1\nacme\nmychip\n19\n2\nBA\n1\n20\n0\nn\ny\nn\nn\nn\ny\n1\n256\n64\n400\n3\n1800\n"
               "5C\n5C\n0\n4\n5\ny\n3.3V\n");
    ASSERT_EQ(moxdev("flash define < " + dir.file("answers.txt"), output), 0) << output;
    const std::size_t export_line = output.find("export MOX_SUPPORT_EXT_SPI_DEV='");
    ASSERT_NE(export_line, std::string::npos) << output;
    const std::string value = output.substr(export_line + 32, output.find('\'', export_line + 32) - export_line - 32);
    ASSERT_EQ(moxdev("flash decode '" + value + "'", output), 0) << output;
    EXPECT_NE(output.find("matches this version"), std::string::npos) << output;
    const std::string with_value = "MOX_SUPPORT_EXT_SPI_DEV='" + value + "' " + MOXDEV_CLI;
    ASSERT_EQ(run_command(with_value + " flash identify 20 BA 19", output, true), 0) << output;
    EXPECT_NE(output.find("ACME MYCHIP: record 0 (user-defined)"), std::string::npos) << output;
    ASSERT_EQ(run_command(with_value + " flash list", output, true), 0) << output;
    EXPECT_NE(output.find("MYCHIP"), std::string::npos) << output;

    // A damaged value is ignored, and the debug switch says why.
    std::string damaged = value;
    damaged[damaged.size() / 2] = damaged[damaged.size() / 2] == 'A' ? 'B' : 'A';
    EXPECT_EQ(moxdev("flash decode '" + damaged + "'", output), 1);
    ASSERT_EQ(run_command("MOX_SUPPORT_EXT_SPI_DEV='" + damaged + "' MOX_SUPPORT_EXT_SPI_DEV_DEBUG=1 " +
                              MOXDEV_CLI + " flash identify 20 BA 19",
                          output, true),
              0);
    EXPECT_NE(output.find("MT25QL256"), std::string::npos) << output;
    EXPECT_NE(output.find("Fail to"), std::string::npos) << output;
}

TEST(Cli, NamingVerbs)
{
    std::string output;
    ASSERT_EQ(moxdev("name kxb100f484c6", output), 0) << output;
    for (const char* form : {"KXB100F484C6", "KXB100F484", "KXB100", "KXFAMILY2", "KXB100M", "KX_FAMILY", "KXB100_V1"})
        EXPECT_NE(output.find(form), std::string::npos) << form << "\n" << output;
    EXPECT_EQ(moxdev("name NOSUCHTHING", output), 1);

    ASSERT_EQ(moxdev("opn KXB100F484C6", output), 0) << output;
    const std::string hash = output.substr(output.find("0x"), 14);
    const std::string opn_enum = std::to_string(MOXDEV_MGR::get_opn_enum("KXB100F484C6"));
    EXPECT_NE(output.find(opn_enum), std::string::npos) << output;
    ASSERT_EQ(moxdev("opn " + hash, output), 0) << output;
    EXPECT_NE(output.find("KXB100F484C6"), std::string::npos);
    ASSERT_EQ(moxdev("opn " + opn_enum, output), 0) << output;
    EXPECT_NE(output.find(hash), std::string::npos);
    EXPECT_EQ(moxdev("opn 0x1", output), 1);
    EXPECT_EQ(moxdev("opn NOSUCH", output), 1);

    ASSERT_EQ(moxdev("type option-bit aes_keys", output), 0);
    EXPECT_EQ(output, "AES_KEYS = 21\n");
    ASSERT_EQ(moxdev("type 1 8", output), 0);
    EXPECT_EQ(output, "8 = DONE_BITS\n");
    EXPECT_EQ(moxdev("type block 0", output), 1);
    EXPECT_EQ(moxdev("type nosuchkind 1", output), 1);
}

TEST(Cli, ImageCheck)
{
    TEMP_DIR dir;
    std::string output;
    ASSERT_EQ(moxdev("image build " + dir.path(), output), 0) << output;
    ASSERT_EQ(moxdev("image check " + dir.file("grammar.img"), output), 0) << output;
    EXPECT_NE(output.find("SPEEDGRADE"), std::string::npos) << output;
    ASSERT_EQ(moxdev("image check " + dir.file("opn.img"), output), 0) << output;
    BYTES damaged = read_bytes(dir.file("grammar.img"));
    damaged[damaged.size() / 2] ^= 0x40;
    write_bytes(dir.file("damaged.img"), damaged);
    EXPECT_EQ(moxdev("image check " + dir.file("damaged.img"), output), 2) << output;
    EXPECT_NE(output.find("crc32"), std::string::npos) << output;
    EXPECT_EQ(moxdev("image check " + dir.file("missing.img"), output), 1) << output;
}

TEST(Cli, HpsUserFlashParts)
{
    TEMP_DIR dir;
    const std::string hps = "MOXDEV_MODULE_DIR=" + dir.path() + " " + MOXDEV_CLI + " hps ";
    std::string output;
    ASSERT_EQ(run_command(hps + "list nand", output, true), 0) << output;
    EXPECT_NE(output.find("10 records, 0 of them the user's"), std::string::npos) << output;

    // A refused answer is explained and asked again: 00 is all 0's, 3 Mbyte
    // is fine, 70000 is out of range.
    write_text(dir.file("answers.txt"), "00\n98\nD3\n70000\n1024\n");
    ASSERT_EQ(run_command(hps + "add nand --input " + dir.file("answers.txt"), output, true), 0) << output;
    EXPECT_NE(output.find("Input is invalid (hit)"), std::string::npos) << output;
    EXPECT_NE(output.find("Input is out of range"), std::string::npos) << output;
    ASSERT_EQ(run_command("printf '2C\\nDC\\n512\\n' | " + hps + "add nand", output, true), 0) << output;

    ASSERT_EQ(run_command(hps + "list nand", output, true), 0) << output;
    EXPECT_NE(output.find("    0  user     0x0000002C 0x000000DC 536870912"), std::string::npos) << output;
    EXPECT_NE(output.find("    1  user     0x00000098 0x000000D3 1073741824"), std::string::npos) << output;
    EXPECT_NE(output.find("12 records, 2 of them the user's"), std::string::npos) << output;

    write_text(dir.file("spi.txt"), "1840EF\nFFFFFF\n0\n0\nwinbond\nqspi_128\n128\n64\n256\n200\n2\n2\n3000\n1\n1\ny\nDC\n12\n13\n");
    ASSERT_EQ(run_command(hps + "add spi --input " + dir.file("spi.txt"), output, true), 0) << output;
    ASSERT_EQ(run_command(hps + "list spi", output, true), 0) << output;
    EXPECT_NE(output.find("user     0x001840EF 0x00FFFFFF 0x00000000 0x00000000 WINBOND QSPI_128 134217728 65536"),
              std::string::npos) << output;

    ASSERT_EQ(run_command(hps + "remove nand 0", output, true), 0) << output;
    EXPECT_EQ(run_command(hps + "remove nand 5", output, true), 1);
    ASSERT_EQ(run_command(hps + "list nand", output, true), 0);
    EXPECT_NE(output.find("11 records, 1 of them the user's"), std::string::npos) << output;
    ASSERT_EQ(run_command(hps + "clear nand", output, true), 0);
    ASSERT_EQ(run_command(hps + "list spi", output, true), 0);
    EXPECT_NE(output.find("28 records, 1 of them the user's"), std::string::npos) << output;

    // Input that ends early adds nothing; a damaged file lists no user parts.
    EXPECT_EQ(run_command("printf '2C\\n' | " + hps + "add nand", output, true), 1);
    write_text(dir.file("mox_flash.ini"), "MOXDEV_FLASH_INI and then rubbish");
    ASSERT_EQ(run_command(hps + "list spi", output, true), 0);
    EXPECT_NE(output.find("27 records, 0 of them the user's"), std::string::npos) << output;

    ASSERT_EQ(run_command(hps + "select 4BA00478", output, true), 0);
    EXPECT_NE(output.find("0xFF809000"), std::string::npos);
    EXPECT_EQ(run_command(hps + "select 12345678", output, true), 1);
}

TEST(Cli, FlashSfdpReadsEveryFormAndRefusesWithOneLine)
{
    // The same read as hexdump -C text, as the datasheet's listing and as
    // binary: one JSON document.
    TEMP_DIR dir;
    std::vector<std::uint8_t> bytes;
    std::string error;
    ASSERT_TRUE(moxdev_tools::read_dump(read_text(source_path("data/sfdp/W25Q64FV.txt")), "SFDP", 65536, bytes, error))
        << error;
    write_bytes(dir.file("read.bin"), BYTES(bytes.begin(), bytes.end()));
    std::string binary, hexdump, listing;
    ASSERT_EQ(moxdev("flash sfdp " + dir.file("read.bin") + " --id EF 40 17 --json", binary), 0) << binary;
    ASSERT_EQ(moxdev("flash sfdp " + source_path("data/sfdp/W25Q64FV.hexdump") + " --id 0xEF4017 --json", hexdump), 0);
    ASSERT_EQ(moxdev("flash sfdp - --id EF 40 17 --json < " + source_path("data/sfdp/W25Q64FV.txt"), listing), 0);
    EXPECT_EQ(hexdump, binary);
    EXPECT_EQ(listing, binary);
    EXPECT_NE(binary.find("\"table_record\": \"W25Q64JV\""), std::string::npos) << binary;
    EXPECT_NE(binary.find("\"address_bytes\": \"3\""), std::string::npos) << binary;

    const std::pair<std::string, std::string> refused[] = {
        {"flash sfdp " + source_path("README.md"), "not a dump"},
        {"flash sfdp " + dir.file("missing"), "cannot read"},
        {"flash sfdp " + source_path("data/sfdp/example.hexdump") + " --define", "--define needs --id"},
        {"flash sfdp " + source_path("data/sfdp/example.hexdump") + " --id EF 40", "three Read-ID bytes"},
    };
    for (const auto& [arguments, message] : refused) {
        std::string output;
        EXPECT_EQ(moxdev(arguments, output), 1) << arguments;
        EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << output;
        EXPECT_NE(output.find(message), std::string::npos) << output;
    }
    write_bytes(dir.file("short.bin"), BYTES{'S', 'F', 'D', 'P', 0, 1, 3, 0xFF});
    std::string output;
    EXPECT_EQ(moxdev("flash sfdp " + dir.file("short.bin"), output), 1);
    EXPECT_EQ(output, "moxdev: SFDP: the 4 parameter headers reach beyond the 8 bytes given\n");
}
