#include "remote/RemoteChannel.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/Relay.h"
#include "core/Text.h"
#include "platform/Machine.h"
#include "platform/MainQueue.h"

namespace tovi {

namespace {

constexpr Seconds kSilence{120};  // the relay sends a keepalive far more often
constexpr Seconds kReplyLimit{15};
constexpr double kFirstPause = 5;  // seconds
constexpr double kLongestPause = 120;
constexpr std::size_t kLongestCursor = 32;
// Lines that wait while a command runs. Beyond it the connection is given up: all that wasn't taken comes again.
constexpr std::size_t kMostWaiting = 1024 * 1024;  // bytes

bool isCursor(std::string_view text) {
  return !text.empty() && text.size() <= kLongestCursor && std::ranges::all_of(text, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  });
}

std::string hostOf(std::string server) {
  constexpr std::string_view kScheme = "https://";
  if (const auto at = server.find(kScheme); at != std::string::npos) server.erase(at, kScheme.size());
  // A name and a password before the host are nobody's to read.
  if (const auto at = server.rfind('@', server.find('/')); at != std::string::npos) server.erase(0, at + 1);
  return server;
}

}  // namespace

RemoteChannel::RemoteChannel(const Machine& machine, Http& http, Handler handler, Watcher status)
    : queue_(machine.queue),
      http_(http),
      state_(machine),
      handler_(std::move(handler)),
      status_(std::move(status)),
      alive_(std::make_shared<const bool>(true)) {}

RemoteChannel::~RemoteChannel() = default;

void RemoteChannel::start(const std::string& server, const SecretKey& key) {
  cancel();
  dropReply();  // or one that hangs would hold up what comes now
  if (!pairing_ || pairing_->server != server || pairing_->key != key) {
    pairing_ = std::make_shared<const Pairing>(Pairing{server, key, RemoteCrypto::topics(key)});
  }
  backoff_ = kFirstPause;
  connect();
}

void RemoteChannel::stop() {
  cancel();
  dropReply();
  pairing_.reset();
}

void RemoteChannel::forgetCursor() { state_.remove(state_.path(kCursorFile)); }

void RemoteChannel::cancel() {
  reading_.reset();
  pause_.reset();
  cutter_ = {};
  lines_.clear();
  waiting_ = 0;
  delivered_ = false;
  over_.reset();
  wanted_ = Seconds{0};
}

std::optional<std::string> RemoteChannel::cursor() const {
  const auto text = state_.read(kCursorFile);
  if (!text) return std::nullopt;
  const std::string_view id = text::trimmed(*text);
  return isCursor(id) ? std::optional<std::string>{id} : std::nullopt;
}

std::string RemoteChannel::subscription() const {
  std::string url = pairing_->server + "/" + pairing_->topics.cmd + "/json";
  if (const auto from = cursor()) url += "?since=" + *from;
  return url;
}

void RemoteChannel::connect() {
  cancel();
  if (!isAcceptableRelay(pairing_->server)) {
    over_ = true;
    return work();
  }
  reading_ =
      http_.read({subscription(), {}}, kSilence,
                 {[this](const HttpHead& head) { headCame(head); }, [this](std::string_view bytes) { dataCame(bytes); },
                  [this](bool complete) { ended(complete); }});
}

void RemoteChannel::headCame(const HttpHead& head) {
  if (head.status == 200 && text::lowercased(head.contentType).find("json") != std::string::npos) {
    status_("Connected");
    return;
  }
  if (head.status == 429 || head.status == 503) wanted_ = head.retryAfter.value_or(Seconds{0});
  ended(false);
}

void RemoteChannel::dataCame(std::string_view bytes) {
  cutter_.add(bytes, [this](std::string line) { keep(std::move(line)); });
  work();
}

void RemoteChannel::keep(std::string line) {
  if (over_) return;
  waiting_ += line.size();
  lines_.push_back(std::move(line));
  if (waiting_ <= kMostWaiting) return;
  reading_.reset();
  over_ = false;
}

void RemoteChannel::ended(bool complete) {
  reading_.reset();
  if (!over_) {
    over_ = !complete;
    // A line that was cut off comes again whole after the cursor.
    if (std::string rest = cutter_.take(); complete && !rest.empty()) lines_.push_back(std::move(rest));
  }
  work();
}

// Looks at what has come, a line at a time, until a message has to be waited for. The end of the connection counts when
// everything before it has been looked at.
void RemoteChannel::work() {
  if (working_) return;
  working_ = true;
  const std::weak_ptr<const bool> watch = alive_;
  while (!busy_ && !lines_.empty()) {
    const std::string line = std::move(lines_.front());
    lines_.pop_front();
    waiting_ -= std::min(waiting_, line.size());
    takeLine(line);
    if (watch.expired()) return;
  }
  working_ = false;
  if (!busy_ && over_) connectionOver();
}

void RemoteChannel::takeLine(const std::string& line) {
  const auto frame = json::parseObject(line);
  if (!frame) return;
  const auto event = json::textAt(*frame, "event");
  if (event != "keepalive" && event != "message") return;
  backoff_ = kFirstPause;
  delivered_ = true;
  if (event == "keepalive") return;
  takeMessage(json::textAt(*frame, "id").value_or(""), json::textAt(*frame, "message").value_or(""),
              json::numberAt(*frame, "time"));
}

void RemoteChannel::takeMessage(const std::string& id, const std::string& sealed, std::optional<double> time) {
  // First of all: a message that can't be handled must not be fetched for ever.
  if (isCursor(id)) state_.writeAtomically(id, state_.path(kCursorFile));
  const auto from = pairing_;
  const auto text = RemoteCrypto::open(sealed, from->key, from->topics.cmd);
  if (!text) return;  // without a word: a stranger learns nothing
  busy_ = true;
  handler_({*text, time}, [this, from, watch = std::weak_ptr(alive_)](const std::optional<std::string>& answer) {
    if (watch.expired()) return;
    if (!answer || !reply(from, *answer)) goOn();
  });
}

void RemoteChannel::goOn() {
  busy_ = false;
  work();
}

// One that is on its way. The phone asks again for what it misses.
void RemoteChannel::dropReply() {
  if (!replying_) return;
  replying_.reset();
  busy_ = false;
}

// One at a time: an older reply that came after a newer one would take the phone back in time, and a flood of replayed
// messages would open as many connections.
bool RemoteChannel::reply(const std::shared_ptr<const Pairing>& to, const std::string& text) {
  if (to != pairing_) return false;  // unpaired meanwhile
  auto sealed = RemoteCrypto::seal(text, to->key, to->topics.reply);
  if (!sealed) return false;
  replying_ = http_.post({to->server + "/" + to->topics.reply, {{"Cache", "yes"}}}, std::move(*sealed), kReplyLimit,
                         [this](std::optional<int>) {
                           const Registration over = std::move(replying_);
                           goOn();
                         });
  return true;
}

void RemoteChannel::connectionOver() {
  const bool failed = *over_;
  const bool delivered = delivered_;
  double pause = backoff_;
  if (const double wanted = wanted_.count(); wanted > pause) pause = std::min(wanted, kLongestPause);
  cancel();
  if (failed) status_("Can't reach " + hostOf(pairing_->server) + ", retrying");
  if (delivered) return connect();
  backoff_ = std::min(backoff_ * 2, kLongestPause);
  pause_ = queue_.after(Seconds{pause}, [this] { connect(); });
}

}  // namespace tovi
