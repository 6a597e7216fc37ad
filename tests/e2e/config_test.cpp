#include <gtest/gtest.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

class EndToEndConfig : public testing::Test {
 protected:
  Stage stage;
  Process app = stage.startApp();
  const std::filesystem::path file = stage.state() / "config.json";

  Json inForce() { return stage.ask("config").value("config", Json()); }
  bool takesUp(const char* key, const Json& value) {
    return eventually(5s, [&] { return inForce().value(key, Json()) == value; });
  }
  // Two beats of the application's heart.
  void letItLookTwice() {
    for (int i = 0; i < 2; ++i) {
      const auto before = readFile(stage.state() / "alive");
      ASSERT_TRUE(eventually(6s, [&] { return readFile(stage.state() / "alive") != before; }));
    }
  }
};

TEST_F(EndToEndConfig, EditsByRenameAndInPlaceAreTakenUp) {
  replaceFile(file, R"({"quietMinutes": 7})");
  EXPECT_TRUE(takesUp("quietMinutes", 7));
  writeFile(file, R"({"quietMinutes": 8, "preset": "longest"})");
  EXPECT_TRUE(takesUp("quietMinutes", 8));
  EXPECT_EQ(inForce()["preset"], "longest");
  EXPECT_EQ(readFile(file), R"({"quietMinutes": 8, "preset": "longest"})") << "an edit by hand is not written over";
}

TEST_F(EndToEndConfig, HalfWrittenFileChangesNothingAndIsLeftAlone) {
  replaceFile(file, R"({"quietMinutes": 7})");
  ASSERT_TRUE(takesUp("quietMinutes", 7));
  const std::string half = R"({"quietMinutes": 9, "preset": "lon)";
  writeFile(file, half);
  letItLookTwice();
  EXPECT_EQ(inForce()["quietMinutes"], 7);
  EXPECT_EQ(readFile(file), half);
  writeFile(file, half + R"(gest"})");
  EXPECT_TRUE(takesUp("quietMinutes", 9));
  EXPECT_EQ(inForce()["preset"], "longest");
}

TEST_F(EndToEndConfig, OneBadValueCostsNoOther) {
  replaceFile(file, R"({"quietMinutes": "soon", "preset": "speed", "checkInMinutes": 20})");
  ASSERT_TRUE(takesUp("preset", "speed"));
  EXPECT_EQ(inForce()["quietMinutes"], 5);
  EXPECT_EQ(inForce()["checkInMinutes"], 0);
}

TEST_F(EndToEndConfig, SafetyIsTightenedByHandButNotLoosened) {
  replaceFile(file, R"({"batteryFloor": 30})");
  ASSERT_TRUE(takesUp("batteryFloor", 30));
  replaceFile(file, R"({"batteryFloor": 5, "heatGuard": false, "quietMinutes": 9})");
  ASSERT_TRUE(takesUp("quietMinutes", 9));
  ASSERT_TRUE(takesUp("batteryFloor", 30));
  EXPECT_EQ(inForce()["heatGuard"], true);
  ASSERT_TRUE(eventually(3s, [&] {
    const auto text = Json::parse(readFile(file), nullptr, false);
    return text.is_object() && text.value("batteryFloor", 0) == 30;
  }));
}

TEST_F(EndToEndConfig, SettingsFromTheToolAreWrittenToTheFile) {
  ASSERT_EQ(stage.tovi({"preset", "max_battery"}).status, 0);
  const auto text = Json::parse(readFile(file), nullptr, false);
  ASSERT_TRUE(text.is_object());
  EXPECT_EQ(text["preset"], "longest");
  EXPECT_EQ(text["quietMinutes"], 5) << "the whole of the settings is written";
}

TEST(EndToEndBrokenConfig, FileThatIsNoJsonIsKeptAsideAtStart) {
  Stage stage;
  std::filesystem::create_directories(stage.state());
  writeFile(stage.state() / "config.json", "quietMinutes: 9\n");
  Process app = stage.startApp();
  EXPECT_EQ(stage.ask("config")["config"]["quietMinutes"], 5);
  int kept = 0;
  for (const auto& entry : std::filesystem::directory_iterator(stage.state())) {
    if (!entry.path().filename().string().starts_with("config.broken-")) continue;
    ++kept;
    EXPECT_EQ(readFile(entry.path()), "quietMinutes: 9\n");
  }
  EXPECT_EQ(kept, 1);
}

}  // namespace
}  // namespace tovi::e2e
