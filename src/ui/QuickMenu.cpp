#include "ui/QuickMenu.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>
#include <utility>

#include "core/Modes.h"
#include "engine/Engine.h"
#include "platform/MainQueue.h"

namespace tovi {

namespace {

struct PresetTitle {
  Preset preset;
  const char* title;
};
constexpr PresetTitle kPresets[] = {
    {Preset::longest, "Max Battery"},
    {Preset::balanced, "Balanced"},
    {Preset::speed, "Full Speed"},
};

MenuItem note(std::string title) { return {.title = std::move(title), .action = {}, .enabled = false}; }
MenuItem line() { return note(""); }

void setMode(Engine& engine, Mode mode) {
  if (mode == Mode::on) return engine.stayAwake(std::nullopt);
  Config next = engine.config;
  next.mode = mode;
  engine.apply(std::move(next), true);
}

void addModes(Menu& menu, Engine& engine) {
  for (const Mode mode : {Mode::off, Mode::automatic, Mode::on}) {
    menu.push_back({.title = std::string{modeLabel(mode)},
                    .action = [&engine, mode] { setMode(engine, mode); },
                    .checked = engine.config->mode == mode});
  }
}

// Only from here can the person go below the limit, and only while it makes a difference.
void addFloor(Menu& menu, Engine& engine) {
  const bool allowed = engine.floorOverride;
  if (!allowed && !engine.blockedByFloor()) return;
  menu.push_back({.title = fmt::format("Keep Going Below {}%", engine.config->batteryFloor),
                  .action = [&engine, allowed] { engine.overrideFloor(!allowed); },
                  .checked = allowed});
}

// The agents that run, each with whether it keeps the machine awake.
void addAgents(Menu& menu, Engine& engine) {
  const auto& shownOnly = engine.config->trackOnly;
  std::set<std::string> seen;
  for (const AgentSession& session : engine.sessions.get()) {
    const std::string& id = session.kind.id;
    if (session.kind.isRequest() || !seen.insert(id).second) continue;
    if (seen.size() == 1) menu.insert(menu.end(), {line(), note("Keeps Awake For")});
    const bool keeps = std::ranges::find(shownOnly, id) == shownOnly.end();
    menu.push_back({.title = session.kind.name,
                    .action = [&engine, id, keeps] { engine.setKeepsAwake(id, !keeps); },
                    .checked = keeps});
  }
}

void addHolds(Menu& menu, Engine& engine) {
  if (engine.holds->empty()) return;
  menu.push_back(line());
  for (const Hold& hold : engine.holds.get()) {
    menu.push_back(
        {.title = fmt::format("End “{}”", hold.reason), .action = [&engine, id = hold.id] { engine.releaseHold(id); }});
  }
}

void addPresets(Menu& menu, Engine& engine) {
  menu.insert(menu.end(), {line(), note("While the Lid Is Closed")});
  for (const PresetTitle& row : kPresets) {
    menu.push_back({.title = row.title,
                    .action = [&engine, preset = row.preset] { engine.setPreset(preset); },
                    .checked = engine.config->preset == row.preset});
  }
}

}  // namespace

Menu QuickMenu::build(Engine& engine, std::function<void()> openPanel, std::function<void()> openSettings) {
  Menu menu;
  if (const auto left = engine.unrestored(); !left.empty()) {
    menu.push_back(note(fmt::format("Couldn't Put Back {}", fmt::join(left, ", "))));
  }
  menu.insert(menu.end(), {note(engine.statusLine()), line()});
  addModes(menu, engine);
  addFloor(menu, engine);
  addAgents(menu, engine);
  addHolds(menu, engine);
  addPresets(menu, engine);
  menu.insert(menu.end(), {
                              line(),
                              {.title = "Sleep Now", .action = [&engine] { engine.sleepNow(); }},
                              line(),
                              {.title = "Open Tovi", .action = std::move(openPanel)},
                              {.title = "Settings…", .action = std::move(openSettings)},
                              {.title = "Quit Tovi", .action = [&engine] { engine.machine().queue.stop(); }},
                          });
  return menu;
}

}  // namespace tovi
