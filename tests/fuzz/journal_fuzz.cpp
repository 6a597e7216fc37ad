// touched.json and the files of its older form: whatever stands in them, only a process that they name exactly is ever
// signalled.

#include "safety/Journal.h"

#include <algorithm>
#include <string>

#include "core/StateFiles.h"
#include "fuzz/Fuzz.h"
#include "platform/Utf8.h"
#include "platform/simulated/MemoryLaptop.h"

using namespace tovi;
using fuzz::must;

namespace {

constexpr Microseconds kStart = 1'767'600'000'000'000;

struct Resident {
  Pid pid;
  const char* path;
  bool stopped, background;
};
constexpr Resident kResidents[] = {
    {1, "/sbin/init", true, true},
    {500, "/Applications/Tovi.app/Contents/MacOS/Tovi", true, true},
    {1001, "/Applications/Notes.app/Contents/MacOS/Notes", true, false},
    {1002, "/Applications/Music.app/Contents/MacOS/Music", false, true},
    {1003, "/opt/\xFFodd", true, true},
};

class Computer {
 public:
  MemoryLaptop laptop;
  const StateFiles state{laptop.machine()};

  void reset() {
    for (const Resident& one : kResidents) {
      laptop.processes().add({.pid = one.pid,
                              .parent = 1,
                              .path = one.path,
                              .start = kStart + static_cast<Microseconds>(one.pid),
                              .stopped = one.stopped,
                              .background = one.background});
    }
    laptop.processes().forgetEffects();
  }
};

bool undoes(const Touched& entry, const ProcessEffect& effect) {
  const auto kind = entry.paused ? ProcessEffect::Kind::resume : ProcessEffect::Kind::normal;
  const auto resident = std::ranges::find(kResidents, effect.pid, &Resident::pid);
  return resident != std::end(kResidents) && effect.kind == kind && effect.pid == entry.pid &&
         effect.start == entry.start && repairUtf8(resident->path) == repairUtf8(entry.path);
}

void undoTouchesOnlyWhatIsListed(Computer& computer, const std::vector<Touched>& list) {
  computer.reset();
  const auto left = Journal::undo(computer.laptop.machine(), list);
  for (const ProcessEffect& effect : computer.laptop.processes().effects()) {
    must(effect.pid >= 2, "process 1 is never touched");
    must(effect.pid != computer.laptop.machine().processes.self() || effect.kind != ProcessEffect::Kind::resume,
         "we never signal ourselves");
    must(std::ranges::any_of(list, [&](const Touched& entry) { return undoes(entry, effect); }),
         "only what is listed is undone");
  }
  for (const Touched& entry : left) must(std::ranges::find(list, entry) != list.end(), "what is left was listed");
}

void theOldFilesTouchOnlyWhatTheyName(Computer& computer, std::string_view text) {
  computer.reset();
  computer.laptop.files().put(computer.state.path("paused"), text);
  computer.laptop.files().put(computer.state.path("slowed"), text);
  Journal::undoLegacyFiles(computer.laptop.machine(), computer.state);
  for (const char* file : {"paused", "slowed"}) {
    must(computer.state.exists(file) == !isUtf8(text), "an old file is deleted, unless it can't be read");
  }
  for (const ProcessEffect& effect : computer.laptop.processes().effects()) {
    const auto resident = std::ranges::find(kResidents, effect.pid, &Resident::pid);
    must(effect.pid >= 2 && resident != std::end(kResidents), "process 1 is never touched");
    must(text.find("\t" + repairUtf8(resident->path)) != std::string_view::npos, "only what is named is undone");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Computer computer;
  const std::string_view text = fuzz::textOf(data, size);
  theOldFilesTouchOnlyWhatTheyName(computer, text);
  const auto list = Journal::decode(text);
  must(Journal::save(computer.laptop.machine(), computer.state, list), "a list can be saved");
  must(computer.state.exists("touched.json") == !list.empty(), "an empty list is no file");
  must(Journal::load(computer.state) == list, "a list is read as it was saved");
  undoTouchesOnlyWhatIsListed(computer, list);
  return 0;
}
