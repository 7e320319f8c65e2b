#pragma once

#include <string>
#include <vector>

#include "rehearsal/MacState.h"
#include "rehearsal/StateDirectory.h"
#include "rehearsal/UpdateText.h"

/// The tools of the rehearsal Mac. Each takes its arguments without its name, prints on the process's own
/// streams and returns its exit status; faults may end or block the process. Trouble with the rehearsal
/// itself (no state, no root) throws std::runtime_error.
namespace zelor::rehearsal {

using Arguments = std::vector<std::string>;

int runTool(Tool tool, const StateDirectory& directory, const Arguments& arguments);

int runSoftwareUpdate(const StateDirectory& directory, const Arguments& arguments);
int runSwVers(const StateDirectory& directory, const Arguments& arguments);
int runInstaller(const StateDirectory& directory, const Arguments& arguments);
int runHdiutil(const StateDirectory& directory, const Arguments& arguments);

/// Prints both texts and returns the status.
int say(const ToolText& text);

/// Acts out the faults that concern the process itself: hangs until killed, kills itself, prints 100 MiB of
/// text or 64 KiB of noise. Returns for every other outcome.
void disturb(Outcome outcome);

/// The program under its own name: makes and changes a rehearsal Mac, builds packages and images. Returns the
/// exit status: 0, or 2 for unusable arguments and 1 for anything that failed, with a message.
int runCommandLine(int count, char** words);

/// The directory of the name that this program was called by: of `name` itself when it holds a slash, else of
/// the first executable of that name in `searchPath`, as the shell looked it up. Throws std::runtime_error
/// when there is none.
std::string directoryOfName(const std::string& name, const std::string& searchPath);

}  // namespace zelor::rehearsal
