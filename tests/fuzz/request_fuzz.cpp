// What clients and phones ask of a running application. The input is a story, a line at a time:
//
//   {"id": ..., "cmd": ..., "args": ...}   a request of a client
//   ~{"cmd": ..., "args": ...}             the same by the phone's way
//   ={...}                                 config.json is edited by hand
//   +N                                     N seconds pass
//   lid, charger, agent                    the lid or the charger changes, an agent starts
//
// Every request is answered once, or never if it is none. Nobody outside loosens what keeps the machine safe, sleep is
// never off without its marker, and in the end everything is given back.

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands/CommandCenter.h"
#include "commands/Wire.h"
#include "core/Json.h"
#include "core/StateFiles.h"
#include "core/Text.h"
#include "engine/Engine.h"
#include "fuzz/Fuzz.h"
#include "platform/simulated/MemoryLaptop.h"
#include "ui/StatusController.h"

using namespace tovi;
using fuzz::must;

namespace {

constexpr int kMostLines = 24;

class Windows final : public WindowSystem {
 public:
  bool show(Window) override { return true; }
  bool snapshot(Window, const std::string& path) override {
    must(path.find("..") == std::string::npos && path.ends_with(".png"), "a picture is a file of our folder");
    return true;
  }
  void setShownInDock(bool) override {}
  bool ordinaryWindowVisible() override { return false; }
  void setAppearance(AppearanceChoice) override {}
  Registration onHotkey(std::function<void()>) override { return {}; }
};

class Story {
 public:
  Story() {
    laptop_.files().put(laptop_.surroundings().launchAgents + "/com.norvane.tovi.watchdog.plist", "<plist/>");
    laptop_.files().put(state_.path("watchdog.sh"), "#!/bin/sh\n", 0755);
    laptop_.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = true; });
    const Pid notes = start("/Applications/Notes.app/Contents/MacOS/Notes");
    laptop_.edit([&](LaptopReport& report) {
      report.applications.push_back({.pid = notes,
                                     .name = "Notes",
                                     .bundleIdentifier = "com.example.notes",
                                     .path = "/Applications/Notes.app",
                                     .regular = true});
    });
    engine_ = std::make_unique<Engine>(laptop_.machine(), false);
    ui_ = std::make_unique<StatusController>(*engine_, &windows_);
    center_ = std::make_unique<CommandCenter>(*engine_, *ui_);
    laptop_.settle();
    replies_ = Wire::replyDir(laptop_.machine(), state_);
  }

  void run(std::string_view story) {
    for (int count = 0; count < kMostLines && !story.empty(); ++count) {
      const Config before = engine_->config;
      const std::string_view line = fuzz::takeUpTo(story, '\n');
      step(line);
      must(engine_->config->heatGuard || !before.heatGuard, "nobody outside turns the heat guard off");
      must(engine_->config->batteryFloor >= before.batteryFloor, "nobody outside lowers the battery limit");
      const bool edited = line.starts_with('=');
      must(engine_->config->onlyOnPower || !before.onlyOnPower || edited, "no command allows battery power again");
      isHonest();
    }
  }

  void end() {
    center_.reset();
    engine_->shutdown();
    isHonest();
    must(!laptop_.switches().sleepDisabled, "at the end sleep is allowed");
    must(!state_.exists("touched.json"), "at the end nothing is slowed or paused");
    for (const auto& [pid, path] : programs_) {
      const MemoryProcess* process = laptop_.processes().find(pid);
      must(process != nullptr && !process->stopped && !process->background, "at the end every program runs");
    }
  }

 private:
  MemoryLaptop laptop_;
  StateFiles state_{laptop_.machine()};
  Windows windows_;
  std::vector<std::pair<Pid, std::string>> programs_;
  std::unique_ptr<Engine> engine_;
  std::unique_ptr<StatusController> ui_;
  std::unique_ptr<CommandCenter> center_;
  std::string replies_;

  Pid start(const std::string& path) {
    const Pid pid = laptop_.processes().add(
        {.pid = 0, .parent = 1, .path = path, .arguments = {path}, .workingDirectory = "/", .watts = 2, .cores = 0.5});
    programs_.emplace_back(pid, path);
    return pid;
  }

  void isHonest() {
    const bool off = laptop_.switches().sleepDisabled;
    must(off == state_.exists("hold") && off == engine_->holding, "sleep is off with its marker, or on without");
  }

  void step(std::string_view line) {
    if (line.starts_with('=')) {
      laptop_.advance(0.01);
      laptop_.files().put(Config::path(state_), line.substr(1));
      laptop_.advance(3);
    } else if (line.starts_with('+')) {
      laptop_.advance(std::clamp(text::decimal<int>(line.substr(1)).value_or(1), 0, 120));
    } else if (line == "lid") {
      laptop_.edit([](LaptopReport& report) {
        report.lid = report.lid == LaptopLid::open ? LaptopLid::closed : LaptopLid::open;
      });
      laptop_.settle();
    } else if (line == "charger") {
      laptop_.edit([](LaptopReport& report) {
        auto& battery = report.battery.value();
        battery.externalConnected = !battery.externalConnected.value_or(false);
        battery.currentCapacity = *battery.externalConnected ? 90 : 12;
      });
      laptop_.settle();
    } else if (line == "agent") {
      start("/usr/local/bin/claude");
    } else if (line.starts_with('~')) {
      direct(line.substr(1));
    } else {
      request(std::string{line});
    }
  }

  std::vector<std::string> answers() { return laptop_.files().list(replies_).value_or(std::vector<std::string>{}); }

  void request(const std::string& line) {
    const auto object = json::parseObject(line);
    const auto id = object ? json::textAt(*object, "id") : std::nullopt;
    const bool isRequest = id && Wire::isRequestId(*id) && json::textAt(*object, "cmd");
    laptop_.broadcast().post(line);
    laptop_.settle();
    if (!isRequest) return must(answers().empty(), "what is no request gets no answer");
    for (int seconds = 0; answers().empty() && seconds < 30; ++seconds) laptop_.advance(1);
    must(answers() == std::vector<std::string>{*id + ".json"}, "a request gets an answer under its own name");
    const std::string path = replies_ + "/" + *id + ".json";
    const auto status = laptop_.files().status(path);
    must(status && status->mode == Wire::kReplyMode, "an answer is private");
    const auto reply = json::parseObject(laptop_.files().read(path).value_or(""));
    isAnswer(reply.value_or(nullptr));
    laptop_.files().erase(path);
  }

  void direct(std::string_view line) {
    const auto object = json::parseObject(line);
    const auto command = object ? json::textAt(*object, "cmd") : std::nullopt;
    if (!command) return;
    const json::Value* args = json::member(*object, "args");
    const auto count = std::make_shared<int>(0);
    center_->handle(*command, args != nullptr ? *args : json::Value(), [count](const json::Value& reply) {
      must(++*count == 1, "a command is answered once");
      isAnswer(reply);
      must(!json::compact(reply).empty(), "an answer can be written");
    });
    for (int seconds = 0; *count == 0 && seconds < 30; ++seconds) laptop_.advance(1);
    must(*count == 1, "a command is answered");
  }

  static void isAnswer(const json::Value& reply) {
    must(reply.is_object(), "an answer is an object");
    if (json::boolAt(reply, "ok") == false) must(json::textAt(reply, "error").has_value(), "a refusal says why");
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Story story;
  story.run(fuzz::textOf(data, size));
  story.end();
  return 0;
}
