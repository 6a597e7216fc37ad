#include "platform/simulated/FolderStore.h"

#include "platform/linux/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <nlohmann/json.hpp>

#include "platform/FileEvents.h"
#include "platform/Files.h"
#include "platform/MainQueue.h"

namespace tovi {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kReport = "laptop.json";
constexpr const char* kSwitches = "switches.json";
constexpr const char* kFollowed = "followed.json";

// File times move in steps of the kernel's tick, at most 10 ms; a change within the same step looks like none.
constexpr std::int64_t kTimeStep = 20'000'000;  // nanoseconds

// Where a file can't be watched it is looked at this often, in seconds.
constexpr double kPoll = 0.2;

std::int64_t nanoseconds(const timespec& time) { return time.tv_sec * 1'000'000'000 + time.tv_nsec; }

std::int64_t wallNanoseconds() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return nanoseconds(time);
}

FileDescriptor openFile(const std::string& path, int flags) {
  return FileDescriptor(::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0644));
}

// Waits for its turn, but not for one that was stopped while it had the lock.
FileDescriptor lockFile(const std::string& path) {
  FileDescriptor lock = openFile(path, O_RDWR | O_CREAT);
  if (lock && !lockWithin(lock.get(), Seconds{5})) lock.reset();
  return lock;
}

std::string jsonOf(const LaptopFollowed& followed) {
  const char* lid = followed.lid == LaptopLid::open ? "open" : followed.lid == LaptopLid::closed ? "closed" : "none";
  return Json{{"lid", lid}, {"poweredOn", followed.poweredOn}, {"didWake", followed.didWake}}.dump() + "\n";
}

// The file has the keys of a report, so it is read as one.
std::optional<LaptopFollowed> followedFrom(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  const Json json = Json::parse(*text, nullptr, false);
  if (!json.is_object()) return std::nullopt;
  Json report{{"lid", json.value("lid", Json("open"))}};
  report["events"] = {{"poweredOn", json.value("poweredOn", Json(0))}, {"didWake", json.value("didWake", Json(0))}};
  return followedBy(*LaptopReport::parse(report.dump()));
}

std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text;
}

}  // namespace

FolderStore::FolderStore(std::string folder, std::string procRoot, const Surroundings& surroundings, Files& files,
                         MainQueue& queue, FileEvents& fileEvents)
    : folder_(std::move(folder)),
      procRoot_(std::move(procRoot)),
      surroundings_(surroundings),
      files_(files),
      queue_(queue),
      fileEvents_(fileEvents),
      signals_(queue) {}

FolderStore::~FolderStore() {
  if (displayAssertion_) setDisplayAssertion(false);
}

void FolderStore::make() {
  if (made_) return;
  made_ = true;
  report_ = std::make_shared<LaptopReport>();
  switches_ = std::make_shared<LaptopSwitches>();
  told_ = report_;
  if (!files_.makeFolders(folder_)) return;
  const FileDescriptor lock = lockFile(file("lock"));
  if (!lock) return;
  if (!files_.exists(file(kReport))) replaceFile(kReport, report_->toJson());
  refresh();
  told_ = report_;
  if (!files_.exists(file(kSwitches))) {
    LaptopSwitches delivered;
    for (const Display& display : report_->displays) delivered.displays[display.id] = DisplaySwitch{};
    replaceFile(kSwitches, delivered.toJson());
    refresh();
  }
  if (!files_.exists(file(kFollowed))) replaceFile(kFollowed, jsonOf(followedBy(*report_)));
  for (const char* log : {"commands.log", "notices.log"}) openFile(file(log), O_WRONLY | O_CREAT | O_APPEND);
}

std::optional<std::string> FolderStore::readIfChanged(const char* name, Stamp& stamp) const {
  struct stat status {};
  const std::string path = file(name);
  const auto stampOf = [&] {
    const std::int64_t modified = nanoseconds(status.st_mtim);
    return Stamp{status.st_ino, status.st_size, modified, wallNanoseconds() - modified > kTimeStep};
  };
  if (::stat(path.c_str(), &status) != 0 || (stamp.settled && stampOf() == stamp)) return std::nullopt;
  const FileDescriptor opened = openFile(path, O_RDONLY);
  if (!opened || ::fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  // Taken before the content, so that a change while reading is noticed next time.
  stamp = stampOf();
  std::string text;
  char room[16384];
  for (ssize_t got; (got = ::read(opened.get(), room, sizeof room)) != 0;) {
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    text.append(room, static_cast<std::size_t>(got));
  }
  return text;
}

void FolderStore::refresh() {
  if (const auto text = readIfChanged(kReport, reportStamp_)) {
    if (auto parsed = LaptopReport::parse(*text)) {
      if (telemetry_.started()) account();
      report_ = std::make_shared<LaptopReport>(std::move(*parsed));
    }
  }
  if (const auto text = readIfChanged(kSwitches, switchesStamp_)) {
    if (auto parsed = LaptopSwitches::parse(*text)) take(std::move(*parsed));
  }
}

void FolderStore::take(LaptopSwitches switches) {
  if (telemetry_.started() && switches != *switches_) account();
  // Counted at each step, so that a sleep which another step ends at once is still told.
  if (switches.sleeps > 0 || (switches.asleep && lastAsleep_ == false)) ++fallsAsleep_;
  switches.sleeps = 0;
  lastAsleep_ = switches.asleep;
  switches_ = std::make_shared<LaptopSwitches>(std::move(switches));
}

std::shared_ptr<const LaptopReport> FolderStore::report() {
  const std::lock_guard guard(mutex_);
  make();
  refresh();
  return report_;
}

std::shared_ptr<const LaptopSwitches> FolderStore::switches() {
  const std::lock_guard guard(mutex_);
  make();
  refresh();
  return switches_;
}

double FolderStore::wattsPerCore() {
  const std::lock_guard guard(mutex_);
  make();
  return report_->wattsPerCore;
}

bool FolderStore::replaceFile(const char* name, const std::string& text) {
  const std::string target = file(name);
  const std::string temporary = target + ".tmp" + std::to_string(::getpid());
  {
    const FileDescriptor opened = openFile(temporary, O_WRONLY | O_CREAT | O_TRUNC);
    if (!opened) return false;
    for (std::string_view rest = text; !rest.empty();) {
      const ssize_t wrote = ::write(opened.get(), rest.data(), rest.size());
      if (wrote < 0 && errno == EINTR) continue;
      if (wrote <= 0) {
        ::unlink(temporary.c_str());
        return false;
      }
      rest.remove_prefix(static_cast<std::size_t>(wrote));
    }
  }
  if (::rename(temporary.c_str(), target.c_str()) == 0) return true;
  ::unlink(temporary.c_str());
  return false;
}

bool FolderStore::storePrivileged(bool privileged) {
  const auto text = files_.read(file(kReport));
  return replaceFile(kReport, LaptopReport::withPrivileged(text.value_or(""), privileged, *report_));
}

bool FolderStore::somebodyHoldsDisplay() const {
  const FileDescriptor opened = openFile(file("display-assertion"), O_RDWR | O_CREAT);
  return opened && ::flock(opened.get(), LOCK_EX | LOCK_NB) != 0;
}

bool FolderStore::change(std::string_view, const Edit& edit) {
  const std::lock_guard guard(mutex_);
  return changeLocked(edit);
}

bool FolderStore::changeLocked(const Edit& edit) {
  make();
  const FileDescriptor lock = lockFile(file("lock"));
  if (!lock) return false;
  refresh();
  LaptopReport report = *report_;
  LaptopSwitches switches = *switches_;

  // What the laptop does of itself comes first: wakes that nobody has followed yet, a display assertion whose process
  // died. The order of such a step and the edit is that of the files' changes.
  const auto before = followedFrom(files_.read(file(kFollowed)));
  LaptopFollowed followed = before.value_or(followedBy(report));
  follow(report, followed, switches);
  if (switches.displayAssertion && !somebodyHoldsDisplay()) switches.displayAssertion = false;

  const auto link = [](const std::string& target, const std::string& path) {
    const std::string temporary = path + ".tmp" + std::to_string(::getpid());
    ::unlink(temporary.c_str());
    if (::symlink(target.c_str(), temporary.c_str()) != 0) return false;
    if (::rename(temporary.c_str(), path.c_str()) == 0) return true;
    ::unlink(temporary.c_str());
    return false;
  };
  edit(report, switches, LaptopModel::Place{files_, surroundings_, clock_.now(), link});

  if (switches != *switches_) {
    if (!replaceFile(kSwitches, switches.toJson())) return false;
    take(std::move(switches));
  }
  // The change is made; what couldn't be written down of the events is followed again at the next one.
  if (followed != before) replaceFile(kFollowed, jsonOf(followed));
  if (report.privileged != report_->privileged && !storePrivileged(report.privileged)) return false;
  refresh();
  return true;
}

double FolderStore::readBusySeconds() const {
  const auto text = files_.read(procRoot_ + "/stat");
  if (!text || !text->starts_with("cpu ")) return busySeconds_.value_or(0);
  // user nice system idle iowait irq softirq ...: all but the idle ones and what other machines on the host took.
  constexpr bool kBusy[] = {true, true, true, false, false, true, true};
  const char* at = text->data() + 4;
  const char* const end = text->data() + std::min(text->find('\n'), text->size());
  double ticks = 0;
  for (const bool busy : kBusy) {
    while (at != end && *at == ' ') ++at;
    std::uint64_t value = 0;
    at = std::from_chars(at, end, value).ptr;
    if (busy) ticks += static_cast<double>(value);
  }
  return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

void FolderStore::account() {
  const double busy = readBusySeconds();
  processJoules_ += std::max(0.0, busy - busySeconds_.value_or(0)) * report_->wattsPerCore;
  busySeconds_ = busy;
  telemetry_.advance({clock_.sinceBoot().count(), processJoules_}, *report_, *switches_);
}

BatteryProperties::Telemetry FolderStore::telemetry() {
  const std::lock_guard guard(mutex_);
  make();
  refresh();
  account();
  return telemetry_.published();
}

Registration FolderStore::observe(LaptopEvent event, std::function<void()> call) {
  if (watches_.empty()) {
    for (const char* name : {kReport, kSwitches}) {
      Registration watch = fileEvents_.watch(folder_, name, [this] { tellNews(); });
      if (!watch) watch = queue_.every(Seconds{kPoll}, Seconds{kPoll / 2}, [this] { tellNews(); });
      watches_.push_back(std::move(watch));
    }
    tellNews();
  }
  return signals_.observe(event, std::move(call));
}

void FolderStore::tellNews() {
  std::vector<LaptopEvent> news;
  {
    const std::lock_guard guard(mutex_);
    changeLocked([](LaptopReport&, LaptopSwitches&, const auto&) {});
    if (std::exchange(fallsAsleep_, 0) > 0) news.push_back(LaptopEvent::willSleep);
    const auto changes = eventsBetween(*told_, *report_);
    news.insert(news.end(), changes.begin(), changes.end());
    told_ = report_;
  }
  for (const LaptopEvent event : news) signals_.raise(event);
}

bool FolderStore::setDisplayAssertion(bool held) {
  const std::lock_guard guard(mutex_);
  make();
  displayAssertion_.reset();
  if (held) {
    displayAssertion_ = openFile(file("display-assertion"), O_RDWR | O_CREAT);
    if (displayAssertion_ && ::flock(displayAssertion_.get(), LOCK_SH) != 0) displayAssertion_.reset();
    if (!displayAssertion_) return false;
  }
  // Without a holder the change clears the switch by itself.
  const bool stored = changeLocked([&](LaptopReport&, LaptopSwitches& switches, const auto&) {
    if (held) switches.displayAssertion = true;
  });
  if (!stored) displayAssertion_.reset();
  return stored;
}

void FolderStore::append(const char* name, const std::string& line) {
  const FileDescriptor opened = openFile(file(name), O_WRONLY | O_CREAT | O_APPEND);
  // One call, so that lines of several processes don't mix.
  [[maybe_unused]] const ssize_t wrote = opened ? ::write(opened.get(), line.data(), line.size()) : -1;
}

void FolderStore::logCommand(int code, const std::string& path, const std::vector<std::string>& arguments) {
  std::string line = path;
  for (const std::string& word : arguments) line.append(" ").append(word);
  const std::lock_guard guard(mutex_);
  make();
  append("commands.log", std::to_string(code) + "\t" + oneLine(std::move(line)) + "\n");
}

void FolderStore::logNotice(const LaptopNotice& notice) {
  const Json json = notice.kind == LaptopNotice::Kind::sound
                        ? Json{{"kind", "sound"}, {"name", notice.name}}
                        : Json{{"kind", "notification"}, {"title", notice.title}, {"body", notice.body}};
  const std::lock_guard guard(mutex_);
  make();
  append("notices.log", json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace tovi
