// What a voice assistant or an automation of the system can ask of the running application: three requests, each
// answered with a sentence. Where a system has no such thing nobody calls them.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tovi {

class Engine;

namespace Intents {

struct Result {
  std::string dialog;                     // to be shown or spoken
  std::optional<std::string> value = {};  // for the next step of an automation

  friend bool operator==(const Result&, const Result&) = default;
};

// Minutes that can be asked for; others count as the nearest of these.
constexpr int kFewestMinutes = 1;
constexpr int kMostMinutes = 1440;

// `engine` is null while no application is up.
Result keepAwake(Engine* engine, int minutes);
Result letSleep(Engine* engine);
Result status(const Engine* engine);

// How each is offered.
struct Shortcut {
  std::string_view title;
  std::string_view phrase;  // with {} for the application's name
  std::string_view shortTitle;
  std::string_view systemImage;
  std::string_view parameter = {};  // title of its number; empty: it has none
};

std::span<const Shortcut> shortcuts();

}  // namespace Intents
}  // namespace tovi
