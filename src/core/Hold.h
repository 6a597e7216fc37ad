// One explicit request to stay awake.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "platform/Types.h"

namespace tovi {

struct Hold {
  std::string id;
  std::string reason;         // as shown to the person
  std::optional<Date> until;  // when it lapses by itself; absent: until released
  std::optional<Pid> pid;     // the process whose life bounds it
  Date created;
  std::optional<Pid> owner;                // the session that asked; it bounds the hold too, and may release it
  std::optional<Microseconds> pidStart;    // tells the real process from a later one of the same number
  std::optional<Microseconds> ownerStart;  // the same of the owner

  friend bool operator==(const Hold&, const Hold&) = default;

  // The first 8 characters of a new random UUID, in lower case.
  static std::string newId();

  // As kept in runtime.json: keys are the field names, dates seconds since 1970. Strict: a missing required key
  // or a value of the wrong type gives nothing.
  nlohmann::json toJson() const;
  static std::optional<Hold> fromJson(const nlohmann::json& value);

  // As shown to clients: id, reason, until (ISO 8601) and pid where there are any.
  nlohmann::json form() const;
};

// A random UUID in upper case, as "8-4-4-4-12" hexadecimal digits.
std::string newUuid();

}  // namespace tovi
