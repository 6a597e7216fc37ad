// `tovi run`: keeps the machine awake exactly as long as a command runs. The command matters more than the hold, so
// nothing that goes wrong with the hold keeps it from running.

#include <csignal>
#include <nlohmann/json.hpp>

#include "commands/CLIContext.h"
#include "core/Json.h"
#include "core/Text.h"
#include "platform/Commands.h"
#include "platform/Processes.h"

namespace tovi {

namespace {

constexpr int kCannotStart = 127;

struct Order {
  bool understood = true;
  std::optional<std::string> reason;
  CLI::Words command;
};

// Our own options end at "--" or at the first word that isn't one; what follows belongs to the command.
Order parse(const CLI::Words& words) {
  Order order;
  std::size_t at = 1;
  while (at < words.size() && words[at].starts_with('-')) {
    const std::string& word = words[at++];
    if (word == "--") break;
    if (word == "--reason" && at < words.size()) {
      order.reason = words[at++];
    } else if (word.starts_with("--reason=")) {
      order.reason = word.substr(word.find('=') + 1);
    } else {
      order.understood = false;
    }
  }
  order.command.assign(words.begin() + static_cast<std::ptrdiff_t>(at), words.end());
  return order;
}

// An interrupt from the keyboard goes to the command too, and it decides what becomes of it.
class IgnoredInterrupts {
 public:
  IgnoredInterrupts() : interrupt_(std::signal(SIGINT, SIG_IGN)), quit_(std::signal(SIGQUIT, SIG_IGN)) {}
  IgnoredInterrupts(const IgnoredInterrupts&) = delete;
  IgnoredInterrupts& operator=(const IgnoredInterrupts&) = delete;
  ~IgnoredInterrupts() {
    std::signal(SIGINT, interrupt_);
    std::signal(SIGQUIT, quit_);
  }

 private:
  void (*interrupt_)(int);
  void (*quit_)(int);
};

nlohmann::json hold(const CLI::Context& context, const std::string& reason, Pid pid) {
  return context.client.send("hold", {{"reason", reason}, {"pid", pid}}, CLI::kUsualTimeout);
}

bool succeeded(const nlohmann::json& reply) { return json::boolAt(reply, "ok") == true; }

// Lets go of the hold that a reply tells of, if it tells of one. Without an id it would end every hold there is.
void release(const CLI::Context& context, const nlohmann::json& reply) {
  const auto* made = json::member(reply, "hold");
  const auto id = made != nullptr ? json::textAt(*made, "id") : std::nullopt;
  if (id) context.client.attempt("release", {{"id", *id}}, CLI::kUsualTimeout);
}

}  // namespace

int CLI::run(Context& context, const Words& words) {
  const auto [understood, given, command] = parse(words);
  if (!understood || command.empty()) {
    context.output.line("tovi run [--reason text] -- <command> [args…]");
    return 2;
  }
  const std::string reason = given.value_or("Running " + std::string{text::lastPathComponent(command.front())});
  nlohmann::json held = hold(context, reason, context.machine.processes.self());
  if (!succeeded(held)) {
    context.output.printError("tovi: " + json::textAt(held, "error").value_or("failed") + " (running anyway)\n");
  }
  const IgnoredInterrupts ignored;  // before there is a command that one could end without us
  const auto child = context.machine.commands.start("/usr/bin/env", command);
  if (!child) {
    release(context, held);
    context.output.errorLine("tovi: couldn't start " + command.front());
    return kCannotStart;
  }
  if (succeeded(held)) {
    // The hold moves on to the command, so that it ends with the command even if this process is killed before.
    nlohmann::json moved = hold(context, reason, *child);
    if (succeeded(moved)) {
      release(context, held);
      held = std::move(moved);
    }
  }
  const int status = context.machine.commands.wait(*child);
  release(context, held);
  return status;
}

}  // namespace tovi
