// Notifications and sounds of the simulated laptop: written down instead of shown and played.
#pragma once

#include "platform/Notices.h"

namespace tovi {

class LaptopStore;

class LaptopNotices final : public Notices {
 public:
  explicit LaptopNotices(LaptopStore& store) : store_(store) {}

  void notify(const std::string& title, const std::string& body) override;
  bool play(const std::string& sound) override;  // knows the sounds that every Mac has

 private:
  LaptopStore& store_;
};

}  // namespace tovi
