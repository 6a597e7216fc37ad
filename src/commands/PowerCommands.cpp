// Commands about the machine's watts: where they go, and what the savings are worth.

#include <nlohmann/json.hpp>

#include "commands/CommandCall.h"
#include "core/DelayedCalls.h"
#include "core/Json.h"
#include "engine/Engine.h"

namespace tovi {

namespace {

// How long a power test takes on an ordinary machine.
constexpr int kShortSeconds = 210;
constexpr int kDetailedSeconds = 720;

constexpr Seconds kMeasurePoll{0.5};

double hundredths(double watts) { return json::rounded(watts, 2); }

void answerMeasured(const CommandCall& call) {
  const auto& test = call.engine.lastTest.get();
  if (!test) return call.fail("measurement failed");
  nlohmann::json apps = nlohmann::json::array();
  for (const SavingsTest::App& app : test->apps) {
    apps.push_back(
        {{"name", app.name}, {"before_watts", hundredths(app.before)}, {"after_watts", hundredths(app.after)}});
  }
  call.succeed({{"before_watts", hundredths(test->before)},
                {"after_watts", hundredths(test->after)},
                {"apps", std::move(apps)}});
}

void awaitMeasured(const CommandCall& call) {
  call.later.after(kMeasurePoll, [call] {
    if (call.engine.measuring) {
      awaitMeasured(call);
    } else {
      answerMeasured(call);
    }
  });
}

}  // namespace

void handlers::power(const Arguments&, const CommandCall& call) {
  call.engine.sampleEnergyNow([call] {
    if (!call.center.expired()) call.reply(call.engine.powerReport());
  });
}

void handlers::powerTest(const Arguments& args, const CommandCall& call) {
  const bool detailed = args.flag("detailed").value_or(false);
  const bool screen = args.flag("screen").value_or(false);
  if (const auto refusal = call.engine.startPowerTest(screen, detailed)) return call.fail(*refusal);
  call.succeed({{"started", true},
                {"about_seconds", detailed ? kDetailedSeconds : kShortSeconds},
                {"next", "Call power again (tovi power) for results once power_test shows done."}});
}

void handlers::measure(const Arguments&, const CommandCall& call) {
  Engine& engine = call.engine;
  if (engine.lidClosed && engine.holding) return call.fail("Open the lid to measure");
  engine.measureSavings();
  awaitMeasured(call);
}

}  // namespace tovi
