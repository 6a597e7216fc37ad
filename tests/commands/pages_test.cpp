// The completions and the manual page name exactly what the program has.

#include "commands/Pages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>

#include "commands/CLI.h"
#include "commands/Guide.h"
#include "commands/MCPTools.h"
#include "core/SettingsSchema.h"
#include "core/Text.h"
#include "linux/Helpers.h"

namespace tovi {
namespace {

using Texts = std::set<std::string>;

Texts allWords() {
  Texts words;
  for (const Guide::Topic& topic : Guide::topics()) words.insert(topic.words.begin(), topic.words.end());
  return words;
}

Texts with(Texts texts, const Texts& more) {
  texts.insert(more.begin(), more.end());
  return texts;
}

Texts valuesOf(std::string_view key) {
  const auto allowed = SettingsSchema::spec(key)->allowed;
  return {allowed.begin(), allowed.end()};
}

Texts allKeys() {
  Texts keys;
  for (const SettingSpec& spec : SettingsSchema::all()) keys.emplace(spec.key);
  return keys;
}

// What should be offered after some words; the last is what has been typed of the next.
struct Line {
  std::vector<std::string> words;
  Texts offered;
};

std::vector<Line> lines() {
  return {
      {{""}, allWords()},
      {{"preset", ""}, valuesOf("preset")},
      {{"set", ""}, allKeys()},
      {{"set", "appearance", ""}, valuesOf("appearance")},
      {{"set", "heat_guard", ""}, {"on", "off"}},
      {{"set", "battery_floor", ""}, {}},
      {{"rule", "Notes", ""}, {"leave", "slow", "pause", "default"}},
      {{"rule", ""}, {}},
      {{"hold", "--"}, {"--for", "--reason", "--pid"}},
      {{"status", ""}, {"--json"}},
      {{"connect", "c"}, {"claude", "codex", "claude-app"}},
      {{"power", "test", "--"}, {"--json", "--detailed", "--screen"}},
      {{"doctor", ""}, {}},
  };
}

class Shell : public testing::Test {
 protected:
  TemporaryFolder folder;

  std::string page(const char* name, const std::string& text) {
    put(folder / name, text);
    return folder / name;
  }
  // Lines that a command prints; fails the test if it fails.
  std::vector<std::string> run(const std::string& command) {
    std::FILE* pipe = popen(("HOME=" + (folder / "") + " " + command + " 2>&1").c_str(), "r");
    std::string text;
    char buffer[4096];
    while (const std::size_t got = fread(buffer, 1, sizeof buffer, pipe)) text.append(buffer, got);
    EXPECT_EQ(pclose(pipe), 0) << command << ": " << text;
    std::vector<std::string> result;
    for (const std::string_view line : text::pieces(text, "\n")) result.emplace_back(line);
    return result;
  }
  static bool has(const char* shell) {
    return std::system((std::string("command -v ") + shell + " >/dev/null 2>&1").c_str()) == 0;
  }
};

TEST(Guide, TellsOfEveryWordAndOfNoOther) {
  Texts told = allWords(), known;
  for (const std::string& word : allWords()) {
    for (const auto other : Guide::otherNames(word)) told.emplace(other);
  }
  for (const CLI::Vocable& vocable : CLI::vocabulary()) known.insert(vocable.names.begin(), vocable.names.end());
  EXPECT_EQ(with(told, {"-h", "--help"}), known);
  for (const Guide::Topic& topic : Guide::topics()) EXPECT_NE(topic.summary, "") << topic.synopsis;
  for (const Guide::Place& place : Guide::places()) EXPECT_FALSE(place.choices.empty()) << place.word;
}

TEST_F(Shell, BashOffersWhatTheTablesSay) {
  if (!has("bash")) GTEST_SKIP() << "there is no bash here";
  const std::string file = page("tovi.bash", Pages::bashCompletion());
  for (const Line& line : lines()) {
    std::string words = "tovi";
    for (const std::string& word : line.words) words += " '" + word + "'";
    const auto offered = run("bash -c 'source " + file + "; COMP_WORDS=(" + "\"$@\"" +
                             "); COMP_CWORD=" + std::to_string(line.words.size()) +
                             "; _tovi; printf \"%s\\n\" \"${COMPREPLY[@]}\"' bash " + words);
    EXPECT_EQ(Texts(offered.begin(), offered.end()), line.offered) << words;
  }
}

TEST_F(Shell, FishOffersWhatTheTablesSay) {
  if (!has("fish")) GTEST_SKIP() << "there is no fish here";
  const std::string file = page("tovi.fish", Pages::fishCompletion());
  for (const Line& line : lines()) {
    std::string typed = "tovi";
    for (const std::string& word : line.words) typed += " " + word;
    Texts offered;
    for (const std::string& row : run("fish -c 'source " + file + "; complete -C \"" + typed + "\"'")) {
      offered.insert(row.substr(0, row.find('\t')));
    }
    // It offers options only to somebody who has begun to type one, or where there is nothing else.
    const auto isOption = [](const std::string& text) { return text.starts_with('-'); };
    Texts expected = line.offered;
    if (!std::ranges::all_of(expected, isOption)) std::erase_if(expected, isOption);
    EXPECT_EQ(offered, expected) << typed;
  }
}

TEST_F(Shell, ZshReadsItsPageWhichHasEveryChoice) {
  const std::string text = Pages::zshCompletion();
  for (const std::string& word : with(allWords(), allKeys())) {
    EXPECT_NE(text.find("'" + word + ":"), std::string::npos) << word;
  }
  for (const Guide::Place& place : Guide::places()) {
    for (const Guide::Choice& choice : place.choices) EXPECT_NE(text.find("'" + choice.text), std::string::npos);
  }
  if (!has("zsh")) GTEST_SKIP() << "there is no zsh here to read it";
  run("zsh -n " + page("_tovi", text));
}

TEST_F(Shell, ManualNamesEveryWordSettingAndToolAndFormatsWithoutComplaint) {
  const std::string text = Pages::manual();
  const auto entries = [&] {
    Texts found;
    const auto rows = text::pieces(text, "\n");
    for (const std::string_view row : rows) {
      if (!row.starts_with("\\fB")) continue;
      std::string term{row.substr(3, row.find("\\fR") - 3)};
      std::erase(term, '\\');
      found.insert(term);
    }
    return found;
  }();
  Texts expected;
  for (const Guide::Topic& topic : Guide::topics()) expected.insert("tovi " + topic.synopsis);
  expected.merge(allKeys());
  for (const SettingList& list : SettingsSchema::lists()) expected.emplace(list.name);
  for (const MCPTools::Tool& tool : MCPTools::all()) expected.emplace(tool.name);
  for (const std::string& term : expected) EXPECT_TRUE(entries.contains(term)) << term;
  for (const std::string& term : entries) {
    EXPECT_TRUE(!term.starts_with("tovi") || expected.contains(term)) << term;
  }
  if (!has("groff")) GTEST_SKIP() << "there is no groff here to format it";
  EXPECT_EQ(run("groff -K utf8 -man -ww -z -T utf8 " + page("tovi.1", text)), std::vector<std::string>{});
}

}  // namespace
}  // namespace tovi
