// What people, agents and the phone ask for, over every road that leads into the application.
#pragma once

namespace tovi::soak {

class World;

namespace requests {

using Request = void(World& world);

Request command, broadcast, commandLine, agentTool, phone;
Request handEdit;    // of config.json
Request ownWindows;  // what only the person can do, inside the program
Request relayTrouble, quit, setUp;

}  // namespace requests
}  // namespace tovi::soak
