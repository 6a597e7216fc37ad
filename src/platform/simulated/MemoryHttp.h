// The web in virtual time: a test plays the server, by hand or with a function that answers each request.
//
//   MemoryHttp http(laptop.queue());
//   http.serve([](MemoryHttp::Exchange& exchange) {
//     exchange.answer({.status = 200, .contentType = "application/json"});
//     exchange.send("{}\n");
//   });
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Http.h"

namespace tovi {

class MainQueue;

class MemoryHttp final : public Http {
 public:
  // One request with its answer. What the server does reaches the client on later turns of the queue, in order.
  class Exchange : public std::enable_shared_from_this<Exchange> {
   public:
    bool isPost = false;
    HttpRequest request;
    std::string body;
    Seconds limit{0};  // of silence, or of the whole POST

    void answer(HttpHead head);
    void answer(int status) { answer(HttpHead{status, {}, {}}); }
    void send(std::string bytes);
    void end();         // the answer is complete
    void fail();        // refused, or cut off
    bool open() const;  // neither side has ended it

   private:
    friend class MemoryHttp;

    void tell(std::function<void(Reader&)> what, bool last);
    void expectMore();

    MainQueue* queue_ = nullptr;
    Reader reader_;
    Registration silence_;
    bool ending_ = false;
    bool over_ = false;
  };
  using Server = std::function<void(Exchange&)>;

  explicit MemoryHttp(MainQueue& queue) : queue_(queue) {}
  MemoryHttp(const MemoryHttp&) = delete;
  MemoryHttp& operator=(const MemoryHttp&) = delete;
  ~MemoryHttp() override { drop(); }

  Registration read(const HttpRequest& request, Seconds silence, Reader reader) override;
  Registration post(const HttpRequest& request, std::string body, Seconds limit, Posted done) override;

  // Called for each request on the turn after it was made. Without a server nobody answers.
  void serve(Server server) { server_ = std::move(server); }

  const std::vector<std::shared_ptr<Exchange>>& exchanges() const { return exchanges_; }  // the oldest first
  Exchange& last() { return *exchanges_.back(); }
  std::size_t openReads() const;
  void forget();  // those that are over
  void drop();    // the process that asked is gone

 private:
  Registration start(const std::shared_ptr<Exchange>& exchange);

  MainQueue& queue_;
  Server server_;
  std::vector<std::shared_ptr<Exchange>> exchanges_;
};

}  // namespace tovi
