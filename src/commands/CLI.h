// The command line tool: turns words into a command of the application and prints the reply. A few words work
// without the application, for the time when it is stuck or gone.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands/Client.h"

namespace tovi {

class Output;
struct Machine;

namespace CLI {

using Words = std::vector<std::string>;

// Whether a process with these arguments (its name first) is the command line tool and not the application.
bool shouldRun(const Words& arguments);

// What the tool is asked to do: the arguments without its name and without the word "cli".
Words wordsOf(const Words& arguments);

// What a run stands on.
struct Ground {
  std::function<const Machine&()> machine;  // asked for when a word needs one; printing help needs none
  Client::Sleep sleep;
  Output& output;
};

// The exit code: 0; 1 if the application refused or something couldn't be done; 2 for wrong usage; or what the
// program that `run` started ended with, 127 if it couldn't start.
int main(const Words& words, const Ground& ground);

// A word as it can be typed, with the options that go with it.
struct Vocable {
  std::vector<std::string_view> names;  // the first is the usual one
  std::vector<std::string_view> options;
};

// Every word that the tool knows.
std::vector<Vocable> vocabulary();

// The agents that `connect` knows.
std::vector<std::string_view> connectWords();

// The word after the first `name`; absent if `name` isn't there or is the last.
std::optional<std::string> flag(std::string_view name, const Words& words);

// Minutes, at most a week: "90" and "90m", "1h30m", "45s", "1.5h". Absent: not a duration, or none above zero.
std::optional<double> parseDuration(std::string_view text);

// Prints a reply for people, or as it is with `raw`; gives the exit code.
int show(const nlohmann::json& reply, bool raw, Output& output);

// The same for a power report: where the watts go, and what would cut them.
int showPower(const nlohmann::json& reply, bool raw, Output& output);

// Lists the settings that a reply describes, with what each does; a reply without any is shown as above.
int showSettings(const nlohmann::json& reply, Output& output);

}  // namespace CLI
}  // namespace tovi
