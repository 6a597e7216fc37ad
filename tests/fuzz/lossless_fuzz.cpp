// JSON of other programs: what is taken comes back the same, and a change that is taken back leaves no trace.

#include "agents/LosslessJson.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz/Fuzz.h"

using namespace tovi;
using fuzz::must;
using lossless::Object;

namespace {

// As a program reads them: an integer isn't a decimal number, nor is -0.0 the same as 0.0.
bool same(const Object& a, const Object& b) {
  if (a.type() != b.type() || a.size() != b.size()) return false;
  if (a.is_number_float()) return a == b && std::signbit(a.get<double>()) == std::signbit(b.get<double>());
  if (a.is_object()) {
    for (auto x = a.begin(), y = b.begin(); x != a.end(); ++x, ++y) {
      if (x.key() != y.key() || !same(x.value(), y.value())) return false;
    }
    return true;
  }
  if (a.is_array()) {
    for (std::size_t at = 0; at < a.size(); ++at) {
      if (!same(a[at], b[at])) return false;
    }
    return true;
  }
  return a == b;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  const auto object = lossless::parse(text);
  if (!object) return 0;
  const std::string written = lossless::pretty(*object);
  must(written.ends_with("}\n"), "a file ends in a line break");
  const Object plain = Object::parse(written, nullptr, /*allow_exceptions=*/false);
  must(same(plain, *object), "any other program reads what was read here");
  const auto again = lossless::parse(written);
  must(again && same(*again, *object), "what was taken once is taken again");
  must(lossless::pretty(*again) == written, "written twice it is the same bytes");

  Object changed = *object;
  changed["\x01 ours"] = {{"command", "/bin/tovi"}, {"args", {"mcp"}}};
  auto reread = lossless::parse(lossless::pretty(changed));
  must(reread && same(*reread, changed), "a changed file can be read");
  reread->erase("\x01 ours");
  if (!object->contains("\x01 ours")) must(lossless::pretty(*reread) == written, "a change taken back leaves no trace");
  return 0;
}
