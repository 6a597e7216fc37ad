// The built program while nothing happens: alone, with the phone's stream open, and beside the loop that people write
// by hand.
#pragma once

#include <chrono>
#include <optional>

#include "Children.h"
#include "RelayProcess.h"
#include "Stage.h"
#include "Table.h"

namespace tovi::bench {

// An application that is paired with a phone and has its stream open.
class PairedApplication {
 public:
  PairedApplication();

  bool connected() { return relay_.streams() == 1; }
  bool reconnected() { return relay_.opened() > 1; }
  const Resident& process() const { return *app_; }

 private:
  RelayProcess relay_;
  Stage stage_;
  std::optional<Resident> app_;
};

// Watches all of them over the same span. Their rows need a table with kFew processes beside them.
void watchIdle(Table& table, const Resident& app, PairedApplication& paired, std::chrono::seconds span);

}  // namespace tovi::bench
