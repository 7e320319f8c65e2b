#pragma once

#include <chrono>
#include <string>

#include "base/CommandRunner.h"

/// External commands, run under the time limit of the agent's ini file; failures to run them are logged.
namespace zelor::platform {

/// Runs `command` with /bin/sh under the configured limit and logs as `logCommandTrouble` does. Blocks until
/// it ends.
base::CommandResult runShell(const std::string& command);

/// True when /bin/sh cannot parse `command`, so that it runs nothing of its last line. Runs nothing either.
bool isSyntaxError(const std::string& command);

/// The configured limit per external command; zero when there is none.
std::chrono::seconds commandLimit();

/// Logs at error that `command` could not be started, that the limit ended it, or that its output was cut.
void logCommandTrouble(const std::string& command, const base::CommandResult& result);

}  // namespace zelor::platform
