#include "platform/simulated/ShellLine.h"

namespace tovi {

std::optional<std::vector<std::vector<std::string>>> splitShellLine(std::string_view text) {
  constexpr std::string_view kSpecialOutside = "|;<>()$`*?[]{}#~!\n\r";
  constexpr std::string_view kSpecialInDouble = "$`!";
  std::vector<std::vector<std::string>> commands(1);
  std::string word;
  bool inWord = false;
  const auto endWord = [&] {
    if (inWord) commands.back().push_back(std::move(word));
    word.clear();
    inWord = false;
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\'') {
      const std::size_t close = text.find('\'', i + 1);
      if (close == std::string_view::npos) return std::nullopt;
      word += text.substr(i + 1, close - i - 1);
      inWord = true;
      i = close;
    } else if (c == '"') {
      inWord = true;
      for (++i; i < text.size() && text[i] != '"'; ++i) {
        if (kSpecialInDouble.find(text[i]) != std::string_view::npos) return std::nullopt;
        const bool escaped = text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == '"' || text[i + 1] == '\\');
        if (escaped) ++i;
        word += text[i];
      }
      if (i == text.size()) return std::nullopt;
    } else if (c == '\\') {
      if (++i == text.size()) return std::nullopt;
      word += text[i];
      inWord = true;
    } else if (c == ' ' || c == '\t') {
      endWord();
    } else if (c == '&') {
      endWord();
      if (i + 1 == text.size() || text[i + 1] != '&' || commands.back().empty()) return std::nullopt;
      ++i;
      commands.emplace_back();
    } else if (kSpecialOutside.find(c) != std::string_view::npos) {
      return std::nullopt;
    } else {
      word += c;
      inWord = true;
    }
  }
  endWord();
  if (commands.back().empty()) return std::nullopt;
  return commands;
}

}  // namespace tovi
