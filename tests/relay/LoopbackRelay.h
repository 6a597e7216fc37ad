// A relay on a port of this computer that behaves towards its clients as the public one does, and badly on order. It
// runs in a thread of its own; everything here may be called from any other.
#pragma once

#include <deque>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "relay/RelayModel.h"

namespace tovi {

class LoopbackRelay {
 public:
  struct Request {
    std::string method, target;                  // as on the request line
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;
  };

  // An answer in place of the relay's own.
  struct Order {
    int status = 200;
    std::string contentType = "application/json";
    std::string body = "{}";
    std::string retryAfter = {};  // empty: not sent
    bool hangUp = false;          // the connection is reset instead
    bool silent = false;          // nothing at all is answered
  };

  LoopbackRelay();
  ~LoopbackRelay();
  LoopbackRelay(const LoopbackRelay&) = delete;
  LoopbackRelay& operator=(const LoopbackRelay&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  int port() const { return port_; }

  // The next request gets this answer, the one after it the next order.
  void order(Order order);

  // From now on streams go out in pieces of so many bytes, one a millisecond; 0: as they are.
  void setPieces(std::size_t bytes);

  // Ends all streams: properly, or in the middle of a line.
  void endStreams();
  void cutStreamsInLine();

  RelayModel::Message publish(const std::string& topic, const std::string& body);

  std::vector<Request> requests() const;
  std::vector<RelayModel::Message> on(const std::string& topic) const;
  std::size_t streams() const;  // open ones

 private:
  struct Client {
    FileDescriptor socket;
    std::string in, out;
    std::string topic;     // of its stream; empty: none
    bool closing = false;  // when `out` is empty
    bool dead = false;
    bool answered = false;
  };

  void run();
  void readFrom(Client& client);
  bool takeRequest(Client& client);
  void answer(Client& client, const Request& request);
  void answerWith(Client& client, const Order& order);
  void stream(Client& client, const std::string& topic, const std::string& since);
  void take(Client& client, const std::string& topic, const Request& request);
  void tell(const std::string& topic, const std::string& bytes);
  void closeStreams(const std::string& last);
  void writeTo(Client& client);
  static void reset(Client& client);

  int port_ = 0;
  FileDescriptor listener_;
  FileDescriptor bell_;
  std::thread thread_;

  mutable std::mutex mutex_;  // guards what follows
  bool stopping_ = false;
  RelayModel model_;
  std::list<Client> clients_;
  std::deque<Order> orders_;
  std::vector<Request> requests_;
  std::size_t pieces_ = 0;
};

}  // namespace tovi
