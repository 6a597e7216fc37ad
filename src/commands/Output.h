// Where the command line tool writes.
#pragma once

#include <string>
#include <string_view>

namespace tovi {

class Output {
 public:
  enum class Ink { plain, strong, faint };

  virtual ~Output() = default;

  virtual void print(std::string_view text) = 0;
  virtual void printError(std::string_view text) = 0;

  virtual void flush() {}  // so that what was printed is seen before anything else happens

  // A person reads the output as it comes, so columns may be lined up; a program wants the bare texts.
  virtual bool isTerminal() const = 0;

  // Whether a part may stand out from the rest; never where a program reads.
  virtual bool hasInks() const { return false; }

  // `text` as a person should see it: what others wrote into it, such as a hold's reason, must not drive the terminal.
  // For a program it is `text` itself.
  std::string shown(std::string_view text, Ink ink = Ink::plain) const;

  void line(std::string_view text) {
    print(text);
    print("\n");
  }
  void errorLine(std::string_view text);  // always as a person should see it
};

class StandardOutput final : public Output {
 public:
  void print(std::string_view text) override;
  void printError(std::string_view text) override;
  void flush() override;
  bool isTerminal() const override;
  bool hasInks() const override;  // on a terminal that can, unless NO_COLOR is set

  bool complete();  // all of it has gone out
};

}  // namespace tovi
