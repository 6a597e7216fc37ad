#include "platform/simulated/MemoryHttp.h"

#include <algorithm>
#include <optional>

#include "platform/MainQueue.h"

namespace tovi {

bool MemoryHttp::Exchange::open() const { return !over_ && !ending_; }

void MemoryHttp::Exchange::expectMore() {
  silence_ = queue_->after(limit, [this] { fail(); });
}

void MemoryHttp::Exchange::tell(std::function<void(Reader&)> what, bool last) {
  if (!open()) return;
  ending_ = last;
  queue_->post([self = shared_from_this(), what = std::move(what), last] {
    if (self->over_) return;
    self->over_ = last;
    if (last || !self->isPost) self->silence_.reset();
    if (!last && !self->isPost) self->expectMore();
    // The call may end the registration, and with it the reader.
    Reader reader = last ? std::exchange(self->reader_, {}) : self->reader_;
    what(reader);
  });
}

void MemoryHttp::Exchange::answer(HttpHead head) {
  tell([head = std::move(head)](Reader& reader) { reader.head ? reader.head(head) : void(); }, false);
}

void MemoryHttp::Exchange::send(std::string bytes) {
  tell([bytes = std::move(bytes)](Reader& reader) { reader.data ? reader.data(bytes) : void(); }, false);
}

void MemoryHttp::Exchange::end() {
  tell([](Reader& reader) { reader.end ? reader.end(true) : void(); }, true);
}

void MemoryHttp::Exchange::fail() {
  tell([](Reader& reader) { reader.end ? reader.end(false) : void(); }, true);
}

Registration MemoryHttp::start(const std::shared_ptr<Exchange>& exchange) {
  exchange->queue_ = &queue_;
  exchange->expectMore();
  exchanges_.push_back(exchange);
  if (server_) {
    queue_.post([exchange, server = server_] {
      if (exchange->open()) server(*exchange);
    });
  }
  return Registration([exchange] {
    exchange->over_ = true;
    exchange->silence_.reset();
    exchange->reader_ = {};
  });
}

Registration MemoryHttp::read(const HttpRequest& request, Seconds silence, Reader reader) {
  auto exchange = std::make_shared<Exchange>();
  exchange->request = request;
  exchange->limit = silence;
  exchange->reader_ = std::move(reader);
  return start(exchange);
}

Registration MemoryHttp::post(const HttpRequest& request, std::string body, Seconds limit, Posted done) {
  auto exchange = std::make_shared<Exchange>();
  exchange->isPost = true;
  exchange->request = request;
  exchange->body = std::move(body);
  exchange->limit = limit;
  const auto status = std::make_shared<std::optional<int>>();
  exchange->reader_.head = [status](const HttpHead& head) { *status = head.status; };
  exchange->reader_.end = [status, done = std::move(done)](bool complete) {
    if (done) done(complete ? *status : std::nullopt);
  };
  return start(exchange);
}

std::size_t MemoryHttp::openReads() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(exchanges_, [](const auto& exchange) { return !exchange->isPost && exchange->open(); }));
}

void MemoryHttp::forget() {
  std::erase_if(exchanges_, [](const auto& exchange) { return exchange->over_; });
}

void MemoryHttp::drop() {
  for (const auto& exchange : exchanges_) {
    exchange->over_ = true;
    exchange->silence_.reset();
    exchange->reader_ = {};
  }
}

}  // namespace tovi
