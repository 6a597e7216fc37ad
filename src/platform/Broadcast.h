// The one-way road for requests: any process of the person sends one text, the resident application hears it.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace tovi {

class Broadcast {
 public:
  virtual ~Broadcast() = default;

  enum class Sent { yes, nobodyListens, tooLarge, failed };
  virtual Sent post(std::string_view text) = 0;

  // Hears what processes of the same person send, on the main queue. An empty registration: the road can't be
  // opened. Only the one primary application may listen.
  virtual Registration listen(std::function<void(std::string)> call) = 0;
};

}  // namespace tovi
