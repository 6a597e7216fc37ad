// The quick menu of the status item and the Dock, as data: whoever draws it shows the titles and calls the actions.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tovi {

class Engine;

struct MenuItem {
  std::string title;             // empty: a line between groups
  std::function<void()> action;  // empty: it only tells something
  bool checked = false;
  bool enabled = true;
};

using Menu = std::vector<MenuItem>;

namespace QuickMenu {
// What the menu says now; it is built afresh each time it opens. `engine` must outlive it.
Menu build(Engine& engine, std::function<void()> openPanel, std::function<void()> openSettings);
}  // namespace QuickMenu

}  // namespace tovi
