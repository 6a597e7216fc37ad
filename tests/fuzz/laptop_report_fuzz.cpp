// laptop.json, which people and scripts write for the simulated laptop.

#include "platform/simulated/LaptopReport.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz/Fuzz.h"

using namespace tovi;
using fuzz::must;

namespace {

void isWithinBounds(const LaptopReport& report) {
  must(report.thermal >= ThermalState::nominal && report.thermal <= ThermalState::critical, "heat has four states");
  must(report.telemetrySeconds > 0, "telemetry comes after some time");
  must(report.wattsPerCore >= 0 && std::isfinite(report.wattsPerCore), "a core draws no negative watts");
  must(report.applicationsFolder.ends_with('/'), "the folder of applications ends in a slash");
  for (const AssertionRecord& record : report.assertions) must(record.pid >= 1, "an assertion has a holder");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  const auto report = LaptopReport::parse(text);
  const LaptopReport fallback;
  const bool privileged = size % 2 == 0;
  const auto changed = LaptopReport::parse(LaptopReport::withPrivileged(text, privileged, fallback));
  must(changed && changed->privileged == privileged, "the rule can be put into any file");
  LaptopReport wanted = report.value_or(fallback);
  wanted.privileged = privileged;
  must(changed->toJson() == wanted.toJson(), "the rule changes nothing else");
  if (!report) return 0;
  isWithinBounds(*report);
  const auto again = LaptopReport::parse(report->toJson());
  must(again && again->toJson() == report->toJson(), "a report is read as it was written");
  return 0;
}
