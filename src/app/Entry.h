// Where the process begins: the role it plays and the machine it plays it on.
#pragma once

namespace tovi {

// Runs to the end in the role that the arguments ask for; gives the exit code of the process.
int enter(int argc, char** argv);

}  // namespace tovi
