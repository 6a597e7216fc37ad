#include "platform/JsonDepth.h"

#include <cstddef>

namespace tovi {

bool isTooDeep(std::string_view json) {
  constexpr int kDeepest = 512;
  int depth = 0;
  bool quoted = false;
  for (std::size_t at = 0; at < json.size(); ++at) {
    const char c = json[at];
    if (quoted && c == '\\') {
      ++at;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && (c == '[' || c == '{')) {
      if (++depth > kDeepest) return true;
    } else if (!quoted && (c == ']' || c == '}')) {
      --depth;
    }
  }
  return false;
}

}  // namespace tovi
