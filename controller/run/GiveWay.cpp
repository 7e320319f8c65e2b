#include "controller/run/GiveWay.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/Files.h"
#include "controller/InputError.h"

namespace zelor::controller {

namespace {

constexpr char kBufferingFile[] = "/buffering.lock";
constexpr char kWaitingFile[] = "/run-waits.lock";

base::UniqueFd openSign(const std::string& path) {
    base::UniqueFd file = base::openFile(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600);
    struct stat info {};
    if (!file || ::fstat(file.get(), &info) != 0)
        throw InputError("cannot open " + path + ": " + base::errorText(errno) + "; remove it");
    if (!S_ISREG(info.st_mode) || info.st_uid != ::geteuid() || (info.st_mode & 077U) != 0)
        throw InputError(path + " is not a file that only its owner may open; remove it");
    return file;
}

bool lock(const base::UniqueFd& file, int operation) {
    int result = 0;
    do {
        result = ::flock(file.get(), operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

/// Whether another process, or another descriptor of this one, has the lock.
bool isHeld(const base::UniqueFd& file) {
    if (!lock(file, LOCK_EX | LOCK_NB)) return errno == EWOULDBLOCK;
    (void)lock(file, LOCK_UN);
    return false;
}

}  // namespace

// A process that checks a lock holds it briefly, so both constructors wait for it.
BufferingSign::BufferingSign(const std::string& directory)
    : buffering_(openSign(directory + kBufferingFile)), waiting_(openSign(directory + kWaitingFile)) {
    (void)lock(buffering_, LOCK_SH);
}

bool BufferingSign::runWaits() const {
    return isHeld(waiting_);
}

WaitingSign::WaitingSign(const std::string& directory)
    : buffering_(openSign(directory + kBufferingFile)), waiting_(openSign(directory + kWaitingFile)) {
    (void)lock(waiting_, LOCK_SH);
}

bool WaitingSign::jobBuffers() const {
    return isHeld(buffering_);
}

}  // namespace zelor::controller
