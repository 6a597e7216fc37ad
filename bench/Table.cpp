#include "Table.h"

#include <fmt/format.h>
#include <sys/utsname.h>

#include <algorithm>
#include <fstream>
#include <thread>

namespace tovi::bench {

void Table::add(const std::string& what, double figure, const std::string& unit, double goal, int decimals,
                bool atLeast) {
  const auto shown = [&](double value) {
    return fmt::format("{:.{}f}{}{}", value, decimals, unit.empty() ? "" : " ", unit);
  };
  const bool met = atLeast ? figure >= goal : figure <= goal;
  rows_.push_back({what, shown(figure), (atLeast ? "at least " : "at most ") + shown(goal), met ? "ok" : "MISSED"});
}

void Table::addMissing(const std::string& what, const std::string& why) { rows_.push_back({what, "-", why, "MISSED"}); }

void Table::addIncomparable(const std::string& what, const std::string& why) { rows_.push_back({what, "-", why, "-"}); }

std::string Table::text() const {
  Row widths{"what", "figure", "goal", ""};
  std::size_t what = widths.what.size(), figure = widths.figure.size(), goal = widths.goal.size();
  for (const Row& row : rows_) {
    what = std::max(what, row.what.size());
    figure = std::max(figure, row.figure.size());
    goal = std::max(goal, row.goal.size());
  }
  std::string text = thisMachine() + "\n\n";
  const auto line = [&](const Row& row) {
    text += fmt::format("| {:<{}} | {:>{}} | {:<{}} | {:<6} |\n", row.what, what, row.figure, figure, row.goal, goal,
                        row.verdict);
  };
  line({"what", "figure", "goal", ""});
  text += fmt::format("|{:-<{}}|{:-<{}}:|{:-<{}}|{:-<8}|\n", "", what + 2, "", figure + 1, "", goal + 2, "");
  for (const Row& row : rows_) line(row);
  return text;
}

bool Table::allMet() const {
  return std::none_of(rows_.begin(), rows_.end(), [](const Row& row) { return row.verdict == "MISSED"; });
}

std::string thisMachine() {
  std::string model = "unknown processor";
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);) {
    if (!line.starts_with("model name")) continue;
    model = line.substr(line.find(':') + 2);
    break;
  }
  utsname system{};
  ::uname(&system);
  const auto cores = std::thread::hardware_concurrency();
  return fmt::format("{}, {} core{}, {} {} {}", model, cores, cores == 1 ? "" : "s", system.sysname, system.release,
                     system.machine);
}

}  // namespace tovi::bench
