// The person's defaults as one JSON object in one file, which several processes share.
#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>

#include "platform/Defaults.h"
#include "platform/Files.h"

namespace tovi {

// Read afresh whenever the file has changed. A missing or broken file counts as an empty object. A change reads,
// replaces the file whole and leaves the other keys; one that fails is forgotten.
class JsonDefaults : public Defaults {
 public:
  JsonDefaults(Files& files, std::string path);  // the path by convention: defaultsPath()
  ~JsonDefaults() override;

  std::optional<double> number(const std::string& key) override;
  std::optional<bool> flag(const std::string& key) override;
  std::optional<std::map<std::string, double>> numbers(const std::string& key) override;
  std::optional<std::vector<std::string>> strings(const std::string& key) override;

  void set(const std::string& key, double value) override;
  void set(const std::string& key, bool value) override;
  void set(const std::string& key, const std::map<std::string, double>& value) override;
  void set(const std::string& key, const std::vector<std::string>& value) override;

 private:
  const nlohmann::json& current();
  const nlohmann::json* find(const std::string& key);
  template <typename Value>
  void put(const std::string& key, const Value& value);

  Files& files_;
  std::string path_;
  std::optional<FileStatus> read_;  // the file as it was when `object_` was read; absent: none, or not read
  std::unique_ptr<nlohmann::json> object_;
  bool unreadable_ = false;  // it is there and couldn't be read
};

// "<home>/Library/Preferences/com.norvane.Tovi.json"
std::string defaultsPath(const std::string& home);

}  // namespace tovi
