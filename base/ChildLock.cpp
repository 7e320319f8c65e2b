#include "base/ChildLock.h"

#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>

namespace zelor::base {

namespace {

constexpr long kNoCommand = 0;

/// Commands are started deep below whoever holds the lock, through interfaces that are fixed.
std::atomic<LockFile*>& current() {
    static std::atomic<LockFile*> file{nullptr};
    return file;
}

bool hasEnded(long command) {
    return command == kNoCommand || (::kill(static_cast<pid_t>(command), 0) != 0 && errno == ESRCH);
}

void noteCommand(std::optional<long> process) {
    LockFile* const file = current();
    if (file != nullptr) file->note(process);
}

}  // namespace

ChildLock::~ChildLock() {
    if (!taken_) return;
    current() = nullptr;
    file_.release();
}

/// True when the command itself has ended, but something that it started holds the descriptor.
bool ChildLock::onlyServicesHoldIt() const {
    const std::optional<long> command = file_.noted();
    return command && hasEnded(*command);
}

bool ChildLock::take() {
    while (!file_.take()) {
        if (!onlyServicesHoldIt()) return false;
        file_.renew();
    }
    file_.note(kNoCommand);
    current() = &file_;
    taken_ = true;
    return true;
}

LockState lookAtCommand(const std::string& path) {
    LockState state = lookAtLock(path);
    const bool onlyServices = state.process && hasEnded(*state.process);
    return state.kind == LockState::Kind::held && onlyServices ? LockState() : state;
}

CommandNote::CommandNote() {
    noteCommand(std::nullopt);
}

CommandNote::~CommandNote() {
    noteCommand(kNoCommand);
}

void CommandNote::started(pid_t process, bool group) {
    noteCommand(group ? -static_cast<long>(process) : static_cast<long>(process));
}

int childLockToInherit() {
    const LockFile* const file = current();
    struct rlimit limit {};
    if (file == nullptr || ::getrlimit(RLIMIT_NOFILE, &limit) != 0) return -1;
    return limit.rlim_cur > static_cast<rlim_t>(kChildLockDescriptor) ? file->descriptor() : -1;
}

}  // namespace zelor::base
