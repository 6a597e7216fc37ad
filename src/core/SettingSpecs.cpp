// The table of the public settings, and how each takes a value.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>

#include "core/Config.h"
#include "core/Json.h"
#include "core/SettingsSchema.h"
#include "core/Text.h"
#include "core/TopicName.h"

namespace tovi {

namespace {

using json::Value;
using Refusal = SettingSpec::Refusal;

constexpr Refusal kTaken = std::nullopt;
constexpr std::string_view kOnOrOff = "on or off";
constexpr std::string_view kOnlyOn = "to be turned off in Tovi's Settings (it can only be turned on from here)";

Value shown(bool value) { return value; }
Value shown(int value) { return value; }
Value shown(const std::string& value) { return value; }
Value shown(Preset value) { return publicName(value); }
template <class Enum>
requires std::is_enum_v<Enum> Value shown(Enum value) { return rawValue(value); }

template <auto field>
Value get(const Config& config) {
  return shown(config.*field);
}

template <bool Config::*field>
Refusal setFlag(Config& config, const Value& value) {
  const auto flag = SettingsSchema::boolean(value);
  if (!flag) return kOnOrOff;
  config.*field = *flag;
  return kTaken;
}

Refusal setHeatGuard(Config& config, const Value& value) {
  const auto flag = SettingsSchema::boolean(value);
  if (!flag) return kOnOrOff;
  if (!*flag) return kOnlyOn;
  config.heatGuard = true;
  return kTaken;
}

Refusal setOnlyOnPower(Config& config, const Value& value) {
  const auto flag = SettingsSchema::boolean(value);
  if (!flag) return kOnOrOff;
  if (!*flag && config.onlyOnPower) return kOnlyOn;
  config.onlyOnPower = *flag;
  return kTaken;
}

Refusal setMode(Config& config, const Value& value) {
  const auto mode = parseMode(json::asText(value).value_or(""));
  if (!mode) return "auto, on or off";
  if (*mode != Mode::on) {
    config.modeBeforeAlways.reset();
  } else if (config.mode != Mode::on) {
    config.modeBeforeAlways = config.mode;
  }
  config.alwaysUntil.reset();
  config.mode = *mode;
  return kTaken;
}

Refusal setPreset(Config& config, const Value& value) {
  const auto preset = parsePreset(json::asText(value).value_or(""));
  if (!preset) return "max_battery, balanced or full_speed";
  config.preset = *preset;
  return kTaken;
}

Refusal setCheckInMinutes(Config& config, const Value& value) {
  const int minutes = SettingsSchema::integer(value).value_or(-1);
  if (minutes != 0 && minutes != 15 && minutes != 30 && minutes != 60) return "0, 15, 30 or 60";
  config.checkInMinutes = minutes;
  return kTaken;
}

Refusal setQuietMinutes(Config& config, const Value& value) {
  const auto minutes = SettingsSchema::integer(value);
  if (!minutes) return "a number 1-240";
  config.quietMinutes = std::clamp(*minutes, 1, 240);
  return kTaken;
}

Refusal setBatteryFloor(Config& config, const Value& value) {
  const auto percent = SettingsSchema::integer(value);
  if (!percent) return "a number 0-80";
  const int floor = std::clamp(*percent, 0, Config::kMostBatteryFloor);
  if (floor < config.batteryFloor) return "to be lowered in Tovi itself (it can only be raised from here)";
  config.batteryFloor = floor;
  return kTaken;
}

Refusal setNtfyTopic(Config& config, const Value& value) {
  std::string words = json::asText(value).value_or("");
  if (const auto number = json::asInteger(value)) {
    words = std::to_string(*number);
  } else if (!value.is_string()) {
    words = json::compact(value);
  }
  const std::string_view topic = text::trimmed(words);
  // Who sends null means no topic at all; alerts must not go to the public topic of that name.
  if (value.is_null() || !(topic.empty() || isTopicName(topic))) return "letters, numbers, - and _ (max 64)";
  config.ntfyTopic = topic;
  return kTaken;
}

// Raw values letter for letter.
template <class Enum>
bool setRaw(Enum& field, const Value& value) {
  const auto choice = fromRawValue<Enum>(json::asText(value).value_or(""));
  if (choice) field = *choice;
  return choice.has_value();
}

Refusal setMenuBarText(Config& config, const Value& value) {
  return setRaw(config.menuBarText, value) ? kTaken : "none, battery, watts, timeLeft, timer";
}

Refusal setAppearance(Config& config, const Value& value) {
  return setRaw(config.appearance, value) ? kTaken : "system, light or dark";
}

constexpr std::string_view kOnOff[] = {"on", "off"};
constexpr std::string_view kModes[] = {"auto", "on", "off"};
constexpr std::string_view kPresets[] = {"max_battery", "balanced", "full_speed"};
constexpr std::string_view kCheckIns[] = {"0", "15", "30", "60"};
constexpr std::string_view kPercent[] = {"0-80"};
constexpr std::string_view kMinutes[] = {"1-240"};
constexpr std::string_view kMenuBarTexts[] = {"none", "battery", "watts", "timeLeft", "timer"};
constexpr std::string_view kAppearances[] = {"system", "light", "dark"};

constexpr std::string_view kWhenAwake = "When to stay awake";
constexpr std::string_view kLidClosed = "While the lid is closed";
constexpr std::string_view kAsleep = "While asleep";
constexpr std::string_view kSafety = "Safety";
constexpr std::string_view kNotifications = "Notifications";
constexpr std::string_view kAppearance = "Appearance";

template <bool Config::*field>
constexpr SettingSpec toggle(std::string_view key, std::string_view category, std::string_view description) {
  return {.key = key,
          .type = "bool",
          .allowed = kOnOff,
          .category = category,
          .description = description,
          .get = get<field>,
          .set = setFlag<field>};
}

constexpr SettingSpec kSpecs[] = {
    {.key = "mode",
     .type = "enum",
     .allowed = kModes,
     .category = kWhenAwake,
     .description = "auto (shown as When Busy): awake only while an agent or watched app is working. on (Always): "
                    "awake until turned off. off: normal sleep (explicit holds still work).",
     .get = get<&Config::mode>,
     .set = setMode},
    {.key = "preset",
     .type = "enum",
     .allowed = kPresets,
     .category = kLidClosed,
     .description = "What happens to other apps with the lid shut. max_battery: pause them (music, calls and services "
                    "agents use keep going). balanced: slow them to efficiency cores. full_speed: leave them.",
     .get = get<&Config::preset>,
     .set = setPreset},
    toggle<&Config::pauseSimulators>("pause_simulators", kLidClosed,
                                     "Freeze booted iOS simulators and Xcode previews until the lid opens. Skipped "
                                     "while xcodebuild or UI tests run."),
    toggle<&Config::screenOffNoLock>(
        "screen_off", kLidClosed,
        "Switch the built-in screen fully off while the lid is closed without sleeping it, so there is no lock screen. "
        "Experimental: if macOS refuses, or locks the Mac anyway (some Macs do), Tovi switches back to the dark screen "
        "by itself and turns this off. Ignored when lock_on_close is on."),
    toggle<&Config::shutDownSimulators>(
        "shut_down_simulators", kLidClosed,
        "Shut booted simulators down when the lid closes instead of pausing them. Frees all their memory and power; "
        "they don't come back by themselves. Skipped while tests run."),
    toggle<&Config::pauseBackgroundAudio>(
        "pause_background_audio", kLidClosed,
        "Freeze background processes that hold the speakers open (keeps the audio hardware powered even when silent). "
        "Music and call apps are never touched."),
    {.key = "check_in_minutes",
     .type = "enum",
     .allowed = kCheckIns,
     .category = kAsleep,
     .description = "With the lid shut and the Mac asleep, wake it every this many minutes for about 25 seconds to "
                    "pick up a wake sent from the phone, then sleep again. 0 = off. Costs a little battery per "
                    "check-in; a fully shut-down Mac can't be woken.",
     .get = get<&Config::checkInMinutes>,
     .set = setCheckInMinutes},
    toggle<&Config::slowBuildsWhileClosed>(
        "slow_builds", kLidClosed,
        "Experimental: run the agent's build tools (compilers, linkers, cargo, xcodebuild, make) on the efficiency "
        "cores. Builds take several times longer; it saves power per second but not always energy per build."),
    toggle<&Config::pauseTimeMachine>(
        "pause_time_machine", kLidClosed,
        "Pause Time Machine's automatic backups while the lid is closed (every file an agent changes queues backup "
        "work); they switch back on when the lid opens."),
    toggle<&Config::lowPowerWhileClosed>(
        "low_power", kLidClosed,
        "Turn on Low Power Mode while the lid is closed; your setting comes back when it opens."),
    {.key = "lock_on_close",
     .type = "bool",
     .allowed = kOnOff,
     .category = kLidClosed,
     .description = "on: the screen turns fully off (the biggest single saving, but macOS asks for your password when "
                    "you open the lid). off: the screen stays on at zero brightness so there is no lock screen.",
     .note = "Ask the person before turning this on: it changes what they see when they open the lid.",
     .get = get<&Config::lockOnClose>,
     .set = setFlag<&Config::lockOnClose>},
    {.key = "battery_floor",
     .type = "int",
     .allowed = kPercent,
     .category = kSafety,
     .description = "Sleep when the battery reaches this percent (0 = never stop for battery).",
     .note = "Can only be raised from commands; lowering it is the person's call in Tovi's Settings.",
     .get = get<&Config::batteryFloor>,
     .set = setBatteryFloor},
    {.key = "heat_guard",
     .type = "bool",
     .allowed = kOnOff,
     .category = kSafety,
     .description = "With the lid shut: strictest rules when the Mac gets hot, sleep if it stays hot for 5 minutes or "
                    "gets critical.",
     .note = "Can only be turned on from commands.",
     .get = get<&Config::heatGuard>,
     .set = setHeatGuard},
    {.key = "only_on_power",
     .type = "bool",
     .allowed = kOnOff,
     .category = kSafety,
     .description = "Only stay awake while the charger is covering the load.",
     .note = "Can only be turned on from commands.",
     .get = get<&Config::onlyOnPower>,
     .set = setOnlyOnPower},
    {.key = "quiet_minutes",
     .type = "int",
     .allowed = kMinutes,
     .category = kWhenAwake,
     .description = "In auto mode, sleep after an agent has been quiet this many minutes.",
     .get = get<&Config::quietMinutes>,
     .set = setQuietMinutes},
    toggle<&Config::sleepWhenDone>("sleep_when_done", kWhenAwake,
                                   "In auto mode, let the Mac sleep once the work stops."),
    toggle<&Config::countClaudeApp>("claude_app", kWhenAwake,
                                    "Count the Claude app (Cowork, computer use) as an agent."),
    toggle<&Config::countRequests>("downloads", kWhenAwake,
                                   "Count apps that ask macOS to stay awake (downloads, exports, builds)."),
    toggle<&Config::notifyDone>("notify_done", kNotifications, "Notification when an agent that was busy goes idle."),
    toggle<&Config::doneChime>("done_chime", kNotifications, "Play a sound as well (audible with the lid shut)."),
    {.key = "ntfy_topic",
     .type = "string",
     .category = kNotifications,
     .description = "pushrelay topic for phone alerts when work goes idle; empty turns them off.",
     .get = get<&Config::ntfyTopic>,
     .set = setNtfyTopic},
    {.key = "menubar",
     .type = "enum",
     .allowed = kMenuBarTexts,
     .category = kAppearance,
     .description = "Text next to the menu bar icon.",
     .get = get<&Config::menuBarText>,
     .set = setMenuBarText},
    toggle<&Config::liveLidIcon>("live_lid_icon", kAppearance, "The menu bar icon's lid follows the real lid angle."),
    toggle<&Config::notchIsland>("notch_island", kAppearance, "Short announcements in a notch island."),
    toggle<&Config::showInDock>("show_in_dock", kAppearance, "Show Tovi in the Dock."),
    toggle<&Config::hotkey>("hotkey", kAppearance, "⌃⌥⌘A cycles the mode."),
    {.key = "appearance",
     .type = "enum",
     .allowed = kAppearances,
     .category = kAppearance,
     .description = "Light, dark or match the system.",
     .get = get<&Config::appearance>,
     .set = setAppearance},
};

constexpr SettingList kLists[] = {
    {"app_rules", "tovi rule <app> leave|slow|pause|default  (MCP: tovi_set_app_rule)",
     "Per-app override of the preset while the lid is closed."},
    {"watched_apps", "tovi watch <app> / tovi unwatch <app>  (MCP: tovi_watch_app)",
     "Apps or tools that keep the Mac awake while busy."},
    {"custom_agents", "MCP: tovi_add_agent", "Command-line agents Tovi doesn't know yet, by executable name."},
    {"track_only", "phone panel or menu", "Agents shown but not keeping the Mac awake."},
};

}  // namespace

std::span<const SettingSpec> SettingsSchema::all() { return kSpecs; }
std::span<const SettingList> SettingsSchema::lists() { return kLists; }

}  // namespace tovi
