// The long texts of the command line tool, each with its final line end.
#pragma once

namespace tovi::CLITexts {

extern const char kUsage[];
extern const char kPrompt[];  // for the person's agent: how to set Tovi up with them

}  // namespace tovi::CLITexts
