// The power test from the terminal, on a laptop that publishes its telemetry every second.

#include <gtest/gtest.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

TEST(EndToEndPower, ADetailedTestWithTheLidShutEndsWithFiguresThatStay) {
  Stage stage;
  stage.configure({{"pauseSimulators", true}, {"lowPowerWhileClosed", true}, {"screenOffNoLock", true}});
  stage.laptop({{"telemetrySeconds", 1}});
  const Process app = stage.startApp();

  const Outcome open = stage.tovi({"power", "test"});
  EXPECT_EQ(open.status, 1);
  EXPECT_EQ(open.err,
            "tovi: Close the lid first (with Tovi keeping the Mac awake): the test measures lid-closed savings\n");

  ASSERT_EQ(stage.tovi({"hold", "--reason", "training"}).status, 0);
  stage.laptop({{"lid", "closed"}});
  ASSERT_TRUE(eventually(10s, [&] { return stage.status().value("lid_closed", false); }));
  const Outcome test = stage.tovi({"power", "test", "--detailed"}, 280s);
  EXPECT_EQ(test.status, 0) << test.out << test.err;
  EXPECT_NE(test.out.find("\nMeasuring"), std::string::npos) << test.out;
  EXPECT_NE(test.out.find("Measured: "), std::string::npos) << test.out;

  const Outcome power = stage.tovi({"power"});
  EXPECT_NE(power.out.find("Measured: "), std::string::npos) << power.out;
  const Json report = stage.ask("power");
  EXPECT_EQ(report["power_test"]["state"], "done");
  EXPECT_GT(report["power_test"]["measured_closed_watts"]["without_savings"], 0);
  int measured = 0;
  for (const Json& suspect : report["suspects"]) measured += suspect.contains("measured_saving_watts") ? 1 : 0;
  EXPECT_GE(measured, 2) << report.dump(2);
  EXPECT_TRUE(stage.sleepIsOff()) << "as the closed lid wants it";
}

}  // namespace
}  // namespace tovi::e2e
