#include "platform/linux/JsonDefaults.h"

#include <fmt/format.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "platform/JsonDepth.h"

namespace tovi {

using nlohmann::json;

std::string defaultsPath(const std::string& home) { return home + "/Library/Preferences/com.norvane.Tovi.json"; }

JsonDefaults::JsonDefaults(Files& files, std::string path) : files_(files), path_(std::move(path)) {}
JsonDefaults::~JsonDefaults() = default;

const json& JsonDefaults::current() {
  const auto status = files_.status(path_);
  if (object_ && status == read_) return *object_;
  // The status is older than the text: a change between the two is read once more the next time.
  read_ = status;
  object_ = std::make_unique<json>(json::object());
  const auto text = status ? files_.read(path_) : std::nullopt;
  unreadable_ = status && !text;
  if (text) {
    json parsed = isTooDeep(*text) ? json() : json::parse(*text, nullptr, false);
    if (parsed.is_object()) *object_ = std::move(parsed);
  }
  return *object_;
}

const json* JsonDefaults::find(const std::string& key) {
  const json& object = current();
  const auto at = object.find(key);
  return at == object.end() ? nullptr : &*at;
}

std::optional<double> JsonDefaults::number(const std::string& key) {
  const json* value = find(key);
  if (value == nullptr || !value->is_number()) return {};
  return value->get<double>();
}

std::optional<bool> JsonDefaults::flag(const std::string& key) {
  const json* value = find(key);
  if (value == nullptr || !value->is_boolean()) return {};
  return value->get<bool>();
}

std::optional<std::map<std::string, double>> JsonDefaults::numbers(const std::string& key) {
  const json* value = find(key);
  if (value == nullptr || !value->is_object()) return {};
  std::map<std::string, double> found;
  for (const auto& [name, number] : value->items()) {
    if (!number.is_number()) return {};
    found.emplace(name, number.get<double>());
  }
  return found;
}

std::optional<std::vector<std::string>> JsonDefaults::strings(const std::string& key) {
  const json* value = find(key);
  if (value == nullptr || !value->is_array()) return {};
  std::vector<std::string> found;
  for (const json& text : *value) {
    if (!text.is_string()) return {};
    found.push_back(text.get<std::string>());
  }
  return found;
}

template <typename Value>
void JsonDefaults::put(const std::string& key, const Value& value) {
  // Writing what stands there would wake the disk for nothing.
  if (const json* standing = find(key); standing != nullptr && *standing == json(value)) return;
  // A file that is there but can't be read must not be replaced by one with a single key.
  if (unreadable_) return;
  json changed = current();
  changed[key] = value;
  object_.reset();

  const auto slash = path_.rfind('/');
  if (slash != std::string::npos && slash > 0) files_.makeFolders(path_.substr(0, slash));
  const std::string temporary = fmt::format("{}.tmp{}", path_, ::getpid());
  const std::string text = changed.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
  const bool replaced = files_.create(temporary, 0600) && files_.write(temporary, text, Files::Sync::no) &&
                        files_.rename(temporary, path_);
  if (!replaced) files_.remove(temporary);
}

void JsonDefaults::set(const std::string& key, double value) { put(key, value); }
void JsonDefaults::set(const std::string& key, bool value) { put(key, value); }
void JsonDefaults::set(const std::string& key, const std::map<std::string, double>& value) { put(key, value); }
void JsonDefaults::set(const std::string& key, const std::vector<std::string>& value) { put(key, value); }

}  // namespace tovi
