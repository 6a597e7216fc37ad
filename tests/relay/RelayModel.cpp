#include "relay/RelayModel.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/Text.h"

namespace tovi {

std::string RelayModel::newId() {
  constexpr std::string_view kDigits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  unsigned long long rest = ++ids_ * 0x9E3779B97F4A7C15ull;
  std::string id;
  for (int i = 0; i < 12; ++i, rest /= 31) id += kDigits[rest % kDigits.size()];
  return id;
}

const RelayModel::Message& RelayModel::publish(const std::string& topic, const std::string& body, double now) {
  return messages_.emplace_back(Message{newId(), std::floor(now), topic, std::string{text::trimmed(body)}});
}

std::string RelayModel::text(const Message& message) {
  const nlohmann::json frame{{"id", message.id},        {"time", static_cast<long long>(message.time)},
                             {"event", "message"},      {"topic", message.topic},
                             {"message", message.body}, {"expires", static_cast<long long>(message.time + kKept)}};
  return json::compact(frame);
}

std::string RelayModel::line(const Message& message) { return text(message) + "\n"; }

std::vector<std::string> RelayModel::past(const std::string& topic, const std::string& since, double now) const {
  std::vector<std::string> lines;
  if (since.empty()) return lines;
  for (const Message& message : messages_) {
    if (message.topic != topic || message.time + kKept < now) continue;
    if (message.id == since) {
      lines.clear();
      continue;
    }
    lines.push_back(line(message));
  }
  return lines;
}

std::string RelayModel::eventLine(const std::string& event, const std::string& topic, double now) {
  const nlohmann::json frame{
      {"id", newId()}, {"time", static_cast<long long>(now)}, {"event", event}, {"topic", topic}};
  return json::compact(frame) + "\n";
}

std::vector<RelayModel::Message> RelayModel::on(const std::string& topic) const {
  std::vector<Message> found;
  std::ranges::copy_if(messages_, std::back_inserter(found), [&](const Message& m) { return m.topic == topic; });
  return found;
}

}  // namespace tovi
