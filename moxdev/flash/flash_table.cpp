// The flash table: its layout, checked by the generator, and the whole table
// as the generator and the flash manager's loader read it, checked by the
// command.
#include "moxdev/table.h"

#include "moxdev/container/moxdev_table_checks.h"
#include "moxdev/flash/moxdev_default_rule.h"
#include "moxdev/moxdev_flash_manager.h"
#include "moxdev/text.h"
#include "moxdev/user_flash.h"

#include "host/mox_common.h"

#include <absl/strings/ascii.h>
#include <fmt/format.h>

#include <deque>

namespace moxdev {

using detail::refuse;

std::size_t flash_record_payload_size(const std::vector<std::string>& cells)
{
    std::size_t size = TOTAL_DATABASE_MEMBER + 4; // a tag per field, "END1"
    for (DWORD i = 0; i < TOTAL_DATABASE_MEMBER && i < cells.size(); ++i) {
        switch (MOXDEV_FLASH_FIELD_TYPES[i]) {
        case MOXDEV_MANAGER_STRING: size += 1 + cells[i].size(); break;
        case MOXDEV_MANAGER_WORD: size += 2; break;
        case MOXDEV_MANAGER_DWORD: size += 4; break;
        default: size += 1; break;
        }
    }
    return size;
}

bool check_flash_table_layout(std::size_t line, const std::vector<std::string>& cells, TABLE_PROBLEM& problem)
{
    if (flash_table_line_has_every_column(line) && cells.size() != TOTAL_DATABASE_MEMBER)
        return refuse(problem, line, TABLE_PROBLEM::NO_COLUMN, "DWORD(svec.size()) == TOTAL_DATABASE_MEMBER",
                      fmt::format("{} cells; a flash table line has {} (no blanks or empty cells inside a cell)",
                                  cells.size(), TOTAL_DATABASE_MEMBER));
    if (line == 0)
        return detail::check_type_line(cells, MOXDEV_FLASH_FIELD_TYPES, problem);
    if (line == 1) {
        for (std::size_t i = 0; i < TOTAL_DATABASE_MEMBER; ++i) {
            if (absl::AsciiStrToLower(cells[i]) != MOXDEV_FLASH_FIELD_NAMES[i])
                return refuse(problem, 1, i, "temp == m_name_list[i]",
                              fmt::format("name {}, expected '{}'", quoted(cells[i]), MOXDEV_FLASH_FIELD_NAMES[i]));
        }
    }
    return true;
}

namespace {

// Why a record's cell is refused, "" when it is taken: what the generator
// writes must read back as the loader reads it.
std::string flash_cell_reason(std::size_t column, const std::string& cell)
{
    const MOXDEV_MANAGER_TYPE type = MOXDEV_FLASH_FIELD_TYPES[column];
    if (type == MOXDEV_MANAGER_STRING) {
        const std::string problem = stored_text_problem(cell, 255);
        if (!problem.empty())
            return quoted(cell) + " cannot be stored: " + problem;
        // The voltage is written as the user flash definition writes it.
        if (std::string(MOXDEV_FLASH_FIELD_NAMES[column]) == "asc_voltage" && flash_voltage(cell) != cell)
            return quoted(cell) + " is not a flash voltage (3.3V or 1.8V)";
        return "";
    }
    if (type == MOXDEV_MANAGER_BOOL)
        return cell == "TRUE" || cell == "FALSE" ? "" : quoted(cell) + " is not TRUE or FALSE";
    DWORD value = 0;
    const DWORD maximum = type == MOXDEV_MANAGER_BYTE ? 0xFF : type == MOXDEV_MANAGER_WORD ? 0xFFFF : 0xFFFFFFFF;
    if (!MOX_COMMON::convert_string_to_dword(cell, value))
        return quoted(cell) + " is not a number";
    if (value > maximum)
        return fmt::format("{} does not fit a {} (0 to {})", cell, table_type_name(type), maximum);
    if (std::string(MOXDEV_FLASH_FIELD_NAMES[column]) == "device_bit_size" &&
        !MOXDEV_FLASH_MANAGER::is_power_of_two(value))
        return "the density " + cell + " is not a power of two";
    return "";
}

constexpr std::size_t DEVICE_NAME_COLUMN = 1;
constexpr std::size_t DEFAULT_COLUMN = 10;

} // namespace

bool check_flash_table(const std::string& path, TABLE_PROBLEM& problem)
{
    problem = TABLE_PROBLEM{};
    TABLE_READER reader(path);
    std::vector<std::string> cells;
    // The names stay where the rule's views of them can see them.
    std::deque<std::string> names;
    detail::DEFAULTS_PER_NAME defaults(1024);
    std::size_t line = 0, file_line = 0;
    std::size_t payload = MOXDEV_DB_PAYLOAD_HEADER_SIZE + 4; // and "END2"
    for (; reader.next(cells, &file_line); ++line) {
        problem.file_line = file_line;
        if (!check_flash_table_layout(line, cells, problem))
            return false;
        if (line < FLASH_TABLE_FIRST_RECORD || !flash_table_line_has_every_column(line))
            continue;
        for (std::size_t column = 0; column < cells.size(); ++column) {
            std::string reason = flash_cell_reason(column, cells[column]);
            if (!reason.empty())
                return refuse(problem, line, column, "", std::move(reason));
        }
        payload += flash_record_payload_size(cells);
        if (payload > MOXDEV_MAX_PAYLOAD)
            return refuse(
                problem, line, TABLE_PROBLEM::NO_COLUMN, "status && device_count > 0",
                fmt::format("the records up to here take more than the {} bytes a database holds", MOXDEV_MAX_PAYLOAD));
        names.push_back(cells[DEVICE_NAME_COLUMN]);
        defaults.add(names.back(), cells[DEFAULT_COLUMN] == "TRUE", DWORD(file_line));
    }
    problem.file_line = 0;
    if (!reader.error().empty())
        return refuse(problem, line, TABLE_PROBLEM::NO_COLUMN, "", "cannot be read: " + reader.error());
    if (line <= FLASH_TABLE_FIRST_RECORD)
        return refuse(problem, line, TABLE_PROBLEM::NO_COLUMN, "status && device_count > 0",
                      "it holds no flash record");
    // The loader wants exactly one default record per name.
    const auto violation = defaults.first_violation();
    if (violation.kind == violation.NONE)
        return true;
    const std::string name = absl::AsciiStrToUpper(absl::string_view(violation.name.data(), violation.name.size()));
    if (violation.kind == violation.SECOND_DEFAULT) {
        problem.file_line = violation.second;
        return refuse(problem, line, DEFAULT_COLUMN, "!one_default",
                      fmt::format("a second default record for {} (the first is on line {})", name, violation.first));
    }
    problem.file_line = violation.first;
    return refuse(problem, line, DEFAULT_COLUMN, "one_default",
                  fmt::format("no default record for {} (one of its records must say TRUE)", name));
}

} // namespace moxdev
