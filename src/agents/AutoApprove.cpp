#include "agents/AutoApprove.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "agents/CodexConfig.h"
#include "agents/ForeignFile.h"
#include "agents/LosslessJson.h"
#include "core/Json.h"
#include "core/StateFiles.h"
#include "platform/Machine.h"

namespace tovi {

namespace {

constexpr char kJournal[] = "auto-approve.json";
constexpr char kLock[] = "approve.lock";
constexpr Seconds kPatience{2};  // turning takes milliseconds

constexpr char kPermissions[] = "permissions";
constexpr char kMode[] = "defaultMode";
constexpr char kSkip[] = "skipDangerousModePermissionPrompt";
constexpr char kBypass[] = "bypassPermissions";

// The lines that Codex gets, and where the journal keeps those that stood there.
struct CodexLine {
  const char* key;
  const char* line;
  std::optional<std::string> AutoApprove::Journal::*before;
};
constexpr CodexLine kCodexLines[] = {
    {"approval_policy", "approval_policy = \"never\"", &AutoApprove::Journal::codexApproval},
    {"sandbox_mode", "sandbox_mode = \"danger-full-access\"", &AutoApprove::Journal::codexSandbox},
};

constexpr char kClaudeUnreadable[] =
    "Couldn't read ~/.claude/settings.json (it isn't plain JSON), so nothing was changed.";
constexpr char kBusy[] = "Tovi is just changing this elsewhere, so nothing was changed.";
constexpr char kStateUnwritable[] = "Tovi couldn't write to its folder, so nothing was changed.";

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

constexpr char kClaudeOdd[] =
    "~/.claude/settings.json has a value that Tovi couldn't put back later, so nothing was changed.";

bool codexUsable(const ForeignFile& file) {
  return file.readable() &&
         std::ranges::all_of(kCodexLines, [&](const CodexLine& one) { return canSetTopLevel(file.text(), one.key); });
}

std::optional<lossless::Object> readClaude(const ForeignFile& file) {
  if (!file.readable()) return std::nullopt;
  return lossless::parse(file.exists() ? file.text() : "{}");
}

// Notes what stands there. False: it can't be put back later, being of another type than the journal keeps.
bool record(const lossless::Object& settings, AutoApprove::Journal& journal) {
  const auto permissions = settings.find(kPermissions);
  if (permissions != settings.end()) {
    if (!permissions->is_object()) return false;
    const auto mode = permissions->find(kMode);
    if (mode != permissions->end()) {
      if (!mode->is_string()) return false;
      journal.claudeMode = mode->get<std::string>();
    }
  }
  const auto skip = settings.find(kSkip);
  if (skip != settings.end()) {
    if (!skip->is_boolean()) return false;
    journal.claudeSkip = skip->get<bool>();
  }
  return true;
}

template <class Value>
void putBack(lossless::Object& object, const char* key, const std::optional<Value>& before) {
  if (before) {
    object[key] = *before;
  } else {
    object.erase(key);
  }
}

void restoreClaude(lossless::Object& settings, const AutoApprove::Journal& journal) {
  const auto permissions = settings.find(kPermissions);
  if (permissions != settings.end() && permissions->is_object()) {
    const auto mode = permissions->find(kMode);
    if (mode != permissions->end() && *mode == kBypass) {
      putBack(*permissions, kMode, journal.claudeMode);
      if (permissions->empty()) settings.erase(kPermissions);
    }
  }
  const auto skip = settings.find(kSkip);
  if (skip != settings.end() && *skip == true) putBack(settings, kSkip, journal.claudeSkip);
}

std::string restoredCodex(std::string text, const AutoApprove::Journal& journal) {
  for (const CodexLine& one : kCodexLines) {
    if (topLevelLine(text, one.key) == one.line) text = setTopLevel(text, one.key, journal.*one.before);
  }
  return text;
}

// Absent member: absent value. A member of another type makes the whole journal undecodable.
template <class Value>
bool take(const json::Value& object, const char* key, std::optional<Value>& value,
          std::optional<Value> (*as)(const json::Value&)) {
  const json::Value* found = json::member(object, key);
  if (found == nullptr || found->is_null()) return true;
  value = as(*found);
  return value.has_value();
}

template <class Value>
void give(json::Value& object, const char* key, const std::optional<Value>& value) {
  if (value) object[key] = *value;
}

}  // namespace

bool AutoApprove::isOn(const StateFiles& state) { return state.exists(kJournal); }

std::string AutoApprove::claudePath() const { return machine_.surroundings.home + "/.claude/settings.json"; }

std::string AutoApprove::codexURL() const {
  const Surroundings& surroundings = machine_.surroundings;
  return (surroundings.codexHome.empty() ? surroundings.home + "/.codex" : surroundings.codexHome) + "/config.toml";
}

std::optional<AutoApprove::Journal> AutoApprove::load() const {
  const auto text = state_.read(kJournal);
  const auto object = text ? json::parseObject(*text) : std::nullopt;
  if (!object) return std::nullopt;
  const auto claudeTouched = json::boolAt(*object, "claudeTouched");
  const auto codexTouched = json::boolAt(*object, "codexTouched");
  Journal journal;
  const bool sound = claudeTouched && codexTouched &&  //
                     take(*object, "claudeMode", journal.claudeMode, json::asText) &&
                     take(*object, "claudeSkip", journal.claudeSkip, json::asBool) &&
                     take(*object, "codexApproval", journal.codexApproval, json::asText) &&
                     take(*object, "codexSandbox", journal.codexSandbox, json::asText) &&
                     take(*object, "codexPath", journal.codexPath, json::asText);
  if (!sound) return std::nullopt;
  journal.claudeTouched = *claudeTouched;
  journal.codexTouched = *codexTouched;
  return journal;
}

bool AutoApprove::save(const Journal& journal) const {
  json::Value object{{"claudeTouched", journal.claudeTouched}, {"codexTouched", journal.codexTouched}};
  give(object, "claudeMode", journal.claudeMode);
  give(object, "claudeSkip", journal.claudeSkip);
  give(object, "codexApproval", journal.codexApproval);
  give(object, "codexSandbox", journal.codexSandbox);
  give(object, "codexPath", journal.codexPath);
  return state_.writeDurably(json::pretty(object), state_.path(kJournal));
}

std::string AutoApprove::shown(const std::string& path) const {
  const std::string& home = machine_.surroundings.home;
  return path.starts_with(home + "/") ? "~" + path.substr(home.size()) : path;
}

std::unique_ptr<Files::Lock> AutoApprove::turn() const { return machine_.files.tryLock(state_.path(kLock), kPatience); }

std::string AutoApprove::noTurn() const { return state_.exists(kLock) ? kBusy : kStateUnwritable; }

std::optional<std::string> AutoApprove::makeFolderOf(const std::string& path) const {
  const std::string folder = folderOf(path);
  if (machine_.files.exists(folder)) return std::nullopt;
  if (!machine_.files.makeFolders(folder)) {
    return fmt::format("Couldn't write {}: its folder can't be made", shown(path));
  }
  machine_.files.syncFolder(folderOf(folder));
  return std::nullopt;
}

std::optional<std::string> AutoApprove::write(const ForeignFile& file, const std::string& path,
                                              const std::string& text) const {
  const auto failure = file.replace(text);
  if (!failure) return std::nullopt;
  return fmt::format("Couldn't write {}: {}", shown(path), *failure);
}

std::optional<std::string> AutoApprove::turnOn() const {
  if (isOn()) return std::nullopt;
  const auto lock = turn();
  if (!lock) return noTurn();
  if (isOn()) return std::nullopt;  // somebody else's record of what stood there must not be lost
  const ForeignFile claude(machine_, claudePath());
  const auto settings = readClaude(claude);
  Journal journal;
  if (!settings) return kClaudeUnreadable;
  if (!record(*settings, journal)) return kClaudeOdd;
  const std::string codexPath = codexURL();
  const ForeignFile codex(machine_, codexPath);
  if (!codexUsable(codex)) return fmt::format("Couldn't read {}, so nothing was changed.", shown(codexPath));
  for (const auto& [file, path] : {std::pair{&claude, claudePath()}, std::pair{&codex, codexPath}}) {
    if (file->readOnly())
      return fmt::format("Couldn't write {} (it is read-only), so nothing was changed.", shown(path));
  }

  for (const CodexLine& one : kCodexLines) journal.*one.before = topLevelLine(codex.text(), one.key);
  journal.codexPath = codexPath;
  journal.claudeTouched = true;
  if (!save(journal)) {
    state_.remove(state_.path(kJournal));  // it may stand there, though not for certain after a loss of power
    return kStateUnwritable;
  }
  auto opened = *settings;
  opened[kPermissions][kMode] = kBypass;
  opened[kSkip] = true;
  if (opened != *settings) {
    if (const auto failure = makeFolderOf(claudePath())) return failure;
    if (const auto failure = write(claude, claudePath(), lossless::pretty(opened))) return failure;
  }

  if (const auto failure = makeFolderOf(codexPath)) return failure;
  journal.codexTouched = true;
  if (!save(journal)) return "Tovi couldn't write to its folder, so Codex wasn't changed.";
  std::string config = codex.text();
  for (const CodexLine& one : kCodexLines) config = setTopLevel(config, one.key, one.line);
  return config == codex.text() ? std::nullopt : write(codex, codexPath, config);
}

std::optional<std::string> AutoApprove::turnOff() const {
  if (!isOn()) return std::nullopt;
  const auto lock = turn();
  if (!lock) return noTurn();
  if (!isOn()) return std::nullopt;
  const auto journal = load();
  if (!journal) return "Couldn't read auto-approve.json, so nothing was changed.";
  // Nothing is written where nothing of ours stands any more: a file that the person deleted stays away.
  const ForeignFile claude(machine_, claudePath());
  const auto settings = journal->claudeTouched ? readClaude(claude) : lossless::Object::object();
  if (!settings) return kClaudeUnreadable;
  if (journal->claudeTouched) {
    auto restored = *settings;
    restoreClaude(restored, *journal);
    if (restored != *settings) {
      if (const auto failure = write(claude, claudePath(), lossless::pretty(restored))) return failure;
    }
  }

  // After Claude Code: trouble with one agent's file mustn't leave the other one unguarded.
  const std::string codexPath = journal->codexPath.value_or(codexURL());
  const ForeignFile codex(machine_, codexPath);
  if (journal->codexTouched) {
    // A key that the person has made a table of is theirs, and no reason to stop.
    if (!codex.readable() || !tomlItems(codex.text())) {
      return fmt::format("Couldn't read {}, so Codex wasn't changed.", shown(codexPath));
    }
    // With a volume that isn't there just now our lines would come back, and nobody would know of them.
    if (const std::string folder = folderOf(codexPath); !machine_.files.exists(folderOf(folder))) {
      return fmt::format(
          "Couldn't find {}, so Codex wasn't changed. If it is gone for good, make an empty folder there.",
          shown(folder));
    }
    const std::string restored = restoredCodex(codex.text(), *journal);
    if (restored != codex.text()) {
      if (const auto failure = write(codex, codexPath, restored)) return failure;
    }
  }
  claude.sweep();
  codex.sweep();
  state_.remove(state_.path(kJournal));
  if (isOn()) return "Both agents ask again, but Tovi couldn't remove auto-approve.json.";
  return std::nullopt;
}

}  // namespace tovi
