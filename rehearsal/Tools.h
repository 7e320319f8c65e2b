#pragma once

#include <string>
#include <vector>

#include "rehearsal/MacState.h"
#include "rehearsal/StateDirectory.h"
#include "rehearsal/UpdateText.h"

/// The tools of the rehearsal Mac. Each takes its arguments without its name, prints on the process's
/// standard streams and returns its exit status; faults may end or block the process. Throws
/// std::runtime_error when the rehearsal itself is broken (no state, no root).
namespace zelor::rehearsal {

/// The words of a command after its name.
using Arguments = std::vector<std::string>;

/// Runs the tool by its own function below.
int runTool(Tool tool, const StateDirectory& directory, const Arguments& arguments);

/// The tools. They read the state in `directory`, and write there what they change.
int runSoftwareUpdate(const StateDirectory& directory, const Arguments& arguments);
int runSwVers(const StateDirectory& directory, const Arguments& arguments);
int runInstaller(const StateDirectory& directory, const Arguments& arguments);
int runHdiutil(const StateDirectory& directory, const Arguments& arguments);
int runPkgutil(const StateDirectory& directory, const Arguments& arguments);
int runDefaults(const StateDirectory& directory, const Arguments& arguments);
int runLaunchctl(const StateDirectory& directory, const Arguments& arguments);
int runPwpolicy(const StateDirectory& directory, const Arguments& arguments);
int runScutil(const StateDirectory& directory, const Arguments& arguments);

/// Prints both texts and returns the status.
int say(const ToolText& text);

/// Performs the faults of the process itself: hangs until killed, kills itself, prints 100 MiB of text or 64
/// KiB of noise. Returns at once for every other outcome.
void disturb(Outcome outcome);

/// The program under its own name: makes and changes a rehearsal Mac, builds packages and images. Returns the
/// exit status: 0, or 2 for unusable arguments and 1 for anything that failed, with a message.
int runCommandLine(int count, char** words);

/// The directory of the name that this program was called by: of `name` itself when it holds a slash, else of
/// the first executable of that name in `searchPath`, as the shell looked it up. Throws std::runtime_error
/// when there is none.
std::string directoryOfName(const std::string& name, const std::string& searchPath);

}  // namespace zelor::rehearsal
