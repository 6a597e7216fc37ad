#include "commands/CommandCenter.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/CommandCall.h"
#include "commands/Wire.h"
#include "core/Json.h"
#include "core/Log.h"
#include "engine/Engine.h"
#include "platform/Broadcast.h"

namespace tovi {

namespace {

struct Command {
  std::string_view name;
  handlers::Handler* run;
};

constexpr Command kCommands[] = {
    {"status", handlers::status},
    {"energy", handlers::energy},
    {"config", handlers::config},
    {"mode", handlers::mode},
    {"track", handlers::track},
    {"sleep_now", handlers::sleepNow},
    {"hold", handlers::hold},
    {"release", handlers::release},
    {"release_own", handlers::releaseOwn},
    {"release_pid", handlers::releasePid},
    {"wake", handlers::wake},
    {"wake_at", handlers::wakeAt},
    {"override_floor", handlers::overrideFloor},
    {"preset", handlers::preset},
    {"rule", handlers::rule},
    {"watch", handlers::watch},
    {"agent", handlers::agent},
    {"set", handlers::set},
    {"schema", handlers::schema},
    {"power", handlers::power},
    {"power_test", handlers::powerTest},
    {"measure", handlers::measure},
    {"panel", handlers::panel},
    {"open", handlers::open},
    {"settings", handlers::settings},
    {"snapshot", handlers::snapshot},
    {"island", handlers::island},
    {"quit", handlers::quit},
};

}  // namespace

void CommandCall::succeed() const { succeed(nlohmann::json::object()); }

void CommandCall::succeed(const nlohmann::json& extra) const {
  nlohmann::json answer{{"ok", true}, {"status", engine.statusLine()}};
  answer.update(extra);
  reply(answer);
}

void CommandCall::fail(std::string_view error) const { reply(Wire::failure(error)); }

CommandCenter::CommandCenter(Engine& engine, StatusController& ui)
    : engine_(engine), ui_(ui), alive_(std::make_shared<const bool>(true)), later_(engine.machine().queue) {
  requests_ = engine.machine().broadcast.listen([this](const std::string& text) { receive(text); });
  if (!requests_) {
    logLine("Tovi: the command line can't reach it, because the folder of its request socket can't be used");
  }
}

void CommandCenter::receive(const std::string& text) {
  const auto request = json::parseObject(text);
  if (!request) return;
  const auto id = json::textAt(*request, "id");
  const auto command = json::textAt(*request, "cmd");
  if (!id || !command || !Wire::isRequestId(*id)) return;
  const nlohmann::json* args = json::member(*request, "args");
  // Referred to, never copied: copying what a stranger nested 100,000 deep would overflow the stack.
  static const nlohmann::json kNone = nlohmann::json::object();
  handle(*command, args != nullptr ? *args : kNone, [&engine = engine_, id = *id](const nlohmann::json& reply) {
    const StateFiles& state = engine.state();
    state.writeAtomically(Wire::json(reply), Wire::replyPath(engine.machine(), state, id), Wire::kReplyMode);
  });
}

void CommandCenter::handle(std::string_view command, const nlohmann::json& args, Reply reply) {
  engine_.reloadConfigIfEdited();
  const CommandCall call{engine_, ui_, std::move(reply), alive_, later_};
  const auto row = std::ranges::find(kCommands, command, &Command::name);
  if (row == std::end(kCommands)) return call.fail("Unknown command " + std::string{command});
  row->run(Arguments{args}, call);
}

}  // namespace tovi
