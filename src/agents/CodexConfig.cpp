#include "agents/CodexConfig.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/Text.h"

namespace tovi {

namespace {

using Kind = TomlItem::Kind;
using Path = std::vector<std::string>;

bool beginsWith(const Path& path, const Path& beginning) {
  return path.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), path.begin());
}

// `text` as a basic string.
std::string quoted(std::string_view text) {
  std::string literal = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      literal += '\\';
      literal += c;
    } else if (byte < 0x20 || byte == 0x7F) {
      literal += fmt::format("\\u{:04X}", byte);
    } else {
      literal += c;
    }
  }
  return literal + "\"";
}

std::string_view textOf(std::string_view text, const TomlItem& item) {
  return text.substr(item.begin, item.end - item.begin);
}

// Of a line that has one; a file may mix them.
std::string_view lineBreakAtEnd(std::string_view line) { return line.ends_with("\r\n") ? "\r\n" : "\n"; }

// Nothing but what TOML takes for blank: after anything else no header may stand on the same line.
bool isBlank(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(lineBreakAtEnd(line).size());
  return line.find_first_not_of(" \t") == std::string_view::npos;
}

const TomlItem* topLevelItem(const std::vector<TomlItem>& items, std::string_view key) {
  for (const TomlItem& item : items) {
    if (item.isHeader()) break;
    if (item.is(Kind::value, {std::string{key}})) return &item;
  }
  return nullptr;
}

}  // namespace

std::optional<std::pair<std::size_t, std::size_t>> codexToviRange(const std::vector<TomlItem>& items) {
  const auto header = std::ranges::find_if(items, [](const TomlItem& item) {
    return item.is(Kind::table, {"mcp_servers", "tovi"});
  });
  if (header == items.end()) return std::nullopt;
  const auto next =
      std::find_if(header + 1, items.end(), [](const TomlItem& item) { return item.kind == Kind::table; });
  return std::pair{static_cast<std::size_t>(header - items.begin()), static_cast<std::size_t>(next - items.begin())};
}

bool codexInlineTovi(std::string_view text) {
  const auto items = tomlItems(text);
  if (!items) return false;
  // All servers as one value: mcp_servers = { ... }.
  if (const TomlItem* servers = topLevelItem(*items, "mcp_servers")) {
    const auto keys = inlineTableKeys(text.substr(servers->value));
    if (keys && std::ranges::any_of(*keys, [](const Path& key) { return key.front() == "tovi"; })) return true;
  }
  Path table;
  for (const TomlItem& item : *items) {
    if (item.is(Kind::tableArray, {"mcp_servers", "tovi"})) return true;
    if (item.isHeader()) table = item.path;
    if (item.kind != Kind::value) continue;
    if (table.empty() && beginsWith(item.path, {"mcp_servers", "tovi"})) return true;
    if (table == Path{"mcp_servers"} && item.path.front() == "tovi") return true;
  }
  return false;
}

std::optional<std::string> codexUpdated(std::string_view text, std::string_view command, const Path& args) {
  const auto items = tomlItems(text);
  if (!items || topLevelItem(*items, "mcp_servers") != nullptr) return std::nullopt;
  const std::string_view lineBreak = lineBreakOf(text);
  std::string list;
  for (const std::string& arg : args) list += (list.empty() ? "" : ", ") + quoted(arg);
  const std::string lines = fmt::format("command = {}{}args = [{}]", quoted(command), lineBreak, list);

  std::string updated;
  const auto range = codexToviRange(*items);
  if (!range) {
    updated = text;
    if (!std::ranges::all_of(*items, [&](const TomlItem& item) { return isBlank(textOf(text, item)); })) {
      if (!text.ends_with('\n')) updated += lineBreak;
      updated += lineBreak;
    }
    return updated + fmt::format("[mcp_servers.tovi]{}{}{}", lineBreak, lines, lineBreak);
  }
  const TomlItem& header = (*items)[range->first];
  updated = text.substr(0, header.end);
  if (!updated.ends_with('\n')) updated += lineBreak;
  updated += fmt::format("{}{}", lines, lineBreak);
  bool ours = true;
  for (std::size_t at = range->first + 1; at < range->second; ++at) {
    const TomlItem& item = (*items)[at];
    ours = ours && item.kind != Kind::tableArray;  // what follows one belongs to it
    if (ours && (item.is(Kind::value, {"command"}) || item.is(Kind::value, {"args"}))) continue;
    updated += textOf(text, item);
  }
  if (range->second < items->size()) updated += text.substr((*items)[range->second].begin);
  // A file without a last line break doesn't get one.
  if (!text.ends_with('\n') && updated.ends_with('\n')) {
    updated.resize(updated.size() - lineBreakAtEnd(updated).size());
  }
  return updated;
}

std::optional<std::string> topLevelLine(std::string_view text, std::string_view key) {
  const auto items = tomlItems(text);
  const TomlItem* item = items ? topLevelItem(*items, key) : nullptr;
  if (item == nullptr) return std::nullopt;
  return std::string{text::trimmed(textOf(text, *item))};
}

std::string setTopLevel(std::string_view text, std::string_view key, const std::optional<std::string>& line) {
  const auto items = tomlItems(text);
  if (!items) return std::string{text};
  const auto spliced = [&](std::size_t begin, std::size_t end, std::string_view with) {
    return fmt::format("{}{}{}", text.substr(0, begin), with, text.substr(end));
  };
  if (const TomlItem* item = topLevelItem(*items, key)) {
    if (!line) return spliced(item->begin, item->end, "");
    const std::string_view old = text::trimmed(textOf(text, *item));
    const auto begin = static_cast<std::size_t>(old.data() - text.data());
    return spliced(begin, begin + old.size(), *line);
  }
  if (!line) return std::string{text};
  const std::size_t top = items->empty() ? text.size() : items->front().begin;
  return spliced(top, top, fmt::format("{}{}", *line, lineBreakOf(text)));
}

bool canSetTopLevel(std::string_view text, std::string_view key) {
  const auto items = tomlItems(text);
  if (!items) return false;
  bool topLevel = true;
  return std::ranges::none_of(*items, [&](const TomlItem& item) {
    topLevel = topLevel && !item.isHeader();
    const bool concerned = !item.path.empty() && item.path.front() == key;
    return concerned && (item.isHeader() || (topLevel && item.path.size() > 1));
  });
}

}  // namespace tovi
