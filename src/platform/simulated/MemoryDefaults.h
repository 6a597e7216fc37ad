// The person's defaults in memory; they outlive the process and a loss of power.
#pragma once

#include <variant>

#include "platform/Defaults.h"

namespace tovi {

class MemoryFaults;

class MemoryDefaults final : public Defaults {
 public:
  using Value = std::variant<double, bool, std::map<std::string, double>, std::vector<std::string>>;

  explicit MemoryDefaults(const MemoryFaults& faults) : faults_(faults) {}

  std::optional<double> number(const std::string& key) override { return get<double>(key); }
  std::optional<bool> flag(const std::string& key) override { return get<bool>(key); }
  std::optional<std::map<std::string, double>> numbers(const std::string& key) override {
    return get<std::map<std::string, double>>(key);
  }
  std::optional<std::vector<std::string>> strings(const std::string& key) override {
    return get<std::vector<std::string>>(key);
  }

  void set(const std::string& key, double value) override { put(key, value); }
  void set(const std::string& key, bool value) override { put(key, value); }
  void set(const std::string& key, const std::map<std::string, double>& value) override { put(key, value); }
  void set(const std::string& key, const std::vector<std::string>& value) override { put(key, value); }

  const std::map<std::string, Value>& all() const { return values_; }
  int writes() const { return writes_; }  // calls of set() so far
  void erase(const std::string& key) { values_.erase(key); }

 private:
  const MemoryFaults& faults_;
  std::map<std::string, Value> values_;
  int writes_ = 0;

  void put(const std::string& key, Value value);

  template <class Wanted>
  std::optional<Wanted> get(const std::string& key) const {
    const auto at = values_.find(key);
    if (at == values_.end() || !std::holds_alternative<Wanted>(at->second)) return std::nullopt;
    return std::get<Wanted>(at->second);
  }
};

}  // namespace tovi
