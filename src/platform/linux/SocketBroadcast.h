// The road for requests as one datagram on a socket of the person's own.
#pragma once

#include <optional>
#include <string>

#include "platform/Broadcast.h"

namespace tovi {

class EventLoop;

// The socket is "<runtime folder>/tovi/<h>.sock", or "/tmp/tovi-<uid>/<h>.sock" without a runtime folder; <h> is
// the first 16 hexadecimal digits of the SHA-256 of the state folder's path, so that each home has a road of its
// own. Its folder is 0700 and the person's own, or the road isn't used. A datagram from somebody else is dropped.
class SocketBroadcast : public Broadcast {
 public:
  SocketBroadcast(EventLoop& loop, std::string stateFolder, std::optional<std::string> runtimeFolder);

  Sent post(std::string_view text) override;  // waits at most a second for a busy listener
  Registration listen(std::function<void(std::string)> call) override;

  std::string folder() const;
  std::string socketName() const;  // "<h>.sock"

 private:
  EventLoop& loop_;
  std::string stateFolder_;
  std::optional<std::string> runtimeFolder_;
};

}  // namespace tovi
