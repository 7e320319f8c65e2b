#pragma once

#include <chrono>
#include <string>

#include "base/CommandRunner.h"

/// External commands under the limit that the agent's ini sets, with their trouble on the log.
namespace zelor::platform {

/// Runs `command` with /bin/sh under the configured limit, and logs what was cut. Blocks until it ends.
base::CommandResult runShell(const std::string& command);

/// True when /bin/sh cannot parse `command`, so that it runs nothing of its last line. Runs nothing either.
bool isSyntaxError(const std::string& command);

/// The configured limit per external command; zero when there is none.
std::chrono::seconds commandLimit();

/// Logs at error that `command` could not be started, that the limit ended it, or that its output was cut.
void logCommandTrouble(const std::string& command, const base::CommandResult& result);

}  // namespace zelor::platform
