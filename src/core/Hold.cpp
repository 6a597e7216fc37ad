#include "core/Hold.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>

#include "core/Dates.h"
#include "core/Json.h"

namespace tovi {

std::string newUuid() {
  std::array<std::uint8_t, 16> bytes{};
  std::random_device device;
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(device());
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4: random
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    if (at == 4 || at == 6 || at == 8 || at == 10) text += '-';
    text += fmt::format("{:02X}", bytes[at]);
  }
  return text;
}

std::string Hold::newId() {
  std::string id = newUuid().substr(0, 8);
  for (char& c : id) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return id;
}

nlohmann::json Hold::toJson() const {
  nlohmann::json value{{"id", id}, {"reason", reason}, {"created", unixSeconds(created)}};
  if (until) value["until"] = unixSeconds(*until);
  if (pid) value["pid"] = *pid;
  if (owner) value["owner"] = *owner;
  if (pidStart) value["pidStart"] = *pidStart;
  if (ownerStart) value["ownerStart"] = *ownerStart;
  return value;
}

namespace {

std::optional<Date> dateAt(const nlohmann::json& value, std::string_view key) {
  const auto seconds = json::numberAt(value, key);
  return seconds && std::isfinite(*seconds) ? std::optional{dateFromUnix(*seconds)} : std::nullopt;
}

std::optional<Pid> pidAt(const nlohmann::json& value, std::string_view key) {
  const auto number = json::integerAt(value, key);
  if (!number || *number < std::numeric_limits<Pid>::min() || *number > std::numeric_limits<Pid>::max()) return {};
  return static_cast<Pid>(*number);
}

std::optional<Microseconds> startAt(const nlohmann::json& value, std::string_view key) {
  const auto* start = json::member(value, key);
  if (start == nullptr || !start->is_number_unsigned()) return {};
  return start->get<Microseconds>();
}

bool present(const nlohmann::json& value, std::string_view key) {
  const auto* member = json::member(value, key);
  return member != nullptr && !member->is_null();
}

}  // namespace

std::optional<Hold> Hold::fromJson(const nlohmann::json& value) {
  const auto id = json::textAt(value, "id");
  const auto reason = json::textAt(value, "reason");
  const auto created = dateAt(value, "created");
  if (!id || !reason || !created) return std::nullopt;
  Hold hold{.id = *id,
            .reason = *reason,
            .until = dateAt(value, "until"),
            .pid = pidAt(value, "pid"),
            .created = *created,
            .owner = pidAt(value, "owner"),
            .pidStart = startAt(value, "pidStart"),
            .ownerStart = startAt(value, "ownerStart")};
  // A bound that is there but can't be read must not turn into "no bound".
  if ((present(value, "until") && !hold.until) || (present(value, "pid") && !hold.pid) ||
      (present(value, "owner") && !hold.owner) || (present(value, "pidStart") && !hold.pidStart) ||
      (present(value, "ownerStart") && !hold.ownerStart)) {
    return std::nullopt;
  }
  return hold;
}

nlohmann::json Hold::form() const {
  nlohmann::json value{{"id", id}, {"reason", reason}};
  if (until) value["until"] = dates::iso8601(*until);
  if (pid) value["pid"] = *pid;
  return value;
}

}  // namespace tovi
