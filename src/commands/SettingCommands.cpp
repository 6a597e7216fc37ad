// Commands about the settings under their public names.

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "commands/CommandCall.h"
#include "core/SettingsSchema.h"
#include "engine/Engine.h"

namespace tovi {

namespace {

std::string unknownSetting(std::string_view key) {
  std::string keys;
  for (const SettingSpec& spec : SettingsSchema::all()) {
    if (!keys.empty()) keys += ", ";
    keys += spec.key;
  }
  return fmt::format("unknown setting {}. Keys: {} (tovi settings explains each)", key, keys);
}

}  // namespace

void handlers::schema(const Arguments&, const CommandCall& call) {
  nlohmann::json reply = SettingsSchema::describe(call.engine.config, call.engine.state());
  reply["ok"] = true;
  call.reply(reply);
}

void handlers::set(const Arguments& args, const CommandCall& call) {
  Engine& engine = call.engine;
  const auto key = args.text("key");
  if (!key) return call.fail("needs key");
  const SettingSpec* spec = SettingsSchema::spec(*key);
  if (spec == nullptr) return call.fail(unknownSetting(*key));
  const nlohmann::json* value = args.value("value");
  if (value == nullptr) return call.fail(fmt::format("{} needs a value", spec->key));
  Config next = engine.config;
  const auto refusal = spec->set(next, *value);
  engine.apply(std::move(next), true);
  if (refusal) return call.fail(fmt::format("{} needs {}", spec->key, *refusal));
  call.succeed({{"key", spec->key}, {"value", spec->get(engine.config)}});
}

}  // namespace tovi
