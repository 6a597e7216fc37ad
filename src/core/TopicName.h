// Names of push topics, as people choose them and as they stand in the address of a message.
#pragma once

#include <string_view>

namespace tovi {

// 1 to 64 characters, each a letter or a number of any script, "-" or "_".
bool isTopicName(std::string_view text);

}  // namespace tovi
