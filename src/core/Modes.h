// The small enumerations of a person's wishes, their names in files, and the words that people use for them.
#pragma once

#include <optional>
#include <string_view>

namespace tovi {

enum class Mode { off, automatic, on };          // "off", "auto", "on"
enum class Preset { longest, balanced, speed };  // "longest", "balanced", "speed"
enum class AppRule { leave, slow, pause };       // "leave", "slow", "pause"
enum class MenuBarText { none, battery, watts, timeLeft, timer };
enum class AppearanceChoice { system, light, dark };

std::string_view rawValue(Mode mode);
std::string_view rawValue(Preset preset);
std::string_view rawValue(AppRule rule);
std::string_view rawValue(MenuBarText text);
std::string_view rawValue(AppearanceChoice choice);

// The value of a raw name, letter for letter; absent if there is none.
template <class Enum>
std::optional<Enum> fromRawValue(std::string_view raw);

std::string_view modeLabel(Mode mode);       // "Off", "When Busy", "Always"
std::string_view publicName(Preset preset);  // "max_battery", "balanced", "full_speed"

// Words as people type them: case doesn't matter, a blank counts as "_", and each mode and preset has several.
std::optional<Mode> parseMode(std::string_view text);
std::optional<Preset> parsePreset(std::string_view text);

}  // namespace tovi
