#include "base/CommandRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "base/Files.h"
#include "base/OutputBuffer.h"
#include "base/SystemCalls.h"

namespace zelor::base {

namespace {

using Clock = AwakeClock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kKillGrace{5};
constexpr seconds kOrphanGrace{5};
constexpr milliseconds kLook{100};

class SpawnActions {
  public:
    SpawnActions() { posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    posix_spawn_file_actions_t* get() { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

class SpawnAttributes {
  public:
    explicit SpawnAttributes(short moreFlags) {
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        sigdelset(&all, SIGKILL);
        sigdelset(&all, SIGSTOP);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        const int flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | moreFlags;
        posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    posix_spawnattr_t* get() { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

bool makeOutputPipe(UniqueFd& readEnd, UniqueFd& writeEnd) {
    int ends[2];
    if (!makePipe(ends)) return false;
    readEnd = UniqueFd(ends[0]);
    writeEnd = UniqueFd(ends[1]);
    // Above 2, so that the child's own dup2 calls cannot meet them, and closed on exec.
    for (UniqueFd* end : {&readEnd, &writeEnd}) {
        const int high = fcntl(end->get(), F_DUPFD_CLOEXEC, 3);
        if (high < 0) return false;
        end->reset(high);
    }
    return true;
}

int spawn(const std::vector<std::string>& argv, int output, bool mergeError, pid_t& pid) {
    SpawnActions actions;
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(actions.get(), output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(actions.get(), mergeError ? output : STDERR_FILENO, STDERR_FILENO);
    SpawnAttributes attributes(closeOtherDescriptors(*actions.get()));
    std::vector<char*> words;
    words.reserve(argv.size() + 1);
    for (const std::string& word : argv)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    return posix_spawn(&pid, argv.front().c_str(), actions.get(), attributes.get(), words.data(),
                       processEnvironment());
}

/// One child: collects its output, then its status.
class Child {
  public:
    Child(pid_t pid, UniqueFd output, seconds limit) : pid_(pid), output_(std::move(output)) {
        if (limit.count() > 0) deadline_ = Clock::now() + limit;
    }

    CommandResult wait() {
        while (output_)
            readSome();
        while (!ended_) {
            reap(deadline_ == Clock::time_point::max() && !result_.timedOut);
            if (!ended_) {
                checkLimit();
                std::this_thread::sleep_for(milliseconds(5));
            }
        }
        result_.started = true;
        result_.outputSize = buffer_.size();
        result_.output = buffer_.take();
        return std::move(result_);
    }

  private:
    void readSome() {
        struct pollfd poller {
            output_.get(), POLLIN, 0
        };
        const int ready = poll(&poller, 1, static_cast<int>(kLook.count()));
        if (ready > 0) {
            char chunk[65536];
            const ssize_t count = read(output_.get(), chunk, sizeof chunk);
            if (count > 0) {
                buffer_.add(chunk, static_cast<std::size_t>(count));
            } else if (count == 0 || errno != EINTR) {
                output_.reset();
                return;
            }
        }
        const auto now = Clock::now();
        if (now < nextLook_) return;
        nextLook_ = now + kLook;
        if (!ended_) reap(false);
        checkLimit();
        if (ended_ && now - endedAt_ > kOrphanGrace) output_.reset();
    }

    void checkLimit() {
        const auto now = Clock::now();
        if (!result_.timedOut && now >= deadline_) {
            result_.timedOut = true;
            killAt_ = now + kKillGrace;
            kill(-pid_, SIGTERM);
        } else if (result_.timedOut && now >= killAt_) {
            kill(-pid_, SIGKILL);
            output_.reset();
            killAt_ = Clock::time_point::max();
        }
    }

    void reap(bool block) {
        int status = -1;
        pid_t done = -1;
        do {
            done = waitpid(pid_, &status, block ? 0 : WNOHANG);
        } while (done < 0 && errno == EINTR);
        if (done == 0) return;
        ended_ = true;
        endedAt_ = Clock::now();
        result_.waited = done == pid_;
        if (result_.waited) result_.status = status;
    }

    pid_t pid_;
    UniqueFd output_;
    OutputBuffer buffer_{kOutputBound};
    CommandResult result_;
    bool ended_ = false;
    Clock::time_point deadline_ = Clock::time_point::max();
    Clock::time_point killAt_ = Clock::time_point::max();
    Clock::time_point nextLook_ = Clock::now() + kLook;
    Clock::time_point endedAt_;
};

}  // namespace

CommandResult runCommand(const std::vector<std::string>& argv, bool mergeError, seconds limit) {
    UniqueFd readEnd;
    UniqueFd writeEnd;
    CommandResult failed;
    if (!makeOutputPipe(readEnd, writeEnd)) {
        failed.startError = errno;
        return failed;
    }
    pid_t pid = -1;
    failed.startError = spawn(argv, writeEnd.get(), mergeError, pid);
    if (failed.startError != 0) return failed;
    writeEnd.reset();
    return Child(pid, std::move(readEnd), limit).wait();
}

}  // namespace zelor::base
