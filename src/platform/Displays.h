// Screens: which are online, the built-in one's switch and brightness, and whether the session is locked.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace tovi {

struct Display {
  std::uint32_t id = 0;
  bool builtIn = false;

  friend bool operator==(const Display&, const Display&) = default;
};

class Displays {
 public:
  virtual ~Displays() = default;

  virtual std::vector<Display> online() = 0;  // empty: none, or they can't be listed

  // The switch of a display works in a transaction: begin, setEnabled, then complete or cancel. Codes are the
  // system's; 0 is success.
  virtual bool canSwitch() = 0;
  virtual bool beginConfiguration() = 0;
  virtual int setEnabled(std::uint32_t display, bool enabled) = 0;
  virtual int completeConfiguration() = 0;
  virtual void cancelConfiguration() = 0;

  virtual std::optional<float> brightness(std::uint32_t display) = 0;  // 0.0 to 1.0
  virtual bool canSetBrightness() = 0;
  virtual int setBrightness(std::uint32_t display, float value) = 0;  // a code as above

  virtual bool sessionLocked() = 0;
  virtual std::optional<int> passwordDelay() = 0;  // seconds until a password is asked for
};

}  // namespace tovi
