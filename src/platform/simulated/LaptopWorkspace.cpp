#include "platform/simulated/LaptopWorkspace.h"

#include <algorithm>
#include <pugixml.hpp>
#include <string_view>
#include <unordered_set>

#include "platform/Files.h"
#include "platform/Processes.h"
#include "platform/Utf8.h"
#include "platform/simulated/LaptopStore.h"

namespace tovi {

namespace {

// The bundle whose program this is: the innermost on the way to it, as a helper has one of its own.
std::optional<std::string> bundlePathOf(const std::string& executable) {
  const std::size_t at = executable.rfind(".app/");
  if (at == std::string::npos) return std::nullopt;
  return executable.substr(0, at + 4);
}

std::string bareName(const std::string& path) {
  std::string_view name = path;
  while (name.size() > 1 && name.ends_with('/')) name.remove_suffix(1);
  name = name.substr(name.rfind('/') + 1);
  if (name.ends_with(".app")) name.remove_suffix(4);
  return std::string(name);
}

// The values of a property list's outermost dictionary, each under its key.
std::unordered_map<std::string, pugi::xml_node> topValues(const pugi::xml_document& plist) {
  std::unordered_map<std::string, pugi::xml_node> values;
  std::string key;
  for (const pugi::xml_node node : plist.child("plist").child("dict").children()) {
    if (std::string_view(node.name()) == "key") {
      key = node.text().get();
    } else if (node.type() == pugi::node_element) {
      values.emplace(key, node);
    }
  }
  return values;
}

// Property lists of bundles write this flag also as "1" or a number.
bool isTrue(const pugi::xml_node& node) {
  const std::string_view name = node.name(), text = node.text().get();
  return name == "true" || text == "1" || text == "YES" || text == "true";
}

}  // namespace

LaptopWorkspace::Facts LaptopWorkspace::facts(const std::string& bundlePath) {
  Facts facts;
  if (const auto text = files_.read(bundlePath + "/Contents/Info.plist")) {
    pugi::xml_document plist;
    if (plist.load_buffer(text->data(), text->size()) && plist.child("plist").child("dict")) {
      facts.opens = true;
      const auto values = topValues(plist);
      const auto take = [&](const char* key, std::optional<std::string>& field) {
        const auto at = values.find(key);
        if (at != values.end() && std::string_view(at->second.name()) == "string")
          field = repairUtf8(at->second.text().get());
      };
      take("CFBundleDisplayName", facts.info.displayName);
      take("CFBundleName", facts.info.name);
      take("CFBundleIdentifier", facts.info.identifier);
      for (const char* key : {"LSUIElement", "LSBackgroundOnly"}) {
        if (const auto at = values.find(key); at != values.end() && isTrue(at->second)) facts.regular = false;
      }
    }
  }
  const auto report = store_.report();
  for (const RunningApplication& listed : report->applications) {
    if (listed.path != bundlePath) continue;
    facts.opens = true;
    if (!listed.name.empty()) facts.info.displayName = listed.name;
    if (listed.bundleIdentifier) facts.info.identifier = listed.bundleIdentifier;
    facts.regular = listed.regular;
    break;
  }
  return facts;
}

std::optional<RunningApplication> LaptopWorkspace::fromProcess(Pid pid,
                                                               std::unordered_map<std::string, Facts>& allKnown) {
  const auto executable = processes_.path(pid);
  if (!executable) return std::nullopt;
  const auto bundlePath = bundlePathOf(*executable);
  if (!bundlePath) return std::nullopt;
  const auto [at, isNew] = allKnown.try_emplace(*bundlePath);
  if (isNew) at->second = facts(*bundlePath);
  const Facts& known = at->second;
  RunningApplication application;
  application.pid = pid;
  application.name = known.info.displayName.value_or(known.info.name.value_or(bareName(*bundlePath)));
  application.bundleIdentifier = known.info.identifier;
  application.path = bundlePath;
  application.regular = known.regular;
  return application;
}

std::vector<RunningApplication> LaptopWorkspace::runningApplications() {
  const auto report = store_.report();
  std::vector<RunningApplication> running;
  std::unordered_set<Pid> listed;
  for (const RunningApplication& application : report->applications) {
    if (application.pid < 1) continue;
    running.push_back(application);
    listed.insert(application.pid);
  }
  // Found in the cheap picture; only the few inside a bundle are then looked at one by one.
  std::vector<Pid> inBundles;
  const ProcessTable& table = processes_.table();
  const auto bundleOf = [](const ProcessEntry* entry) {
    return entry != nullptr && entry->path ? bundlePathOf(*entry->path) : std::nullopt;
  };
  for (const ProcessEntry& entry : table.entries()) {
    if (!entry.path || entry.path->find(".app/") == std::string::npos || listed.contains(entry.pid)) continue;
    const ProcessEntry* parent = entry.parent ? table.find(*entry.parent) : nullptr;
    if (bundleOf(parent) != bundleOf(&entry)) inBundles.push_back(entry.pid);
  }
  std::unordered_map<std::string, Facts> known;
  for (const Pid pid : inBundles) {
    if (auto application = fromProcess(pid, known)) running.push_back(std::move(*application));
  }
  return running;
}

std::optional<RunningApplication> LaptopWorkspace::application(Pid pid) {
  const auto report = store_.report();
  for (const RunningApplication& application : report->applications) {
    if (application.pid == pid && pid >= 1) return application;
  }
  std::unordered_map<std::string, Facts> known;
  return fromProcess(pid, known);
}

std::optional<BundleInfo> LaptopWorkspace::bundle(const std::string& path) {
  Facts known = facts(path);
  if (!known.opens) return std::nullopt;
  return std::move(known.info);
}

std::optional<std::string> LaptopWorkspace::pathForBundleIdentifier(const std::string& identifier) {
  const auto report = store_.report();
  for (const RunningApplication& application : report->applications) {
    if (application.bundleIdentifier == identifier && application.path) return application.path;
  }
  for (const RunningApplication& application : runningApplications()) {
    if (application.bundleIdentifier == identifier && application.path) return application.path;
  }
  for (const std::string& folder : {std::string{"/Applications"}, home_ + "/Applications"}) {
    auto names = files_.list(folder).value_or(std::vector<std::string>{});
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
      const std::string path = folder + "/" + name;
      if (name.ends_with(".app") && facts(path).info.identifier == identifier) return path;
    }
  }
  return std::nullopt;
}

std::string LaptopWorkspace::displayName(const std::string& path) {
  const Facts known = facts(path);
  return known.info.displayName.value_or(known.info.name.value_or(bareName(path)));
}

std::string LaptopWorkspace::applicationsFolder() { return store_.report()->applicationsFolder; }

}  // namespace tovi
