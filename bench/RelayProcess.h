// A relay on loopback in a process of its own, so that what it notes down and how often it wakes is nobody else's. To
// its clients it is as the public one; it keeps no messages.
#pragma once

#include <string>

#include "Children.h"

namespace tovi::bench {

class RelayProcess {
 public:
  RelayProcess();

  const std::string& url() const { return url_; }  // empty if it didn't start

  // Counts; -1 if it doesn't answer.
  int streams() { return number("streams"); }  // open now
  int opened() { return number("opened"); }    // streams so far
  int replies() { return number("replies"); }  // messages taken so far

  bool send(const std::string& line) { return relay_.ask("send " + line) == "ok"; }  // to all streams
  bool endStreams() { return relay_.ask("end") == "ok"; }

 private:
  int number(const std::string& question);

  Conversation relay_;
  std::string url_;
};

constexpr const char* kRelayOption = "--relay";

// What the process does: answers on its standard streams until its input ends. The exit status.
int serveRelay();

// For a phone that never was: 32 bytes, 0, 7, 14 and so on.
constexpr const char* kPhoneKey = "AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK-2vcTL0tk";

// The text of remote.json for a laptop that was paired with it.
std::string pairing(const std::string& relay);

}  // namespace tovi::bench
