// Everything that happens to a world by chance: a table of events, each with how often it comes.
#pragma once

namespace tovi::soak {

class World;

// What happens in this tick, if anything does.
void happen(World& world);

}  // namespace tovi::soak
