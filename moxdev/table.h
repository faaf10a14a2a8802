// The tables the database generators read (data/mox_dev_info.csv,
// data/mox_flash.csv): how their lines are split, how they are laid out, and
// the checks that find what a generator or a loader would refuse, with the
// line and column where it is. The generators turn a problem into their
// internal error (its condition); the command turns it into a message for
// the person who edited the table (its reason).
#pragma once

#include "moxdev/moxdev_field_stream.h"

#include "host/host_types.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace moxdev {

namespace detail {
class LINE_READER;
}

// Reads a table line by line: blank lines are skipped, the others trimmed
// and split into cells at blanks, tabs and commas (empty cells are dropped,
// so a cell may hold none of them). The table is read through one
// descriptor, a bounded piece at a time (see moxdev_file_reader.h): only a
// regular file, and no line longer than LINE_CAP. A table that cannot be
// read reads as one without lines, and error() says why.
class TABLE_READER {
public:
    static constexpr std::size_t LINE_CAP = 1024 * 1024;

    explicit TABLE_READER(const std::string& path);
    ~TABLE_READER();
    TABLE_READER(const TABLE_READER&) = delete;
    TABLE_READER& operator=(const TABLE_READER&) = delete;

    // The next line's cells, and its number in the file (from 1, blank lines
    // counted); false at the end of the table or at a line it cannot read.
    bool next(std::vector<std::string>& cells, std::size_t* file_line = nullptr);
    // Why the table could not be read (to its end), "" when it could.
    const std::string& error() const;

private:
    std::unique_ptr<detail::LINE_READER> m_lines;
};

// The name a table's type line gives a column of this stream type; null for
// a tag that no column has.
constexpr const char* table_type_name(MOXDEV_MANAGER_TYPE type)
{
    switch (type) {
    case MOXDEV_MANAGER_DEVID_ENUM: return "DEVID_ENUM";
    case MOXDEV_MANAGER_DEVID_STR: return "DEVID_STR";
    case MOXDEV_MANAGER_STRING: return "STL_STRING";
    case MOXDEV_MANAGER_BOOL: return "bool";
    case MOXDEV_MANAGER_BYTE: return "BYTE";
    case MOXDEV_MANAGER_WORD: return "WORD";
    case MOXDEV_MANAGER_DWORD: return "DWORD";
    case MOXDEV_MANAGER_ENUM: return "ENUM";
    default: return nullptr;
    }
}

// What is wrong with a table, and where: `line` counts the table's lines
// from 0 as the generator does (blank lines skipped), `file_line` the file's
// lines from 1; `column` is from 0, NO_COLUMN for the line as a whole or the
// whole table.
struct TABLE_PROBLEM {
    static constexpr std::size_t NO_COLUMN = std::size_t(-1);
    std::size_t line = 0;
    std::size_t file_line = 0;
    std::size_t column = NO_COLUMN;
    std::string condition; // the generator's condition that fails
    std::string reason;    // the same for a person
    // For a cell that must name something: the cell and the names it may take.
    std::string cell;
    std::vector<std::string> known;
};

// "FILE:LINE:COLUMN: FIELD: REASON" (the parts that apply), as compilers write it.
std::string table_problem_text(const std::string& path, const TABLE_PROBLEM& problem, const char* const* field_names);

// ---------------------------------------------------------------- flash table
// Line 0 names each column's type, line 1 its field; lines 2 to 7 describe the
// columns (2, 3 and 7 are free text, the others have a cell per column); the
// records start at line 8.
inline constexpr std::size_t FLASH_TABLE_FIRST_RECORD = 8;
constexpr bool flash_table_line_has_every_column(std::size_t line)
{
    return line != 2 && line != 3 && line != 7;
}

// The bytes one record line takes in the database payload: a tag per field,
// the values (a text with its length byte), the "END1" marker.
std::size_t flash_record_payload_size(const std::vector<std::string>& cells);

// The generator's checks of one line's layout: its cells, and on the type
// and name lines the names. False with the problem.
bool check_flash_table_layout(std::size_t line, const std::vector<std::string>& cells, TABLE_PROBLEM& problem);
// The whole table as the generator and the flash manager's loader read it:
// the layout, every record's cells (flags, numbers and their widths, texts
// of 1 to 255 printable characters, densities that are powers of two), a
// payload within what a database holds, and one default record per name.
// False with the first problem. Time and memory grow linearly with the
// records, and the check stops at the record that passes the payload's cap.
bool check_flash_table(const std::string& path, TABLE_PROBLEM& problem);

// ---------------------------------------------------------------- device table
// Line 0 names each column's type, line 1 its field; every further line is
// one of the 79 records.
bool check_device_table_layout(std::size_t line, const std::vector<std::string>& cells, TABLE_PROBLEM& problem);
// The whole table as the generator reads it: the layout, every record's cells
// (catalogue names, flags, numbers and their widths, texts below 256
// printable characters) and the record count. False with the first problem;
// a record past the 79th is refused at once. Constant memory, linear time.
bool check_device_table(const std::string& path, TABLE_PROBLEM& problem);

} // namespace moxdev
