// A relay in virtual time, played on MemoryHttp.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/simulated/MemoryClock.h"
#include "platform/simulated/MemoryHttp.h"
#include "relay/RelayModel.h"

namespace tovi {

class MemoryRelay {
 public:
  MemoryRelay(MemoryHttp& http, MemoryClock& clock) : http_(http), clock_(clock) {
    http_.serve([this](MemoryHttp::Exchange& exchange) { serve(exchange); });
  }

  // Somebody publishes; subscribers hear of it.
  const RelayModel::Message& publish(const std::string& topic, const std::string& body) {
    const auto& message = model_.publish(topic, body, now());
    tellSubscribers(topic, RelayModel::line(message));
    return message;
  }
  void tellSubscribers(const std::string& topic, const std::string& bytes) {
    for (const auto& exchange : http_.exchanges()) {
      if (isSubscription(*exchange, topic)) exchange->send(bytes);
    }
  }
  void keepalive(const std::string& topic) { tellSubscribers(topic, model_.keepaliveLine(topic, now())); }
  void cut(const std::string& topic, bool clean) {
    for (const auto& exchange : http_.exchanges()) {
      if (isSubscription(*exchange, topic)) clean ? exchange->end() : exchange->fail();
    }
  }

  // Answers in the relay's place as long as it returns true.
  std::function<bool(MemoryHttp::Exchange&)> instead;

  RelayModel& model() { return model_; }
  std::vector<std::string> subscriptions;  // the addresses asked for, the oldest first

 private:
  double now() { return unixSeconds(clock_.now()); }

  static std::string topicOf(const MemoryHttp::Exchange& exchange) {
    const std::string& url = exchange.request.url;
    const auto slash = url.find('/', url.find("//") + 2);
    return url.substr(slash + 1, url.find_first_of("/?", slash + 1) - slash - 1);
  }
  static bool isSubscription(const MemoryHttp::Exchange& exchange, const std::string& topic) {
    return !exchange.isPost && exchange.open() && topicOf(exchange) == topic;
  }

  void serve(MemoryHttp::Exchange& exchange) {
    if (!exchange.isPost) subscriptions.push_back(exchange.request.url);
    if (instead && instead(exchange)) return;
    const std::string topic = topicOf(exchange);
    if (exchange.isPost) {
      exchange.answer(200);
      exchange.send(model_.text(publish(topic, exchange.body)));
      return exchange.end();
    }
    const std::string& url = exchange.request.url;
    const auto since = url.find("since=");
    exchange.answer({200, "application/x-ndjson; charset=utf-8", {}});
    exchange.send(model_.openLine(topic, now()));
    for (const auto& line : model_.past(topic, since == std::string::npos ? "" : url.substr(since + 6), now())) {
      exchange.send(line);
    }
  }

  MemoryHttp& http_;
  MemoryClock& clock_;
  RelayModel model_;
};

}  // namespace tovi
