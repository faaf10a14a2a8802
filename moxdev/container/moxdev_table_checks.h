// What the checks of the two generator tables share. Library sources only.
#pragma once

#include "moxdev/table.h"

namespace moxdev::detail {

// Sets `problem` to this place and reason; false.
bool refuse(TABLE_PROBLEM& problem, std::size_t line, std::size_t column, std::string condition, std::string reason);

// The type line: each column's type name, `types` in column order; the
// condition names the expected type.
bool check_type_line(const std::vector<std::string>& cells, const MOXDEV_MANAGER_TYPE* types, TABLE_PROBLEM& problem);

} // namespace moxdev::detail
