// Reads the one line of shell text that set-up hands to the elevation dialog, so that the simulated laptop can
// carry out its steps itself instead of giving them to a shell.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovi {

// The commands that "&&" joins, each as its words, with single and double quotes and backslashes taken off. Absent
// for anything that a shell would do more with: other operators, expansions, an unclosed quote, an empty command.
std::optional<std::vector<std::vector<std::string>>> splitShellLine(std::string_view text);

}  // namespace tovi
