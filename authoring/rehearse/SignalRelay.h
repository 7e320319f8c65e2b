#pragma once

#include <signal.h>
#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "base/Mutex.h"

namespace zelor::authoring {

/// Thrown when SIGINT, SIGTERM or SIGHUP ends a command.
class Interrupted : public std::runtime_error {
  public:
    Interrupted() : std::runtime_error("interrupted") {}
};

/// Blocks SIGINT, SIGTERM and SIGHUP in this thread and those it creates from now on, so that cleanup is not
/// cut short; the process group of a program that `run` runs gets them instead, and SIGWINCH. One object at a
/// time in a process.
class SignalRelay {
  public:
    SignalRelay();
    ~SignalRelay();
    SignalRelay(const SignalRelay&) = delete;
    SignalRelay& operator=(const SignalRelay&) = delete;

    /// Throws Interrupted when one of the signals has come.
    void requireNone();
    /// Runs `argv` (its first word a path) with this process's standard streams in a new process group.
    /// Returns its exit status, or 128 plus the number of the signal that ended it. Throws std::runtime_error
    /// when it cannot be started.
    int run(std::vector<std::string> argv);

  private:
    void relay();

    sigset_t signals_{};
    sigset_t before_{};
    base::Mutex mutex_;
    bool received_ ZELOR_GUARDED_BY(mutex_) = false;
    bool ended_ ZELOR_GUARDED_BY(mutex_) = false;
    pid_t program_ ZELOR_GUARDED_BY(mutex_) = 0;
    std::thread thread_;
};

}  // namespace zelor::authoring
