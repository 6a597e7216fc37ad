#include "Idle.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Figures.h"
#include "RelayProcess.h"
#include "Stage.h"

namespace tovi::bench {

namespace {

constexpr double kTickSeconds = 2;
constexpr auto kSettled = std::chrono::seconds(10);  // after a start, with its first reading of everything

// What a process has used since it was made.
class Watch {
 public:
  explicit Watch(const Resident& process)
      : process_(process), begin_(Clock::now()), cpu_(process.cpuSeconds()), wakeUps_(process.wakeUps()) {}

  double coreShare() const { return (process_.cpuSeconds() - cpu_) / secondsSince(begin_); }
  double wakeUpsPerTick() const {
    return static_cast<double>(process_.wakeUps() - wakeUps_) / (secondsSince(begin_) / kTickSeconds);
  }

 private:
  const Resident& process_;
  Clock::time_point begin_;
  double cpu_;
  long wakeUps_;
};

double mebibytes(const Resident& process, const std::string& key) {
  return static_cast<double>(process.status(key)) / 1024;
}

// What people do by hand to know whether an agent is there, so many times.
Run handmadeLoop(int times) {
  return run({"sh", "-c",
              fmt::format("n={}; while [ $n -gt 0 ] && sleep 2; do ps -axo pid,ppid,pcpu,comm | grep -c claude; "
                          "n=$((n - 1)); done",
                          times)},
             {"PATH=/usr/bin:/bin"});
}

// An application that is paired with a phone and has its stream open.
class PairedApplication {
 public:
  PairedApplication();

  bool connected() { return relay_.streams() == 1; }
  bool reconnected() { return relay_.opened() > 1; }
  const Resident& process() const { return *app_; }

 private:
  RelayProcess relay_;
  Stage stage_;
  std::optional<Resident> app_;
};

PairedApplication::PairedApplication() {
  if (relay_.url().empty() || !stage_.setUp()) return;
  std::filesystem::create_directories(stage_.stateFolder());
  std::ofstream(stage_.stateFolder() + "/remote.json") << pairing(relay_.url());
  app_.emplace(std::vector<std::string>{Stage::program().string()}, stage_.environment());
  for (int i = 0; i < 100 && !connected(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

}  // namespace

void watchIdle(Table& table, const Resident& app, std::chrono::seconds span) {
  const Watch idle(app);
  auto loop = std::async(std::launch::async, handmadeLoop, static_cast<int>(span.count() / kTickSeconds));
  loop.wait();
  const double share = idle.coreShare();
  const double wakeUps = idle.wakeUpsPerTick();
  const Run byHand = loop.get();

  if (!aboutSoMany(kFew)) say(fmt::format("  not idle: {} processes run", processCount()));
  table.add(fmt::format("idle application, processor over {:.0f} s, {} processes", byHand.wallSeconds, kFew),
            share * 100, "% of a core", 0.1, 3);
  const std::string ratio = "idle application / a loop of sleep 2, ps and grep, processor";
  if (byHand.status == 0 && byHand.cpuSeconds > 0) {
    const double loopShare = byHand.cpuSeconds / byHand.wallSeconds;
    say(fmt::format("  the loop takes {:.3f} % of a core", loopShare * 100));
    table.add(ratio, share / loopShare, "", 0.5, 3);
  } else {
    table.addMissing(ratio, "the loop doesn't run here");
  }
  table.add("idle application, wake-ups per tick", wakeUps, "", 1.05, 2);
  table.add("idle application, anonymous memory", mebibytes(app, "RssAnon"), "MiB", 3, 2);
  table.add("idle application, resident memory", mebibytes(app, "VmRSS"), "MiB", 16, 2);
}

void watchWithPhone(Table& table, std::chrono::seconds span) {
  const std::string withPhone = "with the phone's stream open";
  PairedApplication paired;
  if (!paired.connected()) return table.addMissing(withPhone, "the stream didn't open");
  std::this_thread::sleep_for(kSettled);
  const Watch watch(paired.process());
  std::this_thread::sleep_for(span);
  const double wakeUps = watch.wakeUpsPerTick();
  if (!paired.connected() || paired.reconnected()) return table.addMissing(withPhone, "the stream didn't stay open");
  table.add(withPhone + ", wake-ups per tick", wakeUps, "", 1.10, 2);
  table.add(withPhone + ", anonymous memory", mebibytes(paired.process(), "RssAnon"), "MiB", 4, 2);
}

}  // namespace tovi::bench
