#include "commands/LineService.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <ctime>

namespace tovi::LineService {

namespace {

constexpr std::size_t kChunk = 16 * 1024;

// Puts lines together from the pieces in which they arrive.
class Lines {
 public:
  // False as soon as `take`, called with each line that is complete, says so.
  template <class Take>
  bool add(std::string_view bytes, const Take& take) {
    for (;;) {
      const auto end = bytes.find('\n');
      keep(bytes.substr(0, end));
      if (end == std::string_view::npos) return true;
      if (!finish(take)) return false;
      bytes.remove_prefix(end + 1);
    }
  }

  // The last line needs no end.
  template <class Take>
  void end(const Take& take) {
    if (!line_.empty()) finish(take);
  }

 private:
  void keep(std::string_view piece) {
    if (line_.size() + piece.size() > kLongestLine) tooLong_ = true;
    if (tooLong_) {
      line_ = {};
    } else {
      line_ += piece;
    }
  }

  template <class Take>
  bool finish(const Take& take) {
    const bool goOn = tooLong_ || take(line_);
    tooLong_ = false;
    if (line_.capacity() > kChunk) {
      line_ = {};
    } else {
      line_.clear();
    }
    return goOn;
  }

  std::string line_;
  bool tooLong_ = false;
};

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {  // whoever started us left its end unblocking
      pollfd ready{fd, POLLOUT, 0};
      ::poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

void serve(int input, int output, const Answer& answer) {
  const auto take = [&](std::string_view line) {
    auto said = answer(line);
    if (!said) return true;
    *said += '\n';
    return writeAll(output, *said);
  };
  Lines lines;
  std::array<char, kChunk> room;
  for (;;) {
    // No events asked for: a reader that goes is told anyway.
    std::array<pollfd, 2> ends{{{input, POLLIN, 0}, {output, 0, 0}}};
    if (::poll(ends.data(), ends.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (ends[1].revents != 0) return;
    const ssize_t got = ::read(input, room.data(), room.size());
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got <= 0) return lines.end(take);
    if (!lines.add({room.data(), static_cast<std::size_t>(got)}, take)) return;
  }
}

bool readerGoesWithin(int output, Seconds span) {
  const double seconds = std::floor(span.count());
  const timespec limit{static_cast<std::time_t>(seconds), static_cast<long>((span.count() - seconds) * 1e9)};
  pollfd end{output, 0, 0};
  return ::ppoll(&end, 1, &limit, nullptr) > 0;
}

}  // namespace tovi::LineService
