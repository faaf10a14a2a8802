// A flash table built in a test: the CSV's heading lines plus records that
// differ from a typical chip only where a test says so.
#pragma once

#include "test_support.h"

#include <filesystem>
#include <map>

namespace moxdev_test {

struct FLASH_TABLE {
    FLASH_TABLE()
    {
        for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
            const MOXDEV_MANAGER_TYPE type = MOXDEV_FLASH_FIELD_TYPES[i];
            types.push_back(type == MOXDEV_MANAGER_STRING ? "STL_STRING"
                            : type == MOXDEV_MANAGER_BOOL ? "bool"
                            : type == MOXDEV_MANAGER_BYTE ? "BYTE"
                                                          : "DWORD");
            names.push_back(MOXDEV_FLASH_FIELD_NAMES[i]);
        }
        description = {{"test", "table"}, {"notes"}, std::vector<std::string>(33, "unit"),
                       std::vector<std::string>(33, "meaning"), std::vector<std::string>(33, "source"),
                       {"end"}};
    }

    // A typical 128-Mbit chip (ID 20 BA 18), changed by `fields`.
    void add(const std::map<std::string, std::string>& fields)
    {
        static const char* const typical[TOTAL_DATABASE_MEMBER] = {
            "MICRON", "TESTCHIP", "FALSE", "0x18", "2", "0xBA", "1", "0x20", "0", "40", "TRUE", "NONE",
            "FALSE", "TRUE", "FALSE", "FALSE", "FALSE", "TRUE", "1", "134217728", "65536", "FALSE",
            "FALSE", "250", "1", "1800", "0x5C", "0x5C", "0x00", "255", "5", "TRUE", "3.3V"};
        std::vector<std::string> row(typical, typical + TOTAL_DATABASE_MEMBER);
        for (const auto& field : fields) {
            bool known = false;
            for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
                if (field.first == MOXDEV_FLASH_FIELD_NAMES[i]) {
                    row[i] = field.second;
                    known = true;
                }
            }
            EXPECT_TRUE(known) << field.first;
        }
        records.push_back(row);
    }

    std::string csv() const
    {
        std::string text;
        auto line = [&](const std::vector<std::string>& cells) {
            for (std::size_t i = 0; i < cells.size(); ++i)
                text += (i ? "," : "") + cells[i];
            text += "\n";
        };
        line(types);
        line(names);
        for (const auto& cells : description)
            line(cells);
        for (const auto& cells : records)
            line(cells);
        return text;
    }

    // Generates dir/programmer/mox_flash.pcf from the table.
    void install(const TEMP_DIR& dir) const
    {
        write_text(dir.file("flash.csv"), csv());
        std::filesystem::create_directories(dir.file("programmer"));
        MOXDEV_FLASH_MANAGER(false, 1, true, false)
            .generate_flash_database(dir.file("flash.csv"), dir.file("programmer/mox_flash.pcf"));
    }

    std::vector<std::string> types;
    std::vector<std::string> names;
    std::vector<std::vector<std::string>> description; // lines 2 to 7
    std::vector<std::vector<std::string>> records;
};

} // namespace moxdev_test
