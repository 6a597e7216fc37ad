#include "Phone.h"

#include <fmt/format.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "Figures.h"
#include "RelayProcess.h"
#include "core/Json.h"
#include "core/StateFiles.h"
#include "engine/Engine.h"
#include "platform/linux/CurlHttp.h"
#include "platform/linux/EventLoop.h"
#include "platform/simulated/MemoryLaptop.h"
#include "remote/RemoteControl.h"
#include "safety/Setup.h"

namespace tovi::bench {

namespace {

using Json = nlohmann::json;

// As many commands as the phone may give in a minute leave room for these.
constexpr int kCommandsInBatch = 20;
constexpr int kBatch = 2 * kCommandsInBatch;
constexpr double kBatchSeconds = 61;
// The ids of commands are remembered for three hours. By then everything that may fill up has.
constexpr int kWarmUpBatches = 190;
constexpr int kWarmUpReconnections = 50;

// An engine on a laptop in memory, whose phone channel runs on the real loop. The laptop's clock moves between
// batches only.
class Road {
 public:
  Road() {
    if (relay_.url().empty() || Setup(laptop_.machine(), state_).run()) return;
    laptop_.files().put(state_.path("remote.json"), pairing(relay_.url()), 0600);
    engine_ = std::make_unique<Engine>(laptop_.machine(), false);
    control_ = std::make_unique<RemoteControl>(
        *engine_, http_,
        [this](std::string_view, const Json&, const RemoteControl::Result& done) {
          ++ran_;
          done({{"ok", true}, {"status", "Nothing running"}});
        },
        [] {
          return Json{{"headline", "Close the lid: it sleeps"}, {"holding", false}};
        });
  }

  bool connected() {
    return control_ && runUntil([&] { return relay_.streams() == 1; });
  }

  // Half of them commands, which are run and answered; half of them noise.
  bool exchange(int batches) {
    for (int batch = 0; batch < batches; ++batch) {
      const int before = ran_, replies = relay_.replies();
      for (int i = 0; i < kBatch; ++i) {
        if (!send(i % 2 == 0 ? command() : "x")) return false;
      }
      if (!runUntil([&] { return seen() == id_ && relay_.replies() == replies + kCommandsInBatch; })) return false;
      if (ran_ != before + kCommandsInBatch) return false;
      laptop_.advance(kBatchSeconds);
    }
    return true;
  }

  bool reconnect(int times) {
    for (int i = 0; i < times; ++i) {
      const int opened = relay_.opened();
      // Delivered, so that no pause follows.
      if (!send("x") || !runUntil([&] { return seen() == id_; }) || !relay_.endStreams()) return false;
      if (!runUntil([&] { return relay_.streams() == 1 && relay_.opened() == opened + 1; })) return false;
    }
    return true;
  }

  // Without what the laptop has noted down.
  double holds() {
    laptop_.forgetCommands();
    laptop_.processes().forgetEffects();
    return allocatedBytes();
  }

 private:
  std::string command() {
    const Json inner{{"n", fmt::format("n{}", ++commands_)}, {"cmd", "panel"}, {"t", unixSeconds(laptop_.now())}};
    return *RemoteCrypto::seal(json::compact(inner), key_, topics_.cmd);
  }
  bool send(const std::string& body) {
    id_ = fmt::format("m{:011}", ++messages_);
    const Json line{{"id", id_},
                    {"time", static_cast<long long>(unixSeconds(laptop_.now()))},
                    {"event", "message"},
                    {"topic", topics_.cmd},
                    {"message", body}};
    return relay_.send(json::compact(line));
  }
  std::string seen() const { return state_.read("remote-cursor").value_or(""); }

  bool runUntil(const std::function<bool()>& condition) {
    bool late = false;
    const Registration limit = loop_.after(Seconds{10}, [&] {
      late = true;
      loop_.stop();
    });
    const Registration look = loop_.every(Seconds{0.002}, Seconds{0.001}, [&] {
      if (condition()) loop_.stop();
    });
    loop_.run();
    return !late;
  }

  RelayProcess relay_;
  MemoryLaptop laptop_;
  MemoryFaults::Uncounted quiet_{laptop_.faults()};  // or the laptop would note down every operation
  StateFiles state_{laptop_.machine()};
  EventLoop loop_;
  CurlHttp http_{loop_};
  SecretKey key_{*RemoteCrypto::b64decode(kPhoneKey)};
  RemoteCrypto::Topics topics_ = RemoteCrypto::topics(key_);
  std::unique_ptr<Engine> engine_;
  std::unique_ptr<RemoteControl> control_;
  std::string id_;  // of the last message
  int messages_ = 0, commands_ = 0, ran_ = 0;
};

}  // namespace

void measurePhoneMemory(Table& table, int messages, int reconnections) {
  const auto what =
      fmt::format("the phone's road, growth over {} messages and {} reconnections", messages, reconnections);
  Road road;
  if (!road.connected()) return table.addMissing(what, "the stream didn't open");
  if (!road.exchange(kWarmUpBatches) || !road.reconnect(kWarmUpReconnections)) {
    return table.addMissing(what, "a message wasn't handled");
  }
  const double before = road.holds();
  if (!road.exchange(messages / kBatch)) return table.addMissing(what, "a message wasn't handled");
  if (!road.reconnect(reconnections)) return table.addMissing(what, "a reconnection failed");
  const double after = road.holds();
  say(fmt::format("  {:.0f} bytes allocated before, {:.0f} after", before, after));
  table.add(what, (after - before) / 1024, "KiB", 256, 1);
}

}  // namespace tovi::bench
