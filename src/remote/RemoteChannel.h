// The sealed road between laptop and phone: one long-lived stream from the relay, read a message at a time, and the
// replies. It knows nothing of commands.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/StateFiles.h"
#include "platform/Http.h"
#include "platform/Types.h"
#include "remote/LineCutter.h"
#include "remote/RemoteCrypto.h"

namespace tovi {

class MainQueue;
struct Machine;

class RemoteChannel {
 public:
  static constexpr const char* kCursorFile = "remote-cursor";

  struct Message {
    std::string text;            // as it was before it was sealed
    std::optional<double> time;  // when the relay took it, in seconds since 1970
  };
  // To be called exactly once, at once or later: the next message waits for it, and for the reply to be taken. Nothing:
  // no reply is sent.
  using Answer = std::function<void(const std::optional<std::string>& reply)>;
  using Handler = std::function<void(const Message&, Answer)>;
  using Watcher = std::function<void(const std::string& status)>;

  // `status` gets the words for the person at each success and failure to connect.
  RemoteChannel(const Machine& machine, Http& http, Handler handler, Watcher status);
  ~RemoteChannel();
  RemoteChannel(const RemoteChannel&) = delete;
  RemoteChannel& operator=(const RemoteChannel&) = delete;

  // Subscribes, in place of any subscription before; a reply that is on its way is given up. The reply to a message
  // that is being handled is still sent if server and key stay the same.
  void start(const std::string& server, const SecretKey& key);
  void stop();

  void forgetCursor();

 private:
  struct Pairing {
    std::string server;
    SecretKey key;
    RemoteCrypto::Topics topics;
  };

  void cancel();
  void connect();
  std::string subscription() const;
  std::optional<std::string> cursor() const;
  void headCame(const HttpHead& head);
  void dataCame(std::string_view bytes);
  void keep(std::string line);
  void ended(bool complete);
  void work();
  void takeLine(const std::string& line);
  void takeMessage(const std::string& id, const std::string& sealed, std::optional<double> time);
  bool reply(const std::shared_ptr<const Pairing>& to, const std::string& text);
  void dropReply();
  void goOn();
  void connectionOver();

  MainQueue& queue_;
  Http& http_;
  StateFiles state_;
  Handler handler_;
  Watcher status_;

  std::shared_ptr<const Pairing> pairing_;  // null: stopped
  Registration reading_;
  Registration pause_;
  Registration replying_;  // a reply is on its way
  double backoff_ = 0;     // seconds

  // Of the present connection.
  LineCutter cutter_;
  std::deque<std::string> lines_;  // read, and not yet looked at
  std::size_t waiting_ = 0;        // bytes of them
  bool delivered_ = false;
  std::optional<bool> over_;  // it has ended, and whether it failed
  Seconds wanted_{0};         // the least pause that the relay asked for

  bool busy_ = false;     // a message is being handled, its reply included
  bool working_ = false;  // inside work()
  std::shared_ptr<const bool> alive_;
};

}  // namespace tovi
