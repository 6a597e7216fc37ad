// What the command line tool and the server for agents take, beside an application that answers.
#pragma once

#include "Stage.h"
#include "Table.h"

namespace tovi::bench {

void timeTool(Table& table, const Stage& stage);

// `tovi run -- true` against the tool that keeps other Linux machines awake for a command.
void timeRun(Table& table, const Stage& stage);

// The server that an agent starts: from its start to the first answer, and a call that goes to the application.
void timeMcp(Table& table, const Stage& stage);

}  // namespace tovi::bench
