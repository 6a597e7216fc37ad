#include "commands/CLI.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <nlohmann/json.hpp>

#include "commands/CLIContext.h"
#include "commands/CLITexts.h"
#include "commands/Output.h"

namespace tovi {

namespace {

using CLI::Context;
using CLI::Words;
using Json = nlohmann::json;

constexpr int kUsageError = 2;
constexpr Seconds kMeasureTimeout{20};
constexpr char kBadDuration[] = "tovi: --for needs a duration like 90m, 2h or 1h30m";

bool has(const Words& words, std::string_view word) { return std::ranges::find(words, word) != words.end(); }

// Sends a command and prints the reply.
int ask(Context& context, const std::string& command, const Json& args = Json::object(), bool raw = false,
        Seconds timeout = CLI::kUsualTimeout) {
  return CLI::show(context.client.send(command, args, timeout), raw, context.output);
}

// Adds what --for says as "minutes"; false: it says nothing that could be understood. A --for that was cut short
// must not turn into "without end".
bool addMinutes(Json& args, const Words& words) {
  if (!has(words, "--for")) return true;
  const auto text = CLI::flag("--for", words);
  const auto minutes = text ? CLI::parseDuration(*text) : std::nullopt;
  if (minutes) args["minutes"] = *minutes;
  return minutes.has_value();
}

int badDuration(Context& context) {
  context.output.line(kBadDuration);
  return kUsageError;
}

// Adds the word at `at`, if there is one.
void addWord(Json& args, const char* key, const Words& words, std::size_t at) {
  if (at < words.size()) args[key] = words[at];
}

int askRaw(Context& context, const Words& words) {
  return ask(context, words[0], Json::object(), has(words, "--json"));
}

int measure(Context& context, const Words&) { return ask(context, "measure", Json::object(), false, kMeasureTimeout); }

int anyway(Context& context, const Words& words) {
  if (words.size() == 2 && words[1] == "off") return ask(context, "override_floor", {{"on", false}});
  context.output.line(
      "tovi: going below the battery limit can only be allowed in Tovi itself (it's the person's call)");
  return kUsageError;
}

int modeWord(Context& context, const Words& words) { return ask(context, "mode", {{"mode", words[0]}}); }

int always(Context& context, const Words& words) {
  Json args{{"mode", "on"}};
  return addMinutes(args, words) ? ask(context, "mode", args) : badDuration(context);
}

int sleepNow(Context& context, const Words&) { return ask(context, "sleep_now"); }

int hold(Context& context, const Words& words) {
  Json args{{"reason", CLI::flag("--reason", words).value_or("Kept awake from the terminal")}};
  if (!addMinutes(args, words)) return badDuration(context);
  // Also a --pid without a number goes on: a hold bound to nothing isn't what was asked for, and it will be refused.
  if (has(words, "--pid")) args["pid"] = CLI::flag("--pid", words).value_or("");
  return ask(context, "hold", args);
}

int release(Context& context, const Words& words) {
  Json args = Json::object();
  addWord(args, "id", words, 1);
  return ask(context, "release", args);
}

int wakeAt(Context& context, const Words& words) {
  Json args{{"time", words[1]}};
  return addMinutes(args, words) ? ask(context, "wake_at", args) : badDuration(context);
}

int checkIn(Context& context, const Words& words) {
  return ask(context, "set", {{"key", "check_in_minutes"}, {"value", words[1]}});
}

int preset(Context& context, const Words& words) { return ask(context, "preset", {{"preset", words[1]}}); }

int rule(Context& context, const Words& words) { return ask(context, "rule", {{"app", words[1]}, {"rule", words[2]}}); }

int watch(Context& context, const Words& words) { return ask(context, "watch", {{"app", words[1]}}); }

int unwatch(Context& context, const Words& words) {
  return ask(context, "watch", {{"app", words[1]}, {"remove", true}});
}

int set(Context& context, const Words& words) { return ask(context, "set", {{"key", words[1]}, {"value", words[2]}}); }

int config(Context& context, const Words&) { return ask(context, "config"); }

int open(Context& context, const Words& words) {
  Json args{{"where", "panel"}};
  addWord(args, "where", words, 1);
  return ask(context, "open", args);
}

int snapshot(Context& context, const Words& words) {
  Json args = Json::object();
  addWord(args, "path", words, 1);
  addWord(args, "where", words, 2);
  return ask(context, "snapshot", args);
}

int island(Context& context, const Words& words) {
  Json args = Json::object();
  addWord(args, "title", words, 1);
  addWord(args, "subtitle", words, 2);
  return ask(context, "island", args);
}

struct Row {
  std::array<std::string_view, 2> names;
  CLI::Word* run;
  std::size_t needed = 0;                        // words after it
  std::size_t most = 0;                          // likewise, options not counted
  std::array<std::string_view, 3> options = {};  // that take a word
  const char* usage = nullptr;                   // printed if there are fewer
  bool raw = false;                              // "--json" prints the reply as it is
};

constexpr std::size_t kAny = 1000;
constexpr std::string_view kFor = "--for", kReason = "--reason", kPid = "--pid";

constexpr Row kRows[] = {
    {.names = {"status"}, .run = askRaw, .raw = true},
    {.names = {"energy"}, .run = askRaw, .raw = true},
    {{"measure"}, measure},
    {{"anyway"}, anyway, 0, kAny},
    {{"off", "auto"}, modeWord},
    {{"on", "always"}, always, 0, 0, {kFor}},
    {{"sleep", "sleep_now"}, sleepNow},
    {{"watchdog"}, CLI::watchdog},
    {{"doctor"}, CLI::doctor},
    {{"rescue"}, CLI::rescue},
    {{"hold"}, hold, 0, 0, {kFor, kReason, kPid}},
    {{"release"}, release, 0, 1},
    {{"run"}, CLI::run, 0, kAny},
    {{"mcp"}, CLI::mcp},
    {{"connect"}, CLI::connect, 0, 1},
    {{"wake-at", "wake_at"}, wakeAt, 1, 1, {kFor}, "tovi wake-at HH:MM [--for 30m] | off"},
    {{"check-in", "check_in"}, checkIn, 1, 1, {}, "tovi check-in 0|15|30|60"},
    {{"preset"}, preset, 1, 1, {}, "tovi preset max_battery|balanced|full_speed"},
    {{"rule"}, rule, 2, 2, {}, "tovi rule <app> leave|slow|pause"},
    {{"watch"}, watch, 1, 1, {}, "tovi watch <app>"},
    {{"unwatch"}, unwatch, 1, 1, {}, "tovi unwatch <app>"},
    {{"set"}, set, 2, 2, {}, "tovi set <key> <value>"},
    {{"config"}, config},
    {.names = {"settings", "schema"}, .run = CLI::settings, .raw = true},
    {.names = {"power"}, .run = CLI::power, .most = kAny, .raw = true},
    {{"open"}, open, 0, 1},
    {{"snapshot"}, snapshot, 0, 2},
    {{"island"}, island, 0, 2},
    {{"setup"}, CLI::setup},
    {{"uninstall"}, CLI::uninstall},
};

// The words as the row reads them: its own first, then options and their values; "--for=2h" as "--for 2h".
struct Sorted {
  Words plain;
  Words options;
  std::optional<std::string> leftOver;  // the first that the row has no use for
};

// To pass over a word that doesn't belong would turn "hold 90m" into a hold without end.
Sorted sorted(const Words& words, const Row& row) {
  Sorted result;
  if (row.most == kAny) {
    result.plain = words;
    return result;
  }
  const auto takesWord = [&](std::string_view name) {
    return !name.empty() && std::ranges::find(row.options, name) != row.options.end();
  };
  for (std::size_t at = 0; at < words.size(); ++at) {
    const std::string& word = words[at];
    const auto equals = word.find('=');
    if (takesWord(word)) {
      result.options.push_back(word);
      if (at + 1 < words.size()) result.options.push_back(words[++at]);
    } else if (equals != std::string::npos && takesWord(std::string_view{word}.substr(0, equals))) {
      result.options.push_back(word.substr(0, equals));
      result.options.push_back(word.substr(equals + 1));
    } else if (row.raw && word == "--json") {
      result.options.push_back(word);
    } else {
      const bool belongs = !word.starts_with("--") && result.plain.size() <= row.most;
      if (!belongs && !result.leftOver) result.leftOver = word;
      result.plain.push_back(word);
    }
  }
  return result;
}

struct TextRow {
  std::string_view word;
  const char* text;
};

// Words that only print; they need no machine.
constexpr TextRow kTexts[] = {
    {"help", CLITexts::kUsage},
    {"-h", CLITexts::kUsage},
    {"--help", CLITexts::kUsage},
    {"prompt", CLITexts::kPrompt},
};

int unknown(Output& output, std::string_view word) {
  output.line(fmt::format("Unknown command '{}'.\n", word));
  output.print(CLITexts::kUsage);
  return kUsageError;
}

}  // namespace

int CLI::main(const Words& words, const Ground& ground) {
  const std::string_view word = words.empty() ? std::string_view{"help"} : words.front();
  if (const auto text = std::ranges::find(kTexts, word, &TextRow::word); text != std::end(kTexts)) {
    ground.output.print(text->text);
    return 0;
  }
  const auto row =
      std::ranges::find_if(kRows, [&](const Row& r) { return std::ranges::find(r.names, word) != r.names.end(); });
  if (row == std::end(kRows) || word.empty()) return unknown(ground.output, word);
  Sorted read = sorted(words, *row);
  // Only right after the word: further on it may be a value.
  if (row->most != kAny && read.plain.size() > 1 && (read.plain[1] == "-h" || read.plain[1] == "--help")) {
    ground.output.print(CLITexts::kUsage);
    return 0;
  }
  if (read.plain.size() <= row->needed) {
    ground.output.line(row->usage);
    return kUsageError;
  }
  if (read.leftOver) {
    ground.output.line(fmt::format("tovi: '{}' doesn't go with {} (tovi help shows what does)", *read.leftOver, word));
    return kUsageError;
  }
  read.plain.insert(read.plain.end(), read.options.begin(), read.options.end());
  Context context(ground);
  return row->run(context, read.plain);
}

std::vector<CLI::Vocable> CLI::vocabulary() {
  std::vector<Vocable> words;
  for (const Row& row : kRows) {
    Vocable word;
    std::ranges::copy_if(row.names, std::back_inserter(word.names), [](auto name) { return !name.empty(); });
    std::ranges::copy_if(row.options, std::back_inserter(word.options), [](auto name) { return !name.empty(); });
    if (row.raw) word.options.push_back("--json");
    words.push_back(std::move(word));
  }
  for (const TextRow& row : kTexts) words.push_back({{row.word}, {}});
  return words;
}

}  // namespace tovi
