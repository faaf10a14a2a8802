// The device table: its layout, checked by the generator, and the whole
// table as the generator reads it, checked by the command.
#include "moxdev/table.h"

#include "moxdev/container/moxdev_table_checks.h"
#include "moxdev/moxdev_dev_info_manager.h"
#include "moxdev/moxdev_dev_info_manager_auto_export.h"
#include "moxdev/text.h"

#include "host/mox_common.h"

#include <absl/container/flat_hash_set.h>
#include <fmt/format.h>

#include <array>

namespace moxdev {

using detail::refuse;

bool check_device_table_layout(std::size_t line, const std::vector<std::string>& cells, TABLE_PROBLEM& problem)
{
    const std::size_t columns = TOTAL_DEVICE_DATABASE_MEMBER;
    if (cells.size() != columns)
        return refuse(problem, line, TABLE_PROBLEM::NO_COLUMN,
                      line < 2 ? "svec.size() == TOTAL_DEVICE_DATABASE_MEMBER"
                               : "DWORD(svec.size()) == TOTAL_DEVICE_DATABASE_MEMBER",
                      fmt::format("{} cells, a device table line has {}", cells.size(), columns));
    if (line == 0)
        return detail::check_type_line(cells, MOXDEV_DEVICE_FIELD_TYPES, problem);
    if (line == 1) {
        for (std::size_t i = 0; i < columns; ++i) {
            if (cells[i] != MOXDEV_DEVICE_FIELD_NAMES[i])
                return refuse(problem, 1, i, "temp == m_db_name_list[i]",
                              fmt::format("name {}, expected '{}'", quoted(cells[i]), MOXDEV_DEVICE_FIELD_NAMES[i]));
        }
    }
    return true;
}

// ---------------------------------------------------------------- device table

namespace {

// The names of one name table, for lookups.
absl::flat_hash_set<std::string> name_set(const MOXDEV_NAME_TABLE& table)
{
    absl::flat_hash_set<std::string> names;
    names.reserve(table.count);
    for (std::size_t i = 0; i < table.count; ++i)
        names.insert(table.entries[i].name);
    return names;
}

// The name table a catalogue column's cells must come from.
const MOXDEV_NAME_TABLE& name_table_of(std::size_t column)
{
    const std::string field = MOXDEV_DEVICE_FIELD_NAMES[column];
    return MOXDEV_DEVICE_FIELD_TYPES[column] == MOXDEV_MANAGER_ENUM ? MOXDEV_OPTION_ID_TABLE
           : field == "family"                                      ? MOXDEV_FAMILY_ID_TABLE
           : field == "device"                                      ? MOXDEV_DEVICE_ID_TABLE
                                                                    : MOXDEV_PART_ID_TABLE;
}

// Why a record's cell is refused, "" when it is taken.
std::string device_cell_reason(std::size_t column, const std::string& cell, std::vector<std::string>& known)
{
    const MOXDEV_MANAGER_TYPE type = MOXDEV_DEVICE_FIELD_TYPES[column];
    if (type == MOXDEV_MANAGER_DEVID_ENUM || type == MOXDEV_MANAGER_ENUM) {
        static const std::array<absl::flat_hash_set<std::string>, 4> sets = {
            name_set(MOXDEV_FAMILY_ID_TABLE), name_set(MOXDEV_DEVICE_ID_TABLE), name_set(MOXDEV_PART_ID_TABLE),
            name_set(MOXDEV_OPTION_ID_TABLE)};
        const MOXDEV_NAME_TABLE& table = name_table_of(column);
        const std::size_t which = &table == &MOXDEV_FAMILY_ID_TABLE   ? 0
                                  : &table == &MOXDEV_DEVICE_ID_TABLE ? 1
                                  : &table == &MOXDEV_PART_ID_TABLE   ? 2
                                                                      : 3;
        if (sets[which].count(cell) != 0)
            return "";
        for (std::size_t i = 0; i < table.count; ++i)
            known.push_back(table.entries[i].name);
        const std::string field = MOXDEV_DEVICE_FIELD_NAMES[column];
        return fmt::format("{} is no {} the table may name", quoted(cell),
                           type == MOXDEV_MANAGER_ENUM ? "option family" : field);
    }
    if (type == MOXDEV_MANAGER_DEVID_STR || type == MOXDEV_MANAGER_STRING) {
        const std::string problem = stored_text_problem(cell, 255);
        return problem.empty() ? "" : quoted(cell) + " cannot be stored: " + problem;
    }
    if (type == MOXDEV_MANAGER_BOOL)
        return cell == "TRUE" || cell == "FALSE" ? "" : quoted(cell) + " is not TRUE or FALSE";
    const DWORD most = type == MOXDEV_MANAGER_BYTE ? 0xFF : type == MOXDEV_MANAGER_WORD ? 0xFFFF : 0xFFFFFFFF;
    DWORD value = 0;
    if (!MOX_COMMON::convert_string_to_dword(cell, value) || value > most)
        return fmt::format("{} is not a number of 0 to {} (a {} field)", quoted(cell), most, table_type_name(type));
    return "";
}

} // namespace

bool check_device_table(const std::string& path, TABLE_PROBLEM& problem)
{
    problem = TABLE_PROBLEM{};
    TABLE_READER reader(path);
    std::vector<std::string> cells;
    std::size_t line = 0, file_line = 0;
    for (; reader.next(cells, &file_line); ++line) {
        problem.file_line = file_line;
        if (!check_device_table_layout(line, cells, problem))
            return false;
        if (line >= 2 + TOTAL_DATABASE_DEVICE)
            return refuse(problem, line, TABLE_PROBLEM::NO_COLUMN, "device_count == TOTAL_DATABASE_DEVICE",
                          fmt::format("a record more than the {} of a device table", TOTAL_DATABASE_DEVICE));
        for (std::size_t column = 0; line >= 2 && column < cells.size(); ++column) {
            std::string reason = device_cell_reason(column, cells[column], problem.known);
            if (!reason.empty()) {
                problem.cell = cells[column];
                return refuse(problem, line, column, "", std::move(reason));
            }
        }
    }
    problem.file_line = 0;
    if (!reader.error().empty())
        return refuse(problem, line, TABLE_PROBLEM::NO_COLUMN, "", "cannot be read: " + reader.error());
    const std::size_t records = line < 2 ? 0 : line - 2;
    if (records != TOTAL_DATABASE_DEVICE)
        return refuse(problem, line, TABLE_PROBLEM::NO_COLUMN, "device_count == TOTAL_DATABASE_DEVICE",
                      fmt::format("{} records, a device table has {} (after its type and name lines)", records,
                                  TOTAL_DATABASE_DEVICE));
    return true;
}

} // namespace moxdev
