// The switch that stops agents from asking, turned on and off over files that other programs wrote. The input is
// Claude's settings.json and, after a zero byte, Codex's config.toml.

#include <nlohmann/json.hpp>
#include <string>

#include "agents/AutoApprove.h"
#include "agents/CodexConfig.h"
#include "agents/LosslessJson.h"
#include "core/StateFiles.h"
#include "fuzz/Fuzz.h"
#include "platform/simulated/MemoryLaptop.h"

using namespace tovi;
using fuzz::must;

namespace {

struct Home {
  MemoryLaptop laptop;
  const StateFiles state{laptop.machine()};
  const std::string claude = laptop.surroundings().home + "/.claude/settings.json";
  const std::string codex = laptop.surroundings().home + "/.codex/config.toml";

  void fill(const std::string& path, std::string_view text) {
    text.empty() ? laptop.files().erase(path) : laptop.files().put(path, text);
  }
  std::string read(const std::string& path) { return laptop.files().read(path).value_or(""); }
};

// Permissions that became empty are taken away, so that those that were empty go too.
lossless::Object settings(const std::string& text) {
  auto object = lossless::parse(text.empty() ? "{}" : text).value_or(lossless::Object());
  must(object.is_object(), "settings are read again");
  if (const auto at = object.find("permissions"); at != object.end() && at->empty()) object.erase("permissions");
  return object;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Home home;
  std::string_view rest = fuzz::textOf(data, size);
  const std::string claude{fuzz::takeUpTo(rest, '\0')};
  const std::string codex{rest};
  home.fill(home.claude, claude);
  home.fill(home.codex, codex);
  home.laptop.files().erase(home.state.path("auto-approve.json"));

  const AutoApprove approve(home.laptop.machine(), home.state);
  if (approve.turnOn()) {
    must(home.read(home.claude) == claude && home.read(home.codex) == codex, "what can't be changed is left alone");
    must(!approve.isOn(), "a switch that was refused is off");
    return 0;
  }
  must(approve.isOn(), "the switch is on");
  must(topLevelLine(home.read(home.codex), "approval_policy") == "approval_policy = \"never\"", "Codex is told");
  must(settings(home.read(home.claude)).value("skipDangerousModePermissionPrompt", false), "Claude is told");
  const std::string on = home.read(home.codex);
  must(!approve.turnOn() && home.read(home.codex) == on, "turned on twice it changes nothing more");

  must(!approve.turnOff(), "what was turned on can be turned off");
  must(!approve.isOn(), "the switch is off");
  must(home.read(home.codex) == codex, "Codex's file has every byte again");
  must(settings(home.read(home.claude)) == settings(claude), "Claude's file says the same again");
  return 0;
}
