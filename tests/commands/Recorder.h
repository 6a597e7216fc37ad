// Output of the command line tool, kept.
#pragma once

#include <functional>
#include <string>

#include "commands/CLI.h"
#include "commands/Output.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {

struct Recorder final : Output {
  std::string out, err;
  bool terminal = false, inks = false;

  void print(std::string_view text) override { out += text; }
  void printError(std::string_view text) override { err += text; }
  bool isTerminal() const override { return terminal; }
  bool hasInks() const override { return inks; }

  // What the tool says on that laptop, whose time passes while it waits.
  int run(MemoryLaptop& laptop, const CLI::Words& words, const std::function<void()>& meanwhile = {}) {
    out.clear();
    err.clear();
    const auto sleep = [&](Seconds span) {
      laptop.advance(span);
      if (meanwhile) meanwhile();
    };
    return CLI::main(
        words, {.machine = [&]() -> const Machine& { return laptop.machine(); }, .sleep = sleep, .output = *this});
  }
};

}  // namespace tovi
