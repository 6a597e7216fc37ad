// What comes from the relay, where anybody may write, and what stands sealed in it. The input is taken as a sealed
// text, and as the phone's command inside one.

#include <algorithm>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "core/Json.h"
#include "core/Text.h"
#include "engine/Engine.h"
#include "fuzz/Fuzz.h"
#include "platform/Utf8.h"
#include "platform/simulated/MemoryLaptop.h"
#include "remote/RemoteControl.h"
#include "remote/RemoteCrypto.h"

using namespace tovi;
using fuzz::must;

namespace {

constexpr char kKey[] = "AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK-2vcTL0tk";
const SecretKey& key() {
  static const SecretKey theKey(RemoteCrypto::b64decode(kKey).value());
  return theKey;
}
const RemoteCrypto::Topics& topics() {
  static const auto theTopics = RemoteCrypto::topics(key());
  return theTopics;
}

void base64ComesBack(std::string_view text) {
  must(RemoteCrypto::b64decode(RemoteCrypto::b64encode(text)) == text, "base64 is read as it was written");
  const auto bytes = RemoteCrypto::b64decode(text);
  if (!bytes) return;
  must(RemoteCrypto::b64decode(RemoteCrypto::b64encode(*bytes)) == bytes, "what was read can be written");
  must(bytes->size() <= text.size() * 3 / 4, "base64 grows by a third");
}

// Only who has the key can have made a text that opens, and made of the same nonce it is the same.
void nothingForgedOpens(std::string_view text) {
  const auto plain = RemoteCrypto::open(text, key(), topics().cmd);
  if (!plain) return;
  must(isUtf8(*plain), "what opens is UTF-8");
  const std::string bytes = RemoteCrypto::b64decode(text).value();
  const auto again = RemoteCrypto::seal(*plain, key(), topics().cmd, bytes.substr(0, RemoteCrypto::kNonceSize));
  must(again == RemoteCrypto::b64encode(bytes), "what opens was sealed with the key");
  must(!RemoteCrypto::open(text, key(), topics().reply), "what was sealed for one topic opens for no other");
}

void sealedTextOpens(std::string_view plain) {
  static const std::string nonce = "0123456789ab";
  const auto sealed = RemoteCrypto::seal(plain, key(), topics().cmd, nonce);
  must(sealed.has_value() == (plain.size() <= RemoteCrypto::kLargest - RemoteCrypto::kSmallest),
       "short texts are sealed");
  if (!sealed) return;
  const auto opened = RemoteCrypto::open(*sealed, key(), topics().cmd);
  must(opened.has_value() == isUtf8(plain) && (!opened || *opened == plain), "what was sealed opens");
  // Somewhere in the middle, where every bit counts.
  std::string broken = *sealed;
  char& c = broken[plain.size() % (broken.size() - 1)];
  c = c == 'A' ? 'B' : 'A';
  must(!RemoteCrypto::open(broken, key(), topics().cmd), "a text that was changed doesn't open");
}

class Road {
 public:
  Road() {
    laptop_.files().put(
        laptop_.surroundings().home + "/Library/Application Support/Tovi/remote.json",
        json::compact({{"enabled", true}, {"key", kKey}, {"server", "https://relay.example"}, {"panelUrl", ""}}), 0600);
    engine_ = std::make_unique<Engine>(laptop_.machine(), true);
    laptop_.http().serve([this](MemoryHttp::Exchange& exchange) {
      if (!exchange.isPost) {
        stream_ = exchange.shared_from_this();
        exchange.answer({200, "application/json", {}});
        return;
      }
      replies_.push_back(exchange.body);
      exchange.answer(200);
      exchange.end();
    });
    control_ = std::make_unique<RemoteControl>(
        *engine_, laptop_.http(),
        [this](std::string_view command, const json::Value& args, const RemoteControl::Result& result) {
          ran(command, args, result);
        },
        [this] { return panel_; });
    laptop_.settle();
    must(stream_ != nullptr, "the laptop listens");
  }
  ~Road() { control_.reset(); }

  void take(std::string_view plain) {
    const auto request = json::parseObject(plain);
    control_->guardian = {};
    runs_ = 0;
    send(plain);
    must(replies_.size() == (request ? 1u : 0u), "a command gets one answer, and anything else none");
    if (!request) return;
    isReply(*request);
    if (runs_ == 0) return;
    send(plain);
    must(runs_ == 1, "a command that comes again isn't run again");
    must(replies_.size() == 1, "a command that comes again is refused");
  }

 private:
  MemoryLaptop laptop_;
  std::unique_ptr<Engine> engine_;
  std::unique_ptr<RemoteControl> control_;
  std::shared_ptr<MemoryHttp::Exchange> stream_;
  std::vector<std::string> replies_;
  json::Value panel_;
  int runs_ = 0;

  double now() { return std::floor(unixSeconds(laptop_.now())); }

  void send(std::string_view plain) {
    replies_.clear();
    const json::Value frame{{"id", "abc123"},
                            {"event", "message"},
                            {"time", now()},
                            {"message", RemoteCrypto::seal(plain, key(), topics().cmd, "0123456789ab").value()}};
    stream_->send(json::compact(frame) + "\n");
    laptop_.settle();
    laptop_.http().forget();
  }

  // What the phone sends as "result" and "panel" stands for what the application would say.
  void ran(std::string_view command, const json::Value& args, const RemoteControl::Result& result) {
    must(RemoteCrypto::isAllowed(command), "only what a phone may order is run");
    must(args.is_object(), "arguments are an object");
    ++runs_;
    panel_ = args.value("panel", json::Value());
    json::Value said{{"ok", json::boolAt(args, "ok").value_or(true)}};
    if (const auto error = json::textAt(args, "error")) said["error"] = *error;
    if (args.contains("settings"))
      said["settings"] =
          args["settings"].is_array() && args["settings"].size() < 2 ? args["settings"] : json::Value::array();
    const std::size_t size = json::compact(RemoteCrypto::phoneReply(said, panel_, command)).size();
    must(size <= RemoteCrypto::kMostReplyBytes || said.contains("settings"), "a reply fits the relay");
    result(said);
  }

  void isReply(const json::Value& request) {
    const auto text = RemoteCrypto::open(replies_.front(), key(), topics().reply);
    const auto reply = text ? json::parseObject(*text) : std::nullopt;
    must(reply.has_value(), "the phone can open its answer");
    const std::string id = json::textAt(request, "n").value_or("");
    must(json::textAt(*reply, "re") == text::firstCharacters(id, 256), "an answer names its command");
    must(json::numberAt(*reply, "t") == now(), "an answer has its time");
    must(json::boolAt(*reply, "ok").has_value(), "an answer says whether it worked");
    const auto t = json::numberAt(request, "t");
    const bool fresh = t && *t <= now() + 61 && *t >= now() - RemoteGuard::kWakeMaxAge;
    must(runs_ == 0 || (runs_ == 1 && fresh && !id.empty()), "only a fresh command with a name is run");
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  base64ComesBack(text);
  nothingForgedOpens(text);
  if (size <= 512) sealedTextOpens(text);
  // Virtual time doesn't pass here, so what waits for it piles up.
  static std::unique_ptr<Road> road;
  static int count = 0;
  if (!road || ++count % 10'000 == 0) road = std::make_unique<Road>();
  if (isUtf8(text) && size < RemoteCrypto::kLargest / 2) road->take(text);
  return 0;
}
