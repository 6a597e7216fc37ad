#include "Life.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Figures.h"
#include "app/AppDelegate.h"
#include "commands/CommandCenter.h"
#include "commands/Wire.h"
#include "core/StateFiles.h"
#include "engine/Engine.h"
#include "platform/simulated/MemoryLaptop.h"
#include "safety/Setup.h"

namespace tovi::bench {

namespace {

constexpr double kHour = 3600;

Pid add(MemoryLaptop& laptop, const std::string& path, double watts, double cores, Pid pid = 0) {
  MemoryProcess process;
  process.pid = pid;
  process.path = path;
  process.watts = watts;
  process.cores = cores;
  return laptop.processes().add(process);
}

void moveLid(MemoryLaptop& laptop, bool closed) {
  laptop.edit([&](LaptopReport& report) { report.lid = closed ? LaptopLid::closed : LaptopLid::open; });
}

// Nothing if the engine didn't do its work.
std::optional<double> virtualDaysPerSecond(int days) {
  MemoryLaptop laptop;
  const StateFiles state(laptop.machine());
  if (Setup(laptop.machine(), state).run()) return std::nullopt;
  for (int i = 0; i < 40; ++i) add(laptop, fmt::format("/usr/bin/tool{}", i), 0.01, 0.005);
  const Pid agent = add(laptop, "/usr/bin/claude", 2, 0.5);
  Engine engine(laptop.machine(), false);
  const auto begin = Clock::now();
  for (int hour = 0; hour < 24 * days; ++hour) {
    moveLid(laptop, hour % 24 < 8);
    laptop.processes().setRates(agent, 2, 0.5);
    laptop.advance(1800);
    if (!laptop.switches().sleepDisabled) return std::nullopt;
    laptop.processes().setRates(agent, 0, 0);
    laptop.advance(1800);
    if (laptop.switches().sleepDisabled) return std::nullopt;
  }
  return days / secondsSince(begin);
}

// What the heap spends on so many bytes.
double onHeap(std::size_t bytes) { return static_cast<double>((bytes + 8 + 15) / 16 * 16); }
double onHeap(const std::string& text) { return text.size() < 16 ? 0 : onHeap(text.size() + 1); }

// One person's laptop with everything that runs on it.
class Person {
 public:
  Person() {
    if (Setup(laptop_.machine(), state_).run()) return;
    for (int i = 0; i < 40; ++i) add(laptop_, fmt::format("/usr/bin/tool{}", i), 0.01, 0.005);
    for (const char* name : {"Notes", "Music", "Mail", "Docker"}) {
      const std::string bundle = fmt::format("/Applications/{}.app", name);
      const Pid pid = add(laptop_, bundle + "/Contents/MacOS/" + name, 0.3, 0.1);
      laptop_.edit([&](LaptopReport& report) {
        report.applications.push_back({.pid = pid,
                                       .name = name,
                                       .bundleIdentifier = fmt::format("com.example.{}", name),
                                       .path = bundle,
                                       .regular = true});
      });
    }
    app_ = std::make_unique<AppDelegate>(laptop_.machine(), nullptr);
    app_->didFinishLaunching(false);
    laptop_.advance(10);
  }
  ~Person() {
    if (app_) app_->willTerminate();
  }

  bool stands() const { return app_ && app_->isPrimary(); }

  // From eight to eight. What went wrong; nothing if all went well.
  std::optional<std::string> liveOneDay() {
    for (int hour = 0; hour < 12; ++hour) {
      if (auto wrong = workForAnHour(hour)) return wrong;
    }
    return sleepUntilMorning();
  }

  // Without what the laptop has noted down, on its disk or elsewhere.
  double holds() {
    laptop_.forgetCommands();
    laptop_.processes().forgetEffects();
    return allocatedBytes() - noticesBytes() - fileBytes("/");
  }

 private:
  // Each hour an agent comes, works, rests and goes; the person asks for this and that, and walks about with the lid
  // shut at noon and in the evening.
  std::optional<std::string> workForAnHour(int hour) {
    const bool walk = hour == 4 || hour == 10;
    const Pid agent = add(laptop_, hour % 3 == 0 ? "/usr/bin/codex" : "/usr/bin/claude", 2, 0.5, 2000 + hour);
    laptop_.edit([&](LaptopReport& report) {
      report.battery->externalConnected = report.battery->isCharging = hour % 6 > 3;
      report.battery->currentCapacity = 90 - 5 * (hour % 6);
      report.thermal = hour == 7 ? ThermalState::serious : ThermalState::nominal;
    });
    laptop_.advance(600);
    if (walk) moveLid(laptop_, true);
    if (auto wrong = askForThings(hour)) return wrong;
    laptop_.advance(900);
    if (!laptop_.switches().sleepDisabled) return fmt::format("at {}:25 the agent works and sleep is on", 8 + hour);
    if (walk && app_->engine()->touched->empty()) return fmt::format("at {}:25 no application is touched", 8 + hour);
    if (walk) moveLid(laptop_, false);
    laptop_.processes().setRates(agent, 0, 0);
    laptop_.advance(kHour - 1500);
    if (laptop_.switches().sleepDisabled) return fmt::format("at {}:00 nobody works and sleep is off", 9 + hour);
    if (!app_->engine()->touched->empty()) return fmt::format("at {}:00 an application is still touched", 9 + hour);
    laptop_.processes().exit(agent);
    return std::nullopt;
  }

  // An agent goes on for two hours with the lid shut.
  std::optional<std::string> sleepUntilMorning() {
    const Pid agent = add(laptop_, "/usr/bin/claude", 2, 0.5, 2100);
    laptop_.advance(kHour);
    moveLid(laptop_, true);
    laptop_.advance(2 * kHour);
    if (!laptop_.switches().sleepDisabled) return "in the evening the agent works and sleep is on";
    laptop_.processes().exit(agent);
    laptop_.advance(kHour);
    if (laptop_.switches().sleepDisabled) return "at night nobody works and sleep is off";
    laptop_.passAsleep(Seconds{8 * kHour - 60});
    laptop_.edit([](LaptopReport& report) {
      ++report.events.poweredOn;
      ++report.events.didWake;
    });
    moveLid(laptop_, false);
    laptop_.advance(60);
    return std::nullopt;
  }

  std::optional<std::string> askForThings(int hour) {
    const bool even = hour % 2 == 0;
    for (const std::string& request :
         {std::string{R"("status")"}, std::string{R"("panel")"}, std::string{R"("config")"}, std::string{R"("energy")"},
          std::string{R"("power")"}, std::string{R"("hold", "args": {"reason": "a backup", "minutes": 5})"},
          std::string{R"("release", "args": {})"},
          fmt::format(R"("set", "args": {{"key": "quiet_minutes", "value": {}}})", even ? 4 : 5),
          fmt::format(R"("rule", "args": {{"app": "Notes", "rule": "{}"}})", even ? "slow" : "pause"),
          fmt::format(R"("preset", "args": {{"preset": "{}"}})", even ? "max_battery" : "balanced")}) {
      const std::string id = fmt::format("life-{}", ++requests_ % 10);
      app_->commands()->receive(fmt::format(R"({{"id": "{}", "cmd": {}}})", id, request));
      laptop_.advance(3);
      const std::string path = Wire::replyPath(laptop_.machine(), state_, id);
      const auto reply = laptop_.files().read(path);
      if (!reply || reply->find("\"ok\": false") != std::string::npos) {
        if (reply) say(*reply);
        return fmt::format("{} was {}", request, reply ? "refused" : "not answered");
      }
      laptop_.files().remove(path);
    }
    return std::nullopt;
  }

  double noticesBytes() const {
    const auto& notices = laptop_.notices();
    double bytes = onHeap(notices.capacity() * sizeof notices[0]);
    for (const auto& notice : notices) bytes += onHeap(notice.title) + onHeap(notice.body) + onHeap(notice.name);
    return bytes;
  }

  // Each twice: as it is read, and as it would survive a loss of power.
  double fileBytes(const std::string& folder) {
    double bytes = 0;
    for (const std::string& name : laptop_.files().list(folder).value_or(std::vector<std::string>{})) {
      const std::string path = folder + (folder.ends_with('/') ? "" : "/") + name;
      const auto text = laptop_.files().read(path);
      bytes += text ? 2 * onHeap(*text) : fileBytes(path);
    }
    return bytes;
  }

  MemoryLaptop laptop_;
  MemoryFaults::Uncounted quiet_{laptop_.faults()};  // or the laptop would note down every operation
  StateFiles state_{laptop_.machine()};
  std::unique_ptr<AppDelegate> app_;
  int requests_ = 0;
};

}  // namespace

void measureVirtualDays(Table& table, int days) {
  const std::string what = "an engine's life in virtual time";
  if (const auto speed = virtualDaysPerSecond(days)) {
    table.add(what, *speed, "days/s", 1, 1, true);
  } else {
    table.addMissing(what, "the engine didn't follow its agent");
  }
}

void measureYear(Table& table, int days) {
  const auto what = fmt::format("resident application, growth from day 1 to day {}", days);
  Person person;
  if (!person.stands()) return table.addMissing(what, "it doesn't start");
  double before = 0, after = 0;
  for (int day = 1; day <= days; ++day) {
    if (const auto wrong = person.liveOneDay()) return table.addMissing(what, fmt::format("day {}: {}", day, *wrong));
    after = person.holds();
    if (day == 1) before = after;
  }
  say(fmt::format("  {:.0f} bytes allocated after the first day, {:.0f} after the last", before, after));
  table.add(what, (after - before) / 1024, "KiB", 64, 1);
}

}  // namespace tovi::bench
