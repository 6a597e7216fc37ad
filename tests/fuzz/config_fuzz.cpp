// config.json, which people edit by hand: what is read from it can be written and read again, stays within its bounds,
// and from outside loosens nothing that keeps the machine safe.

#include <nlohmann/json.hpp>

#include "core/Config.h"
#include "core/Json.h"
#include "core/SettingsSchema.h"
#include "core/StateFiles.h"
#include "fuzz/Fuzz.h"
#include "platform/simulated/MemoryLaptop.h"
#include "safety/Safety.h"

using namespace tovi;
using fuzz::must;

namespace {

void isWithinBounds(const Config& config) {
  must(config.quietMinutes >= 1 && config.quietMinutes <= 240, "quietMinutes is 1 to 240");
  must(config.batteryFloor >= 0 && config.batteryFloor <= Config::kMostBatteryFloor, "batteryFloor is 0 to 80");
  must(config.wakeForMinutes >= 5 && config.wakeForMinutes <= 1440, "wakeForMinutes is 5 to 1440");
  must(config.ntfyTopic.size() <= 64 * 4, "a topic has at most 64 characters");
  must(!config.alwaysUntil || *config.alwaysUntil > 0, "a date lies after 1970");
  must(config.modeBeforeAlways != Mode::on, "Always was not the mode before Always");
}

void tightens(const Config& config, const Safety& accepted) {
  bool guard = config.heatGuard;
  int floor = config.batteryFloor;
  accepted.tighten(guard, floor);
  must(guard == (config.heatGuard || accepted.heatGuard), "the heat guard stays on");
  must(floor >= config.batteryFloor && floor >= accepted.batteryFloor && floor <= Config::kMostBatteryFloor,
       "the battery limit is never lowered");
  bool again = guard;
  int floorAgain = floor;
  accepted.tighten(again, floorAgain);
  must(again == guard && floorAgain == floor, "tightening twice changes nothing more");
}

void safetyFileComesBack(std::string_view text) {
  static MemoryLaptop laptop;
  static const StateFiles state(laptop.machine());
  laptop.files().put(state.path("safety.json"), text);
  const auto safety = Safety::load(state);
  if (!safety) return;
  must(safety->batteryFloor >= 0 && safety->batteryFloor <= Config::kMostBatteryFloor, "the accepted limit is 0 to 80");
  safety->save(state);
  must(Safety::load(state) == safety, "an accepted setting is read as it was saved");
}

// Each public setting given a value of the document, as a stranger might.
void noSettingLoosens(const Config& config, const json::Value& value) {
  Config next = config;
  for (const SettingSpec& spec : SettingsSchema::all()) {
    const Config before = next;
    const auto refusal = spec.set(next, value);
    must(!refusal || next == before, "a refused value changes nothing");
  }
  must(next.heatGuard || !config.heatGuard, "no setting turns the heat guard off");
  must(next.batteryFloor >= config.batteryFloor, "no setting lowers the battery limit");
  must(next.onlyOnPower || !config.onlyOnPower, "no setting allows battery power again");
  isWithinBounds(next);
  must(Config::decode(next.encoded()) == next, "settings that were taken can be saved");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  const auto document = json::parseObject(text);
  const auto config = Config::decode(text);
  must(config.has_value() == document.has_value(), "every JSON object is a settings file, and nothing else is");
  safetyFileComesBack(text);
  if (!config) return 0;
  isWithinBounds(*config);
  const std::string encoded = config->encoded();
  const auto decoded = Config::decode(encoded);
  must(decoded == config, "what was read can be written and read again");
  must(decoded->encoded() == encoded, "the same settings are the same bytes");
  for (const bool guard : {false, true}) {
    for (const int floor : {0, 1, 40, Config::kMostBatteryFloor}) tightens(*config, {guard, floor});
  }
  if (!document->empty()) noSettingLoosens(*config, *document->begin());
  return 0;
}
