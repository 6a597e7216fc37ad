// Finds the application that a person means: by path, by bundle identifier, by name, or by a part of a name.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovi {

struct Machine;

struct FoundApp {
  std::string name;  // as shown
  std::optional<std::string> bundleID;
  std::string path;  // of the bundle

  friend bool operator==(const FoundApp&, const FoundApp&) = default;
};

// The first hit of the ways above, in that order; part of a name only if exactly one running application has it.
std::optional<FoundApp> resolveApp(const Machine& machine, std::string_view text);

}  // namespace tovi
