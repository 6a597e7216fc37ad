// The whole road in real time: a relay on loopback, the real web client, and a phone that others wrote.

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "core/Text.h"
#include "linux/Helpers.h"
#include "platform/linux/CurlHttp.h"
#include "relay/LoopbackRelay.h"
#include "remote/Phone.h"

extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace tovi {
namespace {

// The process's size says nothing under a sanitizer, which keeps freed memory back.
std::size_t allocatedBytes() {
  return __sanitizer_get_current_allocated_bytes != nullptr ? __sanitizer_get_current_allocated_bytes()
                                                            : ::mallinfo2().uordblks;
}

// An engine on a laptop in memory, whose phone channel runs on the real loop.
struct Loopback : World {
  LoopbackRelay relay;
  EventLoop loop;
  CurlHttp http{loop};
  Phone phone{kTestKey};
  std::vector<std::string> ran;
  std::vector<std::string> modes;
  std::unique_ptr<RemoteControl> control;

  Loopback() {
    // The commands' clock is the real one.
    laptop.stepClock(secondsBetween(laptop.now(), Date{std::chrono::system_clock::now().time_since_epoch()}));
    laptop.files().put(state.path("remote.json"),
                       Json{{"enabled", true}, {"key", kTestKey}, {"server", relay.url()}, {"panelUrl", ""}}.dump());
    for (const char* name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) ::unsetenv(name);
    start();
  }
  void connect() {
    control = std::make_unique<RemoteControl>(
        engine(), http,
        [this](std::string_view command, const Json& args, const RemoteControl::Result& done) {
          ran.emplace_back(command);
          modes.push_back(args.value("mode", ""));
          done({{"ok", true}, {"next", "Grüße"}});
        },
        [] {
          return Json{{"headline", "Close the lid: it sleeps ☕"}};
        });
    ASSERT_TRUE(runUntil(loop, [&] { return relay.streams() == 1 && control->status.get() == "Connected"; }));
  }
  std::string sealed(const std::string& cmd) {
    static int ids = 0;
    return phone.sealed({{"n", "n" + std::to_string(++ids)}, {"cmd", cmd}, {"t", unixSeconds(laptop.now())}});
  }
};

TEST(Loopback, ACommandGoesThereAndItsAnswerBack) {
  Loopback world;
  world.relay.setPieces(50);  // lines come in pieces
  world.connect();
  world.relay.publish(world.phone.topics.cmd, world.sealed("panel"));
  ASSERT_TRUE(runUntil(world.loop, [&] { return world.relay.on(world.phone.topics.reply).size() == 1; }));
  const auto reply = world.phone.opened(world.relay.on(world.phone.topics.reply)[0].body);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->at("ok"), true);
  EXPECT_EQ(world.relay.requests().back().headers.at("cache"), "yes");
}

TEST(Loopback, WhatWasSentWhileTheStreamWasDownComesOnceAndNothingComesTwice) {
  Loopback world;
  world.connect();
  const std::string& topic = world.phone.topics.cmd;
  world.relay.publish(topic, world.sealed("panel"));
  ASSERT_TRUE(runUntil(world.loop, [&] { return world.ran.size() == 1; }));
  world.control.reset();
  EXPECT_TRUE(eventually([&] { return world.relay.streams() == 0; }));
  world.relay.publish(topic, world.sealed("mode"));
  world.relay.publish(topic, "garbage");
  world.relay.publish(topic, world.sealed("preset"));
  world.connect();
  ASSERT_TRUE(runUntil(world.loop, [&] { return world.ran.size() == 3; }));
  for (int i = 0; i < 20; ++i) {
    world.relay.cutStreamsInLine();
    world.relay.publish(topic, world.sealed("watch"));
    ASSERT_TRUE(runUntil(world.loop, [&] { return world.ran.size() == 4u + static_cast<std::size_t>(i); })) << i;
  }
  EXPECT_EQ(world.ran[0] + " " + world.ran[1] + " " + world.ran[2], "panel mode preset");
}

TEST(Loopback, AnOverloadedRelayIsNotAskedAgainAtOnce) {
  Loopback world;
  world.relay.order({.status = 429, .body = RelayModel::error(42901, 429, "limit reached"), .retryAfter = "30"});
  world.control = std::make_unique<RemoteControl>(
      world.engine(), world.http, [](auto&&...) {}, [] { return Json::object(); });
  ASSERT_TRUE(runUntil(world.loop, [&] { return world.control->status.get().has_value(); }));
  EXPECT_EQ(world.control->status.get(), "Can't reach " + world.relay.url() + ", retrying");
  runFor(world.loop, 0.05);
  EXPECT_EQ(world.relay.requests().size(), 1u);
}

TEST(Loopback, APhoneThatOthersWroteIsUnderstoodAndUnderstands) {
  if (std::system("node --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "node isn't installed";
  Loopback world;
  world.connect();
  const std::string command = "timeout 20 node " + std::string(TOVI_INTEROP) + " " + world.relay.url() + " " + kTestKey;
  std::vector<Json> answers;
  bool ended = false;
  int status = -1;
  // The phone runs beside the loop, off the main thread.
  world.loop.offMain([&]() -> MainQueue::Task {
    std::string output;
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), [](FILE*) { return 0; });
    char room[4096];
    while (std::fgets(room, sizeof room, pipe.get()) != nullptr) output += room;
    const int code = ::pclose(pipe.get());
    return [&, output, code] {
      for (const auto line : text::pieces(output, "\n")) answers.push_back(json::parse(line).value_or(Json()));
      status = code;
      ended = true;
    };
  });
  ASSERT_TRUE(runUntil(
      world.loop, [&] { return ended; }, 30));
  ASSERT_EQ(status, 0);
  ASSERT_EQ(answers.size(), 3u);
  EXPECT_EQ(answers[0].value("re", ""), "n0");
  EXPECT_EQ(answers[0]["panel"]["headline"], "Close the lid: it sleeps ☕");
  EXPECT_EQ(answers[1]["next"], "Grüße");
  EXPECT_EQ(world.modes, (std::vector<std::string>{"", "Grüße ☕"}));
  EXPECT_EQ(answers[2]["error"], "status isn't allowed from the phone");
}

TEST(Loopback, ReconnectionsLeaveNothingBehind) {
  Loopback world;
  world.connect();
  const std::string& topic = world.phone.topics.cmd;
  const auto turns = [&](int count) {
    for (int i = 0; i < count; ++i) {
      world.relay.publish(topic, "x");  // delivered, so that no pause follows
      const std::string cursor = world.relay.on(topic).back().id;
      if (!runUntil(world.loop, [&] { return world.state.read("remote-cursor") == cursor; })) return false;
      world.relay.endStreams();
      if (!runUntil(world.loop, [&] { return world.relay.streams() == 1; })) return false;
    }
    return true;
  };
  ASSERT_TRUE(turns(30));
  const std::size_t handles = static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator{}));
  const std::size_t before = allocatedBytes();
  ASSERT_TRUE(turns(60));
  EXPECT_LE(static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                                   std::filesystem::directory_iterator{})),
            handles + 4);
  EXPECT_LE(allocatedBytes(), before + 60 * 4096) << "the relay's own notes are a part of it";
}

}  // namespace
}  // namespace tovi
