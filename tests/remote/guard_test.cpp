#include "remote/RemoteGuard.h"

#include <gtest/gtest.h>

#include <cmath>

namespace tovi {
namespace {

constexpr std::string_view kClock = "too old or from the future (check the phone's clock)";

struct Guard : testing::Test {
  RemoteGuard guard;
  double now = 1'767'600'000.5;

  std::string check(std::optional<double> t, const std::string& id, double maxAge = RemoteGuard::kMaxAge) {
    return std::string{guard.check(t, id, maxAge, dateFromUnix(now)).value_or("")};
  }
};

TEST_F(Guard, RefusesIdsThatAreNone) {
  std::string wide;
  for (int i = 0; i < 64; ++i) wide += "ü";
  EXPECT_EQ(check(now, ""), "bad id");
  EXPECT_EQ(check(now, std::string(65, 'x')), "bad id");
  EXPECT_EQ(check(now, std::string(64, 'x')), "");
  EXPECT_EQ(check(now, wide), "") << "characters are counted, not bytes";
}

TEST_F(Guard, HoldsTheSendersClockToItsLimits) {
  EXPECT_EQ(check(now + 61, "a"), kClock);
  EXPECT_EQ(check(now + 60, "b"), "");
  EXPECT_EQ(check(now - 300, "c"), "");
  EXPECT_EQ(check(now - 301, "d"), kClock);
  EXPECT_EQ(check(now - 7200, "f", RemoteGuard::maxAge("wake")), "");
  EXPECT_EQ(check(now - 10801, "g", RemoteGuard::maxAge("wake")), kClock);
  EXPECT_EQ(check(std::nullopt, "h"), kClock);
  EXPECT_EQ(check(std::nan(""), "i"), kClock);
}

TEST_F(Guard, RemembersAnIdForAsLongAsItsCommandCouldCount) {
  EXPECT_EQ(check(now + 60, "a", RemoteGuard::kWakeMaxAge), "");
  now += 10860;
  EXPECT_EQ(check(now, "a"), "already handled");
  now += 1;
  EXPECT_EQ(check(now, "a"), "");
}

TEST_F(Guard, ARefusalForItsRateDoesNotUseUpTheId) {
  for (int i = 0; i < 30; ++i) EXPECT_EQ(check(now, "n" + std::to_string(i)), "");
  EXPECT_EQ(check(now, "late"), "too many commands, wait a minute");
  EXPECT_EQ(check(now, "n0"), "already handled") << "known ids are told apart even then";
  now += 60;
  EXPECT_EQ(check(now, "late"), "too many commands, wait a minute");
  now += 0.1;
  EXPECT_EQ(check(now, "late"), "");
}

TEST_F(Guard, AClockThatWasSetBackDoesNotShutThePhoneOut) {
  for (int i = 0; i < 30; ++i) check(now, "n" + std::to_string(i));
  now -= 7200;
  EXPECT_EQ(check(now, "after"), "");
  EXPECT_EQ(check(now, "n3"), "already handled");
}

TEST_F(Guard, ItsMemoryStaysSmall) {
  for (int i = 0; i < 4000; ++i, now += 6) check(now, "n" + std::to_string(i));
  EXPECT_LT(guard.seen.size(), 1900u);
  EXPECT_LE(guard.recent.size(), 30u);
}

}  // namespace
}  // namespace tovi
