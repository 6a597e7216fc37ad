// Where the lines of a TOML file belong together: just enough of the language to change one line and leave every
// other byte alone. Values aren't understood, only delimited.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovi {

// A header, a key with its value, or a line of anything else (blank, comment, unknown). Items follow one another
// without a gap; only a byte order mark stands before the first.
struct TomlItem {
  enum class Kind { table, tableArray, value, other };
  Kind kind = Kind::other;
  std::vector<std::string> path;  // of a header or key, its parts without quotes
  std::size_t begin = 0;          // byte offsets in the text, all lines of a value and the last line break included
  std::size_t end = 0;
  std::size_t value = 0;  // of a key with a value, where that begins

  bool isHeader() const { return kind == Kind::table || kind == Kind::tableArray; }
  bool is(Kind which, const std::vector<std::string>& name) const { return kind == which && path == name; }
};

// Absent: the text isn't UTF-8, or it can't be told for certain where an item ends, as with a string that is never
// closed, or what it is called, as with an escape in a quoted key.
std::optional<std::vector<TomlItem>> tomlItems(std::string_view text);

// The keys of the inline table that `text` begins with, those of tables within it left out. Absent if it begins with
// something else.
std::optional<std::vector<std::vector<std::string>>> inlineTableKeys(std::string_view text);

// The line break that the text uses, by its first; "\n" if it has none.
std::string_view lineBreakOf(std::string_view text);

}  // namespace tovi
