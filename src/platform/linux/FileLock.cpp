#include "platform/linux/FileLock.h"

#include <sys/file.h>

#include <cerrno>
#include <ctime>

namespace tovi {

bool lockWithin(int file, Seconds patience) {
  constexpr Seconds kBetweenTries{0.005};
  for (Seconds waited{0};; waited += kBetweenTries) {
    if (::flock(file, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (waited >= patience) return false;
    const timespec moment{0, 5'000'000};
    ::nanosleep(&moment, nullptr);
  }
}

}  // namespace tovi
