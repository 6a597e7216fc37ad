// Kinds of applications that the rules for the closed lid care about.
#pragma once

#include <string_view>

namespace tovi::AppClasses {

bool isMediaOrCall(std::string_view bundleIdentifier);     // music, video, calls: never paused by a preset
bool isAgentService(std::string_view bundleIdentifier);    // things that agents use: slowed, not paused
bool looksLikeAgentService(std::string_view displayName);  // the same by name, for bundles not in the list

}  // namespace tovi::AppClasses
