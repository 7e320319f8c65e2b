#pragma once

#include "rehearsal/MacState.h"
#include "rehearsal/Tools.h"

/// The tools that only read and change the state.
namespace zelor::rehearsal {

/// What each prints and how it ends, by its arguments. They change `state` as the Mac's would; with a status
/// other than 0 it is as it was. They throw nothing of their own.
ToolText tellPkgutil(MacState& state, const Arguments& arguments);
ToolText tellDefaults(MacState& state, const Arguments& arguments);
ToolText tellLaunchctl(MacState& state, const Arguments& arguments);
ToolText tellPwpolicy(MacState& state, const Arguments& arguments);

/// Runs such a tool: under its faults, and with what it changes written to the state. `no-effect` writes
/// nothing, `not-root` prints `notRoot` with that status for what would have changed something.
int runSettingsTool(Tool tool, const StateDirectory& directory, const Arguments& arguments,
                    ToolText (*tell)(MacState&, const Arguments&), const ToolText& notRoot);

}  // namespace zelor::rehearsal
