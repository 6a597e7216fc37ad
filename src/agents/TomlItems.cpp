#include "agents/TomlItems.h"

#include <algorithm>

#include "platform/Utf8.h"

namespace tovi {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text), at_(text.starts_with(kByteOrderMark) ? 3 : 0) {}

  bool atEnd() const { return at_ >= text_.size(); }

  // False: where the item ends can't be told.
  bool item(TomlItem& item) {
    item.begin = at_;
    skipBlanks();
    const bool clear = here() == '[' ? header(item) : line(item);
    item.end = at_;
    return clear && !escaped_;
  }

  // False: no inline table begins here.
  bool inlineKeys(std::vector<std::vector<std::string>>& keys) {
    skipBlanks();
    if (!take('{')) return false;
    do {
      skipSpaceAndComments();
      if (take('}')) return true;
      if (!key(keys.emplace_back()) || here() != '=' || !passTo(",}")) return false;
    } while (take(','));
    return take('}');
  }

 private:
  std::string_view text_;
  std::size_t at_;
  bool escaped_ = false;  // a quoted key may say something else than it seems to

  char here(std::size_t ahead = 0) const { return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\n'; }
  void skipBlanks() {
    while (here() == ' ' || here() == '\t') ++at_;
  }
  void skipComment() { at_ = std::min(text_.find('\n', at_), text_.size()); }
  void skipSpaceAndComments() {
    while (!atEnd() && std::string_view{" \t\r\n#"}.find(here()) != std::string_view::npos) {
      if (here() == '#') {
        skipComment();
      } else {
        ++at_;
      }
    }
  }
  bool take(char c) {
    if (here() != c) return false;
    ++at_;
    return true;
  }

  bool header(TomlItem& item) {
    ++at_;
    const bool array = take('[');
    item.kind = array ? TomlItem::Kind::tableArray : TomlItem::Kind::table;
    if (!key(item.path) || !take(']') || (array && !take(']'))) return false;
    skipBlanks();
    return (here() == '#' || here() == '\r' || here() == '\n') && restOfItem();
  }

  bool line(TomlItem& item) {
    const std::size_t start = at_;
    if (key(item.path) && here() == '=') {
      item.kind = TomlItem::Kind::value;
      item.value = at_ + 1;
    } else {
      item.path.clear();
      at_ = start;
    }
    return restOfItem();
  }

  // Parts with dots between, bare or quoted, and the blanks around them.
  bool key(std::vector<std::string>& path) {
    do {
      skipBlanks();
      std::string part;
      if (here() == '"' || here() == '\'') {
        const std::size_t start = at_;
        const bool basic = here() == '"';
        if (!string()) return false;
        escaped_ = escaped_ || (basic && text_.substr(start, at_ - start).find('\\') != std::string_view::npos);
        part = text_.substr(start + 1, at_ - start - 2);
      } else {
        while (std::string_view{" \t\r\n.=[]{}\"'#,"}.find(here()) == std::string_view::npos) part += text_[at_++];
        if (part.empty()) return false;
      }
      path.push_back(std::move(part));
      skipBlanks();
    } while (take('.'));
    return true;
  }

  // The rest of the line, and of the following ones while a bracket is open.
  bool restOfItem() {
    if (!passTo("\n")) return false;
    if (!atEnd()) ++at_;
    return true;
  }

  // To the first of `ends` outside strings, comments and brackets, or to the end of the text.
  bool passTo(std::string_view ends) {
    std::size_t open = 0;
    while (!atEnd()) {
      const char c = here();
      if (open == 0 && ends.find(c) != std::string_view::npos) return true;
      if (c == '#') {
        skipComment();
        continue;
      }
      if (c == '"' || c == '\'') {
        if (!string()) return false;
        continue;
      }
      if (c == '[' || c == '{') ++open;
      if ((c == ']' || c == '}') && open-- == 0) return false;
      ++at_;
    }
    return open == 0;
  }

  bool string() {
    const char quote = text_[at_];
    const std::string three(3, quote);
    const bool several = text_.substr(at_).starts_with(three);
    at_ += several ? 3 : 1;
    while (!atEnd()) {
      if (!several && here() == '\n') return false;
      if (quote == '"' && here() == '\\' && at_ + 1 < text_.size() && (several || here(1) != '\n')) {
        at_ += 2;
      } else if (here() != quote) {
        ++at_;
      } else if (!several) {
        ++at_;
        return true;
      } else {
        // Up to two quotes may stand before the three that close.
        std::size_t run = 0;
        while (run < 5 && at_ + run < text_.size() && here(run) == quote) ++run;
        at_ += run;
        if (run >= 3) return true;
      }
    }
    return false;
  }
};

}  // namespace

// Some programs take it for the end of a line and others don't.
static bool hasLoneReturn(std::string_view text) {
  for (auto at = text.find('\r'); at != std::string_view::npos; at = text.find('\r', at + 1)) {
    if (at + 1 == text.size() || text[at + 1] != '\n') return true;
  }
  return false;
}

std::optional<std::vector<TomlItem>> tomlItems(std::string_view text) {
  if (!isUtf8(text) || hasLoneReturn(text)) return std::nullopt;
  std::vector<TomlItem> items;
  for (Scanner scanner(text); !scanner.atEnd();) {
    if (!scanner.item(items.emplace_back())) return std::nullopt;
  }
  return items;
}

std::optional<std::vector<std::vector<std::string>>> inlineTableKeys(std::string_view text) {
  std::vector<std::vector<std::string>> keys;
  if (!Scanner(text).inlineKeys(keys)) return std::nullopt;
  return keys;
}

std::string_view lineBreakOf(std::string_view text) {
  const auto first = text.find('\n');
  return first != std::string_view::npos && first > 0 && text[first - 1] == '\r' ? "\r\n" : "\n";
}

}  // namespace tovi
