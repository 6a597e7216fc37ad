// One line to the system log, by way of standard error. Sparse: failed privileged commands and the like.
#pragma once

#include <string_view>

namespace tovi {

void logLine(std::string_view line);

}  // namespace tovi
