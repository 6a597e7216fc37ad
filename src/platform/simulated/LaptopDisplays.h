// The simulated laptop's screens: which there are comes from its report, whether they are on and how bright they
// are from its switches. `refuse` in the report makes a switch fail by these names: "display 1 off", "display 1 on"
// and "brightness 1", with the screen's number.
#pragma once

#include <map>

#include "platform/Displays.h"

namespace tovi {

class LaptopStore;

class LaptopDisplays final : public Displays {
 public:
  static constexpr int kFailure = 1000;        // the system's code for an operation that failed
  static constexpr int kNoSuchDisplay = 1001;  // and for a number that it doesn't know

  explicit LaptopDisplays(LaptopStore& store) : store_(store) {}

  // A closed lid takes no screen away; one that is switched off is missing.
  std::vector<Display> online() override;

  bool canSwitch() override { return true; }
  bool beginConfiguration() override;
  int setEnabled(std::uint32_t display, bool enabled) override;
  int completeConfiguration() override;
  void cancelConfiguration() override;

  // Only the built-in screen has a brightness, and only while it is on.
  std::optional<float> brightness(std::uint32_t display) override;
  bool canSetBrightness() override { return true; }
  int setBrightness(std::uint32_t display, float value) override;

  bool sessionLocked() override;
  std::optional<int> passwordDelay() override;

 private:
  LaptopStore& store_;
  std::optional<std::map<std::uint32_t, bool>> staged_;  // an open configuration
  bool isLitBuiltIn(std::uint32_t display);
};

}  // namespace tovi
