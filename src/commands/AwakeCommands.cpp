// Commands that ask for staying awake, or for sleep.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/CommandCall.h"
#include "commands/CommandCenter.h"
#include "commands/PanelFormatTime.h"
#include "core/Dates.h"
#include "core/Json.h"
#include "core/Text.h"
#include "engine/Engine.h"
#include "platform/Processes.h"

namespace tovi {

namespace {

using Json = nlohmann::json;

constexpr double kWeekMinutes = 7 * 24 * 60;
constexpr double kDayMinutes = 24 * 60;
constexpr double kLargestPid = 2147483647;
constexpr std::size_t kLongestReason = 80;  // characters

constexpr double kUsualWake = 60;  // minutes
constexpr double kShortestWake = 5;

constexpr char kNeedsWakeSetup[] =
    "Scheduled wakes need Set Up to run again (Settings › About › Set Up), once, after this update.";
constexpr char kNeedsSetup[] = "Tovi needs its one-time setup first. Open Tovi from the menu bar and click Continue.";

std::optional<Pid> pidOf(const Arguments& args, std::string_view key) {
  const auto number = args.number(key, kLargestPid);
  return number ? std::optional{static_cast<Pid>(*number)} : std::nullopt;
}

std::string reasonOf(const Arguments& args, const char* usual) {
  return text::firstCharacters(args.text("reason").value_or(usual), kLongestReason);
}

}  // namespace

void handlers::mode(const Arguments& args, const CommandCall& call) {
  const auto mode = parseMode(args.text("mode").value_or(""));
  if (!mode) return call.fail("mode must be off, when_busy (auto) or always");
  Engine& engine = call.engine;
  if (*mode != Mode::on) {
    Config next = engine.config;
    next.mode = *mode;
    engine.apply(std::move(next), true);
  } else if (const auto hour = args.number("until_hour", 23)) {
    engine.stayAwake(PanelFormatTime::next(static_cast<int>(*hour), engine.now()));
  } else if (const auto minutes = args.number("minutes", kWeekMinutes)) {
    engine.stayAwake(std::max(static_cast<int>(*minutes), 1));
  } else {
    engine.stayAwake(std::nullopt);
  }
  call.succeed();
}

void handlers::track(const Arguments& args, const CommandCall& call) {
  Engine& engine = call.engine;
  const auto agent = args.text("agent");
  const auto& trackOnly = engine.config->trackOnly;
  const bool listed = agent && std::ranges::find(trackOnly, *agent) != trackOnly.end();
  const bool running =
      agent && std::ranges::any_of(engine.sessions.get(), [&](const AgentSession& s) { return s.kind.id == *agent; });
  if (!listed && !running) return call.fail("no agent " + agent.value_or("?") + " is running");
  engine.setKeepsAwake(*agent, args.flag("keeps").value_or(listed));
  call.succeed();
}

void handlers::sleepNow(const Arguments&, const CommandCall& call) {
  call.engine.sleepNow();
  call.succeed();
}

void handlers::hold(const Arguments& args, const CommandCall& call) {
  Engine& engine = call.engine;
  if (!engine.setupReady) return call.fail(kNeedsSetup);
  const auto pid = pidOf(args, "pid");
  if (args.has("pid") && (!pid || *pid < 2 || !engine.machine().processes.exists(*pid))) {
    return call.fail("pid must be a running process id");
  }
  const Hold hold = engine.addHold(reasonOf(args, "Asked to stay awake"), args.number("minutes", kWeekMinutes), pid,
                                   pidOf(args, "owner"));
  call.succeed({{"hold", hold.form()}});
}

void handlers::wake(const Arguments& args, const CommandCall& call) {
  Engine& engine = call.engine;
  if (!engine.setupReady) return call.fail(kNeedsSetup);
  const double minutes = std::max(args.number("minutes", kDayMinutes).value_or(kUsualWake), kShortestWake);
  const Hold hold = engine.addHold(reasonOf(args, "Woken from your phone"), minutes, std::nullopt, std::nullopt);
  call.succeed({{"hold", hold.form()}});
}

void handlers::wakeAt(const Arguments& args, const CommandCall& call) {
  Engine& engine = call.engine;
  std::optional<std::string> time = args.text("time");
  if (const Json* given = args.value("time"); given != nullptr && given->is_number()) time = json::compact(*given);
  if (!time) return call.fail("time: HH:MM, off, or Unix seconds");
  // Also before wakes are set up: nothing then stands in the way of there being none.
  if (const std::string word = text::lowercased(*time); word == "off" || word == "none" || word == "cancel") {
    engine.setWake(std::nullopt, std::nullopt);
    return call.succeed({{"wakeAt", nullptr}});
  }
  if (!engine.wakeReady) return call.fail(kNeedsWakeSetup);
  const auto at = CommandCenter::parseWakeTime(*time, engine.now());
  if (!at) return call.fail("time: HH:MM (24-hour), off, or Unix seconds");
  const auto minutes = args.number("minutes", kDayMinutes);
  engine.setWake(at, minutes ? std::optional{static_cast<int>(*minutes)} : std::nullopt);
  call.succeed({{"wakeAt", dates::mediumDate(*at)}});
}

void handlers::release(const Arguments& args, const CommandCall& call) {
  const int released = call.engine.releaseHold(args.text("id"));
  call.succeed({{"released", released}});
}

void handlers::releaseOwn(const Arguments& args, const CommandCall& call) {
  const auto id = args.text("id");
  const auto pid = pidOf(args, "pid");
  if (!id || !pid) return call.fail("needs id and pid");
  const int released = call.engine.releaseHolds(*pid, id);
  if (released == 0) return call.fail("no hold " + *id + " made by this session");
  call.succeed({{"released", released}});
}

void handlers::releasePid(const Arguments& args, const CommandCall& call) {
  const auto pid = pidOf(args, "pid");
  if (!pid) return call.fail("needs pid");
  const int released = call.engine.releaseHolds(*pid);
  call.succeed({{"released", released}});
}

void handlers::overrideFloor(const Arguments& args, const CommandCall& call) {
  // Allowing it spends the person's last charge, so that is the person's own to do.
  if (args.flag("on").value_or(true)) {
    return call.fail("Going below the battery limit can only be allowed in Tovi itself");
  }
  call.engine.overrideFloor(false);
  call.succeed({{"below_floor_allowed", call.engine.floorOverride.get()}});
}

}  // namespace tovi
