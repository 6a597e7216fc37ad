// The switch that stops Claude Code and Codex from asking for permission, since with the lid shut nobody can answer,
// and that puts both back as they were. It changes two files of other programs: what stood there is on disk first, and
// is put back only where what we wrote still stands.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Files.h"

namespace tovi {

class ForeignFile;
class StateFiles;
struct Machine;

class AutoApprove {
 public:
  AutoApprove(const Machine& machine, const StateFiles& state) : machine_(machine), state_(state) {}

  // On while auto-approve.json exists: also after a change that failed half way, so that turnOff() undoes it.
  static bool isOn(const StateFiles& state);
  bool isOn() const { return isOn(state_); }

  std::string codexURL() const;  // path of Codex's config

  // Absent: it worked, or the switch stood so already. Otherwise the sentence for the person. After a failure or a
  // crash turnOff() may be called again until it works. A process at a time: another waits up to two seconds.
  std::optional<std::string> turnOn() const;
  std::optional<std::string> turnOff() const;

  // auto-approve.json: what stood there before. A flag is set just before the change, so a crash between leaves it
  // true of an untouched file; that does no harm, since only values of our own are taken back.
  struct Journal {
    std::optional<std::string> claudeMode;  // permissions.defaultMode
    std::optional<bool> claudeSkip;         // skipDangerousModePermissionPrompt
    bool claudeTouched = false;
    std::optional<std::string> codexApproval;  // the whole top-level line approval_policy
    std::optional<std::string> codexSandbox;   // the same of sandbox_mode
    bool codexTouched = false;
    std::optional<std::string> codexPath;  // the config that was changed: CODEX_HOME may be another one later

    friend bool operator==(const Journal&, const Journal&) = default;
  };

 private:
  std::optional<Journal> load() const;
  bool save(const Journal& journal) const;
  std::string claudePath() const;
  std::string shown(const std::string& path) const;
  std::unique_ptr<Files::Lock> turn() const;
  std::string noTurn() const;
  std::optional<std::string> makeFolderOf(const std::string& path) const;
  std::optional<std::string> write(const ForeignFile& file, const std::string& path, const std::string& text) const;

  const Machine& machine_;
  const StateFiles& state_;
};

}  // namespace tovi
