#include <gtest/gtest.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

TEST(EndToEndConfig, EditsByRenameInPlaceAndByHalvesAreTakenUpAndTheToolsAreWritten) {
  Stage stage;
  Process app = stage.startApp();
  const std::filesystem::path file = stage.state() / "config.json";
  const auto inForce = [&] { return stage.ask("config").value("config", Json()); };
  const auto takesUp = [&](int minutes) {
    return eventually(5s, [&] { return inForce().value("quietMinutes", 0) == minutes; });
  };
  replaceFile(file, R"({"quietMinutes": 7})");
  EXPECT_TRUE(takesUp(7));
  writeFile(file, R"({"quietMinutes": 8, "preset": "longest"})");
  EXPECT_TRUE(takesUp(8));
  EXPECT_EQ(inForce()["preset"], "longest");
  EXPECT_EQ(readFile(file), R"({"quietMinutes": 8, "preset": "longest"})") << "an edit by hand is not written over";

  const std::string half = R"({"quietMinutes": 9, "preset": "spe)";
  writeFile(file, half);
  for (int beats = 0; beats < 2; ++beats) {
    const auto before = readFile(stage.state() / "alive");
    ASSERT_TRUE(eventually(6s, [&] { return readFile(stage.state() / "alive") != before; }));
  }
  EXPECT_EQ(inForce()["quietMinutes"], 8);
  EXPECT_EQ(readFile(file), half);
  writeFile(file, half + R"(ed"})");
  EXPECT_TRUE(takesUp(9));

  replaceFile(file, R"({"quietMinutes": 10, "batteryFloor": 30})");
  ASSERT_TRUE(takesUp(10));
  replaceFile(file, R"({"quietMinutes": 11, "batteryFloor": 5, "heatGuard": false})");
  ASSERT_TRUE(takesUp(11));
  EXPECT_EQ(inForce()["batteryFloor"], 30) << "by hand it is tightened and not loosened";
  EXPECT_EQ(inForce()["heatGuard"], true);

  ASSERT_EQ(stage.tovi({"preset", "max_battery"}).status, 0);
  const auto written = Json::parse(readFile(file), nullptr, false);
  ASSERT_TRUE(written.is_object());
  EXPECT_EQ(written["preset"], "longest");
  EXPECT_EQ(written["batteryFloor"], 30);
  EXPECT_EQ(written["quietMinutes"], 11) << "the whole of the settings is written";
}

}  // namespace
}  // namespace tovi::e2e
