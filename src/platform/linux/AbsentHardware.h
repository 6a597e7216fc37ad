// The hardware of a machine that has none of it: no lid, battery, screens, power requests or notifications.
#pragma once

#include "platform/Assertions.h"
#include "platform/Displays.h"
#include "platform/Notices.h"
#include "platform/PowerRegistry.h"

namespace tovi {

class AbsentPower : public PowerRegistry {
 public:
  std::optional<bool> clamshellClosed() override { return {}; }
  std::optional<bool> sleepDisabled() override { return {}; }
  std::optional<BatteryProperties> battery() override { return {}; }
  ThermalState thermalState() override { return ThermalState::nominal; }
  Registration onChange(std::function<void()>) override { return {}; }
  Registration onThermalChange(std::function<void()>) override { return {}; }
  Registration onWillSleep(std::function<void()>) override { return {}; }
  Registration onPoweredOn(std::function<void()>) override { return {}; }
  Registration onDidWake(std::function<void()>) override { return {}; }
};

// Every code is a failure: 1.
class AbsentDisplays : public Displays {
 public:
  std::vector<Display> online() override { return {}; }
  bool canSwitch() override { return false; }
  bool beginConfiguration() override { return false; }
  int setEnabled(std::uint32_t, bool) override { return 1; }
  int completeConfiguration() override { return 1; }
  void cancelConfiguration() override {}
  std::optional<float> brightness(std::uint32_t) override { return {}; }
  bool canSetBrightness() override { return false; }
  int setBrightness(std::uint32_t, float) override { return 1; }
  bool sessionLocked() override { return false; }
  std::optional<int> passwordDelay() override { return {}; }
};

class AbsentAssertions : public Assertions {
 public:
  std::vector<AssertionRecord> all() override { return {}; }
  std::uint32_t holdDisplayAwake(const std::string&) override { return 0; }
  bool release(std::uint32_t) override { return false; }
  Registration beginActivity(Activity, const std::string&) override { return {}; }
};

class AbsentNotices : public Notices {
 public:
  void notify(const std::string&, const std::string&) override {}
  bool play(const std::string&) override { return false; }
};

}  // namespace tovi
