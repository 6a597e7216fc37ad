#include "ui/Notifier.h"

#include <fmt/format.h>

#include "core/Relay.h"
#include "core/TopicName.h"
#include "engine/Engine.h"
#include "platform/Http.h"
#include "platform/Notices.h"

namespace tovi {

namespace {

constexpr Seconds kPushLimit{15};
constexpr double kFromHere = 90;  // minutes that read better as hours

std::string duration(double minutes) {
  if (minutes < kFromHere) return fmt::format("{} min", static_cast<long long>(minutes));
  std::string hours = fmt::format("{:.1f} hours", minutes / 60);
  if (const auto at = hours.find(".0 "); at != std::string::npos) hours.erase(at, 2);
  return hours;
}

// Bytes that an address can't hold as they are, such as those of letters outside ASCII.
std::string percentEncoded(std::string_view text) {
  std::string encoded;
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x80) {
      encoded += c;
    } else {
      encoded += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  return encoded;
}

}  // namespace

Notifier::Notifier(Engine& engine, Http& http) : engine_(engine), http_(http) {
  engine_.onFinished = [this](const std::string& name, double minutes, bool gone) { finished(name, minutes, gone); };
  engine_.onNote = [this](const std::string& title, const std::string& body) { note(title, body); };
  for (const auto& [title, body] : std::exchange(engine_.pendingNotes, {})) note(title, body);
}

Notifier::~Notifier() {
  engine_.onFinished = nullptr;
  engine_.onNote = nullptr;
}

void Notifier::note(const std::string& title, const std::string& body) {
  engine_.machine().notices.notify(title, body);
}

void Notifier::finished(const std::string& name, double minutes, bool gone) {
  const Config& config = engine_.config;
  Notices& notices = engine_.machine().notices;
  if (config.doneChime) play(notices, config.chimeSound);
  std::string body = "Busy for " + duration(minutes);
  if (engine_.lidClosed) body += " with the lid closed";
  if (const auto& battery = engine_.battery.get()) body += fmt::format(" · battery {}%", battery->percent);
  if (config.mode == Mode::automatic && config.sleepWhenDone && engine_.lidClosed && engine_.holds->empty()) {
    body += fmt::format(". Sleeps in {} min if nothing else starts.", config.quietMinutes);
  }
  const std::string title = name + (gone ? " closed" : " went idle");
  if (!config.ntfyTopic.empty()) push(http_, config.ntfyTopic, title, body);
  if (config.notifyDone) notices.notify(title, body);
}

void Notifier::push(Http& http, const std::string& topic, const std::string& title, const std::string& body,
                    std::function<void(bool sent)> done) {
  if (!validTopic(topic)) {
    if (done) done(false);
    return;
  }
  const HttpRequest request{std::string{defaultRelay()} + "/" + percentEncoded(topic),
                            {{"Title", title}, {"Tags", "laptop"}}};
  http.send(request, body, kPushLimit, [done = std::move(done)](std::optional<int> status) {
    if (done) done(status == 200);
  });
}

void Notifier::test(Engine& engine, Http& http, const std::string& topic,
                    std::function<void(const std::string& outcome)> show) {
  if (!validTopic(topic)) return show("Topic names can only use letters, numbers, - and _.");
  Config next = engine.config;
  next.ntfyTopic = topic;
  engine.apply(std::move(next), true);
  push(http, topic, "Tovi test", "Phone alerts work. You'll get one when an agent goes idle.",
       [show = std::move(show)](bool sent) {
         show(sent ? "Sent. Check the ntfy app on your phone."
                   : "Couldn't reach pushrelay. Check the topic and your connection.");
       });
}

bool Notifier::validTopic(const std::string& text) { return isTopicName(text); }

void Notifier::play(Notices& notices, const std::string& name) {
  if (!notices.play(name)) notices.play("Glass");
}

}  // namespace tovi
