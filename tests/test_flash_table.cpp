// The serial flash table data/mox_flash.csv: its shape, its agreement with the
// public Read-ID table of SPI NOR chips, and the record order that the
// first-match binding of a chip's ID bytes depends on.
#include "test_support.h"

#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

using namespace moxdev_test;

namespace {

using ROW = std::vector<std::string>;

enum COLUMN { MAKER, NAME, SILICON, MEM_ID, MEM_IX, TYPE, TYPE_IX, MFC, MFC_IX, VELMAR_ID, DEFAULT,
              INI, DIES = 18, BITS, SECTOR, HALF, BYTE4, BULK, SEC, PROG, VOLTAGE = 32, COLUMNS };

// Lines split the way the database generator splits them.
std::vector<ROW> read_lines(const std::string& path, const std::string& delimiters)
{
    std::vector<ROW> lines;
    std::istringstream text(read_text(path));
    for (std::string line; std::getline(text, line);) {
        gen_remove_leading_and_trailing_white_spaces(line);
        if (!line.empty())
            lines.push_back(STRING_TOKENIZER(line, delimiters).tokens());
    }
    return lines;
}

const std::vector<ROW>& table()
{
    static const std::vector<ROW> lines = read_lines(source_path("data/mox_flash.csv"), " \t\n,");
    return lines;
}

std::vector<ROW> records(bool switches_on)
{
    std::vector<ROW> kept;
    for (std::size_t i = 8; i < table().size(); ++i) {
        // A line of the wrong width is reported by the format check alone.
        if (table()[i].size() == COLUMNS && (switches_on || table()[i][INI] == "NONE"))
            kept.push_back(table()[i]);
    }
    return kept;
}

DWORD num(const std::string& text)
{
    DWORD value = 0;
    EXPECT_TRUE(MOX_COMMON::convert_string_to_dword(text, value)) << text;
    return value;
}

std::string id_of(const ROW& r)
{
    char text[16];
    std::snprintf(text, sizeof text, "%02X%02X%02X", unsigned(num(r[MFC])), unsigned(num(r[TYPE])),
                  unsigned(num(r[MEM_ID])));
    return text;
}

// The record the engine binds to three Read-ID bytes: the first device-ID match.
const ROW* bind(const std::vector<ROW>& recs, const BYTE id[3])
{
    for (const ROW& r : recs) {
        const DWORD type_ix = num(r[TYPE_IX]);
        if (r[SILICON] == "FALSE" && id[num(r[MEM_IX])] == num(r[MEM_ID]) &&
            (type_ix == 255 || id[type_ix] == num(r[TYPE])) && id[num(r[MFC_IX])] == num(r[MFC]))
            return &r;
    }
    return nullptr;
}

bool power_of_two(DWORD v) { return v != 0 && (v & (v - 1)) == 0; }

} // namespace

TEST(FlashTable, IdentifiersGeometryAndTimesAreConsistent)
{
    std::set<std::string> makers, silicon_ids;
    std::map<std::string, std::string> code_of_name;
    for (const ROW& r : records(true)) {
        if (r[SILICON] == "TRUE") {
            EXPECT_EQ(r[MAKER], "VELMAR");
            EXPECT_EQ(num(r[MEM_IX]), 0u) << r[NAME];
            EXPECT_EQ(num(r[TYPE_IX]), 255u) << r[NAME];
            EXPECT_TRUE(silicon_ids.insert(r[MEM_ID]).second) << r[NAME];
        } else {
            makers.insert(r[MAKER]);
            // Read-ID byte order: maker, memory type, capacity.
            EXPECT_EQ(num(r[MFC_IX]), 0u) << r[NAME];
            EXPECT_EQ(num(r[TYPE_IX]), 1u) << r[NAME];
            EXPECT_EQ(num(r[MEM_IX]), 2u) << r[NAME];
        }
        const std::string code = r[VELMAR_ID];
        EXPECT_TRUE(num(code) >= 1 && num(code) <= 254) << r[NAME];
        // A name's ID variants share its family's number.
        EXPECT_EQ(code_of_name.emplace(r[NAME], code).first->second, code) << r[NAME];

        const DWORD bits = num(r[BITS]), sector = num(r[SECTOR]);
        EXPECT_TRUE(power_of_two(bits) && bits <= 0x80000000u) << r[NAME];
        EXPECT_TRUE(power_of_two(sector) && sector >= 32768 && sector * 8 <= bits) << r[NAME];
        EXPECT_EQ(r[BYTE4], bits > 0x8000000u ? "TRUE" : "FALSE") << r[NAME];
        const DWORD dies = num(r[DIES]);
        EXPECT_TRUE(dies == 1 || dies == 2 || dies == 4) << r[NAME];
        EXPECT_TRUE(num(r[SEC]) >= 1 && num(r[SEC]) <= num(r[BULK]) && num(r[BULK]) <= 4 * 3600) << r[NAME];
        EXPECT_TRUE(num(r[PROG]) >= 100 && num(r[PROG]) <= 20000) << r[NAME];
    }
    // The generator checks every cell's form; the shape is checked here.
    for (const ROW& line : table())
        EXPECT_EQ(line.size(), std::size_t(COLUMNS));
    EXPECT_GE(records(true).size(), 100u);
    EXPECT_GE(makers.size(), 6u);
    EXPECT_GE(silicon_ids.size(), 3u);
}

TEST(FlashTable, AgreesWithThePublicReadIdTable)
{
    const std::string path = source_path("data/flash/reference/spi-nor-chips.csv");
    // maker,part,mfr,type,capacity,size_bytes,sector_bytes,page_bytes,dies,addr4_needed,voltage,...
    std::vector<ROW> reference;
    std::istringstream text(read_text(path));
    std::string line;
    std::getline(text, line);
    while (std::getline(text, line)) {
        ROW cells;
        std::istringstream fields(line);
        for (std::string cell; cells.size() < 11 && std::getline(fields, cell, ',');)
            cells.push_back(cell);
        cells.resize(11);
        reference.push_back(cells);
    }
    ASSERT_GT(reference.size(), 300u);
    for (const ROW& r : records(true)) {
        if (r[SILICON] == "TRUE")
            continue;
        bool found = false;
        for (const ROW& ref : reference) {
            found = found || (ref[2] + ref[3] + ref[4] == id_of(r) &&
                              std::stoull(ref[5]) * 8 == num(r[BITS]) &&
                              std::stoul(ref[6]) == num(r[SECTOR]) &&
                              std::stoul(ref[8]) <= num(r[DIES]) &&
                              (ref[10].empty() || ref[10] + "V" == r[VOLTAGE]));
        }
        EXPECT_TRUE(found) << r[NAME] << " " << id_of(r) << " has no matching reference row";
    }
    // And every Read-ID of the reference table binds a record.
    const std::vector<ROW> all = records(true);
    for (const ROW& ref : reference) {
        const BYTE id[3] = {BYTE(std::stoul(ref[2], nullptr, 16)), BYTE(std::stoul(ref[3], nullptr, 16)),
                            BYTE(std::stoul(ref[4], nullptr, 16))};
        EXPECT_NE(bind(all, id), nullptr) << ref[1] << " " << ref[2] << ref[3] << ref[4] << " binds no record";
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
    const std::string good_chip = "chip T1\n  id 40 18\n  size 128M\n  sector 64K\n  protect 0x3C 0x3C none\n"
                                  "  voltage 3.3V\n  datasheet T1 datasheet\n  page_program 3 ms\n"
                                  "  sector_erase 2 s\n  chip_erase 200 s\n";
    auto replaced = [](std::string text, const std::string& from, const std::string& to) {
        return text.replace(text.find(from), from.size(), to);
    };
    const struct {
        std::string body;
        std::string message;
    } cases[] = {
        {"maker T 0xEF\n" + good_chip, ""},
        {"maker T 0xEF\n" + good_chip + "  colour blue\n", "m.txt:12: unknown key \"colour\""},
        {"maker T 0xEF\n" + replaced(good_chip, "128M", "100M"), "m.txt:4: not a power of two: \"100M\""},
        {"maker T 0xEF\n" + good_chip + "chip T3\n  id 40 19\n  size 256M\n  sector 64K\n"
         "  protect 0x3C 0x3C none\n  voltage 3.3V\n  datasheet none\n  times_from T9\n",
         "m.txt:19: times_from names no chip: T9"},
        {"maker T 0xEF\n" + good_chip + "  page_program 3 hours\n", "m.txt:12: not a time: \"3 hours\""},
        {"maker T 0xEF\nfamily F\n  id 40 18\n", "m.txt:3: \"id\" belongs to a chip, not to a family"},
    };
    for (const auto& c : cases) {
        TEMP_DIR dir;
        write_text(dir.file("index.txt"), "m.txt\n");
        write_text(dir.file("m.txt"), c.body);
        std::string output;
        const int status = run_command(std::string(MOXDEV_GEN_FLASH_TABLE) + " " + dir.file("index.txt") + " " +
                                           dir.file("out.csv"),
                                       output, true);
        if (c.message.empty()) {
            EXPECT_EQ(status, 0) << output;
            continue;
        }
        EXPECT_NE(status, 0);
        EXPECT_NE(output.find(c.message), std::string::npos) << output;
        EXPECT_FALSE(std::ifstream(dir.file("out.csv"))) << "nothing written";
    }
}

TEST(FlashTable, EveryNameHasExactlyOneDefaultWithSwitchesOffAndOn)
{
    for (bool on : {false, true}) {
        std::map<std::string, int> defaults;
        for (ROW r : records(on)) {
            stl_toupper(r[NAME]);
            defaults[r[NAME]] += r[DEFAULT] == "TRUE";
        }
        for (const auto& [name, count] : defaults)
            EXPECT_EQ(count, 1) << name << (on ? " with switches on" : " with switches off");
    }
}

// Three ID bytes shared by several records bind the intended part, and that
// record's times are long enough for every part that answers with the same ID.
TEST(FlashTable, SharedIdsBindTheIntendedPartFirst)
{
    const std::map<std::string, std::string> off = {
        {"20BA18", "MT25QL128"}, {"20BA19", "MT25QL256"}, {"20BA20", "MT25QL512"},
        {"20BA21", "MT25QL01G"}, {"20BB18", "MT25QU128"}, {"20BB19", "MT25QU256"},
        {"20BB20", "MT25QU512"}, {"20BB21", "MT25QU01G"}, {"012018", "S25FL128S"},
        {"010219", "S25FL256S"}, {"010220", "S25FL512S"}, {"C22016", "MX25L3233F"},
        {"C22017", "MX25L6473F"}, {"C22018", "MX25L12835F"}, {"C22019", "MX25L25645G"},
        {"C2201A", "MX25L51245G"}, {"C22536", "MX25U3235F"}, {"C22539", "MX25U25645G"},
        {"C2253A", "MX25U51245G"}, {"EF4016", "W25Q32JV"}, {"EF4017", "W25Q64JV"},
        {"EF4018", "W25Q128JV"}, {"EF4019", "W25Q256JV"}, {"C84018", "GD25Q128C"}};
    std::map<std::string, std::string> on = off;
    on["012018"] = "S25FL128S-256K";
    on["010219"] = "S25FL256S-256K";

    for (bool switches : {false, true}) {
        const std::vector<ROW> recs = records(switches);
        std::map<std::string, std::vector<const ROW*>> by_id;
        for (const ROW& r : recs) {
            if (r[SILICON] == "FALSE")
                by_id[id_of(r)].push_back(&r);
        }
        std::map<std::string, std::string> shared;
        for (const auto& [id, group] : by_id) {
            if (group.size() < 2)
                continue;
            const BYTE bytes[3] = {BYTE(num(group[0]->at(MFC))), BYTE(num(group[0]->at(TYPE))),
                                   BYTE(num(group[0]->at(MEM_ID)))};
            const ROW* first = bind(recs, bytes);
            ASSERT_EQ(first, group[0]) << id;
            shared[id] = first->at(NAME);
            for (const ROW* other : group) {
                for (int c : {BULK, SEC, PROG})
                    EXPECT_GE(num(first->at(c)), num(other->at(c)))
                        << id << " " << MOXDEV_FLASH_FIELD_NAMES[c] << " of " << other->at(NAME);
            }
        }
        for (const auto& [id, name] : switches ? on : off)
            EXPECT_EQ(shared[id], name) << id;
    }
}
