// Measures what Tovi costs, on this machine, with real processes and the program as people run it, and prints one
// table. It starts thousands of sleeping processes and ends them again; the home folder is a temporary one.
#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Children.h"
#include "Figures.h"
#include "Idle.h"
#include "Life.h"
#include "Phone.h"
#include "RelayProcess.h"
#include "Samples.h"
#include "Stage.h"
#include "Table.h"
#include "Tools.h"

namespace tovi::bench {
namespace {

// Younger processes are read again at every sample.
constexpr auto kOld = std::chrono::seconds(61);

// A full look, and a quick one.
struct Extent {
  std::chrono::seconds idle{300};
  int virtualDays = 10;
  int messages = 10'000, reconnections = 1'000;
  int lifeDays = 365;
};
// The phone's relay gives a sign of life every 45 seconds: one of them is to be seen.
constexpr Extent kQuick{std::chrono::seconds(50), 2, 1'000, 100, 30};

// Everything that needs processes beside it. False: it can't be done here.
bool measureBesideOthers(Table& table, const Extent& extent) {
  const Stage stage;
  if (!stage.setUp()) {
    say("tovi setup failed on the simulated laptop");
    return false;
  }
  Sleepers sleepers;
  AgentSample sample(stage);
  std::optional<Resident> app;
  const auto startApplication = [&] {
    app.emplace(std::vector<std::string>{Stage::program().string()}, stage.environment());
    const bool answers = stage.applicationAnswers();
    if (!answers) say("the application doesn't answer");
    return answers;
  };
  if (!startApplication()) return false;
  if (!sleepers.fillUpTo(kFew)) {
    say("no more processes are allowed here");
    return false;
  }
  say(fmt::format("Letting {} processes grow old (a minute)", kFew));
  std::this_thread::sleep_for(kOld);
  sample.measure(table, kFew, 0.15);
  ClosedPass().measure(table, kFew, 0.5);

  say(fmt::format("Watching the idle application ({} s)", extent.idle.count()));
  watchIdle(table, *app, extent.idle);
  app.reset();
  say(fmt::format("Watching one with the phone's stream open ({} s)", extent.idle.count()));
  watchWithPhone(table, extent.idle);
  if (!startApplication()) return false;

  say("Timing the command line tool");
  timeTool(table, stage);
  timeRun(table, stage);
  timeMcp(table, stage);

  if (!sleepers.fillUpTo(kMany)) {
    table.addMissing(fmt::format("agent sample over {} processes / one ps", kMany), "no more processes allowed here");
    return true;
  }
  say(fmt::format("Letting {} processes grow old (a minute)", kMany));
  std::this_thread::sleep_for(kOld);
  sample.measure(table, kMany, 0.10);
  ClosedPass().measure(table, kMany, 0.5);
  return true;
}

int measureAll(const Extent& extent) {
  Table table;
  if (!measureBesideOthers(table, extent)) return 1;
  say(fmt::format("Talking to a phone ({} messages)", extent.messages));
  measurePhoneMemory(table, extent.messages, extent.reconnections);
  say(fmt::format("Living {} virtual days", extent.virtualDays + extent.lifeDays));
  measureVirtualDays(table, extent.virtualDays);
  measureYear(table, extent.lifeDays);
  std::fputs(table.text().c_str(), stdout);
  return table.allMet() ? 0 : 1;
}

}  // namespace
}  // namespace tovi::bench

int main(int argc, char** argv) {
  const std::string_view option = argc > 1 ? argv[1] : "";
  if (argc == 2 && option == tovi::bench::kRelayOption) return tovi::bench::serveRelay();
  if (argc > 2 || (argc == 2 && option != "--quick")) {
    std::fputs("tovi_bench [--quick]\n", stderr);
    return 2;
  }
  return tovi::bench::measureAll(option == "--quick" ? tovi::bench::kQuick : tovi::bench::Extent{});
}
