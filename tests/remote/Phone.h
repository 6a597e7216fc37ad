// The other end of the road, and a laptop in memory with a relay between them.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/Json.h"
#include "engine/World.h"
#include "relay/MemoryRelay.h"
#include "remote/RemoteControl.h"

namespace tovi {

using Json = nlohmann::json;

// 32 bytes: 0, 7, 14 and so on.
inline constexpr const char* kTestKey = "AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK-2vcTL0tk";

struct Phone {
  explicit Phone(const std::string& keyText)
      : key(*RemoteCrypto::b64decode(keyText)), topics(RemoteCrypto::topics(key)) {}

  std::string sealed(const Json& command) const { return *RemoteCrypto::seal(json::compact(command), key, topics.cmd); }
  std::optional<Json> opened(const std::string& message) const {
    const auto text = RemoteCrypto::open(message, key, topics.reply);
    return text ? json::parseObject(*text) : std::nullopt;
  }

  SecretKey key;
  RemoteCrypto::Topics topics;
};

// Commands aren't run but kept, and answered on the spot unless `slow`.
struct RemoteWorld : World {
  MemoryHttp& http = laptop.http();
  MemoryRelay relay{http, laptop.clock()};
  Phone phone{kTestKey};
  std::unique_ptr<RemoteControl> control;

  struct Ran {
    std::string command;
    Json args;
    RemoteControl::Result result;
  };
  std::deque<Ran> ran;
  bool slow = false;
  Json result{{"ok", true}, {"status", "Nothing running"}};
  Json panel{{"headline", "Close the lid: it sleeps"}, {"holding", false}};
  int ids = 0;

  explicit RemoteWorld(bool paired = true) {
    start();
    if (paired) pair(Json{{"enabled", true}, {"key", kTestKey}, {"server", "https://relay.example"}, {"panelUrl", ""}});
    control = newControl();
    laptop.settle();
  }
  ~RemoteWorld() { control.reset(); }

  void pair(const Json& settings) { laptop.files().put(state.path("remote.json"), settings.dump(), 0600); }

  std::unique_ptr<RemoteControl> newControl() {
    return std::make_unique<RemoteControl>(
        engine(), http,
        [this](std::string_view command, const Json& args, RemoteControl::Result done) {
          ran.push_back({std::string{command}, args, done});
          if (!slow) done(result);
        },
        [this] { return panel; });
  }

  // The process dies, and another starts.
  void restart() {
    laptop.restart();
    control.reset();
    owned.reset();
    start();
    control = newControl();
    laptop.settle();
  }

  Json command(const std::string& cmd, const Json& args = Json::object()) {
    return {{"n", "n" + std::to_string(++ids)}, {"cmd", cmd}, {"args", args}, {"t", unixSeconds(laptop.now())}};
  }
  void publish(const std::string& sealed) {
    relay.publish(phone.topics.cmd, sealed);
    laptop.settle();
  }
  void send(const Json& inner) { publish(phone.sealed(inner)); }

  // What the phone has been answered, the oldest first.
  std::vector<Json> replies() {
    std::vector<Json> found;
    for (const auto& message : relay.model().on(phone.topics.reply)) {
      const auto opened = phone.opened(message.body);
      EXPECT_TRUE(opened) << message.body;
      if (opened) found.push_back(*opened);
    }
    return found;
  }
  std::string lastError() {
    const auto all = replies();
    return all.empty() ? "(no reply)" : all.back().value("error", "(none)");
  }
  std::string cursor() { return state.read("remote-cursor").value_or("(none)"); }
};

}  // namespace tovi
