// The road of a request from another process, and what is done where nobody answers.

#include "commands/Client.h"

#include <gtest/gtest.h>

#include "commands/Center.h"
#include "commands/Peers.h"
#include "commands/Wire.h"

namespace tovi {
namespace {

class ClientTest : public testing::Test, protected World {
 protected:
  // Passes virtual time, in which the application on the same laptop runs.
  Client client{laptop.machine(), state, [this](Seconds span) {
                  ++pauses;
                  laptop.advance(span);
                  if (afterPause) afterPause();
                }};
  int pauses = 0;
  std::function<void()> afterPause;

  // What an application does with a request: answers with its command and arguments.
  Registration answer(Seconds delay = Seconds{0}) {
    return laptop.machine().broadcast.listen([this, delay](const std::string& text) {
      later.push_back(laptop.machine().queue.after(delay, [this, request = *json::parseObject(text)] {
        const Json reply{{"ok", true}, {"cmd", request["cmd"]}, {"args", request["args"]}};
        state.writeAtomically(Wire::json(reply), state.path("replies/" + request["id"].get<std::string>() + ".json"));
      }));
    });
  }
  std::vector<Registration> later;

  Json nobody() { return Wire::failure("Tovi didn't answer. Is it running? Open /Applications/Tovi.app"); }
};

TEST_F(ClientTest, TakesTheReplyAndLeavesNoFile) {
  const auto app = answer();
  EXPECT_EQ(client.attempt("hold", {{"minutes", 5}}, Seconds{8}),
            Json::parse(R"({"ok": true, "cmd": "hold", "args": {"minutes": 5}})"));
  EXPECT_EQ(laptop.files().list(state.path("replies")).value().size(), 0u);
  EXPECT_LE(pauses, 2) << "a quick answer is seen at once";
}

TEST_F(ClientTest, LooksForALateReplyNoMoreOftenThanNeededAndByAClockThatNobodySets) {
  const auto app = answer(Seconds{5});
  afterPause = [&] { laptop.stepClock(3600); };
  EXPECT_TRUE(client.attempt("power", Json::object(), Seconds{8}));
  EXPECT_LE(pauses, 110);
}

TEST_F(ClientTest, WaitsForAFileThatIsNotCompleteYet) {
  const auto app = laptop.machine().broadcast.listen([this](const std::string& text) {
    const std::string path = state.path("replies/" + (*json::parseObject(text))["id"].get<std::string>() + ".json");
    laptop.files().put(path, "{\"ok\": tr");
    later.push_back(
        laptop.machine().queue.after(Seconds{1}, [this, path] { laptop.files().put(path, "{\"ok\": true}"); }));
  });
  EXPECT_EQ(client.attempt("status", Json::object(), Seconds{8}), Json({{"ok", true}}));
}

TEST_F(ClientTest, GivesUpAtTheTimeOut) {
  const auto lock = Peers::takeLock(laptop.machine(), state);
  const auto app = answer(Seconds{60});
  const Seconds before = laptop.clock().sinceBoot();
  EXPECT_EQ(client.send("status", Json::object(), Seconds{8}), nobody());
  EXPECT_NEAR((laptop.clock().sinceBoot() - before).count(), 8, 0.001);
  EXPECT_EQ(laptop.commandCount("/usr/bin/open -g -b com.norvane.Tovi"), 0u) << "it runs; starting doesn't help";
}

TEST_F(ClientTest, NobodyThereIsKnownAtOnceAndTheApplicationIsStarted) {
  EXPECT_EQ(client.attempt("status", Json::object(), Seconds{8}), std::nullopt);
  EXPECT_EQ(pauses, 0);
  const Seconds before = laptop.clock().sinceBoot();
  EXPECT_EQ(client.send("status", Json::object(), Seconds{8}), nobody());
  EXPECT_EQ(laptop.commandCount("/usr/bin/open -g -b com.norvane.Tovi"), 1u);
  EXPECT_NEAR((laptop.clock().sinceBoot() - before).count(), 2.5, 0.06);
}

TEST_F(ClientTest, ApplicationThatWasStartedGetsTheRequestWhichMayHaveToBeDoneInTime) {
  for (const double delay : {0.0, 60.0}) {
    std::unique_ptr<Files::Lock> lock;
    Registration app;
    // The lock after one second, ears half a second later.
    const Seconds start = laptop.clock().sinceBoot();
    const auto passed = [&] { return (laptop.clock().sinceBoot() - start).count(); };
    afterPause = [&] {
      if (passed() > 1 && !lock) lock = Peers::takeLock(laptop.machine(), state);
      if (passed() > 1.5 && !app) app = answer(Seconds{delay});
    };
    if (delay == 0) {
      EXPECT_EQ(client.send("hold", Json::object(), Seconds{8})["cmd"], "hold");
    } else {
      EXPECT_EQ(client.sendWithin("status", Json::object(), Seconds{8}), nobody());
      EXPECT_NEAR(passed(), 8, 0.001) << "the start counts too";
    }
  }
}

TEST_F(ClientTest, TooLargeARequestFailsAtOnceWithItsReason) {
  const auto app = answer();
  EXPECT_EQ(client.send("hold", {{"reason", std::string(MemoryBroadcast::kLargest, 'x')}}, Seconds{8}),
            Wire::failure("That request is too large to send to Tovi."));
  EXPECT_EQ(pauses, 0);
}

}  // namespace
}  // namespace tovi
