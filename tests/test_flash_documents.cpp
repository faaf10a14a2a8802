// The flash verbs' documents from the C++ API: the same as the command's
// --json output, the refusals with their kind and suggestions, the notes
// through the sink, and the tables read once per object.
#include "test_support.h"

#include "moxdev/flash_documents.h"

#include <filesystem>
#include <functional>

using namespace moxdev_test;
using moxdev::DOCUMENT;
using moxdev::FLASH_DOCUMENTS;
using moxdev::QUERY_ERROR;
using moxdev::QUERY_FAILURE;

namespace {

// The command's document for `arguments` (status 0 expected).
DOCUMENT command_json(const std::string& arguments)
{
    std::string output;
    EXPECT_EQ(run_command(std::string(MOXDEV_CLI) + " " + arguments + " 2>/dev/null", output), 0) << arguments;
    return DOCUMENT::parse(output);
}

// Expects `query` to be refused as `kind` with a message that starts with
// `message`; gives the names the message offers.
std::vector<std::string> refused(QUERY_FAILURE kind, const std::string& message, const std::function<void()>& query)
{
    try {
        query();
        ADD_FAILURE() << "answered: " << message;
    } catch (const QUERY_ERROR& error) {
        EXPECT_EQ(error.kind(), kind) << error.what();
        EXPECT_EQ(std::string(error.what()).substr(0, message.size()), message);
        return error.suggestions();
    }
    return {};
}

BYTES sfdp_read(const std::string& file)
{
    return moxdev::read_sfdp_dump(read_text(source_path("data/sfdp/" + file)), file);
}

} // namespace

TEST(FlashDocuments, AreTheCommandsJsonDocuments)
{
    FLASH_DOCUMENTS documents;
    EXPECT_EQ(documents.identify({0xEF, 0x40, 0x18}), command_json("flash identify EF 40 18 --json"));
    EXPECT_EQ(documents.identify({0x12}, true), command_json("flash identify 12 --silicon-id --json"));
    const BYTES read = sfdp_read("W25Q64FV.hexdump");
    EXPECT_EQ(documents.identify({0xEF, 0x40, 0x99}, false, &read),
              command_json("flash identify EF 40 99 --sfdp " + source_path("data/sfdp/W25Q64FV.hexdump") + " --json"));
    EXPECT_EQ(documents.show("W25Q128.V"), command_json("flash show W25Q128.V --json"));
    EXPECT_EQ(documents.show("MT25QL02G"), command_json("flash show MT25QL02G --json")); // switched off: null index
    moxdev::FLASH_LIST_FILTER filter;
    filter.pattern = "w25q*";
    filter.size = "16MB";
    filter.every_record = true;
    EXPECT_EQ(documents.list(filter), command_json("flash list 'w25q*' --size 16MB --all --json"));
    EXPECT_EQ(documents.list({}), command_json("flash list --json"));
    filter.pattern = "ZZ*";
    EXPECT_EQ(documents.list(filter), DOCUMENT::array());
    const std::string example = source_path("data/sfdp/example.hexdump");
    EXPECT_EQ(documents.sfdp(sfdp_read("example.hexdump")), command_json("flash sfdp " + example + " --json"));
    EXPECT_EQ(documents.sfdp(sfdp_read("example.hexdump"), {0xEF, 0x40, 0x17}, "ignored"),
              command_json("flash sfdp " + example + " --id EF 40 17 --name ignored --json"));
}

TEST(FlashDocuments, RefuseWithKindMessageAndSuggestions)
{
    const auto NOT_FOUND = QUERY_FAILURE::NOT_FOUND, INVALID = QUERY_FAILURE::INVALID_INPUT;
    FLASH_DOCUMENTS documents;
    refused(NOT_FOUND,
            "no known flash matches EF 40 99 (device ID: manufacturer, type, capacity)\nhint: this maker and type are "
            "known with the capacity bytes 12 W25Q20CL, ",
            [&] {
                documents.identify({0xEF, 0x40, 0x99});
            });
    refused(NOT_FOUND, "no usable flash matches 20 BA 22: MICRON MT25QL02G needs MOX_ALLOW_QUAL_2GBIT=1", [&] {
        documents.identify({0x20, 0xBA, 0x22});
    });
    EXPECT_EQ(refused(NOT_FOUND,
                      "no flash named 'W25Q128J' (did you mean W25Q128JV, W25Q128JW, W25Q128FV, W25Q128BV or "
                      "W25Q128FW?)",
                      [&] { documents.show("W25Q128J"); }),
              std::vector<std::string>({"W25Q128JV", "W25Q128JW", "W25Q128FV", "W25Q128BV", "W25Q128FW"}));
    moxdev::FLASH_LIST_FILTER maker, size;
    maker.maker = "winbnd";
    size.size = "3X";
    EXPECT_EQ(refused(NOT_FOUND, "no flash record of the maker 'winbnd' (did you mean WINBOND?)",
                      [&] { documents.list(maker); }),
              std::vector<std::string>{"WINBOND"});

    // Malformed input.
    refused(INVALID, "'3X' is not a size (e.g. 512K, 128M or 1G: Kbit, Mbit, Gbit; 16MB or 16MiB: bytes)",
            [&] { documents.list(size); });
    refused(INVALID, "'0xEF4' is not a hex byte", [] { moxdev::parse_id_bytes({"0xEF4"}); });
    EXPECT_EQ(moxdev::parse_id_bytes({"0xEF 0x4018"}), BYTES({0xEF, 0x40, 0x18}));
    refused(INVALID, "README.md: not a dump: \"```sh\" is not hex",
            [] { moxdev::read_sfdp_dump("```sh\n", "README.md"); });
    const BYTES read = sfdp_read("example.hexdump");
    refused(INVALID, "--sfdp binds by the device ID, not by a silicon ID",
            [&] { documents.identify({0x12}, true, &read); });
    refused(INVALID, "--id takes the three Read-ID bytes", [&] { documents.sfdp(read, {0xEF, 0x40}); });
    refused(INVALID, "--name 'a#b': ", [&] { documents.sfdp(read, {}, "a#b"); });
    refused(INVALID, "SFDP: ", [&] { documents.sfdp({'S', 'F', 'D', 'P', 0, 1, 3, 0xFF}); });

    const TEMP_DIR empty;
    const SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", empty.path().c_str());
    FLASH_DOCUMENTS nowhere;
    refused(QUERY_FAILURE::UNAVAILABLE,
            "the flash database " + empty.file("programmer/mox_flash.pcf") + " does not exist", [&] {
                nowhere.identify({0xEF, 0x40, 0x18});
            });
}

TEST(FlashDocuments, SendNotesToTheSink)
{
    std::vector<std::string> notes;
    FLASH_DOCUMENTS documents([&](const std::string& text) { notes.push_back(text); });
    documents.show("W25Q128.V");
    EXPECT_EQ(notes, std::vector<std::string>{"W25Q128.V is W25Q128JV here"});
    notes.clear();
    const BYTES read = sfdp_read("example.hexdump");
    documents.identify({0xEF, 0x40, 0x17}, false, &read);
    EXPECT_EQ(notes, std::vector<std::string>{"warning: the SFDP read gives 8388608 bits, the bound record W25Q64JV "
                                              "67108864"});
}

TEST(FlashDocuments, KeepTheTablesAndNoDerivedRecord)
{
    // A copy of the database that goes away after the first answers: the
    // answers after it come from what the object keeps.
    const TEMP_DIR dir;
    std::filesystem::create_directories(dir.file("programmer"));
    for (const char* file : {"mox_flash.pcf", "mox_flash_sources.txt"})
        std::filesystem::copy_file(data_path("programmer/") + file, dir.file("programmer/") + file);
    const SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    FLASH_DOCUMENTS documents;
    const DOCUMENT first = documents.identify({0xEF, 0x40, 0x18});
    const DOCUMENT shown = documents.show("W25Q128JV");
    EXPECT_EQ(first["maxima_source"]["kind"], "datasheet");

    // A chip bound to the record derived from its read: later questions
    // about its ID do not find that record.
    const BYTES read = sfdp_read("W25Q64FV.hexdump");
    EXPECT_EQ(documents.identify({0xEF, 0x40, 0x99}, false, &read)["from_sfdp"], true);
    refused(QUERY_FAILURE::NOT_FOUND, "no known flash matches EF 40 99", [&] {
        documents.identify({0xEF, 0x40, 0x99});
    });

    std::filesystem::remove_all(dir.file("programmer"));
    EXPECT_EQ(documents.identify({0xEF, 0x40, 0x18}), first);
    EXPECT_EQ(documents.show("W25Q128JV"), shown);
}
