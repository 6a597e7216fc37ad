// The stream from the relay, which comes in pieces of any size: the same bytes are the same lines and the same
// messages, wherever they are cut. The first byte says how; "<sealed>" stands for a text that the laptop can open.

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/Json.h"
#include "core/StateFiles.h"
#include "fuzz/Fuzz.h"
#include "platform/simulated/MemoryLaptop.h"
#include "remote/LineCutter.h"
#include "remote/RemoteChannel.h"

using namespace tovi;
using fuzz::must;
using Texts = std::vector<std::string>;

namespace {

const SecretKey& key() {
  static const SecretKey theKey("0123456789abcdef0123456789abcdef");
  return theKey;
}

std::string spelledOut(std::string_view text) {
  constexpr std::string_view kPlace = "<sealed>";
  static const std::string sealed =
      RemoteCrypto::seal("{}", key(), RemoteCrypto::topics(key()).cmd, "0123456789ab").value();
  std::string result;
  for (auto at = text.find(kPlace); at != std::string_view::npos; at = text.find(kPlace)) {
    result += std::string{text.substr(0, at)} + sealed;
    text.remove_prefix(at + kPlace.size());
  }
  return result + std::string{text};
}

// Pieces of 1 to 16 bytes, by a small generator; a seed of 0: all in one.
std::vector<std::string_view> pieces(std::string_view bytes, unsigned seed) {
  std::vector<std::string_view> found;
  while (!bytes.empty()) {
    seed = seed * 1103515245u + 12345u * (seed != 0);
    const std::size_t size = seed == 0 ? bytes.size() : 1 + (seed >> 16) % 16;
    found.push_back(bytes.substr(0, size));
    bytes.remove_prefix(std::min(size, bytes.size()));
  }
  return found;
}

// Lines that have ended, and the rest.
Texts cut(std::string_view bytes, unsigned seed) {
  Texts lines;
  LineCutter cutter;
  for (const auto piece : pieces(bytes, seed)) {
    cutter.add(piece, [&](std::string line) { lines.push_back(std::move(line)); });
  }
  lines.push_back(cutter.take());
  return lines;
}

Texts linesOf(std::string_view bytes) {
  Texts lines;
  const auto keep = [&](std::string_view line) {
    if (line.size() > LineCutter::kLongest) line = {};
    if (line.ends_with('\r')) line.remove_suffix(1);
    return std::string{line};
  };
  while (bytes.find('\n') != std::string_view::npos) {
    if (std::string line = keep(fuzz::takeUpTo(bytes, '\n')); !line.empty()) lines.push_back(std::move(line));
  }
  lines.push_back(keep(bytes));
  return lines;
}

struct Heard {
  Texts messages;
  std::string cursor;

  friend bool operator==(const Heard&, const Heard&) = default;
};

class Relay {
 public:
  Relay() {
    laptop_.http().serve([this](MemoryHttp::Exchange& exchange) {
      stream_ = exchange.shared_from_this();
      exchange.answer({200, "application/json", {}});
    });
  }

  // Everything that is heard of one connection that ended well.
  Heard play(std::string_view bytes, unsigned seed, bool slowly) {
    Heard heard;
    std::vector<RemoteChannel::Answer> unanswered;
    stream_ = nullptr;
    RemoteChannel channel(
        laptop_.machine(), laptop_.http(),
        [&](const RemoteChannel::Message& message, RemoteChannel::Answer answer) {
          heard.messages.push_back(message.text + (message.time ? std::to_string(*message.time) : " never"));
          slowly ? unanswered.push_back(std::move(answer)) : answer(std::nullopt);
        },
        [](const std::string&) {});
    channel.forgetCursor();
    channel.start("https://relay.example", key());
    laptop_.settle();
    must(stream_ != nullptr, "the laptop listens");
    const auto connection = stream_;
    for (const auto piece : pieces(bytes, seed)) connection->send(std::string{piece});
    connection->end();
    laptop_.settle();
    for (std::size_t at = 0; at < unanswered.size(); ++at) {
      must(heard.messages.size() == at + 1, "the next message waits for the answer");
      const auto answer = unanswered[at];
      answer(std::nullopt);
      laptop_.settle();
    }
    heard.cursor = state_.read(RemoteChannel::kCursorFile).value_or("");
    channel.stop();
    laptop_.settle();
    laptop_.http().forget();
    return heard;
  }

 private:
  MemoryLaptop laptop_;
  StateFiles state_{laptop_.machine()};
  std::shared_ptr<MemoryHttp::Exchange> stream_;
};

Heard expected(const Texts& lines) {
  Heard heard;
  for (const std::string& line : lines) {
    const auto frame = json::parseObject(line);
    if (!frame || json::textAt(*frame, "event") != "message") continue;
    const std::string id = json::textAt(*frame, "id").value_or("");
    const bool plain = std::ranges::all_of(id, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; });
    if (!id.empty() && id.size() <= 32 && plain) heard.cursor = id;
    const auto text =
        RemoteCrypto::open(json::textAt(*frame, "message").value_or(""), key(), RemoteCrypto::topics(key()).cmd);
    if (!text) continue;
    const auto time = json::numberAt(*frame, "time");
    heard.messages.push_back(*text + (time ? std::to_string(*time) : " never"));
  }
  return heard;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned seed = data[0];
  const std::string bytes = spelledOut(fuzz::textOf(data + 1, size - 1));
  const Texts lines = linesOf(bytes);
  must(cut(bytes, 0) == lines, "lines end where they end");
  must(cut(bytes, seed) == lines, "wherever the bytes are cut, the lines are the same");

  static std::unique_ptr<Relay> relay;
  static int count = 0;
  // Virtual time doesn't pass here, so what waits for it piles up.
  if (!relay || ++count % 2'000 == 0) relay = std::make_unique<Relay>();
  const Heard heard = expected(lines);
  must(relay->play(bytes, 0, false) == heard, "every message is heard, and nothing else");
  must(relay->play(bytes, seed, (seed & 1) != 0) == heard, "wherever the bytes are cut, the messages are the same");
  return 0;
}
