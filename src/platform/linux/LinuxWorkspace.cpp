#include "platform/linux/LinuxWorkspace.h"

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>

#include "platform/Files.h"
#include "platform/Utf8.h"

namespace tovi {
namespace {

std::string_view withoutFinalSlashes(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

std::optional<std::string> textOf(const pugi::xml_node& dictionary, const char* key) {
  for (const pugi::xml_node name : dictionary.children("key")) {
    if (std::strcmp(name.text().get(), key) != 0) continue;
    const pugi::xml_node value = name.next_sibling();
    if (std::strcmp(value.name(), "string") != 0) return {};
    return repairUtf8(value.text().get());
  }
  return {};
}

}  // namespace

std::vector<std::string> standardApplicationFolders(const std::string& home) {
  return {"/Applications", home + "/Applications"};
}

LinuxWorkspace::LinuxWorkspace(Files& files, std::vector<std::string> applicationFolders)
    : files_(files), applicationFolders_(std::move(applicationFolders)) {}

std::optional<BundleInfo> LinuxWorkspace::bundle(const std::string& path) {
  const std::string folder{withoutFinalSlashes(path)};
  if (!folder.ends_with(".app")) return {};
  const auto text = files_.read(folder + "/Contents/Info.plist");
  pugi::xml_document document;
  if (!text || !document.load_buffer(text->data(), text->size())) return {};
  const pugi::xml_node facts = document.child("plist").child("dict");
  if (!facts) return {};
  return BundleInfo{textOf(facts, "CFBundleDisplayName"), textOf(facts, "CFBundleName"),
                    textOf(facts, "CFBundleIdentifier")};
}

std::optional<std::string> LinuxWorkspace::pathForBundleIdentifier(const std::string& identifier) {
  for (const std::string& folder : applicationFolders_) {
    auto names = files_.list(folder).value_or(std::vector<std::string>{});
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
      const std::string path = folder + "/" + name;
      const auto facts = bundle(path);
      if (facts && facts->identifier == identifier) return path;
    }
  }
  return {};
}

std::string LinuxWorkspace::displayName(const std::string& path) {
  if (const auto facts = bundle(path)) {
    if (facts->displayName) return *facts->displayName;
    if (facts->name) return *facts->name;
  }
  const std::string_view whole = withoutFinalSlashes(path);
  return std::string{whole.substr(whole.rfind('/') + 1)};
}

}  // namespace tovi
