// Loading the device information database and looking records up.
#include "test_support.h"

#include <filesystem>
#include <map>
#include <memory>
#include <sstream>

using namespace moxdev_test;

namespace {

class DEV_INFO : public MOXDEV_DEV_INFO_MANAGER {
public:
    using MOXDEV_DEV_INFO_MANAGER::MOXDEV_DEV_INFO_MANAGER;
    using MOXDEV_DEV_INFO_MANAGER::get_table_size;
    using MOXDEV_DEV_INFO_MANAGER::initialize_device_database;
    using MOXDEV_DEV_INFO_MANAGER::parse_mox_parts;
    using MOXDEV_DEV_INFO_MANAGER::search_device;
    using MOXDEV_DEV_INFO_MANAGER::search_family;
    using MOXDEV_DEV_INFO_MANAGER::search_part;
    using MOXDEV_DEV_INFO_MANAGER::search_pcf_for_device;
    using MOXDEV_DEV_INFO_MANAGER::search_pcf_for_part;
    DWORD index() const { return m_index; }
};

std::string shipped_database()
{
    return data_path("programmer/mox_dev_info.pcf");
}

// Loads `file` through a manager built empty, as the constructor would.
void load(const BYTES& file)
{
    TEMP_DIR dir;
    write_bytes(dir.file("db.pcf"), file);
    DEV_INFO manager(true, 0);
    manager.initialize_device_database(dir.file("db.pcf"));
}

BYTES rebuilt(const BYTES& payload)
{
    return make_database_file("MOXIO_DM", MOXDEV_DEV_INFO_CSV_MD5, payload);
}

} // namespace

// The programming-file name of each device's first part-list line.
static std::map<int, std::string> first_pcf_of_devices()
{
    std::map<int, std::string> pcf;
    std::istringstream in(read_text(data_path("h/mox_parts.txt")));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line.compare(0, 2, "//") == 0)
            continue;
        const STRING_TOKENIZER tokens(line, " \t,");
        pcf.emplace(int(dstr_get_dev_device_enum_by_string(tokens.at(1).c_str())), tokens.at(6));
    }
    return pcf;
}

TEST(DevInfoLoad, ShippedDatabaseServesEveryCatalogueValue)
{
    DEV_INFO manager(false, 0);
    ASSERT_EQ(manager.get_device_count(), TOTAL_DATABASE_DEVICE);
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    EXPECT_EQ(records[1].family, DEV_FAMILY_GENERIC);

    // No record has the invalid family; the invalid device and part are the
    // identifiers of every record that is not device- or part-specific, so
    // they lead to the first such record.
    EXPECT_EQ(std::unique_ptr<MOXDEV_DEVICE_INFO>(manager.get_db_by_family(DEV_FAMILY_INVALID)), nullptr);
    EXPECT_EQ(manager.get_device_index(DEV_DEVICE_INVALID), 0u);
    EXPECT_EQ(manager.get_part_index(DEV_PART_INVALID), 0u);

    // Each table entry, recomputed from the records, the part list and the
    // catalogue: the value's own record, else (devices) the record its
    // part-list name leads to, else the record of its family or device.
    auto first_record = [&](auto matches) {
        for (DWORD r = 0; r < TOTAL_DATABASE_DEVICE; ++r) {
            if (matches(records[r]))
                return r;
        }
        return INVALID_DWORD;
    };
    for (int f = 1; f < DEV_FAMILY_MAX; ++f) {
        const DWORD own = first_record([&](const MOXDEV_DEVICE_INFO& r) { return r.family == f; });
        EXPECT_EQ(manager.get_family_index(DEV_FAMILY_ENUM(f)), own == INVALID_DWORD ? 1 : own) << f;
        EXPECT_NE(std::unique_ptr<MOXDEV_DEVICE_INFO>(manager.get_db_by_family(DEV_FAMILY_ENUM(f))), nullptr);
    }
    const DEV_PART_MANAGER catalogue;
    const std::map<int, std::string> pcf = first_pcf_of_devices();
    for (int d = 1; d < DEV_DEVICE_MAX; ++d) {
        DWORD expected = first_record([&](const MOXDEV_DEVICE_INFO& r) { return r.device == d; });
        if (expected == INVALID_DWORD && pcf.count(d))
            expected = first_record([&](const MOXDEV_DEVICE_INFO& r) { return gen_stricmp(r.pcf, pcf.at(d)) == 0; });
        if (expected == INVALID_DWORD)
            expected = manager.get_family_index(catalogue.get_family_of(DEV_DEVICE_ENUM(d)));
        ASSERT_EQ(manager.get_device_index(DEV_DEVICE_ENUM(d)), expected) << d;
    }
    for (int p = 1; p < DEV_PART_MAX; ++p) {
        DWORD expected = first_record([&](const MOXDEV_DEVICE_INFO& r) { return r.part == p; });
        if (expected == INVALID_DWORD)
            expected = manager.get_device_index(catalogue.get_device_of(p));
        ASSERT_EQ(manager.get_part_index(p), expected) << p;
        ASSERT_LT(expected, TOTAL_DATABASE_DEVICE);
    }
    std::unique_ptr<MOXDEV_DEVICE_INFO> record(manager.get_db_by_part(DEV_PART_MAX - 1));
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->pcf, records[manager.get_part_index(DEV_PART_MAX - 1)].pcf);
}

TEST(DevInfoLoad, OutOfRangeLookupsAreInternalErrors)
{
    DEV_INFO manager(false, 0);
    EXPECT_INTERNAL_ERROR(manager.get_db_by_family(DEV_FAMILY_MAX), "family < DEV_FAMILY_MAX");
    EXPECT_INTERNAL_ERROR(manager.get_db_by_device(DEV_DEVICE_ENUM(1048)), "device < DEV_DEVICE_MAX");
    EXPECT_INTERNAL_ERROR(manager.get_db_by_part(DEV_PART_MAX), "part < DEV_PART_MAX");
    EXPECT_INTERNAL_ERROR(manager.get_db_by_part(-1), "part < DEV_PART_MAX");

    EXPECT_INTERNAL_ERROR(manager.search_family(DEV_FAMILY_INVALID, false),
                          "m_device_database != NULL && family < DEV_FAMILY_MAX && "
                          "(allow_invalid || family != DEV_FAMILY_INVALID)");
    EXPECT_INTERNAL_ERROR(manager.search_device(DEV_DEVICE_INVALID, false),
                          "m_device_database != NULL && device < DEV_DEVICE_MAX && "
                          "(allow_invalid || device != DEV_DEVICE_INVALID)");
    EXPECT_INTERNAL_ERROR(manager.search_part(DEV_PART_INVALID, false),
                          "m_device_database != NULL && part < DEV_PART_MAX && "
                          "(allow_invalid || part != DEV_PART_INVALID)");
    EXPECT_FALSE(manager.search_family(DEV_FAMILY_INVALID, true));
    EXPECT_EQ(manager.index(), INVALID_DWORD);

    DEV_INFO empty(true, 0);
    EXPECT_EQ(empty.get_device_database(), nullptr);
    EXPECT_EQ(std::unique_ptr<MOXDEV_DEVICE_INFO>(empty.get_db_by_family(DEV_FAMILY_GENERIC)), nullptr);
    EXPECT_THROW(empty.search_family(DEV_FAMILY_GENERIC, false), MSG_INTERNAL_ERROR);
}

TEST(DevInfoLoad, RecordsAreCopiesAndManagersShareStorage)
{
    std::unique_ptr<MOXDEV_DEVICE_INFO> record;
    std::unique_ptr<MOXDEV_DEV_INFO_MANAGER> copy;
    {
        MOXDEV_DEV_INFO_MANAGER manager(false, 0);
        record.reset(manager.get_db_by_family(DEV_FAMILY_GENERIC));
        record->pcf = "changed";
        std::unique_ptr<MOXDEV_DEVICE_INFO> again(manager.get_db_by_family(DEV_FAMILY_GENERIC));
        EXPECT_NE(again->pcf, "changed");
        copy = std::make_unique<MOXDEV_DEV_INFO_MANAGER>(manager);
        EXPECT_EQ(copy->get_device_database(), manager.get_device_database());
        MOXDEV_DEV_INFO_MANAGER assigned(true, 0);
        assigned = manager;
        EXPECT_EQ(assigned.get_device_database(), manager.get_device_database());
    }
    // The record and the copy outlive the manager they came from.
    EXPECT_EQ(record->pcf, "changed");
    std::unique_ptr<MOXDEV_DEVICE_INFO> from_copy(copy->get_db_by_family(DEV_FAMILY_GENERIC));
    ASSERT_NE(from_copy, nullptr);
    EXPECT_EQ(from_copy->family, DEV_FAMILY_GENERIC);
}

TEST(DevInfoLoad, SearchesFindTheFirstOfEqualIdentifiers)
{
    BYTES payload = payload_of(read_bytes(shipped_database()));
    // Record 0's family value sits right after the 12-byte header and its tag.
    const DWORD family0 = dword_at(payload, 13);
    DEV_INFO manager(false, 0);
    ASSERT_TRUE(manager.search_family(DEV_FAMILY_ENUM(family0), false));
    EXPECT_EQ(manager.index(), 0u);
    // Every record of the same family after record 0 is never found.
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    for (DWORD r = 1; r < manager.get_device_count(); ++r) {
        if (records[r].family == DEV_FAMILY_ENUM(family0)) {
            ASSERT_TRUE(manager.search_family(DEV_FAMILY_ENUM(family0), false));
            EXPECT_EQ(manager.index(), 0u);
        }
    }
}

TEST(DevInfoFile, ContainerChecks)
{
    const BYTES shipped = read_bytes(shipped_database());
    {
        DEV_INFO manager(true, 0);
        EXPECT_INTERNAL_ERROR(manager.initialize_device_database("/nonexistent/mox_dev_info.pcf"),
                              "FIO_FILE_SYSTEM::exists(device_file.fullpath().c_str()) && "
                              "FIO_FILE_SYSTEM::status(device_file.fullpath().c_str(), &stat_info)");
    }
    EXPECT_INTERNAL_ERROR(load(BYTES(shipped.begin(), shipped.begin() + 46)), "file_size > (8 + 32 + 4 + 2)");
    // 47 bytes pass the size check and then fail to inflate; announcing more
    // than one compressed byte can inflate to is refused before allocating.
    BYTES short_file(shipped.begin(), shipped.begin() + 47);
    EXPECT_INTERNAL_ERROR(load(short_file), "announced payload size exceeds what the compressed data can hold");
    short_file[40] = 100;
    short_file[41] = short_file[42] = short_file[43] = 0;
    EXPECT_INTERNAL_ERROR(load(short_file),
                          "zlib_uncompress(decompressed_data, &new_dcmp_size, data, decompressed_count) == ZLIB_OK");

    BYTES bad_magic = shipped;
    bad_magic[6] = 'F';
    EXPECT_INTERNAL_ERROR(load(bad_magic),
                          "data[index++] == 'M' && data[index++] == 'O' && data[index++] == 'X' && "
                          "data[index++] == 'I' && data[index++] == 'O' && data[index++] == '_' && "
                          "data[index++] == 'D' && data[index++] == 'M'");
    BYTES bad_id = shipped;
    bad_id[39] ^= 1;
    EXPECT_INTERNAL_ERROR(load(bad_id), "Mismatch ID between flash file and reader");

    BYTES any_trailer = shipped;
    any_trailer[any_trailer.size() - 1] = 0xAB;
    any_trailer[any_trailer.size() - 2] = 0xCD;
    EXPECT_NO_THROW(load(any_trailer));

    BYTES wrong_size = shipped;
    wrong_size[40] ^= 1;
    EXPECT_INTERNAL_ERROR(load(wrong_size), "new_dcmp_size == original_count");
}

TEST(DevInfoFile, PayloadChecks)
{
    const BYTES payload = payload_of(read_bytes(shipped_database()));
    DEV_INFO probe(true, 0);
    const DWORD table_size = probe.get_table_size();
    EXPECT_EQ(table_size, 4 * DWORD(DEV_PART_MAX) + 4503);

    BYTES version = payload;
    version[0] = 2;
    EXPECT_INTERNAL_ERROR(load(rebuilt(version)), "Mismatch version between device file and reader");
    BYTES no_records = payload;
    no_records[4] = no_records[5] = no_records[6] = no_records[7] = 0;
    EXPECT_INTERNAL_ERROR(load(rebuilt(no_records)), "m_device_count > 0 && m_type_count > 0");
    BYTES no_members = payload;
    no_members[8] = 0;
    EXPECT_INTERNAL_ERROR(load(rebuilt(no_members)), "m_device_count > 0 && m_type_count > 0");

    BYTES longer = payload;
    longer.push_back(0);
    EXPECT_INTERNAL_ERROR(load(rebuilt(longer)), "index == m_csv_memory_size");
    EXPECT_INTERNAL_ERROR(load(rebuilt(BYTES(payload.end() - table_size, payload.end()))),
                          "memory_size > get_table_size()");

    const std::size_t tables = payload.size() - table_size;
    BYTES family_tag = payload;
    family_tag[tables] = MOXDEV_MANAGER_DEVICE_TBL;
    EXPECT_INTERNAL_ERROR(load(rebuilt(family_tag)), "data[index++] == MOXDEV_MANAGER_FAMILY_TBL");
    BYTES family_count = payload;
    family_count[tables + 1] = 75;
    EXPECT_INTERNAL_ERROR(load(rebuilt(family_count)), "get_dword(data, index) == DWORD(DEV_FAMILY_MAX)");
    const std::size_t device_tag = tables + 5 + 4 * DEV_FAMILY_MAX;
    BYTES device_count = payload;
    device_count[device_tag + 1] = 0;
    EXPECT_INTERNAL_ERROR(load(rebuilt(device_count)), "get_dword(data, index) == DWORD(DEV_DEVICE_MAX)");
    const std::size_t part_tag = device_tag + 5 + 4 * DEV_DEVICE_MAX;
    BYTES part_tag_bytes = payload;
    part_tag_bytes[part_tag] = MOXDEV_MANAGER_FAMILY_TBL;
    EXPECT_INTERNAL_ERROR(load(rebuilt(part_tag_bytes)), "data[index++] == MOXDEV_MANAGER_PART_TBL");
    BYTES part_count = payload;
    part_count[part_tag + 1] ^= 1;
    EXPECT_INTERNAL_ERROR(load(rebuilt(part_count)), "get_dword(data, index) == DWORD(DEV_PART_MAX)");

    // A record that claims another type where a bool stands.
    BYTES bad_tag = payload;
    // family (5 bytes from 12), pcf (tag and length at 17 and 18), device and
    // part (5 bytes each), then the first bool.
    const std::size_t first_bool = 29 + payload[18];
    ASSERT_EQ(bad_tag[first_bool], MOXDEV_MANAGER_BOOL);
    bad_tag[first_bool] = MOXDEV_MANAGER_BYTE;
    EXPECT_INTERNAL_ERROR(load(rebuilt(bad_tag)), "type == MOXDEV_MANAGER_BOOL");
}

TEST(DevInfoFile, DamagedCountsNeverReadPastThePayload)
{
    const BYTES payload = payload_of(read_bytes(shipped_database()));
    // One record more than the file holds, then far more than it could hold.
    for (DWORD count : {TOTAL_DATABASE_DEVICE + 1, 0x7FFFFFFFu}) {
        BYTES damaged = payload;
        damaged[4] = BYTE(count);
        damaged[5] = BYTE(count >> 8);
        damaged[6] = BYTE(count >> 16);
        damaged[7] = BYTE(count >> 24);
        EXPECT_THROW(load(rebuilt(damaged)), MSG_INTERNAL_ERROR) << count;
    }
    // Records cut off in the middle.
    EXPECT_THROW(load(rebuilt(BYTES(payload.begin(), payload.begin() + 200))), MSG_INTERNAL_ERROR);

    // An index table entry that names a record the file does not have.
    BYTES entry = payload;
    const std::size_t generic_entry = payload.size() - (4 * DWORD(DEV_PART_MAX) + 4503) + 5 + 4 * DEV_FAMILY_GENERIC;
    entry[generic_entry] = 79;
    TEMP_DIR dir;
    write_bytes(dir.file("db.pcf"), rebuilt(entry));
    DEV_INFO manager(true, 0);
    manager.initialize_device_database(dir.file("db.pcf"));
    EXPECT_INTERNAL_ERROR(manager.get_db_by_family(DEV_FAMILY_GENERIC), "m_index < TOTAL_DATABASE_DEVICE");
}

TEST(DevInfoPartList, LinesCommentsAndTies)
{
    DEV_INFO manager(false, 0);
    const MOXDEV_DEVICE_INFO* records = manager.get_device_database();
    const DEV_PART_MANAGER catalogue;
    // Two parts of two different devices, and two record pcf names.
    const int part_a = 1;
    const DEV_DEVICE_ENUM device_a = catalogue.get_device_of(part_a);
    int part_b = part_a + 1;
    while (catalogue.get_device_of(part_b) == device_a)
        ++part_b;
    const DEV_DEVICE_ENUM device_b = catalogue.get_device_of(part_b);
    const std::string pcf_a = records[5].pcf;
    const std::string pcf_b = records[7].pcf;
    std::string pcf_b_upper = pcf_b;
    stl_toupper(pcf_b_upper);

    const std::string a = dstr_get_user_string(part_a) + " " + dstr_get_user_string(device_a);
    const std::string b = dstr_get_user_string(part_b) + " " + dstr_get_user_string(device_b);
    TEMP_DIR dir;
    std::filesystem::create_directories(dir.file("h"));
    write_text(dir.file("h/mox_parts.txt"),
               "   // " + a + " x x x x " + pcf_b + "\n"
               "\n"
               + a + " x x x x " + pcf_a + " // remark with more words\n"
               + a + " x x x x " + pcf_b + "\n"
               + b + ",x, x,x,x\t" + pcf_b_upper + "\n");
    SCOPED_ENV install("MOXDEV_INSTALL_DIR", dir.path().c_str());
    manager.parse_mox_parts();

    ASSERT_TRUE(manager.search_pcf_for_device(device_a));
    EXPECT_EQ(manager.index(), 5u) << "the first line of a device wins";
    ASSERT_TRUE(manager.search_pcf_for_part(part_a));
    EXPECT_EQ(manager.index(), 5u);
    ASSERT_TRUE(manager.search_pcf_for_device(device_b));
    EXPECT_EQ(manager.index(), 7u) << "pcf names match ignoring case";
    EXPECT_FALSE(manager.search_pcf_for_device(DEV_DEVICE_INVALID));
    EXPECT_FALSE(manager.search_pcf_for_device(DEV_DEVICE_GENERIC));
    EXPECT_FALSE(manager.search_pcf_for_part(DEV_PART_INVALID));
    EXPECT_INTERNAL_ERROR(manager.search_pcf_for_device(DEV_DEVICE_MAX),
                          "m_device_database != NULL && device < DEV_DEVICE_MAX");
    EXPECT_INTERNAL_ERROR(manager.search_pcf_for_part(DEV_PART_MAX),
                          "m_device_database != NULL && part < DEV_PART_MAX");

    write_text(dir.file("h/mox_parts.txt"), a + " x x x " + pcf_a + "\n");
    EXPECT_THROW(manager.parse_mox_parts(), MSG_INTERNAL_ERROR) << "fewer than seven tokens";
}
