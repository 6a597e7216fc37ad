// The machine at a glance, for the phone's page.

#include <nlohmann/json.hpp>

#include "commands/CommandCall.h"
#include "engine/Engine.h"

namespace tovi {

void handlers::panel(const Arguments&, const CommandCall& call) { call.reply(call.engine.panelJSON()); }

}  // namespace tovi
