// A simulated laptop's state in a folder of small files that several processes share: laptop.json, switches.json,
// commands.log, notices.log. Beside them lie "lock", which every change is made under, "followed.json", how far the
// laptop has reacted to its reports, and "display-assertion", locked by each process that keeps the screen awake.
#pragma once

#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/LinuxClock.h"
#include "platform/simulated/LaptopSignals.h"
#include "platform/simulated/LaptopStore.h"
#include "platform/simulated/LaptopTelemetry.h"

namespace tovi {

class FileEvents;

// May be used from any thread but for observe(), whose calls and news belong to the main one. Nothing is read or made
// before the first use.
class FolderStore final : public LaptopStore {
 public:
  FolderStore(std::string folder, std::string procRoot, const Surroundings& surroundings, Files& files,
              MainQueue& queue, FileEvents& fileEvents);
  ~FolderStore() override;

  std::shared_ptr<const LaptopReport> report() override;
  std::shared_ptr<const LaptopSwitches> switches() override;
  bool change(std::string_view what, const Edit& edit) override;
  BatteryProperties::Telemetry telemetry() override;
  Registration observe(LaptopEvent event, std::function<void()> call) override;
  bool setDisplayAssertion(bool held) override;
  void logCommand(int code, const std::string& path, const std::vector<std::string>& arguments) override;
  void logNotice(const LaptopNotice& notice) override;

  // Joules that one busy core draws in a second, from the report as last read.
  double wattsPerCore();

 private:
  // What tells one state of a file from the next.
  struct Stamp {
    std::uint64_t inode = 0;
    std::int64_t size = -1;
    std::int64_t modified = 0;  // nanoseconds
    bool settled = false;       // it was old enough when read that no later change can look the same

    friend bool operator==(const Stamp&, const Stamp&) = default;
  };

  const std::string folder_;
  const std::string procRoot_;
  const Surroundings& surroundings_;
  Files& files_;
  MainQueue& queue_;
  FileEvents& fileEvents_;
  LinuxClock clock_;

  // Everything below, but what is marked, is guarded by `mutex_`: set-up runs its commands off the main thread.
  std::mutex mutex_;
  bool made_ = false;
  std::shared_ptr<const LaptopReport> report_;
  std::shared_ptr<const LaptopSwitches> switches_;
  Stamp reportStamp_, switchesStamp_;
  std::optional<bool> lastAsleep_;
  int fallsAsleep_ = 0;  // since the news was last told
  LaptopTelemetry telemetry_;
  double processJoules_ = 0;
  std::optional<double> busySeconds_;
  FileDescriptor displayAssertion_;
  std::shared_ptr<const LaptopReport> told_;  // whose events have been raised; at first the first one read

  // Of the main thread alone.
  LaptopSignals signals_;
  std::vector<Registration> watches_;

  std::string file(const char* name) const { return folder_ + "/" + name; }
  void make();
  std::optional<std::string> readIfChanged(const char* name, Stamp& stamp) const;
  void refresh();
  void take(LaptopSwitches switches);
  bool replaceFile(const char* name, const std::string& text);
  void append(const char* name, const std::string& line);
  bool changeLocked(const Edit& edit);
  bool storePrivileged(bool privileged);
  bool somebodyHoldsDisplay() const;
  void account();
  double readBusySeconds() const;
  void tellNews();
};

}  // namespace tovi
