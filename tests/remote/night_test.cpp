// The whole application through a week of nights: the laptop really sleeps, wakes as planned, and hears the phone.

#include <cstdlib>

#include "app/AppDelegate.h"
#include "core/Dates.h"
#include "remote/Phone.h"

namespace tovi {
namespace {

constexpr double kHour = 3600;

class Bed : public World {
 public:
  explicit Bed(int checkInMinutes) {
    laptop.files().put(
        state.path("remote.json"),
        Json{{"enabled", true}, {"key", kTestKey}, {"server", "https://relay.example"}, {"panelUrl", ""}}.dump(), 0600);
    config(R"({"checkInMinutes": )" + std::to_string(checkInMinutes) + "}");
    app.didFinishLaunching(false);
    laptop.settle();
  }

  Engine& engine() { return *app.engine(); }

  // From here on the laptop hears the phone, unless it sleeps; the relay is silent but for what is sent.
  void connect() {
    while (app.remote()->status.get() != "Connected") laptop.advance(1);
  }

  void send(const std::string& command, const Json& args = Json::object()) {
    const Json inner{
        {"n", "n" + std::to_string(++ids_)}, {"cmd", command}, {"args", args}, {"t", unixSeconds(laptop.now())}};
    relay.publish(phone.topics.cmd, phone.sealed(inner));
    laptop.settle();
  }
  std::vector<Json> replies() {
    std::vector<Json> found;
    for (const auto& message : relay.model().on(phone.topics.reply)) found.push_back(*phone.opened(message.body));
    return found;
  }

  void goToBed() {
    lid(true);
    laptop.setSwitches([](LaptopSwitches& switches) { switches.asleep = true; });
    laptop.edit([](LaptopReport& report) { report.events.willSleep++; });
    laptop.settle();
  }

  // Until then, asleep or awake as it comes. A sleeping laptop wakes when it was told to and at no other time.
  void passUntil(Date end) {
    while (laptop.now() < end) {
      ASSERT_TRUE(marker() || !sleepOff()) << dates::iso8601(laptop.now());
      if (!asleep()) {
        laptop.advance(1);
        awake += 1;
        continue;
      }
      relay.cut(phone.topics.cmd, false);  // no connection outlives a sleep
      const auto wake = engine().nextWakeAt.get();
      const Date until = wake ? std::min(*wake, end) : end;
      laptop.passAsleep(Seconds{std::max(secondsBetween(laptop.now(), until), 0.0)});
      if (!wake || until < *wake) return;
      laptop.edit([](LaptopReport& report) { report.events.poweredOn++; });
      laptop.settle();
      ++wakes;
    }
  }

  MemoryRelay relay{laptop.http(), laptop.clock()};
  Phone phone{kTestKey};
  AppDelegate app{laptop.machine(), nullptr};
  int wakes = 0;
  double awake = 0;  // seconds with the lid shut

 private:
  int ids_ = 0;
};

Date at(const char* text) { return *dates::parseIso8601(text); }

TEST(Nights, AWeekOfCheckInsAndAWakeEveryMorning) {
  setenv("TZ", "UTC0", 1);
  for (const int minutes : {15, 30, 60}) {
    SCOPED_TRACE(minutes);
    Bed bed(minutes);
    bed.laptop.passAsleep(Seconds{secondsBetween(bed.laptop.now(), at("2026-01-05T22:00:00Z"))});
    for (int day = 0; day < 7; ++day) {
      const Date evening = at("2026-01-05T22:00:00Z") + day * 24 * kHour;
      bed.connect();
      bed.send("wake_at", {{"time", "07:00"}, {"minutes", 20}});
      bed.wakes = 0;
      bed.awake = 0;
      bed.goToBed();
      bed.passUntil(evening + (9 * kHour - 90));
      ASSERT_TRUE(bed.engine().holds->empty());
      // Every check-in takes half a minute; the steps are just the intervals.
      EXPECT_NEAR(bed.wakes, 9 * 60 / (minutes + 0.5) + 1, 4) << "day " << day << ", with shorter steps at the end";
      EXPECT_NEAR(bed.awake, bed.wakes * 26, bed.wakes + 26) << "day " << day;
      bed.passUntil(evening + 9 * kHour + 60);
      ASSERT_EQ(bed.engine().holds->size(), 1u) << "day " << day;
      EXPECT_EQ(bed.engine().holds->front().reason, "Scheduled wake");
      EXPECT_TRUE(bed.sleepOff());
      bed.passUntil(evening + 9.5 * kHour);
      EXPECT_TRUE(bed.engine().holds->empty());
      bed.lid(false);
      EXPECT_FALSE(bed.sleepOff() || bed.marker());
      // The day is nobody's business here.
      bed.laptop.passAsleep(Seconds{secondsBetween(bed.laptop.now(), evening + 24 * kHour)});
      bed.laptop.advance(10);
    }
  }
}

TEST(Nights, AWakeFromThePhoneIsPickedUpAtTheNextCheckIn) {
  setenv("TZ", "UTC0", 1);
  Bed bed(30);
  bed.laptop.passAsleep(Seconds{secondsBetween(bed.laptop.now(), at("2026-01-05T22:00:00Z"))});
  bed.connect();
  bed.send("panel");  // from here on the laptop knows where it stands on the relay
  ASSERT_EQ(bed.replies().size(), 1u);
  bed.goToBed();
  bed.passUntil(at("2026-01-06T03:10:00Z"));
  bed.send("set", {{"key", "quiet_minutes"}, {"value", 9}});
  bed.passUntil(at("2026-01-06T03:16:00Z"));
  ASSERT_EQ(bed.replies().size(), 1u) << "it sleeps";
  bed.send("wake", {{"minutes", 30}});
  bed.passUntil(at("2026-01-06T03:45:00Z"));
  ASSERT_EQ(bed.replies().size(), 2u);
  EXPECT_EQ(bed.replies()[1]["re"], "n3") << "the other was too old for an answer";
  EXPECT_EQ(bed.engine().config->quietMinutes, 5);
  ASSERT_EQ(bed.engine().holds->size(), 1u);
  EXPECT_EQ(bed.engine().holds->front().reason, "Woken from your phone");
  EXPECT_TRUE(bed.sleepOff() && bed.marker());
  bed.passUntil(at("2026-01-06T05:00:00Z"));
  EXPECT_TRUE(bed.engine().holds->empty());
  EXPECT_TRUE(bed.asleep());
  EXPECT_TRUE(bed.engine().nextWakeAt.get()) << "the chain of check-ins goes on";
}

TEST(Nights, WhatAnAgentFinishedIsTold) {
  Bed bed(0);
  const Pid claude = bed.agent();
  bed.laptop.advance(200);
  bed.laptop.processes().exit(claude);
  bed.laptop.advance(300);
  ASSERT_EQ(bed.laptop.notices().size(), 1u);
  EXPECT_EQ(bed.laptop.notices()[0].title, "Claude Code closed");
}

}  // namespace
}  // namespace tovi
