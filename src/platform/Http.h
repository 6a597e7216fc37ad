// Requests to web servers, all on the main queue: an answer that is read as it comes, for streams that stay open
// for days, and a body that is sent.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct HttpRequest {
  std::string url;  // "http:" or "https:"; anything else fails like a server that isn't there
  std::vector<std::pair<std::string, std::string>> headers;

  friend bool operator==(const HttpRequest&, const HttpRequest&) = default;
};

struct HttpHead {
  int status = 0;
  std::string contentType;            // as sent; empty if it wasn't
  std::optional<Seconds> retryAfter;  // from now; absent if the server named no time

  friend bool operator==(const HttpHead&, const HttpHead&) = default;
};

// Certificates are verified and the person's proxies used; redirections are answers like any other. No call is made
// before the operation that was asked for has returned, and none after its registration has ended, which gives
// the request up. A registration may end inside any of the calls and after the object is gone.
class Http {
 public:
  struct Reader {
    std::function<void(const HttpHead&)> head;   // once, unless it ends before
    std::function<void(std::string_view)> data;  // any number of times; cut anywhere
    std::function<void(bool complete)> end;      // once; false: refused, cut off, or silent for too long
  };

  virtual ~Http() = default;

  // A GET whose answer may last for ever. `silence`: how long nothing may come, connecting included.
  virtual Registration read(const HttpRequest& request, Seconds silence, Reader reader) = 0;

  // A POST. `done` gets the status of the answer; nothing if none came within `limit`.
  using Posted = std::function<void(std::optional<int> status)>;
  virtual Registration post(const HttpRequest& request, std::string body, Seconds limit, Posted done) = 0;

  // A POST that nobody can give up; `done` may be empty.
  void send(const HttpRequest& request, std::string body, Seconds limit, Posted done = {});
};

}  // namespace tovi
