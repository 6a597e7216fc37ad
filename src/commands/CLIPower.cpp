// `tovi power` and `tovi power test`: the machine's watts for a person to read, and the wait for a measurement.

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/CLIContext.h"
#include "commands/CLITexts.h"
#include "commands/Wire.h"
#include "core/Json.h"
#include "platform/Clock.h"

namespace tovi {

namespace {

using json::Value;

constexpr double kPoll = 5;             // seconds
constexpr double kShortPatience = 420;  // until a test that doesn't end is left alone
constexpr double kDetailedPatience = 1500;
constexpr int kMostSilent = 3;  // polls in a row that nobody answers

std::string textAt(const Value& object, std::string_view key) { return json::textAt(object, key).value_or(""); }

std::string wattsOr(const Value& object, std::string_view key, const char* otherwise) {
  const auto watts = json::numberAt(object, key);
  return watts ? fmt::format("{:.1f} W", *watts) : otherwise;
}

std::string typed(const Value& value) {
  if (const auto flag = json::asBool(value)) return *flag ? "on" : "off";
  return json::asText(value).value_or("");
}

void printSuspect(const Value& suspect, Output& output) {
  const bool active = json::boolAt(suspect, "active").value_or(false);
  std::string title = (active ? "● " : "○ ") + textAt(suspect, "title");
  if (const auto saving = json::numberAt(suspect, "measured_saving_watts")) {
    title += fmt::format(fmt::runtime(active ? "  (measured: saves {:.1f} W)" : "  ·  saves {:.1f} W"), *saving);
  }
  output.line(output.shown(title, active ? Output::Ink::strong : Output::Ink::plain));
  const auto detail = [&](const std::string& text) {
    if (!text.empty()) output.line(output.shown("    " + text));
  };
  if (active) {
    detail(textAt(suspect, "why"));
    const Value* value = json::member(suspect, "value");
    const Value* suggested = json::member(suspect, "suggested_value");
    if (suggested != nullptr && (value == nullptr || *value != *suggested)) {
      detail(fmt::format("would help: tovi set {} {}", textAt(suspect, "setting"), typed(*suggested)));
    }
    if (const std::string rule = textAt(suspect, "per_app"); !rule.empty()) detail("for one app: " + rule);
    detail(textAt(suspect, "tradeoff"));
  }
  detail(textAt(suspect, "note"));
}

std::string stateOf(const Value& report) {
  const Value* test = json::member(report, "power_test");
  return test != nullptr ? textAt(*test, "state") : "";
}

std::size_t columnsOf(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

// The step under way: one line that moves where a person looks on, else a line for each new step.
class Progress {
 public:
  Progress(Output& output, double aboutSeconds) : output_(output), about_(aboutSeconds) {}

  void show(const std::string& step, double elapsed) {
    if (step.empty()) return;
    if (!output_.isTerminal()) {
      if (step != step_) output_.line(step);
      step_ = step;
    } else {
      step_ = step;
      const int left = static_cast<int>(about_ - elapsed);
      draw(fmt::format("{} · {}", step, left > 0 ? fmt::format("{}:{:02} left", left / 60, left % 60) : "almost done"));
    }
    output_.flush();
  }

  // The same step, later.
  void move(double elapsed) {
    if (output_.isTerminal()) show(step_, elapsed);
  }

  void clear() {
    if (drawn_ > 0) draw("");
    if (drawn_ > 0) output_.print("\r");
    drawn_ = 0;
  }

 private:
  // Blanks wipe what a longer line left behind.
  void draw(const std::string& text) {
    const std::string line = output_.shown(text);
    const std::size_t width = columnsOf(line);
    output_.print("\r" + line + std::string(drawn_ > width ? drawn_ - width : 0, ' '));
    drawn_ = std::max(drawn_, width);
  }

  Output& output_;
  const double about_;
  std::string step_ = "Measuring";  // until the first is known
  std::size_t drawn_ = 0;           // columns
};

int powerTest(CLI::Context& context, bool detailed, bool screen, bool raw) {
  Output& output = context.output;
  const Value started =
      context.client.send("power_test", {{"screen", screen}, {"detailed", detailed}}, CLI::kUsualTimeout);
  if (json::boolAt(started, "ok") == false) return CLI::show(started, raw, output);
  const auto about = json::integerAt(started, "about_seconds").value_or(0);
  Progress progress(output, static_cast<double>(about));
  if (!raw) {
    output.line(fmt::format("Measuring for about {} min, keep the lid shut (agents keep running)…", about / 60));
    output.flush();
  }
  Clock& clock = context.machine.clock;
  const Seconds begin = clock.sinceBoot();
  const auto elapsed = [&] { return (clock.sinceBoot() - begin).count(); };
  for (int silent = 0; elapsed() < (detailed ? kDetailedPatience : kShortPatience);) {
    for (double next = elapsed() + kPoll; elapsed() < next;) {
      context.sleep(Seconds{std::min(1.0, next - elapsed())});
      if (!raw) progress.move(elapsed());
    }
    const Value report = context.client.send("power", Value::object(), CLI::kUsualTimeout);
    if (json::boolAt(report, "ok") == false) {
      if (++silent < kMostSilent) continue;
      progress.clear();
      return CLI::show(report, raw, output);
    }
    silent = 0;
    const std::string state = stateOf(report);
    if (state == "done" || state.starts_with("aborted") || state == "not run yet") {
      progress.clear();
      if (state == "done") return CLI::showPower(report, raw, output);
      output.errorLine("tovi: power test " + state);
      return 1;
    }
    if (!raw) progress.show(state, elapsed());
  }
  progress.clear();
  constexpr char kLate[] = "tovi: the test didn't finish in time; run tovi power later for results";
  raw ? output.errorLine(kLate) : output.line(kLate);
  return 1;
}

}  // namespace

int CLI::showPower(const nlohmann::json& reply, bool raw, Output& output) {
  if (raw || json::boolAt(reply, "ok") == false) return show(reply, raw, output);
  const char* lid = json::boolAt(reply, "lid_closed").value_or(false) ? "closed" : "open";
  output.line(
      fmt::format("Using {} now ({}). Lid {}", wattsOr(reply, "system_watts", "? W"), textAt(reply, "source"), lid));
  output.line(fmt::format("Learned: lid open {}, lid closed {}", wattsOr(reply, "learned_open_watts", "not known yet"),
                          wattsOr(reply, "learned_closed_watts", "not known yet")));
  if (const Value* suspects = json::member(reply, "suspects"); suspects != nullptr && suspects->is_array()) {
    for (const Value& suspect : *suspects) printSuspect(suspect, output);
  }
  const Value* test = json::member(reply, "power_test");
  if (test == nullptr) return 0;
  if (const auto total = json::numberAt(*test, "measured_total_saving_watts")) {
    output.line(fmt::format("Measured: Tovi's savings are worth {:.1f} W with the lid shut", *total));
  } else if (const auto unclear = json::textAt(*test, "measured_total_saving_watts")) {
    output.line("Measured: " + *unclear);
  }
  output.line("Power test: " + textAt(*test, "state"));
  return 0;
}

int CLI::power(Context& context, const Words& words) {
  bool test = false, detailed = false, screen = false, raw = false;
  for (std::size_t at = 1; at < words.size(); ++at) {
    const std::string& word = words[at];
    if (word == "-h" || word == "--help") {
      context.output.print(CLITexts::kUsage);
      return 0;
    }
    bool* option = word == "--json"               ? &raw
                   : at == 1 && word == "test"    ? &test
                   : test && word == "--detailed" ? &detailed
                   : test && word == "--screen"   ? &screen
                                                  : nullptr;
    if (option == nullptr) {
      context.output.line(
          fmt::format("tovi: '{}' doesn't go with power{} (tovi help shows what does)", word, test ? " test" : ""));
      return 2;
    }
    *option = true;
  }
  if (test) return powerTest(context, detailed, screen, raw);
  return showPower(context.client.send("power", nlohmann::json::object(), kUsualTimeout), raw, context.output);
}

}  // namespace tovi
