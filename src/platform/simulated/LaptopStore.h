// Where a simulated laptop's state is kept. The laptop's parts (LaptopPower, LaptopDisplays and so on) are written
// once over this; a folder that several processes share and the memory of a test are its two kinds.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Commands.h"
#include "platform/PowerRegistry.h"
#include "platform/Types.h"
#include "platform/simulated/LaptopModel.h"
#include "platform/simulated/LaptopReport.h"
#include "platform/simulated/LaptopSwitches.h"

namespace tovi {

// One thing that the person saw or heard.
struct LaptopNotice {
  enum class Kind { notification, sound };
  Kind kind = Kind::notification;
  std::string title, body;  // of a notification
  std::string name;         // of a sound

  friend bool operator==(const LaptopNotice&, const LaptopNotice&) = default;
};

class LaptopStore {
 public:
  virtual ~LaptopStore() = default;

  // As they stand now. Never null; one that was handed out doesn't change.
  virtual std::shared_ptr<const LaptopReport> report() = 0;
  virtual std::shared_ptr<const LaptopSwitches> switches() = 0;

  // Changes the laptop as one step that no other process can come between: `edit` gets the newest state. What it
  // left different is stored, of the report `privileged` alone. False if that failed; true also if nothing differs.
  // `what` names the step for people.
  using Edit = std::function<void(LaptopReport&, LaptopSwitches&, const LaptopModel::Place&)>;
  virtual bool change(std::string_view what, const Edit& edit) = 0;

  // The readings that the power controller has published up to now.
  virtual BatteryProperties::Telemetry telemetry() = 0;

  // Calls on the main queue, on a turn of its own, for each such event from now on.
  virtual Registration observe(LaptopEvent event, std::function<void()> call) = 0;

  // Keeps or gives up this process's part in keeping the screen awake; the laptop's `displayAssertion` stands for
  // all processes together and ends with the last of them. False: it couldn't be noted.
  virtual bool setDisplayAssertion(bool held) = 0;

  virtual void logCommand(int code, const std::string& path, const std::vector<std::string>& arguments) = 0;
  virtual void logNotice(const LaptopNotice& notice) = 0;
};

}  // namespace tovi
