// Commands about other applications: the preset, rules for single ones, and the lists of those that are watched.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/AppLookup.h"
#include "commands/CommandCall.h"
#include "core/Text.h"
#include "engine/Engine.h"

namespace tovi {

namespace {

constexpr double kMostIdleWatts = 1000000;
constexpr std::size_t kLongestToolName = 64;

void answerWatch(const CommandCall& call, const char* what, const std::string& name) {
  nlohmann::json names = nlohmann::json::array();
  for (const WatchedApp& app : call.engine.config->watchedApps) names.push_back(app.name);
  call.succeed({{what, name}, {"watch_list", std::move(names)}});
}

// The entry that a person means who wants it off the list.
const WatchedApp* entryNamed(const std::vector<WatchedApp>& list, std::string_view text) {
  const std::string name = text::folded(text);
  const auto at = std::ranges::find_if(list, [&](const WatchedApp& app) {
    return text::folded(app.name) == name || app.id == text ||
           text::folded(text::lastPathComponent(app.id)) == name + ".app";
  });
  return at != list.end() ? &*at : nullptr;
}

}  // namespace

void handlers::preset(const Arguments& args, const CommandCall& call) {
  const auto preset = parsePreset(args.text("preset").value_or(""));
  if (!preset) return call.fail("preset must be max_battery, balanced or full_speed");
  call.engine.setPreset(*preset);
  call.succeed();
}

void handlers::rule(const Arguments& args, const CommandCall& call) {
  Engine& engine = call.engine;
  const auto text = args.text("app");
  const auto app = resolveApp(engine.machine(), text.value_or(""));
  if (!app) return call.fail("Couldn't find an app called " + text.value_or("?"));
  if (!app->bundleID) return call.fail(app->name + " has no bundle id");
  const std::string word = text::lowercased(args.text("rule").value_or(""));
  if (word == "default" || word == "reset") {
    Config next = engine.config;
    next.appRules.erase(*app->bundleID);
    engine.apply(std::move(next), true);
    const std::string applies{rawValue(engine.rule(app->bundleID, engine.config->preset))};
    return call.succeed({{"app", app->name}, {"rule", applies + " (preset default)"}});
  }
  const auto rule = fromRawValue<AppRule>(word);
  if (!rule) return call.fail("rule must be leave, slow, pause or default");
  engine.setRule(*rule, *app->bundleID);
  call.succeed({{"app", app->name}, {"rule", word}});
}

void handlers::watch(const Arguments& args, const CommandCall& call) {
  Engine& engine = call.engine;
  const std::string given = args.text("app").value_or("");
  const std::string text{text::trimmed(given)};
  if (text.empty()) return call.fail("needs app");
  const bool remove = args.flag("remove").value_or(false);
  if (remove) {
    if (const WatchedApp* entry = entryNamed(engine.config->watchedApps, text)) {
      const WatchedApp app = *entry;
      engine.removeWatched(app);
      return answerWatch(call, "removed", app.name);
    }
  }
  WatchedApp app{text, text};
  if (const auto found = resolveApp(engine.machine(), text)) {
    app = {found->path, found->name};
  } else if (text.find('/') != std::string::npos || text::firstCharacters(text, kLongestToolName) != text) {
    return call.fail("Couldn't find " + text);
  }
  if (!remove) {
    engine.addWatched(app);
    return answerWatch(call, "added", app.name);
  }
  const auto& list = engine.config->watchedApps;
  if (std::ranges::find(list, app) == list.end()) return call.fail(app.name + " isn't on the list");
  engine.removeWatched(app);
  answerWatch(call, "removed", app.name);
}

void handlers::agent(const Arguments& args, const CommandCall& call) {
  const auto name = args.text("name");
  const auto executable = args.text("executable");
  const bool remove = args.flag("remove").value_or(false);
  const bool empty = !name || !executable || (!remove && (name->empty() || executable->empty()));
  if (empty) return call.fail("needs name and executable");
  Config next = call.engine.config;
  std::erase_if(next.customAgents, [&](const CustomAgent& agent) { return agent.name == *name; });
  if (!remove) {
    next.customAgents.push_back({*name, {*executable}, args.number("idle_watts", kMostIdleWatts)});
  }
  call.engine.apply(std::move(next), true);
  call.succeed();
}

}  // namespace tovi
