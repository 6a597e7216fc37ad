#include "ui/Notifier.h"

#include "core/Relay.h"
#include "engine/World.h"
#include "platform/simulated/MemoryHttp.h"
#include "ui/PairingView.h"

namespace tovi {
namespace {

struct NotifierWorld : World {
  MemoryHttp& http = laptop.http();
  std::unique_ptr<Notifier> notifier;

  NotifierWorld() {
    start();
    notifier = std::make_unique<Notifier>(engine(), http);
  }
  ~NotifierWorld() { notifier.reset(); }

  void set(const std::function<void(Config&)>& change) {
    Config next = engine().config;
    change(next);
    engine().apply(next, true);
  }
  // The body of the notification for so many minutes.
  std::string body(double minutes) {
    engine().onFinished("claude", minutes, false);
    return laptop.notices().back().body;
  }
};

TEST(Notifier, AddsEachClauseWhereItIsTrue) {
  NotifierWorld world;
  for (const auto& [minutes, words] :
       {std::pair{0.5, "0 min"}, {89.9, "89 min"}, {90, "1.5 hours"}, {120, "2 hours"}, {1199, "20 hours"}}) {
    EXPECT_EQ(world.body(minutes), std::string("Busy for ") + words + " · battery 80%");
  }
  world.lid(true);
  world.laptop.settle();
  const std::string all = "Busy for 7 min with the lid closed · battery 80%. Sleeps in 5 min if nothing else starts.";
  const std::string without = "Busy for 7 min with the lid closed · battery 80%";
  EXPECT_EQ(world.body(7), all);
  world.set([](Config& config) { config.quietMinutes = 12; });
  EXPECT_NE(world.body(7).find("Sleeps in 12 min if"), std::string::npos);
  world.set([](Config& config) { config.sleepWhenDone = false; });
  EXPECT_EQ(world.body(7), without);
  world.set([](Config& config) { config.sleepWhenDone = true, config.mode = Mode::off; });
  EXPECT_EQ(world.body(7), without);
  world.set([](Config& config) { config.mode = Mode::automatic; });
  world.engine().addHold("a download", 60.0, {}, {});
  EXPECT_EQ(world.body(7), without);
  world.engine().battery = std::nullopt;
  EXPECT_EQ(world.body(7), "Busy for 7 min with the lid closed");
  world.engine().onFinished("codex", 7, true);
  EXPECT_EQ(world.laptop.notices().back().title, "codex closed");
}

TEST(Notifier, ChimeNotificationAndPushDoNotDependOnEachOther) {
  for (int bits = 0; bits < 8; ++bits) {
    const bool notify = bits & 1, chime = bits & 2, push = bits & 4;
    NotifierWorld world;
    world.set([&](Config& config) {
      config.notifyDone = notify;
      config.doneChime = chime;
      config.chimeSound = notify ? "Hero" : "Foghorn";  // which isn't there
      config.ntfyTopic = push ? "my-topic_1" : "";
    });
    world.engine().onFinished("claude", 7, false);
    std::vector<LaptopNotice> expected;
    if (chime) expected.push_back({LaptopNotice::Kind::sound, {}, {}, notify ? "Hero" : "Glass"});
    if (notify) {
      expected.push_back({LaptopNotice::Kind::notification, "claude went idle", "Busy for 7 min · battery 80%", {}});
    }
    EXPECT_EQ(world.laptop.notices(), expected) << bits;
    ASSERT_EQ(world.http.exchanges().size(), push ? 1u : 0u) << bits;
    if (!push) continue;
    const auto& sent = world.http.last();
    EXPECT_TRUE(sent.isPost);
    EXPECT_EQ(sent.request, (HttpRequest{std::string(defaultRelay()) + "/my-topic_1",
                                         {{"Title", "claude went idle"}, {"Tags", "laptop"}}}));
    EXPECT_EQ(sent.body, "Busy for 7 min · battery 80%");
    EXPECT_EQ(sent.limit, Seconds{15});
  }
}

TEST(Notifier, ATopicThatIsNoneSendsNothing) {
  NotifierWorld world;
  std::vector<bool> sent;
  const auto push = [&](const std::string& topic) {
    Notifier::push(world.http, topic, "Tovi test", "body", [&](bool ok) { sent.push_back(ok); });
  };
  for (const char* bad : {"", "with space", "a/b", "a?b", "a\n"}) push(bad);
  push(std::string(65, 'x'));
  EXPECT_EQ(sent, std::vector<bool>(6));
  EXPECT_TRUE(world.http.exchanges().empty());
  push("Glück-1");
  EXPECT_EQ(world.http.last().request.url, std::string(defaultRelay()) + "/Gl%C3%BCck-1");
  world.laptop.advance(15);
  EXPECT_EQ(sent, std::vector<bool>(7)) << "no answer in time";
}

TEST(Notifier, TheTestButtonKeepsTheTopicAndSaysHowItWent) {
  NotifierWorld world;
  std::string outcome;
  const auto test = [&](const std::string& topic) {
    Notifier::test(world.engine(), world.http, topic, [&](const std::string& text) { outcome = text; });
  };
  test("my topic");
  EXPECT_EQ(outcome, "Topic names can only use letters, numbers, - and _.");
  EXPECT_EQ(world.engine().config->ntfyTopic, "");
  for (const auto& [status, words] :
       {std::pair{200, "Sent. Check the ntfy app on your phone."},
        std::pair{201, "Couldn't reach pushrelay. Check the topic and your connection."}}) {
    test("my-topic");
    EXPECT_EQ(world.engine().config->ntfyTopic, "my-topic");
    EXPECT_EQ(world.http.last().request.headers.front(), (std::pair<std::string, std::string>{"Title", "Tovi test"}));
    world.http.last().answer(status);
    world.http.last().end();
    world.laptop.settle();
    EXPECT_EQ(outcome, words);
  }
}

TEST(Notifier, ShowsWhatWasNotedBeforeItWasThereAndLetsGoAtItsEnd) {
  NotifierWorld world;
  world.notifier.reset();
  EXPECT_EQ(world.engine().onNote, nullptr);
  world.engine().pendingNotes = {{"first", "1"}, {"second", "2"}};
  world.notifier = std::make_unique<Notifier>(world.engine(), world.http);
  world.engine().onNote("third", "3");
  ASSERT_EQ(world.laptop.notices().size(), 3u);
  EXPECT_EQ(world.laptop.notices()[0].title + world.laptop.notices()[1].title + world.laptop.notices()[2].body,
            "firstsecond3");
  EXPECT_TRUE(world.engine().pendingNotes.empty());
}

TEST(PairingView, DrawsACodeThatHasItsThreeCorners) {
  const auto code = PairingView::qr("https://page.example/tovi/remote/#k=AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK-2vcTL0tk");
  ASSERT_TRUE(code);
  const int far = code->size - 7;
  for (const auto& [row, column] : {std::pair{0, 0}, {0, far}, {far, 0}}) {
    for (int i = 0; i < 7; ++i) {
      EXPECT_TRUE(code->isDark(row, column + i) && code->isDark(row + 6, column + i) && code->isDark(row + i, column));
    }
    EXPECT_FALSE(code->isDark(row + 1, column + 1));
    EXPECT_TRUE(code->isDark(row + 3, column + 3));
  }
  EXPECT_FALSE(PairingView::qr(std::string(3000, 'x')));
  // A margin of four modules around it, two rows a line.
  const std::string drawn = code->text();
  EXPECT_EQ(std::count(drawn.begin(), drawn.end(), '\n'), (code->size + 8 + 1) / 2);
  EXPECT_TRUE(drawn.starts_with("████████"));
}

}  // namespace
}  // namespace tovi
