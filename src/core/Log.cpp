#include "core/Log.h"

#include <cstdio>
#include <string>

namespace tovi {

void logLine(std::string_view line) {
  std::string text{line};
  while (!text.empty() && text.back() == '\n') text.pop_back();
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace tovi
