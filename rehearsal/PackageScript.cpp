#include "rehearsal/PackageScript.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "base/Files.h"

namespace zelor::rehearsal {

namespace {

[[noreturn]] void becomeScript(const PackageScript& script, int input, int log) {
    const bool ready = chdir(script.folder.c_str()) == 0 && dup2(input, STDIN_FILENO) >= 0 &&
                       dup2(log, STDOUT_FILENO) >= 0 && dup2(log, STDERR_FILENO) >= 0 &&
                       setenv("PACKAGE_PATH", script.packagePath.c_str(), 1) == 0 &&
                       setenv("DSTROOT", script.targetLocation.c_str(), 1) == 0 &&
                       setenv("DSTVOLUME", script.targetVolume.c_str(), 1) == 0 &&
                       setenv("SCRIPT_NAME", script.name.c_str(), 1) == 0;
    if (ready) {
        execlp("bash", "bash", ("./" + script.name).c_str(), script.packagePath.c_str(),
               script.targetLocation.c_str(), script.targetVolume.c_str(), static_cast<char*>(nullptr));
    }
    _exit(127);
}

}  // namespace

bool runPackageScript(const PackageScript& script, const std::string& logFile) {
    const base::UniqueFd input = base::openFile("/dev/null", O_RDONLY);
    const base::UniqueFd log = base::openFile(logFile, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (!input || !log) return false;
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) becomeScript(script, input.get(), log.get());
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace zelor::rehearsal
