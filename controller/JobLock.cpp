#include "controller/JobLock.h"

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "base/SystemRoot.h"
#include "base/TrustedDirectory.h"
#include "controller/InputError.h"
#include "controller/run/GiveWay.h"
#include "controller/run/Signals.h"

namespace zelor::controller {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr char kLockDirectory[] = "/var/zelor";
constexpr seconds kLongestCommandWait{600};
constexpr milliseconds kAgain{50};
constexpr milliseconds kBetweenLocks{500};

std::string processText(std::optional<long> process) {
    if (!process || *process == 0) return "";
    return "process " + std::to_string(*process < 0 ? -*process : *process) + ", ";
}

/// Tries until it succeeds; false when the time that `until` gives has come. Throws CommandError when a
/// signal ends the wait.
bool awaitLock(const std::function<bool()>& take, const std::function<Clock::time_point()>& until) {
    const Signals signals;
    while (Clock::now() < until()) {
        signals.wait(milliseconds(100));
        if (signals.endAsked())
            throw CommandError(exitStatus::kCancelled, "cancelled while waiting; nothing was changed");
        if (take()) return true;
    }
    return false;
}

/// A run's wait for a buffering job that stops for it; may be longer than --wait asks for.
class BufferingWait {
  public:
    explicit BufferingWait(const Waiting& waiting)
        : sign_(lockDirectory()),
          quiet_(waiting.quiet || waiting.longest.count() > 0),
          until_(Clock::now() + std::max<Clock::duration>(waiting.longest, kBetweenLocks)),
          longest_(Clock::now() + waiting.forBuffering) {}

    Clock::time_point until() {
        if (!sign_.jobBuffers()) return until_;
        // A job that begins or ends briefly holds only one of its two locks.
        until_ = std::max(until_, std::min(Clock::now() + kBetweenLocks, longest_));
        if (!quiet_) {
            std::cerr
                << "zelor-remediate: waiting for the buffering job, which stops after the current patch or "
                   "at most a minute\n";
        }
        quiet_ = true;
        return until_;
    }

  private:
    WaitingSign sign_;
    bool quiet_;
    Clock::time_point until_;
    Clock::time_point longest_;
};

bool awaitJob(base::LockFile& lock, const Waiting& waiting) {
    const auto take = [&lock] { return lock.take(); };
    if (waiting.forBuffering.count() == 0) {
        const auto until = Clock::now() + waiting.longest;
        return awaitLock(take, [until] { return until; });
    }
    BufferingWait buffering(waiting);
    return awaitLock(take, [&buffering] { return buffering.until(); });
}

void takeJobLock(base::LockFile& lock, const Waiting& waiting) {
    if (lock.take()) return;
    // A process that only checks the lock holds it briefly.
    std::this_thread::sleep_for(kAgain);
    if (lock.take()) return;
    const std::string other = "another run or buffering job works at this place (" +
                              processText(lock.noted()) + "it holds " + lock.path() + ')';
    const bool wait = waiting.longest.count() > 0;
    if (wait && !waiting.quiet) std::cerr << "zelor-remediate: waiting, since " << other << '\n';
    if (awaitJob(lock, waiting)) return;
    throw CommandError(exitStatus::kBusy,
                       other + (wait ? "; wait longer, or stop it"
                                     : "; wait until it ends with --wait SECONDS, or stop it"));
}

void takeCommandLock(base::ChildLock& lock, const Waiting& waiting) {
    if (lock.take()) return;
    const std::string command = "a command of an earlier run that was killed (" +
                                processText(lock.command()) + "it holds " + lock.path() + ')';
    if (!waiting.quiet) std::cerr << "zelor-remediate: waiting for " << command << '\n';
    const auto until = Clock::now() + std::max(waiting.longest, kLongestCommandWait);
    if (awaitLock([&lock] { return lock.take(); }, [until] { return until; })) return;
    throw CommandError(exitStatus::kBusy, command + " is still running; wait until it ends, or stop it");
}

}  // namespace

std::string lockDirectory() {
    return underSystemRoot(kLockDirectory);
}

std::string jobLockFile() {
    return lockDirectory() + "/remediate.lock";
}

std::string commandLockFile() {
    return lockDirectory() + "/commands.lock";
}

JobLock::JobLock(const Waiting& waiting) {
    if (const base::Check own = base::checkFile(lockDirectory()); !own)
        throw InputError("the directory of the lock files, " + lockDirectory() +
                         ", is refused: " + own.error().text);
    try {
        job_ = std::make_unique<base::LockFile>(jobLockFile());
        takeJobLock(*job_, waiting);
        job_->note(::getpid());
        commands_ = std::make_unique<base::ChildLock>(commandLockFile());
        takeCommandLock(*commands_, waiting);
    } catch (const CommandError&) {
        throw;
    } catch (const std::runtime_error& e) {
        throw InputError(e.what());
    }
}

}  // namespace zelor::controller
