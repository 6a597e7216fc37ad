#include "commands/Intents.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/PanelFormat.h"
#include "engine/Engine.h"

namespace tovi {

namespace {

constexpr char kNotRunning[] = "Tovi isn't running.";

constexpr Intents::Shortcut kShortcuts[] = {
    {"Keep Mac Awake", "Keep my Mac awake with {}", "Keep Awake", "laptopcomputer", "Minutes"},
    {"Let Mac Sleep", "Let my Mac sleep with {}", "Let Sleep", "moon"},
    {"Get Tovi Status", "{} status", "Status", "battery.75percent"},
};

std::string length(int minutes) {
  return minutes < 60 ? fmt::format("{} min", minutes) : fmt::format("{:.1f} hours", minutes / 60.0);
}

}  // namespace

Intents::Result Intents::keepAwake(Engine* engine, int minutes) {
  if (engine == nullptr) return {"Open Tovi first."};
  if (!engine->setupReady) return {"Tovi needs its one-time setup first. Open Tovi from the menu bar."};
  const int asked = std::clamp(minutes, kFewestMinutes, kMostMinutes);
  engine->addHold("Shortcut", asked, std::nullopt, std::nullopt);
  return {fmt::format("Staying awake for {}, lid open or closed.", length(asked))};
}

Intents::Result Intents::letSleep(Engine* engine) {
  if (engine == nullptr) return {kNotRunning};
  engine->sleepNow();
  return {"Done. It sleeps now, and agents can't keep it awake until you open the lid again."};
}

Intents::Result Intents::status(const Engine* engine) {
  if (engine == nullptr) return {kNotRunning};
  std::string text = engine->statusLine();
  if (const auto& battery = engine->battery.get()) text += fmt::format(". Battery {}%", battery->percent);
  if (const auto hours = engine->hoursLeft(engine->closedEstimate())) {
    text += fmt::format(", about {} with the lid closed.", PanelFormat::hm(*hours));
  }
  return {text, text};
}

std::span<const Intents::Shortcut> Intents::shortcuts() { return kShortcuts; }

}  // namespace tovi
