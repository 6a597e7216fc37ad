// What there is to tell about the command line tool, gathered from its own tables: for its manual page and for what a
// shell offers while somebody types.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tovi::Guide {

// One thing that the tool does.
struct Topic {
  std::vector<std::string> words;  // those that select it
  std::string synopsis;            // what is typed after "tovi"
  std::string summary;
};

// In the order of the usage text, then those that only the manual page names.
std::vector<Topic> topics();

// The other names of a word, such as "wake_at" of "wake-at".
std::vector<std::string_view> otherNames(std::string_view word);

// What may stand at a place.
struct Choice {
  std::string text;
  std::string about = {};  // a few words; may be empty
};
struct Place {
  std::string word;      // after this first word
  std::size_t position;  // counted from 1
  std::string after;     // and right after this one; empty: any
  std::vector<Choice> choices;
};

// The more particular ones first.
std::vector<Place> places();

// The options of a word.
std::vector<std::string> options(std::string_view word);

// The word after which a command of the system is typed.
inline constexpr std::string_view kRunsCommands = "run";

}  // namespace tovi::Guide
