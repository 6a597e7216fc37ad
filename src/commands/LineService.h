// Answers lines with lines over a pair of file descriptors, for as long as somebody is at both ends.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace tovi::LineService {

// Bytes. A longer line is passed over, so that no input can make the process grow without bounds.
constexpr std::size_t kLongestLine = 1 << 20;

using Answer = std::function<std::optional<std::string>(std::string_view line)>;

// Gives each line of `input`, without its end, to `answer`, and writes what it says to `output` at once, with a line
// end. Returns when the input ends, or as soon as nobody reads the output any more, also while no input comes. The
// process must ignore SIGPIPE.
void serve(int input, int output, const Answer& answer);

// Lets time pass; true, and at once, if nobody reads `output` any more.
bool readerGoesWithin(int output, Seconds span);

}  // namespace tovi::LineService
