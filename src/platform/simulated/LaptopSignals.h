// Who wants to hear of the laptop's events, and the way each is told: on a turn of the main queue of its own.
#pragma once

#include <functional>
#include <memory>

#include "platform/Types.h"
#include "platform/simulated/LaptopModel.h"

namespace tovi {

class MainQueue;

class LaptopSignals {
 public:
  explicit LaptopSignals(MainQueue& queue);

  Registration observe(LaptopEvent event, std::function<void()> call);  // may outlive this object
  void raise(LaptopEvent event);                                        // on the main thread
  void drop();  // forgets everybody, and what was raised but not yet told

 private:
  struct Observers;
  MainQueue& queue_;
  std::shared_ptr<Observers> observers_;
};

}  // namespace tovi
