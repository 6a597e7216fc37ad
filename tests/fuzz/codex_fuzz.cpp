// Surgery on Codex's config.toml, a file that belongs to somebody else: every byte outside the lines concerned stays,
// and what is done twice, or taken back, leaves no trace.

#include "agents/CodexConfig.h"

#include <algorithm>
#include <string>

#include "fuzz/Fuzz.h"

using namespace tovi;
using fuzz::must;

namespace {

using Kind = TomlItem::Kind;

void itemsCoverTheText(std::string_view text, const std::vector<TomlItem>& items) {
  std::size_t at = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;
  for (const TomlItem& item : items) {
    must(item.begin == at && item.end > item.begin, "items follow one another without a gap");
    must(item.kind == Kind::other || !item.path.empty(), "a header and a key have a name");
    must(item.kind != Kind::value || (item.value > item.begin && item.value <= item.end), "a value lies in its item");
    at = item.end;
  }
  must(at == text.size(), "items cover the text");
}

std::string_view of(std::string_view text, const TomlItem& item) {
  return text.substr(item.begin, item.end - item.begin);
}

bool isOurs(const TomlItem& item) { return item.is(Kind::value, {"command"}) || item.is(Kind::value, {"args"}); }

// Every item but those that our table says, each by its own text without the line break that the last may lack.
std::vector<std::string> others(std::string_view text, const std::vector<TomlItem>& items) {
  const auto range = codexToviRange(items);
  std::vector<std::string> found;
  bool ours = true;
  for (std::size_t at = 0; at < items.size(); ++at) {
    const bool inside = range && at > range->first && at < range->second;
    if (inside && items[at].kind == Kind::tableArray) ours = false;
    if (inside && ours && isOurs(items[at])) continue;
    std::string line{of(text, items[at])};
    while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
    found.push_back(line);
  }
  return found;
}

void theTableIsSet(std::string_view text, const std::vector<TomlItem>& items) {
  const auto range = codexToviRange(items);
  const auto updated = codexUpdated(text, "/opt/a \"b\"\\c", {"cli", "mcp\t"});
  if (!updated) return;
  const auto after = tomlItems(*updated);
  must(after.has_value(), "a text that was changed can still be delimited");
  itemsCoverTheText(*updated, *after);
  const auto newRange = codexToviRange(*after);
  must(newRange.has_value(), "the table is there");
  must(codexInlineTovi(*updated) == codexInlineTovi(text), "no other form of the entry appears");
  must(codexUpdated(*updated, "/opt/a \"b\"\\c", {"cli", "mcp\t"}) == updated, "done twice it changes nothing more");

  int commands = 0, args = 0;
  for (std::size_t at = newRange->first + 1; at < newRange->second; ++at) {
    const TomlItem& item = (*after)[at];
    if (item.kind == Kind::tableArray) break;
    std::string line{of(*updated, item)};
    while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
    if (item.is(Kind::value, {"command"})) commands += line == "command = \"/opt/a \\\"b\\\"\\\\c\"" ? 1 : 2;
    if (item.is(Kind::value, {"args"})) args += line == "args = [\"cli\", \"mcp\\u0009\"]" ? 1 : 2;
  }
  must(commands == 1 && args == 1, "the table says the command and its arguments, once");

  if (!range) {
    must(updated->starts_with(text), "a new table stands after everything else");
    return;
  }
  must(updated->starts_with(text.substr(0, items[range->first].end)), "what stands before our lines stays");
  must(others(text, items) == others(*updated, *after), "other lines stay, in their order");
}

void aLineIsSetAndTakenBack(std::string_view text) {
  struct Line {
    const char* key;
    const char* line;
  };
  constexpr Line kLines[] = {{"approval_policy", "approval_policy = \"never\""}, {"k", "k = 1"}};
  std::string on{text};
  std::optional<std::string> before[2];
  for (std::size_t i = 0; i < 2; ++i) {
    if (!canSetTopLevel(text, kLines[i].key)) return;
    before[i] = topLevelLine(text, kLines[i].key);
  }
  for (const Line& one : kLines) {
    on = setTopLevel(on, one.key, one.line);
    must(topLevelLine(on, one.key) == one.line, "the line stands where it was set");
    must(setTopLevel(on, one.key, one.line) == on, "set twice it changes nothing more");
  }
  for (std::size_t i = 0; i < 2; ++i) on = setTopLevel(on, kLines[i].key, before[i]);
  must(on == text, "what was set and taken back leaves every byte");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  const auto items = tomlItems(text);
  if (!items) {
    must(!codexUpdated(text, "x", {}) && !canSetTopLevel(text, "k") && !codexInlineTovi(text),
         "what can't be delimited is left alone");
    must(setTopLevel(text, "k", "k = 1") == text, "what can't be delimited is left alone");
    return 0;
  }
  itemsCoverTheText(text, *items);
  theTableIsSet(text, *items);
  aLineIsSetAndTakenBack(text);
  return 0;
}
