#include "remote/RemoteChannel.h"

#include "remote/Phone.h"

namespace tovi {
namespace {

struct Death {
  const char* name;
  std::function<bool(MemoryHttp::Exchange&)> act;
  double lasts = 0;  // seconds until it is noticed
};

TEST(RemoteChannel, EachDeathOfTheStreamHasItsWordsAndLongerAndLongerPauses) {
  const HttpHead good{200, "application/x-ndjson", {}};
  const auto refused = [](auto& exchange) { return exchange.fail(), true; };
  const auto answered = [](HttpHead head, std::string body) {
    return [=](auto& exchange) { return exchange.answer(head), exchange.send(body), exchange.end(), true; };
  };
  const Death deaths[] = {
      {"refused", refused},
      {"200 with HTML", answered({200, "text/html", {}}, "<html>")},
      {"200 without a type", answered({200, "", {}}, "{}")},
      {"404", answered({404, "application/json", {}}, "{}")},
      {"429 without a time", answered({429, "application/json", {}}, "{}")},
      {"reset in a line", [=](auto& e) { return e.answer(good), e.send("{\"event\":\"keepa"), e.fail(), true; }},
      {"silent", [](auto&) { return true; }, 120},
      {"silent once it was open", [=](auto& e) { return e.answer(good), e.send("{\"event\":\"open\"}\n"), true; }, 120},
  };
  for (const Death& death : deaths) {
    RemoteWorld world;
    std::vector<double> attempts;  // when, in seconds from the first
    world.relay.instead = [&, first = world.laptop.now()](auto& exchange) {
      attempts.push_back(secondsBetween(first, world.laptop.now()));
      return death.act(exchange);
    };
    world.engine().onCheckIn();
    world.laptop.advance(700 + 8 * death.lasts);
    const std::vector<double> pauses{5, 10, 20, 40, 80, 120, 120, 120};
    double due = 0;
    ASSERT_GE(attempts.size(), pauses.size()) << death.name;
    for (std::size_t i = 0; i < pauses.size(); ++i) {
      EXPECT_NEAR(attempts[i], due, 0.001) << death.name << ", attempt " << i;
      due += death.lasts + pauses[i];
    }
    EXPECT_EQ(world.control->status.get(), "Can't reach relay.example, retrying") << death.name;
    EXPECT_EQ(world.engine().remoteStatus.get(), world.control->status.get());
    EXPECT_LE(world.http.openReads(), 1u);
  }
}

TEST(RemoteChannel, AStreamThatDeliveredIsOpenedAgainAtOnceAndThePausesBeginAnew) {
  RemoteWorld world;
  const std::string topic = world.phone.topics.cmd;
  const auto refuse = [](auto& exchange) { return !exchange.isPost && (exchange.fail(), true); };
  for (const bool clean : {true, false}) {
    world.relay.instead = refuse;
    world.engine().onCheckIn();
    world.laptop.advance(36);  // 5, 10 and 20 have passed
    world.relay.instead = nullptr;
    world.laptop.advance(40);
    const auto before = world.relay.subscriptions.size();
    for (int i = 0; i < 80; ++i) {
      world.relay.keepalive(topic);
      world.laptop.advance(45);
    }
    EXPECT_EQ(world.control->status.get(), "Connected");
    EXPECT_EQ(world.relay.subscriptions.size(), before) << "an hour in one stream";
    world.relay.instead = refuse;
    world.relay.cut(topic, clean);
    world.laptop.settle();
    EXPECT_EQ(world.relay.subscriptions.size(), before + 1) << "no pause after a delivery";
    world.laptop.advance(4.9);
    EXPECT_EQ(world.relay.subscriptions.size(), before + 1);
    world.laptop.advance(0.2);
    EXPECT_EQ(world.relay.subscriptions.size(), before + 2) << "the pauses begin at five seconds again";
  }
}

TEST(RemoteChannel, AStreamThatEndedInPeaceWithoutADeliveryIsNoFailure) {
  RemoteWorld world;
  world.relay.cut(world.phone.topics.cmd, true);
  world.laptop.advance(4.9);
  EXPECT_EQ(world.control->status.get(), "Connected");
  EXPECT_EQ(world.relay.subscriptions.size(), 1u);
  world.laptop.advance(0.2);
  EXPECT_EQ(world.relay.subscriptions.size(), 2u);
}

TEST(RemoteChannel, TheRelayCanAskForALongerPauseButNotForAShorterOne) {
  for (const auto& [status, asked, pause] :
       {std::tuple{429, 60.0, 60.0}, {503, 60.0, 60.0}, {429, 1.0, 5.0}, {500, 60.0, 5.0}, {429, 1e12, 120.0}}) {
    RemoteWorld world;
    world.relay.instead = [status = status, asked = asked](auto& exchange) {
      exchange.answer({status, "application/json", Seconds{asked}});
      return true;
    };
    world.engine().onCheckIn();
    world.laptop.settle();
    const auto before = world.relay.subscriptions.size();
    world.laptop.advance(pause - 0.1);
    EXPECT_EQ(world.relay.subscriptions.size(), before) << status << " " << asked;
    world.laptop.advance(0.2);
    EXPECT_EQ(world.relay.subscriptions.size(), before + 1) << status << " " << asked;
  }
}

TEST(RemoteChannel, TheCursorIsWrittenBeforeTheMessageIsOpened) {
  RemoteWorld world;
  world.publish("can't be opened");
  const std::string id = world.relay.model().messages().back().id;
  EXPECT_EQ(world.cursor(), id);
  world.slow = true;
  world.send(world.command("panel"));
  EXPECT_EQ(world.cursor(), world.relay.model().messages().back().id) << "before its command has run";
  world.slow = false;
  world.ran[0].result(world.result);  // what follows would wait for it
  world.laptop.settle();
  const std::string last = world.cursor();
  world.relay.keepalive(world.phone.topics.cmd);
  world.laptop.settle();
  EXPECT_EQ(world.cursor(), last) << "other events' ids are none";
  for (const char* bad : {"", "with-hyphen", "123456789012345678901234567890123", "a/../b", "ü"}) {
    world.relay.tellSubscribers(world.phone.topics.cmd,
                                Json{{"event", "message"}, {"id", bad}, {"message", "x"}}.dump() + "\n");
    world.laptop.settle();
    EXPECT_EQ(world.cursor(), last) << bad;
  }
}

TEST(RemoteChannel, OnlyACursorThatCanBeOneIsAskedFor) {
  RemoteWorld world;
  const std::string plain = "https://relay.example/" + world.phone.topics.cmd + "/json";
  for (const auto& [file, url] : std::vector<std::pair<std::string, std::string>>{
           {" Ab12 \n", plain + "?since=Ab12"},
           {std::string(32, '7'), plain + "?since=" + std::string(32, '7')},
           {std::string(33, '7'), plain},
           {"", plain},
           {"a&x=y", plain}}) {
    world.laptop.files().put(world.state.path("remote-cursor"), file);
    world.engine().onCheckIn();
    world.laptop.settle();
    EXPECT_EQ(world.relay.subscriptions.back(), url);
  }
}

TEST(RemoteChannel, ACheckInAndAWakeConnectAtOnceAndTakeAllThatWaited) {
  RemoteWorld world;
  world.send(world.command("panel"));
  world.http.drop();
  for (int i = 0; i < 3; ++i) world.relay.publish(world.phone.topics.cmd, world.phone.sealed(world.command("wake")));
  world.laptop.edit([](LaptopReport& report) { ++report.events.didWake; });
  world.laptop.settle();
  EXPECT_EQ(world.ran.size(), 4u);
  EXPECT_EQ(world.http.openReads(), 1u) << "a wake never leaves two subscriptions";
}

TEST(RemoteChannel, ACursorThatTheRelayHasForgottenBringsTheOldOnesButRunsNothingTwice) {
  RemoteWorld world;
  world.send(world.command("panel"));
  world.laptop.files().put(world.state.path("remote-cursor"), "longGone");
  world.engine().onCheckIn();
  world.laptop.settle();
  EXPECT_EQ(world.ran.size(), 1u);
  EXPECT_EQ(world.lastError(), "already handled");
}

TEST(RemoteChannel, TheReplyIsOnePostThatTheNextCommandWaitsForButNotForLong) {
  RemoteWorld world;
  world.relay.instead = [](auto& exchange) { return exchange.isPost; };  // never answered
  world.send(world.command("panel"));
  const auto& post = world.http.last();
  ASSERT_TRUE(post.isPost);
  EXPECT_EQ(post.request, (HttpRequest{"https://relay.example/" + world.phone.topics.reply, {{"Cache", "yes"}}}));
  EXPECT_EQ(world.phone.opened(post.body)->at("re"), "n1");
  EXPECT_LE(post.body.size(), RelayModel::kLargestBody);
  world.send(world.command("panel"));
  EXPECT_EQ(world.ran.size(), 1u) << "an older reply must not come after a newer one";
  world.laptop.advance(14.9);
  EXPECT_EQ(world.ran.size(), 1u);
  world.laptop.advance(0.2);
  EXPECT_EQ(world.ran.size(), 2u);
  const auto exchanges = world.http.exchanges().size();
  world.laptop.advance(60);
  EXPECT_EQ(world.http.exchanges().size(), exchanges) << "there is no second try";
  world.send(world.command("panel"));
  world.engine().onCheckIn();
  world.send(world.command("panel"));
  EXPECT_EQ(world.ran.size(), 4u) << "nor does one that hangs hold up a new subscription";
}

TEST(RemoteChannel, ARelayThatMustNotBeUsedIsNotEvenAsked) {
  RemoteWorld world;
  world.control.reset();
  world.relay.subscriptions.clear();
  world.pair({{"enabled", true}, {"key", kTestKey}, {"server", "http://relay.example"}, {"panelUrl", ""}});
  world.control = world.newControl();
  world.laptop.advance(300);
  EXPECT_TRUE(world.relay.subscriptions.empty());
  EXPECT_EQ(world.control->status.get(), "Can't reach http://relay.example, retrying");
}

TEST(RemoteChannel, AFloodWhileACommandRunsDoesNotFillTheMemoryAndNothingIsLost) {
  RemoteWorld world;
  world.slow = true;
  world.send(world.command("power"));
  const std::string filler(4000, 'x');
  for (int i = 0; i < 400; ++i) world.relay.publish(world.phone.topics.cmd, filler);
  world.laptop.settle();
  EXPECT_EQ(world.http.openReads(), 0u) << "too much waits";
  world.relay.publish(world.phone.topics.cmd, world.phone.sealed(world.command("panel")));
  world.slow = false;
  world.ran[0].result(world.result);
  world.laptop.settle();
  EXPECT_EQ(world.http.openReads(), 1u);
  ASSERT_EQ(world.ran.size(), 2u);
  EXPECT_EQ(world.ran[1].command, "panel");
}

TEST(LineCutter, CutsAnywhereAndLeavesOutWhatHasNoEnd) {
  std::vector<std::string> lines;
  const auto keep = [&](std::string line) { lines.push_back(std::move(line)); };
  LineCutter cutter;
  cutter.add("a\r\n\nb", keep);
  cutter.add("c\nd", keep);
  EXPECT_EQ(cutter.take(), "d");
  for (int i = 0; i < 40; ++i) cutter.add(std::string(8192, 'x'), keep);
  cutter.add("\nnext\n", keep);
  EXPECT_EQ(lines, (std::vector<std::string>{"a", "bc", "next"}));
}

}  // namespace
}  // namespace tovi
