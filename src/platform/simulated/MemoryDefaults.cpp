#include "platform/simulated/MemoryDefaults.h"

#include "platform/simulated/MemoryFaults.h"

namespace tovi {

void MemoryDefaults::put(const std::string& key, Value value) {
  if (faults_.dead()) return;
  ++writes_;
  values_.insert_or_assign(key, std::move(value));
}

}  // namespace tovi
