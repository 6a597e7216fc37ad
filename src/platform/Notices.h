// What the person sees and hears outside the program's windows.
#pragma once

#include <string>

namespace tovi {

class Notices {
 public:
  virtual ~Notices() = default;

  // A local notification without a sound. Best effort.
  virtual void notify(const std::string& title, const std::string& body) = 0;

  // Plays a system sound by its name; false if there is none by that name.
  virtual bool play(const std::string& sound) = 0;
};

}  // namespace tovi
