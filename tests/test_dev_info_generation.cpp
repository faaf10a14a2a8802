// Building the device database from the device table: the round trip, every
// rejection of a bad table, and what a failure leaves behind.
#include "test_support.h"

#include <filesystem>
#include <memory>
#include <sstream>

using namespace moxdev_test;

namespace {

using ROWS = std::vector<std::vector<std::string>>;

ROWS shipped_rows()
{
    ROWS rows;
    std::istringstream in(read_text(source_path("data/mox_dev_info.csv")));
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty())
            rows.push_back(STRING_TOKENIZER(line, ",").tokens());
    }
    return rows;
}

std::string to_csv(const ROWS& rows)
{
    std::string text;
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            text += (i ? "," : "") + row[i];
        text += "\n";
    }
    return text;
}

std::size_t column(const std::string& name)
{
    for (std::size_t i = 0; i < TOTAL_DEVICE_DATABASE_MEMBER; ++i) {
        if (name == MOXDEV_DEVICE_FIELD_NAMES[i])
            return i;
    }
    throw std::invalid_argument(name);
}

// Generates from `rows` into dir/out.pcf with the shipped part list.
class GENERATION : public ::testing::Test {
protected:
    void generate(const ROWS& rows)
    {
        write_text(dir.file("table.csv"), to_csv(rows));
        MOXDEV_DEV_INFO_MANAGER manager(true, 0);
        manager.generate_device_database(dir.file("table.csv"), dir.file("out.pcf"));
    }

    TEMP_DIR dir;
    SCOPED_ENV install{"MOXDEV_INSTALL_DIR", MOXDEV_DATA_DIR};
    SCOPED_ENV notices{"MOXDEV_NOTICES_FILE", nullptr};
};

} // namespace

TEST_F(GENERATION, RoundTripMatchesTheShippedDatabase)
{
    const ROWS rows = shipped_rows();
    ASSERT_EQ(rows.size(), 2 + TOTAL_DATABASE_DEVICE);
    generate(rows);
    EXPECT_EQ(read_bytes(dir.file("out.pcf")), read_bytes(data_path("programmer/mox_dev_info.pcf")));

    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    std::filesystem::create_directories(dir.file("programmer"));
    std::filesystem::rename(dir.file("out.pcf"), dir.file("programmer/mox_dev_info.pcf"));
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    ASSERT_EQ(manager.get_device_count(), TOTAL_DATABASE_DEVICE);
    // Every cell reads back as the table spells it.
    for (DWORD r = 0; r < TOTAL_DATABASE_DEVICE; ++r) {
        const auto fields = moxdev_device_info_to_text(manager.get_device_database()[r]);
        for (std::size_t i = 0; i < fields.size(); ++i) {
            const std::string& cell = rows[2 + r][i];
            const std::string& text = fields[i].second;
            DWORD number = 0;
            if (MOX_COMMON::convert_string_to_dword(cell, number) && cell.size() > 2 && cell[1] == 'x')
                EXPECT_EQ(text, std::to_string(number)) << r << " " << fields[i].first;
            else
                EXPECT_EQ(text.substr(0, cell.size()), cell) << r << " " << fields[i].first;
        }
    }
}

TEST_F(GENERATION, RejectsMalformedTables)
{
    const ROWS rows = shipped_rows();
    auto rejected = [&](ROWS changed, const std::string& condition) {
        EXPECT_INTERNAL_ERROR(generate(changed), condition);
    };

    ROWS fewer = rows;
    fewer.pop_back();
    rejected(fewer, "device_count == TOTAL_DATABASE_DEVICE");
    ROWS more = rows;
    more.push_back(rows.back());
    rejected(more, "device_count == TOTAL_DATABASE_DEVICE");

    ROWS short_row = rows;
    short_row[10].pop_back();
    rejected(short_row, "DWORD(svec.size()) == TOTAL_DEVICE_DATABASE_MEMBER");
    ROWS short_types = rows;
    short_types[0].pop_back();
    rejected(short_types, "svec.size() == TOTAL_DEVICE_DATABASE_MEMBER");

    ROWS upper_bool = rows;
    upper_bool[0][column("support_cpf")] = "BOOL";
    rejected(upper_bool, "svec.at(i) == \"bool\"");
    ROWS wrong_type = rows;
    wrong_type[0][column("dummy_word")] = "DWORD";
    rejected(wrong_type, "svec.at(i) == \"WORD\"");
    ROWS wrong_name = rows;
    wrong_name[1][column("support_vab")] = "support_vba";
    rejected(wrong_name, "temp == m_db_name_list[i]");

    ROWS unknown_family = rows;
    unknown_family[5][column("family")] = "NO_SUCH_FAMILY";
    rejected(unknown_family, "found");
    ROWS unknown_option = rows;
    unknown_option[5][column("ekp_alg_family")] = "KESTREL";
    rejected(unknown_option, "found");
    ROWS bad_bool = rows;
    bad_bool[5][column("support_sdos")] = "true";
    rejected(bad_bool, "text == \"\" || text == \"FALSE\" || text == \"TRUE\"");

    // A table without a Generic record cannot serve families it lacks.
    ROWS no_generic = rows;
    no_generic[2 + 1][column("family")] = rows[2][column("family")];
    rejected(no_generic, "DEV_FAMILY_ENUM(i) != DEV_FAMILY_GENERIC");
}

TEST_F(GENERATION, FailureLeavesAnEarlierFileUntouched)
{
    const ROWS rows = shipped_rows();
    generate(rows);
    const BYTES earlier = read_bytes(dir.file("out.pcf"));
    ROWS bad = rows;
    bad.pop_back();
    EXPECT_THROW(generate(bad), MSG_INTERNAL_ERROR);
    EXPECT_EQ(read_bytes(dir.file("out.pcf")), earlier);

    // A destination that cannot be written fails on "status" and leaves no
    // stray file.
    write_text(dir.file("table.csv"), to_csv(rows));
    MOXDEV_DEV_INFO_MANAGER manager(true, 0);
    EXPECT_INTERNAL_ERROR(manager.generate_device_database(dir.file("table.csv"),
                                                           dir.file("missing/out.pcf")),
                          "status");
    EXPECT_FALSE(std::filesystem::exists(dir.file("missing")));
    // The manager that failed is still empty and can generate again.
    EXPECT_EQ(manager.get_device_database(), nullptr);
    manager.generate_device_database(dir.file("table.csv"), dir.file("again.pcf"));
    EXPECT_EQ(read_bytes(dir.file("again.pcf")), earlier);
}

TEST_F(GENERATION, FamilyWithoutRecordIsServedByGenericAfterANotice)
{
    ROWS rows = shipped_rows();
    // Take a family that has exactly one record and give that record to
    // another family.
    const std::size_t family = column("family");
    std::string lost;
    std::size_t row = 0;
    for (std::size_t r = 2; r < rows.size() && lost.empty(); ++r) {
        const std::string& name = rows[r][family];
        int count = 0;
        for (std::size_t s = 2; s < rows.size(); ++s)
            count += rows[s][family] == name;
        if (count == 1 && name != "GENERIC" && r != 2) {
            lost = name;
            row = r;
        }
    }
    ASSERT_FALSE(lost.empty());
    rows[row][family] = rows[2][family];
    SCOPED_ENV notice_file("MOXDEV_NOTICES_FILE", dir.file("notices.txt").c_str());
    generate(rows);

    const DEV_FAMILY_ENUM value = dstr_get_dev_family_enum_by_string(lost.c_str());
    std::string name = dstr_get_user_string(value) + " (" + std::to_string(int(value)) + ")";
    stl_toupper(name);
    EXPECT_NE(read_text(dir.file("notices.txt"))
                  .find("Missing family " + name + " from Dev Info CSV.\n\n"
                        "Forcing this family to use Generic database.\n\n"
                        "Please add the family support as soon as possible.\n"),
              std::string::npos);

    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", dir.path().c_str());
    std::filesystem::create_directories(dir.file("programmer"));
    std::filesystem::rename(dir.file("out.pcf"), dir.file("programmer/mox_dev_info.pcf"));
    MOXDEV_DEV_INFO_MANAGER manager(false, 0);
    EXPECT_EQ(manager.get_family_index(value), 1u);
    std::unique_ptr<MOXDEV_DEVICE_INFO> record(manager.get_db_by_family(value));
    EXPECT_EQ(record->family, DEV_FAMILY_GENERIC);
}

TEST(DevInfoNames, ConvertIdEnumToString)
{
    MOXDEV_DEV_INFO_MANAGER manager(true, 0);
    EXPECT_EQ(manager.convert_id_enum_to_string("family", DEV_FAMILY_GENERIC), "GENERIC");
    EXPECT_EQ(manager.convert_id_enum_to_string("family", DEV_FAMILY_INVALID), "INVALID");
    EXPECT_EQ(manager.convert_id_enum_to_string("device", DEV_DEVICE_INVALID), "INVALID");
    EXPECT_EQ(manager.convert_id_enum_to_string("part", 0), "INVALID");
    EXPECT_INTERNAL_ERROR(manager.convert_id_enum_to_string("family", 74), "id < DWORD(DEV_FAMILY_MAX)");
    EXPECT_INTERNAL_ERROR(manager.convert_id_enum_to_string("device", 1048), "id < DWORD(DEV_DEVICE_MAX)");
    EXPECT_INTERNAL_ERROR(manager.convert_id_enum_to_string("part", DWORD(DEV_PART_MAX)),
                          "id < DWORD(DEV_PART_MAX)");
    EXPECT_INTERNAL_ERROR(manager.convert_id_enum_to_string("", 1), "Unsupported type name");
    EXPECT_INTERNAL_ERROR(manager.convert_id_enum_to_string("device", DEV_DEVICE_GENERIC), "found");
}
