#include "Tools.h"

#include <fmt/format.h>

#include <array>
#include <cstdio>
#include <memory>

#include "Figures.h"

namespace tovi::bench {

namespace {

// The first line that a shell's command prints.
std::string firstLine(const char* command) {
  std::array<char, 200> room{};
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command, "r"), ::pclose);
  if (!pipe || !std::fgets(room.data(), room.size(), pipe.get())) return {};
  std::string line = room.data();
  while (!line.empty() && line.back() == '\n') line.pop_back();
  return line;
}

}  // namespace

void timeTool(Table& table, const Stage& stage) {
  const auto median = [&](int times, const std::string& word) {
    return medianOf(times, [&] { return run({Stage::tool(), word}, stage.environment()).wallSeconds; }) * 1e3;
  };
  table.add("tovi help, from start to exit", median(200, "help"), "ms", 5, 2);
  table.add("tovi config, from start to exit", median(100, "config"), "ms", 50, 2);
}

void timeRun(Table& table, const Stage& stage) {
  constexpr int kTimes = 50;
  const std::string what = "tovi run -- true, from start to exit";
  std::vector<double> ours, theirs;
  bool weRan = true, theyRan = true;
  // By turns, so that both meet the same computer.
  for (int i = 0; i < kTimes; ++i) {
    const Run our = run({Stage::tool(), "run", "--", "true"}, stage.environment());
    weRan = weRan && our.status == 0;
    ours.push_back(our.wallSeconds);
    if (!theyRan) continue;
    const Run their = run({"systemd-inhibit", "true"}, {"PATH=/usr/bin:/bin"});
    theyRan = their.status == 0;
    theirs.push_back(their.wallSeconds);
  }
  if (!weRan) return table.addMissing(what, "it failed");
  table.add(what, median(ours) * 1e3, "ms", 100, 2);
  const std::string ratio = "tovi run -- true / systemd-inhibit true";
  if (theyRan) {
    say(fmt::format("  systemd-inhibit true: {:.2f} ms", median(theirs) * 1e3));
    table.add(ratio, median(ours) / median(theirs), "", 10, 2);
  } else {
    table.addIncomparable(ratio, firstLine("systemd-inhibit true 2>&1"));
  }
}

void timeMcp(Table& table, const Stage& stage) {
  const auto environment = stage.environment();
  const std::vector<std::string> words = {Stage::tool(), "mcp"};
  const std::string hello =
      R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18","capabilities":{}}})";
  const std::string call =
      R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"tovi_get_config","arguments":{}}})";
  bool answered = true;
  const double first = medianOf(50, [&] {
    const auto begin = Clock::now();
    Conversation server(words, environment);
    answered = answered && server.ask(hello).find("serverInfo") != std::string::npos;
    return secondsSince(begin);
  });
  Conversation server(words, environment);
  server.ask(hello);
  const double called = medianOf(100, [&] {
    const auto begin = Clock::now();
    answered = answered && server.ask(call).find("config") != std::string::npos;
    return secondsSince(begin);
  });
  if (!answered) return table.addMissing("tovi mcp", "it didn't answer");
  table.add("tovi mcp, from start to the first answer", first * 1e3, "ms", 20, 2);
  table.add("tovi mcp, one call of tovi_get_config", called * 1e3, "ms", 60, 2);
  table.add("tovi mcp, anonymous memory", static_cast<double>(statusOf(server.pid(), "RssAnon")) / 1024, "MiB", 2, 2);
}

}  // namespace tovi::bench
