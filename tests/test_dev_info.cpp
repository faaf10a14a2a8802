// The device information database: lookups in the shipped file, damaged files,
// and building the file from the device table and the part list.
#include "test_support.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <tuple>

using namespace moxdev_test;

namespace {

using ROWS = std::vector<std::vector<std::string>>;
using RECORD = std::unique_ptr<MOXDEV_DEVICE_INFO>;

const BYTES& shipped_file()
{
    static const BYTES file = read_bytes(data_path("programmer/mox_dev_info.pcf"));
    return file;
}

ROWS shipped_rows()
{
    ROWS rows;
    std::istringstream in(read_text(source_path("data/mox_dev_info.csv")));
    for (std::string line; std::getline(in, line);)
        rows.push_back(STRING_TOKENIZER(line, ",").tokens());
    return rows;
}

std::size_t column(const std::string& name)
{
    const char* const* names = MOXDEV_DEVICE_FIELD_NAMES;
    return std::find(names, names + TOTAL_DEVICE_DATABASE_MEMBER, name) - names;
}

DEV_FAMILY_ENUM family(const char* name)
{
    return dstr_get_dev_family_enum_by_string(name);
}
DEV_DEVICE_ENUM device(const char* name)
{
    return dstr_get_dev_device_enum_by_string(name);
}
int part(const char* name)
{
    return dstr_get_dev_part_enum_by_string(name);
}

// A database directory and an install directory of the test's own: files
// installed there are what a manager built with loading finds.
class DevInfoFiles : public ::testing::Test {
protected:
    DevInfoFiles() { std::filesystem::create_directories(dir.file("programmer")); }

    std::string database() const { return dir.file("programmer/mox_dev_info.pcf"); }

    // Generates the database from `rows` in place of the installed one.
    void generate(const ROWS& rows)
    {
        std::string csv;
        for (const auto& row : rows)
            for (std::size_t i = 0; i < row.size(); ++i)
                csv += row[i] + (i + 1 < row.size() ? "," : "\n");
        write_text(dir.file("table.csv"), csv);
        MOXDEV_DEV_INFO_MANAGER(true, 0).generate_device_database(dir.file("table.csv"), database());
    }

    TEMP_DIR dir;
    SCOPED_ENV db{"MOXDEV_DEVICE_DB_DIR", dir.path().c_str()};
    SCOPED_ENV install{"MOXDEV_INSTALL_DIR", MOXDEV_DATA_DIR};
    SCOPED_ENV notices{"MOXDEV_NOTICES_FILE", nullptr};
};

} // namespace

// Known answers of the shipped table: a value's own record (the first of
// equals), else the record its part-list name leads to, else its family's or
// device's record; Generic values are served by record 1.
TEST(DevInfo, ShippedDatabaseAnswersKnownLookups)
{
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    ASSERT_EQ(manager.get_device_count(), TOTAL_DATABASE_DEVICE);
    const std::tuple<const char*, DWORD, DWORD> lookups[] = {
        {"family WREN_I", manager.get_family_index(family("WREN_I")), 0},
        {"family GENERIC", manager.get_family_index(DEV_FAMILY_GENERIC), 1},
        {"family KESTREL_II", manager.get_family_index(family("KESTREL_II")), 20},
        {"family INVALID", manager.get_family_index(DEV_FAMILY_INVALID), INVALID_DWORD},
        {"device KXB100", manager.get_device_index(device("KXB100")), 21},
        {"device CRD1800H", manager.get_device_index(device("CRD1800H")), 51},
        {"device GENERIC", manager.get_device_index(DEV_DEVICE_GENERIC), 1},
        {"device INVALID", manager.get_device_index(DEV_DEVICE_INVALID), 0},
        {"part HND320F896I2", manager.get_part_index(part("HND320F896I2")), 37},
        {"part KXB100F324C6", manager.get_part_index(part("KXB100F324C6")), 21},
        {"part OSC110DF672C6", manager.get_part_index(part("OSC110DF672C6")), 43},
        {"part GENERIC", manager.get_part_index(DEV_PART_GENERIC), 1},
        {"part INVALID", manager.get_part_index(DEV_PART_INVALID), 0},
    };
    for (const auto& [name, index, expected] : lookups)
        EXPECT_EQ(index, expected) << name;

    EXPECT_EQ(RECORD(manager.get_db_by_family(DEV_FAMILY_INVALID)), nullptr);
    EXPECT_EQ(RECORD(manager.get_db_by_family(family("HERON_IV")))->pcf, "heron4");
    EXPECT_EQ(RECORD(manager.get_db_by_device(device("CRD1800H")))->pcf, "curlew4_hbm");
    EXPECT_EQ(RECORD(manager.get_db_by_part(part("HND320F896I2")))->pcf, "heron4_hnd320f896i2");
    EXPECT_EQ(RECORD(manager.get_db_by_part(DEV_PART_GENERIC))->family, DEV_FAMILY_GENERIC);

    const std::pair<std::function<void()>, const char*> out_of_range[] = {
        {[&] { manager.get_db_by_family(DEV_FAMILY_MAX); }, "family < DEV_FAMILY_MAX"},
        {[&] { manager.get_db_by_device(DEV_DEVICE_MAX); }, "device < DEV_DEVICE_MAX"},
        {[&] { manager.get_db_by_part(DEV_PART_MAX); }, "part < DEV_PART_MAX"},
        {[&] { manager.get_db_by_part(-1); }, "part < DEV_PART_MAX"},
        {[&] { manager.get_family_index(DEV_FAMILY_MAX); }, "family < DEV_FAMILY_MAX"},
        {[&] { manager.get_device_index(DEV_DEVICE_MAX); }, "device < DEV_DEVICE_MAX"},
        {[&] { manager.get_part_index(DEV_PART_MAX); }, "part < DEV_PART_MAX"},
    };
    for (const auto& [lookup, condition] : out_of_range)
        EXPECT_INTERNAL_ERROR(lookup(), condition);

    MOXDEV_DEV_INFO_MANAGER empty(true, 0);
    EXPECT_EQ(empty.get_device_database(), nullptr);
    EXPECT_EQ(RECORD(empty.get_db_by_family(DEV_FAMILY_GENERIC)), nullptr);
}

TEST(DevInfo, RecordsAreCopiesAndManagersShareStorage)
{
    RECORD record;
    std::unique_ptr<MOXDEV_DEV_INFO_MANAGER> copy;
    {
        MOXDEV_DEV_INFO_MANAGER manager(false, 0);
        record.reset(manager.get_db_by_family(DEV_FAMILY_GENERIC));
        record->pcf = "changed";
        EXPECT_EQ(RECORD(manager.get_db_by_family(DEV_FAMILY_GENERIC))->pcf, "generic");
        copy = std::make_unique<MOXDEV_DEV_INFO_MANAGER>(manager);
        EXPECT_EQ(copy->get_device_database(), manager.get_device_database());
        MOXDEV_DEV_INFO_MANAGER assigned(true, 0);
        assigned = manager;
        EXPECT_EQ(assigned.get_device_database(), manager.get_device_database());
    }
    // The record and the copy outlive the manager they came from.
    EXPECT_EQ(record->pcf, "changed");
    EXPECT_EQ(RECORD(copy->get_db_by_family(DEV_FAMILY_GENERIC))->pcf, "generic");
}

TEST_F(DevInfoFiles, DamagedFilesAreRefused)
{
    // Payload offsets: a 12-byte header (version, record count, fields per
    // record), the records, then the family, device and part tables.
    const BYTES payload = payload_of(shipped_file());
    const std::size_t tables = payload.size() - (4 * DWORD(DEV_PART_MAX) + 4503);
    const std::size_t device_table = tables + 5 + 4 * DEV_FAMILY_MAX;
    const std::size_t part_table = device_table + 5 + 4 * DEV_DEVICE_MAX;
    // Record 0: family (5 bytes from 12), pcf (tag and length at 17 and 18),
    // device and part (5 bytes each), then its first bool.
    const std::size_t first_bool = 29 + payload[18];
    ASSERT_EQ(payload[first_bool], MOXDEV_MANAGER_BOOL);
    using DAMAGE = std::function<void(BYTES&)>;
    auto in_payload = [&](DAMAGE damage) {
        return [&payload, damage](BYTES& file) {
            BYTES changed = payload;
            damage(changed);
            file = make_database_file("MOXIO_DM", MOXDEV_DEV_INFO_CSV_MD5, changed);
        };
    };
    auto set = [](std::size_t offset, BYTE value) { return [=](BYTES& bytes) { bytes[offset] = value; }; };
    auto cut = [](std::size_t from, std::size_t to) {
        return [=](BYTES& bytes) { bytes = BYTES(bytes.begin() + from, bytes.begin() + to); };
    };
    const std::string any; // an internal error; which one depends on where reading stops
    // Rows: damage, its application, the condition ("ok": loads and serves lookups).
    const std::tuple<const char*, DAMAGE, std::string> cases[] = {
        {"missing file", [](BYTES& file) { file.clear(); },
         "FIO_FILE_SYSTEM::exists(device_file.fullpath().c_str()) && "
         "FIO_FILE_SYSTEM::status(device_file.fullpath().c_str(), &stat_info)"},
        {"header and trailer only", cut(0, 46), "file_size > (8 + 32 + 4 + 2)"},
        // One compressed byte cannot inflate to the announced size.
        {"one compressed byte", cut(0, 47), "new_dcmp_size == original_count"},
        {"magic", set(6, 'F'),
         "data[index++] == 'M' && data[index++] == 'O' && data[index++] == 'X' && "
         "data[index++] == 'I' && data[index++] == 'O' && data[index++] == '_' && "
         "data[index++] == 'D' && data[index++] == 'M'"},
        {"identifier", set(39, shipped_file()[39] ^ 1), "Mismatch ID between flash file and reader"},
        {"trailer", [](BYTES& file) { file.end()[-1] = 0xAB, file.end()[-2] = 0xCD; }, "ok"},
        {"version", in_payload(set(0, 2)), "Mismatch version between device file and reader"},
        {"no records", in_payload(set(4, 0)), "m_device_count > 0 && m_type_count > 0"},
        {"no fields", in_payload(set(8, 0)), "m_device_count > 0 && m_type_count > 0"},
        {"one record more", in_payload(set(4, TOTAL_DATABASE_DEVICE + 1)), any},
        // Room is set aside only for what the payload can hold; reading on
        // meets "END2" where record 80 would begin.
        {"huge record count", in_payload(set(7, 0x7F)),
         "type == MOXDEV_MANAGER_DEVID_ENUM || type == MOXDEV_MANAGER_DWORD || type == MOXDEV_MANAGER_ENUM"},
        {"records cut off", in_payload(cut(0, 200)), any},
        {"byte after the tables", in_payload([](BYTES& p) { p.push_back(0); }), "index == m_csv_memory_size"},
        {"tables only", in_payload(cut(tables, payload.size())), "memory_size > get_table_size()"},
        {"family table tag", in_payload(set(tables, MOXDEV_MANAGER_DEVICE_TBL)),
         "data[index++] == MOXDEV_MANAGER_FAMILY_TBL"},
        {"family table count", in_payload(set(tables + 1, 75)), "get_dword(data, index) == DWORD(DEV_FAMILY_MAX)"},
        {"device table count", in_payload(set(device_table + 1, 0)), "get_dword(data, index) == DWORD(DEV_DEVICE_MAX)"},
        {"part table tag", in_payload(set(part_table, MOXDEV_MANAGER_FAMILY_TBL)),
         "data[index++] == MOXDEV_MANAGER_PART_TBL"},
        {"part table count", in_payload(set(part_table + 1, payload[part_table + 1] ^ 1)),
         "get_dword(data, index) == DWORD(DEV_PART_MAX)"},
        {"byte where a bool stands", in_payload(set(first_bool, MOXDEV_MANAGER_BYTE)), "type == MOXDEV_MANAGER_BOOL"},
        // Found when looked up: the entry names a record the file lacks.
        {"table entry past the records", in_payload(set(tables + 5 + 4 * DEV_FAMILY_GENERIC, 79)),
         "m_index < TOTAL_DATABASE_DEVICE"},
    };
    for (const auto& [damage, apply, condition] : cases) {
        SCOPED_TRACE(damage);
        BYTES file = shipped_file();
        apply(file);
        std::filesystem::remove(database());
        if (!file.empty())
            write_bytes(database(), file);
        std::string outcome = "ok";
        try {
            RECORD(MOXDEV_DEV_INFO_MANAGER(false, 0).get_db_by_family(DEV_FAMILY_GENERIC));
        } catch (const MSG_INTERNAL_ERROR& error) {
            outcome = condition.empty() ? "" : error.condition();
        }
        EXPECT_EQ(outcome, condition);
    }
}

TEST_F(DevInfoFiles, GenerationRoundTripsTheShippedTable)
{
    const ROWS rows = shipped_rows();
    ASSERT_EQ(rows.size(), 2 + TOTAL_DATABASE_DEVICE);
    generate(rows);
    EXPECT_EQ(read_bytes(database()), shipped_file());

    // Every cell reads back as the table spells it.
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    for (DWORD r = 0; r < TOTAL_DATABASE_DEVICE; ++r) {
        const auto fields = moxdev_device_info_to_text(manager.get_device_database()[r]);
        for (std::size_t i = 0; i < fields.size(); ++i) {
            const std::string& cell = rows[2 + r][i];
            const std::string& text = fields[i].second;
            DWORD number = 0;
            if (MOX_COMMON::convert_string_to_dword(cell, number) && cell.size() > 2 && cell[1] == 'x')
                EXPECT_EQ(text, std::to_string(number)) << r << " " << fields[i].first;
            else if (cell == "TRUE" || cell == "FALSE") // flags show as true/false
                EXPECT_EQ(text, cell == "TRUE" ? "true" : "false") << r << " " << fields[i].first;
            else
                EXPECT_EQ(text.substr(0, cell.size()), cell) << r << " " << fields[i].first;
        }
    }
}

TEST_F(DevInfoFiles, GenerationRejectsMalformedTables)
{
    const ROWS rows = shipped_rows();
    auto cell = [](std::size_t row, const char* name, const char* value) {
        return [=](ROWS& r) { r[row].at(column(name)) = value; };
    };
    const std::pair<std::function<void(ROWS&)>, const char*> cases[] = {
        {[](ROWS& r) { r.pop_back(); }, "device_count == TOTAL_DATABASE_DEVICE"},
        {[](ROWS& r) { r.push_back(r.back()); }, "device_count == TOTAL_DATABASE_DEVICE"},
        {[](ROWS& r) { r[10].pop_back(); }, "DWORD(svec.size()) == TOTAL_DEVICE_DATABASE_MEMBER"},
        {[](ROWS& r) { r[0].pop_back(); }, "svec.size() == TOTAL_DEVICE_DATABASE_MEMBER"},
        {cell(0, "support_cpf", "BOOL"), "svec.at(i) == \"bool\""},
        {cell(0, "dummy_word", "DWORD"), "svec.at(i) == \"WORD\""},
        {cell(1, "support_vab", "support_vba"), "temp == m_db_name_list[i]"},
        {cell(5, "family", "NO_SUCH_FAMILY"), "found"},
        {cell(5, "ekp_alg_family", "KESTREL"), "found"},
        {cell(5, "support_sdos", "true"), "text == \"\" || text == \"FALSE\" || text == \"TRUE\""},
        // Without a Generic record, families the table lacks cannot be served.
        {cell(3, "family", "WREN_I"), "DEV_FAMILY_ENUM(i) != DEV_FAMILY_GENERIC"},
        // A table that cannot be read has no rows.
        {[](ROWS& r) { r.clear(); }, "device_count == TOTAL_DATABASE_DEVICE"},
    };
    generate(rows);
    for (const auto& [change, condition] : cases) {
        ROWS changed = rows;
        change(changed);
        EXPECT_INTERNAL_ERROR_IN(generate(changed), condition, "moxdev_dev_info_manager");
    }
    MOXDEV_DEV_INFO_MANAGER absent(true, 0);
    EXPECT_INTERNAL_ERROR_IN(absent.generate_device_database(dir.file("no-table.csv"), dir.file("out.pcf")),
                             "device_count == TOTAL_DATABASE_DEVICE", "moxdev_dev_info_manager");
    EXPECT_EQ(read_bytes(database()), shipped_file()) << "a failure leaves an earlier file untouched";

    generate(rows);
    // An unwritable destination fails on "status" and leaves no stray file;
    // the manager that failed is still empty and can generate again.
    MOXDEV_DEV_INFO_MANAGER manager(true, 0);
    EXPECT_INTERNAL_ERROR(manager.generate_device_database(dir.file("table.csv"), dir.file("missing/out.pcf")),
                          "status");
    EXPECT_FALSE(std::filesystem::exists(dir.file("missing")));
    EXPECT_EQ(manager.get_device_database(), nullptr);
    manager.generate_device_database(dir.file("table.csv"), dir.file("again.pcf").c_str());
    EXPECT_EQ(read_bytes(dir.file("again.pcf")), shipped_file());
}

TEST_F(DevInfoFiles, FamilyWithoutRecordIsServedByGenericAfterANotice)
{
    ROWS rows = shipped_rows();
    // WREN_II's only record (row 2 + 2) goes to WREN_I.
    ASSERT_EQ(rows[4].at(column("family")), "WREN_II");
    rows[4][column("family")] = "WREN_I";
    SCOPED_ENV notice_file("MOXDEV_NOTICES_FILE", dir.file("notices.txt").c_str());
    generate(rows);
    const std::string name = "WREN II (" + std::to_string(int(family("WREN_II"))) + ")";
    EXPECT_NE(read_text(dir.file("notices.txt"))
                  .find("Missing family " + name +
                        " from Dev Info CSV.\n\n"
                        "Forcing this family to use Generic database.\n\n"
                        "Please add the family support as soon as possible.\n"),
              std::string::npos);
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    EXPECT_EQ(manager.get_family_index(family("WREN_II")), 1u);
    EXPECT_EQ(RECORD(manager.get_db_by_family(family("WREN_II")))->family, DEV_FAMILY_GENERIC);
}

// A part list of the test's own decides which record serves a device without
// one: the first line of a device wins, names match ignoring case, comments
// and blank lines are skipped.
TEST_F(DevInfoFiles, PartListNamesTheRecordOfEachDevice)
{
    std::filesystem::create_directories(dir.file("h"));
    SCOPED_ENV own_list("MOXDEV_INSTALL_DIR", dir.path().c_str());
    write_text(dir.file("h/mox_parts.txt"), "   // KXB100LF324C6 KXB100L x x x x wren2\n"
                                            "\n"
                                            "KXB100LF324C6 KXB100L x x x x wren3 // remark with more words\n"
                                            "KXB100LF324C7 KXB100L x x x x wren4\n"
                                            "HNC160TF484C1,HNC160T,x, x,x,x\tWREN5\n");
    generate(shipped_rows());
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    EXPECT_EQ(manager.get_device_index(device("KXB100L")), 3u);
    EXPECT_EQ(manager.get_part_index(part("KXB100LF324C7")), 3u) << "a part takes its device's record";
    EXPECT_EQ(manager.get_device_index(device("HNC160T")), 5u);
    EXPECT_EQ(manager.get_device_index(device("CRD1800H")), 50u) << "an unlisted device takes its family's";

    // A class derived from the manager asks the part list directly.
    struct PART_LIST_CLIENT : MOXDEV_DEV_INFO_MANAGER {
        PART_LIST_CLIENT() : MOXDEV_DEV_INFO_MANAGER(false, 0) { parse_mox_parts(); }
        using MOXDEV_DEV_INFO_MANAGER::search_pcf_for_device;
        using MOXDEV_DEV_INFO_MANAGER::search_pcf_for_part;
    } client;
    EXPECT_FALSE(client.search_pcf_for_device(DEV_DEVICE_INVALID));
    EXPECT_TRUE(client.search_pcf_for_part(part("KXB100LF324C7")));
    EXPECT_FALSE(client.search_pcf_for_part(part("KXB100F324C6")));
    EXPECT_FALSE(client.search_pcf_for_part(DEV_PART_INVALID));
    EXPECT_INTERNAL_ERROR(client.search_pcf_for_part(DEV_PART_MAX), "m_device_database != NULL && part < DEV_PART_MAX");

    write_text(dir.file("h/mox_parts.txt"), "\nKXB100LF324C6 KXB100L x x x wren3\n");
    EXPECT_INTERNAL_ERROR(generate(shipped_rows()),
                          "Part list line 2 has 6 tokens, fewer than seven: KXB100LF324C6 KXB100L x x x wren3");
}

TEST(DevInfo, IdentifierValuesConvertToTheirNames)
{
    const MOXDEV_DEV_INFO_MANAGER manager(true, 0);
    EXPECT_EQ(manager.convert_id_enum_to_string("family", DEV_FAMILY_GENERIC), "GENERIC");
    EXPECT_EQ(manager.convert_id_enum_to_string("family", DEV_FAMILY_INVALID), "INVALID");
    EXPECT_EQ(manager.convert_id_enum_to_string("device", DEV_DEVICE_INVALID), "INVALID");
    EXPECT_EQ(manager.convert_id_enum_to_string("part", DEV_PART_INVALID), "INVALID");
    const std::tuple<const char*, DWORD, const char*> refused[] = {
        {"family", 74, "id < DWORD(DEV_FAMILY_MAX)"},
        {"device", 1048, "id < DWORD(DEV_DEVICE_MAX)"},
        {"part", DWORD(DEV_PART_MAX), "id < DWORD(DEV_PART_MAX)"},
        {"", 1, "Unsupported type name"},
        {"device", DEV_DEVICE_GENERIC, "found"},
    };
    for (const auto& [type, id, condition] : refused)
        EXPECT_INTERNAL_ERROR(manager.convert_id_enum_to_string(type, id), condition);
}

// The device table is generated from data/devices/: a change to one without
// the other fails here.
TEST(DeviceTable, IsInSyncWithItsSources)
{
    TEMP_DIR dir;
    std::string output;
    ASSERT_EQ(run_command(std::string(MOXDEV_GEN_DEVICE_TABLE) + " " + source_path("data/devices/index.txt") + " " +
                              dir.file("table.csv"),
                          output, true),
              0)
        << output;
    EXPECT_TRUE(read_bytes(dir.file("table.csv")) == read_bytes(source_path("data/mox_dev_info.csv")))
        << "run `cmake --build build --target update_device_table` after changing data/devices/";
}

// Mistakes in a source are named with their file and line, and nothing is
// written; a record takes the defaults, its file's defaults and an earlier
// record it is like, in that order.
TEST(DeviceTable, SourcesLayerDefaultsAndNameTheirMistakes)
{
    const TEMP_DIR dir;
    std::string base = "defaults\n";
    for (DWORD i = 0; i < TOTAL_DEVICE_DATABASE_MEMBER; ++i) {
        if (std::string(MOXDEV_DEVICE_FIELD_NAMES[i]) != "pcf")
            base += std::string("  ") + MOXDEV_DEVICE_FIELD_NAMES[i] + " " +
                    (MOXDEV_DEVICE_FIELD_TYPES[i] == MOXDEV_MANAGER_BOOL ? "FALSE" : "7") + "\n";
    }
    auto generate = [&](const std::string& line_file, std::string& output) {
        write_text(dir.file("base.txt"), base);
        write_text(dir.file("line.txt"), line_file);
        write_text(dir.file("index.txt"), "base.txt\nline.txt\n");
        std::filesystem::remove(dir.file("out.csv"));
        return run_command(std::string(MOXDEV_GEN_DEVICE_TABLE) + " " + dir.file("index.txt") + " " +
                               dir.file("out.csv"),
                           output, true);
    };
    std::string output;
    ASSERT_EQ(generate("defaults\n  support_cpf TRUE\nrecord one\n  family X\nrecord two\n  like one\n"
                       "  support_ob TRUE\n",
                       output),
              0)
        << output;
    const std::string table = read_text(dir.file("out.csv"));
    EXPECT_NE(table.find("\nX,one,7,7,FALSE,FALSE,FALSE,FALSE,TRUE,FALSE,FALSE,"), std::string::npos) << table;
    EXPECT_NE(table.find("\nX,two,7,7,FALSE,FALSE,FALSE,FALSE,TRUE,FALSE,TRUE,"), std::string::npos) << table;

    const std::pair<const char*, const char*> mistakes[] = {
        {"record one\n  colour blue\n", "line.txt:2: error: 'colour' is no field of a device record"},
        {"record one\n  support_cpf yes\n", "line.txt:2: error: support_cpf is TRUE or FALSE"},
        {"record one\nrecord one\n", "line.txt:2: error: a second record named one"},
        {"record one\n  family X\n  family Y\n", "line.txt:3: error: 'family' given twice"},
        {"record two\n  like one\n", "line.txt:2: error: 'like' names no earlier record: one"},
        {"  family X\n", "line.txt:1: error: 'family' before any 'defaults' or 'record' line"},
    };
    for (const auto& [text, message] : mistakes) {
        EXPECT_EQ(generate(text, output), 1) << text;
        EXPECT_NE(output.find(message), std::string::npos) << output;
        EXPECT_FALSE(std::filesystem::exists(dir.file("out.csv")));
    }
}
