#include "core/Modes.h"

#include <array>
#include <cctype>
#include <string>

namespace tovi {

namespace {

template <class Enum>
struct Names;
template <>
struct Names<Mode> {
  static constexpr std::array<std::string_view, 3> raw{"off", "auto", "on"};
};
template <>
struct Names<Preset> {
  static constexpr std::array<std::string_view, 3> raw{"longest", "balanced", "speed"};
};
template <>
struct Names<AppRule> {
  static constexpr std::array<std::string_view, 3> raw{"leave", "slow", "pause"};
};
template <>
struct Names<MenuBarText> {
  static constexpr std::array<std::string_view, 5> raw{"none", "battery", "watts", "timeLeft", "timer"};
};
template <>
struct Names<AppearanceChoice> {
  static constexpr std::array<std::string_view, 3> raw{"system", "light", "dark"};
};

template <class Enum>
struct Word {
  std::string_view word;
  Enum value;
};

constexpr Word<Mode> kModeWords[] = {
    {"off", Mode::off}, {"auto", Mode::automatic}, {"when_busy", Mode::automatic}, {"busy", Mode::automatic},
    {"on", Mode::on},   {"always", Mode::on},      {"always_on", Mode::on},
};

constexpr Word<Preset> kPresetWords[] = {
    {"longest", Preset::longest},     {"battery", Preset::longest},  {"longest_battery", Preset::longest},
    {"max_battery", Preset::longest}, {"max", Preset::longest},      {"balanced", Preset::balanced},
    {"speed", Preset::speed},         {"full_speed", Preset::speed},
};

template <class Enum, std::size_t count>
std::optional<Enum> parse(const Word<Enum> (&words)[count], std::string_view text) {
  std::string normal{text};
  for (char& c : normal) c = c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (const auto& row : words) {
    if (row.word == normal) return row.value;
  }
  return std::nullopt;
}

template <class Enum>
std::string_view raw(Enum value) {
  return Names<Enum>::raw[static_cast<std::size_t>(value)];
}

}  // namespace

std::string_view rawValue(Mode mode) { return raw(mode); }
std::string_view rawValue(Preset preset) { return raw(preset); }
std::string_view rawValue(AppRule rule) { return raw(rule); }
std::string_view rawValue(MenuBarText text) { return raw(text); }
std::string_view rawValue(AppearanceChoice choice) { return raw(choice); }

template <class Enum>
std::optional<Enum> fromRawValue(std::string_view text) {
  for (std::size_t at = 0; at < Names<Enum>::raw.size(); ++at) {
    if (Names<Enum>::raw[at] == text) return static_cast<Enum>(at);
  }
  return std::nullopt;
}

template std::optional<Mode> fromRawValue<Mode>(std::string_view);
template std::optional<Preset> fromRawValue<Preset>(std::string_view);
template std::optional<AppRule> fromRawValue<AppRule>(std::string_view);
template std::optional<MenuBarText> fromRawValue<MenuBarText>(std::string_view);
template std::optional<AppearanceChoice> fromRawValue<AppearanceChoice>(std::string_view);

std::string_view modeLabel(Mode mode) {
  switch (mode) {
    case Mode::off:
      return "Off";
    case Mode::automatic:
      return "When Busy";
    case Mode::on:
      return "Always";
  }
  return "";
}

std::string_view publicName(Preset preset) {
  switch (preset) {
    case Preset::longest:
      return "max_battery";
    case Preset::balanced:
      return "balanced";
    case Preset::speed:
      return "full_speed";
  }
  return "";
}

std::optional<Mode> parseMode(std::string_view text) { return parse(kModeWords, text); }
std::optional<Preset> parsePreset(std::string_view text) { return parse(kPresetWords, text); }

}  // namespace tovi
