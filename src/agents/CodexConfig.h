// Surgery on the lines of Codex's config.toml: our table of MCP servers, and keys of the top level. Pure functions of
// the text; every byte outside the lines concerned stays, line breaks included.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agents/TomlItems.h"

namespace tovi {

// The items from the header [mcp_servers.tovi] up to the next header, as indices; the second is past the end. [[...]]
// doesn't end it. Absent if there is no such table.
std::optional<std::pair<std::size_t, std::size_t>> codexToviRange(const std::vector<TomlItem>& items);

// Whether somebody wrote the entry by hand in another form than that table. False too if the text can't be delimited.
bool codexInlineTovi(std::string_view text);

// The text with our table saying `command` and `args`; other keys in it stay. Absent if the text can't be delimited,
// or has all servers in one inline value that no table can add to.
std::optional<std::string> codexUpdated(std::string_view text, std::string_view command,
                                        const std::vector<std::string>& args);

// The line of a key before the first table, all lines of its value, without white space at both ends.
std::optional<std::string> topLevelLine(std::string_view text, std::string_view key);

// Replaces that line, whatever blanks stood around it, or takes it away if `line` is absent. A key that isn't there
// becomes the very first line.
std::string setTopLevel(std::string_view text, std::string_view key, const std::optional<std::string>& line);

// Whether those two can be relied on: the text can be delimited, and the key isn't a table.
bool canSetTopLevel(std::string_view text, std::string_view key);

}  // namespace tovi
