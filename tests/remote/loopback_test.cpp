// The whole road in real time: a relay on loopback, and the real web client.

#include <unistd.h>

#include <filesystem>

#include "linux/Helpers.h"
#include "platform/linux/CurlHttp.h"
#include "relay/LoopbackRelay.h"
#include "remote/Phone.h"

namespace tovi {
namespace {

// An engine on a laptop in memory, whose phone channel runs on the real loop.
struct Loopback : World {
  LoopbackRelay relay;
  EventLoop loop;
  CurlHttp http{loop};
  Phone phone{kTestKey};
  std::vector<std::string> ran;
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
          ran.push_back(std::string(command) + args.value("mode", ""));
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

TEST(Loopback, WhatWasSentWhileTheStreamWasDownComesOnceAndReconnectionsLeaveNothingBehind) {
  Loopback world;
  world.relay.setPieces(50);  // lines come in pieces
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
  const auto handles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
  const auto before = handles();
  for (int i = 0; i < 24; ++i) {  // a phone may give thirty commands a minute
    i % 2 == 0 ? world.relay.endStreams() : world.relay.cutStreamsInLine();
    world.relay.publish(topic, world.sealed("watch"));
    ASSERT_TRUE(runUntil(world.loop, [&] { return world.ran.size() == 4u + static_cast<std::size_t>(i); })) << i;
  }
  EXPECT_LE(handles(), before + 4);
  EXPECT_EQ(world.ran[0] + " " + world.ran[1] + " " + world.ran[2], "panel mode preset");
}

TEST(Loopback, APhoneThatOthersWroteIsUnderstoodAndUnderstands) {
  if (std::system("node --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "node isn't installed";
  Loopback world;
  world.connect();
  const std::string command = "timeout 20 node " + std::string(TOVI_INTEROP) + " " + world.relay.url() + " " + kTestKey;
  std::vector<Json> answers;
  std::optional<int> status;
  // The phone runs beside the loop, off the main thread.
  world.loop.offMain([&]() -> MainQueue::Task {
    FILE* pipe = ::popen(command.c_str(), "r");
    char line[4096];
    while (std::fgets(line, sizeof line, pipe) != nullptr) answers.push_back(json::parse(line).value_or(Json()));
    return [&status, code = ::pclose(pipe)] { status = code; };
  });
  ASSERT_TRUE(runUntil(
      world.loop, [&] { return status.has_value(); }, 30));
  ASSERT_EQ(status, 0);
  ASSERT_EQ(answers.size(), 3u);
  EXPECT_EQ(answers[0].value("re", ""), "n0");
  EXPECT_EQ(answers[0]["panel"]["headline"], "Close the lid: it sleeps ☕");
  EXPECT_EQ(answers[1]["next"], "Grüße");
  EXPECT_EQ(world.ran, (std::vector<std::string>{"panel", "modeGrüße ☕"}));
  EXPECT_EQ(answers[2]["error"], "status isn't allowed from the phone");
}

}  // namespace
}  // namespace tovi
