// Cuts a stream that comes in pieces into its lines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace tovi {

class LineCutter {
 public:
  // Far more than the largest sealed message with what the relay puts around it. A longer line is left out whole, so
  // that one without an end doesn't fill the memory.
  static constexpr std::size_t kLongest = 128 * 1024;  // bytes

  // Calls `line` for each line that has ended, without its end ("\n" or "\r\n").
  template <class Call>
  void add(std::string_view bytes, Call&& line) {
    while (!bytes.empty()) {
      const auto end = bytes.find('\n');
      const std::string_view piece = bytes.substr(0, end);
      tooLong_ = tooLong_ || rest_.size() + piece.size() > kLongest;
      if (!tooLong_) rest_ += piece;
      if (end == std::string_view::npos) break;
      bytes.remove_prefix(end + 1);
      std::string whole = take();
      if (!whole.empty()) line(std::move(whole));
    }
  }

  // What came after the last line's end; empty if nothing did. The next piece begins a new line.
  std::string take() {
    std::string whole = tooLong_ ? std::string{} : std::move(rest_);
    if (whole.ends_with('\r')) whole.pop_back();
    rest_.clear();
    tooLong_ = false;
    return whole;
  }

 private:
  std::string rest_;
  bool tooLong_ = false;
};

}  // namespace tovi
