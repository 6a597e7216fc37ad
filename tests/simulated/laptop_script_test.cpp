#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "linux/Helpers.h"
#include "platform/simulated/LaptopReport.h"

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
  std::string text() { return contents(place / "laptop/laptop.json"); }
  LaptopReport report() { return LaptopReport::parse(text()).value(); }
};

TEST_F(LaptopScript, SaysWhatTheLaptopThenReads) {
  const std::pair<const char*, const char*> cases[] = {
      {"lid close", R"("lid":"closed")"},
      {"lid none", R"("lid":"none")"},
      {"lid open", R"("lid":"open")"},
      {"battery 14", R"({"CurrentCapacity":14,"MaxCapacity":100,"InstantAmperage":-500,"Voltage":12000,"Ext)"},
      {"charger on", R"({"CurrentCapacity":14,"MaxCapacity":100,"InstantAmperage":1500,"Voltage":12000,"Ext)"},
      {"charger on", R"("ExternalConnected":true,"IsCharging":true)"},
      {"battery 100", R"("ExternalConnected":true,"IsCharging":false)"},
      {"charger off", R"("ExternalConnected":false,"IsCharging":false)"},
      {"battery none", R"("battery":null)"},
      {"heat critical", R"("thermal":3)"},
      {"power-on", R"("events":{"willSleep":0,"poweredOn":1,"didWake":0})"},
      {"wake", R"("events":{"willSleep":0,"poweredOn":2,"didWake":1})"},
      {"refuse 'pmset -a \"1\\'", R"("refuse":["pmset-a\"1\\"])"},
      {"refuse tmutil", R"("refuse":["pmset-a\"1\\","tmutil"])"},
      {"allow", R"("refuse":[])"},
      {"privileged off", R"("privileged":false)"},
      {"privileged on", R"("privileged":true)"},
  };
  for (const auto& [words, part] : cases) {
    EXPECT_EQ(run(words), 0) << words << out;
    std::string read = report().toJson();
    std::erase_if(read, [](char c) { return c == ' ' || c == '\n'; });
    EXPECT_NE(read.find(part), std::string::npos) << words << text();
  }
}

TEST_F(LaptopScript, KeepsEverythingElseAsItStood) {
  put(place / "laptop/laptop.json",
      "{\"note\": \"\\u00e9 \xc3\xa9\", \"big\": 12345678901234567890, \"f\": 1.50, \"a\": [], \"o\": {},\n"
      " \"events\": {\"didWake\": 3, \"other\": null}, \"battery\": {\"MaxCapacity\": 4000, \"Voltage\": 1}}");
  ASSERT_EQ(run("wake"), 0) << out;
  ASSERT_EQ(run("battery 50"), 0) << out;
  for (const char* kept :
       {"\"note\": \"\\u00e9 \xc3\xa9\"", "\"big\": 12345678901234567890", "\"f\": 1.50", "\"a\": []", "\"o\": {}",
        "\"other\": null", "\"didWake\": 4", "\"poweredOn\": 1", "\"CurrentCapacity\": 2000", "\"Voltage\": 1"}) {
    EXPECT_NE(text().find(kept), std::string::npos) << kept << "\n" << text();
  }
}

TEST_F(LaptopScript, LeavesABrokenFileAlone) {
  for (const char* broken : {"{\"lid\": ", "[1]", "{} x"}) {
    put(place / "laptop/laptop.json", broken);
    EXPECT_EQ(run("lid close"), 1) << broken;
    EXPECT_EQ(text(), broken);
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

TEST_F(LaptopScript, ShowsBothFilesAndItsOrdinaryBatteryIsTheLaptops) {
  ASSERT_EQ(run("show"), 0);
  EXPECT_NE(out.find("laptop.json: not there yet"), std::string::npos);
  ASSERT_EQ(run("lid close"), 0);
  put(place / "laptop/switches.json", "{\"asleep\":true}");
  ASSERT_EQ(run("show"), 0);
  EXPECT_EQ(out, "laptop.json: {\n  \"lid\": \"closed\"\n}\nswitches.json: {\n  \"asleep\": true\n}\n");
  ASSERT_EQ(run("battery 80"), 0);
  LaptopReport delivered;
  delivered.battery = report().battery;
  EXPECT_EQ(delivered.toJson(), LaptopReport{}.toJson());
}

}  // namespace
}  // namespace tovi
