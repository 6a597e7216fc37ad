// An engine with its command center on a laptop in memory, and windows that only remember what was shown.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "commands/CommandCenter.h"
#include "core/Json.h"
#include "engine/World.h"
#include "ui/StatusController.h"

namespace tovi {

using Json = nlohmann::json;

class FakeWindows final : public WindowSystem {
 public:
  bool show(Window window) override {
    shown.push_back(window);
    return true;
  }
  bool snapshot(Window window, const std::string& path) override {
    pictures.emplace_back(window, path);
    return paints;
  }
  void setShownInDock(bool shownThere) override { dock.push_back(shownThere); }
  bool ordinaryWindowVisible() override { return ordinary; }
  void setAppearance(AppearanceChoice choice) override { looks.push_back(choice); }
  Registration onHotkey(std::function<void()> call) override {
    key = std::move(call);
    return Registration([this] { key = nullptr; });
  }

  std::vector<Window> shown;
  std::vector<std::pair<Window, std::string>> pictures;
  std::vector<bool> dock;
  std::vector<AppearanceChoice> looks;
  std::function<void()> key;
  bool ordinary = false;
  bool paints = true;
};

struct Center : World {
  FakeWindows windows;
  std::unique_ptr<StatusController> ui;
  std::unique_ptr<CommandCenter> center;

  Center() {
    start();
    ui = std::make_unique<StatusController>(engine(), &windows);
    center = std::make_unique<CommandCenter>(engine(), *ui);
  }
  ~Center() { center.reset(); }

  // The reply, waited for if it takes its time. A second reply to the same request is a fault.
  Json ask(const std::string& command, const Json& args = Json::object()) {
    std::vector<Json> replies;
    center->handle(command, args, [&](const Json& reply) { replies.push_back(reply); });
    if (replies.empty()) laptop.advance(2);
    EXPECT_EQ(replies.size(), 1u) << command;
    return replies.empty() ? Json() : replies.front();
  }
  std::string errorOf(const std::string& command, const Json& args = Json::object()) {
    const Json reply = ask(command, args);
    EXPECT_EQ(reply.value("ok", true), false) << reply;
    EXPECT_EQ(reply.size(), 2u) << reply;
    return reply.value("error", "");
  }

  void withoutSetup() {
    laptop.edit([](LaptopReport& report) { report.privileged = false; });
    engine().setupReady = false;
  }
};

}  // namespace tovi
