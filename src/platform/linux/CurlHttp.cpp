#include "platform/linux/CurlHttp.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cctype>
#include <unordered_map>
#include <vector>

#include "platform/linux/CurlLibrary.h"
#include "platform/linux/EventLoop.h"

namespace tovi {

namespace {

// Only where there is a handle of the library's.
const CurlLibrary& curl() { return *CurlLibrary::get(); }

struct ListEnd {
  void operator()(curl_slist* list) const { curl().slistFreeAll(list); }
};
using List = std::unique_ptr<curl_slist, ListEnd>;

void append(List& list, const std::string& line) {
  if (curl_slist* longer = curl().slistAppend(list.get(), line.c_str())) {
    static_cast<void>(list.release());
    list.reset(longer);
  }
}

// A title may hold any bytes, but a line break in it would begin a header of its own.
std::string headerLine(const std::string& name, const std::string& value) {
  std::string line = name + ": " + value;
  std::ranges::replace_if(
      line, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, ' ');
  // libcurl leaves a header without a value out, unless it is told so by a semicolon.
  return value.empty() ? name + ";" : line;
}

}  // namespace

// The transfers under way. libcurl's own calls only note what has come; it is told further when libcurl has returned,
// for inside its calls no transfer may be dropped.
class CurlHttp::Multi : public std::enable_shared_from_this<CurlHttp::Multi> {
 public:
  struct Transfer {
    Multi* owner = nullptr;
    CURL* easy = nullptr;
    List headers;
    std::string body;
    Seconds patience{0};
    bool silenceOnly = false;  // the limit is for each silence, not for the whole
    Registration limit;
    Reader reader;

    // What has come and isn't told yet.
    std::optional<HttpHead> head;
    std::string data;
    std::optional<bool> ended;  // whether complete
    bool headSeen = false;
    bool noted = false;
  };
  using Shared = std::shared_ptr<Transfer>;

  explicit Multi(EventLoop& loop) : loop_(loop) {
    if (CurlLibrary::get() == nullptr) return;
    handle_ = curl().multiInit();
    if (handle_ == nullptr) return;
    curl().multiSetopt(handle_, CURLMOPT_SOCKETFUNCTION, socketChanged);
    curl().multiSetopt(handle_, CURLMOPT_SOCKETDATA, this);
    curl().multiSetopt(handle_, CURLMOPT_TIMERFUNCTION, timerChanged);
    curl().multiSetopt(handle_, CURLMOPT_TIMERDATA, this);
  }

  ~Multi() {
    for (auto& [easy, transfer] : transfers_) {
      transfer->limit.reset();
      transfer->reader = {};  // it may hold its own registration
      curl().multiRemoveHandle(handle_, easy);
      curl().easyCleanup(easy);
    }
    if (handle_ != nullptr) curl().multiCleanup(handle_);
  }

  Registration start(const HttpRequest& request, const Shared& transfer, const std::string& authorities) {
    CURL* easy = handle_ != nullptr ? curl().easyInit() : nullptr;
    if (easy == nullptr) {
      loop_.post([transfer] {
        if (const auto reader = std::exchange(transfer->reader, {}); reader.end) reader.end(false);
      });
      return Registration([transfer] { transfer->reader = {}; });
    }
    transfer->owner = this;
    transfer->easy = easy;
    for (const auto& [name, value] : request.headers) append(transfer->headers, headerLine(name, value));
    // What libcurl would add to a body of its own accord.
    append(transfer->headers, "Content-Type:");
    append(transfer->headers, "Expect:");
    curl().easySetopt(easy, CURLOPT_URL, request.url.c_str());
    curl().easySetopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl().easySetopt(easy, CURLOPT_HTTPHEADER, transfer->headers.get());
    curl().easySetopt(easy, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_2TLS);
    curl().easySetopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);  // a proxy's answer isn't the server's
    curl().easySetopt(easy, CURLOPT_NOSIGNAL, 1L);
    // Names are looked up in a thread of libcurl's; without this, giving a request up would wait for it.
    curl().easySetopt(easy, CURLOPT_QUICK_EXIT, 1L);
    // A kept connection can have died while the machine slept, and would swallow the next request.
    curl().easySetopt(easy, CURLOPT_FRESH_CONNECT, 1L);
    curl().easySetopt(easy, CURLOPT_FORBID_REUSE, 1L);
    if (!authorities.empty()) {
      curl().easySetopt(easy, CURLOPT_CAINFO, authorities.c_str());
      curl().easySetopt(easy, CURLOPT_CAPATH, nullptr);
    }
    curl().easySetopt(easy, CURLOPT_HEADERFUNCTION, headerCame);
    curl().easySetopt(easy, CURLOPT_HEADERDATA, transfer.get());
    curl().easySetopt(easy, CURLOPT_WRITEFUNCTION, dataCame);
    curl().easySetopt(easy, CURLOPT_WRITEDATA, transfer.get());
    if (!transfer->silenceOnly) {
      curl().easySetopt(easy, CURLOPT_POST, 1L);
      curl().easySetopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(transfer->body.size()));
      curl().easySetopt(easy, CURLOPT_POSTFIELDS, transfer->body.c_str());
    }
    transfers_.emplace(easy, transfer);
    armLimit(*transfer);
    if (curl().multiAddHandle(handle_, easy) != CURLM_OK) {
      finish(*transfer, false);
      loop_.post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->tell();
      });
    }
    return Registration([weak = weak_from_this(), transfer] {
      const auto self = weak.lock();
      if (self) self->drop(*transfer);
    });
  }

 private:
  static int socketChanged(CURL*, curl_socket_t fd, int what, void* data, void*) {
    auto& self = *static_cast<Multi*>(data);
    if (what == CURL_POLL_REMOVE) {
      self.sockets_.erase(fd);
      return 0;
    }
    const std::uint32_t events = (what & CURL_POLL_IN ? EPOLLIN : 0u) | (what & CURL_POLL_OUT ? EPOLLOUT : 0u);
    const auto known = self.sockets_.find(fd);
    if (known != self.sockets_.end()) {
      sd_event_source_set_io_events(known->second.get(), events);
      return 0;
    }
    sd_event_source* added = nullptr;
    if (sd_event_add_io(self.loop_.event(), &added, fd, events, socketReady, &self) < 0) return -1;
    self.sockets_.emplace(fd, EventSource{added});
    return 0;
  }

  static int timerChanged(CURLM*, long milliseconds, void* data) {
    auto& self = *static_cast<Multi*>(data);
    self.timer_.reset();
    if (milliseconds >= 0) {
      self.timer_ = self.loop_.after(Seconds{static_cast<double>(milliseconds) / 1000},
                                     [&self] { self.drive(CURL_SOCKET_TIMEOUT, 0); });
    }
    return 0;
  }

  static int socketReady(sd_event_source*, int fd, std::uint32_t events, void* data) {
    const int what = (events & EPOLLIN ? CURL_CSELECT_IN : 0) | (events & EPOLLOUT ? CURL_CSELECT_OUT : 0) |
                     (events & (EPOLLERR | EPOLLHUP) ? CURL_CSELECT_ERR : 0);
    static_cast<Multi*>(data)->drive(fd, what);
    return 0;
  }

  static std::size_t headerCame(char* bytes, std::size_t, std::size_t count, void* data) {
    auto& transfer = *static_cast<Transfer*>(data);
    const std::string_view line(bytes, count);
    if (line == "\r\n" || line == "\n") transfer.owner->readHead(transfer);
    return count;
  }

  static std::size_t dataCame(char* bytes, std::size_t, std::size_t count, void* data) {
    auto& transfer = *static_cast<Transfer*>(data);
    transfer.data.append(bytes, count);
    transfer.owner->note(transfer);
    return count;
  }

  void readHead(Transfer& transfer) {
    if (transfer.headSeen) return;
    long status = 0;
    curl().easyGetinfo(transfer.easy, CURLINFO_RESPONSE_CODE, &status);
    if (status >= 100 && status < 200) return;  // the real one is still to come
    transfer.headSeen = true;
    HttpHead head;
    head.status = static_cast<int>(status);
    const char* type = nullptr;
    if (curl().easyGetinfo(transfer.easy, CURLINFO_CONTENT_TYPE, &type) == CURLE_OK && type != nullptr) {
      head.contentType = type;
    }
    curl_off_t wait = 0;
    if (curl().easyGetinfo(transfer.easy, CURLINFO_RETRY_AFTER, &wait) == CURLE_OK && wait > 0) {
      head.retryAfter = Seconds{static_cast<double>(wait)};
    }
    transfer.head = head;
    note(transfer);
  }

  void note(Transfer& transfer) {
    if (transfer.noted) return;
    transfer.noted = true;
    const auto known = transfers_.find(transfer.easy);
    if (known != transfers_.end()) noted_.push_back(known->second);
  }

  // Out of libcurl, with its end still to be told.
  void finish(Transfer& transfer, bool complete) {
    if (transfer.easy == nullptr || transfer.ended) return;
    transfer.ended = complete;
    note(transfer);
    release(transfer);
  }

  void release(Transfer& transfer) {
    CURL* easy = std::exchange(transfer.easy, nullptr);
    if (easy == nullptr) return;
    transfer.limit.reset();
    const auto known = transfers_.find(easy);
    const Shared kept = known != transfers_.end() ? known->second : nullptr;
    transfers_.erase(easy);
    curl().multiRemoveHandle(handle_, easy);
    curl().easyCleanup(easy);
  }

  void drop(Transfer& transfer) {
    release(transfer);
    transfer.reader = {};
  }

  void armLimit(Transfer& transfer) {
    transfer.limit = loop_.after(transfer.patience, [this, &transfer] {
      const auto self = shared_from_this();
      finish(transfer, false);
      tell();
    });
  }

  void drive(curl_socket_t fd, int what) {
    const auto self = shared_from_this();
    int running = 0;
    curl().multiSocketAction(handle_, fd, what, &running);
    int left = 0;
    while (const CURLMsg* message = curl().multiInfoRead(handle_, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      const bool complete = message->data.result == CURLE_OK;
      const auto known = transfers_.find(message->easy_handle);
      if (known != transfers_.end()) finish(*known->second, complete);
    }
    tell();
  }

  void tell() {
    std::vector<Shared> batch;
    batch.swap(noted_);
    for (const Shared& transfer : batch) {
      transfer->noted = false;
      if (transfer->silenceOnly && transfer->easy != nullptr) armLimit(*transfer);
      // Each call may drop the transfer, its own function included.
      if (const auto head = std::exchange(transfer->head, {})) {
        if (const auto call = transfer->reader.head) call(*head);
      }
      const std::string data = std::exchange(transfer->data, {});
      if (!data.empty()) {
        if (const auto call = transfer->reader.data) call(data);
      }
      if (const auto ended = std::exchange(transfer->ended, {})) {
        if (const auto reader = std::exchange(transfer->reader, {}); reader.end) reader.end(*ended);
      }
    }
  }

  EventLoop& loop_;
  CURLM* handle_ = nullptr;
  std::unordered_map<CURL*, Shared> transfers_;
  std::unordered_map<curl_socket_t, EventSource> sockets_;
  std::vector<Shared> noted_;
  Registration timer_;
};

CurlHttp::CurlHttp(EventLoop& loop, std::string authorities) : loop_(loop), authorities_(std::move(authorities)) {}

CurlHttp::~CurlHttp() = default;

CurlHttp::Multi& CurlHttp::multi() {
  if (!multi_) multi_ = std::make_shared<Multi>(loop_);
  return *multi_;
}

Registration CurlHttp::read(const HttpRequest& request, Seconds silence, Reader reader) {
  auto transfer = std::make_shared<Multi::Transfer>();
  transfer->patience = silence;
  transfer->silenceOnly = true;
  transfer->reader = std::move(reader);
  return multi().start(request, transfer, authorities_);
}

Registration CurlHttp::post(const HttpRequest& request, std::string body, Seconds limit, Posted done) {
  auto transfer = std::make_shared<Multi::Transfer>();
  transfer->patience = limit;
  transfer->body = std::move(body);
  const auto status = std::make_shared<std::optional<int>>();
  transfer->reader.head = [status](const HttpHead& head) { *status = head.status; };
  transfer->reader.end = [status, done = std::move(done)](bool complete) {
    if (done) done(complete ? *status : std::nullopt);
  };
  return multi().start(request, transfer, authorities_);
}

}  // namespace tovi
