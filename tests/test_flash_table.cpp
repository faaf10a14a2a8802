// The shipped serial flash table: the consistency of its records, its
// agreement with the public Read-ID table of SPI NOR chips, its sync with
// data/flash/, and the record order that first-match binding depends on.
#include "test_support.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

using namespace moxdev_test;

namespace {

using RECORD = MOXDEV_SFL_FLASH_INFO;

// The shipped table with its switches off or on, without a user definition.
// Loading refuses a name without exactly one default record, so loading both
// also checks the defaults.
const MOXDEV_FLASH_MANAGER& shipped(bool switches_on)
{
    auto load = [](const char* on) {
        SCOPED_ENV user("MOX_SUPPORT_EXT_SPI_DEV", nullptr), qual("MOX_ALLOW_QUAL_2GBIT", on),
            sector("MOX_ALLOW_S25FL_S_256K_SECTOR", on);
        return moxdev::load_flash_database();
    };
    static const MOXDEV_FLASH_MANAGER off = load(nullptr), on = load("1");
    return switches_on ? on : off;
}

std::vector<const RECORD*> records(bool switches_on)
{
    std::vector<const RECORD*> all;
    for (DWORD i = 0; i < shipped(switches_on).get_flash_count(); ++i)
        all.push_back(shipped(switches_on).get_flash_database() + i);
    return all;
}

std::string id_of(const RECORD& r)
{
    char text[16];
    if (r.memory_type_index == 255 && !r.silicon_id) // a two-byte product ID: maker, model
        std::snprintf(text, sizeof text, "%02X%02X", unsigned(r.mfc_id), unsigned(r.memory_id));
    else
        std::snprintf(text, sizeof text, "%02X%02X%02X", unsigned(r.mfc_id), unsigned(r.memory_type),
                      unsigned(r.memory_id));
    return text;
}

bool power_of_two(DWORD v)
{
    return v != 0 && (v & (v - 1)) == 0;
}

} // namespace

TEST(FlashTable, IdentifiersGeometryAndTimesAreConsistent)
{
    std::set<std::string> makers, silicon_ids;
    std::map<std::string, int> code_of_name;
    for (const RECORD* r : records(true)) {
        SCOPED_TRACE(r->device_name);
        if (r->silicon_id) {
            EXPECT_EQ(r->manufacturer_name, "VELMAR");
            EXPECT_TRUE(r->memory_id_index == 0 && r->memory_type_index == 255);
            EXPECT_TRUE(silicon_ids.insert(id_of(*r)).second);
        } else {
            makers.insert(r->manufacturer_name);
            // Read-ID byte order: maker, memory type, capacity; or a two-byte
            // product ID: maker, model.
            EXPECT_TRUE(r->mfc_id_index == 0 && ((r->memory_type_index == 1 && r->memory_id_index == 2) ||
                                                 (r->memory_type_index == 255 && r->memory_id_index == 1)));
        }
        EXPECT_TRUE(r->velmar_id >= 1 && r->velmar_id <= 254);
        // A name's ID variants share its family's number.
        EXPECT_EQ(code_of_name.emplace(r->device_name, r->velmar_id).first->second, r->velmar_id);

        const DWORD bits = r->device_bit_size, sector = r->device_sector_byte;
        EXPECT_TRUE(power_of_two(bits) && bits <= 0x80000000u);
        EXPECT_TRUE(power_of_two(sector) && sector >= 4096 && sector * 8 <= bits);
        EXPECT_EQ(r->byte4_addressing, bits > 0x8000000u);
        EXPECT_TRUE(r->die_count == 1 || r->die_count == 2 || r->die_count == 4);
        EXPECT_TRUE(r->sec_erase_time >= 1 && r->sec_erase_time <= r->bulk_erase_time &&
                    r->bulk_erase_time <= 4 * 3600);
        EXPECT_TRUE(r->program_utime >= 100 && r->program_utime <= 20000);
    }
    // Every record of the CSV (below its eight heading lines) loads with the switches on.
    const std::string csv = read_text(source_path("data/mox_flash.csv"));
    EXPECT_EQ(records(true).size(), std::size_t(std::count(csv.begin(), csv.end(), '\n') - 8));
    EXPECT_GT(records(true).size(), records(false).size());
    EXPECT_GE(makers.size(), 6u);
    EXPECT_GE(silicon_ids.size(), 3u);
}

TEST(FlashTable, AgreesWithThePublicReadIdTable)
{
    // maker,part,mfr,type,capacity,size_bytes,sector_bytes,page_bytes,dies,addr4_needed,voltage,...
    std::vector<std::vector<std::string>> reference;
    std::istringstream text(read_text(source_path("data/flash/reference/spi-nor-chips.csv")));
    std::string line;
    std::getline(text, line);
    while (std::getline(text, line)) {
        std::vector<std::string> cells(1);
        for (char c : line)
            c == ',' ? cells.emplace_back().clear() : cells.back().push_back(c);
        cells.resize(11);
        reference.push_back(cells);
    }
    ASSERT_GT(reference.size(), 300u);
    // flashrom's chip tables (maker,name,probe,id,size_bytes,sector_bytes,...),
    // for the makers the reference table leaves out.
    std::vector<std::vector<std::string>> flashrom;
    std::istringstream chips(read_text(source_path("data/flash/reference/flashrom-chips.csv")));
    std::getline(chips, line);
    while (std::getline(chips, line)) {
        std::vector<std::string> cells(1);
        for (char c : line)
            c == ',' ? cells.emplace_back().clear() : cells.back().push_back(c);
        std::string id = cells.size() > 4 ? cells[3] : "";
        id.erase(std::remove(id.begin(), id.end(), ' '), id.end());
        if (cells.size() > 5 && !cells[4].empty() && !cells[5].empty())
            flashrom.push_back({id, cells[4], cells[5]});
    }
    ASSERT_GT(flashrom.size(), 300u);
    for (const RECORD* r : records(true)) {
        bool found = r->silicon_id;
        for (const auto& ref : reference) {
            found = found || (ref[2] + ref[3] + ref[4] == id_of(*r) && std::stoull(ref[5]) * 8 == r->device_bit_size &&
                              std::stoul(ref[6]) == r->device_sector_byte && std::stoul(ref[8]) <= r->die_count &&
                              (ref[10].empty() || ref[10] + "V" == r->asc_voltage));
        }
        for (const auto& chip : flashrom) {
            // A 7F continuation code before the maker's: the record compares the first three bytes.
            const std::string id = chip[0].size() == 8 ? chip[0].substr(0, 6) : chip[0];
            found = found || (id == id_of(*r) && std::stoull(chip[1]) * 8 == r->device_bit_size &&
                              std::stoul(chip[2]) == r->device_sector_byte);
        }
        EXPECT_TRUE(found) << r->device_name << " " << id_of(*r) << " has no matching reference row";
    }
    // And every Read-ID of the reference table binds a record.
    for (const auto& ref : reference) {
        const BYTE id[3] = {BYTE(std::stoul(ref[2], nullptr, 16)), BYTE(std::stoul(ref[3], nullptr, 16)),
                            BYTE(std::stoul(ref[4], nullptr, 16))};
        EXPECT_NE(moxdev::find_flash(shipped(true), false, id, 3), nullptr)
            << ref[1] << " " << ref[2] << ref[3] << ref[4];
    }
}

// The table is generated from data/flash/: a change to one without the other
// fails here.
TEST(FlashTable, IsInSyncWithItsSources)
{
    TEMP_DIR dir;
    std::string output;
    ASSERT_EQ(run_command(std::string(MOXDEV_GEN_FLASH_TABLE) + " " + source_path("data/flash/index.txt") + " " +
                              dir.file("table.csv"),
                          output, true),
              0)
        << output;
    EXPECT_TRUE(read_bytes(dir.file("table.csv")) == read_bytes(source_path("data/mox_flash.csv")))
        << "run `cmake --build build --target update_flash_table` after changing data/flash/";
}

// Mistakes in a source are named with their file and line, and nothing is
// written.
TEST(FlashTable, SourceMistakesNameTheirPlace)
{
    const std::string chip = "maker T 0xEF\nchip T1\n  id 40 18\n  size 128M\n  sector 64K\n  protect 0x3C 0x3C none\n"
                             "  voltage 3.3V\n  datasheet T1 datasheet\n  page_program 3 ms\n"
                             "  sector_erase 2 s\n  chip_erase 200 s\n";
    const struct {
        std::string body;
        std::string message;
    } cases[] = {
        {chip, ""},
        {chip + "  colour blue\n", "m.txt:12: unknown key \"colour\""},
        {std::string(chip).replace(chip.find("128M"), 4, "100M"), "m.txt:4: not a power of two: \"100M\""},
        {chip + "chip T3\n  id 40 19\n  size 256M\n  sector 64K\n  protect 0x3C 0x3C none\n  voltage 3.3V\n"
                "  datasheet none\n  times_from T9\n",
         "m.txt:19: times_from names no chip: T9"},
        {chip + "  page_program 3 hours\n", "m.txt:12: not a time: \"3 hours\""},
        {"maker T 0xEF\nfamily F\n  id 40 18\n", "m.txt:3: \"id\" belongs to a chip, not to a family"},
    };
    for (const auto& c : cases) {
        TEMP_DIR dir;
        write_text(dir.file("index.txt"), "m.txt\n");
        write_text(dir.file("m.txt"), c.body);
        std::string output;
        const int status =
            run_command(std::string(MOXDEV_GEN_FLASH_TABLE) + " " + dir.file("index.txt") + " " + dir.file("out.csv"),
                        output, true);
        EXPECT_EQ(status == 0, c.message.empty()) << output;
        EXPECT_NE(output.find(c.message), std::string::npos) << output;
        EXPECT_EQ(bool(std::ifstream(dir.file("out.csv"))), c.message.empty()) << "written only when good";
    }
}

// Three ID bytes shared by several records bind the intended part, and that
// record's times are long enough for every part that answers with the same ID.
TEST(FlashTable, SharedIdsBindTheIntendedPartFirst)
{
    const std::map<std::string, std::string> off = {
        {"20BA18", "MT25QL128"},  {"20BA19", "MT25QL256"},   {"20BA20", "MT25QL512"},   {"20BA21", "MT25QL01G"},
        {"20BB18", "MT25QU128"},  {"20BB19", "MT25QU256"},   {"20BB20", "MT25QU512"},   {"20BB21", "MT25QU01G"},
        {"012018", "S25FL128S"},  {"010219", "S25FL256S"},   {"010220", "S25FL512S"},   {"C22016", "MX25L3233F"},
        {"C22017", "MX25L6473F"}, {"C22018", "MX25L12835F"}, {"C22019", "MX25L25645G"}, {"C2201A", "MX25L51245G"},
        {"C22536", "MX25U3235F"}, {"C22539", "MX25U25645G"}, {"C2253A", "MX25U51245G"}, {"EF4016", "W25Q32JV"},
        {"EF4017", "W25Q64JV"},   {"EF4018", "W25Q128JV"},   {"EF4019", "W25Q256JV"},   {"C84018", "GD25Q128C"}};
    std::map<std::string, std::string> on = off;
    on["012018"] = "S25FL128S-256K";
    on["010219"] = "S25FL256S-256K";

    for (bool switches : {false, true}) {
        std::map<std::string, std::vector<const RECORD*>> by_id;
        for (const RECORD* r : records(switches)) {
            if (!r->silicon_id)
                by_id[id_of(*r)].push_back(r);
        }
        std::map<std::string, std::string> shared;
        for (const auto& [id, group] : by_id) {
            if (group.size() < 2)
                continue;
            const RECORD& r = *group[0];
            const bool product_id = r.memory_type_index == 255; // two bytes: maker, model
            const BYTE bytes[3] = {r.mfc_id, product_id ? r.memory_id : r.memory_type, r.memory_id};
            const RECORD* first = moxdev::find_flash(shipped(switches), false, bytes, product_id ? 2 : 3);
            ASSERT_EQ(first, group[0]) << id;
            shared[id] = first->device_name;
            for (const RECORD* other : group)
                EXPECT_TRUE(first->bulk_erase_time >= other->bulk_erase_time &&
                            first->program_utime >= other->program_utime &&
                            first->sec_erase_time >= other->sec_erase_time)
                    << id << " " << other->device_name;
        }
        for (const auto& [id, name] : switches ? on : off)
            EXPECT_EQ(shared[id], name) << id;
    }
}

// Every record of the shipped table has a source for its maxima, a sibling's
// is scaled up by the density where the record is larger, and the sources
// reader refuses a file that is not one.
TEST(FlashSources, EveryRecordHasOneAndTheReaderRefusesOtherFiles)
{
    moxdev::FLASH_SOURCES sources;
    std::string error;
    ASSERT_TRUE(sources.load(moxdev::FLASH_SOURCES::default_path(), error)) << error;
    for (bool switches : {false, true}) {
        for (const RECORD* r : records(switches)) {
            const moxdev::MAXIMA_SOURCE* source = sources.find(*r);
            ASSERT_NE(source, nullptr) << r->device_name << " " << moxdev::flash_id_text(*r);
            // A datasheet was read, or the envelope says what it is.
            EXPECT_TRUE(source->kind == "envelope" ? !source->note.empty() : !source->datasheet.empty())
                << r->device_name;
            EXPECT_EQ(source->kind == "sibling", !source->sibling.empty()) << r->device_name;
        }
    }
    const RECORD* mt25ql512 = nullptr;
    for (const RECORD* r : records(false))
        mt25ql512 = r->device_name == "MT25QL512" && r->default_dev ? r : mt25ql512;
    ASSERT_NE(mt25ql512, nullptr);
    EXPECT_EQ(sources.find(*mt25ql512)->scaling.rfind("chip erase x2 (512M against 256M)", 0), 0u);

    const TEMP_DIR dir;
    const std::pair<std::string, std::string> refused[] = {
        {"W25Q128JV\tEF 40 18\tdatasheet\n", "line 1 is not a line of a flash sources file"},
        {"# heading\nX\tEF 40 18\trumour\ta\tb\tc\td\te\tf\tg\n", "line 2 is not a line of a flash sources file"},
        {std::string(70000, 'x'), "longer than"},
        {"\tEF 40 18\tdatasheet\ta\tb\tc\td\t\t\t\tALIAS\n", "line 1 is not a line of a flash sources file"},
    };
    for (const auto& [text, reason] : refused) {
        write_text(dir.file("sources.txt"), text);
        EXPECT_FALSE(sources.load(dir.file("sources.txt"), error)) << text.substr(0, 40);
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_TRUE(sources.entries().empty());
    }
    EXPECT_FALSE(sources.load(dir.file("missing.txt"), error));
    EXPECT_NE(error.find("missing.txt"), std::string::npos) << error;
}

// Two makers whose chips answer with the same bytes (a clone under another
// name): the record bound first carries the longest maxima of both, and the
// sources file says which later record raised it. An envelope chip's maxima
// are the envelope, scaled up by size and sector, never down.
TEST(FlashTable, SharedIdsAcrossMakersKeepTheLongestMaxima)
{
    TEMP_DIR dir;
    write_text(dir.file("index.txt"), "a.txt\nb.txt\n");
    write_text(dir.file("a.txt"), "maker ALPHA 0xEF\nchip A1\n  id 40 18\n  size 128M\n  sector 64K\n"
                                  "  protect 0x3C 0x3C none\n  voltage 3.3V\n  datasheet A1 sheet\n"
                                  "  page_program 3 ms\n  sector_erase 2 s\n  chip_erase 200 s\n");
    write_text(dir.file("b.txt"), "maker BETA 0xEF\nfamily clones\n  protect assumed\n  times envelope\n"
                                  "chip B1\n  alias B1.X\n  id 40 18\n  size 128M\n  sector 256K\n  voltage 3.3V\n"
                                  "  datasheet none\n");
    std::string output;
    ASSERT_EQ(run_command(std::string(MOXDEV_GEN_FLASH_TABLE) + " " + dir.file("index.txt") + " " +
                              dir.file("out.csv") + " && " + MOXDEV_GEN_FLASH_TABLE + " --sources " +
                              dir.file("index.txt") + " " + dir.file("sources.txt"),
                          output, true),
              0)
        << output;
    std::istringstream csv(read_text(dir.file("out.csv")));
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(csv, line);) {
        rows.emplace_back(1);
        for (char c : line)
            c == ',' ? rows.back().emplace_back().clear() : rows.back().back().push_back(c);
    }
    ASSERT_EQ(rows.size(), 10u);
    // bulk_erase_time, sec_erase_time, program_utime (columns 24 to 26):
    // the envelope of 128 Mbit and 256K sectors against the datasheet's.
    const MOXDEV_SFDP_ASSUMPTIONS envelope;
    const std::vector<std::string> beta = {std::to_string(envelope.chip_erase_ms_per_mbit * 128 / 1000),
                                           std::to_string(envelope.sector_erase_ms_per_64k * 4 / 1000),
                                           std::to_string(envelope.page_program_us)};
    EXPECT_EQ(std::vector<std::string>(rows[9].begin() + 23, rows[9].begin() + 26), beta);
    EXPECT_EQ(std::vector<std::string>(rows[8].begin() + 23, rows[8].begin() + 26), beta) << "raised to the clone's";
    EXPECT_EQ(rows[9][26], "0x3C") << "the assumed block-protect bits";

    moxdev::FLASH_SOURCES sources;
    std::string error;
    ASSERT_TRUE(sources.load(dir.file("sources.txt"), error)) << error;
    ASSERT_EQ(sources.entries().size(), 2u);
    EXPECT_EQ(sources.entries()[0].source.raised_by, std::vector<std::string>{"B1"});
    EXPECT_EQ(sources.entries()[1].source.kind, "envelope");
    EXPECT_EQ(sources.name_for("b1.x"), "B1");
}

// Flashrom writes optional parts of a name in parentheses; older Atmel parts
// answer a two-byte product ID (maker, model) that compares no type byte.
TEST(FlashTable, OptionalNamePartsAndTwoByteProductIds)
{
    TEMP_DIR dir;
    write_text(dir.file("index.txt"), "a.txt\n");
    write_text(dir.file("a.txt"), "maker ALPHA 0x1F\nfamily f\n  protect assumed\n  times envelope\n"
                                  "  voltage 3.3V\n  sector 32K\n"
                                  "chip AT25F1024(A)\n  id 60\n  size 1M\n  datasheet none\n"
                                  "chip EN25Q32(A/B)\n  alias X(Y)Z\n  id 30 16\n  size 32M\n  datasheet none\n");
    std::string output;
    ASSERT_EQ(run_command(std::string(MOXDEV_GEN_FLASH_TABLE) + " --sources " + dir.file("index.txt") + " " +
                              dir.file("sources.txt"),
                          output),
              0)
        << output;
    moxdev::FLASH_SOURCES sources;
    std::string error;
    ASSERT_TRUE(sources.load(dir.file("sources.txt"), error)) << error;
    EXPECT_EQ(sources.entries()[0].id, "1F 60");
    const std::pair<const char*, const char*> typed[] = {{"at25f1024", "AT25F1024(A)"},
                                                         {"AT25F1024A", "AT25F1024(A)"},
                                                         {"AT25F1024(a)", "AT25F1024(A)"},
                                                         {"EN25Q32B", "EN25Q32(A/B)"},
                                                         {"xz", "EN25Q32(A/B)"},
                                                         {"XYZ", "EN25Q32(A/B)"},
                                                         {"EN25Q32C", ""},
                                                         {"AT25F1024AB", ""},
                                                         {"AT25F", ""},
                                                         {"(A)", ""},
                                                         {"XY", ""}};
    for (const auto& [name, record] : typed)
        EXPECT_EQ(sources.name_for(name), record) << name;

    // In the shipped table: two bytes bind the product-ID record; a Read-ID
    // of three bytes with the same first two binds the record that compares
    // all three (it comes first).
    const BYTE product[2] = {0x1F, 0x60}, read_id[3] = {0x1F, 0x65, 0x00};
    const RECORD* at25f = moxdev::find_flash(shipped(true), false, product, 2);
    ASSERT_NE(at25f, nullptr);
    EXPECT_EQ(at25f->memory_type_index, 255);
    EXPECT_EQ(moxdev::flash_id_text(*at25f), "1F 60");
    const RECORD* at25f512b = moxdev::find_flash(shipped(true), false, read_id, 3);
    ASSERT_NE(at25f512b, nullptr);
    EXPECT_EQ(at25f512b->device_name, "AT25F512B");
}

// The SPI chips of Debian's `flashrom -L` are found under the name flashrom
// gives them, with flashrom's size; and the README's counts are the data's.
TEST(FlashTable, FlashromsChipsAreFoundByTheirNamesAndTheReadmeCountsAreTheData)
{
    moxdev::FLASH_SOURCES sources;
    std::string error;
    ASSERT_TRUE(sources.load(moxdev::FLASH_SOURCES::default_path(), error)) << error;
    std::istringstream listed(read_text(source_path("data/flash/reference/flashrom-1.3.0-L.txt")));
    std::size_t chips = 0, found = 0;
    const std::vector<const RECORD*> every = records(true);
    for (std::string line; std::getline(listed, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        ++chips;
        // vendor | device | status size bus
        const std::size_t first = line.find(" | "), second = line.find(" | ", first + 3);
        const std::string device = line.substr(first + 3, second - first - 3);
        std::istringstream rest(line.substr(second + 3));
        std::vector<std::string> words;
        for (std::string word; rest >> word;)
            words.push_back(word);
        const QWORD bits = std::stoull(words.at(words.size() - 2)) * 8192;
        const std::string name = sources.name_for(device.substr(0, device.find(' ')));
        found += std::any_of(every.begin(), every.end(), [&](const RECORD* r) {
            return !name.empty() && r->device_name == name && r->device_bit_size == bits;
        });
    }
    EXPECT_EQ(chips, 387u);
    // Left out (scripts/flashrom_import.py says why): 33 boot-block parts
    // (EN25B, A25L..P and the six 25F...S33), 22 answering RES or REMS only,
    // 10 DataFlash, 4 mask ROMs, the EC, the EEPROM, and flashrom's S25FL256S
    // pair listed at half the chip's size.
    EXPECT_GE(found, 314u) << found << " of " << chips;

    // README: "N records of M chip names from K makers; the maxima of A come
    // from their own datasheet, of B from a sibling's, of C from the envelope".
    std::set<std::string> names, makers;
    for (const RECORD* r : every) {
        names.insert(r->device_name);
        makers.insert(r->manufacturer_name);
    }
    std::map<std::string, std::size_t> kinds;
    for (const auto& entry : sources.entries())
        ++kinds[entry.source.kind];
    const std::string counts = std::to_string(every.size()) + " records of " + std::to_string(names.size()) +
                               " chip names from " + std::to_string(makers.size()) + " makers; the maxima of " +
                               std::to_string(kinds["datasheet"]) + " come from their own datasheet, of " +
                               std::to_string(kinds["sibling"]) + " from a sibling's, scaled, of " +
                               std::to_string(kinds["envelope"]) + " from the envelope";
    const std::string readme = read_text(source_path("README.md"));
    EXPECT_NE(readme.find(counts), std::string::npos) << counts;
}
