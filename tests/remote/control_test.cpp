#include "remote/RemoteControl.h"

#include "remote/Phone.h"

namespace tovi {
namespace {

TEST(RemoteControl, RunsEachOfTheCommandsThatAPhoneMayGiveAndNoOther) {
  RemoteWorld world;
  EXPECT_EQ(RemoteCrypto::allowed().size(), 13u);
  for (const std::string_view name : RemoteCrypto::allowed()) {
    world.send(world.command(std::string{name}, {{"mode", "off"}}));
    ASSERT_FALSE(world.ran.empty()) << name;
    EXPECT_EQ(world.ran.back().command, name);
    EXPECT_EQ(world.ran.back().args, (Json{{"mode", "off"}}));
  }
  ASSERT_EQ(world.replies().size(), 13u);
  EXPECT_EQ(world.replies().back(), (Json{{"ok", true},
                                          {"re", "n13"},
                                          {"t", static_cast<std::int64_t>(unixSeconds(world.laptop.now()))},
                                          {"panel", world.panel}}));
  for (const Json& none : {Json("text"), Json(), Json(5)}) {
    Json command = world.command("panel");
    command["args"] = none;
    world.send(command);
    EXPECT_EQ(world.ran.back().args, Json::object());
  }
  for (const std::string name : {"status", "quit", "hold", "override_floor", "", "PANEL", "panel "}) {
    world.send(world.command(name));
    EXPECT_EQ(world.lastError(), name + " isn't allowed from the phone");
    EXPECT_FALSE(world.replies().back().contains("panel"));
  }
  EXPECT_EQ(world.ran.size(), 16u);
}

TEST(RemoteControl, RefusesReplaysFloodsAndWrongClocksInWords) {
  RemoteWorld world;
  const auto error = [&](Json command) {
    world.send(command);
    return world.lastError();
  };
  Json command = world.command("panel");
  EXPECT_EQ(error(command), "(none)");
  EXPECT_EQ(error(command), "already handled");
  const std::string clock = "too old or from the future (check the phone's clock)";
  const double now = unixSeconds(world.laptop.now());
  for (const Json& t : {Json(now - 360), Json(std::to_string(now)), Json(1e300), Json()}) {
    command = world.command("panel");
    command["t"] = t;
    EXPECT_EQ(error(command), clock) << t;
  }
  command = world.command("wake");
  command["t"] = now - 7200;
  EXPECT_EQ(error(command), "(none)");
  command["n"] = 7;
  EXPECT_EQ(error(command), "bad id");
  for (int i = 0; i < 30; ++i) error(world.command("panel"));
  EXPECT_EQ(world.lastError(), "too many commands, wait a minute");
  EXPECT_EQ(world.ran.size(), 30u) << "what is refused doesn't run";
}

TEST(RemoteControl, NeverAnswersAStranger) {
  RemoteWorld world;
  const Phone stranger(RemoteCrypto::newKey());
  const std::string good = world.phone.sealed(world.command("panel"));
  const std::string topic = world.phone.topics.cmd;
  const auto sealed = [&](const std::string& text) { return *RemoteCrypto::seal(text, world.phone.key, topic); };
  for (const std::string& message :
       {std::string("garbage"), std::string(), stranger.sealed(world.command("panel")), good.substr(0, good.size() - 2),
        *RemoteCrypto::seal(json::compact(world.command("panel")), world.phone.key, world.phone.topics.reply),
        sealed("[1]"), sealed("not json"), sealed(std::string(60000, '[')), sealed("")}) {
    world.publish(message);
  }
  // Frames that no relay should send.
  for (const char* line :
       {"\n", "[]\n", "{\"event\":\"message\"}\n", "{\"event\":5,\"id\":[]}\n", "\xff\xfe\n",
        "{\"event\":\"message\",\"id\":\"x\",\"message\":7}\n", "null\n", "{\"event\":\"poll_request\"}\n"}) {
    world.relay.tellSubscribers(topic, line);
  }
  world.laptop.settle();
  EXPECT_TRUE(world.replies().empty());
  EXPECT_TRUE(world.ran.empty());
  world.publish(good);
  EXPECT_EQ(world.ran.size(), 1u) << "and hears its own phone all the while";
}

TEST(RemoteControl, WhatPiledUpForTooLongIsDroppedWithoutAWord) {
  RemoteWorld world;
  const auto frame = [&](const Json& time, const Json& command) {
    world.relay.tellSubscribers(
        world.phone.topics.cmd,
        Json{{"event", "message"}, {"id", "relayed"}, {"time", time}, {"message", world.phone.sealed(command)}}.dump() +
            "\n");
    world.laptop.settle();
    return world.ran.size();
  };
  const double now = unixSeconds(world.laptop.now());
  EXPECT_EQ(frame(now - 301, world.command("panel")), 0u);
  EXPECT_EQ(frame(-5, world.command("panel")), 0u);
  EXPECT_EQ(frame(now - 10801, world.command("wake")), 0u);
  EXPECT_TRUE(world.replies().empty());
  EXPECT_EQ(frame(now - 299, world.command("panel")), 1u);
  EXPECT_EQ(frame(now - 10799, world.command("wake")), 2u);
  EXPECT_EQ(frame("yesterday", world.command("panel")), 3u) << "a time that is no number says nothing";
}

TEST(RemoteControl, TakesOneCommandAtATimeInTheirOrder) {
  RemoteWorld world;
  world.slow = true;
  const std::string topic = world.phone.topics.cmd;
  const auto line = [&](const std::string& id) {
    return Json{{"event", "message"}, {"id", id}, {"message", world.phone.sealed(world.command("power"))}}.dump() +
           "\n";
  };
  for (const char piece : line("first") + line("second") + line("third"))
    world.relay.tellSubscribers(topic, std::string(1, piece));
  world.laptop.settle();
  ASSERT_EQ(world.ran.size(), 1u);
  EXPECT_EQ(world.cursor(), "first");
  // Even a new subscription waits for the command that runs.
  world.engine().onCheckIn();
  world.relay.tellSubscribers(topic, line("fourth"));
  world.laptop.settle();
  EXPECT_EQ(world.ran.size(), 1u);
  world.ran[0].result(world.result);
  world.laptop.settle();
  ASSERT_EQ(world.replies().size(), 1u);
  ASSERT_EQ(world.ran.size(), 2u);
  EXPECT_EQ(world.cursor(), "fourth");
}

TEST(RemoteControl, AReplyIsNotSentToAPairingThatIsNoMore) {
  for (const bool newKey : {true, false}) {
    RemoteWorld world;
    world.slow = true;
    world.send(world.command("power"));
    newKey ? world.control->enable(true) : static_cast<void>(world.control->disable());
    world.ran[0].result(world.result);
    world.laptop.settle();
    EXPECT_TRUE(world.replies().empty());
  }
}

TEST(RemoteControl, AResultThatComesAfterTheEndDoesNoHarm) {
  RemoteWorld world;
  world.slow = true;
  world.send(world.command("power"));
  world.control.reset();
  world.ran[0].result(world.result);
  world.laptop.settle();
  EXPECT_EQ(world.engine().onCheckIn, nullptr);
  EXPECT_EQ(world.http.openReads(), 0u);
}

TEST(RemoteControl, AReplayAfterARestartIsKeptOutByCursorAndAge) {
  RemoteWorld world;
  const std::string sealed = world.phone.sealed(world.command("release"));
  world.publish(sealed);
  EXPECT_EQ(world.ran.size(), 1u);
  world.restart();
  EXPECT_TRUE(world.relay.subscriptions.back().ends_with("/json?since=" + world.cursor()));
  EXPECT_EQ(world.ran.size(), 1u) << "fetched again";
  world.laptop.advance(301);
  world.publish(sealed);
  EXPECT_EQ(world.ran.size(), 1u);
  EXPECT_EQ(world.lastError(), "too old or from the future (check the phone's clock)");
}

TEST(RemoteControl, PairsUnpairsAndPairsAgain) {
  RemoteWorld world(false);
  EXPECT_TRUE(world.relay.subscriptions.empty());
  world.control->enable(false);
  world.laptop.settle();
  const std::string key = world.control->settings().key;
  EXPECT_EQ(world.engine().remoteStatus.get(), "Connected");

  world.laptop.files().put(world.state.path("remote-cursor"), "abc");
  EXPECT_TRUE(world.control->disable());
  EXPECT_EQ(world.http.openReads(), 0u);
  EXPECT_EQ(world.engine().remoteStatus.get(), std::nullopt);
  world.engine().onCheckIn();
  EXPECT_EQ(world.http.openReads(), 0u) << "a check-in doesn't connect what is off";
  EXPECT_FALSE(RemoteSettings::load(world.state).enabled);

  world.control->enable(false);
  EXPECT_EQ(world.control->settings().key, key) << "the pairing is kept";
  EXPECT_EQ(world.cursor(), "abc");
  world.control->enable(true);
  EXPECT_NE(world.control->settings().key, key);
  EXPECT_EQ(world.cursor(), "(none)") << "of a stream that is no more";
  EXPECT_EQ(RemoteSettings::load(world.state), world.control->settings());
  EXPECT_EQ(world.http.openReads(), 1u);

  const RemoteSettings before = world.control->settings();
  world.laptop.faults().failNext();
  world.control->enable(true);
  EXPECT_EQ(world.control->status.get(), "Couldn't save the pairing key");
  EXPECT_EQ(world.control->settings(), before);

  world.control.reset();
  world.pair({{"enabled", true}, {"key", "short"}, {"server", "https://relay.example"}, {"panelUrl", ""}});
  world.control = world.newControl();
  world.laptop.settle();
  EXPECT_EQ(world.http.openReads(), 0u) << "a key that is none";
  world.control->enable(false);
  EXPECT_TRUE(world.control->settings().keyData()) << "is replaced";
}

}  // namespace
}  // namespace tovi
