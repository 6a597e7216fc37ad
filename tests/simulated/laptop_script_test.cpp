#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>

#include "platform/simulated/LaptopReport.h"
#include "simulated/TemporaryFolder.h"

namespace tovi {
namespace {

class LaptopScript : public testing::Test {
 protected:
  TemporaryFolder place;
  std::string out;

  int run(const std::string& words) {
    const std::string line = fmt::format("'{}' --folder '{}' {} 2>&1", TOVI_LAPTOP_SCRIPT, place / "laptop", words);
    out.clear();
    FILE* pipe = ::popen(line.c_str(), "r");
    std::array<char, 4096> room;
    for (std::size_t got; (got = std::fread(room.data(), 1, room.size(), pipe)) > 0;) out.append(room.data(), got);
    return WEXITSTATUS(::pclose(pipe));
  }
  LaptopReport report() { return LaptopReport::parse(place.read("laptop/laptop.json")).value(); }
};

TEST_F(LaptopScript, SaysWhatTheLaptopThenReads) {
  const struct {
    const char* words;
    std::function<bool(const LaptopReport&)> holds;
  } cases[] = {
      {"lid close", [](const auto& r) { return r.lid == LaptopLid::closed; }},
      {"lid none", [](const auto& r) { return r.lid == LaptopLid::none; }},
      {"lid open", [](const auto& r) { return r.lid == LaptopLid::open; }},
      {"battery 14",
       [](const auto& r) {
         return r.battery->currentCapacity == 14 && r.battery->isCharging == false && r.battery->voltage == 12000 &&
                r.battery->instantAmperage < 0;
       }},
      {"charger on",
       [](const auto& r) {
         return r.battery->currentCapacity == 14 && r.battery->externalConnected == true &&
                r.battery->isCharging == true && r.battery->instantAmperage > 0;
       }},
      {"battery 100", [](const auto& r) { return r.battery->isCharging == false; }},
      {"charger off", [](const auto& r) { return r.battery->externalConnected == false; }},
      {"battery none", [](const auto& r) { return !r.battery; }},
      {"battery 80", [](const auto& r) { return r.battery.has_value(); }},
      {"heat critical", [](const auto& r) { return r.thermal == ThermalState::critical; }},
      {"heat fair", [](const auto& r) { return r.thermal == ThermalState::fair; }},
      {"power-on",
       [](const auto& r) {
         return r.events == LaptopCounters{0, 1, 0};
       }},
      {"wake",
       [](const auto& r) {
         return r.events == LaptopCounters{0, 2, 1};
       }},
      {"refuse 'pmset -a \"1\\'", [](const auto& r) { return r.refuse == std::vector<std::string>{"pmset -a \"1\\"}; }},
      {"refuse tmutil", [](const auto& r) { return r.refuse.size() == 2; }},
      {"allow", [](const auto& r) { return r.refuse.empty(); }},
      {"privileged off", [](const auto& r) { return !r.privileged; }},
      {"privileged on", [](const auto& r) { return r.privileged; }},
  };
  for (const auto& [words, holds] : cases) {
    EXPECT_EQ(run(words), 0) << words << out;
    EXPECT_TRUE(holds(report())) << words << place.read("laptop/laptop.json");
  }
}

TEST_F(LaptopScript, ItsOrdinaryBatteryIsTheLaptops) {
  ASSERT_EQ(run("battery 80"), 0);
  LaptopReport delivered;
  delivered.battery = report().battery;
  EXPECT_EQ(delivered.toJson(), LaptopReport{}.toJson());
}

TEST_F(LaptopScript, KeepsEverythingElseAsItStood) {
  place.write("laptop/laptop.json",
              "{\"note\": \"\\u00e9 \xc3\xa9\", \"big\": 12345678901234567890, \"f\": 1.50, \"a\": [], \"o\": {},\n"
              " \"events\": {\"didWake\": 3, \"other\": null}, \"battery\": {\"MaxCapacity\": 4000, \"Voltage\": 1}}");
  ASSERT_EQ(run("wake"), 0) << out;
  ASSERT_EQ(run("battery 50"), 0) << out;
  const std::string text = place.read("laptop/laptop.json");
  for (const char* kept :
       {"\"note\": \"\\u00e9 \xc3\xa9\"", "\"big\": 12345678901234567890", "\"f\": 1.50", "\"a\": []", "\"o\": {}",
        "\"other\": null", "\"didWake\": 4", "\"poweredOn\": 1", "\"CurrentCapacity\": 2000", "\"Voltage\": 1"}) {
    EXPECT_NE(text.find(kept), std::string::npos) << kept << "\n" << text;
  }
}

TEST_F(LaptopScript, LeavesABrokenFileAlone) {
  for (const char* broken : {"{\"lid\": ", "[1]", "{} x", "{\"a\": 01}", "{\"a\": \"\xff\"}"}) {
    place.write("laptop/laptop.json", broken);
    EXPECT_EQ(run("lid close"), 1) << broken;
    EXPECT_EQ(place.read("laptop/laptop.json"), broken);
  }
}

TEST_F(LaptopScript, RefusesWhatItDoesntKnow) {
  for (const char* words : {"", "lid", "lid ajar", "lid open open", "battery 101", "battery -1", "heat 3", "wake up",
                            "fly", "charger", "privileged maybe", "refuse ''"}) {
    EXPECT_EQ(run(words), 2) << words;
    EXPECT_NE(out.find("Usage: scripts/laptop"), std::string::npos) << words;
  }
  EXPECT_FALSE(std::filesystem::exists(place / "laptop")) << "a slip makes no laptop";
  EXPECT_EQ(run("battery none"), 0);
  EXPECT_EQ(run("charger on"), 1);
  EXPECT_EQ(run("--help"), 0);
}

TEST_F(LaptopScript, ShowsBothFiles) {
  ASSERT_EQ(run("show"), 0);
  EXPECT_NE(out.find("laptop.json: not there yet"), std::string::npos);
  ASSERT_EQ(run("lid close"), 0);
  place.write("laptop/switches.json", "{\"asleep\":true}");
  ASSERT_EQ(run("show"), 0);
  EXPECT_EQ(out, "laptop.json: {\n  \"lid\": \"closed\"\n}\nswitches.json: {\n  \"asleep\": true\n}\n");
}

}  // namespace
}  // namespace tovi
