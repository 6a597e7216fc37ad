#include "commands/Columns.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tovi {

namespace {

std::size_t width(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

std::vector<std::string> columnLines(const std::vector<ColumnRow>& rows, bool aligned) {
  std::array<std::size_t, std::tuple_size_v<ColumnRow>> widths{};
  if (aligned) {
    for (const ColumnRow& row : rows) {
      for (std::size_t column = 0; column < row.size(); ++column) {
        widths[column] = std::max(widths[column], width(row[column]));
      }
    }
  }
  std::vector<std::string> lines;
  for (const ColumnRow& row : rows) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      if (row[column].empty() && widths[column] == 0) continue;
      if (column > 0) line += "  ";
      line += row[column];
      if (widths[column] > width(row[column])) line.append(widths[column] - width(row[column]), ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace tovi
