#include "base/CommandRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include "base/ChildLock.h"
#include "base/Files.h"
#include "base/Spawn.h"
#include "base/SystemCalls.h"

namespace zelor::base {

namespace {

using Clock = AwakeClock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kKillGrace{5};
constexpr milliseconds kLook{100};

/// Above 2, so that the child's dup2 calls cannot replace it, and closed on exec.
bool moveAboveStandard(UniqueFd& fd) {
    const int high = fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (high < 0) return false;
    fd.reset(high);
    return true;
}

bool makeOutputPipe(UniqueFd& readEnd, UniqueFd& writeEnd) {
    int ends[2];
    if (!makePipe(ends)) return false;
    readEnd = UniqueFd(ends[0]);
    writeEnd = UniqueFd(ends[1]);
    return moveAboveStandard(readEnd) && moveAboveStandard(writeEnd);
}

/// An unnamed file in `directory`; it is removed when its last descriptor is closed.
UniqueFd makeUnnamedFile(const std::string& directory) {
    std::string path = directory + "/.zelor-output-XXXXXX";
    UniqueFd file(mkostemp(path.data(), O_APPEND | O_CLOEXEC));
    if (file) unlink(path.c_str());
    return file;
}

int spawn(const std::vector<std::string>& argv, int output, bool mergeError, pid_t& pid) {
    SpawnActions actions;
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(actions.get(), output, STDOUT_FILENO);
    if (mergeError) {
        posix_spawn_file_actions_adddup2(actions.get(), output, STDERR_FILENO);
    } else if (fcntl(STDERR_FILENO, F_GETFD) >= 0) {
        posix_spawn_file_actions_adddup2(actions.get(), STDERR_FILENO, STDERR_FILENO);
    } else {
        // The host has no standard error. Left closed, the first file that the command opens would get its
        // errors.
        posix_spawn_file_actions_addopen(actions.get(), STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    const int lock = childLockToInherit();
    if (lock >= 0) posix_spawn_file_actions_adddup2(actions.get(), lock, kChildLockDescriptor);
    sigset_t blocked;
    sigset_t defaults;
    sigemptyset(&blocked);
    sigfillset(&defaults);
    sigdelset(&defaults, SIGKILL);
    sigdelset(&defaults, SIGSTOP);
    const int flags = leaveTerminal(blocked) |
                      closeOtherDescriptors(*actions.get(), lock >= 0 ? kChildLockDescriptor : STDERR_FILENO);
    const SpawnAttributes attributes(blocked, defaults, flags);
    return posix_spawn(&pid, argv.front().c_str(), actions.get(), attributes.get(),
                       argumentPointers(argv).data(), processEnvironment());
}

void readRange(int file, off_t from, off_t end, OutputBuffer& buffer) {
    char chunk[65536];
    while (from < end) {
        const auto wanted = std::min<off_t>(end - from, sizeof chunk);
        const ssize_t count = pread(file, chunk, static_cast<std::size_t>(wanted), from);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        buffer.add(chunk, static_cast<std::size_t>(count));
        from += count;
    }
}

/// A file that a command appends its output to.
class GrowingFile {
  public:
    explicit GrowingFile(int file) : file_(file) {}

    /// How many bytes have not been read yet.
    off_t waiting() {
        struct stat info {};
        if (fstat(file_, &info) != 0) return 0;
        if (info.st_size < taken_) taken_ = 0;  // someone truncated it
        return info.st_size - taken_;
    }

    /// Moves them to `buffer`, of many only both ends, and frees their disk space.
    void take(OutputBuffer& buffer) {
        constexpr auto kBound = static_cast<off_t>(kOutputBound);
        const off_t more = waiting();
        const off_t end = taken_ + more;
        if (more <= kBound) {
            readRange(file_, taken_, end, buffer);
        } else {
            readRange(file_, taken_, taken_ + kBound / 2, buffer);
            buffer.skip(static_cast<std::size_t>(more - kBound));
            readRange(file_, end - kBound / 2, end, buffer);
        }
        taken_ = end;
        (void)releaseBeginning(file_, end);
    }

  private:
    int file_;
    off_t taken_ = 0;
};

/// One child: collects its output and its status, and enforces the limit. It is reaped last: until then its
/// id, which is also its group's, cannot be reused.
class Child {
  public:
    Child(pid_t pid, seconds limit) : pid_(pid) {
        if (limit.count() > 0) deadline_ = Clock::now() + limit;
    }

    /// Reads the pipe until all writers have closed it, then waits for the child.
    CommandResult readToEnd(UniqueFd pipe) {
        output_ = std::move(pipe);
        while (output_)
            readSome();
        const bool block = deadline_ == Clock::time_point::max();
        while (!reap(block)) {
            checkLimit();
            pause();
        }
        return finish();
    }

    /// Waits only for the child, which writes to `file`.
    CommandResult waitWith(GrowingFile file) {
        while (!reap(false)) {
            checkLimit();
            if (file.waiting() > static_cast<off_t>(kOutputBound)) file.take(buffer_);
            pause();
        }
        file.take(buffer_);
        return finish();
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
        checkLimit();
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

    /// False while the child runs.
    bool reap(bool block) {
        int status = -1;
        pid_t done = -1;
        do {
            done = waitpid(pid_, &status, block ? 0 : WNOHANG);
        } while (done < 0 && errno == EINTR);
        if (done == 0) return false;
        result_.waited = done == pid_;
        if (result_.waited) result_.status = status;
        return true;
    }

    /// In proportion to the child's running time, so that short commands are not delayed.
    void pause() const {
        const auto passed = std::chrono::duration_cast<milliseconds>(Clock::now() - start_);
        std::this_thread::sleep_for(std::clamp(passed / 16, milliseconds(1), kLook));
    }

    CommandResult finish() {
        // Other processes of a group that was asked to end get the same time. The id stays the group's as
        // long as it has members.
        for (; result_.timedOut && kill(-pid_, 0) == 0 && killAt_ != Clock::time_point::max(); pause())
            checkLimit();
        result_.started = true;
        result_.outputSize = buffer_.size();
        result_.output = buffer_.take();
        return std::move(result_);
    }

    const pid_t pid_;
    UniqueFd output_;
    OutputBuffer buffer_{kOutputBound};
    CommandResult result_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point deadline_ = Clock::time_point::max();
    Clock::time_point killAt_ = Clock::time_point::max();
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
    CommandNote note;
    pid_t pid = -1;
    failed.startError = spawn(argv, writeEnd.get(), mergeError, pid);
    if (failed.startError != 0) return failed;
    note.started(pid, true);
    writeEnd.reset();
    return Child(pid, limit).readToEnd(std::move(readEnd));
}

CommandResult runScript(const std::string& script, seconds limit) {
    const auto slash = script.rfind('/');
    UniqueFd file = makeUnnamedFile(slash == std::string::npos ? "." : script.substr(0, slash + 1));
    if (!file) file = openFile("/dev/null", O_RDWR);
    CommandResult failed;
    if (!file || !moveAboveStandard(file)) {
        failed.startError = errno;
        return failed;
    }
    CommandNote note;
    pid_t pid = -1;
    failed.startError = spawn({"/bin/bash", script}, file.get(), true, pid);
    if (failed.startError != 0) return failed;
    note.started(pid, false);
    return Child(pid, limit).waitWith(GrowingFile(file.get()));
}

void OutputBuffer::add(const char* data, std::size_t size) {
    size_ += size;
    const std::size_t toHead = std::min(size, half_ - head_.size());
    head_.append(data, toHead);
    data += toHead;
    size -= toHead;
    if (size > half_) {
        data += size - half_;
        size = half_;
    }
    const std::size_t toTail = std::min(size, half_ - tail_.size());
    tail_.append(data, toTail);
    for (data += toTail, size -= toTail; size > 0;) {
        const std::size_t run = std::min(size, half_ - start_);
        tail_.replace(start_, run, data, run);
        start_ = (start_ + run) % half_;
        data += run;
        size -= run;
    }
}

std::string OutputBuffer::take() {
    const std::size_t kept = head_.size() + tail_.size();
    std::string text = std::move(head_);
    if (size_ > kept) text += "\n[" + std::to_string(size_ - kept) + " bytes left out]\n";
    text.append(tail_, start_, std::string::npos).append(tail_, 0, start_);
    *this = OutputBuffer(half_ * 2);
    return text;
}

}  // namespace zelor::base
