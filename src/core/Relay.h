// The public services between the laptop and the person's phone, unless the person names others.
#pragma once

#include <string_view>

namespace tovi {

// Chosen when the program is built (TOVI_RELAY, TOVI_PAGE); neither ends in a slash that isn't part of its path.
std::string_view defaultRelay();  // base address of the relay that carries messages and alerts
std::string_view defaultPage();   // address of the phone's page

// Whether messages may travel over it: "https:" anywhere; "http:", which anybody on the way can read and change, only
// to this computer or within the person's own network.
bool isAcceptableRelay(std::string_view server);

}  // namespace tovi
