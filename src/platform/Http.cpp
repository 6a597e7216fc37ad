#include "platform/Http.h"

#include <memory>

namespace tovi {

void Http::send(const HttpRequest& request, std::string body, Seconds limit, Posted done) {
  // The call keeps its own registration; both go when it has been made or the machine is gone.
  const auto own = std::make_shared<Registration>();
  *own = post(request, std::move(body), limit, [own, done = std::move(done)](std::optional<int> status) {
    if (done) done(status);
  });
}

}  // namespace tovi
