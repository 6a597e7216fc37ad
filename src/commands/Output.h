// Where the command line tool writes.
#pragma once

#include <string_view>

namespace tovi {

class Output {
 public:
  virtual ~Output() = default;

  virtual void print(std::string_view text) = 0;
  virtual void printError(std::string_view text) = 0;

  // A person reads the output as it comes, so columns may be lined up; a program wants the bare texts.
  virtual bool isTerminal() const = 0;

  void line(std::string_view text) {
    print(text);
    print("\n");
  }
  void errorLine(std::string_view text) {
    printError(text);
    printError("\n");
  }
};

class StandardOutput final : public Output {
 public:
  void print(std::string_view text) override;
  void printError(std::string_view text) override;
  bool isTerminal() const override;
};

}  // namespace tovi
