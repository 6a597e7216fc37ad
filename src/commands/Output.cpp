#include "commands/Output.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace tovi {

namespace {

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : std::string_view{};
}

// With every control character but line ends and tabs made visible as "?"; also those of U+0080 to U+009F.
std::string harmless(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const auto next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
    if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {
      result += '?';
      ++at;
    } else {
      const bool control = (byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F;
      result += control ? '?' : text[at];
    }
  }
  return result;
}

}  // namespace

std::string Output::shown(std::string_view text, Ink ink) const {
  if (!isTerminal()) return std::string{text};
  const std::string clean = harmless(text);
  if (ink == Ink::plain || !hasInks() || clean.empty()) return clean;
  return (ink == Ink::strong ? "\033[1m" : "\033[2m") + clean + "\033[0m";
}

void Output::errorLine(std::string_view text) { printError(harmless(text) + "\n"); }

void StandardOutput::print(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void StandardOutput::printError(std::string_view text) {
  std::fflush(stdout);  // so that the two keep their order where they meet
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void StandardOutput::flush() { std::fflush(stdout); }

bool StandardOutput::complete() { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }

bool StandardOutput::isTerminal() const { return ::isatty(STDOUT_FILENO) != 0; }

bool StandardOutput::hasInks() const {
  const std::string_view terminal = variable("TERM");
  return isTerminal() && variable("NO_COLOR").empty() && !terminal.empty() && terminal != "dumb";
}

}  // namespace tovi
