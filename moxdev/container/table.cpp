// The generators' tables: the reader and what both tables' checks share. The
// checks of each table are in its subsystem (device/device_table.cpp,
// flash/flash_table.cpp).
#include "moxdev/table.h"
#include "moxdev/text.h"

#include "moxdev/container/moxdev_table_checks.h"
#include "moxdev/internal/moxdev_file_reader.h"

#include "host/gen_string.h"

#include <fmt/format.h>

namespace moxdev {

TABLE_READER::TABLE_READER(const std::string& path) : m_lines(new detail::LINE_READER(path, LINE_CAP)) {}

TABLE_READER::~TABLE_READER() = default;

const std::string& TABLE_READER::error() const
{
    return m_lines->error();
}

bool TABLE_READER::next(std::vector<std::string>& cells, std::size_t* file_line)
{
    std::string line;
    while (m_lines->next(line)) {
        gen_remove_leading_and_trailing_white_spaces(line);
        if (line.empty())
            continue;
        cells = STRING_TOKENIZER(line, " \t\n,", true).tokens();
        if (file_line != nullptr)
            *file_line = m_lines->line_number();
        return true;
    }
    return false;
}

std::string table_problem_text(const std::string& path, const TABLE_PROBLEM& problem, const char* const* field_names)
{
    // The form compilers and editors read: FILE:LINE:COLUMN: and then the
    // column's field and the reason.
    std::string text = path;
    if (problem.file_line != 0)
        text += fmt::format(":{}", problem.file_line);
    if (problem.file_line != 0 && problem.column != TABLE_PROBLEM::NO_COLUMN)
        text += fmt::format(":{}", problem.column + 1);
    if (problem.column != TABLE_PROBLEM::NO_COLUMN)
        text += fmt::format(": {}", field_names[problem.column]);
    return text + ": " + problem.reason;
}

namespace detail {

bool refuse(TABLE_PROBLEM& problem, std::size_t line, std::size_t column, std::string condition, std::string reason)
{
    problem.line = line;
    problem.column = column;
    problem.condition = std::move(condition);
    problem.reason = std::move(reason);
    return false;
}

bool check_type_line(const std::vector<std::string>& cells, const MOXDEV_MANAGER_TYPE* types, TABLE_PROBLEM& problem)
{
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const char* expected = table_type_name(types[i]);
        if (expected == nullptr)
            return refuse(problem, 0, i, "Unsupported type", "a column of an unsupported type");
        if (cells[i] != expected)
            return refuse(problem, 0, i, fmt::format("svec.at(i) == \"{}\"", expected),
                          fmt::format("type {}, expected '{}'", quoted(cells[i]), expected));
    }
    return true;
}

} // namespace detail

} // namespace moxdev
