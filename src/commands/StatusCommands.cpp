// Commands that only look.

#include <nlohmann/json.hpp>

#include "commands/CommandCall.h"
#include "commands/StatusRecord.h"
#include "engine/Engine.h"

namespace tovi {

namespace {

constexpr std::size_t kListedApps = 15;

// Answers with what `report` says once a fresh energy sample is in.
template <class Report>
void afterSample(const CommandCall& call, Report report) {
  call.engine.sampleEnergyNow([call, report] {
    if (!call.center.expired()) call.reply(report(call.engine));
  });
}

}  // namespace

void handlers::status(const Arguments&, const CommandCall& call) {
  call.engine.refreshFast();
  afterSample(call, [](const Engine& engine) { return statusRecord(engine); });
}

void handlers::energy(const Arguments&, const CommandCall& call) {
  afterSample(call, [](const Engine& engine) {
    return nlohmann::json{{"ok", true}, {"apps", energyList(engine, kListedApps)}};
  });
}

void handlers::config(const Arguments&, const CommandCall& call) {
  const Engine& engine = call.engine;
  call.succeed({{"path", Config::path(engine.state())}, {"config", engine.config->toJson()}});
}

}  // namespace tovi
