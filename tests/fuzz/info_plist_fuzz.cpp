// Info.plist of applications, which anybody may have written.

#include <algorithm>
#include <string>

#include "fuzz/Fuzz.h"
#include "platform/Utf8.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/simulated/MemoryLaptop.h"

using namespace tovi;
using fuzz::must;

namespace {

constexpr char kBundle[] = "/Applications/Some.app";

struct Applications {
  MemoryLaptop laptop;
  LinuxWorkspace workspace{laptop.files(), {"/Applications"}};

  std::optional<BundleInfo> withPlist(std::string_view text) {
    laptop.files().put(std::string(kBundle) + "/Contents/Info.plist", text);
    return workspace.bundle(kBundle);
  }
};

bool same(const BundleInfo& a, const BundleInfo& b) {
  return a.displayName == b.displayName && a.name == b.name && a.identifier == b.identifier;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
  return result;
}

// XML keeps these as they are.
bool isPlain(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c > ' ' && c < 0x7F; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Applications applications;
  const std::string_view text = fuzz::textOf(data, size);
  if (const auto facts = applications.withPlist(text)) {
    for (const auto& value : {facts->displayName, facts->name, facts->identifier}) {
      must(!value || isUtf8(*value), "names and identifiers are UTF-8");
    }
    const auto again = applications.workspace.bundle(std::string(kBundle) + "/");
    must(again && same(*facts, *again), "a final slash makes no difference");
    if (facts->identifier) {
      must(applications.workspace.pathForBundleIdentifier(*facts->identifier) == kBundle, "a bundle is found again");
    }
    must(applications.workspace.displayName(kBundle) == facts->displayName.value_or(facts->name.value_or("Some.app")),
         "a bundle is called by its display name, its name, or its folder");
  } else {
    must(applications.workspace.displayName(kBundle) == "Some.app", "a folder without facts is called by its name");
  }
  if (isPlain(text)) {
    const auto facts =
        applications.withPlist("<plist><dict><key>CFBundleName</key><string/><key>CFBundleIdentifier</key><string>" +
                               escaped(text) + "</string></dict></plist>");
    must(facts && facts->identifier == text, "an identifier is read as it was written");
  }
  return 0;
}
