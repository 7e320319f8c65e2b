#include "platform/macos/LinuxHardeningFacilitator.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "base/CommandRunner.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "platform/Log.h"
#include "platform/ShellCommand.h"
#include "remediation/CallReport.h"

namespace zlog = zelor::log;

namespace {

// The wait status of a child that could not execute the script's shell.
constexpr int kExitOne = 1 << 8;

// As chmod +x: those who may read the script may run it.
void makeExecutable(const std::string& path) {
    const zelor::base::UniqueFd fd = zelor::base::openFile(path, O_RDONLY | O_NOFOLLOW);
    struct stat info {};
    if (!fd || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return;
    const mode_t readers = info.st_mode & (S_IRUSR | S_IRGRP | S_IROTH);
    fchmod(fd.get(), (info.st_mode & 07777) | readers >> 2);
}

bool noChildToBeHad(int startError) {
    return startError == EAGAIN || startError == ENOMEM || startError == EMFILE || startError == ENFILE;
}

// "exit status 3: the last line of the output", "ended by signal 9"
std::string statusText(const zelor::base::CommandResult& result, int status) {
    const std::string said = zelor::base::lastLine(result.output);
    const int signal = status & 0x7f;
    if (status > 0 && signal != 0) return "ended by signal " + std::to_string(signal);
    return "exit status " + std::to_string(status >> 8) + (said.empty() ? "" : ": " + said);
}

}  // namespace

int LinuxHardeningFacilitator::complianceRemediation(std::string path) {
    zlog::debug("[MacHardeningFacilitator] Welcome to compliance remediation, for '", path, "'");
    makeExecutable(path);
    const zelor::base::CommandResult result = zelor::base::runScript(path, zelor::platform::commandLimit());
    int status = result.status;
    if (result.started) {
        zelor::platform::logCommandTrouble(path, result);
        if (!result.waited) {
            zlog::debug("[MacHardeningFacilitator] Unable to get the exit code of process ", path);
        }
    } else if (noChildToBeHad(result.startError)) {
        zlog::error("[MacHardeningFacilitator] Unable to create Child process");
        zelor::CallReport::addReason("no process for the script: " +
                                     std::string(std::strerror(result.startError)));
    } else {
        zlog::debug("[MacHardeningFacilitator] Unable to run the process ", path);
        zelor::CallReport::addReason("/bin/bash cannot be run: " +
                                     std::string(std::strerror(result.startError)));
        status = kExitOne;
    }
    zlog::debug("[MacHardeningFacilitator] exit process code for ", path, " is = ", status);
    if (status != 0 && !result.output.empty()) {
        zlog::debug("[MacHardeningFacilitator] output of ", path, " = ", result.output);
    }
    if (status != 0) {
        zelor::CallReport::addReason(statusText(result, status));
        zelor::CallReport::setOutput(result.output);
    }
    return status == 0 ? 0 : -1;
}
