// Whether JSON is nested beyond all reason. Copying and printing a value take as much stack as it is deep, so that
// without a limit a text of nothing but brackets would end the program.
#pragma once

#include <string_view>

namespace tovi {

// More than 512 lists in lists. The text needn't be JSON.
bool isTooDeep(std::string_view json);

}  // namespace tovi
