// The person's defaults: a few learned figures and flags, kept by the system outside the state folder.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tovi {

// A value of another type than asked for counts as absent.
class Defaults {
 public:
  virtual ~Defaults() = default;

  virtual std::optional<double> number(const std::string& key) = 0;
  virtual std::optional<bool> flag(const std::string& key) = 0;
  virtual std::optional<std::map<std::string, double>> numbers(const std::string& key) = 0;
  virtual std::optional<std::vector<std::string>> strings(const std::string& key) = 0;

  virtual void set(const std::string& key, double value) = 0;
  virtual void set(const std::string& key, bool value) = 0;
  virtual void set(const std::string& key, const std::map<std::string, double>& value) = 0;
  virtual void set(const std::string& key, const std::vector<std::string>& value) = 0;
};

}  // namespace tovi
