// What a relay knows: topics with the messages that it keeps, and the words in which it tells of them. Two relays for
// tests stand on it: one on loopback, one in virtual time.
#pragma once

#include <string>
#include <vector>

namespace tovi {

class RelayModel {
 public:
  static constexpr std::size_t kLargestBody = 4096;  // bytes
  static constexpr double kKept = 12 * 3600;         // seconds

  struct Message {
    std::string id;
    double time = 0;
    std::string topic, body;
  };

  // Trimmed of white space, as the public relay does it.
  const Message& publish(const std::string& topic, const std::string& body, double now);

  // Lines for a subscriber, each with its end. `since`: an id, "all", or empty for none of the past. An id that isn't
  // known any more stands for all that is kept.
  std::vector<std::string> past(const std::string& topic, const std::string& since, double now) const;
  static std::string line(const Message& message);
  std::string openLine(const std::string& topic, double now) { return eventLine("open", topic, now); }
  std::string keepaliveLine(const std::string& topic, double now) { return eventLine("keepalive", topic, now); }

  static std::string text(const Message& message);

  const std::vector<Message>& messages() const { return messages_; }
  std::vector<Message> on(const std::string& topic) const;

 private:
  std::string eventLine(const std::string& event, const std::string& topic, double now);
  std::string newId();

  std::vector<Message> messages_;
  unsigned long long ids_ = 0;
};

}  // namespace tovi
