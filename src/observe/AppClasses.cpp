#include "observe/AppClasses.h"

#include <algorithm>
#include <array>

namespace tovi::AppClasses {
namespace {

constexpr std::array<std::string_view, 11> kMediaAndCalls{
    "com.apple.Music",      "com.spotify.client",
    "com.apple.podcasts",   "com.apple.TV",
    "org.videolan.vlc",     "com.colliderli.iina",
    "us.zoom.xos",          "com.microsoft.teams2",
    "com.apple.FaceTime",   "com.tinyspeck.slackmacgap.huddle",
    "com.apple.VoiceMemos",
};

constexpr std::array<std::string_view, 14> kAgentServices{
    "com.docker.docker",       "dev.kdrag0n.MacVirt",           "com.electron.ollama",
    "ai.elementlabs.lmstudio", "com.postgresapp.Postgres2",     "com.google.Chrome",
    "com.apple.Safari",        "company.thebrowser.Browser",    "org.mozilla.firefox",
    "com.brave.Browser",       "com.microsoft.edgemac",         "com.apple.dt.Xcode",
    "com.utmapp.UTM",          "com.parallels.desktop.console",
};

constexpr std::array<std::string_view, 8> kAgentServiceWords{
    "Docker", "OrbStack", "Ollama", "LM Studio", "Postgres", "Redis", "UTM", "Parallels",
};

constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool containsIgnoringCase(std::string_view text, std::string_view word) {
  const auto same = [](char a, char b) { return lower(a) == lower(b); };
  return std::search(text.begin(), text.end(), word.begin(), word.end(), same) != text.end();
}

}  // namespace

bool isMediaOrCall(std::string_view bundleIdentifier) {
  return std::ranges::find(kMediaAndCalls, bundleIdentifier) != kMediaAndCalls.end();
}

bool isAgentService(std::string_view bundleIdentifier) {
  return std::ranges::find(kAgentServices, bundleIdentifier) != kAgentServices.end();
}

bool looksLikeAgentService(std::string_view displayName) {
  return std::ranges::any_of(kAgentServiceWords,
                             [&](std::string_view word) { return containsIgnoringCase(displayName, word); });
}

}  // namespace tovi::AppClasses
