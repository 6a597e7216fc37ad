// What the application tells of itself when it is asked how things stand.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>

namespace tovi {

class Engine;

nlohmann::json statusRecord(const Engine& engine);

// The applications that use most power, at most `limit`, and what becomes of each with the lid closed.
nlohmann::json energyList(const Engine& engine, std::size_t limit);

}  // namespace tovi
