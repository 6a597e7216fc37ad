// The files that are installed beside the program: what shells offer while somebody types, and the manual page. They
// are made from the program's own tables when it is built, so that none can name what doesn't exist.
#pragma once

#include <string>

namespace tovi::Pages {

std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();
std::string manual();  // tovi(1), in the man macros

}  // namespace tovi::Pages
