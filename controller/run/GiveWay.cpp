#include "controller/run/GiveWay.h"

#include <stdexcept>

#include "controller/InputError.h"

namespace zelor::controller {

namespace {

constexpr char kBufferingFile[] = "/buffering.lock";
constexpr char kWaitingFile[] = "/run-waits.lock";

base::LockFile openSign(const std::string& path) {
    try {
        return base::LockFile(path);
    } catch (const std::runtime_error& e) {
        throw InputError(e.what());
    }
}

}  // namespace

// A process that checks a lock holds it briefly, so both constructors wait for it.
BufferingSign::BufferingSign(const std::string& directory)
    : buffering_(openSign(directory + kBufferingFile)), waiting_(openSign(directory + kWaitingFile)) {
    buffering_.share();
}

bool BufferingSign::runWaits() const {
    return waiting_.isHeld();
}

WaitingSign::WaitingSign(const std::string& directory)
    : buffering_(openSign(directory + kBufferingFile)), waiting_(openSign(directory + kWaitingFile)) {
    waiting_.share();
}

bool WaitingSign::jobBuffers() const {
    return buffering_.isHeld();
}

}  // namespace zelor::controller
