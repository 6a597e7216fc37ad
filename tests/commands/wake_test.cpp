// When to wake: the words that people and phones use for it, and the calendar behind them.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "commands/Center.h"
#include "core/Dates.h"

namespace tovi {
namespace {

constexpr char kNeedsSetUp[] =
    "Scheduled wakes need Set Up to run again (Settings › About › Set Up), once, after this update.";

void setZone(const char* name) {
  ::setenv("TZ", name, 1);
  ::tzset();
}

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
    setZone(row.zone);
    EXPECT_EQ(utc(dates::todayAt(*dates::parseIso8601(row.now), row.hour, row.minute)), row.at) << row.zone << row.now;
  }
  setZone(kBerlin);
  EXPECT_EQ(utc(dates::addDays(*dates::parseIso8601("2026-10-24T05:00:07Z"), 1)), "2026-10-25T06:00:07Z");
}

TEST(WakeTime, IsATimeOfDayOrAMomentInTheComingWeek) {
  setZone("UTC0");
  const Date now = *dates::parseIso8601("2026-01-05T08:00:00Z");
  const auto in = [&](int seconds) { return fmt::format("{:.0f}", unixSeconds(now) + seconds); };
  const auto parsed = [&](const std::string& text) { return utc(CommandCenter::parseWakeTime(text, now)); };
  EXPECT_EQ(parsed("8:2"), "2026-01-05T08:02:00Z");
  EXPECT_EQ(parsed(" 08:01\n"), "2026-01-06T08:01:00Z") << "not more than a minute ahead";
  EXPECT_EQ(parsed("07:00"), "2026-01-06T07:00:00Z");
  EXPECT_EQ(parsed("+23:59"), "2026-01-05T23:59:00Z");
  EXPECT_EQ(parsed("x:7:30"), "2026-01-06T07:30:00Z");
  EXPECT_EQ(parsed(in(61)), "2026-01-05T08:01:01Z");
  EXPECT_EQ(parsed(in(604799)), "2026-01-12T07:59:59Z");
  for (const std::string& wrong :
       std::vector<std::string>{in(60), in(604800), in(0), "7", "24:00", "07:60", "-1:00", "1:2:3", "", ":", "7:30 am",
                                "nan", "inf", "99999999999:1", "3000000000:07:30"}) {
    EXPECT_EQ(parsed(wrong), "none") << wrong;
  }
}

struct WakeAt : testing::Test, Center {
  std::optional<double> wake() { return engine().config->wakeAt; }
};

TEST_F(WakeAt, SetsTellsAndClearsTheWake) {
  setZone("UTC0");
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
  for (const char* args : {"{}", R"({"time": null})", R"({"time": true})", R"({"time": [7]})"}) {
    EXPECT_EQ(errorOf("wake_at", Json::parse(args)), "time: HH:MM, off, or Unix seconds") << args;
  }
  for (const Json& time : {Json("7"), Json("25:00"), Json("soon"), Json(7), Json(1e300)}) {
    EXPECT_EQ(errorOf("wake_at", {{"time", time}}), "time: HH:MM (24-hour), off, or Unix seconds") << time;
  }
  engine().wakeReady = false;
  EXPECT_EQ(errorOf("wake_at", {{"time", "soon"}}), kNeedsSetUp);
  EXPECT_EQ(wake(), std::nullopt);
}

}  // namespace
}  // namespace tovi
