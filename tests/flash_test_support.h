// A flash table built in a test: the CSV's heading lines plus records that
// differ from a typical chip only where a test says so.
#pragma once

#include "test_support.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace moxdev_test {

struct FLASH_TABLE {
    FLASH_TABLE() : lines(2)
    {
        for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
            const MOXDEV_MANAGER_TYPE type = MOXDEV_FLASH_FIELD_TYPES[i];
            lines[0].push_back(type == MOXDEV_MANAGER_STRING ? "STL_STRING"
                               : type == MOXDEV_MANAGER_BOOL ? "bool"
                               : type == MOXDEV_MANAGER_BYTE ? "BYTE"
                                                             : "DWORD");
            lines[1].push_back(MOXDEV_FLASH_FIELD_NAMES[i]);
        }
        using ROW = std::vector<std::string>;
        lines.insert(lines.end(),
                     {{"test", "table"}, {"notes"}, ROW(33, "unit"), ROW(33, "meaning"), ROW(33, "source"), {"end"}});
    }

    // A typical 128-Mbit chip (ID 20 BA 18), changed by `fields`.
    void add(const std::map<std::string, std::string>& fields)
    {
        static const char* const typical[TOTAL_DATABASE_MEMBER] = {
            "MICRON", "TESTCHIP", "FALSE", "0x18",  "2",     "0xBA",  "1",    "0x20", "0",         "40",    "TRUE",
            "NONE",   "FALSE",    "TRUE",  "FALSE", "FALSE", "FALSE", "TRUE", "1",    "134217728", "65536", "FALSE",
            "FALSE",  "250",      "1",     "1800",  "0x5C",  "0x5C",  "0x00", "255",  "5",         "TRUE",  "3.3V"};
        lines.emplace_back(typical, typical + TOTAL_DATABASE_MEMBER);
        const char* const* names = MOXDEV_FLASH_FIELD_NAMES;
        for (const auto& [name, value] : fields) // an unknown name throws
            lines.back().at(std::size_t(std::find(names, names + TOTAL_DATABASE_MEMBER, name) - names)) = value;
    }

    // Writes dir/flash.csv and generates dir/programmer/mox_flash.pcf from it.
    void install(const TEMP_DIR& dir) const
    {
        std::string text;
        for (const auto& cells : lines) {
            for (std::size_t i = 0; i < cells.size(); ++i)
                text += (i ? "," : "") + cells[i];
            text += "\n";
        }
        write_text(dir.file("flash.csv"), text);
        std::filesystem::create_directories(dir.file("programmer"));
        moxdev::empty_flash_manager().generate_flash_database(dir.file("flash.csv"),
                                                              dir.file("programmer/mox_flash.pcf"));
    }

    // [0] field types, [1] field names, [2] to [7] heading text, then records.
    std::vector<std::vector<std::string>> lines;
};

} // namespace moxdev_test
