// The --json output of the moxdev command: one document on standard output,
// record field names, numbers as numbers, and nothing else on standard output.
#include "test_support.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <filesystem>

using namespace moxdev_test;
using JSON = nlohmann::ordered_json;

namespace {

struct RUN {
    int status;
    std::string out, err;
    JSON json() const { return JSON::parse(out); }
};

RUN moxdev(const std::string& arguments, const std::string& environment = "")
{
    TEMP_DIR dir;
    RUN run;
    run.status = run_command(environment + " " + MOXDEV_CLI + " " + arguments + " 2>" + dir.file("err"), run.out);
    run.err = read_text(dir.file("err"));
    return run;
}

JSON ok(const std::string& arguments, const std::string& environment = "")
{
    const RUN run = moxdev(arguments, environment);
    EXPECT_EQ(run.status, 0) << arguments << "\n" << run.err;
    EXPECT_TRUE(JSON::accept(run.out)) << arguments << "\n" << run.out;
    return JSON::accept(run.out) ? run.json() : JSON();
}

} // namespace

TEST(CliJson, DeviceShowAndList)
{
    JSON part = ok("device show kxb100f484c6 --json");
    EXPECT_EQ(part["kind"], "part");
    EXPECT_EQ(part["value"], dstr_get_dev_part_enum_by_string("KXB100F484C6"));
    EXPECT_EQ(part["device_name"], "KXB100");
    JSON& record = part["record"];
    EXPECT_TRUE(record["support_vab"].is_boolean());
    EXPECT_TRUE(record["aes_n_fuse_bits"].is_number_unsigned());
    EXPECT_EQ(record["family_name"], "KESTREL_II");
    EXPECT_EQ(record["family"], int(dstr_get_dev_family_enum_by_string("KESTREL_II")));
    // Every field, in record order, each catalogue value with its name.
    std::vector<std::string> keys;
    for (const auto& item : record.items())
        if (item.key().size() < 5 || item.key().compare(item.key().size() - 5, 5, "_name") != 0)
            keys.push_back(item.key());
    EXPECT_EQ(keys, std::vector<std::string>(MOXDEV_DEVICE_FIELD_NAMES,
                                             MOXDEV_DEVICE_FIELD_NAMES + TOTAL_DEVICE_DATABASE_MEMBER));
    EXPECT_TRUE(record["ekp_alg_family_name"].is_string());

    JSON records = ok("device list --json");
    ASSERT_EQ(records.size(), TOTAL_DATABASE_DEVICE);
    EXPECT_EQ(records[part["record_index"].get<std::size_t>()]["record"], record);

    JSON family = ok("device show 'kestrel ii' --json");
    EXPECT_EQ(family["kind"], "family");
    EXPECT_EQ(family["name"], "KESTREL_II");
    JSON families = ok("device list --by family --json");
    ASSERT_EQ(families.size(), 73u);
    EXPECT_EQ(families.back()["display_name"], "Generic");
    JSON& kestrel = families[family["value"].get<std::size_t>() - 1];
    EXPECT_EQ(kestrel["record_index"], family["record_index"]);
    EXPECT_EQ(kestrel["record_pcf"], family["record"]["pcf"]);
    EXPECT_EQ(ok("device list --by device --json").size(), std::size_t(DEV_DEVICE_MAX - 1));
    EXPECT_EQ(ok("device list --by part --json").size(), std::size_t(DEV_PART_MAX - 1));
}

TEST(CliJson, FlashIdentifyListAndDecode)
{
    JSON found = ok("flash identify 20 BA 19 --json");
    EXPECT_EQ(found["id_bytes"], JSON({0x20, 0xBA, 0x19}));
    EXPECT_EQ(found["record"]["device_name"], "MT25QL256");
    EXPECT_EQ(found["record"]["device_bit_size"], 268435456);
    EXPECT_TRUE(found["record"]["default_dev"].is_boolean());
    EXPECT_EQ(found["record"].size(), std::size_t(TOTAL_DATABASE_MEMBER));

    JSON usable = ok("flash list --json");
    EXPECT_EQ(usable[found["record_index"].get<std::size_t>()]["record"], found["record"]);
    JSON all = ok("flash list --all --json");
    ASSERT_GT(all.size(), usable.size());
    for (JSON& entry : all) {
        if (!entry["usable"].get<bool>()) {
            EXPECT_EQ(entry["switch"].get<std::string>().rfind("MOX_ALLOW_", 0), 0u) << entry.dump();
        }
    }

    // A user flash value through the dialogue, decoded; a damaged one makes
    // the library explain itself, on standard error only.
    TEMP_DIR dir;
    write_text(dir.file("answers.txt"), "1\nacme\nmychip\n19\n2\nBA\n1\n20\n0\nn\ny\nn\nn\nn\ny\n1\n256\n64\n400\n3\n"
                                        "1800\n5C\n5C\n0\n4\n5\ny\n3.3V\n");
    const RUN define = moxdev("flash define < " + dir.file("answers.txt"));
    const std::size_t start = define.out.find("MOX_SUPPORT_EXT_SPI_DEV='") + 25;
    const std::string value = define.out.substr(start, define.out.find('\'', start) - start);
    JSON decoded = ok("flash decode '" + value + "' --json");
    EXPECT_EQ(decoded["accepted"], true);
    EXPECT_EQ(decoded["record"]["device_name"], "MYCHIP");
    EXPECT_EQ(decoded["record"]["device_bit_size"], 268435456);
    std::string damaged = value;
    damaged[damaged.size() / 2] = damaged[damaged.size() / 2] == 'A' ? 'B' : 'A';
    const RUN debug = moxdev("flash identify 20 BA 19 --json",
                             "MOX_SUPPORT_EXT_SPI_DEV='" + damaged + "' MOX_SUPPORT_EXT_SPI_DEV_DEBUG=1");
    ASSERT_TRUE(JSON::accept(debug.out)) << debug.out;
    EXPECT_EQ(debug.json()["record"]["device_name"], "MT25QL256");
    EXPECT_NE(debug.err.find("Fail to"), std::string::npos) << debug.err;
    JSON user = ok("flash identify 20 BA 19 --json", "MOX_SUPPORT_EXT_SPI_DEV='" + value + "'");
    EXPECT_EQ(user["user_defined"], true);
    EXPECT_EQ(user["record_index"], 0);
}

TEST(CliJson, NamingImagesAndHps)
{
    JSON name = ok("name kxb100f484c6 --json");
    EXPECT_EQ(name["programmer_part"], "KXB100M");
    EXPECT_TRUE(name["use_full_name"].is_boolean());
    JSON by_name = ok("opn KXB100F484C6 --json");
    EXPECT_EQ(by_name["enum"], name["opn_enum"]);
    EXPECT_EQ(by_name["hash"], name["opn_hash"]);
    EXPECT_EQ(ok("opn " + std::to_string(by_name["enum"].get<DWORD>()) + " --json"), by_name);
    char hash[32];
    std::snprintf(hash, sizeof hash, "0x%llX", by_name["hash"].get<unsigned long long>());
    EXPECT_EQ(ok(std::string("opn ") + hash + " --json"), by_name);
    EXPECT_EQ(ok("type option-bit aes_keys --json"),
              JSON({{"kind", "option-bit"}, {"kind_value", 2}, {"value", 21}, {"name", "AES_KEYS"}}));

    TEMP_DIR dir;
    ASSERT_EQ(moxdev("image build " + dir.path()).status, 0);
    JSON grammar = ok("image check " + dir.file("grammar.img") + " --json");
    EXPECT_EQ(grammar["kind"], "grammar");
    EXPECT_EQ(grammar["same_as_catalogue"], true);
    std::size_t entries = 0;
    for (JSON& table : grammar["tables"])
        entries += table["entries"].get<std::size_t>();
    EXPECT_EQ(grammar["entries"], entries);
    JSON opn = ok("image check " + dir.file("opn.img") + " --list --json");
    EXPECT_EQ(opn["list"].size(), opn["count"]);
    EXPECT_EQ(opn["list"][by_name["enum"].get<std::size_t>()]["name"], "KXB100F484C6");

    const std::string module = "MOXDEV_MODULE_DIR=" + dir.path();
    JSON nand = ok("hps list nand --json", module);
    ASSERT_EQ(nand.size(), 10u);
    EXPECT_TRUE(nand[0]["record"]["manufacturer_id"].is_number_unsigned());
    EXPECT_EQ(nand[0]["user_defined"], false);
    EXPECT_TRUE(ok("hps list spi --json", module)[0]["record"]["speed_mode"].is_boolean());
    JSON hps = ok("hps select 4BA00478 --json");
    EXPECT_EQ(hps["idcode"], 0x4BA00478);
    ASSERT_EQ(hps["words"].size(), std::size_t(MOXDEV_HPS_WORDS));
    EXPECT_EQ(hps["words"][MOXDEV_HPS_WORD_NAMES[0]], 0x4BA00478);
}

TEST(CliJson, ErrorsLeaveStandardOutputEmpty)
{
    for (const char* arguments : {"device show NO_SUCH_NAME --json", "flash identify 12 34 56 --json",
                                  "flash decode rubbish --json", "name NOSUCHTHING --json", "opn 0x1 --json",
                                  "type block 0 --json", "hps select 12345678 --json", "image check missing --json"}) {
        const RUN run = moxdev(arguments);
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_EQ(run.out, "") << arguments;
        // The library may explain itself first; the error is the last line.
        const std::size_t last = run.err.rfind('\n', run.err.size() - 2);
        EXPECT_EQ(run.err.compare(last == std::string::npos ? 0 : last + 1, 8, "moxdev: "), 0)
            << arguments << "\n" << run.err;
    }
    TEMP_DIR dir;
    std::filesystem::create_directories(dir.file("programmer"));
    write_text(dir.file("programmer/mox_dev_info.pcf"), "too short");
    const RUN damaged = moxdev("device list --json", "MOXDEV_DEVICE_DB_DIR=" + dir.path());
    EXPECT_EQ(damaged.status, 2);
    EXPECT_EQ(damaged.out, "");
    EXPECT_EQ(damaged.err.rfind("moxdev: internal error: ", 0), 0u) << damaged.err;
}
