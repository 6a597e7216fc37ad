// Rows of short texts as lines: bare for programs, in columns for a person.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace tovi {

using ColumnRow = std::array<std::string, 3>;

// One line a row, without a line end. Not aligned: two blanks between the cells, empty cells left out.
std::vector<std::string> columnLines(const std::vector<ColumnRow>& rows, bool aligned);

}  // namespace tovi
