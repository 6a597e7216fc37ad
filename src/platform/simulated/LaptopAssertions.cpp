#include "platform/simulated/LaptopAssertions.h"

#include <algorithm>

#include "platform/simulated/LaptopStore.h"

namespace tovi {

std::vector<AssertionRecord> LaptopAssertions::all() { return store_.report()->assertions; }

std::uint32_t LaptopAssertions::holdDisplayAwake(const std::string&) {
  if (store_.report()->refuses("display-assertion")) return 0;
  if (held_.empty() && !store_.setDisplayAssertion(true)) return 0;
  held_.insert(next_);
  return next_++;
}

bool LaptopAssertions::release(std::uint32_t assertion) {
  if (!held_.contains(assertion)) return false;
  if (held_.size() == 1 && !store_.setDisplayAssertion(false)) return false;
  held_.erase(assertion);
  return true;
}

Registration LaptopAssertions::beginActivity(Activity activity, const std::string& reason) {
  const std::uint32_t id = next_++;
  activities_->emplace_back(id, Begun{activity, reason});
  return Registration([id, activities = std::weak_ptr(activities_)] {
    if (const auto still = activities.lock()) std::erase_if(*still, [&](const auto& one) { return one.first == id; });
  });
}

std::vector<LaptopAssertions::Begun> LaptopAssertions::activities() const {
  std::vector<Begun> begun;
  for (const auto& [id, one] : *activities_) begun.push_back(one);
  return begun;
}

void LaptopAssertions::forget() {
  held_.clear();
  activities_ = std::make_shared<Activities>();
}

}  // namespace tovi
