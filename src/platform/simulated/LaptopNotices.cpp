#include "platform/simulated/LaptopNotices.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "platform/simulated/LaptopStore.h"

namespace tovi {

namespace {

constexpr std::string_view kSounds[] = {"Basso", "Blow", "Bottle", "Frog", "Funk",   "Glass",     "Hero",
                                        "Morse", "Ping", "Pop",    "Purr", "Sosumi", "Submarine", "Tink"};

}  // namespace

void LaptopNotices::notify(const std::string& title, const std::string& body) {
  store_.logNotice({LaptopNotice::Kind::notification, title, body, {}});
}

bool LaptopNotices::play(const std::string& sound) {
  if (std::find(std::begin(kSounds), std::end(kSounds), sound) == std::end(kSounds)) return false;
  store_.logNotice({LaptopNotice::Kind::sound, {}, {}, sound});
  return true;
}

}  // namespace tovi
