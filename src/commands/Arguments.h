// The arguments of a command. They come from people, agents and phones, so each is read by one of three forgiving
// readers; whatever a reader can't make sense of counts as absent.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace tovi {

class Arguments {
 public:
  // `values` must outlive this object. Anything but an object counts as an empty one.
  explicit Arguments(const nlohmann::json& values) : values_(values) {}

  bool has(std::string_view key) const;                     // with any value
  const nlohmann::json* value(std::string_view key) const;  // as it is; null if absent

  std::optional<std::string> text(std::string_view key) const;

  // A number, or text that is one; finite and not negative. Above `most` it is cut to that.
  std::optional<double> number(std::string_view key, double most) const;

  // A boolean, one of the usual words, or a number.
  std::optional<bool> flag(std::string_view key) const;

 private:
  const nlohmann::json& values_;
};

}  // namespace tovi
