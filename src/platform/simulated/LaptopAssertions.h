// Requests to stay awake on the simulated laptop: others' come from its report, ours stand in its switches.
#pragma once

#include <memory>
#include <set>

#include "platform/Assertions.h"

namespace tovi {

class LaptopStore;

class LaptopAssertions final : public Assertions {
 public:
  // An activity that this process has begun and not ended.
  struct Begun {
    Activity activity;
    std::string reason;

    friend bool operator==(const Begun&, const Begun&) = default;
  };

  explicit LaptopAssertions(LaptopStore& store) : store_(store) {}

  std::vector<AssertionRecord> all() override;
  std::uint32_t holdDisplayAwake(const std::string& name) override;  // refused as "display-assertion"
  bool release(std::uint32_t assertion) override;
  Registration beginActivity(Activity activity, const std::string& reason) override;

  std::vector<Begun> activities() const;  // for tests
  void forget();                          // what the process held has ended with it

 private:
  LaptopStore& store_;
  std::uint32_t next_ = 1;
  std::set<std::uint32_t> held_;
  using Activities = std::vector<std::pair<std::uint32_t, Begun>>;
  std::shared_ptr<Activities> activities_ = std::make_shared<Activities>();
};

}  // namespace tovi
