#include "soak/Requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "commands/CLI.h"
#include "commands/Client.h"
#include "commands/CommandCenter.h"
#include "commands/MCPTools.h"
#include "commands/Output.h"
#include "commands/Wire.h"
#include "core/Json.h"
#include "platform/Broadcast.h"
#include "soak/World.h"

namespace tovi::soak {

namespace {

using Json = nlohmann::json;

constexpr int kMostHolds = 12;

struct Asked {
  std::string command;
  Json args = Json::object();
};

// A process that a request can name: of those that run, or none at all.
Pid someone(World& world) {
  constexpr Part kParts[] = {Part::agent, Part::tool, Part::application, Part::helper, Part::shell};
  const Pid pid = world.random.chance(0.9) ? world.cast.any(world.random.pick(kParts)) : 1;
  return pid == 0 ? 1 : pid;
}

Asked hold(World& world) {
  // Too many at once, and none without an end would ever matter.
  if (world.engine() != nullptr && world.engine()->holds->size() >= kMostHolds) return {"release"};
  Asked asked{"hold"};
  asked.args["reason"] = "work";
  const bool bound = world.random.chance(0.4), owned = world.random.chance(0.3);
  if (bound) asked.args["pid"] = someone(world);
  if (owned) asked.args["owner"] = someone(world);
  if (!(bound || owned) || world.random.chance(0.5)) asked.args["minutes"] = world.random.whole(1, 60);
  ++world.counts.holds;
  return asked;
}

Asked setting(World& world) {
  constexpr const char* kFlags[] = {
      "pause_simulators", "screen_off",    "shut_down_simulators", "pause_background_audio",
      "slow_builds",      "low_power",     "pause_time_machine",   "lock_on_close",
      "heat_guard",       "only_on_power", "sleep_when_done",      "claude_app",
      "downloads",        "notify_done"};
  Asked asked{"set"};
  if (world.random.chance(0.7)) {
    asked.args = {{"key", world.random.pick(kFlags)}, {"value", world.random.chance(0.5) ? "on" : "off"}};
    // Or almost nothing would ever stay awake on the battery.
    if (asked.args["key"] == "only_on_power" && world.random.chance(0.9)) asked.args["value"] = "off";
  } else if (world.random.chance(0.5)) {
    asked.args = {{"key", "quiet_minutes"}, {"value", world.random.whole(1, 10)}};
  } else if (world.random.chance(0.5)) {
    asked.args = {{"key", "battery_floor"}, {"value", world.random.whole(0, 25)}};
  } else {
    constexpr int kCheckIns[] = {0, 0, 15, 30, 60, 7};
    asked.args = {{"key", "check_in_minutes"}, {"value", world.random.pick(kCheckIns)}};
  }
  return asked;
}

Asked mode(World& world) {
  constexpr const char* kModes[] = {"auto", "auto", "auto", "auto", "off", "always", "sideways"};
  Asked asked{"mode", {{"mode", world.random.pick(kModes)}}};
  if (world.random.chance(0.8)) asked.args["minutes"] = world.random.whole(1, 60);
  return asked;
}

Asked preset(World& world) {
  constexpr const char* kPresets[] = {"max_battery", "max_battery", "balanced", "full_speed"};
  return {"preset", {{"preset", world.random.pick(kPresets)}}};
}

Asked rule(World& world) {
  constexpr const char* kRules[] = {"leave", "slow", "pause", "default"};
  return {"rule", {{"app", world.random.pick(kAppKinds).name}, {"rule", world.random.pick(kRules)}}};
}

Asked watch(World& world) {
  const std::string app = world.random.chance(0.5) ? world.random.pick(kAppKinds).name : "ffmpeg";
  return {"watch", {{"app", app}, {"remove", world.random.chance(0.6)}}};
}

Asked track(World& world) {
  constexpr const char* kAgents[] = {"claude-code", "codex", "gemini", "aider"};
  return {"track", {{"agent", world.random.pick(kAgents)}, {"keeps", world.random.chance(0.7)}}};
}

Asked wakeAt(World& world) {
  if (world.random.chance(0.3)) return {"wake_at", {{"time", "off"}}};
  return {"wake_at",
          {{"time", fmt::format("{:02}:{:02}", world.random.whole(0, 24), world.random.whole(0, 59))},
           {"minutes", world.random.whole(5, 30)}}};
}

Asked release(World& world) {
  Asked asked{"release"};
  if (world.engine() != nullptr && !world.engine()->holds->empty() && world.random.chance(0.7)) {
    asked.args["id"] = world.random.pick(*world.engine()->holds).id;
  }
  return asked;
}

Asked releaseFor(World& world) { return {"release_pid", {{"pid", someone(world)}}}; }
Asked wake(World& world) { return {"wake", {{"minutes", world.random.whole(1, 40)}}}; }
Asked sleepNow(World&) { return {"sleep_now"}; }
Asked powerTest(World& world) {
  return {"power_test", {{"detailed", world.random.chance(0.3)}, {"screen", world.random.chance(0.2)}}};
}
Asked measure(World&) { return {"measure"}; }
Asked customAgent(World& world) {
  return {"agent", {{"name", "Mine"}, {"executable", "rg"}, {"remove", world.random.chance(0.5)}}};
}
Asked look(World& world) {
  constexpr const char* kLooks[] = {"status", "energy", "config", "schema", "power", "panel", "settings", "open"};
  return {world.random.pick(kLooks)};
}
Asked loosen(World&) { return {"override_floor", {{"on", true}}}; }
Asked nonsense(World& world) {
  constexpr const char* kNames[] = {"hold", "set", "mode", "wake_at", "rule", "watch", "release_own", "unheard of"};
  constexpr const char* kArgs[] = {"null",
                                   "[]",
                                   "{\"pid\": 1e300}",
                                   "{\"minutes\": \"nan\", \"pid\": -1}",
                                   "{\"key\": \"battery_floor\", \"value\": -5}",
                                   "{\"time\": 12}"};
  return {world.random.pick(kNames), Json::parse(world.random.pick(kArgs))};
}

constexpr struct {
  int share;
  Asked (*ask)(World&);
} kAsked[] = {{6, hold},      {5, setting}, {4, mode},        {4, preset},     {3, rule},   {2, watch},
              {2, track},     {2, wakeAt},  {4, release},     {1, releaseFor}, {1, wake},   {1, sleepNow},
              {2, powerTest}, {2, measure}, {1, customAgent}, {6, look},       {1, loosen}, {1, nonsense}};

Asked anything(World& world) {
  int at = 0;
  for (const auto& row : kAsked) at += row.share;
  at = world.random.whole(1, at);
  for (const auto& row : kAsked) {
    if ((at -= row.share) <= 0) return row.ask(world);
  }
  return {"status"};
}

std::string words(const Asked& asked) { return asked.command + " " + json::compact(asked.args); }

struct Nowhere final : Output {
  void print(std::string_view) override {}
  void printError(std::string_view) override {}
  bool isTerminal() const override { return false; }
};

// The way of another process to the application; its time passes for everybody.
Client::Sleep waiting(World& world) {
  return [&world](Seconds span) { world.pass(span.count()); };
}

}  // namespace

void requests::command(World& world) {
  const Asked asked = anything(world);
  if (!world.app) return;
  world.tell(words(asked));
  world.inApp([&] { world.app->commands()->handle(asked.command, asked.args, [](const Json&) {}); });
}

void requests::broadcast(World& world) {
  const Asked asked = anything(world);
  const std::string id = fmt::format("{:08X}", world.random.whole(0, 1 << 30));
  world.tell("a request comes: " + words(asked));
  std::string text = Wire::request(id, asked.command, asked.args);
  if (world.random.chance(0.1)) text.resize(text.size() / 2);
  world.laptop.machine().broadcast.post(text);
  world.pass(world.random.real(0, 1));
  // Who asked takes the answer with it, or has given up.
  if (world.random.chance(0.3)) world.laptop.files().erase(Wire::replyPath(world.laptop.machine(), world.state, id));
}

void requests::commandLine(World& world) {
  static const CLI::Words kLines[] = {{"status"},
                                      {"hold", "--for", "20m"},
                                      {"hold", "--for=45s", "--reason", "tests"},
                                      {"release"},
                                      {"preset", "balanced"},
                                      {"preset", "max_battery"},
                                      {"on", "--for", "30m"},
                                      {"auto"},
                                      {"off"},
                                      {"sleep"},
                                      {"wake-at", "07:00", "--for", "20m"},
                                      {"check-in", "15"},
                                      {"set", "battery_floor", "10"},
                                      {"rule", "Notes", "pause"},
                                      {"unwatch", "ffmpeg"},
                                      {"doctor"},
                                      {"energy"},
                                      {"rescue"}};
  const CLI::Words& line = world.random.pick(kLines);
  world.tell("tovi " + line[0]);
  Nowhere nowhere;
  world.aside([&] {
    CLI::main(line, {.machine = [&]() -> const Machine& { return world.laptop.machine(); },
                     .sleep = waiting(world),
                     .output = nowhere});
  });
}

void requests::agentTool(World& world) {
  const Pid agent = world.cast.any(Part::agent);
  if (agent == 0) return;
  constexpr std::pair<const char*, const char*> kCalls[] = {
      {"tovi_status", "{}"},
      {"tovi_keep_awake", "{\"minutes\": 15}"},
      {"tovi_keep_awake", "{\"reason\": \"training\"}"},
      {"tovi_release", "{}"},
      {"tovi_set_setting", "{\"key\": \"heat_guard\", \"value\": \"off\"}"},
      {"tovi_set_app_rule", "{\"app\": \"Notes\", \"rule\": \"pause\"}"},
      {"tovi_power", "{}"}};
  const auto& [name, args] = world.random.pick(kCalls);
  world.tell(fmt::format("agent {} calls {} {}", agent, name, args));
  world.aside([&] {
    const Client client(world.laptop.machine(), world.state, waiting(world));
    const MCPTools::Session session{agent, [&](const std::string& command, const Json& given, Seconds timeout) {
                                      return client.sendWithin(command, given, timeout);
                                    }};
    (void)MCPTools::find(name)->call(Json::parse(args), session);
  });
}

void requests::phone(World& world) {
  Asked asked = anything(world);
  world.tell("the phone: " + words(asked));
  ++world.counts.phone;
  const double late = world.random.chance(0.9) ? 0 : world.random.real(0, 4000);
  const Json inner{{"n", fmt::format("n{}", ++world.phoneIds)},
                   {"cmd", asked.command},
                   {"args", asked.args},
                   {"t", unixSeconds(world.laptop.now()) - late}};
  if (world.lastSealed.empty() || !world.random.chance(0.1)) {  // else the last one once more
    world.lastSealed = *RemoteCrypto::seal(json::compact(inner), world.key, world.topics.cmd);
  }
  world.relay.publish(world.topics.cmd, world.lastSealed);
}

void requests::handEdit(World& world) {
  const std::string path = world.state.path("config.json");
  auto config = json::parseObject(world.state.read("config.json").value_or("{}")).value_or(Json::object());
  std::string text;
  switch (world.random.whole(0, 7)) {
    case 0:
      config["batteryFloor"] = world.random.whole(0, 20);
      break;
    case 1:
      config["heatGuard"] = false;
      break;
    case 2:
      config["batteryFloor"] = -3;
      config["heatGuard"] = false;
      break;
    case 3:
      config["preset"] = world.random.chance(0.5) ? "longest" : "balanced";
      config["screenOffNoLock"] = world.random.chance(0.6);
      break;
    case 4:
      config["mode"] = world.random.chance(0.7) ? "auto" : "on";
      config["onlyOnPower"] = false;
      config["alwaysUntil"] = unixSeconds(world.laptop.now()) + world.random.whole(-100, 3000);
      break;
    case 5:
      config["quietMinutes"] = "many";
      config["appRules"] = Json::array();
      config["wakeAt"] = 1e300;
      break;
    case 6:
      text = world.random.chance(0.5) ? "" : json::pretty(config).substr(0, 20);
      break;
    default:
      world.tell("config.json is deleted by hand");
      return world.laptop.files().erase(path);
  }
  if (text.empty()) text = json::pretty(config);
  world.tell("config.json is edited by hand: " + json::compact(config));
  world.laptop.files().put(path, text);
  // Copies of broken ones pile up until the person has seen them.
  for (const std::string& name : world.laptop.files().list(world.state.dir()).value_or(std::vector<std::string>{})) {
    if (name.starts_with("config.broken-")) world.laptop.files().erase(world.state.path(name));
  }
}

void requests::ownWindows(World& world) {
  if (!world.app) return;
  Engine& engine = *world.engine();
  world.inApp([&] {
    Config next = engine.config;
    switch (world.random.whole(0, 4)) {
      case 0:
        next.batteryFloor = world.random.whole(0, 20);
        next.heatGuard = world.random.chance(0.7);
        next.onlyOnPower = false;
        world.tell(fmt::format("in the windows: battery limit {}, heat guard {}", next.batteryFloor, next.heatGuard));
        world.loosened = Accepted{next.batteryFloor, next.heatGuard}.orLooser(world.loosened);
        return engine.apply(next, true);
      case 1:
        world.tell("in the menu: the battery limit is waived");
        world.waived = true;
        return engine.overrideFloor(true);
      case 2:
        world.tell("the hot key");
        return world.app->cycleMode();
      case 3:
        next.trackOnly.clear();
        next.watchedApps.clear();
        next.mode = Mode::automatic;
        world.tell("in the windows: all agents count, nothing else is watched");
        return engine.apply(next, true);
      default:
        world.tell("in the windows: awake until later");
        return engine.stayAwake(world.laptop.now() + world.random.real(60, 3600));
    }
  });
}

void requests::relayTrouble(World& world) {
  if (world.relay.instead) {
    world.relay.instead = nullptr;
    return;
  }
  const int status = world.random.whole(0, 2);
  world.relay.instead = [status](MemoryHttp::Exchange& exchange) {
    if (status == 0) exchange.fail();
    if (status == 1) exchange.answer({.status = 429, .contentType = "", .retryAfter = Seconds{30}});
    return true;  // or there is just no answer
  };
}

void requests::quit(World& world) {
  if (!world.app) return;
  world.tell("quit");
  world.inApp([&] { world.app->commands()->handle("quit", Json::object(), [](const Json&) {}); });
}

void requests::setUp(World& world) {
  if (!world.app) return;
  const bool remove = world.installed && world.random.chance(0.3);
  world.tell(remove ? "the helper is removed" : "set-up runs");
  world.inApp([&] {
    if (!remove) {
      world.engine()->runSetup([&] { world.installed = world.installed || world.engine()->setupReady; });
    } else if (!world.engine()->uninstallHelper()) {
      world.installed = false;
    }
  });
}

}  // namespace tovi::soak
