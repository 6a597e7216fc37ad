#include "platform/simulated/MemoryLaptop.h"

#include <algorithm>

#include "platform/simulated/LaptopSignals.h"
#include "platform/simulated/LaptopTelemetry.h"

namespace tovi {

class MemoryLaptop::Store final : public LaptopStore {
 public:
  explicit Store(MemoryLaptop& laptop) : laptop_(laptop), signals_(laptop.queue_) {}

  std::shared_ptr<const LaptopReport> report() override { return report_; }
  std::shared_ptr<const LaptopSwitches> switches() override { return switches_; }

  bool change(std::string_view what, const Edit& edit) override {
    if (laptop_.faults_.dead()) return false;
    LaptopReport report = *report_;
    LaptopSwitches switches = *switches_;
    const LaptopModel::Place place{
        laptop_.files_, laptop_.surroundings_, laptop_.clock_.now(),
        [this](const std::string& target, const std::string& path) { return laptop_.files_.link(target, path); }};
    {
      // Files that a tool changes are the tool's doing, not the process's.
      const MemoryFaults::Uncounted quiet(laptop_.faults_);
      edit(report, switches, place);
    }
    if (report.privileged == report_->privileged && switches == *switches_) return true;
    return laptop_.faults_.perform("laptop", what, [&] {
      replace(report, switches);
      return true;
    });
  }

  BatteryProperties::Telemetry telemetry() override {
    account();
    return telemetry_.published();
  }

  Registration observe(LaptopEvent event, std::function<void()> call) override {
    return signals_.observe(event, std::move(call));
  }

  bool setDisplayAssertion(bool held) override {
    return change(held ? "display-assertion on" : "display-assertion off",
                  [&](LaptopReport&, LaptopSwitches& switches, const auto&) { switches.displayAssertion = held; });
  }

  void logCommand(int code, const std::string& path, const std::vector<std::string>& arguments) override {
    if (!laptop_.faults_.dead()) commands.push_back({code, path, arguments});
  }

  void logNotice(const LaptopNotice& notice) override {
    if (!laptop_.faults_.dead()) notices.push_back(notice);
  }

  // Takes a new state over and raises what has changed.
  void replace(const LaptopReport& report, LaptopSwitches switches) {
    if (telemetry_.started()) account();
    follow(report, followed_, switches);
    for (const LaptopEvent event : eventsBetween(*report_, report)) signals_.raise(event);
    if (switches.sleeps > 0 || (switches.asleep && !switches_->asleep)) signals_.raise(LaptopEvent::willSleep);
    switches.sleeps = 0;
    report_ = std::make_shared<LaptopReport>(report);
    switches_ = std::make_shared<LaptopSwitches>(std::move(switches));
  }

  void dropProcess() {
    signals_.drop();
    telemetry_ = LaptopTelemetry{};
  }

  std::vector<Command> commands;
  std::vector<LaptopNotice> notices;

 private:
  MemoryLaptop& laptop_;
  LaptopSignals signals_;
  LaptopTelemetry telemetry_;
  std::shared_ptr<const LaptopReport> report_ = std::make_shared<LaptopReport>();
  std::shared_ptr<const LaptopSwitches> switches_ = std::make_shared<LaptopSwitches>();
  LaptopFollowed followed_ = followedBy(*report_);

  void account() {
    telemetry_.advance({laptop_.clock_.awake(), laptop_.processes_.totalJoules()}, *report_, *switches_);
  }
};

namespace {

Surroundings surroundingsFrom(const MemoryLaptop::Options& options) {
  Surroundings surroundings;
  surroundings.home = options.home;
  surroundings.stateFolder = options.home + "/Library/Application Support/Tovi";
  surroundings.temporaryFolder = "/tmp";
  surroundings.launchAgents = options.home + "/Library/LaunchAgents";
  surroundings.sudoersFolder = "/private/etc/sudoers.d";
  surroundings.localBin = "/usr/local/bin";
  surroundings.executable = options.executable;
  surroundings.userName = options.userName;
  surroundings.uid = options.uid;
  surroundings.hostName = "laptop";
  surroundings.statModified = "/usr/bin/stat -f %m";
  surroundings.arguments = options.arguments;
  return surroundings;
}

}  // namespace

MemoryLaptop::MemoryLaptop() : MemoryLaptop(Options{}) {}

MemoryLaptop::MemoryLaptop(const Options& options)
    : surroundings_(surroundingsFrom(options)),
      clock_(options.start, options.sinceBoot),
      queue_(clock_),
      files_(clock_, faults_, queue_),
      processes_(clock_, faults_),
      defaults_(faults_),
      broadcast_(queue_),
      http_(queue_),
      tools_(processes_),
      store_(std::make_unique<Store>(*this)),
      power_(*store_),
      displays_(*store_),
      assertions_(*store_),
      workspace_(*store_, processes_, files_, surroundings_.home),
      commands_(*store_, tools_),
      notices_(*store_),
      machine_(std::make_unique<Machine>(Machine{surroundings_, clock_, queue_, files_, files_, processes_, power_,
                                                 displays_, assertions_, workspace_, commands_, defaults_, broadcast_,
                                                 notices_, http_})) {
  const MemoryFaults::Uncounted quiet(faults_);
  for (const std::string& folder : {surroundings_.home, surroundings_.temporaryFolder}) files_.makeFolders(folder);
  files_.put(surroundings_.executable, "", 0755);
  bornAs(options.pid);
}

MemoryLaptop::~MemoryLaptop() = default;

void MemoryLaptop::edit(const std::function<void(LaptopReport&)>& change) {
  LaptopReport report = *store_->report();
  change(report);
  store_->replace(report, *store_->switches());
}

const LaptopReport& MemoryLaptop::report() const { return *store_->report(); }

const LaptopSwitches& MemoryLaptop::switches() const { return *store_->switches(); }

void MemoryLaptop::setSwitches(const std::function<void(LaptopSwitches&)>& change) {
  LaptopSwitches switches = *store_->switches();
  change(switches);
  store_->replace(*store_->report(), std::move(switches));
}

std::string MemoryLaptop::Command::line() const {
  std::string line = path;
  for (const std::string& word : arguments) line.append(" ").append(word);
  return line;
}

const std::vector<MemoryLaptop::Command>& MemoryLaptop::commands() const { return store_->commands; }

std::size_t MemoryLaptop::commandCount(std::string_view line) const {
  return static_cast<std::size_t>(std::count_if(store_->commands.begin(), store_->commands.end(),
                                                [&](const Command& command) { return command.line() == line; }));
}

void MemoryLaptop::forgetCommands() { store_->commands.clear(); }

const std::vector<LaptopNotice>& MemoryLaptop::notices() const { return store_->notices; }

void MemoryLaptop::bornAs(Pid pid) {
  if (!processes_.exists(1)) {
    MemoryProcess first;
    first.pid = 1;
    first.parent = 0;
    first.mine = false;
    processes_.add(std::move(first));
  }
  MemoryProcess self;
  self.pid = pid;
  self.path = surroundings_.executable;
  self.arguments = surroundings_.arguments;
  self.workingDirectory = "/";
  processes_.setSelf(processes_.add(std::move(self)));
}

void MemoryLaptop::dropProcess() {
  faults_.forgetOrders();
  faults_.revive();
  queue_.clear();
  files_.dropProcess();
  store_->dropProcess();
  broadcast_.drop();
  http_.drop();
  displays_.cancelConfiguration();
  assertions_.forget();
  clock_.forgetBootTime();
  setSwitches([](LaptopSwitches& switches) { switches.displayAssertion = false; });
}

void MemoryLaptop::restart(std::optional<Pid> pid) {
  dropProcess();
  processes_.exit(processes_.self());
  bornAs(pid.value_or(0));
}

void MemoryLaptop::powerLoss(Seconds down) {
  dropProcess();
  files_.powerLoss();
  processes_.clear();
  clock_.reboot(down.count());
  // A switched-off screen is off for the login session only.
  setSwitches([](LaptopSwitches& switches) {
    switches.asleep = switches.displayAsleep = false;
    for (auto& [id, display] : switches.displays) display.enabled = true;
  });
  bornAs(0);
}

}  // namespace tovi
