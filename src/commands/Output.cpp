#include "commands/Output.h"

#include <unistd.h>

#include <cstdio>

namespace tovi {

void StandardOutput::print(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void StandardOutput::printError(std::string_view text) {
  std::fflush(stdout);  // so that the two keep their order where they meet
  std::fwrite(text.data(), 1, text.size(), stderr);
}

bool StandardOutput::isTerminal() const { return ::isatty(STDOUT_FILENO) != 0; }

}  // namespace tovi
