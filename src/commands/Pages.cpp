#include "commands/Pages.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

#include "commands/Guide.h"

namespace tovi {

namespace {

using Guide::Choice;
using Guide::Place;
using Guide::Topic;

struct WordSummary {
  std::string word;
  std::string summary;
};

// Each word once, with the summary of its first topic.
std::vector<WordSummary> words() {
  std::vector<WordSummary> result;
  for (const Topic& topic : Guide::topics()) {
    for (const std::string& word : topic.words) {
      if (std::ranges::find(result, word, &WordSummary::word) == result.end()) result.push_back({word, topic.summary});
    }
  }
  return result;
}

std::string texts(const std::vector<Choice>& choices) {
  std::vector<std::string> list;
  for (const Choice& choice : choices) list.push_back(choice.text);
  return fmt::format("{}", fmt::join(list, " "));
}

// For sh and zsh; fish wants other escapes.
std::string quoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? std::string{"'\\''"} : std::string{c};
  return result + "'";
}

std::string fishQuoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') result += '\\';
    result += c;
  }
  return result + "'";
}

// The pattern of a place in "word/position/word before".
std::string pattern(const Place& place) {
  return fmt::format("{}/{}/{}", place.word, place.position, place.after.empty() ? "*" : place.after);
}

constexpr char kBashHead[] = R"(# What bash offers after "tovi".
_tovi() {
  local current=${COMP_WORDS[COMP_CWORD]} word=${COMP_WORDS[1]} choices=
  if ((COMP_CWORD == 1)); then
    choices=')";

constexpr char kBashPlaces[] = R"('
  else
    case $word/$((COMP_CWORD - 1))/${COMP_WORDS[COMP_CWORD - 1]} in
)";

constexpr char kBashOptions[] = R"(    esac
    case $word in
)";

constexpr char kBashEnd[] = R"(    esac
  fi
  local IFS=$'\n'
  COMPREPLY=($(compgen -W "${choices// /$IFS}" -- "$current"))
)";

}  // namespace

std::string Pages::bashCompletion() {
  std::string page = kBashHead;
  std::vector<std::string> names;
  for (const WordSummary& row : words()) names.push_back(row.word);
  page += fmt::format("{}{}", fmt::join(names, " "), kBashPlaces);
  for (const Place& place : Guide::places()) {
    page += fmt::format("      {}) choices='{}' ;;\n", pattern(place), texts(place.choices));
  }
  page += kBashOptions;
  for (const std::string& name : names) {
    const auto options = Guide::options(name);
    if (!options.empty()) page += fmt::format("      {}) choices+=' {}' ;;\n", name, fmt::join(options, " "));
  }
  page += kBashEnd;
  page += fmt::format(
      "  [[ $word == {} ]] && ((COMP_CWORD > 1)) && COMPREPLY+=($(compgen -c -- \"$current\"))\n"
      "  return 0\n}}\ncomplete -F _tovi tovi\n",
      Guide::kRunsCommands);
  return page;
}

std::string Pages::zshCompletion() {
  std::string page = "#compdef tovi\n# What zsh offers after \"tovi\".\n\nlocal -a tovi_choices tovi_options\n";
  page += "if (( CURRENT == 2 )); then\n  tovi_choices=(\n";
  for (const WordSummary& row : words()) page += fmt::format("    {}\n", quoted(row.word + ":" + row.summary));
  page += "  )\n  _describe -t words 'word' tovi_choices\n  return\nfi\n";
  page += "case $words[2]/$(( CURRENT - 2 ))/$words[CURRENT-1] in\n";
  for (const Place& place : Guide::places()) {
    page += fmt::format("  {}) tovi_choices=(", pattern(place));
    for (const Choice& choice : place.choices) {
      page += " " + quoted(choice.about.empty() ? choice.text : choice.text + ":" + choice.about);
    }
    page += " ) ;;\n";
  }
  page += "esac\ncase $words[2] in\n";
  for (const WordSummary& row : words()) {
    const auto options = Guide::options(row.word);
    if (!options.empty()) page += fmt::format("  {}) tovi_options=( {} ) ;;\n", row.word, fmt::join(options, " "));
  }
  page += fmt::format(
      "esac\n(( $#tovi_choices )) && _describe -t choices 'choice' tovi_choices\n"
      "(( $#tovi_options )) && compadd -- $tovi_options\n"
      "[[ $words[2] == {} ]] && _command_names -e\nreturn 0\n",
      Guide::kRunsCommands);
  return page;
}

std::string Pages::fishCompletion() {
  std::string page = R"(# What fish offers after "tovi".

# Whether the cursor is at a place after a word: its number, and the word right before it if one is given.
function __tovi_at
    set -l typed (commandline -opc)
    test (count $typed) -eq (math $argv[2] + 1); or return 1
    test "$typed[2]" = $argv[1]; or return 1
    test (count $argv) -lt 3; or test "$typed[-1]" = $argv[3]
end

function __tovi_after
    set -l typed (commandline -opc)
    test (count $typed) -gt 1; and test "$typed[2]" = $argv[1]
end

complete -c tovi -f
)";
  const auto offer = [&](const std::string& when, const Choice& choice) {
    page += fmt::format("complete -c tovi -n '{}' -a {}", when, fishQuoted(choice.text));
    if (!choice.about.empty()) page += " -d " + fishQuoted(choice.about);
    page += "\n";
  };
  for (const WordSummary& row : words()) offer("test (count (commandline -opc)) -eq 1", {row.word, row.summary});
  for (const Place& place : Guide::places()) {
    std::string when = fmt::format("__tovi_at {} {}", place.word, place.position);
    if (!place.after.empty()) when += " " + place.after;
    for (const Choice& choice : place.choices) offer(when, choice);
  }
  for (const WordSummary& row : words()) {
    for (const std::string& option : Guide::options(row.word)) {
      offer(fmt::format("__tovi_after {}", row.word), {option});
    }
  }
  page += fmt::format("complete -c tovi -n '__tovi_after {}' -a '(__fish_complete_command)'\n", Guide::kRunsCommands);
  return page;
}

}  // namespace tovi
