// Web requests by libcurl's multi interface on the event loop: no thread of ours, and nothing that wakes the process
// while an open stream is quiet.
#pragma once

#include <memory>
#include <string>

#include "platform/Http.h"

namespace tovi {

class EventLoop;

// Costs nothing until the first use. The proxies are those of the environment (https_proxy, no_proxy and their kin).
class CurlHttp final : public Http {
 public:
  // `authorities`: a file of certificates to trust instead of the system's; empty: the system's.
  explicit CurlHttp(EventLoop& loop, std::string authorities = {});
  ~CurlHttp() override;  // gives up what is under way, without a call
  CurlHttp(const CurlHttp&) = delete;
  CurlHttp& operator=(const CurlHttp&) = delete;

  Registration read(const HttpRequest& request, Seconds silence, Reader reader) override;
  Registration post(const HttpRequest& request, std::string body, Seconds limit, Posted done) override;

 private:
  class Multi;

  Multi& multi();

  EventLoop& loop_;
  std::string authorities_;
  std::shared_ptr<Multi> multi_;
};

}  // namespace tovi
