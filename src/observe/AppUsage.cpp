#include "observe/AppUsage.h"

#include <algorithm>
#include <array>

namespace tovi {

bool AppUsage::isSystemPath(std::string_view path) {
  constexpr std::array<std::string_view, 5> kSystemFolders{
      "/System/", "/usr/libexec/", "/usr/sbin/", "/sbin/", "/Library/Apple/",
  };
  // Ordinary applications that the system happens to ship on its sealed volume.
  if (path.find("/Cryptexes/App/System/Applications/") != std::string_view::npos) return false;
  return std::ranges::any_of(kSystemFolders, [&](std::string_view folder) { return path.starts_with(folder); });
}

std::string_view bundlePathOf(std::string_view path) {
  constexpr std::string_view kEnding = ".app/";
  const auto at = path.find(kEnding);
  return at == std::string_view::npos ? std::string_view{} : path.substr(0, at + kEnding.size() - 1);
}

}  // namespace tovi
