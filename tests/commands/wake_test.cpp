// When to wake: the words that people and phones use for it, and the calendar behind them.

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "commands/Center.h"
#include "core/Dates.h"

namespace tovi {
namespace {

constexpr char kNeedsSetUp[] =
    "Scheduled wakes need Set Up to run again (Settings › About › Set Up), once, after this update.";

// The local time zone for as long as this lives.
class Zone {
 public:
  explicit Zone(const char* name) {
    if (const char* before = std::getenv("TZ")) before_ = before;
    set(name);
  }
  ~Zone() { set(before_ ? before_->c_str() : nullptr); }

 private:
  static void set(const char* name) {
    name != nullptr ? setenv("TZ", name, 1) : unsetenv("TZ");
    tzset();
  }
  std::optional<std::string> before_;
};

// Rules in full, so that no table of zones has to be there.
constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0";
constexpr char kSydney[] = "AEST-10AEDT,M10.1.0,M4.1.0/3";

std::string utc(std::optional<Date> date) { return date ? dates::iso8601(*date) : "none"; }

TEST(Calendar, RepeatedTimesAreTheFirstAndMissingOnesTheNextThatExists) {
  struct Row {
    const char *zone, *now;
    int hour, minute;
    const char* at;
  };
  for (const Row& row : {Row{kBerlin, "2026-10-24T22:30:00Z", 2, 0, "2026-10-25T00:00:00Z"},
                         Row{kBerlin, "2026-10-25T01:30:00Z", 2, 15, "2026-10-25T00:15:00Z"},
                         Row{kBerlin, "2026-10-24T22:30:00Z", 3, 0, "2026-10-25T02:00:00Z"},
                         Row{kBerlin, "2026-03-28T23:30:00Z", 2, 30, "2026-03-29T01:00:00Z"},
                         Row{kBerlin, "2026-03-28T23:30:00Z", 3, 30, "2026-03-29T01:30:00Z"},
                         Row{kNewYork, "2026-11-01T05:10:00Z", 1, 30, "2026-11-01T05:30:00Z"},
                         Row{kSydney, "2026-04-04T14:00:00Z", 2, 30, "2026-04-04T15:30:00Z"},
                         Row{"UTC0", "2026-01-05T08:00:00Z", 23, 59, "2026-01-05T23:59:00Z"}}) {
    const Zone zone(row.zone);
    EXPECT_EQ(utc(dates::todayAt(*dates::parseIso8601(row.now), row.hour, row.minute)), row.at) << row.zone << row.now;
  }
  const Zone zone(kBerlin);
  EXPECT_EQ(utc(dates::addDays(*dates::parseIso8601("2026-10-24T05:00:07Z"), 1)), "2026-10-25T06:00:07Z");
}

TEST(WakeTime, IsATimeOfDayOrAMomentInTheComingWeek) {
  const Zone zone("UTC0");
  const Date now = *dates::parseIso8601("2026-01-05T08:00:00Z");
  const std::string unix = std::to_string(static_cast<long long>(unixSeconds(now)));
  const auto parsed = [&](const std::string& text) { return utc(CommandCenter::parseWakeTime(text, now)); };
  for (const auto& [text, at] : std::vector<std::pair<std::string, std::string>>{
           {"8:2", "2026-01-05T08:02:00Z"},
           {" 08:01\n", "2026-01-06T08:01:00Z"},  // not more than a minute ahead
           {"07:00", "2026-01-06T07:00:00Z"},
           {"+23:59", "2026-01-05T23:59:00Z"},
           {"x:7:30", "2026-01-06T07:30:00Z"},
           {std::to_string(static_cast<long long>(unixSeconds(now)) + 61), "2026-01-05T08:01:01Z"},
           {std::to_string(static_cast<long long>(unixSeconds(now)) + 604799), "2026-01-12T07:59:59Z"}}) {
    EXPECT_EQ(parsed(text), at) << text;
  }
  for (const std::string& wrong :
       {std::to_string(static_cast<long long>(unixSeconds(now)) + 60),
        std::to_string(static_cast<long long>(unixSeconds(now)) + 604800), unix, std::string("7"), std::string("24:00"),
        std::string("07:60"), std::string("-1:00"), std::string("1:2:3"), std::string(), std::string(":"),
        std::string("7:30 am"), std::string("nan"), std::string("inf"), std::string("99999999999:1")}) {
    EXPECT_EQ(parsed(wrong), "none") << wrong;
  }
}

struct WakeAt : testing::Test, Center {
  std::optional<double> wake() { return engine().config->wakeAt; }
};

TEST_F(WakeAt, SetsTellsAndClearsTheWake) {
  const Zone zone("UTC0");
  const Json reply = ask("wake_at", {{"time", "07:00"}, {"minutes", "45"}});
  EXPECT_EQ(reply["wakeAt"], "Jan 6, 2026, 07:00");
  EXPECT_EQ(reply["status"], engine().statusLine());
  EXPECT_EQ(wake(), 1'767'682'800);
  EXPECT_EQ(engine().config->wakeForMinutes, 45);
  ask("wake_at", {{"time", unixSeconds(laptop.now()) + 3600}});
  EXPECT_EQ(wake(), unixSeconds(laptop.now()) + 3600);
  EXPECT_EQ(engine().config->wakeForMinutes, 45) << "as it was";
  ask("wake_at", {{"time", "07:00"}, {"minutes", 1}});
  EXPECT_EQ(engine().config->wakeForMinutes, 5);
  engine().wakeReady = false;
  EXPECT_EQ(ask("wake_at", {{"time", "OFF"}})["wakeAt"], Json());
  EXPECT_EQ(wake(), std::nullopt);
}

TEST_F(WakeAt, SaysWhatIsWrong) {
  for (const Json& time : {Json(), Json(true), Json::array({7})}) {
    EXPECT_EQ(errorOf("wake_at", {{"time", time}}), "time: HH:MM, off, or Unix seconds") << time;
  }
  EXPECT_EQ(errorOf("wake_at"), "time: HH:MM, off, or Unix seconds");
  for (const Json& time : {Json("7"), Json("25:00"), Json("soon"), Json(7), Json(1e300)}) {
    EXPECT_EQ(errorOf("wake_at", {{"time", time}}), "time: HH:MM (24-hour), off, or Unix seconds") << time;
  }
  engine().wakeReady = false;
  EXPECT_EQ(errorOf("wake_at", {{"time", "soon"}}), kNeedsSetUp);
  EXPECT_EQ(wake(), std::nullopt);
}

}  // namespace
}  // namespace tovi
