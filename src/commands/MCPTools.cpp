#include "commands/MCPTools.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/Arguments.h"
#include "commands/CLITexts.h"
#include "core/Json.h"
#include "core/Text.h"

namespace tovi::MCPTools {

namespace {

using Json = nlohmann::json;

constexpr double kUsualMinutes = 120;
constexpr double kMostMinutes = 7 * 24 * 60;

constexpr Seconds kUsual{8};
constexpr Seconds kEnergySample{10};
constexpr Seconds kMeasurement{20};

Json send(const Tool& tool, const Json& args, const Session& session) {
  return session.send(std::string{tool.command}, args, tool.timeout);
}

// A session can live for weeks with nothing to do, so its hold has an end of its own unless the agent named one.
Json keepAwake(const Tool& tool, const Json& asked, const Session& session) {
  Json args = asked;
  args["owner"] = session.agent;
  const bool limited = args.contains("pid") || Arguments(args).number("minutes", kMostMinutes);
  if (!limited) args["minutes"] = kUsualMinutes;
  return send(tool, args, session);
}

Json release(const Tool& tool, const Json& args, const Session& session) {
  const Json* id = json::member(args, "hold_id");
  if (id == nullptr) return session.send("release_pid", {{"pid", session.agent}}, tool.timeout);
  return send(tool, {{"id", *id}, {"pid", session.agent}}, session);
}

Json setupPrompt(const Tool&, const Json&, const Session&) {
  return {{"ok", true}, {"prompt", text::trimmed(CLITexts::kPrompt)}};
}

constexpr bool kRequired = true;

constexpr Tool kTools[] = {
    {"tovi_status",
     "Get Tovi's state: whether the Mac is being kept awake and why, lid open/closed, battery, estimated hours left "
     "with the lid closed, which agents/apps it's watching, active holds, and the apps using the most power.",
     "status"},
    {"tovi_keep_awake",
     "Keep the Mac awake, including with the lid closed, while you work. By default the hold ends when this Claude "
     "session ends or after 2 hours, whichever is first. Pass minutes for a fixed time, or pid to tie it to a process "
     "(e.g. a long build). Returns a hold id: call tovi_release as soon as the work is done. Battery limit and heat "
     "guard still apply.",
     "hold",
     {{{"reason", "string", "Short reason shown to the user, e.g. 'Training the model'", kRequired},
       {"minutes", "number", "Optional. End automatically after this many minutes."},
       {"pid", "integer", "Optional. End automatically when this process exits."}}},
     kUsual,
     keepAwake},
    {"tovi_release",
     "End a hold this session made with tovi_keep_awake so the Mac can sleep normally again. Omit hold_id to end all "
     "of this session's holds (never anyone else's).",
     "release_own",
     {{{"hold_id", "string", "Hold id to end"}}},
     kUsual,
     release},
    {"tovi_set_mode",
     "Set Tovi's mode. auto: stay awake only while agents/apps are working (recommended). always: stay awake "
     "regardless (optionally for some minutes). off: normal Mac sleep.",
     "mode",
     {{{"mode",
        "string",
        "off, auto (shown as When Busy: awake while agents work) or always",
        kRequired,
        {"off", "auto", "always"}},
       {"minutes", "number", "For always: how long"}}}},
    {"tovi_set_preset",
     "What happens to other apps while the lid is closed. max_battery: pause them until the lid opens (music, calls "
     "and services agents use keep running). balanced: slow them to efficiency cores. full_speed: leave them. "
     "Simulators, background audio and Low Power Mode are separate settings (tovi_settings).",
     "preset",
     {{{"preset",
        "string",
        "max_battery, balanced or full_speed",
        kRequired,
        {"max_battery", "balanced", "full_speed"}}}}},
    {"tovi_set_app_rule",
     "Choose what one app does while the lid is closed: leave (runs normally), slow (efficiency cores only, about 1/4 "
     "the power), pause (frozen until the lid opens), or default (remove the override and follow the preset). Apps "
     "Tovi is keeping awake are never slowed or paused.",
     "rule",
     {{{"app", "string", "App name or bundle id, e.g. 'Slack' or 'com.spotify.client'", kRequired},
       {"rule", "string", "leave, slow, pause or default", kRequired, {"leave", "slow", "pause", "default"}}}}},
    {"tovi_watch_app",
     "Add an app or command-line tool to Tovi's 'Keeps awake for' list, or remove it (remove: true). While it's busy "
     "the Mac stays awake with the lid closed. Use it for whatever the current task needs (e.g. add 'Google Chrome' "
     "while a browser task runs, remove it after). The reply includes the full list; tovi_status shows it too.",
     "watch",
     {{{"app", "string",
        "App name ('Google Chrome'), bundle id ('com.google.Chrome'), .app path, or executable name ('ffmpeg')",
        kRequired},
       {"remove", "boolean", "true to remove it from the list"}}}},
    {"tovi_add_agent",
     "Teach Tovi a new command-line agent or tool by executable name, so it stays awake while that tool is working.",
     "agent",
     {{{"name", "string", "Display name", kRequired},
       {"executable", "string", "Process executable name, e.g. 'my-agent'", kRequired},
       {"idle_watts", "number", "Below this power the tool counts as idle (default 0.05)"},
       {"remove", "boolean", "Forget it"}}}},
    {"tovi_settings",
     "List every Tovi setting with its current value, allowed values, what it does and any safety rule. Read this "
     "before changing settings.",
     "schema"},
    {"tovi_set_setting",
     "Change one setting (see tovi_settings for all keys and what they do). Safety settings can only be made stricter "
     "from here: battery_floor can only go up and heat_guard can only be turned on. Ask the person before turning "
     "lock_on_close on (it brings back the lock screen).",
     "set",
     {{{"key", "string", "Setting key", kRequired},
       {"value", "string", "New value, e.g. '20', 'on', 'off', 'max_battery'", kRequired}}}},
    {"tovi_power",
     "Whole-Mac power right now (measured from the battery controller, also on the charger) and a list of what is "
     "using it with the setting that would cut each: screen kept on while closed, booted simulators and Xcode "
     "previews, apps holding the speakers, busy apps, Low Power Mode. Includes savings measured by tovi_power_test.",
     "power",
     {},
     kEnergySample},
    {"tovi_power_test",
     "With the lid closed: switch all of Tovi's savings off, on, off, on and read the whole-Mac power over full 30 s "
     "updates of the battery controller, so you know what they're worth on this Mac (reported as unclear if the Mac's "
     "own load moved too much). About 4 minutes; agents keep running. detailed: true adds each saving on its own "
     "(about 12 minutes). Returns at once; call tovi_power afterwards (power_test: done). screen: true includes "
     "turning the screen off, which locks the Mac: ask the person first.",
     "power_test",
     {{{"detailed", "boolean", "Also measure each saving on its own (about 12 minutes). Default false."},
       {"screen", "boolean", "Also measure the screen (locks the Mac). Default false."}}}},
    {"tovi_setup_prompt",
     "The recommended steps for setting Tovi up with the person. Use when asked to set up or tune Tovi.",
     "",
     {},
     kUsual,
     setupPrompt},
    {"tovi_energy", "List the apps using the most power right now and what each will do while the lid is closed.",
     "energy"},
    {"tovi_measure_savings",
     "Estimate how much power the current while-closed rules save: slows/pauses the same apps for a few seconds and "
     "compares the energy macOS attributes to them before and after. A rough, short-window estimate.",
     "measure",
     {},
     kMeasurement},
    {"tovi_get_config",
     "Read Tovi's full settings and the path of its config.json, which can also be edited directly (it reloads "
     "instantly).",
     "config"},
};

Json prop(const Parameter& parameter) {
  Json property{{"type", parameter.type}, {"description", parameter.description}};
  for (const std::string_view choice : parameter.choices) {
    if (!choice.empty()) property["enum"].push_back(choice);
  }
  return property;
}

}  // namespace

Json Tool::schema() const {
  Json properties = Json::object(), required = Json::array();
  for (const Parameter& parameter : parameters) {
    if (parameter.name.empty()) break;
    properties[std::string{parameter.name}] = prop(parameter);
    if (parameter.required) required.push_back(parameter.name);
  }
  return {{"type", "object"}, {"properties", std::move(properties)}, {"required", std::move(required)}};
}

Json Tool::call(const Json& args, const Session& session) const {
  Json known = Json::object();
  for (const Parameter& parameter : parameters) {
    const Json* value = json::member(args, parameter.name);
    if (!parameter.name.empty() && value != nullptr && !value->is_null()) known[std::string{parameter.name}] = *value;
  }
  return run != nullptr ? run(*this, known, session) : send(*this, known, session);
}

std::span<const Tool> all() { return kTools; }

const Tool* find(std::string_view name) {
  const auto tool = std::ranges::find(kTools, name, &Tool::name);
  return tool != std::end(kTools) ? &*tool : nullptr;
}

}  // namespace tovi::MCPTools
