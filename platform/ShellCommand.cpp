#include <cstring>

#include "base/CommandRunner.h"
#include "base/SystemRoot.h"
#include "platform/AgentIni.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"

namespace zelor {

std::chrono::seconds commandLimit() {
    const auto tree = readIniFile(underSystemRoot(MPMZELORINIFILE));
    const long minutes = tree ? tree->get("Limits.CommandMinutes", 0L) : 0L;
    constexpr long kYear = 366L * 24 * 60;
    return std::chrono::minutes(minutes > 0 && minutes <= kYear ? minutes : 0L);
}

void logCommandTrouble(const std::string& command, const CommandResult& result) {
    if (!result.started) {
        log::error("[MacPatchManager] (runCommand) Cannot start a process: ",
                   std::string(std::strerror(result.startError)), ": ", command);
    }
    if (result.timedOut) {
        log::error("[MacPatchManager] (runCommand) Stopped at the limit of [Limits] CommandMinutes: ",
                   command);
    }
    if (result.outputSize > kOutputBound) {
        log::error("[MacPatchManager] (runCommand) The output had ", result.outputSize,
                   " bytes; the first and last ", kOutputBound / 2, " are kept: ", command);
    }
}

CommandResult runShell(const std::string& command) {
    CommandResult result = runCommand({"/bin/sh", "-c", command}, false, commandLimit());
    logCommandTrouble(command, result);
    return result;
}

}  // namespace zelor
