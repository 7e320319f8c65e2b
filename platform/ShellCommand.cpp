#include "platform/ShellCommand.h"

#include <cstring>

#include "base/SystemRoot.h"
#include "platform/AgentIni.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/CallReport.h"

namespace zelor::platform {

std::chrono::seconds commandLimit() {
    const auto tree = readIniFile(underSystemRoot(MPMZELORINIFILE));
    const long minutes = tree ? tree->get("Limits.CommandMinutes", 0L) : 0L;
    constexpr long kYear = 366L * 24 * 60;
    return std::chrono::minutes(minutes > 0 && minutes <= kYear ? minutes : 0L);
}

void logCommandTrouble(const std::string& command, const base::CommandResult& result) {
    if (!result.started) {
        log::error("[MacPatchManager] (runCommand) Cannot start a process: ",
                   std::string(std::strerror(result.startError)), ": ", command);
        CallReport::addReason("cannot start a process: " + std::string(std::strerror(result.startError)));
    }
    if (result.timedOut) {
        log::error("[MacPatchManager] (runCommand) Stopped at the limit of [Limits] CommandMinutes: ",
                   command);
        CallReport::addReason("stopped at the limit of CommandMinutes in section Limits: " + command);
    }
    if (result.outputSize > base::kOutputBound) {
        log::error("[MacPatchManager] (runCommand) The output had ", result.outputSize,
                   " bytes; the first and last ", base::kOutputBound / 2, " are kept: ", command);
    }
}

bool isSyntaxError(const std::string& command) {
    const base::CommandResult result =
        base::runCommand({"/bin/sh", "-n", "-c", command}, true, commandLimit());
    return result.started && result.waited && !result.timedOut && result.status != 0;
}

base::CommandResult runShell(const std::string& command) {
    base::CommandResult result = base::runCommand({"/bin/sh", "-c", command}, false, commandLimit());
    logCommandTrouble(command, result);
    return result;
}

}  // namespace zelor::platform
