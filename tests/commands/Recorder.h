// Output of the command line tool, kept.
#pragma once

#include <string>

#include "commands/Output.h"

namespace tovi {

struct Recorder final : Output {
  std::string out, err;
  bool terminal = false, inks = false;

  void print(std::string_view text) override { out += text; }
  void printError(std::string_view text) override { err += text; }
  bool isTerminal() const override { return terminal; }
  bool hasInks() const override { return inks; }
};

}  // namespace tovi
